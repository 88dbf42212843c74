// The numbers of a host array as T: borrowed where the array already stores
// them as dense T, else converted from whatever numeric or logical class it
// has (a sparse array expanded; cells, function handles and objects hold no
// numbers), and `fill` wherever it holds fewer than asked for. Nothing past
// what the array stores is ever read.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "frame/checked.hpp"
#include "frame/element_class.hpp"
#include "frame/scratch.hpp"
#include "host/host.hpp"

namespace zv {

namespace frame {

// One value converted to T; a floating value becomes an integer by the
// saturating truncation, so NaN and infinities stay defined.
template <class T, class S>
T convertValue(S v) {
    if constexpr (std::is_integral_v<T> && std::is_floating_point_v<S>) return checked::truncateSaturated<T>(double(v));
    else return T(v);
}

// Calls f(values, count, stride) with the dense storage of `a` as its own
// element type: value k stands at values[k * stride] (a complex array
// interleaves its imaginary parts, which are not read). False, without
// calling f, for classes that hold no numbers.
template <class F>
bool visitDenseStorage(const ndArray* a, F&& f) {
    const void* p = ndGetData(a);
    const size_t n = ndGetNumberOfElements(a);
    const size_t stride = ndIsComplex(a) ? 2 : 1;
    if (!p || ndIsSparse(a)) return false;
    switch (ndGetClassID(a)) {
    case ndDOUBLE_CLASS: f(static_cast<const double*>(p), n, stride); return true;
    case ndSINGLE_CLASS: f(static_cast<const float*>(p), n, stride); return true;
    case ndLOGICAL_CLASS: f(static_cast<const unsigned char*>(p), n, stride); return true;
    case ndCHAR_CLASS: f(static_cast<const char16_t*>(p), n, stride); return true;
    case ndINT8_CLASS: f(static_cast<const int8_t*>(p), n, stride); return true;
    case ndUINT8_CLASS: f(static_cast<const uint8_t*>(p), n, stride); return true;
    case ndINT16_CLASS: f(static_cast<const int16_t*>(p), n, stride); return true;
    case ndUINT16_CLASS: f(static_cast<const uint16_t*>(p), n, stride); return true;
    case ndINT32_CLASS: f(static_cast<const int32_t*>(p), n, stride); return true;
    case ndUINT32_CLASS: f(static_cast<const uint32_t*>(p), n, stride); return true;
    case ndINT64_CLASS: f(static_cast<const int64_t*>(p), n, stride); return true;
    case ndUINT64_CLASS: f(static_cast<const uint64_t*>(p), n, stride); return true;
    default: return false;
    }
}

// Calls put(k, v) for every stored value of `a`, k its column-major position
// in the whole array; the zeros a sparse array does not store are put too.
template <class T, class Put>
void forEachValue(const ndArray* a, Put&& put) {
    if (ndIsSparse(a)) {
        if (ndGetClassID(a) != ndDOUBLE_CLASS && ndGetClassID(a) != ndLOGICAL_CLASS) return;
        const size_t m = ndGetM(a), n = ndGetN(a);
        for (size_t k = 0; k < m * n; ++k) put(k, T(0));
        const size_t* rows = ndGetRowIndices(a);
        const size_t* starts = ndGetColumnStarts(a);
        auto each = [&](const auto* values) {
            for (size_t j = 0; j < n; ++j)
                for (size_t e = starts[j]; e < starts[j + 1]; ++e) put(rows[e] + j * m, convertValue<T>(values[e]));
        };
        if (ndGetClassID(a) == ndDOUBLE_CLASS) each(static_cast<const double*>(ndGetData(a)));
        else each(static_cast<const unsigned char*>(ndGetData(a)));
        return;
    }
    visitDenseStorage(a, [&](const auto* values, size_t count, size_t stride) {
        for (size_t k = 0; k < count; ++k) put(k, convertValue<T>(values[k * stride]));
    });
}

}  // namespace frame

template <class T, class OutOfMemory = void>
class HostValues {
public:
    // The first `count` values of `a`, column-major.
    HostValues(const ndArray* a, size_t count, T fill) {
        if (isDense(a) && ndGetNumberOfElements(a) >= count) {
            data_ = static_cast<const T*>(ndGetData(a));
            return;
        }
        copy_ = Scratch<T, OutOfMemory>(count, fill);
        copyInto(a, copy_.get(), count, fill);
        data_ = copy_.get();
    }

    // `a` seen as a rows-by-cols matrix: element (i, j) is a's own element
    // (i, j), and `fill` where a has no such element.
    static HostValues matrix(const ndArray* a, size_t rows, size_t cols, T fill) {
        if (isDense(a) && ndGetM(a) == rows && ndGetNumberOfElements(a) >= rows * cols) return HostValues(a, 0, fill, borrow);
        HostValues v(a, 0, fill, borrow);
        size_t count = 0;
        if (__builtin_mul_overflow(rows, cols, &count)) frame::raiseOutOfMemory<OutOfMemory>(SIZE_MAX);
        v.copy_ = Scratch<T, OutOfMemory>(count, fill);
        T* out = v.copy_.get();
        const size_t m = std::max<size_t>(ndGetM(a), 1);
        frame::forEachValue<T>(a, [&](size_t k, T value) {
            if (k % m < rows && k / m < cols) out[k % m + k / m * rows] = value;
        });
        v.data_ = out;
        return v;
    }

    // Writes the first `count` values of `a` into `to`, each through `f`;
    // `fill` (not passed through f) where a has none.
    template <class F = std::identity>
    static void copyInto(const ndArray* a, T* to, size_t count, T fill, F&& f = {}) {
        size_t have = 0;
        if (isDense(a)) {
            have = std::min(count, ndGetNumberOfElements(a));
            const T* from = static_cast<const T*>(ndGetData(a));
            for (size_t k = 0; k < have; ++k) to[k] = f(from[k]);
        } else if (!ndIsSparse(a)) {
            frame::visitDenseStorage(a, [&](const auto* values, size_t stored, size_t stride) {
                have = std::min(count, stored);
                for (size_t k = 0; k < have; ++k) to[k] = f(frame::convertValue<T>(values[k * stride]));
            });
        } else {
            std::fill(to, to + count, fill);
            frame::forEachValue<T>(a, [&](size_t k, T value) {
                if (k < count) to[k] = f(value);
            });
            return;
        }
        std::fill(to + have, to + count, fill);
    }

    const T* data() const { return data_; }
    const T& operator[](size_t i) const { return data_[i]; }
    // True when the values are the array's own storage, not a copy.
    bool borrowed() const { return copy_.get() == nullptr; }

private:
    struct Borrow {};
    static constexpr Borrow borrow{};
    HostValues(const ndArray* a, size_t, T, Borrow) : data_(static_cast<const T*>(ndGetData(a))) {}

    static bool isDense(const ndArray* a) {
        return ndGetClassID(a) == classOf<T>() && !ndIsSparse(a) && !ndIsComplex(a) && ndGetData(a);
    }

    Scratch<T, OutOfMemory> copy_;
    const T* data_ = nullptr;
};

}  // namespace zv

// Matrix arguments of the matching-pursuit gateways as dense T: borrowed when
// the host array already is one, else a converted copy, so that an input of
// another class, a sparse one or one of a different shape is never read past
// its storage.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "frame/gateway.hpp"
#include "sparse/omp_block.hpp"

namespace featlearn::omp {

template <class T>
class DenseArgument {
public:
    // `a` seen as rows x cols: borrowed when it is a dense array of T with
    // `rows` rows and enough values; otherwise element (i, j) of a's
    // column-major values taken `rows` at a time when `flat`, or of its own
    // rows and columns when not, converted to T, and `fill` where `a` has none.
    DenseArgument(const ndArray* a, size_t rows, size_t cols, bool flat, T fill) {
        const bool sameClass = ndGetClassID(a) == zv::classOf<T>() && !ndIsSparse(a);
        const size_t aRows = flat ? rows : ndGetM(a);
        if (sameClass && aRows == rows && ndGetNumberOfElements(a) >= rows * cols) {
            data_ = zv::dataOf<const T>(a);
            return;
        }
        copy_ = Block<T>(rows * cols, Heap::host);
        T* out = copy_.get();
        std::fill(out, out + rows * cols, fill);
        const size_t count = ndGetNumberOfElements(a);
        const size_t m = ndGetM(a), n = count / std::max<size_t>(m, 1);
        // Value p of a, column-major, lands at position p of the view when
        // `flat`, and at its own row and column when not.
        auto place = [&](size_t p, T v) {
            if (flat) {
                if (p < rows * cols) out[p] = v;
            } else if (p % m < rows && p / m < cols) {
                out[p % m + p / m * rows] = v;
            }
        };
        if (ndIsSparse(a)) {
            // The values not stored are zeros, not `fill`.
            if (flat) std::fill(out, out + std::min(count, rows * cols), T(0));
            else
                for (size_t jj = 0; jj < std::min(cols, n); ++jj) std::fill(out + jj * rows, out + jj * rows + std::min(rows, m), T(0));
            const double* values = zv::dataOf<const double>(a);
            const size_t* rowIndex = ndGetRowIndices(a);
            const size_t* starts = ndGetColumnStarts(a);
            for (size_t jj = 0; jj < ndGetN(a); ++jj)
                for (size_t q = starts[jj]; q < starts[jj + 1]; ++q) place(rowIndex[q] + jj * m, T(values[q]));
        } else {
            convertAll(a, count, place);
        }
        data_ = out;
    }

    const T* data() const { return data_; }

private:
    template <class Place>
    static void convertAll(const ndArray* a, size_t count, Place& place) {
        const void* p = ndGetData(a);
        auto each = [&](auto tag) {
            using S = decltype(tag);
            const S* s = static_cast<const S*>(p);
            for (size_t k = 0; k < count; ++k) place(k, T(s[k]));
        };
        switch (ndGetClassID(a)) {
        case ndDOUBLE_CLASS: each(double{}); break;
        case ndSINGLE_CLASS: each(float{}); break;
        case ndLOGICAL_CLASS: each((unsigned char){}); break;
        case ndCHAR_CLASS: each(char16_t{}); break;
        case ndINT8_CLASS: each(int8_t{}); break;
        case ndUINT8_CLASS: each(uint8_t{}); break;
        case ndINT16_CLASS: each(int16_t{}); break;
        case ndUINT16_CLASS: each(uint16_t{}); break;
        case ndINT32_CLASS: each(int32_t{}); break;
        case ndUINT32_CLASS: each(uint32_t{}); break;
        case ndINT64_CLASS: each(int64_t{}); break;
        case ndUINT64_CLASS: each(uint64_t{}); break;
        default: break;  // cells, functions and objects hold no numbers: all `fill`
        }
    }

    Block<T> copy_;
    const T* data_ = nullptr;
};

}  // namespace featlearn::omp

// How the lasso gateways read their inputs and start their outputs. The host
// is trusted for classes and lengths, so an input is read as T, and only as
// far as it holds values: whatever it lacks counts as NaN (as false in a
// mask), which the sweeps carry into the results instead of reading past it.
#pragma once

#include <cstddef>
#include <limits>

#include "frame/gateway.hpp"
#include "frame/host_values.hpp"

namespace zv::sparse {

template <class T>
inline constexpr T kMissing = std::numeric_limits<T>::quiet_NaN();

// rows * cols values of `a`, column-major. A count beyond size_t is an array
// that no host can hold.
template <class T>
HostValues<T> numbers(const ndArray* a, size_t rows, size_t cols = 1) {
    size_t count = 0;
    if (__builtin_mul_overflow(rows, cols, &count)) throw bedrock::core::except::bad_alloc();
    return HostValues<T>(a, count, kMissing<T>);
}

inline HostValues<bool> mask(const ndArray* a, size_t P) { return HostValues<bool>(a, P, false); }

// A new P-by-1 array of T holding the first P values of `a`: the coefficients
// that a sweep then updates in place.
template <class T>
matrix::unique_nd_ptr copiedColumn(const ndArray* a, size_t P) {
    auto out = createMatrix<T>(P, 1);
    HostValues<T>::copyInto(a, dataOf<T>(out.get()), P, kMissing<T>);
    return out;
}

// A new P-by-1 logical array from the first P values of `a`: the active set.
inline matrix::unique_nd_ptr copiedMask(const ndArray* a, size_t P) {
    auto out = createMatrix<bool>(P, 1);
    HostValues<bool>::copyInto(a, dataOf<bool>(out.get()), P, false);
    return out;
}

}  // namespace zv::sparse

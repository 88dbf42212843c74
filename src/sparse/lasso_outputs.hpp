// The outputs the lasso gateways start from: fresh copies of the coefficient
// and active-set inputs, which the sweeps then update in place.
#pragma once

#include <algorithm>
#include <cstddef>

#include "frame/gateway.hpp"

namespace zv::lasso {

// A new P-by-1 array of T holding the first P values of `a`.
template <class T>
matrix::unique_nd_ptr copiedColumn(const ndArray* a, size_t P) {
    auto out = createMatrix<T>(P, 1);
    std::copy_n(dataOf<const T>(a), P, dataOf<T>(out.get()));
    return out;
}

// A new P-by-1 logical array from the first P bytes of `a`; any non-zero byte
// reads as true, so the engines see only proper bools.
inline matrix::unique_nd_ptr copiedMask(const ndArray* a, size_t P) {
    auto out = createMatrix<bool>(P, 1);
    const unsigned char* in = dataOf<const unsigned char>(a);
    bool* mask = dataOf<bool>(out.get());
    for (size_t j = 0; j < P; ++j) mask[j] = in[j] != 0;
    return out;
}

// Hands the first numOutputs of `made` to the host, in slot order; the rest
// are destroyed with `made`.
template <size_t K>
void handOver(matrix::unique_nd_ptr (&made)[K], int numOutputs, ndArray** outputs) {
    for (size_t k = 0; k < K && k < size_t(numOutputs); ++k) outputs[k] = matrix::to_host(std::move(made[k]));
}

}  // namespace zv::lasso

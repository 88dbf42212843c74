// Column operations of the lasso sweeps over BLAS, for columns of any length:
// BLAS counts are 32-bit, so a longer column goes through in pieces.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>
#include <tbb/task_group.h>

#include <algorithm>
#include <climits>
#include <cstddef>

#include "frame/blas.hpp"

namespace zv::lasso {

inline constexpr size_t kBlasPiece = size_t(INT_MAX);

template <class T>
T columnDot(size_t n, const T* x, const T* y) {
    if (n <= kBlasPiece) return blas::dot(int(n), x, 1, y, 1);
    T sum = 0;
    for (size_t start = 0; start < n; start += kBlasPiece)
        sum += blas::dot(int(std::min(kBlasPiece, n - start)), x + start, 1, y + start, 1);
    return sum;
}

// y += alpha x
template <class T>
void columnAxpy(size_t n, T alpha, const T* x, T* y) {
    for (size_t start = 0; start < n; start += kBlasPiece)
        blas::axpy(int(std::min(kBlasPiece, n - start)), alpha, x + start, 1, y + start, 1);
}

// A column of at most this many rows is updated on the calling thread: a
// parallel loop over it costs more to schedule than to compute.
inline constexpr size_t kSerialSubtractRows = 16384;

// r -= delta * column, row by row across the workers, in a context of its
// own so that a failure elsewhere cannot cancel it half done. Each row is
// one multiply and one subtract whatever the split, so the values do not
// depend on the thread count.
template <class T>
void parallelSubtractScaled(size_t N, const T* column, T delta, T* r) {
    if (N <= kSerialSubtractRows) {
        for (size_t i = 0; i < N; ++i) r[i] = r[i] - column[i] * delta;
        return;
    }
    tbb::task_group_context context;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, N, 1),
        [=](const tbb::blocked_range<size_t>& rows) {
            for (size_t i = rows.begin(); i != rows.end(); ++i) r[i] = r[i] - column[i] * delta;
        },
        tbb::auto_partitioner(), context);
}

// r -= X b for an N-by-P column-major X: one gemv while the counts fit BLAS.
template <class T>
void subtractProduct(size_t N, size_t P, const T* X, const T* b, T* r) {
    if (N <= kBlasPiece && P <= kBlasPiece) {
        blas::gemv("N", int(N), int(P), T(-1), X, int(std::max<size_t>(N, 1)), b, 1, T(1), r, 1);
        return;
    }
    for (size_t j = 0; j < P; ++j) columnAxpy(N, -b[j], X + j * N, r);
}

}  // namespace zv::lasso

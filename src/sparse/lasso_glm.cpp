// Engines of the GLM-lasso sweep and of the weighted squared column sums.
#include "sparse/lasso_glm.hpp"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>

#include "frame/blas.hpp"
#include "sparse/lasso_threshold.hpp"
#include "sparse/residual_update.hpp"

namespace zv::sparse {

template <class T>
void typedCoordDescentCycle(unsigned long N, unsigned long P, T const* X, T const* weightedX, T const* xx,
                            T const* z, T* r, T* b, bool* active, T const* shrink, T threshold) {
    // Each sweep starts from a fresh residual: the weights change between sweeps.
    std::copy_n(z, N, r);
    blas::gemv("N", N, P, T(-1), X, N, b, T(1), r);
    for (size_t j = 0; j < P; ++j) {
        if (!active[j]) continue;
        const T old = b[j];
        // A plain ascending sum, so the value is the same on every machine.
        const T* weightedColumn = weightedX + j * N;
        T d = 0;
        for (size_t i = 0; i < N; ++i) d += weightedColumn[i] * r[i];
        d += xx[j] * old;
        softThreshold(d, threshold, shrink[j], b[j], active[j]);
        if (N == 0) continue;
        const T delta = b[j] - old;
        const T* column = X + j * N;
        parallelSubtractScaled(N, column, delta, r);
    }
}

template <class T>
void typedWtimesX2(unsigned long N, unsigned long P, T const* X, T const* w, bool const* active, T* xx) {
    if (P == 0) return;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, P, 1),
        [=](const tbb::blocked_range<size_t>& predictors) {
            for (size_t j = predictors.begin(); j != predictors.end(); ++j) {
                if (!active[j]) continue;
                const T* column = X + j * N;
                T sum = 0;
                for (size_t i = 0; i < N; ++i) sum += (w[i] * column[i]) * column[i];
                xx[j] = sum;
            }
        },
        tbb::auto_partitioner());
}

#define ZV_LASSOGLM_INSTANTIATE(T)                                                                         \
    template void typedCoordDescentCycle<T>(unsigned long, unsigned long, T const*, T const*, T const*, T const*, \
                                            T*, T*, bool*, T const*, T);                                   \
    template void typedWtimesX2<T>(unsigned long, unsigned long, T const*, T const*, bool const*, T*);
ZV_LASSOGLM_INSTANTIATE(double)
ZV_LASSOGLM_INSTANTIATE(float)
#undef ZV_LASSOGLM_INSTANTIATE

}  // namespace zv::sparse

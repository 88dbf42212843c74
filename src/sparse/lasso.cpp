// Engines of the lasso sweeps: dense with a carried residual, covariance form,
// and the residual of a coefficient vector.
#include "sparse/lasso.hpp"

#include <algorithm>

#include "frame/blas.hpp"
#include "sparse/lasso_threshold.hpp"
#include "sparse/residual_update.hpp"

namespace zv::sparse {

namespace {

// r -= delta * column. Each row is updated on its own, so the parallel form
// gives the same values whatever the thread count.
template <class T>
void updateResidual(size_t N, const T* column, T delta, T* r) {
    if (N <= kParallelUpdateRows) {
        blas::axpy(N, -delta, column, r);
        return;
    }
    parallelSubtractScaled(N, column, delta, r);
}

}  // namespace

template <class T>
void typedCoordDescentCycle(unsigned long N, unsigned long P, T const* X, T const* weightedX, T const* y, T* r,
                            T* b, bool* active, T divisor, T const* shrink, T threshold, bool haveResidual,
                            T const* xx) {
    if (!haveResidual) {
        std::copy_n(y, N, r);
        blas::gemv("N", N, P, T(-1), X, N, b, T(1), r);
    }
    for (size_t j = 0; j < P; ++j) {
        if (!active[j]) continue;
        const T old = b[j];
        const T d = blas::dot(N, weightedX + j * N, r);
        const T ownContribution = xx ? b[j] * xx[j] : T(0);
        const T g = (d + ownContribution) / divisor;
        softThreshold(g, threshold, shrink[j], b[j], active[j]);
        // Also with a zero delta: r stays exactly what the update sequence makes it.
        updateResidual<T>(N, X + j * N, b[j] - old, r);
    }
}

template <class T>
void typedCoordDescentCycleWithCov(unsigned long P, T const* c, T const* G, T* b, bool* active, T divisor,
                                   T const* shrink, T threshold) {
    for (size_t j = 0; j < P; ++j) {
        if (!active[j]) continue;
        // Over the b updated so far in this sweep: each coordinate sees the ones before it.
        const T* column = G + j * P;
        const T d = blas::dot(P, b, column);
        const T g = (c[j] - d + column[j] * b[j]) / divisor;
        softThreshold(g, threshold, shrink[j], b[j], active[j]);
    }
}

template <class T>
void typedYminusXb(unsigned long N, unsigned long P, T const* X, T const* b, bool const* active, T* r) {
    for (size_t j = 0; j < P; ++j) {
        if (!active[j]) continue;
        const T* column = X + j * N;
        const T coefficient = b[j];
        for (size_t i = 0; i < N; ++i) r[i] = r[i] - column[i] * coefficient;
    }
}

#define ZV_LASSO_INSTANTIATE(T)                                                                            \
    template void typedCoordDescentCycle<T>(unsigned long, unsigned long, T const*, T const*, T const*, T*, T*,   \
                                            bool*, T, T const*, T, bool, T const*);                        \
    template void typedCoordDescentCycleWithCov<T>(unsigned long, T const*, T const*, T*, bool*, T,         \
                                                   T const*, T);                                           \
    template void typedYminusXb<T>(unsigned long, unsigned long, T const*, T const*, bool const*, T*);
ZV_LASSO_INSTANTIATE(double)
ZV_LASSO_INSTANTIATE(float)
#undef ZV_LASSO_INSTANTIATE

}  // namespace zv::sparse

// Lasso coordinate descent, one sweep per call: the dense sweep that carries a
// residual, the covariance sweep over a Gram matrix, and the residual itself.
// The host owns the outer loop, the convergence test and the active set.
#pragma once

#include <cstddef>

namespace zv::sparse {

// Above this many rows a residual update runs as a parallel loop over rows;
// below it the start-up cost of the loop outweighs the work of one column.
inline constexpr unsigned long kParallelUpdateRows = 2000000;

// One sweep over the active predictors in ascending order. Without
// `haveResidual`, r is first set to y - X b; otherwise r holds the residual of
// the previous sweep and y is not read. b, active and r are updated in place.
// A null xx counts as all zeros.
template <class T>
void typedCoordDescentCycle(unsigned long N, unsigned long P, T const* X, T const* weightedX, T const* y, T* r,
                            T* b, bool* active, T divisor, T const* shrink, T threshold, bool haveResidual,
                            T const* xx);

// The same sweep on the covariance form: c = X'y and the P-by-P Gram matrix G
// stand in for the residual. b and active are updated in place.
template <class T>
void typedCoordDescentCycleWithCov(unsigned long P, T const* c, T const* G, T* b, bool* active, T divisor,
                                   T const* shrink, T threshold);

// r -= X b over the active predictors, column by column, serially.
template <class T>
void typedYminusXb(unsigned long N, unsigned long P, T const* X, T const* b, bool const* active, T* r);

#define ZV_LASSO_DECLARE(T)                                                                                \
    extern template void typedCoordDescentCycle<T>(unsigned long, unsigned long, T const*, T const*, T const*, T*, \
                                                   T*, bool*, T, T const*, T, bool, T const*);             \
    extern template void typedCoordDescentCycleWithCov<T>(unsigned long, T const*, T const*, T*, bool*, T,  \
                                                          T const*, T);                                    \
    extern template void typedYminusXb<T>(unsigned long, unsigned long, T const*, T const*, bool const*, T*);
ZV_LASSO_DECLARE(double)
ZV_LASSO_DECLARE(float)
#undef ZV_LASSO_DECLARE

}  // namespace zv::sparse

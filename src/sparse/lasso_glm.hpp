// Coordinate descent for a penalised generalised linear model: one sweep on
// the working response, and the weighted squared column sums it takes as input.
#pragma once

namespace zv::sparse {

// One sweep over the active predictors in ascending order. r is scratch of N
// values: the sweep sets it to z - X b and keeps it current. b and active are
// updated in place.
template <class T>
void typedCoordDescentCycle(unsigned long N, unsigned long P, T const* X, T const* weightedX, T const* xx,
                            T const* z, T* r, T* b, bool* active, T const* shrink, T threshold);

// xx[j] = sum over rows of (w[i] X[i,j]) X[i,j] for the active predictors;
// the others keep what xx holds (the zeros of a new output).
template <class T>
void typedWtimesX2(unsigned long N, unsigned long P, T const* X, T const* w, bool const* active, T* xx);

#define ZV_LASSOGLM_DECLARE(T)                                                                              \
    extern template void typedCoordDescentCycle<T>(unsigned long, unsigned long, T const*, T const*, T const*, \
                                                   T const*, T*, T*, bool*, T const*, T);                  \
    extern template void typedWtimesX2<T>(unsigned long, unsigned long, T const*, T const*, bool const*, T*);
ZV_LASSOGLM_DECLARE(double)
ZV_LASSOGLM_DECLARE(float)
#undef ZV_LASSOGLM_DECLARE

}  // namespace zv::sparse

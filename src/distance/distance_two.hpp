// Cross-distance functors between the columns of X (p-by-nx) and Y (p-by-ny):
// the full matrix, the K nearest (or farthest) of X for each column of Y, and
// the columns of X within a radius. One abstract base per mode.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/blocked_range2d.h>
#include <tbb/scalable_allocator.h>

#include <cmath>
#include <cstddef>
#include <memory>
#include <vector>

#include "host/interrupt.hpp"

namespace zv::distance {

// A distance (or the value it is made from) with the index of its column of
// X. The order is strict and total: NaN after every number, ties by index.
template <class T>
struct idxDistPdist2 {
    T dist;
    size_t idx;

    friend bool operator<(const idxDistPdist2& a, const idxDistPdist2& b) {
        const bool aNaN = std::isnan(a.dist), bNaN = std::isnan(b.dist);
        if (aNaN || bNaN) return aNaN == bNaN ? a.idx < b.idx : bNaN;
        return a.dist < b.dist || (a.dist == b.dist && a.idx < b.idx);
    }
    friend bool operator>(const idxDistPdist2& a, const idxDistPdist2& b) { return b < a; }
};

template <class T>
using RadiusHits = std::vector<idxDistPdist2<T>, tbb::scalable_allocator<idxDistPdist2<T>>>;
template <class T>
using RadiusResults = std::vector<RadiusHits<T>, tbb::scalable_allocator<RadiusHits<T>>>;

// The full matrix: D(i, j) at D[j*nx + i]; rows of the 2-d range index Y,
// columns index X.
template <class T>
class DistanceTwo {
public:
    DistanceTwo(const T* X_, const T* Y_, size_t nx_, size_t ny_, size_t p_, T* D_,
                const std::shared_ptr<InterruptStateData>& interrupt_)
        : X(X_), Y(Y_), nx(nx_), ny(ny_), p(p_), D(D_), interrupt(interrupt_) {}
    virtual void operator()(const tbb::blocked_range2d<size_t, size_t>& r) const = 0;
    virtual ~DistanceTwo() = default;

protected:
    const T* X;
    const T* Y;
    size_t nx, ny, p;
    T* D;
    const std::shared_ptr<InterruptStateData>& interrupt;
};

// The K best columns of X for each column of Y; sign +1 keeps the smallest,
// -1 the largest. D is K-by-ny, I (1-based, may be null) the same.
template <class T>
class DistanceKNN {
public:
    DistanceKNN(const T* X_, const T* Y_, size_t nx_, size_t ny_, size_t p_, size_t K_, int sign_,
                T* D_, double* I_, const std::shared_ptr<InterruptStateData>& interrupt_)
        : X(X_), Y(Y_), nx(nx_), ny(ny_), p(p_), K(K_), sign(sign_), D(D_), I(I_), interrupt(interrupt_) {}
    virtual void operator()(const tbb::blocked_range<size_t>& r) const = 0;
    virtual ~DistanceKNN() = default;

protected:
    const T* X;
    const T* Y;
    size_t nx, ny, p, K;
    int sign;
    T* D;
    double* I;
    const std::shared_ptr<InterruptStateData>& interrupt;
};

// Every column of X within the radius of each column of Y, into results[j].
template <class T>
class DistanceRadius {
public:
    DistanceRadius(const T* X_, const T* Y_, size_t nx_, size_t ny_, size_t p_, T radius_,
                   RadiusResults<T>& results_, const std::shared_ptr<InterruptStateData>& interrupt_)
        : X(X_), Y(Y_), nx(nx_), ny(ny_), p(p_), radius(radius_), results(results_), interrupt(interrupt_) {}
    virtual void operator()(const tbb::blocked_range<size_t>& r) const = 0;
    virtual ~DistanceRadius() = default;

protected:
    const T* X;
    const T* Y;
    size_t nx, ny, p;
    T radius;
    RadiusResults<T>& results;
    const std::shared_ptr<InterruptStateData>& interrupt;
};

}  // namespace zv::distance

// Per-metric arithmetic of the cross distances, one small policy per metric:
// the value a pair is ranked by (sums before any root), how it becomes a
// distance, and the bound a radius search compares values with.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>

#include "frame/blas.hpp"
#include "frame/scratch.hpp"

namespace zv::distance {

template <class T>
struct EuclideanMetric {
    bool squared;
    T value(const T* u, const T* v, size_t p, T*) const {
        T s = 0;
        for (size_t k = 0; k < p; ++k) {
            const T d = u[k] - v[k];
            s += d * d;
        }
        return s;
    }
    T finish(T s) const { return squared ? s : std::sqrt(s); }
    T bound(T radius) const { return radius * radius; }
};

template <class T>
struct SEuclideanMetric {
    const T* weights;
    T value(const T* u, const T* v, size_t p, T*) const {
        T s = 0;
        for (size_t k = 0; k < p; ++k) {
            const T d = u[k] - v[k];
            s += (d * d) * weights[k];
        }
        return s;
    }
    T finish(T s) const { return std::sqrt(s); }
    T bound(T radius) const { return radius * radius; }
};

template <class T>
struct CityBlockMetric {
    T value(const T* u, const T* v, size_t p, T*) const {
        T s = 0;
        for (size_t k = 0; k < p; ++k) s += std::abs(u[k] - v[k]);
        return s;
    }
    T finish(T s) const { return s; }
    T bound(T radius) const { return radius; }
};

// t = R^T (u - v) by a triangular product in scratch, then its sum of squares.
template <class T>
struct MahalanobisMetric {
    const T* factor;
    T value(const T* u, const T* v, size_t p, T* t) const {
        for (size_t k = 0; k < p; ++k) t[k] = u[k] - v[k];
        if (p > 0) blas::trmv("U", "T", "N", p, factor, p, t);
        T s = 0;
        for (size_t k = 0; k < p; ++k) s += t[k] * t[k];
        return s;
    }
    T finish(T s) const { return std::sqrt(s); }
    T bound(T radius) const { return radius * radius; }
};

// Each power is taken in double on the widened values and rounded to T.
template <class T>
struct MinkowskiMetric {
    T exponent;
    T inverse;  // 1/e in T, once per call
    T value(const T* u, const T* v, size_t p, T*) const {
        T s = 0;
        for (size_t k = 0; k < p; ++k) s += T(std::pow(double(std::abs(u[k] - v[k])), double(exponent)));
        return s;
    }
    T finish(T s) const { return T(std::pow(double(s), double(inverse))); }
    T bound(T radius) const { return T(std::pow(double(radius), double(exponent))); }
};

// The caller has scaled the data so that the dot product is the similarity.
template <class T>
struct CosCorMetric {
    T value(const T* u, const T* v, size_t p, T*) const {
        if (p == 0) return T(1);
        T s = 0;
        for (size_t k = 0; k < p; ++k) s += u[k] * v[k];
        return s > T(1) ? T(0) : T(1) - s;
    }
    T finish(T s) const { return s; }
    T bound(T radius) const { return radius; }
};

template <class T>
struct HammingMetric {
    T value(const T* u, const T* v, size_t p, T*) const {
        T count = 0;
        for (size_t k = 0; k < p; ++k) count += T(u[k] != v[k]);
        return count / T(p);
    }
    T finish(T s) const { return s; }
    T bound(T radius) const { return radius; }
};

template <class T>
struct JaccardMetric {
    T value(const T* u, const T* v, size_t p, T*) const {
        size_t nonzero = 0, unequal = 0;
        for (size_t k = 0; k < p; ++k) {
            const bool either = u[k] != 0 || v[k] != 0;
            nonzero += either;
            unequal += either && u[k] != v[k];
        }
        return nonzero == 0 ? std::numeric_limits<T>::quiet_NaN() : T(unequal) / T(nonzero);
    }
    T finish(T s) const { return s; }
    T bound(T radius) const { return radius; }
};

template <class T>
struct ChebychevMetric {
    T value(const T* u, const T* v, size_t p, T*) const {
        T m = 0;
        for (size_t k = 0; k < p; ++k) {
            const T d = std::abs(u[k] - v[k]);
            if (d > m) m = d;
        }
        return m;
    }
    T finish(T s) const { return s; }
    T bound(T radius) const { return radius; }
};

// Stands in where a metric's parameter is missing or too short: every
// distance is NaN rather than a read past the caller's array.
template <class T>
struct UndefinedMetric {
    T value(const T*, const T*, size_t, T*) const { return std::numeric_limits<T>::quiet_NaN(); }
    T finish(T s) const { return s; }
    T bound(T radius) const { return radius; }
};

// Only the Mahalanobis metric needs p values of scratch per body call.
template <class Metric>
inline constexpr bool kNeedsScratch = false;
template <class T>
inline constexpr bool kNeedsScratch<MahalanobisMetric<T>> = true;

// The scratch a body call of the metric works in, from the worker-safe host
// allocator; none (a null pointer) for the metrics that need none.
template <class T, class Metric>
Scratch<T> pairScratch(size_t p) {
    if constexpr (kNeedsScratch<Metric>) return Scratch<T>(p, Heap::worker);
    else return {};
}

}  // namespace zv::distance

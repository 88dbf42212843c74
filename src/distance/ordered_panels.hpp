// Panels of a data set in a spatial order, each with the box of its points,
// so that a radius query skips the panels whose box lies beyond the radius.
// The values computed are those of the pairs themselves, whatever the order.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>
#include <vector>

#include "distance/pair_kernels.hpp"

namespace zv::distance {

// The largest value whose distance is at most `radius`: a value v (not NaN)
// has distance <= radius exactly when v <= radiusValueBound(radius). The root
// is correctly rounded and monotone, so the bound is found by stepping one
// value at a time from radius squared. -inf when nothing passes.
template <class T>
T radiusValueBound(PairMetric metric, T radius) {
    constexpr T inf = std::numeric_limits<T>::infinity();
    if (std::isnan(radius)) return -inf;
    if (metric != PairMetric::Euclidean && metric != PairMetric::SEuclidean) return radius;
    if (radius < T(0)) return -inf;
    T t = radius * radius;
    while (std::sqrt(t) > radius) t = std::nextafter(t, -inf);
    while (t < inf && std::sqrt(std::nextafter(t, inf)) <= radius) t = std::nextafter(t, inf);
    return t;
}

// The bound the kernel tests with "below" for the test "at most t": the value
// after t, or NaN (every lane passes) when t is infinite.
template <class T>
T kernelBelowBound(T t) {
    constexpr T inf = std::numeric_limits<T>::infinity();
    return t == inf ? std::numeric_limits<T>::quiet_NaN() : std::nextafter(t, inf);
}

template <class T>
class OrderedPanels {
public:
    static constexpr size_t kLanes = ObservationPanels<T>::kLanes;
    // Panels per group: a query tests a group's box before its panels'.
    static constexpr size_t kGroup = 16;

    // x: p-by-n, a point is a column; p >= 1. Data with a NaN keeps the
    // order of its points and boxes that skip nothing.
    OrderedPanels(const T* x, size_t n, size_t p) : n_(n), p_(p), order_(n) {
        std::iota(order_.begin(), order_.end(), size_t(0));
        const bool complete = std::none_of(x, x + n * p, [](T v) { return std::isnan(v); });
        if (complete) split(x, 0, n);
        std::vector<T> sorted(n * p);
        for (size_t m = 0; m < n; ++m) std::copy_n(x + order_[m] * p, p, sorted.data() + m * p);
        panels_ = ObservationPanels<T>::build(sorted.data(), n, p);
        boxes_.assign(2 * p * panels_.numPanels, T(0));
        for (size_t b = 0; b < panels_.numPanels; ++b) {
            T* lo = boxes_.data() + 2 * p * b;
            T* hi = lo + p;
            std::fill_n(lo, p, complete ? std::numeric_limits<T>::infinity() : -std::numeric_limits<T>::infinity());
            std::fill_n(hi, p, complete ? -std::numeric_limits<T>::infinity() : std::numeric_limits<T>::infinity());
            if (!complete) continue;
            for (size_t m = b * kLanes; m < std::min(n, b * kLanes + kLanes); ++m)
                for (size_t k = 0; k < p; ++k) {
                    lo[k] = std::min(lo[k], sorted[m * p + k]);
                    hi[k] = std::max(hi[k], sorted[m * p + k]);
                }
        }
        const size_t groups = (panels_.numPanels + kGroup - 1) / kGroup;
        groupBoxes_.resize(2 * p * groups);
        for (size_t g = 0; g < groups; ++g) {
            T* lo = groupBoxes_.data() + 2 * p * g;
            T* hi = lo + p;
            std::copy_n(boxes_.data() + 2 * p * g * kGroup, 2 * p, lo);
            for (size_t b = g * kGroup + 1; b < std::min(panels_.numPanels, g * kGroup + kGroup); ++b)
                for (size_t k = 0; k < p; ++k) {
                    lo[k] = std::min(lo[k], boxes_[2 * p * b + k]);
                    hi[k] = std::max(hi[k], boxes_[2 * p * b + p + k]);
                }
        }
    }

    size_t numPanels() const { return panels_.numPanels; }
    const T* panel(size_t b) const { return panels_.panel(b, p_); }
    // The point at lane l of panel b.
    size_t pointAt(size_t b, size_t l) const { return order_[b * kLanes + l]; }
    // The lanes of panel b that hold points.
    size_t lanes(size_t b) const { return std::min(kLanes, n_ - b * kLanes); }

    // A value that no pair of u with a point of panel b can fall below: the
    // gaps to the box go through the same roundings, in the same order, as
    // the pair's own differences, and rounding is monotone.
    T leastValue(const T* u, size_t b, PairMetric metric) const {
        return leastValueInBox(u, boxes_.data() + 2 * p_ * b, metric);
    }
    // The same for the panels of group g, kGroup * g ..
    T groupLeastValue(const T* u, size_t g, PairMetric metric) const {
        return leastValueInBox(u, groupBoxes_.data() + 2 * p_ * g, metric);
    }
    size_t numGroups() const { return groupBoxes_.size() / (2 * p_); }

private:
    T leastValueInBox(const T* u, const T* lo, PairMetric metric) const {
        const T* hi = lo + p_;
        T s = 0;
        for (size_t k = 0; k < p_; ++k) {
            T g = 0;
            if (lo[k] > u[k]) g = lo[k] - u[k];
            else if (u[k] > hi[k]) g = u[k] - hi[k];
            s += metric == PairMetric::CityBlock ? g : g * g;
        }
        return s;
    }

    // Median splits on the widest coordinate, at multiples of the panel
    // width, until a range fits one panel.
    void split(const T* x, size_t begin, size_t end) {
        while (end - begin > kLanes) {
            size_t widest = 0;
            T widestRange = -1;
            for (size_t k = 0; k < p_; ++k) {
                T lo = std::numeric_limits<T>::infinity(), hi = -lo;
                for (size_t m = begin; m < end; ++m) {
                    lo = std::min(lo, x[order_[m] * p_ + k]);
                    hi = std::max(hi, x[order_[m] * p_ + k]);
                }
                if (hi - lo > widestRange) widest = k, widestRange = hi - lo;
            }
            const size_t half = (end - begin) / 2;
            const size_t mid = begin + std::max(kLanes, half / kLanes * kLanes);
            std::nth_element(order_.begin() + begin, order_.begin() + mid, order_.begin() + end,
                             [&](size_t a, size_t c) { return x[a * p_ + widest] < x[c * p_ + widest]; });
            split(x, begin, mid);
            begin = mid;
        }
    }

    size_t n_, p_;
    std::vector<size_t> order_;
    ObservationPanels<T> panels_;
    std::vector<T> boxes_;       // per panel: p lows, then p highs
    std::vector<T> groupBoxes_;  // the same per group of panels
};

}  // namespace zv::distance

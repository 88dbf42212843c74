// The cross-distance functors of every mode, generic over a metric policy;
// the metric classes are named instances of them.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/blocked_range2d.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "distance/cross_metrics.hpp"
#include "distance/distance_two.hpp"
#include "host/host.hpp"

namespace zv::distance {

// Per-body-call scratch of p values from the worker-safe host allocator.
template <class T, class Metric>
class PairScratch {
public:
    explicit PairScratch(size_t p) : data_(nullptr, &ndFreeEx) {
        if constexpr (kNeedsScratch<Metric>) {
            data_.reset(ndMallocEx(p * sizeof(T)));
            if (!data_) throw bedrock::core::except::bad_alloc();
        }
    }
    T* get() const { return static_cast<T*>(data_.get()); }

private:
    std::unique_ptr<void, void (*)(void*)> data_;
};

// Pairs touching an observation with a NaN get the sum of the two marks (a
// NaN) without reading coordinates; marks are null when no data has a NaN.
template <class T, class Metric>
struct PairValues {
    const T* X;
    const T* Y;
    size_t p;
    Metric metric;
    const T* marksX;
    const T* marksY;

    T operator()(size_t i, size_t j, T* scratch) const {
        if (marksX && (marksX[i] != 0 || marksY[j] != 0)) return marksX[i] + marksY[j];
        return metric.value(X + i * p, Y + j * p, p, scratch);
    }
};

template <class T, class Metric>
class MetricDistanceTwo : public DistanceTwo<T> {
public:
    MetricDistanceTwo(const T* X, const T* Y, size_t nx, size_t ny, size_t p, T* D,
                      const std::shared_ptr<InterruptStateData>& interrupt, Metric metric,
                      const T* marksX = nullptr, const T* marksY = nullptr)
        : DistanceTwo<T>(X, Y, nx, ny, p, D, interrupt), pairs_{X, Y, p, metric, marksX, marksY} {}

    void operator()(const tbb::blocked_range2d<size_t, size_t>& r) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        PairScratch<T, Metric> scratch(this->p);
        for (size_t j = r.rows().begin(); j != r.rows().end(); ++j)
            for (size_t i = r.cols().begin(); i != r.cols().end(); ++i)
                this->D[j * this->nx + i] = pairs_.metric.finish(pairs_(i, j, scratch.get()));
    }

private:
    PairValues<T, Metric> pairs_;
};

template <class T, class Metric>
class MetricDistanceKNN : public DistanceKNN<T> {
public:
    MetricDistanceKNN(const T* X, const T* Y, size_t nx, size_t ny, size_t p, size_t K, int sign, T* D,
                      double* I, const std::shared_ptr<InterruptStateData>& interrupt, Metric metric,
                      const T* marksX = nullptr, const T* marksY = nullptr)
        : DistanceKNN<T>(X, Y, nx, ny, p, K, sign, D, I, interrupt), pairs_{X, Y, p, metric, marksX, marksY} {}

    // Values are ranked times the sign, so that the K largest are the K
    // smallest of the negated values; roots are taken once per kept entry.
    void operator()(const tbb::blocked_range<size_t>& r) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        PairScratch<T, Metric> scratch(this->p);
        const size_t K = this->K;
        const T sign = T(this->sign);
        std::vector<idxDistPdist2<T>> heap;
        heap.reserve(K);
        for (size_t j = r.begin(); j != r.end(); ++j) {
            heap.clear();
            for (size_t i = 0; i < this->nx; ++i) {
                const idxDistPdist2<T> c{sign * pairs_(i, j, scratch.get()), i};
                if (heap.size() < K) {
                    heap.push_back(c);
                    if (heap.size() == K) std::make_heap(heap.begin(), heap.end());
                } else if (heap.front() > c) {
                    std::pop_heap(heap.begin(), heap.end());
                    heap.back() = c;
                    std::push_heap(heap.begin(), heap.end());
                }
            }
            if (heap.size() == K) std::sort_heap(heap.begin(), heap.end());
            else std::sort(heap.begin(), heap.end());
            for (size_t k = 0; k < heap.size(); ++k) {
                this->D[j * K + k] = heap[k].dist;
                if (this->I) this->I[j * K + k] = double(heap[k].idx + 1);
            }
        }
        for (size_t j = r.begin(); j != r.end(); ++j)
            for (size_t k = 0; k < K; ++k) this->D[j * K + k] = pairs_.metric.finish(sign * this->D[j * K + k]);
    }

private:
    PairValues<T, Metric> pairs_;
};

template <class T, class Metric>
class MetricDistanceRadius : public DistanceRadius<T> {
public:
    MetricDistanceRadius(const T* X, const T* Y, size_t nx, size_t ny, size_t p, T radius,
                         RadiusResults<T>& results, const std::shared_ptr<InterruptStateData>& interrupt,
                         Metric metric, const T* marksX = nullptr, const T* marksY = nullptr)
        : DistanceRadius<T>(X, Y, nx, ny, p, radius, results, interrupt),
          pairs_{X, Y, p, metric, marksX, marksY} {}

    // The test is "at most" on the value before the root, against the radius
    // raised to match; a NaN never passes.
    void operator()(const tbb::blocked_range<size_t>& r) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        PairScratch<T, Metric> scratch(this->p);
        const T bound = pairs_.metric.bound(this->radius);
        for (size_t j = r.begin(); j != r.end(); ++j) {
            RadiusHits<T>& hits = this->results[j];
            for (size_t i = 0; i < this->nx; ++i) {
                const T v = pairs_(i, j, scratch.get());
                if (v <= bound) hits.push_back({v, i});
            }
            for (auto& h : hits) h.dist = pairs_.metric.finish(h.dist);
        }
    }

private:
    PairValues<T, Metric> pairs_;
};

// The metric classes, by name.
#define ZV_CROSS_METRIC_CLASSES(Prefix, Metric)                                  \
    template <class T>                                                           \
    using Prefix##DistanceTwo = MetricDistanceTwo<T, Metric<T>>;                 \
    template <class T>                                                           \
    using Prefix##DistanceKNN = MetricDistanceKNN<T, Metric<T>>;                 \
    template <class T>                                                           \
    using Prefix##DistanceRadius = MetricDistanceRadius<T, Metric<T>>;
ZV_CROSS_METRIC_CLASSES(Euclidean, EuclideanMetric)
ZV_CROSS_METRIC_CLASSES(SEuclidean, SEuclideanMetric)
ZV_CROSS_METRIC_CLASSES(CityBlock, CityBlockMetric)
ZV_CROSS_METRIC_CLASSES(Mahalanobis, MahalanobisMetric)
ZV_CROSS_METRIC_CLASSES(Minkowski, MinkowskiMetric)
ZV_CROSS_METRIC_CLASSES(Hamming, HammingMetric)
ZV_CROSS_METRIC_CLASSES(Jaccard, JaccardMetric)
ZV_CROSS_METRIC_CLASSES(Chebychev, ChebychevMetric)
#undef ZV_CROSS_METRIC_CLASSES
template <class T>
using CosCorDistanceKNN = MetricDistanceKNN<T, CosCorMetric<T>>;
template <class T>
using CosCorDistanceRadius = MetricDistanceRadius<T, CosCorMetric<T>>;

}  // namespace zv::distance

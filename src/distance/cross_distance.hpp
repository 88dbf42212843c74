// The cross-distance functors of every mode, generic over a metric policy;
// the metric classes are named instances of them.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/blocked_range2d.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

#include "distance/cross_metrics.hpp"
#include "distance/distance_two.hpp"
#include "distance/pair_kernels.hpp"
#include "host/host.hpp"

namespace zv::distance {

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
    // A value computed elsewhere, with the missing-data rule applied.
    T marked(size_t i, size_t j, T v) const {
        return marksX && (marksX[i] != 0 || marksY[j] != 0) ? marksX[i] + marksY[j] : v;
    }
};

// Walks blocks of (column of Y, column of X) values through the vectorised
// panel kernels: tiles of Y columns outside, panels of X inside, so that a
// panel read once serves the whole tile from cache.
//
// With few columns of Y (a single query point of a nested call) a stored copy
// of X costs as much as the distances: `panels` is then null and each panel
// is regrouped on the stack as it is needed, from X itself.
template <class T>
struct PanelWalker {
    static constexpr size_t kTile = 32;
    // The most Y columns, and coordinates, for which panels are regrouped on the fly.
    static constexpr size_t kOnTheFlyColumns = 4;
    static constexpr size_t kOnTheFlyCoordinates = 64;
    const ObservationPanels<T>* panels;
    PairMetric metric;
    const T* Y;
    size_t p;
    const T* weights;
    const T* X = nullptr;  // with panels null: p-by-nx
    size_t nx = 0;

    static bool regroupsOnTheFly(size_t ny, size_t p) { return ny <= kOnTheFlyColumns && p <= kOnTheFlyCoordinates; }

    // Calls g(j, i0, count, values, hits) for runs of values of the pairs
    // (j, i0 + k), j in [jb, je), i in [ib, ie); for each j the runs ascend
    // in i. With `bounds` (one per j, read when its run is computed), bit k of
    // hits is set when sign * values[k] < bounds[j - jb], and runs with no hit
    // are skipped; without, hits is 0.
    template <class G>
    void blocks(size_t jb, size_t je, size_t ib, size_t ie, G&& g, const T* bounds = nullptr, T sign = 1) const {
        constexpr size_t L = ObservationPanels<T>::kLanes;
        alignas(64) T values[kTile * L];
        alignas(64) T regrouped[kOnTheFlyCoordinates * L];
        const T* observations[kTile];
        uint32_t hits[kTile] = {};
        for (size_t j0 = jb; j0 < je; j0 += kTile) {
            const size_t count = je - j0 < kTile ? je - j0 : kTile;
            for (size_t c = 0; c < count; ++c) observations[c] = Y + (j0 + c) * p;
            for (size_t pb = ib / L; pb * L < ie; ++pb) {
                const T* panel = panels ? panels->panel(pb, p) : regroup(pb, regrouped);
                computeCrossBlock(CrossBlock<T>{metric, observations, count, panel, p, weights, values,
                                                bounds ? bounds + (j0 - jb) : nullptr, sign,
                                                bounds ? hits : nullptr});
                const size_t lo = ib > pb * L ? ib : pb * L, hi = ie < pb * L + L ? ie : pb * L + L;
                const uint32_t inRun = hi - lo == 32 ? ~uint32_t(0) : (uint32_t(1) << (hi - lo)) - 1;
                for (size_t c = 0; c < count; ++c) {
                    const uint32_t h = (hits[c] >> (lo - pb * L)) & inRun;
                    if (bounds && h == 0) continue;  // nothing in this run can matter
                    g(j0 + c, lo, hi - lo, values + c * L + (lo - pb * L), h);
                }
            }
        }
    }

    // Panel b of X, as ObservationPanels lays it out, into `out`.
    const T* regroup(size_t b, T* out) const {
        ObservationPanels<T>::regroup(X, nx, p, b, out);
        return out;
    }

    // Calls f(j, i, value) for each pair, in the order of blocks().
    template <class F>
    void operator()(size_t jb, size_t je, size_t ib, size_t ie, F&& f) const {
        blocks(jb, je, ib, ie, [&](size_t j, size_t i0, size_t count, const T* v, uint32_t) {
            for (size_t k = 0; k < count; ++k) f(j, i0 + k, v[k]);
        });
    }
};

// A run of values made into distances: the roots by vectors where a metric
// takes one, value by value otherwise.
template <class T, class Metric>
void finishRun(const Metric& metric, const T* v, size_t n, T* out) {
    for (size_t k = 0; k < n; ++k) out[k] = metric.finish(v[k]);
}
template <class T>
void finishRun(const EuclideanMetric<T>& metric, const T* v, size_t n, T* out) {
    if (metric.squared) std::copy(v, v + n, out);
    else computeRoots(v, n, out);
}
template <class T>
void finishRun(const SEuclideanMetric<T>&, const T* v, size_t n, T* out) {
    computeRoots(v, n, out);
}

template <class T, class Metric>
class MetricDistanceTwo : public DistanceTwo<T> {
public:
    MetricDistanceTwo(const T* X, const T* Y, size_t nx, size_t ny, size_t p, T* D,
                      const std::shared_ptr<InterruptStateData>& interrupt, Metric metric,
                      const T* marksX = nullptr, const T* marksY = nullptr, const PanelWalker<T>* walker = nullptr)
        : DistanceTwo<T>(X, Y, nx, ny, p, D, interrupt), pairs_{X, Y, p, metric, marksX, marksY}, walker_(walker) {}

    void operator()(const tbb::blocked_range2d<size_t, size_t>& r) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        if (walker_) {
            walker_->blocks(r.rows().begin(), r.rows().end(), r.cols().begin(), r.cols().end(),
                            [&](size_t j, size_t i0, size_t count, const T* v, uint32_t) {
                                T* out = this->D + j * this->nx + i0;
                                if (pairs_.marksX) {
                                    for (size_t k = 0; k < count; ++k)
                                        out[k] = pairs_.metric.finish(pairs_.marked(i0 + k, j, v[k]));
                                } else {
                                    finishRun(pairs_.metric, v, count, out);
                                }
                            });
            return;
        }
        const Scratch<T> scratch = pairScratch<T, Metric>(this->p);
        for (size_t j = r.rows().begin(); j != r.rows().end(); ++j)
            for (size_t i = r.cols().begin(); i != r.cols().end(); ++i)
                this->D[j * this->nx + i] = pairs_.metric.finish(pairs_(i, j, scratch.get()));
    }

private:
    PairValues<T, Metric> pairs_;
    const PanelWalker<T>* walker_;
};

template <class T, class Metric>
class MetricDistanceKNN : public DistanceKNN<T> {
public:
    MetricDistanceKNN(const T* X, const T* Y, size_t nx, size_t ny, size_t p, size_t K, int sign, T* D,
                      double* I, const std::shared_ptr<InterruptStateData>& interrupt, Metric metric,
                      const T* marksX = nullptr, const T* marksY = nullptr, const PanelWalker<T>* walker = nullptr)
        : DistanceKNN<T>(X, Y, nx, ny, p, K, sign, D, I, interrupt),
          pairs_{X, Y, p, metric, marksX, marksY},
          walker_(walker) {}

    // Values are ranked times the sign, so that the K largest are the K
    // smallest of the negated values; roots are taken once per kept entry.
    void operator()(const tbb::blocked_range<size_t>& r) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        const size_t K = this->K;
        const T sign = T(this->sign);
        if (walker_) {
            // One heap per column of a tile, filled panel by panel. Once a
            // heap is full (and no data is missing), the kernel itself tells
            // which values beat its top, so most runs cost one test.
            constexpr size_t kTile = PanelWalker<T>::kTile;
            std::vector<std::vector<idxDistPdist2<T>>> heaps(kTile);
            for (auto& h : heaps) h.reserve(K);
            T bounds[kTile];
            for (size_t j0 = r.begin(); j0 < r.end(); j0 += kTile) {
                const size_t j1 = r.end() - j0 < kTile ? r.end() : j0 + kTile;
                for (auto& h : heaps) h.clear();
                std::fill(bounds, bounds + kTile, std::numeric_limits<T>::quiet_NaN());
                walker_->blocks(j0, j1, 0, this->nx, [&](size_t j, size_t i0, size_t count, const T* v, uint32_t hits) {
                    auto& heap = heaps[j - j0];
                    const bool filtered = !std::isnan(bounds[j - j0]);
                    if (!filtered) {
                        for (size_t k = 0; k < count; ++k)
                            offer(heap, {sign * pairs_.marked(i0 + k, j, v[k]), i0 + k}, K);
                    } else {
                        T worst = bounds[j - j0];
                        for (; hits; hits &= hits - 1) {
                            const size_t k = size_t(__builtin_ctz(hits));
                            const T c = sign * v[k];
                            if (c < worst) {
                                offer(heap, {c, i0 + k}, K);
                                worst = heap.front().dist;
                            }
                        }
                    }
                    if (heap.size() == K && !pairs_.marksX) bounds[j - j0] = heap.front().dist;
                }, bounds, sign);
                for (size_t j = j0; j < j1; ++j) store(heaps[j - j0], j);
            }
        } else {
            const Scratch<T> scratch = pairScratch<T, Metric>(this->p);
            std::vector<idxDistPdist2<T>> heap;
            heap.reserve(K);
            for (size_t j = r.begin(); j != r.end(); ++j) {
                heap.clear();
                for (size_t i = 0; i < this->nx; ++i) offer(heap, {sign * pairs_(i, j, scratch.get()), i}, K);
                store(heap, j);
            }
        }
        for (size_t j = r.begin(); j != r.end(); ++j)
            for (size_t k = 0; k < K; ++k) this->D[j * K + k] = pairs_.metric.finish(sign * this->D[j * K + k]);
    }

private:
    // Keeps the K least candidates; the greatest kept stands on top. The
    // candidates of one column come in ascending index, so one that ties
    // with the top never enters, and the test needs no index.
    static void offer(std::vector<idxDistPdist2<T>>& heap, const idxDistPdist2<T>& c, size_t K) {
        if (heap.size() < K) {
            heap.push_back(c);
            if (heap.size() == K) std::make_heap(heap.begin(), heap.end());
            return;
        }
        const T worst = heap.front().dist;
        if (c.dist < worst || (std::isnan(worst) && !std::isnan(c.dist))) {
            std::pop_heap(heap.begin(), heap.end());
            heap.back() = c;
            std::push_heap(heap.begin(), heap.end());
        }
    }

    void store(std::vector<idxDistPdist2<T>>& heap, size_t j) const {
        const size_t K = this->K;
        if (heap.size() == K) std::sort_heap(heap.begin(), heap.end());
        else std::sort(heap.begin(), heap.end());
        for (size_t k = 0; k < heap.size(); ++k) {
            this->D[j * K + k] = heap[k].dist;
            if (this->I) this->I[j * K + k] = double(heap[k].idx + 1);
        }
    }

    PairValues<T, Metric> pairs_;
    const PanelWalker<T>* walker_;
};

template <class T, class Metric>
class MetricDistanceRadius : public DistanceRadius<T> {
public:
    MetricDistanceRadius(const T* X, const T* Y, size_t nx, size_t ny, size_t p, T radius,
                         RadiusResults<T>& results, const std::shared_ptr<InterruptStateData>& interrupt,
                         Metric metric, const T* marksX = nullptr, const T* marksY = nullptr,
                         const PanelWalker<T>* walker = nullptr)
        : DistanceRadius<T>(X, Y, nx, ny, p, radius, results, interrupt),
          pairs_{X, Y, p, metric, marksX, marksY},
          walker_(walker) {}

    // The test is "at most" on the value before the root, against the radius
    // raised to match; a NaN never passes.
    void operator()(const tbb::blocked_range<size_t>& r) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        const T bound = pairs_.metric.bound(this->radius);
        if (walker_) {
            (*walker_)(r.begin(), r.end(), 0, this->nx, [&](size_t j, size_t i, T v) {
                v = pairs_.marked(i, j, v);
                if (v <= bound) this->results[j].push_back({v, i});
            });
        } else {
            const Scratch<T> scratch = pairScratch<T, Metric>(this->p);
            for (size_t j = r.begin(); j != r.end(); ++j)
                for (size_t i = 0; i < this->nx; ++i) {
                    const T v = pairs_(i, j, scratch.get());
                    if (v <= bound) this->results[j].push_back({v, i});
                }
        }
        for (size_t j = r.begin(); j != r.end(); ++j)
            for (auto& h : this->results[j]) h.dist = pairs_.metric.finish(h.dist);
    }

private:
    PairValues<T, Metric> pairs_;
    const PanelWalker<T>* walker_;
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

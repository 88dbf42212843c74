// The condensed-distance functors: one class per metric, each a parallel body
// over rows of the triangle that polls for interruption once per chunk.
#pragma once

#include <tbb/blocked_range.h>

#include <cmath>
#include <cstddef>
#include <memory>

#include "distance/condensed.hpp"
#include "distance/cross_metrics.hpp"
#include "distance/pair_kernels.hpp"
#include "host/host.hpp"

namespace zv::distance {

template <class T>
class DistanceOne {
public:
    DistanceOne(const T* x_, size_t n_, size_t p_, T* y_,
                const std::shared_ptr<InterruptStateData>& interrupt_)
        : x(x_), n(n_), p(p_), y(y_), interrupt(interrupt_) {}
    virtual void operator()(const tbb::blocked_range<size_t>& rows) const = 0;
    virtual ~DistanceOne() = default;

protected:
    // Walks rows [begin, end) calling pair(i, j) for each j > i in order.
    template <class Pair>
    void walk(const tbb::blocked_range<size_t>& rows, Pair&& pair) const {
        T* out = y + condensedRowStart(rows.begin(), n);
        for (size_t i = rows.begin(); i != rows.end(); ++i)
            for (size_t j = i + 1; j < n; ++j) *out++ = pair(i, j);
    }

    const T* x;
    size_t n;
    size_t p;
    T* y;
    const std::shared_ptr<InterruptStateData>& interrupt;
};

// The metrics that the vectorised pair kernels compute.
template <class T>
class PanelDistanceOne : public DistanceOne<T> {
public:
    PanelDistanceOne(const TriangleTask<T>& task, const std::shared_ptr<InterruptStateData>& interrupt)
        : DistanceOne<T>(task.x, task.n, task.p, task.y, interrupt), task_(task) {}
    void operator()(const tbb::blocked_range<size_t>& rows) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        computeTriangleRows(task_, rows.begin(), rows.end());
    }

private:
    TriangleTask<T> task_;
};

// "euc", "sqe": the squared flag picks the kernel.
template <class T>
class EuclideanDistanceOne : public PanelDistanceOne<T> {
public:
    using PanelDistanceOne<T>::PanelDistanceOne;
};
template <class T>
class SEuclideanDistanceOne : public PanelDistanceOne<T> {
public:
    using PanelDistanceOne<T>::PanelDistanceOne;
};
template <class T>
class CityBlockDistanceOne : public PanelDistanceOne<T> {
public:
    using PanelDistanceOne<T>::PanelDistanceOne;
};
template <class T>
class HammingDistanceOne : public PanelDistanceOne<T> {
public:
    using PanelDistanceOne<T>::PanelDistanceOne;
};
template <class T>
class ChebychevDistanceOne : public PanelDistanceOne<T> {
public:
    using PanelDistanceOne<T>::PanelDistanceOne;
};

// The metrics without a vectorised kernel use the same per-pair arithmetic
// as the cross distances; "jac" marks whole observations with missing data.
template <class T, class Metric>
class MetricDistanceOne : public DistanceOne<T> {
public:
    MetricDistanceOne(const T* x, size_t n, size_t p, T* y, const std::shared_ptr<InterruptStateData>& interrupt,
                      Metric metric, const T* marks = nullptr)
        : DistanceOne<T>(x, n, p, y, interrupt), metric_(metric), marks_(marks) {}

    void operator()(const tbb::blocked_range<size_t>& rows) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        const size_t p = this->p;
        const Scratch<T> scratch = pairScratch<T, Metric>(p);
        this->walk(rows, [&](size_t i, size_t j) {
            if (marks_ && (marks_[i] != 0 || marks_[j] != 0)) return marks_[i] + marks_[j];
            return metric_.finish(metric_.value(this->x + i * p, this->x + j * p, p, scratch.get()));
        });
    }

private:
    Metric metric_;
    const T* marks_;
};

template <class T>
using MinkowskiDistanceOne = MetricDistanceOne<T, MinkowskiMetric<T>>;
template <class T>
using JaccardDistanceOne = MetricDistanceOne<T, JaccardMetric<T>>;
template <class T>
using MahalanobisDistanceOne = MetricDistanceOne<T, MahalanobisMetric<T>>;

}  // namespace zv::distance

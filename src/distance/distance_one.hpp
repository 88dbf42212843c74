// The condensed-distance functors: one class per metric, each a parallel body
// over rows of the triangle that polls for interruption once per chunk.
#pragma once

#include <tbb/blocked_range.h>

#include <cmath>
#include <cstddef>
#include <memory>

#include "distance/condensed.hpp"
#include "distance/pair_kernels.hpp"
#include "frame/blas.hpp"
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

template <class T>
class MinkowskiDistanceOne : public DistanceOne<T> {
public:
    MinkowskiDistanceOne(const T* x, size_t n, size_t p, T* y,
                         const std::shared_ptr<InterruptStateData>& interrupt, T exponent)
        : DistanceOne<T>(x, n, p, y, interrupt), exponent_(exponent) {}

    // In single precision each pow runs in double on the widened values and
    // is rounded to float before it is added.
    void operator()(const tbb::blocked_range<size_t>& rows) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        const T e = exponent_;
        const T inverse = T(1) / e;
        const size_t p = this->p;
        this->walk(rows, [&](size_t i, size_t j) {
            const T *u = this->x + i * p, *v = this->x + j * p;
            T sum = 0;
            for (size_t k = 0; k < p; ++k) sum += T(std::pow(double(std::abs(u[k] - v[k])), double(e)));
            return T(std::pow(double(sum), double(inverse)));
        });
    }

private:
    T exponent_;
};

template <class T>
class JaccardDistanceOne : public DistanceOne<T> {
public:
    JaccardDistanceOne(const T* x, size_t n, size_t p, T* y,
                       const std::shared_ptr<InterruptStateData>& interrupt, const T* marks)
        : DistanceOne<T>(x, n, p, y, interrupt), marks_(marks) {}

    void operator()(const tbb::blocked_range<size_t>& rows) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        const size_t p = this->p;
        this->walk(rows, [&](size_t i, size_t j) {
            if (marks_ && (marks_[i] != 0 || marks_[j] != 0)) return marks_[i] + marks_[j];
            const T *u = this->x + i * p, *v = this->x + j * p;
            size_t nonzero = 0, unequal = 0;
            for (size_t k = 0; k < p; ++k) {
                const bool either = u[k] != 0 || v[k] != 0;
                nonzero += either;
                unequal += either && u[k] != v[k];
            }
            return nonzero == 0 ? T(NAN) : T(unequal) / T(nonzero);
        });
    }

private:
    const T* marks_;
};

template <class T>
class MahalanobisDistanceOne : public DistanceOne<T> {
public:
    MahalanobisDistanceOne(const T* x, size_t n, size_t p, T* y,
                           const std::shared_ptr<InterruptStateData>& interrupt, const T* factor)
        : DistanceOne<T>(x, n, p, y, interrupt), factor_(factor) {}

    // t = R^T (u - v) by a triangular product in a per-chunk scratch.
    void operator()(const tbb::blocked_range<size_t>& rows) const override {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        const size_t p = this->p;
        std::unique_ptr<T, void (*)(T*)> scratch(static_cast<T*>(ndMallocEx(p * sizeof(T))),
                                                 [](T* s) { ndFreeEx(s); });
        if (!scratch) throw bedrock::core::except::bad_alloc();
        T* t = scratch.get();
        const int order = int(p), lda = int(p ? p : 1);
        this->walk(rows, [&](size_t i, size_t j) {
            const T *u = this->x + i * p, *v = this->x + j * p;
            for (size_t k = 0; k < p; ++k) t[k] = u[k] - v[k];
            if (order > 0) blas::trmv("U", "T", "N", order, factor_, lda, t, 1);
            T sum = 0;
            for (size_t k = 0; k < p; ++k) sum += t[k] * t[k];
            return std::sqrt(sum);
        });
    }

private:
    const T* factor_;
};

}  // namespace zv::distance

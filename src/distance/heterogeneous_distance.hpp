// The mixed-type distance functors: one class per measure, each a parallel
// body over a block of (Y, X) pairs whose coordinates are partly categorical.
#pragma once

#include <tbb/blocked_range2d.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "distance/distance_two.hpp"
#include "host/interrupt.hpp"

namespace zv::distance {

static_assert(sizeof(size_t) == sizeof(uint64_t), "categorical coordinates arrive as 64-bit words");

// Tells, for k = 0, 1, ... in order, whether coordinate k is categorical: it
// is when the entry under the cursor is k + 1. The cursor stays on the last
// entry, so the list must be ascending; an entry that never matches (0, past
// p, out of order) leaves every later coordinate continuous.
class CategoricalScan {
public:
    CategoricalScan(const size_t* C, size_t c) : C_(C), last_(c == 0 ? 0 : c - 1), empty_(c == 0) {}
    bool isCategorical(size_t k) {
        if (empty_ || C_[at_] != k + 1) return false;
        if (at_ != last_) ++at_;
        return true;
    }

private:
    const size_t* C_;
    size_t last_;
    bool empty_;
    size_t at_ = 0;
};

// What the three measures share: the frequency matrices F (p-by-nx) and G
// (p-by-ny), which hold a count at a categorical coordinate and a scaled value
// at a continuous one, and the c categorical coordinates C, 1-based.
template <class T>
class HeterogeneousDistanceTwo : public DistanceTwo<T> {
public:
    HeterogeneousDistanceTwo(const T* X, const T* Y, size_t nx, size_t ny, size_t p, T* D,
                             const std::shared_ptr<InterruptStateData>& interrupt, const T* F_, const T* G_,
                             const size_t* C_, size_t c_)
        : DistanceTwo<T>(X, Y, nx, ny, p, D, interrupt), F(F_), G(G_), C(C_), c(c_) {}

protected:
    // The columns of one pair: observation i of X and j of Y.
    struct Pair {
        const T* u;
        const T* v;
        const T* f;
        const T* g;
    };

    // Polls once, then sets D(i, j) = distance(pair, i, j) with j over the rows
    // of the block (Y) and i over its columns (X).
    template <class Distance>
    void walk(const tbb::blocked_range2d<size_t, size_t>& r, Distance&& distance) const {
        InterruptState::ThrowIfInterruptPending(this->interrupt);
        const size_t p = this->p;
        for (size_t j = r.rows().begin(); j != r.rows().end(); ++j) {
            T* column = this->D + j * this->nx;
            for (size_t i = r.cols().begin(); i != r.cols().end(); ++i)
                column[i] = distance(Pair{this->X + i * p, this->Y + j * p, F + i * p, G + j * p}, i, j);
        }
    }

    const T* F;
    const T* G;
    const size_t* C;
    size_t c;
};

// "lin": a categorical coordinate scores the log share of its value (of both
// values when they differ) against the pair's log sums a[i] + b[j]; a
// continuous one adds abs(f - g)/(p - c). The result is the plain sum.
template <class T>
class LinDistanceTwo final : public HeterogeneousDistanceTwo<T> {
public:
    LinDistanceTwo(const T* X, const T* Y, size_t nx, size_t ny, size_t p, T* D,
                   const std::shared_ptr<InterruptStateData>& interrupt, const T* F, const T* G, const size_t* C,
                   size_t c, const T* a_, const T* b_)
        : HeterogeneousDistanceTwo<T>(X, Y, nx, ny, p, D, interrupt, F, G, C, c), a(a_), b(b_) {}

    void operator()(const tbb::blocked_range2d<size_t, size_t>& r) const override {
        const size_t p = this->p, c = this->c;
        const T share = c == 0 ? T(0) : T(1) / T(c);  // with c = 0 no coordinate is categorical
        const T countPlusOne = T(this->nx + 1);
        // p - c as a signed number: a list with repeated or stray entries may
        // be longer than p, and must not wrap round to a huge divisor.
        const T continuousCount = p >= c ? T(p - c) : -T(c - p);
        this->walk(r, [&](const auto& q, size_t i, size_t j) {
            CategoricalScan scan(this->C, c);
            T s = 0;
            for (size_t k = 0; k < p; ++k) {
                if (scan.isCategorical(k)) {
                    const T ratio = (q.u[k] == q.v[k] ? q.f[k] : q.f[k] + q.g[k]) / countPlusOne;
                    s += share - T(2) * std::log(ratio) / (a[i] + b[j]);
                } else {
                    s += std::abs(q.f[k] - q.g[k]) / continuousCount;
                }
            }
            return s;
        });
    }

private:
    const T* a;  // nx log sums of X's categorical counts
    const T* b;  // ny of Y's
};

// Goodall's measure: a categorical match scores the chance of drawing its
// value twice, (f - 1)f/(nx(nx + 1)), a mismatch 1; a continuous coordinate
// adds abs(f - g). The result is the mean over the p coordinates.
template <class T>
class GoodDistanceTwo final : public HeterogeneousDistanceTwo<T> {
public:
    using HeterogeneousDistanceTwo<T>::HeterogeneousDistanceTwo;

    void operator()(const tbb::blocked_range2d<size_t, size_t>& r) const override {
        const size_t p = this->p, c = this->c;
        // nx(nx + 1) from two exact factors, so it cannot overflow as an integer.
        const T pairCount = T(this->nx) * T(this->nx + 1);
        this->walk(r, [&](const auto& q, size_t, size_t) {
            CategoricalScan scan(this->C, c);
            T s = 0;
            for (size_t k = 0; k < p; ++k) {
                if (scan.isCategorical(k)) s += q.u[k] == q.v[k] ? (q.f[k] - 1) * q.f[k] / pairCount : T(1);
                else s += std::abs(q.f[k] - q.g[k]);
            }
            return s / T(p);
        });
    }
};

// Occurrence frequency: a categorical mismatch of frequent values costs less
// than one of rare values, 1 - 1/(1 + log(f/(nx+1)) log(g/(nx+1))); a match
// costs nothing; a continuous coordinate adds abs(f - g). The mean over p.
template <class T>
class OfDistanceTwo final : public HeterogeneousDistanceTwo<T> {
public:
    using HeterogeneousDistanceTwo<T>::HeterogeneousDistanceTwo;

    void operator()(const tbb::blocked_range2d<size_t, size_t>& r) const override {
        const size_t p = this->p, c = this->c;
        const T countPlusOne = T(this->nx + 1);
        this->walk(r, [&](const auto& q, size_t, size_t) {
            CategoricalScan scan(this->C, c);
            T s = 0;
            for (size_t k = 0; k < p; ++k) {
                if (scan.isCategorical(k)) {
                    if (q.u[k] != q.v[k])  // a NaN differs from everything
                        s += T(1) - T(1) / (T(1) + std::log(q.f[k] / countPlusOne) * std::log(q.g[k] / countPlusOne));
                } else {
                    s += std::abs(q.f[k] - q.g[k]);
                }
            }
            return s / T(p);
        });
    }
};

}  // namespace zv::distance

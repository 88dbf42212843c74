// The neighbour queries of dbscan: a full adjacency matrix, a condensed
// adjacency vector, or a distance column per point under epsilon. Each
// appends the neighbours of i in ascending order and then i itself.
#pragma once

#include <tbb/enumerable_thread_specific.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <mutex>

#include "clustering/dbscan.hpp"
#include "clustering/nested_columns.hpp"
#include "distance/condensed.hpp"
#include "distance/ordered_panels.hpp"
#include "frame/gateway.hpp"
#include "host/callback.hpp"

namespace zv::clustering {

// Bytes past the end of a short adjacency read as false.
struct AdjacencyMatrixNeighbors {
    const unsigned char* adjacency;  // n-by-n, the row of point i at i*n
    size_t stored;
    size_t n;

    void operator()(size_t i, NeighborList& out) const {
        const size_t row = i * n;
        const size_t end = row < stored ? std::min(n, stored - row) : 0;
        const unsigned char* a = adjacency + row;
        for (size_t j = 0; j < end; ++j)
            if (a[j] && j != i) out.push_back(j);
        out.push_back(i);
    }
};

struct CondensedAdjacencyNeighbors {
    const unsigned char* adjacency;  // the pairs (i < j) in condensed order
    size_t stored;
    size_t n;

    // The positions of the pairs of i grow with j, so each run stops at the
    // first pair past the stored bytes: a short vector costs nothing per point.
    void operator()(size_t i, NeighborList& out) const {
        for (size_t j = 0; j < i; ++j) {
            const size_t k = distance::condensedIndex(j, i, n);
            if (k >= stored) break;
            if (adjacency[k]) out.push_back(j);
        }
        const size_t start = distance::condensedRowStart(i, n);
        const size_t end = start < stored ? std::min(n, i + 1 + (stored - start)) : i + 1;
        for (size_t j = i + 1; j < end; ++j)
            if (adjacency[start + (j - i - 1)]) out.push_back(j);
        out.push_back(i);
    }
};

// Every j != i with a distance at most epsilon; a NaN never passes. The
// distances come from Source(i) as an array of double or single values; a
// missing or short result leaves the points it lacks out. The points from
// source.firstWithoutData() on hold no value of the data: their queries are
// one and the same, made once, so that a count of points far beyond the data
// costs no call per point.
template <class T, class Source>
class DistanceNeighbors {
public:
    DistanceNeighbors(Source source, T epsilon, size_t n)
        : source_(std::move(source)), epsilon_(epsilon), n_(n), firstWithoutData_(source_.firstWithoutData()) {}

    void operator()(size_t i, NeighborList& out) const {
        matrix::unique_nd_ptr own;
        const ndArray* distances = nullptr;
        if (i >= firstWithoutData_) {
            std::call_once(withoutDataOnce_, [&] { withoutData_ = source_(firstWithoutData_); });
            distances = withoutData_.get();
        } else {
            own = source_(i);
            distances = own.get();
        }
        if (distances) {
            const size_t count = std::min(n_, ndGetNumberOfElements(distances));
            visitRealData(distances, [&](const auto* d) { within(d, count, i, out); });
        }
        out.push_back(i);
    }

private:
    // Most of a column lies beyond epsilon: a branch-free test of each block
    // of kBlock distances skips the blocks with no neighbour.
    static constexpr size_t kBlock = 16;
    template <class D>
    void within(const D* d, size_t count, size_t i, NeighborList& out) const {
        size_t j0 = 0;
        for (; j0 + kBlock <= count; j0 += kBlock) {
            bool any = false;
#pragma GCC unroll 16
            for (size_t k = 0; k < kBlock; ++k) any |= T(d[j0 + k]) <= epsilon_;
            if (!any) continue;
            for (size_t j = j0; j < j0 + kBlock; ++j)
                if (T(d[j]) <= epsilon_ && j != i) out.push_back(j);
        }
        for (size_t j = j0; j < count; ++j)
            if (T(d[j]) <= epsilon_ && j != i) out.push_back(j);
    }

    Source source_;
    T epsilon_;
    size_t n_;
    size_t firstWithoutData_;
    mutable std::once_flag withoutDataOnce_;
    mutable matrix::unique_nd_ptr withoutData_;
};

// The distance query of the nested route over panels of the data built once,
// in a spatial order: the same neighbours as DistanceNeighbors over the
// nested call's column, but the panels whose box lies beyond epsilon are
// skipped, and the test is made on the values before the root, inside the
// kernel, so that no column is stored and no root taken.
template <class T>
class PanelDistanceNeighbors {
public:
    PanelDistanceNeighbors(const T* x, size_t n, size_t p, distance::PairMetric metric, T epsilon,
                           const std::shared_ptr<InterruptStateData>& interrupt)
        : x_(x), n_(n), p_(p), metric_(metric), panels_(x, n, p),
          valueBound_(distance::radiusValueBound(metric, epsilon)),
          kernelBound_(distance::kernelBelowBound(valueBound_)), interrupt_(interrupt) {}

    void operator()(size_t i, NeighborList& out) const {
        InterruptState::ThrowIfInterruptPending(interrupt_);
        const size_t first = out.size();
        if (valueBound_ != -std::numeric_limits<T>::infinity()) {
            constexpr size_t L = distance::OrderedPanels<T>::kLanes;
            const T* u = x_ + i * p_;
            alignas(64) T values[L];
            uint32_t hits = 0;
            constexpr size_t G = distance::OrderedPanels<T>::kGroup;
            for (size_t b = 0; b < panels_.numPanels(); ++b) {
                if (b % G == 0 && panels_.groupLeastValue(u, b / G, metric_) > valueBound_) {
                    b += G - 1;
                    continue;
                }
                if (panels_.leastValue(u, b, metric_) > valueBound_) continue;
                distance::computeCrossBlock(distance::CrossBlock<T>{metric_, &u, 1, panels_.panel(b), p_, nullptr,
                                                                    values, &kernelBound_, T(1), &hits});
                const size_t lanes = panels_.lanes(b);
                hits &= lanes == 32 ? ~uint32_t(0) : (uint32_t(1) << lanes) - 1;
                for (; hits; hits &= hits - 1) {
                    const size_t l = size_t(__builtin_ctz(hits));
                    const size_t j = panels_.pointAt(b, l);
                    if (values[l] <= valueBound_ && j != i) out.push_back(j);
                }
            }
        }
        ascending(out, first);
        out.push_back(i);
    }

private:
    // The panels' order is spatial: the neighbours are put back in ascending
    // order, by sorting a short list, or through a mark per point when the
    // list is long enough that reading n marks costs less.
    void ascending(NeighborList& out, size_t first) const {
        const size_t count = out.size() - first;
        if (count < 2) return;
        if (count * kMarksPerNeighbor < n_) {
            std::sort(out.begin() + first, out.end());
            return;
        }
        std::vector<unsigned char>& marks = marks_.local();
        if (marks.size() < n_) marks.assign(n_, 0);
        for (size_t m = first; m < out.size(); ++m) marks[out[m]] = 1;
        out.resize(first);
        for (size_t j = 0; j < n_; ++j)
            if (marks[j]) {
                out.push_back(j);
                marks[j] = 0;
            }
    }
    static constexpr size_t kMarksPerNeighbor = 16;
    mutable tbb::enumerable_thread_specific<std::vector<unsigned char>> marks_;  // all 0 between queries

    const T* x_;
    size_t n_, p_;
    distance::PairMetric metric_;
    distance::OrderedPanels<T> panels_;
    T valueBound_;   // a value passes when at most this
    T kernelBound_;  // the kernel's "below" test for the same
    const std::shared_ptr<InterruptStateData>& interrupt_;
};

// The host's "pdist2" on the data (n-by-p, a point is a row) and row i:
// serial, on the host thread. Values the data lacks are NaN in the row.
class HostPdist2Rows {
public:
    HostPdist2Rows(const ndArray* x, size_t n, size_t p, const ndArray* metric)
        : x_(x), n_(n), p_(p), metric_(metric), stored_(zv::storedBytes(x)),
          elementBytes_(stored_ / std::max<size_t>(1, ndGetNumberOfElements(x))) {}

    matrix::unique_nd_ptr operator()(size_t i) const {
        matrix::unique_nd_ptr row = missingValues(ndGetClassID(x_), 1, p_);
        const char* from = static_cast<const char*>(ndGetData(x_));
        char* to = static_cast<char*>(ndGetData(row.get()));
        for (size_t k = 0; k < p_ && i < firstWithoutData(); ++k) {
            const size_t at = (i + k * n_) * elementBytes_;
            if (at + elementBytes_ > stored_) break;
            std::memcpy(to + k * elementBytes_, from + at, elementBytes_);
        }
        ndArray* output = nullptr;
        const ndArray* inputs[3] = {x_, row.get(), metric_};
        hostCallFunction(1, &output, 3, inputs, "pdist2", 0);
        matrix::unique_nd_ptr distances(output);
        if (distances) ndSetArrayScope(distances.get(), 0);
        return distances;
    }

    // The first row whose first value lies past the stored bytes: it and all
    // later ones are made of NaN alone (all of them, when a row has no values).
    size_t firstWithoutData() const { return p_ == 0 || elementBytes_ == 0 ? 0 : stored_ / elementBytes_; }

private:
    const ndArray* x_;
    size_t n_, p_;
    const ndArray* metric_;
    size_t stored_, elementBytes_;
};

}  // namespace zv::clustering

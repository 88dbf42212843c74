// Density-based clustering over a neighbour query: clusters grow from core
// points through their neighbourhoods, serially (a stack of seeds) or in
// parallel breadth-first waves.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_reduce.h>
#include <tbb/partitioner.h>

#include <atomic>
#include <cstddef>
#include <vector>

namespace zv::clustering {

using NeighborList = std::vector<size_t>;

// Label states: not visited, noise so far, or a cluster number from 1.
constexpr double kUnvisited = 0.0;
constexpr double kNoise = -1.0;

// Labels and core flags as the workers of a wave share them. All stores of a
// wave write the same cluster number, so relaxed atomics are enough: they make
// the concurrent accesses defined without ordering anything.
class DbscanMarks {
public:
    DbscanMarks(double* labels, bool* core) : labels_(labels), core_(core) {}

    double label(size_t i) const { return std::atomic_ref<double>(labels_[i]).load(std::memory_order_relaxed); }
    void setLabel(size_t i, double v) const {
        std::atomic_ref<double>(labels_[i]).store(v, std::memory_order_relaxed);
    }
    // Moves an unvisited point into the cluster. True for the one caller that
    // did it, so a point enters the next frontier once.
    bool claim(size_t i, double clusterId) const {
        double expected = kUnvisited;
        return std::atomic_ref<double>(labels_[i]).compare_exchange_strong(expected, clusterId,
                                                                           std::memory_order_relaxed);
    }
    bool hasCore() const { return core_ != nullptr; }
    void markCore(size_t i) const { std::atomic_ref<bool>(core_[i]).store(true, std::memory_order_relaxed); }

private:
    double* labels_;
    bool* core_;
};

// The neighbour query with its density test. Query(i, list) appends the
// neighbours of i in ascending order and then i itself.
template <class T, class Query>
struct DensityQuery {
    const Query& query;
    T minpts;
    DbscanMarks marks;

    void operator()(size_t i, NeighborList& list) const {
        list.clear();
        query(i, list);
        if (marks.hasCore() && dense(list)) marks.markCore(i);
    }
    // minpts counts the point itself, which every list holds.
    bool dense(const NeighborList& list) const { return T(list.size()) >= minpts; }
};

// One wave of a cluster's growth: queries each frontier point of its range
// and collects the points it brings into the cluster for the next wave.
template <class T, class Query>
class TBBNeighborFinder {
public:
    TBBNeighborFinder(const NeighborList& seeds, const DensityQuery<T, Query>& density, double clusterId)
        : seeds_(seeds), density_(density), clusterId_(clusterId) {}
    TBBNeighborFinder(TBBNeighborFinder& other, tbb::split)
        : seeds_(other.seeds_), density_(other.density_), clusterId_(other.clusterId_) {}

    void operator()(const tbb::blocked_range<size_t>& range) {
        const DbscanMarks& marks = density_.marks;
        for (size_t s = range.begin(); s != range.end(); ++s) {
            density_(seeds_[s], neighbors_);
            if (!density_.dense(neighbors_)) continue;
            for (size_t r : neighbors_) {
                // A former noise point joins as a border point and is not expanded.
                if (marks.label(r) == kNoise) marks.setLabel(r, clusterId_);
                else if (marks.claim(r, clusterId_)) next.push_back(r);
            }
        }
    }
    void join(TBBNeighborFinder& other) { next.insert(next.end(), other.next.begin(), other.next.end()); }

    NeighborList next;

private:
    const NeighborList& seeds_;
    const DensityQuery<T, Query>& density_;
    double clusterId_;
    NeighborList neighbors_;
};

template <class T, class Query>
class Dbscan {
public:
    // labels: n zeros on entry; core: n false flags, or null.
    Dbscan(const Query& query, size_t n, T minpts, bool serial, double* labels, bool* core)
        : density_{query, minpts, DbscanMarks(labels, core)}, n_(n), serial_(serial) {}

    void run() {
        double clusterId = 1;
        for (size_t i = 0; i < n_; ++i)
            if (density_.marks.label(i) == kUnvisited && expand(i, clusterId)) clusterId += 1;
    }

private:
    bool expand(size_t i, double clusterId) {
        const DbscanMarks& marks = density_.marks;
        density_(i, seeds_);
        if (!density_.dense(seeds_)) {
            marks.setLabel(i, kNoise);
            return false;
        }
        for (size_t s : seeds_) {
            const double l = marks.label(s);
            if (l == kUnvisited || l == kNoise) marks.setLabel(s, clusterId);
        }
        seeds_.pop_back();  // i itself
        if (serial_) growSerially(clusterId);
        else growInWaves(clusterId);
        return true;
    }

    void growSerially(double clusterId) {
        const DbscanMarks& marks = density_.marks;
        while (!seeds_.empty()) {
            const size_t q = seeds_.back();
            seeds_.pop_back();
            density_(q, neighbors_);
            if (!density_.dense(neighbors_)) continue;
            for (size_t r : neighbors_) {
                const double l = marks.label(r);
                if (l == kNoise) {
                    marks.setLabel(r, clusterId);
                } else if (l == kUnvisited) {
                    marks.setLabel(r, clusterId);
                    seeds_.push_back(r);
                }
            }
        }
    }

    void growInWaves(double clusterId) {
        while (!seeds_.empty()) {
            TBBNeighborFinder<T, Query> finder(seeds_, density_, clusterId);
            tbb::parallel_reduce(tbb::blocked_range<size_t>(0, seeds_.size(), 1), finder, tbb::auto_partitioner());
            seeds_.swap(finder.next);
        }
    }

    DensityQuery<T, Query> density_;
    size_t n_;
    bool serial_;
    NeighborList seeds_, neighbors_;
};

// Labels n points (0 not visited, -1 noise, 1, 2, ... cluster numbers in the
// order of their lowest starting point) and, when core is not null, flags the
// points with at least minpts neighbours, themselves included.
template <class T, class Query>
void dbscanEngine(const Query& query, size_t n, T minpts, bool serial, double* labels, bool* core) {
    Dbscan<T, Query>(query, n, minpts, serial, labels, core).run();
}

}  // namespace zv::clustering

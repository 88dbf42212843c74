// The mean distances behind silhouette values: for a point, the mean distance
// to the other members of its own cluster and to the members of each other
// cluster. The silhouette value itself is the caller's.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <vector>

#include "clustering/nested_columns.hpp"

namespace zv::clustering {

// Membership mask, rows by K clusters, column-major: (j, k) says point j is in
// cluster k. Entries past the stored bytes read as false.
struct ClusterMask {
    const unsigned char* mask;
    size_t stored;
    size_t rows;

    // The clusters whose columns reach into the stored bytes; no later
    // cluster has a member, however large K is.
    size_t heldColumns() const { return rows == 0 ? 0 : stored / rows + (stored % rows != 0); }

    // Calls f(j) for the members of cluster k in ascending order.
    template <class F>
    void forEachMember(size_t k, F&& f) const {
        if (k >= heldColumns()) return;
        const unsigned char* column = mask + k * rows;
        const size_t end = std::min(rows, stored - k * rows);
        for (size_t j = 0; j < end; ++j)
            if (column[j]) f(j);
    }
};

// The members of every cluster as index lists, built once so that each
// point walks its clusters' members instead of the whole mask.
class ClusterMembers {
public:
    ClusterMembers(const ClusterMask& mask, size_t K) : start_(std::min(K, mask.heldColumns()) + 1, 0) {
        for (size_t k = 0; k + 1 < start_.size(); ++k) {
            mask.forEachMember(k, [&](size_t j) { index_.push_back(j); });
            start_[k + 1] = index_.size();
        }
    }
    template <class F>
    void forEachMember(size_t k, F&& f) const {
        if (k + 1 >= start_.size()) return;
        for (size_t m = start_[k]; m < start_[k + 1]; ++m) f(index_[m]);
    }

private:
    std::vector<size_t> start_;
    std::vector<size_t> index_;
};

// The divisor of the own cluster's mean: its other members, at least 1.
template <class T>
T ownClusterDivisor(T count) {
    return count - T(1) >= T(1) ? count - T(1) : T(1);
}

// Cluster k (from 0) of a point with distances d and own cluster `own` (from
// 1, a double): the own cluster adds to `within` over count - 1 members (at
// least 1) and marks `between` infinite; another adds to `between` over its
// count. Each term is divided before it is added, in ascending member order,
// so the point's own zero distance adds nothing.
template <class T, class Members>
void addClusterMean(const Members& members, size_t k, T count, double own, const T* d, T& within, T& between) {
    T sum = 0;
    if (double(k + 1) == own) {
        const T denom = ownClusterDivisor(count);
        members.forEachMember(k, [&](size_t j) { sum += d[j] / denom; });
        within += sum;
        between = std::numeric_limits<T>::infinity();
    } else {
        members.forEachMember(k, [&](size_t j) { sum += d[j] / count; });
        between += sum;
    }
}

// One point whose m distances are known: parallel over the K clusters, one
// output entry per cluster. within and between[K] start at 0.
template <class T>
void silhouettefun(const T* d, const ClusterMask& mask, const T* counts, size_t K, double own, T* within,
                   T* between) {
    if (K == 0) return;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, K, 1),
        [&](const tbb::blocked_range<size_t>& r) {
            for (size_t k = r.begin(); k != r.end(); ++k) addClusterMean(mask, k, counts[k], own, d, *within, between[k]);
        },
        tbb::auto_partitioner());
}

// Every point of n, parallel over points: distances(r, f) calls f with the n
// distances of point r. within (n) and between (n-by-K) start at 0.
template <class T, class Distances>
void silhouettepdist2fun(size_t n, const Distances& distances, const ClusterMembers& members, const T* counts,
                         size_t K, const double* own, T* within, T* between) {
    if (n == 0) return;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, n, 1),
        [&](const tbb::blocked_range<size_t>& range) {
            for (size_t r = range.begin(); r != range.end(); ++r)
                distances(r, [&](const T* d) {
                    for (size_t k = 0; k < K; ++k)
                        addClusterMean(members, k, counts[k], own[r], d, within[r], between[k * n + r]);
                });
        },
        tbb::auto_partitioner());
}

// silhouettepdist2fun with each point's distances from the nested cross
// distance (the full mode gives n values of the class of the data), which
// polls for interruption itself.
template <class T>
void silhouetteByNestedCalls(const NestedColumns& column, size_t n, const ClusterMask& mask,
                             const T* counts, size_t K, const double* own, T* within, T* between) {
    const ClusterMembers members(mask, K);
    auto distances = [&](size_t r, auto&& use) {
        const matrix::unique_nd_ptr d = column(r);
        use(static_cast<const T*>(ndGetData(d.get())));
    };
    silhouettepdist2fun(n, distances, members, counts, K, own, within, between);
}

}  // namespace zv::clustering

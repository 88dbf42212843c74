// The mean distances behind silhouette values: for a point, the mean distance
// to the other members of its own cluster and to the members of each other
// cluster. The silhouette value itself is the caller's.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <vector>

namespace zv::clustering {

// Membership mask, rows by K clusters, column-major: (j, k) says point j is in
// cluster k. Entries past the stored bytes read as false.
struct ClusterMask {
    const unsigned char* mask;
    size_t stored;
    size_t rows;

    // Calls f(j) for the members of cluster k in ascending order.
    template <class F>
    void forEachMember(size_t k, F&& f) const {
        const size_t start = k * rows;
        const size_t end = start < stored ? std::min(rows, stored - start) : 0;
        const unsigned char* column = mask + start;
        for (size_t j = 0; j < end; ++j)
            if (column[j]) f(j);
    }
};

// The members of every cluster as index lists, built once so that each
// point walks its clusters' members instead of the whole mask.
class ClusterMembers {
public:
    ClusterMembers(const ClusterMask& mask, size_t K) : start_(K + 1, 0) {
        for (size_t k = 0; k < K; ++k) {
            mask.forEachMember(k, [&](size_t j) { index_.push_back(j); });
            start_[k + 1] = index_.size();
        }
    }
    template <class F>
    void forEachMember(size_t k, F&& f) const {
        for (size_t m = start_[k]; m < start_[k + 1]; ++m) f(index_[m]);
    }
    const size_t* begin(size_t k) const { return index_.data() + start_[k]; }
    const size_t* end(size_t k) const { return index_.data() + start_[k + 1]; }

private:
    std::vector<size_t> start_;
    std::vector<size_t> index_;
};

// Cluster k (from 0) of a point with distances d and own cluster `own` (from
// 1, a double): the own cluster adds to `within` over count - 1 members (at
// least 1) and marks `between` infinite; another adds to `between` over its
// count. Each term is divided before it is added, in ascending member order,
// so the point's own zero distance adds nothing.
template <class T, class Members>
void addClusterMean(const Members& members, size_t k, T count, double own, const T* d, T& within, T& between) {
    T sum = 0;
    if (double(k + 1) == own) {
        const T denom = count - T(1) >= T(1) ? count - T(1) : T(1);
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

// silhouettepdist2fun with the points taken kPointTile at a time, one lane
// of a vector per point: columns(r0, r1, d) writes the distance from point r
// to point j at d[j * kPointTile + (r - r0)]. Every lane runs the sums of
// addClusterMean in the same order, so each point gets the same bits.
constexpr size_t kPointTile = 16;

template <class T>
class TileClusterMeans {
public:
    typedef T Vec __attribute__((vector_size(32)));
    static constexpr size_t kPerVec = 32 / sizeof(T), kVecs = kPointTile / kPerVec;

    // The tile of `lanes` points whose own clusters start at own; within and
    // between point at the entries of the tile's first point. The divisions
    // dominate: they go by the widest vectors the processor has.
    static void add(const ClusterMembers& members, size_t K, const T* counts, const double* own, size_t lanes,
                    const T* d, T* within, T* between, size_t n) {
        if (__builtin_cpu_supports("avx2")) addAvx2(members, K, counts, own, lanes, d, within, between, n);
        else addBody(members, K, counts, own, lanes, d, within, between, n);
    }

private:
    [[gnu::target("avx2")]] static void addAvx2(const ClusterMembers& members, size_t K, const T* counts,
                                                const double* own, size_t lanes, const T* d, T* within, T* between,
                                                size_t n) {
        addBody(members, K, counts, own, lanes, d, within, between, n);
    }

    [[gnu::always_inline]] static inline void addBody(const ClusterMembers& members, size_t K, const T* counts,
                                                      const double* own, size_t lanes, const T* d, T* within,
                                                      T* between, size_t n) {
        for (size_t k = 0; k < K; ++k) {
            const T count = counts[k];
            const T ownDenom = count - T(1) >= T(1) ? count - T(1) : T(1);
            bool isOwn[kPointTile];
            alignas(32) T denomOf[kPointTile];
            for (size_t c = 0; c < kPointTile; ++c) {
                isOwn[c] = c < lanes && double(k + 1) == own[c];
                denomOf[c] = isOwn[c] ? ownDenom : count;
            }
            Vec denom[kVecs], sum[kVecs];
#pragma GCC unroll 8
            for (size_t v = 0; v < kVecs; ++v) {
                std::memcpy(&denom[v], denomOf + v * kPerVec, sizeof(Vec));
                sum[v] = Vec{};
            }
            for (const size_t* j = members.begin(k); j != members.end(k); ++j) {
                const T* dj = d + *j * kPointTile;
#pragma GCC unroll 8
                for (size_t v = 0; v < kVecs; ++v) {
                    Vec x;
                    std::memcpy(&x, dj + v * kPerVec, sizeof(Vec));
                    sum[v] += x / denom[v];
                }
            }
            alignas(32) T sums[kPointTile];
            std::memcpy(sums, sum, sizeof(sums));
            for (size_t c = 0; c < lanes; ++c) {
                if (isOwn[c]) {
                    within[c] += sums[c];
                    between[k * n + c] = std::numeric_limits<T>::infinity();
                } else {
                    between[k * n + c] += sums[c];
                }
            }
        }
    }
};

template <class T, class Columns>
void silhouetteByTiles(size_t n, const Columns& columns, const ClusterMembers& members, const T* counts, size_t K,
                       const double* own, T* within, T* between) {
    if (n == 0) return;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, n, 1),
        [&](const tbb::blocked_range<size_t>& range) {
            // Lanes past the last point stay zero: they are summed but never stored.
            std::vector<T> d(kPointTile * n, T(0));
            for (size_t r0 = range.begin(); r0 < range.end(); r0 += kPointTile) {
                const size_t r1 = std::min(range.end(), r0 + kPointTile);
                columns(r0, r1, d.data());
                TileClusterMeans<T>::add(members, K, counts, own + r0, r1 - r0, d.data(), within + r0, between + r0, n);
            }
        },
        tbb::auto_partitioner());
}

}  // namespace zv::clustering

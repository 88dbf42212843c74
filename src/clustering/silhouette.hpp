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

private:
    std::vector<size_t> start_;
    std::vector<size_t> index_;
};

// The clusters of every point, as index lists: the transpose of
// ClusterMembers, for sums that walk the points once for all clusters.
class PointClusters {
public:
    PointClusters(const ClusterMask& mask, size_t K) : start_(mask.rows + 1, 0) {
        for (size_t k = 0; k < K; ++k) mask.forEachMember(k, [&](size_t j) { ++start_[j + 1]; });
        for (size_t j = 0; j < mask.rows; ++j) start_[j + 1] += start_[j];
        index_.resize(start_[mask.rows]);
        std::vector<size_t> fill(start_.begin(), start_.end() - 1);
        for (size_t k = 0; k < K; ++k) mask.forEachMember(k, [&](size_t j) { index_[fill[j]++] = k; });
    }
    const size_t* begin(size_t j) const { return index_.data() + start_[j]; }
    const size_t* end(size_t j) const { return index_.data() + start_[j + 1]; }

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

// The means of Tile points at once, one lane of a vector per point. The
// distances arrive in rows, d[j * Tile + lane] for point j, ascending in j;
// each row adds to the sum of every cluster of j. A cluster's sum thus runs
// over its members in ascending order, as addClusterMean runs it, so each
// point gets the same bits.
template <class T, size_t Tile>
class TileClusterMeans {
    typedef T Vec __attribute__((vector_size(32)));
    static constexpr size_t kPerVec = 32 / sizeof(T), kVecs = Tile / kPerVec;
    // Aligned for the widest loads whatever the alignment the baseline gives Vec.
    struct alignas(32) Lanes {  // one value per point of the tile
        Vec v[kVecs];
    };
    static_assert(sizeof(Lanes) == Tile * sizeof(T) && alignof(Lanes) == 32);

public:
    TileClusterMeans(const PointClusters& clusters, size_t K, const T* counts)
        : clusters_(clusters), K_(K), counts_(counts), sum_(K), denom_(K), isOwn_(K * Tile) {}

    // A new tile of `lanes` points whose own clusters start at own.
    void start(const double* own, size_t lanes) {
        lanes_ = lanes;
        for (size_t k = 0; k < K_; ++k) {
            const T count = counts_[k];
            const T ownDenom = ownClusterDivisor(count);
            alignas(32) T denom[Tile];
            for (size_t c = 0; c < Tile; ++c) {
                isOwn_[k * Tile + c] = c < lanes && double(k + 1) == own[c];
                denom[c] = isOwn_[k * Tile + c] ? ownDenom : count;
            }
            std::memcpy(&denom_[k], denom, sizeof(denom));
            sum_[k] = Lanes{};
        }
    }

    // Rows j0 .. j0 + count - 1. The divisions dominate: they go by the
    // widest vectors the processor has.
    void addRows(size_t j0, size_t count, const T* d) {
        if (__builtin_cpu_supports("avx2")) addRowsAvx2(j0, count, d);
        else addRowsBody(j0, count, d);
    }

    // within and between at the entries of the tile's first point.
    void store(T* within, T* between, size_t n) const {
        for (size_t k = 0; k < K_; ++k) {
            alignas(32) T sums[Tile];
            std::memcpy(sums, &sum_[k], sizeof(sums));
            for (size_t c = 0; c < lanes_; ++c) {
                if (isOwn_[k * Tile + c]) {
                    within[c] += sums[c];
                    between[k * n + c] = std::numeric_limits<T>::infinity();
                } else {
                    between[k * n + c] += sums[c];
                }
            }
        }
    }

private:
    [[gnu::target("avx2")]] void addRowsAvx2(size_t j0, size_t count, const T* d) { addRowsBody(j0, count, d); }

    [[gnu::always_inline]] inline void addRowsBody(size_t j0, size_t count, const T* d) {
        for (size_t r = 0; r < count; ++r) {
            Vec row[kVecs];
#pragma GCC unroll 8
            for (size_t v = 0; v < kVecs; ++v) std::memcpy(&row[v], d + r * Tile + v * kPerVec, sizeof(Vec));
            for (const size_t* k = clusters_.begin(j0 + r); k != clusters_.end(j0 + r); ++k) {
                Vec* sum = sum_[*k].v;
                const Vec* denom = denom_[*k].v;
#pragma GCC unroll 8
                for (size_t v = 0; v < kVecs; ++v) sum[v] += row[v] / denom[v];
            }
        }
    }

    const PointClusters& clusters_;
    size_t K_;
    const T* counts_;
    std::vector<Lanes> sum_, denom_;
    std::vector<unsigned char> isOwn_;
    size_t lanes_ = 0;
};

// silhouettepdist2fun, Tile points at a time, parallel over the tiles:
// rows(r0, j0, count, d) writes the distances from points j0 .. j0 + count - 1
// to the tile starting at r0 as TileClusterMeans reads them, count at most
// kRows. Lanes past the last point are summed but never stored.
template <class T, size_t Tile, size_t kRows, class Rows>
void silhouetteByTiles(size_t n, const Rows& rows, const PointClusters& clusters, const T* counts, size_t K,
                       const double* own, T* within, T* between) {
    if (n == 0) return;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, (n + Tile - 1) / Tile, 1),
        [&](const tbb::blocked_range<size_t>& range) {
            TileClusterMeans<T, Tile> means(clusters, K, counts);
            alignas(64) T d[kRows * Tile];
            for (size_t t = range.begin(); t != range.end(); ++t) {
                const size_t r0 = t * Tile;
                means.start(own + r0, std::min(Tile, n - r0));
                for (size_t j0 = 0; j0 < n; j0 += kRows) {
                    const size_t count = std::min(kRows, n - j0);
                    rows(r0, j0, count, d);
                    means.addRows(j0, count, d);
                }
                means.store(within + r0, between + r0, n);
            }
        },
        tbb::auto_partitioner());
}

}  // namespace zv::clustering

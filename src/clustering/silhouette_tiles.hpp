// The data form of silhouette on panels of the data: the means of a tile of
// points at once, one vector lane per point, from blocks of their distances
// to all points computed by the panel kernels.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

#include "clustering/silhouette.hpp"
#include "distance/panel_columns.hpp"
#include "host/host.hpp"

namespace zv::clustering {

// The cluster (from 0) that an own-cluster number names, the k < K with
// k + 1 == own; K when it names none.
inline size_t ownClusterIndex(double own, size_t K) {
    if (!(own >= 1 && own <= double(K) && own < 0x1p63 && own == std::trunc(own))) return K;
    const size_t k = size_t(own) - 1;
    return k < K ? k : K;
}

// The clusters of every point, as index lists: the transpose of
// ClusterMembers, for sums that walk the points once for all clusters. Only
// the clusters with members get a slot, numbered in cluster order, so that
// the sums take room and time for those, however large K is.
class PointClusters {
public:
    PointClusters(const ClusterMask& mask, size_t K) : start_(mask.rows + 1, 0) {
        const size_t held = std::min(K, mask.heldColumns());
        for (size_t k = 0; k < held; ++k) {
            bool populated = false;
            mask.forEachMember(k, [&](size_t j) { ++start_[j + 1], populated = true; });
            if (populated) cluster_.push_back(k);
        }
        for (size_t j = 0; j < mask.rows; ++j) start_[j + 1] += start_[j];
        slot_.resize(start_[mask.rows]);
        std::vector<size_t> fill(start_.begin(), start_.end() - 1);
        for (size_t s = 0; s < cluster_.size(); ++s)
            mask.forEachMember(cluster_[s], [&](size_t j) { slot_[fill[j]++] = s; });
    }
    size_t numSlots() const { return cluster_.size(); }
    size_t clusterOf(size_t slot) const { return cluster_[slot]; }
    // The slots of point j's clusters.
    const size_t* begin(size_t j) const { return slot_.data() + start_[j]; }
    const size_t* end(size_t j) const { return slot_.data() + start_[j + 1]; }

private:
    std::vector<size_t> start_;
    std::vector<size_t> slot_;
    std::vector<size_t> cluster_;
};

// The means of Tile points at once, one lane of a vector per point. The
// distances arrive in rows, d[j * Tile + lane] for point j, ascending in j;
// each row adds to the sum of every cluster of j. A cluster's sum thus runs
// over its members in ascending order, as addClusterMean runs it, so each
// point gets the same bits. A cluster without members adds 0 to a 0 and is
// skipped; only the infinity of an own cluster stands for it.
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
        : clusters_(clusters), K_(K), counts_(counts), sum_(clusters.numSlots()), denom_(clusters.numSlots()),
          isOwn_(clusters.numSlots() * Tile) {}

    // A new tile of `lanes` points whose own clusters start at own.
    void start(const double* own, size_t lanes) {
        lanes_ = lanes;
        for (size_t c = 0; c < Tile; ++c) ownIndex_[c] = c < lanes ? ownClusterIndex(own[c], K_) : K_;
        for (size_t s = 0; s < clusters_.numSlots(); ++s) {
            const size_t k = clusters_.clusterOf(s);
            const T count = counts_[k];
            const T ownDenom = ownClusterDivisor(count);
            alignas(32) T denom[Tile];
            for (size_t c = 0; c < Tile; ++c) {
                isOwn_[s * Tile + c] = c < lanes && double(k + 1) == own[c];
                denom[c] = isOwn_[s * Tile + c] ? ownDenom : count;
            }
            std::memcpy(&denom_[s], denom, sizeof(denom));
            sum_[s] = Lanes{};
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
        for (size_t s = 0; s < clusters_.numSlots(); ++s) {
            const size_t k = clusters_.clusterOf(s);
            alignas(32) T sums[Tile];
            std::memcpy(sums, &sum_[s], sizeof(sums));
            for (size_t c = 0; c < lanes_; ++c) {
                if (isOwn_[s * Tile + c]) within[c] += sums[c];
                else between[k * n + c] += sums[c];
            }
        }
        for (size_t c = 0; c < lanes_; ++c)
            if (ownIndex_[c] < K_) between[ownIndex_[c] * n + c] = std::numeric_limits<T>::infinity();
    }

private:
    [[gnu::target("avx2")]] void addRowsAvx2(size_t j0, size_t count, const T* d) { addRowsBody(j0, count, d); }

    [[gnu::always_inline]] inline void addRowsBody(size_t j0, size_t count, const T* d) {
        for (size_t r = 0; r < count; ++r) {
            Vec row[kVecs];
#pragma GCC unroll 8
            for (size_t v = 0; v < kVecs; ++v) std::memcpy(&row[v], d + r * Tile + v * kPerVec, sizeof(Vec));
            for (const size_t* s = clusters_.begin(j0 + r); s != clusters_.end(j0 + r); ++s) {
                Vec* sum = sum_[*s].v;
                const Vec* denom = denom_[*s].v;
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
    size_t ownIndex_[Tile] = {};
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

// The data form (x p-by-n, p >= 1) for a metric with a panel kernel: a tile
// is one panel of the data, built once; the values of points j against it
// fall in the rows the sums read, and a pair's value does not depend on which
// point is the panel's. Polled once per block of rows, about as often as the
// nested call polls.
template <class T>
void silhouetteByPanels(const T* x, size_t n, size_t p, distance::PairMetric metric, const ClusterMask& mask,
                        const T* counts, size_t K, const double* own,
                        const std::shared_ptr<InterruptStateData>& interrupt, T* within, T* between) {
    const distance::PanelColumns<T> panels(x, n, p, metric);
    constexpr size_t L = distance::PanelColumns<T>::kLanes, kRows = 16;
    static_assert(kRows <= distance::PanelColumns<T>::kMaxPoints);
    auto rows = [&](size_t r0, size_t j0, size_t count, T* d) {
        InterruptState::ThrowIfInterruptPending(interrupt);
        panels.block(j0, count, r0 / L, d);
        panels.finish(d, count * L, d);
    };
    silhouetteByTiles<T, L, kRows>(n, rows, PointClusters(mask, K), counts, K, own, within, between);
}

}  // namespace zv::clustering

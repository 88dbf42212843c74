// Memory-saving linkage on the observations themselves: centroid and median
// by the nearest-neighbour list, ward by the nearest-neighbour chain, with
// cluster representatives (centroids) kept in place of the merged columns.
// Serial but for long distance sweeps and the repeated searches of the
// list's repair, which run in parallel, each writing only its own values.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "clustering/linkage.hpp"
#include "clustering/linkage_updates.hpp"
#include "frame/scratch.hpp"

namespace zv::clustering {

namespace {

// out[s] = sum over t of (x[t * n + from + s] - x[t * n + c])^2 for
// s = 0 .. to-from-1, each sum in ascending coordinate order.
template <class T>
inline void sumRun(const T* __restrict x, size_t n, size_t p, size_t c, size_t from, size_t to, T* __restrict out) {
    const size_t len = to - from;
    for (size_t s = 0; s < len; ++s) out[s] = 0;
    for (size_t t = 0; t < p; ++t) {
        const T* row = x + t * n + from;
        const T u = x[t * n + c];
        for (size_t s = 0; s < len; ++s) {
            const T d = row[s] - u;
            out[s] += d * d;
        }
    }
}

// The same loop compiled for wider vectors; the arithmetic is the same, so
// are the results. (Chosen at run time; ifunc clones would resolve before
// a sanitizer's runtime is up.)
template <class T>
__attribute__((target("avx2"))) void sumRunAvx2(const T* x, size_t n, size_t p, size_t c, size_t from, size_t to,
                                                T* out) {
    sumRun(x, n, p, c, from, to, out);
}

// The representatives stored coordinate by coordinate: x[t * n + j] is
// coordinate t of slot j, so that the distances from one slot to a run of
// others go down contiguous runs, several slots to a vector register.
template <class T>
struct Columns {
    T* x;
    size_t p, n;
    T& at(size_t j, size_t t) const { return x[t * n + j]; }
    // out[s - from] = squared Euclidean distance of slots c and s, for
    // s = from .. to-1, each sum in ascending coordinate order.
    void distancesFrom(size_t c, size_t from, size_t to, T* out) const {
        constexpr size_t kRun = 256;  // a run of sums that stays in L1
        for (size_t s0 = from; s0 < to; s0 += kRun) {
            const size_t s1 = std::min(to, s0 + kRun);
            if (__builtin_cpu_supports("avx2")) sumRunAvx2(x, n, p, c, s0, s1, out + (s0 - from));
            else sumRun(x, n, p, c, s0, s1, out + (s0 - from));
        }
    }
    void copy(size_t from, size_t to) const {
        for (size_t t = 0; t < p; ++t) at(to, t) = at(from, t);
    }
};

// Column hi becomes the representative of the merge of lo (size na) and hi
// (size nb).
template <class T, LinkageMethod M>
void mergeColumns(const Columns<T>& cols, size_t lo, size_t hi, uint64_t na, uint64_t nb) {
    for (size_t t = 0; t < cols.p; ++t) {
        const T a = cols.at(lo, t);
        T& b = cols.at(hi, t);
        if constexpr (M == LinkageMethod::Median) b = (b + a) * T(0.5);
        else b = (b * T(nb) + a * T(na)) / T(na + nb);
    }
}

template <class T>
void storeNearest(const Nearest<T>& nearest, uint64_t none, uint64_t& index, T& value) {
    index = nearest.at;
    value = nearest.at == none ? std::numeric_limits<T>::quiet_NaN() : nearest.best;
}

// Columns::distancesFrom split into fixed pieces run in parallel when the
// range is long enough to pay for it; the values do not depend on the split.
template <class T>
void distancesInParallel(const Columns<T>& cols, size_t c, size_t from, size_t to, T* out) {
    constexpr size_t kPiece = 1024;
    if (to - from < 2 * kPiece) return cols.distancesFrom(c, from, to, out);
    const size_t pieces = (to - from + kPiece - 1) / kPiece;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, pieces, 1),
                      [&](const tbb::blocked_range<size_t>& range) {
                          for (size_t q = range.begin(); q != range.end(); ++q) {
                              const size_t s0 = from + q * kPiece, s1 = std::min(to, s0 + kPiece);
                              cols.distancesFrom(c, s0, s1, out + (s0 - from));
                          }
                      },
                      tbb::auto_partitioner());
}

template <class T, LinkageMethod M>
void centroidList(const Columns<T>& cols, size_t n, uint64_t* labels, uint64_t* sizes, const MergeTable<T>& out) {
    Scratch<uint64_t> nnIndex(n);
    Scratch<T> nnDist(n);
    uint64_t* nnidx = nnIndex.get();
    T* nndist = nnDist.get();
    const uint64_t none = noSlot(n);

    blockedNeighbours<T>(n, nnidx, nndist, [&cols](size_t i, size_t s0, size_t s1, T* buffer) {
        cols.distancesFrom(i, s0, s1, buffer);
        return static_cast<const T*>(buffer);
    });
    Scratch<T> fromHi(n);

    // A fresh search of slot r over from .. n-1; safe on any thread: it
    // writes only nnidx[r] and nndist[r], and its distances go through a
    // small block on the stack.
    auto search = [&](size_t r, size_t from) {
        constexpr size_t kBlock = 64;
        T block[kBlock];
        Nearest<T> nearest(none);
        for (size_t s0 = from; s0 < n; s0 += kBlock) {
            const size_t s1 = std::min(n, s0 + kBlock);
            cols.distancesFrom(r, s0, s1, block);
            if (r >= s0 && r < s1) block[r - s0] = std::numeric_limits<T>::quiet_NaN();  // never itself
            nearest.offerRun(s0, block, s1 - s0);
        }
        storeNearest(nearest, none, nnidx[r], nndist[r]);
    };
    Scratch<size_t> rescan(n);

    for (size_t k = 0; k + 1 < n; ++k) {
        T x;
        size_t lo, hi;
        if (!nextListMerge(nndist, nnidx, k, n, lo, hi, x)) return joinRemaining(k, n, labels, out);
        uint64_t na, nb;
        recordMerge(k, lo, hi, std::sqrt(x), n, labels, sizes, out, na, nb);
        mergeColumns<T, M>(cols, lo, hi, na, nb);

        // d(hi, s) once: the repair below needs the same values.
        Nearest<T> nearest(none);
        distancesInParallel(cols, hi, k, n, fromHi.get());
        // Neither half of the merge is a candidate; the repair reads neither value.
        fromHi[lo - k] = fromHi[hi - k] = std::numeric_limits<T>::quiet_NaN();
        nearest.offerRun(k, fromHi.get(), n - k);
        storeNearest(nearest, none, nnidx[hi], nndist[hi]);
        if (lo != k) cols.copy(k, lo);
        nnidx[lo] = nnidx[k];
        nndist[lo] = nndist[k];

        // The slots whose neighbour was merged search again, the others
        // only compare with hi; the searches are independent of each other.
        size_t rescans = 0;
        for (size_t r = k + 1; r < n; ++r) {
            if (nnidx[r] == lo || nnidx[r] == hi) {
                rescan[rescans++] = r;
                continue;
            }
            // hi is never its own neighbour.
            if (r != hi) {
                // Slot lo now holds the cluster that was in slot k.
                const T d = fromHi[(r == lo ? k : r) - k];
                if (nndist[r] > d) {
                    nndist[r] = d;
                    nnidx[r] = hi;
                    continue;
                }
            }
            if (nnidx[r] == k) nnidx[r] = lo;
        }
        if (rescans < 2) {
            if (rescans) search(rescan[0], k + 1);
        } else {
            tbb::parallel_for(tbb::blocked_range<size_t>(0, rescans, 1),
                              [&](const tbb::blocked_range<size_t>& range) {
                                  for (size_t q = range.begin(); q != range.end(); ++q) search(rescan[q], k + 1);
                              },
                              tbb::auto_partitioner());
        }
    }
}

template <class T>
void wardChain(const Columns<T>& cols, size_t n, uint64_t* labels, uint64_t* sizes, const MergeTable<T>& out) {
    constexpr size_t kChainSlack = 10;
    const size_t capacity = n + kChainSlack;
    Scratch<uint64_t> chainSlots(capacity);
    uint64_t* S = chainSlots.get();
    const uint64_t none = noSlot(n);
    for (size_t i = 0; i < capacity; ++i) S[i] = none;

    // The nearest slot to c among k .. n-1 by the ward dissimilarity.
    Scratch<T> fromTop(n);
    auto nearestTo = [&](size_t c, size_t k, T& value) -> uint64_t {
        Nearest<T> nearest(none);
        const T nc = T(sizes[c]);
        T* ward = fromTop.get();
        cols.distancesFrom(c, k, n, ward);
        for (size_t s = k; s < n; ++s) {
            const T ns = T(sizes[s]);
            ward[s - k] = ward[s - k] / (nc + ns) * ns * nc;
        }
        if (c >= k) ward[c - k] = std::numeric_limits<T>::quiet_NaN();  // never itself
        nearest.offerRun(k, ward, n - k);
        if (nearest.at == none) {
            value = std::numeric_limits<T>::quiet_NaN();
            return c <= k ? k + 1 : k;
        }
        value = nearest.best;
        return nearest.at;
    };
    auto restart = [&](size_t k) {
        T unused;
        S[0] = k;
        S[1] = nearestTo(k, k, unused);
        return ptrdiff_t(1);
    };

    ptrdiff_t L = restart(0);
    for (size_t k = 0; k + 1 < n; ++k) {
        T x;
        for (;;) {
            const uint64_t next = nearestTo(size_t(S[L]), k, x);
            if (next == S[L - 1]) break;
            // As in the condensed chain: at the end of the storage the top
            // pair merges as if reciprocal.
            if (size_t(L) + 2 >= capacity) {
                S[L - 1] = next;
                break;
            }
            S[++L] = next;
        }
        const size_t a = size_t(S[L]), b = size_t(S[L - 1]);
        const size_t lo = a < b ? a : b, hi = a < b ? b : a;
        S[L - 1] = S[L] = S[L + 1] = none;
        uint64_t na, nb;
        recordMerge(k, lo, hi, std::sqrt(T(2) * x), n, labels, sizes, out, na, nb);
        mergeColumns<T, LinkageMethod::Ward>(cols, lo, hi, na, nb);
        if (lo != k) cols.copy(k, lo);

        if (k + 2 >= n) break;
        if (L + 1 > 3) {
            L -= 2;
            if (lo != k)
                for (ptrdiff_t i = 0; i <= L; ++i)
                    if (S[i] == k) S[i] = lo;
        } else {
            L = restart(k + 1);
        }
    }
}

}  // namespace

template <class T>
void linkageVector(LinkageMethod method, const T* x, size_t p, size_t n, const MergeTable<T>& out) {
    if (n < 2) return;
    Scratch<T> byCoordinate(n * p);
    for (size_t j = 0; j < n; ++j)
        for (size_t t = 0; t < p; ++t) byCoordinate[t * n + j] = x[j * p + t];
    const Columns<T> cols{byCoordinate.get(), p, n};
    const SlotClusters clusters(n, method);
    uint64_t* labels = clusters.labels.get();
    uint64_t* sizes = clusters.sizesOrNull();
    switch (method) {
    case LinkageMethod::Centroid: return centroidList<T, LinkageMethod::Centroid>(cols, n, labels, sizes, out);
    case LinkageMethod::Median: return centroidList<T, LinkageMethod::Median>(cols, n, labels, sizes, out);
    case LinkageMethod::Ward: return wardChain(cols, n, labels, sizes, out);
    default: return;
    }
}

template void linkageVector<double>(LinkageMethod, const double*, size_t, size_t, const MergeTable<double>&);
template void linkageVector<float>(LinkageMethod, const float*, size_t, size_t, const MergeTable<float>&);

}  // namespace zv::clustering

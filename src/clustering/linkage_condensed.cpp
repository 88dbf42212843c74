// Linkage on a condensed distance matrix: the nearest-neighbour list for
// single, centroid and median, the nearest-neighbour chain for complete,
// average, weighted and ward.
#include <cmath>
#include <limits>
#include <vector>
#include <algorithm>

#include "clustering/linkage.hpp"
#include "clustering/linkage_updates.hpp"
#include "frame/scratch.hpp"

namespace zv::clustering {

namespace {

template <class T>
T heightOf(LinkageMethod method, T value) {
    return worksOnSquares(method) ? std::sqrt(value) : value;
}

template <class T, LinkageMethod M>
void nearestNeighbourList(T* y, size_t n, uint64_t* labels, uint64_t* sizes, const MergeTable<T>& out) {
    Scratch<uint64_t> nnIndex(n);
    Scratch<T> nnDist(n);
    uint64_t* nnidx = nnIndex.get();
    T* nndist = nnDist.get();
    const uint64_t none = noSlot(n);

    initialNeighbours(y, n, nnidx, nndist);

    for (size_t k = 0; k + 1 < n; ++k) {
        T x;
        size_t lo, hi;
        if (!nextListMerge(nndist, nnidx, k, n, lo, hi, x)) return joinRemaining(k, n, labels, out);
        uint64_t na, nb;
        recordMerge(k, lo, hi, heightOf(M, x), n, labels, sizes, out, na, nb);

        nnidx[hi] = none;
        mergeSlots<true>(y, n, k, lo, hi, MergeUpdate<T, M>(x, na, nb, sizes), nnidx[hi], nndist[hi]);
        nnidx[lo] = nnidx[k];
        nndist[lo] = nndist[k];

        if constexpr (M == LinkageMethod::Single) {
            // A merged distance never undercuts the neighbours' own: relabel only.
            for (size_t r = k + 1; r < n; ++r) {
                if (nnidx[r] == lo) nnidx[r] = hi;
                else if (nnidx[r] == k) nnidx[r] = lo;
            }
        } else {
            // Only the slots whose neighbour was merged search again.
            parallelOverSlots(k + 1, n, [&](size_t r) {
                if (nnidx[r] == lo || nnidx[r] == hi) {
                    nearestOf(y, n, r, k + 1, nnidx[r], nndist[r]);
                    return;
                }
                if (r != hi) {
                    const T d = y[distance::condensedPairIndex(r, hi, n)];
                    if (nndist[r] > d) {
                        nndist[r] = d;
                        nnidx[r] = hi;
                    }
                }
                if (nnidx[r] == k) nnidx[r] = lo;
            });
        }
    }
}

template <class T, LinkageMethod M>
void nearestNeighbourChain(T* y, size_t n, uint64_t* labels, uint64_t* sizes, const MergeTable<T>& out) {
    const size_t capacity = 2 * n;
    Scratch<uint64_t> chainSlots(capacity);
    Scratch<T> chainDist(capacity);
    uint64_t* S = chainSlots.get();
    T* D = chainDist.get();
    const uint64_t none = noSlot(n);
    for (size_t i = 0; i < capacity; ++i) S[i] = none;
    S[0] = 0;
    ptrdiff_t L = 0;

    for (size_t k = 0; k + 1 < n; ++k) {
        for (;;) {
            const size_t c = size_t(S[L]);
            uint64_t next;
            nearestOf(y, n, c, k, next, D[L]);
            if (next == none) next = c <= k ? k + 1 : k;
            S[L + 1] = next;
            if (L >= 1 && next == S[L - 1]) break;
            // Ties and NaNs can, in odd patterns, keep a chain growing; at the
            // end of its storage the top pair merges as if reciprocal.
            if (size_t(L) + 2 >= capacity) break;
            ++L;
        }
        const T x = D[L];
        const size_t a = size_t(S[L]), b = size_t(S[L + 1]);
        const size_t lo = a < b ? a : b, hi = a < b ? b : a;
        uint64_t na, nb;
        recordMerge(k, lo, hi, heightOf(M, x), n, labels, sizes, out, na, nb);
        uint64_t unusedIndex;
        T unusedValue;
        mergeSlots<false>(y, n, k, lo, hi, MergeUpdate<T, M>(x, na, nb, sizes), unusedIndex, unusedValue);

        const ptrdiff_t length = L + 1;
        if (length < 3) {
            S[0] = k + 1;
            L = 0;
        } else if (length == 3) {
            L = 0;
        } else {
            L -= 2;
            ptrdiff_t found = -1;
            for (ptrdiff_t i = L;; --i) {
                if (S[i] == lo || S[i] == hi) found = i;
                if (i == 0 || D[i] > D[i + 1]) break;
            }
            if (found == 0) {
                S[0] = k + 1;
                L = 0;
            } else if (found > 0) {
                L = found - 1;
            }
        }
        // Slot k is gone; its cluster now lives in lo.
        if (lo != k)
            for (ptrdiff_t i = 0; i <= L; ++i)
                if (S[i] == k) S[i] = lo;
    }
}

template <class T, LinkageMethod M>
void runCondensed(T* y, size_t n, uint64_t* labels, uint64_t* sizes, const MergeTable<T>& out) {
    if constexpr (M == LinkageMethod::Single || M == LinkageMethod::Centroid || M == LinkageMethod::Median)
        nearestNeighbourList<T, M>(y, n, labels, sizes, out);
    else
        nearestNeighbourChain<T, M>(y, n, labels, sizes, out);
}

}  // namespace

template <class T>
void linkageCondensed(LinkageMethod method, const T* given, size_t available, size_t n, const MergeTable<T>& out) {
    if (n < 2) return;
    const size_t pairs = n * (n - 1) / 2;
    // Single linkage reads the distances in place when they are all there.
    if (method == LinkageMethod::Single && available >= pairs && singleLinkageByTree(given, n, out)) return;

    Scratch<T> work(pairs);
    T* y = work.get();
    adviseHugePages(y, pairs * sizeof(T));
    const size_t have = std::min(available, pairs);
    if (worksOnSquares(method))
        for (size_t i = 0; i < have; ++i) y[i] = given[i] * given[i];
    else
        std::copy(given, given + have, y);
    std::fill(y + have, y + pairs, std::numeric_limits<T>::quiet_NaN());

    const SlotClusters clusters(n, method);
    uint64_t* labels = clusters.labels.get();
    uint64_t* sizes = clusters.sizesOrNull();
    switch (method) {
    case LinkageMethod::Single: return runCondensed<T, LinkageMethod::Single>(y, n, labels, sizes, out);
    case LinkageMethod::Complete: return runCondensed<T, LinkageMethod::Complete>(y, n, labels, sizes, out);
    case LinkageMethod::Average: return runCondensed<T, LinkageMethod::Average>(y, n, labels, sizes, out);
    case LinkageMethod::Weighted: return runCondensed<T, LinkageMethod::Weighted>(y, n, labels, sizes, out);
    case LinkageMethod::Centroid: return runCondensed<T, LinkageMethod::Centroid>(y, n, labels, sizes, out);
    case LinkageMethod::Median: return runCondensed<T, LinkageMethod::Median>(y, n, labels, sizes, out);
    case LinkageMethod::Ward: return runCondensed<T, LinkageMethod::Ward>(y, n, labels, sizes, out);
    }
}

template void linkageCondensed<double>(LinkageMethod, const double*, size_t, size_t, const MergeTable<double>&);
template void linkageCondensed<float>(LinkageMethod, const float*, size_t, size_t, const MergeTable<float>&);

}  // namespace zv::clustering

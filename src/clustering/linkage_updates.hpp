// The distance of a newly merged cluster to the others, one small policy per
// method (Lance-Williams form), and the walks over a condensed matrix that
// the linkage engines share.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "clustering/linkage.hpp"
#include "frame/scratch.hpp"
#include "distance/condensed.hpp"

namespace zv::clustering {

using distance::condensedIndex;
using distance::condensedRowStart;

// Marks "no slot": one past the last slot and then one more.
constexpr uint64_t noSlot(size_t n) { return uint64_t(n) + 1; }

// The cluster of every slot: its label (the leaves 0 .. n-1 to start with)
// and, for the methods that keep them, its size (1 to start with).
struct SlotClusters {
    Scratch<uint64_t> labels, sizes;
    SlotClusters(size_t n, LinkageMethod method) : labels(n), sizes(keepsSizes(method) ? n : 0, uint64_t(1)) {
        for (size_t i = 0; i < n; ++i) labels[i] = i;
    }
    uint64_t* sizesOrNull() const { return sizes.size() ? sizes.get() : nullptr; }
};

// New d(c, s) for c made of a (at lo) and b (at hi) merged at value d.
template <class T, LinkageMethod M>
struct MergeUpdate;

template <class T>
struct MergeUpdate<T, LinkageMethod::Single> {
    MergeUpdate(T, uint64_t, uint64_t, const uint64_t*) {}
    // d(b, s) stands unless it is greater or a NaN.
    T operator()(T da, T db, size_t) const { return (db > da || std::isnan(db)) ? da : db; }
};

template <class T>
struct MergeUpdate<T, LinkageMethod::Complete> {
    MergeUpdate(T, uint64_t, uint64_t, const uint64_t*) {}
    T operator()(T da, T db, size_t) const { return (da > db || std::isnan(db)) ? da : db; }
};

template <class T>
struct MergeUpdate<T, LinkageMethod::Average> {
    T ra, rb;
    MergeUpdate(T, uint64_t na, uint64_t nb, const uint64_t*)
        : ra(T(na) / T(na + nb)), rb(T(nb) / T(na + nb)) {}
    T operator()(T da, T db, size_t) const { return ra * da + rb * db; }
};

template <class T>
struct MergeUpdate<T, LinkageMethod::Weighted> {
    MergeUpdate(T, uint64_t, uint64_t, const uint64_t*) {}
    T operator()(T da, T db, size_t) const { return (da + db) * T(0.5); }
};

template <class T>
struct MergeUpdate<T, LinkageMethod::Centroid> {
    T ra, rb, shift;
    MergeUpdate(T d, uint64_t na, uint64_t nb, const uint64_t*)
        : ra(T(na) / T(na + nb)), rb(T(nb) / T(na + nb)), shift(d * T(na * nb) / T((na + nb) * (na + nb))) {}
    T operator()(T da, T db, size_t) const { return ra * da + rb * db - shift; }
};

template <class T>
struct MergeUpdate<T, LinkageMethod::Median> {
    T quarter;
    MergeUpdate(T d, uint64_t, uint64_t, const uint64_t*) : quarter(d * T(0.25)) {}
    T operator()(T da, T db, size_t) const { return (da + db) * T(0.5) - quarter; }
};

template <class T>
struct MergeUpdate<T, LinkageMethod::Ward> {
    T d;
    uint64_t na, nb;
    const uint64_t* sizes;
    MergeUpdate(T d_, uint64_t na_, uint64_t nb_, const uint64_t* sizes_) : d(d_), na(na_), nb(nb_), sizes(sizes_) {}
    T operator()(T da, T db, size_t s) const {
        const uint64_t ns = sizes[s];
        return (T(na + ns) * da + T(nb + ns) * db - T(ns) * d) / T(na + nb + ns);
    }
};

// Walking down a column of the triangle, the stride shrinks by one per row,
// which hardware prefetchers do not follow; each column walk asks for the
// entry this many rows ahead.
constexpr size_t kColumnPrefetchRows = 12;

// The index of the entry kColumnPrefetchRows rows below `at`, which is the
// entry of row s in some column.
constexpr size_t columnAhead(size_t at, size_t s, size_t n) {
    constexpr size_t D = kColumnPrefetchRows;
    return at + D * (n - 2 - s) - D * (D - 1) / 2;
}

template <class T>
inline void prefetchColumn(const T* y, size_t at, size_t s, size_t end, size_t n) {
    // An asm statement: GCC 12 drops __builtin_prefetch in this guarded form.
    if (s + kColumnPrefetchRows < end) asm volatile("prefetcht0 %0" : : "m"(y[columnAhead(at, s, n)]));
}

// Calls f(s, value) for the slots s = from .. c-1, then c+1 .. n-1: the
// column of c above the diagonal, then its row, in ascending slot order.
template <class T, class F>
inline void forEachOther(const T* y, size_t n, size_t c, size_t from, F&& f) {
    if (from < c) {
        size_t at = condensedIndex(from, c, n);
        for (size_t s = from; s < c; ++s) {
            prefetchColumn(y, at, s, c, n);
            f(s, y[at]);
            at += n - s - 2;
        }
    }
    const T* row = y + condensedRowStart(c, n);
    for (size_t s = c + 1; s < n; ++s) f(s, row[s - c - 1]);
}

// The nearest slot to c among from .. n-1 (c excluded): the last among equal
// values wins and a NaN is never taken. Returns noSlot(n) with a NaN if no
// value qualifies.
template <class T>
inline void nearestOf(const T* y, size_t n, size_t c, size_t from, uint64_t& index, T& value) {
    T best = std::numeric_limits<T>::infinity();
    uint64_t at = noSlot(n);
    forEachOther(y, n, c, from, [&](size_t s, T v) {
        if (best >= v) {
            best = v;
            at = s;
        }
    });
    index = at;
    value = at == noSlot(n) ? std::numeric_limits<T>::quiet_NaN() : best;
}

// The nearest slot seen so far under the scans' rule: the last of equal
// values wins and a NaN never qualifies.
template <class T>
struct Nearest {
    T best = std::numeric_limits<T>::infinity();
    uint64_t at;
    explicit Nearest(uint64_t none) : at(none) {}
    void offer(uint64_t s, T v) {
        if (best >= v) {
            best = v;
            at = s;
        }
    }
    // offer(base + i, v[i]) for i = 0 .. count-1 in turn, in two passes that
    // vectorise: the least value (a NaN never wins a comparison), then the
    // last place that holds it.
    void offerRun(uint64_t base, const T* v, size_t count) {
        T least = std::numeric_limits<T>::infinity();
        for (size_t i = 0; i < count; ++i) least = v[i] < least ? v[i] : least;
        if (!(best >= least)) return;
        for (size_t i = count; i-- > 0;)
            if (v[i] == least) {
                best = v[i];  // the sign of a zero is that of the place taken
                at = base + i;
                return;
            }
    }
};

// The slots from .. to-1 of the merge of lo < hi at step k: the entries of
// hi take the merged values towards them, and for those below lo the column
// of lo takes row k's value (slot k falls out and its cluster moves to lo).
// The runs follow the layout: column entries above lo, above hi, then rows.
template <bool Track, class T, class Update>
inline void mergeSlotRange(T* y, size_t n, size_t k, size_t lo, size_t hi, const Update& update, size_t from,
                           size_t to, Nearest<T>& nearest) {
    auto take = [&](size_t s, T v) {
        if constexpr (Track) nearest.offer(s, v);
    };
    const T* rowK = y + condensedRowStart(k, n);
    if (size_t s = std::max(from, k); s < std::min(to, lo)) {
        const size_t end = std::min(to, lo), gap = hi - lo;
        size_t ia = condensedIndex(s, lo, n);
        if (s == k) {  // both entries lie in row k itself, which stays
            const T v = update(y[ia], y[ia + gap], s);
            y[ia + gap] = v;
            take(s, v);
            ia += n - s - 2;
            ++s;
        }
        for (; s < end; ++s) {
            prefetchColumn(y, ia, s, end, n);
            prefetchColumn(y, ia + gap, s, end, n);
            const T v = update(y[ia], y[ia + gap], s);
            y[ia + gap] = v;
            y[ia] = rowK[s - k - 1];
            take(s, v);
            ia += n - s - 2;
        }
    }
    const T* rowLo = y + condensedRowStart(lo, n);
    if (size_t s = std::max(from, lo + 1); s < std::min(to, hi)) {
        const size_t end = std::min(to, hi);
        size_t ib = condensedIndex(s, hi, n);
        for (; s < end; ++s) {
            prefetchColumn(y, ib, s, end, n);
            const T v = update(rowLo[s - lo - 1], y[ib], s);
            y[ib] = v;
            take(s, v);
            ib += n - s - 2;
        }
    }
    T* rowHi = y + condensedRowStart(hi, n);
    for (size_t s = std::max(from, hi + 1); s < to; ++s) {
        const T v = update(rowLo[s - lo - 1], rowHi[s - hi - 1], s);
        rowHi[s - hi - 1] = v;
        take(s, v);
    }
}

// The merge of lo < hi at step k. With Track, index/value receive hi's
// nearest slot (noSlot and NaN if none).
template <bool Track, class T, class Update>
inline void mergeSlots(T* y, size_t n, size_t k, size_t lo, size_t hi, const Update& update, uint64_t& index,
                       T& value) {
    Nearest<T> nearest(noSlot(n));
    mergeSlotRange<Track>(y, n, k, lo, hi, update, k, n, nearest);
    // The row of lo last: the runs above still read lo's old row, and this
    // reads row k's entry of hi, which they have just updated.
    if (lo != k) {
        T* rowLo = y + condensedRowStart(lo, n);
        const T* rowKPastLo = y + condensedRowStart(k, n) + (lo - k);
        for (size_t s = lo + 1, j = 0; s < n; ++s, ++j) rowLo[j] = rowKPastLo[j];
    }
    if constexpr (Track) {
        index = nearest.at;
        value = nearest.at == noSlot(n) ? std::numeric_limits<T>::quiet_NaN() : nearest.best;
    }
}

// The rows of the triangle of n slots cut into `blocks` runs of about equal
// pair counts: block b holds rows start[b] .. start[b+1]-1.
inline std::vector<size_t> rowBlocks(size_t n, size_t blocks) {
    std::vector<size_t> start(blocks + 1, n);
    const double pairs = double(n) * double(n - 1) / 2;
    size_t row = 0;
    double seen = 0;
    for (size_t b = 0; b < blocks; ++b) {
        start[b] = row;
        while (row < n && seen < pairs * double(b + 1) / double(blocks)) seen += double(n - 1 - row++);
    }
    return start;
}

// Slot r's nearest neighbour from the per-block searches: the column
// candidates of the blocks above r, then its own row, the later of equals
// winning; NaN when none was found.
template <class T>
void combineNearest(size_t r, size_t n, size_t blocks, const size_t* start, const T* columnBest,
                    const uint64_t* columnAt, const T* rowBest, const uint64_t* rowAt, uint64_t none,
                    uint64_t* nnidx, T* nndist) {
    T best = std::numeric_limits<T>::infinity();
    uint64_t at = none;
    for (size_t b = 0; b < blocks && start[b] < r; ++b)
        if (columnAt[b * n + r] != none && best >= columnBest[b * n + r]) best = columnBest[b * n + r], at = columnAt[b * n + r];
    if (rowAt[r] != none && best >= rowBest[r]) best = rowBest[r], at = rowAt[r];
    nnidx[r] = at;
    nndist[r] = at == none ? std::numeric_limits<T>::quiet_NaN() : best;
}

template <class Body>
inline void parallelOverSlots(size_t begin, size_t end, const Body& body) {
    if (begin >= end) return;
    tbb::parallel_for(tbb::blocked_range<size_t>(begin, end, 1),
                      [&](const tbb::blocked_range<size_t>& r) {
                          for (size_t i = r.begin(); i != r.end(); ++i) body(i);
                      },
                      tbb::auto_partitioner());
}

// Every slot's nearest neighbour, exactly as a scan of each slot over all
// others in ascending order would find it, but with each pair seen once, in
// the order of the triangle's rows: a scan per slot would walk every column.
// The rows are cut into a fixed number of blocks, independent of the thread
// count; each block keeps, for every slot, the best of its own rows, and the
// blocks are combined in ascending order with the scan's rule (a later equal
// value wins), which gives the scan's result. rowPiece(i, s0, s1, buffer)
// gives d(i, s) for s = s0 .. s1-1, at most kNeighbourPiece values, either
// where they are stored or written to buffer.
constexpr size_t kNeighbourPiece = 64;

template <class T, class RowPiece>
void blockedNeighbours(size_t n, uint64_t* nnidx, T* nndist, const RowPiece& rowPiece) {
    constexpr size_t kBlocks = 16;
    const uint64_t none = noSlot(n);
    const size_t blocks = std::min(kBlocks, n);
    const std::vector<size_t> start = rowBlocks(n, blocks);
    Scratch<T> columnBest(blocks * n);
    Scratch<uint64_t> columnAt(blocks * n);
    Scratch<T> rowBest(n);
    Scratch<uint64_t> rowAt(n);
    const T inf = std::numeric_limits<T>::infinity();
    parallelOverSlots(0, blocks, [&](size_t b) {
        T buffer[kNeighbourPiece];
        T* cBest = columnBest.get() + b * n;
        uint64_t* cAt = columnAt.get() + b * n;
        std::fill(cBest, cBest + n, inf);
        std::fill(cAt, cAt + n, none);
        for (size_t i = start[b]; i < start[b + 1]; ++i) {
            T best = inf;
            uint64_t at = none;
            for (size_t s0 = i + 1; s0 < n; s0 += kNeighbourPiece) {
                const size_t s1 = std::min(n, s0 + kNeighbourPiece);
                const T* piece = rowPiece(i, s0, s1, buffer);
                for (size_t s = s0; s < s1; ++s) {
                    const T v = piece[s - s0];
                    if (best >= v) best = v, at = s;
                    if (cBest[s] >= v) cBest[s] = v, cAt[s] = i;
                }
            }
            rowBest[i] = best;
            rowAt[i] = at;
        }
    });
    parallelOverSlots(0, n, [&](size_t r) {
        combineNearest(r, n, blocks, start.data(), columnBest.get(), columnAt.get(), rowBest.get(), rowAt.get(), none, nnidx, nndist);
    });
}

// The same on a condensed matrix, read in place.
template <class T>
void initialNeighbours(const T* y, size_t n, uint64_t* nnidx, T* nndist) {
    blockedNeighbours<T>(n, nnidx, nndist, [y, n](size_t i, size_t s0, size_t, T*) {
        return y + condensedRowStart(i, n) + (s0 - i - 1);
    });
}

// The merge of step k by the neighbour lists: the active slot s >= k with
// the least nearest-neighbour distance (the last of equals) and its
// neighbour, as lo < hi, and the merge value x. False when every value is NaN.
template <class T>
bool nextListMerge(const T* nndist, const uint64_t* nnidx, size_t k, size_t n, size_t& lo, size_t& hi, T& x) {
    x = std::numeric_limits<T>::infinity();
    size_t i = n;
    for (size_t s = k; s < n; ++s)
        if (x >= nndist[s]) {
            x = nndist[s];
            i = s;
        }
    if (i == n) return false;
    const size_t j = size_t(nnidx[i]);
    lo = std::min(i, j);
    hi = std::max(i, j);
    return true;
}

// Book-keeping shared by both algorithms for the merge of lo < hi at step k:
// the row of Z, the labels and the sizes. Returns the sizes of a and b.
template <class T>
void recordMerge(size_t k, size_t lo, size_t hi, T height, size_t n, uint64_t* labels, uint64_t* sizes,
                 const MergeTable<T>& out, uint64_t& na, uint64_t& nb) {
    out.write(k, labels[lo], labels[hi], height);
    labels[lo] = labels[k];
    labels[hi] = uint64_t(n + k);
    na = nb = 1;
    if (sizes) {
        na = sizes[lo];
        nb = sizes[hi];
        sizes[lo] = sizes[k];
        sizes[hi] = na + nb;
    }
}

// What is left when every remaining value is NaN: join the active slots in
// slot order at NaN height.
template <class T>
void joinRemaining(size_t k, size_t n, const uint64_t* labels, const MergeTable<T>& out) {
    uint64_t running = labels[k];
    for (size_t m = 0; k + 1 + m < n; ++m) {
        out.write(k + m, running, labels[k + 1 + m], std::numeric_limits<T>::quiet_NaN());
        running = uint64_t(n + k + m);
    }
}

}  // namespace zv::clustering

// The distance of a newly merged cluster to the others, one small policy per
// method (Lance-Williams form), and the walks over a condensed matrix that
// the linkage engines share.
#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "clustering/linkage.hpp"
#include "distance/condensed.hpp"

namespace zv::clustering {

using distance::condensedIndex;
using distance::condensedRowStart;

// Marks "no slot": one past the last slot and then one more.
constexpr uint64_t noSlot(size_t n) { return uint64_t(n) + 1; }

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

// The merge of lo < hi at step k on the matrix. The entries of hi take the
// merged values towards every active slot s (k .. n-1, s not lo or hi), in
// three runs that follow the layout; then slot k falls out and its cluster
// moves to slot lo. With Track, index/value receive hi's nearest slot (last
// of equals, never a NaN). The move of the column part rides along with the
// first run, which walks the same rows: the column walks are what costs.
template <bool Track, class T, class Update>
inline void mergeSlots(T* y, size_t n, size_t k, size_t lo, size_t hi, const Update& update,
                       uint64_t& index, T& value) {
    T best = std::numeric_limits<T>::infinity();
    uint64_t at = noSlot(n);
    auto take = [&](size_t s, T v) {
        if constexpr (Track) {
            if (best >= v) {
                best = v;
                at = s;
            }
        }
    };
    const T* rowK = y + condensedRowStart(k, n);
    if (k < lo) {
        size_t ia = condensedIndex(k, lo, n);
        const size_t gap = hi - lo;
        // s = k: both entries lie in row k itself.
        const T v0 = update(y[ia], y[ia + gap], k);
        y[ia + gap] = v0;
        take(k, v0);
        ia += n - k - 2;
        for (size_t s = k + 1; s < lo; ++s) {
            prefetchColumn(y, ia, s, lo, n);
            prefetchColumn(y, ia + gap, s, lo, n);
            const T v = update(y[ia], y[ia + gap], s);
            y[ia + gap] = v;
            y[ia] = rowK[s - k - 1];
            take(s, v);
            ia += n - s - 2;
        }
    }
    T* rowLo = y + condensedRowStart(lo, n);
    {
        size_t ib = lo + 1 < hi ? condensedIndex(lo + 1, hi, n) : 0;
        for (size_t s = lo + 1; s < hi; ++s) {
            prefetchColumn(y, ib, s, hi, n);
            const T v = update(rowLo[s - lo - 1], y[ib], s);
            y[ib] = v;
            take(s, v);
            ib += n - s - 2;
        }
        const T* rowLoPastHi = rowLo + (hi - lo);
        T* rowHi = y + condensedRowStart(hi, n);
        for (size_t s = hi + 1, j = 0; s < n; ++s, ++j) {
            const T v = update(rowLoPastHi[j], rowHi[j], s);
            rowHi[j] = v;
            take(s, v);
        }
    }
    if (lo != k) {
        const T* rowKPastLo = rowK + (lo - k);
        for (size_t s = lo + 1, j = 0; s < n; ++s, ++j) rowLo[j] = rowKPastLo[j];
    }
    if constexpr (Track) {
        index = at;
        value = at == noSlot(n) ? std::numeric_limits<T>::quiet_NaN() : best;
    }
}

}  // namespace zv::clustering

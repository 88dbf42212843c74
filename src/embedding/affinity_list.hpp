// The sparse affinities of an embedding as the host passes them: per point a
// count and (for the gradient) a start, and per entry a 1-based neighbour
// and a value. Every array carries its length, so that an entry or a point
// beyond what was passed is skipped instead of read.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked.hpp"

namespace zv::embedding {

template <class T>
struct AffinityList {
    const double* counts;
    size_t numCounts;
    const double* starts;  // null for the loss, whose entries follow each other
    size_t numStarts;
    const double* neighbours;
    const T* values;
    size_t numEntries;  // the shorter of neighbours and values

    // The count of point i; a point past the counts has none.
    double count(size_t i) const { return i < numCounts ? counts[i] : 0.0; }

    // Entry position from a double, truncated; NaN gives -1 (no entry).
    static int64_t position(double v) { return checked::truncateSaturated<int64_t>(v, -1); }

    // The 0-based neighbour of entry e, truncated, or -1 when it names no
    // point of N (NaN included).
    int64_t neighbour(int64_t e, int64_t N) const {
        const double j = neighbours[e] - 1.0;
        return j > -1.0 && j < double(N) ? int64_t(j) : -1;
    }
};

}  // namespace zv::embedding

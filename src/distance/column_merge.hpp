// The merge of two compressed columns that every sparse metric runs, and a
// driver that keeps several merges in flight at once.
#pragma once

#include <cstddef>

#include "distance/merge_columns.hpp"

namespace zv::distance {

// `e` moved on by `bytes`, which is 0 or the size of one entry.
inline const MergeEntry* advancedBy(const MergeEntry* e, size_t bytes) {
    return reinterpret_cast<const MergeEntry*>(reinterpret_cast<const char*>(e) + bytes);
}

// One merge in progress: a cursor in each column and the metric's sum.
template <class Terms>
struct MergeCursor {
    const MergeEntry* u;
    const MergeEntry* v;
    typename Terms::Sum sum{};

    // Takes the next row of the union to the sum; false once both columns
    // have ended. Only a shared row branches: in sparse data few rows are
    // shared, while which column holds a lone row is a coin toss that a
    // branch would mispredict half the time. Two end markers also meet as a
    // shared row, so the end costs no test of its own.
    bool step(const Terms& terms) {
        const size_t ru = u->row, rv = v->row;
        if (ru == rv) [[unlikely]] {
            if (ru == kEndRow) return false;
            terms.shared(sum, ru, u->value, v->value);
            ++u;
            ++v;
            return true;
        }
        // Both selections compile to conditional moves (a branch here shows
        // in pdist_sparse_bench as a threefold slowdown).
        const bool inU = ru < rv;
        const MergeEntry* lone = inU ? u : v;
        terms.lone(sum, inU ? ru : rv, lone->value);
        // One offset moves exactly one cursor on, without a branch.
        const size_t moveU = size_t(inU) * sizeof(MergeEntry);
        u = advancedBy(u, moveU);
        v = advancedBy(v, sizeof(MergeEntry) - moveU);
        return true;
    }

    double run(const Terms& terms) {
        while (step(terms)) {
        }
        return terms.finish(sum);
    }
};

// Merges column u with the `count` columns that pair(k) = {column, output}
// names, and writes each distance to its output. A merge is one long chain
// of dependent loads, so kLanes of them are interleaved to keep the core
// busy; a lane that ends takes the next pair. Each distance is still its own
// merge in its own order, so the results do not depend on the lanes.
template <class Terms, class Pair>
void mergeOneWithMany(const Terms& terms, const MergeEntry* u, size_t count, const Pair& pair) {
    constexpr size_t kLanes = 4;  // fastest of 2 to 8 here; more lanes spill registers
    MergeCursor<Terms> lanes[kLanes];
    double* outputs[kLanes];
    size_t next = 0;
    auto start = [&](size_t lane) {
        const auto [v, out] = pair(next++);
        lanes[lane] = MergeCursor<Terms>{u, v};
        outputs[lane] = out;
    };
    if (count >= kLanes) {
        for (size_t lane = 0; lane < kLanes; ++lane) start(lane);
        size_t ended = kLanes;
        while (ended == kLanes) {
#pragma GCC unroll 4
            for (size_t lane = 0; lane < kLanes; ++lane) {
                if (lanes[lane].step(terms)) continue;
                *outputs[lane] = terms.finish(lanes[lane].sum);
                if (next == count) {
                    ended = lane;
                    break;
                }
                start(lane);
            }
        }
        // Out of pairs: finish the other lanes one at a time.
        for (size_t lane = 0; lane < kLanes; ++lane)
            if (lane != ended) *outputs[lane] = lanes[lane].run(terms);
    }
    while (next < count) {
        const auto [v, out] = pair(next++);
        *out = MergeCursor<Terms>{u, v}.run(terms);
    }
}

}  // namespace zv::distance

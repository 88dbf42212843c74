// Tree lookup: the node at which each row of a predictor matrix comes to rest,
// for several prune levels in one walk. The walk goes layer by layer as the
// tree was grown, carrying each node's rows down to its children.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/concurrent_vector.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>
#include <tbb/scalable_allocator.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <numeric>
#include <optional>
#include <utility>
#include <vector>

#include "classregtree/fault_probe.hpp"
#include "classregtree/split.hpp"
#include "host/host.hpp"

namespace zv::classregtree {

inline constexpr const char* kProbeInsideLayer = "classregtree_findNode_inside_layer";
inline constexpr const char* kProbeAfterLayer = "classregtree_findNode_after_layer_completed";

// One split of a node as the walk applies it, with what the debug text shows.
template <class T>
struct NodeSplit {
    size_t predictor;
    bool nominal;
    bool binned;
    std::shared_ptr<const Split<T>> split;
};

// How the walk treats a node reachable from the root, decided before it
// starts: a branch hands its rows to two children through splits[first,
// end); anything else keeps the rows that reach it.
struct NodeRoute {
    bool seen = false;
    bool branch = false;
    size_t left = 0;
    size_t right = 0;
    size_t firstSplit = 0;
    size_t endSplit = 0;
};

// A 1-based index held as a double, 0-based, if it lies in 1..count.
inline std::optional<size_t> oneBasedIndex(double v, size_t count) {
    if (!(v >= 1.0) || v != std::floor(v) || v > double(count)) return std::nullopt;
    const size_t k = size_t(v) - 1;
    return k < count ? std::optional<size_t>(k) : std::nullopt;
}

// Plans the walk over the n nodes of a record, from the root, in layer
// order. A node whose cut variable is 0 is a leaf. A cut variable outside
// 1..P, or a child outside 1..n or already reached (a cycle, or two parents
// of one node), makes the node keep its rows as a leaf does: no record that
// a tree could have produced holds one, and the walk can then neither read
// out of bounds nor come back to a node. addSplits(u, p) appends node u's
// splits, p being its 0-based cut variable, and returns how many it added.
template <class AddSplits>
void planTree(size_t n, size_t P, const double* children, const double* cutVar, NodeRoute* plan, size_t* queue,
              AddSplits&& addSplits) {
    std::fill(plan, plan + n, NodeRoute{});
    if (n == 0) return;
    size_t head = 0, tail = 0, numSplits = 0;
    queue[tail++] = 0;
    plan[0].seen = true;
    while (head < tail) {
        const size_t u = queue[head++];
        if (cutVar[u] == 0) continue;
        const auto p = oneBasedIndex(cutVar[u], P);
        const auto left = oneBasedIndex(children[2 * u], n), right = oneBasedIndex(children[2 * u + 1], n);
        if (!p || !left || !right || *left == *right || plan[*left].seen || plan[*right].seen) continue;
        NodeRoute& route = plan[u];
        route.branch = true;
        route.left = *left;
        route.right = *right;
        plan[*left].seen = plan[*right].seen = true;
        queue[tail++] = *left;
        queue[tail++] = *right;
        route.firstSplit = numSplits;
        numSplits += addSplits(u, *p);
        route.endSplit = numSplits;
    }
}

// The prune levels to answer, ordered so that the subtrees still walking at
// any node are a prefix: a subtree stops at the first node on its way whose
// level is at or below its own, so those of a NaN level never stop and come
// first, the others follow by ascending level.
class SubtreeOrder {
public:
    SubtreeOrder(size_t count, const double* levels) : order_(count), position_(count) {
        std::iota(order_.begin(), order_.end(), size_t(0));
        std::stable_partition(order_.begin(), order_.end(), [&](size_t s) { return std::isnan(levels[s]); });
        numNaN_ = size_t(std::count_if(levels, levels + count, [](double v) { return std::isnan(v); }));
        std::stable_sort(order_.begin() + ptrdiff_t(numNaN_), order_.end(),
                         [&](size_t a, size_t b) { return levels[a] < levels[b]; });
        for (size_t k = 0; k < count; ++k) position_[order_[k]] = k;
        for (size_t k = numNaN_; k < count; ++k) sortedLevels_.push_back(levels[order_[k]]);
    }
    // Without prune levels every subtree is the whole tree.
    explicit SubtreeOrder(size_t count) : order_(count), position_(count) {
        std::iota(order_.begin(), order_.end(), size_t(0));
        position_ = order_;
        numNaN_ = count;
    }

    size_t size() const { return order_.size(); }
    size_t subtreeAt(size_t k) const { return order_[k]; }
    bool isActive(size_t s, size_t active) const { return position_[s] < active; }
    // Of the first `active` subtrees, how many go on past a node of prune level `level`.
    size_t stillActive(size_t active, double level) const {
        if (std::isnan(level)) return active;
        const size_t below = size_t(std::lower_bound(sortedLevels_.begin(), sortedLevels_.end(), level) -
                                    sortedLevels_.begin());
        return std::min(active, numNaN_ + below);
    }

private:
    std::vector<size_t> order_;
    std::vector<size_t> position_;
    std::vector<double> sortedLevels_;
    size_t numNaN_ = 0;
};

// A node waiting in a layer: its rows are [begin, begin + count) of the
// layer's row buffer, and the first `active` subtrees of the order still
// walk through it.
struct LayerSlot {
    size_t node;
    size_t active;
    size_t begin;
    size_t count;
};

// What the walk reads; all of it borrowed.
template <class T>
struct LookupTree {
    size_t N;              // rows of X
    const T* X;            // N by P, column-major
    size_t numNodes;
    const NodeRoute* plan;  // from planTree
    const NodeSplit<T>* splits;
    const double* pruneList;  // per node, or null: no pruning test
    const SubtreeOrder* subtrees;
};

template <class T, class Row>
class TreeWalk {
public:
    // result: N by the number of subtrees, column-major; each element becomes
    // the 1-based node at which its row stops in its subtree.
    TreeWalk(const LookupTree<T>& tree, double* result, size_t verbose, faultprobe::InterruptState interrupt)
        : tree_(tree), result_(result), verbose_(verbose), interrupt_(std::move(interrupt)) {}

    void run() {
        if (tree_.numNodes == 0) return;
        // Rows of a layer stand in one buffer, each node's in a range of its
        // own; a node's children take parts of that range in the other
        // buffer, so that no layer allocates and no two nodes share a row.
        const size_t numRows = tree_.subtrees->size() > 0 ? tree_.N : 0;
        std::vector<Row, tbb::scalable_allocator<Row>> buffers[2];
        if (numRows > 0) {
            buffers[0].resize(numRows), buffers[1].resize(numRows);
            std::iota(buffers[0].begin(), buffers[0].end(), Row(0));
        }
        std::vector<LayerSlot> layer = {{0, tree_.subtrees->size(), 0, numRows}};
        for (size_t depth = 0; !layer.empty(); ++depth) {
            Row* from = buffers[depth % 2].data();
            Row* to = buffers[(depth + 1) % 2].data();
            tbb::concurrent_vector<LayerSlot> next;
            // Debug text keeps its order only when the nodes run one after the other.
            if (verbose_ == 0) {
                tbb::parallel_for(
                    tbb::blocked_range<size_t>(0, layer.size(), 1),
                    [&](const tbb::blocked_range<size_t>& range) {
                        faultprobe::InterruptState interrupt = interrupt_;
                        for (size_t k = range.begin(); k != range.end(); ++k) visit(layer[k], from, to, next, interrupt);
                    },
                    tbb::auto_partitioner());
            } else {
                faultprobe::InterruptState interrupt = interrupt_;
                for (const LayerSlot& slot : layer) visit(slot, from, to, next, interrupt);
            }
            layer.assign(next.begin(), next.end());
            probeSite(kProbeAfterLayer, nullptr);
        }
    }

private:
    void visit(const LayerSlot& slot, Row* from, Row* to, tbb::concurrent_vector<LayerSlot>& next,
               faultprobe::InterruptState& interrupt) const {
        pollInterrupt(&interrupt);
        const size_t u = slot.node;
        Row* rows = from + slot.begin;
        size_t active = slot.active;
        if (tree_.pruneList) {
            const size_t still = tree_.subtrees->stillActive(active, tree_.pruneList[u]);
            stopRows(rows, slot.count, still, active, u);
            active = still;
        }
        const NodeRoute& route = tree_.plan[u];
        if (!route.branch) {
            stopRows(rows, slot.count, 0, active, u);
        } else {
            if (verbose_ > 0) printCuts(u, route);
            size_t numLeft = 0, numRight = 0;
            if (active > 0 && slot.count > 0) routeRows(rows, slot.count, to + slot.begin, active, u, route, numLeft, numRight);
            next.push_back({route.left, active, slot.begin, numLeft});
            next.push_back({route.right, active, slot.begin + slot.count - numRight, numRight});
        }
        probeSite(kProbeInsideLayer, &interrupt);
    }

    // Sends the rows of node u through its splits in order into the front
    // (left) and the back (right) of `children`; a row that none of the
    // splits places stays at u.
    void routeRows(Row* rows, size_t count, Row* children, size_t active, size_t u, const NodeRoute& route,
                   size_t& numLeft, size_t& numRight) const {
        Row* rightEnd = children + count;
        size_t numPending = count;
        for (size_t k = route.firstSplit; k < route.endSplit && numPending > 0; ++k) {
            const NodeSplit<T>& s = tree_.splits[k];
            const T* column = tree_.X + s.predictor * tree_.N;
            if (verbose_ > 1)
                numPending = routeVerbosely(s, column, rows, numPending, active, children, numLeft, rightEnd, numRight);
            else
                numPending = s.split->route(column, rows, numPending, children, numLeft, rightEnd, numRight);
        }
        // The right rows were laid down from the back; in list order again.
        std::reverse(rightEnd - numRight, rightEnd);
        stopRows(rows, numPending, 0, active, u);
    }

    // The same routing through the split's single-value tests, telling where
    // each row goes in every subtree that still holds it.
    size_t routeVerbosely(const NodeSplit<T>& s, const T* column, Row* rows, size_t count, size_t active, Row* left,
                          size_t& numLeft, Row* rightEnd, size_t& numRight) const {
        std::vector<Side> sides(count);
        for (size_t k = 0; k < count; ++k) sides[k] = s.split->side(column[rows[k]]);
        for (size_t sub = 0; sub < tree_.subtrees->size(); ++sub) {
            if (!tree_.subtrees->isActive(sub, active)) continue;
            for (size_t k = 0; k < count; ++k) {
                if (sides[k] == Side::undecided) continue;
                hostPrintf("           --> Observation %i sent %s by predictor %i at subtree %i\n", int(rows[k]),
                           sides[k] == Side::left ? "left" : "right", int(s.predictor), int(sub));
            }
        }
        size_t kept = 0;
        for (size_t k = 0; k < count; ++k) {
            if (sides[k] == Side::left) left[numLeft++] = rows[k];
            else if (sides[k] == Side::right) rightEnd[-1 - ptrdiff_t(numRight++)] = rows[k];
            else rows[kept++] = rows[k];
        }
        return kept;
    }

    void printCuts(size_t u, const NodeRoute& route) const {
        hostPrintf("Node %i will impose following cuts:\n", int(u));
        for (size_t k = route.firstSplit; k < route.endSplit; ++k) {
            const NodeSplit<T>& s = tree_.splits[k];
            hostPrintf("   Predictor: %i  Numeric/Nominal (0/1): %i    Binned (0/1): %i\n", int(s.predictor),
                       int(s.nominal), int(s.binned));
            hostPrintf("      ");
            s.split->print();
            hostPrintf("\n");
        }
    }

    // Node u is where these rows stop in the subtrees at order positions [from, to).
    void stopRows(const Row* rows, size_t count, size_t from, size_t to, size_t u) const {
        const double node = double(u + 1);
        for (size_t k = from; k < to; ++k) {
            double* column = result_ + tree_.subtrees->subtreeAt(k) * tree_.N;
            for (size_t i = 0; i < count; ++i) column[rows[i]] = node;
        }
    }

    const LookupTree<T>& tree_;
    double* result_;
    size_t verbose_;
    faultprobe::InterruptState interrupt_;
};

// Runs the walk with 32-bit row numbers where they suffice.
template <class T>
void findNodes(const LookupTree<T>& tree, double* result, size_t verbose, faultprobe::InterruptState interrupt) {
    if (tree.N <= UINT32_MAX) TreeWalk<T, uint32_t>(tree, result, verbose, std::move(interrupt)).run();
    else TreeWalk<T, uint64_t>(tree, result, verbose, std::move(interrupt)).run();
}

}  // namespace zv::classregtree

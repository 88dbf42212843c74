// The complete binary tree of partial weight sums behind weighted sampling
// without replacement: a draw walks from the root to a leaf in O(log N), and
// removing the drawn item repairs the sums on the way back up.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "frame/scratch.hpp"

namespace zv::sampling {

// Rounding in r -= left must not walk into an empty subtree: r stays above
// this and at most the weight of the subtree it enters.
constexpr double kSmallestPositive = 2.2250738585072014e-308;

class WeightTree {
public:
    // Node x has the children 2x + 1 and 2x + 2. An inner node holds the
    // weight of its left subtree and of its whole subtree; a leaf holds
    // -(item + 1), the sign marking the leaf, and the item's weight.
    struct Node {
        double left;
        double total;
    };

    // The leaves of items 0 .. n - 1 in item order, then the sums. `weightAt`
    // is called once per item, in order, and may throw.
    template <class WeightAt>
    WeightTree(size_t n, WeightAt&& weightAt)
        : leafStart_(std::bit_ceil(n)),
          nodes_(2 * n - 1),
          path_(std::countr_zero(leafStart_) + 1) {
        // With P the next power of two, the first 2N - P items fill the
        // deepest level from node P - 1 on, the others end the level above.
        const size_t deepItems = 2 * n - leafStart_;
        for (size_t i = 0; i < n; ++i) {
            const size_t x = i < deepItems ? leafStart_ - 1 + i : i + leafStart_ - n - 1;
            const double w = weightAt(i);
            nodes_[x] = {-double(i + 1), w};
            if (w > 0) ++positive_;
        }
        for (size_t x = n - 1; x-- > 0;) {
            nodes_[x].left = nodes_[2 * x + 1].total;
            nodes_[x].total = nodes_[2 * x + 1].total + nodes_[2 * x + 2].total;
        }
    }

    size_t positiveCount() const { return positive_; }

    // Walks to the leaf that u in (0, 1) picks among the remaining weight.
    // Returns its 0-based item, or -1 when the leaf has no weight left (only
    // possible when u * total rounds into an empty end of the tree).
    int64_t drawAndRemove(double u) {
        Node* node = nodes_.get();
        double r = u * node[0].total;
        size_t x = 0, depth = 0;
        while (node[x].left >= 0) {
            path_[depth++] = x;
            // Equal sums go left.
            if (node[x].left >= r) {
                x = 2 * x + 1;
            } else {
                r -= node[x].left;
                x = 2 * x + 2;
                r = std::min(std::max(r, kSmallestPositive), node[x].total);
            }
        }
        if (node[x].total == 0) return -1;
        const auto item = int64_t(-node[x].left) - 1;

        // The sums are rebuilt from both children rather than by subtracting
        // the weight, so rounding does not pile up over many draws.
        node[x].total = 0;
        double s = 0;
        while (depth > 0) {
            const size_t p = path_[--depth];
            double t;
            if (x & 1) {
                node[p].left = s;
                t = s + node[x + 1].total;
            } else {
                t = s + node[x - 1].total;
            }
            node[p].total = t;
            s = t;
            x = p;
        }
        return item;
    }

private:
    size_t leafStart_;
    size_t positive_ = 0;
    Scratch<Node> nodes_;
    Scratch<size_t> path_;
};

// Draws k items; `uniform(out, count)` is asked for batches of at most
// kUniformBatch values. Writes 1-based positions in draw order. Returns false
// when a draw ended at an empty leaf.
constexpr size_t kUniformBatch = 100;

template <class Uniform>
bool wsworEngine(WeightTree& tree, size_t k, double* positions, Uniform&& uniform) {
    double batch[kUniformBatch];
    size_t next = kUniformBatch;
    for (size_t count = 0; count < k; ++count) {
        if (next == kUniformBatch) {
            uniform(batch, std::min(kUniformBatch, k - count));
            next = 0;
        }
        const int64_t item = tree.drawAndRemove(batch[next++]);
        if (item < 0) return false;
        positions[count] = double(item + 1);
    }
    return true;
}

}  // namespace zv::sampling

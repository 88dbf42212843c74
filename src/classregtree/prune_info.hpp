// Cost-complexity pruning of a tree record: the level at which each node
// becomes a leaf, and the complexity (alpha) at which each level begins.
#pragma once

#include <cstddef>
#include <cstdint>

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

// The nodes of a tree record as pruning reads them, all borrowed.
template <class T>
struct PruneRecord {
    size_t n = 0;
    const T* nodeProb = nullptr;         // node probability, after any correction
    const T* risk = nullptr;             // risk of the node as a leaf
    const uint8_t* unrouted = nullptr;   // the node has rows that went to neither child
    const double* children = nullptr;    // 2 by n: left and right, 1-based, 0 for none
};

// Node probability and risk as a criterion sees them: the class
// probabilities of node i (column i of the K-by-n `classProb`) times its
// probability, corrected; their sum and the criterion's value of them.
template <class T>
void criterionRisks(const ClassificationSplitCriterion<T>& criterion, const T* classProb, size_t K, size_t n,
                    const T* nodeProb, T* correctedProb, T* risk);

// Writes each node's prune level into `pruneLevel` (n values) and the alpha
// of each level into `alphas` (room for n + 1); returns the number of levels.
// Children that do not form a tree make their parent a leaf: a child index
// out of 1..n, a node named as its own child or twice by one parent, a node
// already claimed by a parent of lower index, and every node that no root
// reaches (a cycle and what hangs from it).
template <class T>
size_t computePruneLevels(const PruneRecord<T>& record, bool verbose, double* pruneLevel, T* alphas);

}  // namespace zv::classregtree

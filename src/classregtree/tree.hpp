// The in-memory tree of one growth: the read-only data every node and column
// works from, the nodes with their statistics and split results, and the
// tree that grows them layer by layer.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include <tbb/scalable_allocator.h>

#include "classregtree/criteria/split_criterion.hpp"
#include "classregtree/sorted_rows.hpp"
#include "host/faultprobe.hpp"

class RandStream;

namespace zv::classregtree {

using RowPair = std::pair<RowVector, RowVector>;

// The growth parameters, as the gateway reads them.
struct TreeOptions {
    bool quartileSearch = false;
    uint64_t minLeaf = 1, minParent = 0, maxSplits = 0, numVarsToSample = 0, numSurrogates = 0;
    uint64_t maxCat = 0, algCat = 0;
    double relativeTolerance = 0;
    bool curvature = false, interaction = false, chiSquareForNumeric = false;
    bool serial = false;
    uint64_t verbose = 0;
};

// What nodes and columns read and never write during a growth.
template <class X, class Y, class W>
struct TreeData {
    const X* x = nullptr;  // N by P, column-major
    uint64_t N = 0, P = 0;
    const Y* y = nullptr;
    const W* w = nullptr;
    const W* wy = nullptr;  // regression: w*y and w*y*y per row, interleaved; null otherwise
    // Classification works on the classes that occur: classIndex numbers
    // them 0..numClasses-1 in ascending order of `classes`, the indices
    // out of numClassesOut (the largest response plus one) that the record shows.
    const uint64_t* classIndex = nullptr;
    uint64_t numClasses = 1, numClassesOut = 1;
    const uint64_t* classes = nullptr;
    const bool* isCategorical = nullptr;
    const uint64_t* numBins = nullptr;
    ClassificationSplitCriterion<W>* classCrit = nullptr;  // restricted to the classes that occur
    const RegressionSplitCriterion<Y, W>* regCrit = nullptr;
    TreeOptions options;
    bool xHasNaN = false;
    bool parallelColumns = true;  // the criterion is thread-safe and nothing prints
    faultprobe::InterruptState* interrupt = nullptr;
    RandStream* stream = nullptr;  // draws the predictors offered to each node
    // Marks each row's side while a node's surrogates are sought; every row is
    // in one node of a layer, so the nodes of a layer share it.
    RowSide* side = nullptr;

    bool isRegression() const { return regCrit != nullptr; }
    // Numeric predictors keep their rows in order from node to node, unless
    // large nodes are searched at quartiles, which need no order.
    bool keepsOrder(uint64_t p) const { return !options.quartileSearch && !isCategorical[p] && numBins[p] < 2; }
    // A row's weight added to its class (regression: to the one entry).
    void addRow(std::vector<W>& classWeights, uint64_t r) const {
        classWeights[regCrit ? 0 : classIndex[r]] += w[r];
    }
    // A class vector's weight as the criterion sees it, correcting it in
    // place; regression: the plain weight.
    W correctedSum(std::vector<W>& classWeights) const {
        if (regCrit) return classWeights[0];
        classCrit->correct(classWeights, classWeights);
        return classSum<W>(classWeights);
    }
    // The class index the record shows for a class of the tree.
    uint64_t classOut(uint64_t c) const { return classes ? classes[c] : c; }
    const X* column(uint64_t p) const { return x + p * N; }
};

// A predictor value counts as missing when it is NaN, or for binned
// predictors a code outside 0..bins-1 (negative codes mark missing values).
template <class X>
bool isMissing(X v, uint64_t numBins) {
    if constexpr (std::is_integral_v<X>) return v < 0 || (numBins >= 2 && uint64_t(v) >= numBins);
    else return std::isnan(v) || (numBins >= 2 && !(v >= 0 && double(v) < double(numBins)));
}

// "No cut point": NaN, or for integer predictors a missing code.
template <class X>
constexpr X noCutPoint() {
    if constexpr (std::is_integral_v<X>) return X(-1);
    else return std::numeric_limits<X>::quiet_NaN();
}

template <class X, class Y, class W>
class IndexedColumn;

template <class X, class Y, class W>
class Node {
public:
    explicit Node(uint64_t numClasses);

    // Statistics of the rows that reached the node; `stats` (w, w*y, w*y*y)
    // may carry the sums its parent's column already had.
    void init(const TreeData<X, Y, W>& data, const RowVector& rows, const W* stats);
    // Searches the node's split: the rows of the two children, both empty if
    // the node stays a leaf. `predictors` lists 1-based numbers, or is null.
    RowPair split(const TreeData<X, Y, W>& data, const NodeRows<X>& rows, const SortedOrders<X>& orders,
                  const double* predictors);
    void unsplit();
    void findSurrogates(const TreeData<X, Y, W>& data, W minP,
                        std::vector<std::optional<IndexedColumn<X, Y, W>>>& columns,
                        const IndexedColumn<X, Y, W>* winner);
    void routeBySurrogates(const TreeData<X, Y, W>& data, RowVector& rows, RowPair& kids) const;
    void resetToFresh();
    bool isBranch() const { return left_ != 0 || right_ != 0; }
    // Class probability of record class c: classes without rows hold 0/weight.
    W classProbOut(const TreeData<X, Y, W>& data, uint64_t c) const;
    uint64_t mostProbableOut(const TreeData<X, Y, W>& data) const;

    uint64_t size_ = 0, id_ = 0;
    int64_t parent_ = -1;
    uint64_t left_ = 0, right_ = 0;
    W value_ = 0, weight_ = 0, correctedWeight_ = 0;
    W sumWY_ = std::numeric_limits<W>::quiet_NaN(), sumWY2_ = std::numeric_limits<W>::quiet_NaN();
    std::vector<W> classCount_, classProb_, classWeight_;
    int64_t cutBinLeft_ = -1, cutBinRight_ = -1;
    X cutPoint_ = noCutPoint<X>();
    std::vector<X> cutCategoriesLeft_, cutCategoriesRight_;
    int64_t cutVar_ = -1;
    W risk_ = std::numeric_limits<W>::quiet_NaN(), gain_ = 0;
    std::vector<std::pair<uint64_t, double>> curvaturePValues_;
    std::vector<std::tuple<uint64_t, uint64_t, double>> interactionPValues_;
    bool hasUnroutedRows_ = false;
    // Surrogate splits, in the order they are kept.
    std::vector<int64_t> surrogateVars_;
    std::vector<std::array<int64_t, 2>> surrogateBins_;
    std::vector<X> surrogateCutPoints_;
    std::vector<std::pair<std::vector<X>, std::vector<X>>> surrogateCategories_;
    std::vector<int> surrogateFlips_;
    std::vector<W> surrogateGains_, surrogateAssociations_;
    W riskThreshold_ = 0;
    RowVector unroutedRows_;
    std::array<W, 3> leftStats_{}, rightStats_{};
};

template <class X, class Y, class W>
class Tree {
public:
    Tree(TreeData<X, Y, W> data) : data_(std::move(data)) {}

    // Class indices or the w*y table; raises BadCrit without a criterion.
    void init();
    // Grows on `rows` (0-based, may repeat). With `fit`, each row ends with
    // its leaf's value, or with K class probabilities when `fitIsScores`.
    void grow(const RowVector& rows, W* fit = nullptr, bool fitIsScores = false);
    // Ready for the next learner of an ensemble: response and weights changed in place.
    void reset();

    const TreeData<X, Y, W>& data() const { return data_; }
    uint64_t numNodes() const { return numNodes_; }
    const Node<X, Y, W>& node(uint64_t i) const { return nodes_[i]; }

private:
    void refreshResponse();
    std::vector<SortedRows<X>> sortedRoot(const RowVector& rows) const;
    void leafFit(const Node<X, Y, W>& node, const RowVector& rows, W* fit, bool fitIsScores) const;

    TreeData<X, Y, W> data_;
    std::vector<uint64_t> classIndex_, classes_;
    std::vector<RowSide> side_;
    SortedOrders<X> orders_;
    std::vector<W> wy_;
    uint64_t numNodes_ = 0;
    std::vector<Node<X, Y, W>, tbb::scalable_allocator<Node<X, Y, W>>> nodes_;
    bool freshNodes_ = true;
};

}  // namespace zv::classregtree

// classregtree::findNode: the node at which each row of a predictor matrix
// stops in a tree record, at each of a list of prune levels.
#include <cfloat>
#include <cstdint>
#include <deque>
#include <limits>
#include <optional>

#include "classregtree/find_node.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"

namespace {

namespace ids = stats::classreg::learning::treeutils::findNode;
using namespace zv::classregtree;

constexpr int kNumInputs = 15;
constexpr int kMaxOutputs = 1;

// How many numbers an array holds: none for a missing cell element, a cell,
// a function or an object.
size_t heldNumbers(const ndArray* a) {
    if (!a) return 0;
    switch (ndGetClassID(a)) {
    case ndDOUBLE_CLASS: case ndSINGLE_CLASS: case ndLOGICAL_CLASS: case ndCHAR_CLASS: case ndINT8_CLASS:
    case ndUINT8_CLASS: case ndINT16_CLASS: case ndUINT16_CLASS: case ndINT32_CLASS: case ndUINT32_CLASS:
    case ndINT64_CLASS: case ndUINT64_CLASS:
        return ndGetNumberOfElements(a);
    default:
        return 0;
    }
}

// Element k of a cell; null when `cell` is no cell or has no element k.
const ndArray* cellAt(const ndArray* cell, size_t k) {
    if (!cell || ndGetClassID(cell) != ndCELL_CLASS || k >= ndGetNumberOfElements(cell)) return nullptr;
    return ndGetCell(cell, k);
}

// The numbers an array (a cell element, say) holds, as V: its own storage
// where it already holds V, else a converted copy.
template <class V>
class Numbers {
public:
    Numbers(const ndArray* a, V fill) : count_(heldNumbers(a)) {
        if (count_ > 0) values_.emplace(a, count_, fill);
    }
    size_t size() const { return count_; }
    const V* data() const { return count_ > 0 ? values_->data() : nullptr; }
    V operator[](size_t k) const { return (*values_)[k]; }
    std::optional<V> at(size_t k) const { return k < count_ ? std::optional<V>((*values_)[k]) : std::nullopt; }

private:
    size_t count_;
    std::optional<zv::HostValues<V>> values_;
};

template <class T>
constexpr T missingValue() {
    if constexpr (std::is_floating_point_v<T>) return std::numeric_limits<T>::quiet_NaN();
    else return T(0);
}

// A value of the record's class U as a predictor value T; a double beyond
// the range of float becomes an infinity.
template <class T, class U>
T asPredictorValue(U v) {
    if constexpr (std::is_same_v<T, float> && std::is_same_v<U, double>) {
        if (v > double(FLT_MAX)) return std::numeric_limits<float>::infinity();
        if (v < -double(FLT_MAX)) return -std::numeric_limits<float>::infinity();
    }
    return T(v);
}

// A 1-based bin of the record as the 0-based bin the split compares with.
template <class U>
int64_t zeroBasedBin(U v) {
    if constexpr (std::is_integral_v<U>) return int64_t(v) - 1;
    else return zv::checked::truncateSaturated<int64_t>(double(v) - 1.0);
}

// The six cell inputs: category rows of the primary splits, and the
// surrogates' flips, predictors, bins, cut points and categories.
struct SplitCells {
    const ndArray* categories;
    const ndArray* flips;
    const ndArray* predictors;
    const ndArray* bins;
    const ndArray* cutPoints;
    const ndArray* surrogateCategories;
};

// Builds the splits of the nodes that the walk will reach, reading the
// record on the host thread; nominal splits borrow the category rows, or
// converted copies of them kept here.
template <class T, class U>
class SplitBuilder {
    using A = SplitArithmetic<T>;

public:
    SplitBuilder(size_t n, size_t P, const bool* isCategorical, const U* bins, const U* cut, const SplitCells& cells)
        : n_(n), P_(P), isCategorical_(isCategorical), bins_(bins), cut_(cut), cells_(cells),
          surrogates_(!ndIsEmpty(cells.predictors)) {}

    size_t add(size_t u, size_t p) {
        const size_t before = splits_.size();
        if (isCategorical_[p]) addNominal(p, cellAt(cells_.categories, u), cellAt(cells_.categories, n_ + u));
        else if (bins_) push(p, false, true, std::make_shared<BinnedSplit<T>>(zeroBasedBin(bins_[u]), zeroBasedBin(bins_[n_ + u]), 1.0));
        else push(p, false, false, std::make_shared<NumericSplit<T>>(asPredictorValue<T>(cut_[u]), A(1)));
        if (surrogates_) addSurrogates(u);
        return splits_.size() - before;
    }
    const std::vector<NodeSplit<T>>& splits() const { return splits_; }

private:
    // A surrogate that the record does not fully describe (its predictor out
    // of range, no flip, bins or cut point stored for it) places nothing.
    void addSurrogates(size_t u) {
        const Numbers<double> predictors(cellAt(cells_.predictors, u), missingValue<double>());
        if (predictors.size() == 0) return;
        const Numbers<double> flips(cellAt(cells_.flips, u), missingValue<double>());
        const ndArray* binsOfNode = cellAt(cells_.bins, u);
        const ndArray* categoriesOfNode = cellAt(cells_.surrogateCategories, u);
        std::optional<Numbers<T>> cutPoints;
        for (size_t j = 0; j < predictors.size(); ++j) {
            const auto q = oneBasedIndex(predictors[j], P_);
            if (!q) continue;
            if (isCategorical_[*q]) {
                const ndArray* pair = cellAt(categoriesOfNode, j);
                addNominal(*q, cellAt(pair, 0), cellAt(pair, 1));
                continue;
            }
            const auto flip = flips.at(j);
            if (!flip) continue;
            if (bins_) {
                const Numbers<double> bin(cellAt(binsOfNode, j), missingValue<double>());
                if (bin.size() < 2) continue;
                push(*q, false, true, std::make_shared<BinnedSplit<T>>(zeroBasedBin(bin[0]), zeroBasedBin(bin[1]), *flip));
            } else {
                if (!cutPoints) cutPoints.emplace(cellAt(cells_.cutPoints, u), missingValue<T>());
                const auto cutPoint = cutPoints->at(j);
                if (!cutPoint) continue;
                push(*q, false, false, std::make_shared<NumericSplit<T>>(*cutPoint, asPredictorValue<A>(*flip)));
            }
        }
    }

    void addNominal(size_t p, const ndArray* left, const ndArray* right) {
        const Numbers<T>& l = categories_.emplace_back(left, missingValue<T>());
        const Numbers<T>& r = categories_.emplace_back(right, missingValue<T>());
        push(p, true, false, std::make_shared<NominalSplit<T>>(l.size(), l.data(), r.size(), r.data()));
    }

    void push(size_t p, bool nominal, bool binned, std::shared_ptr<const Split<T>> split) {
        splits_.push_back({p, nominal, binned, std::move(split)});
    }

    size_t n_, P_;
    const bool* isCategorical_;
    const U* bins_;
    const U* cut_;
    SplitCells cells_;
    bool surrogates_;
    std::deque<Numbers<T>> categories_;
    std::vector<NodeSplit<T>> splits_;
};

size_t checkedProduct(size_t a, size_t b) {
    size_t c = 0;
    if (__builtin_mul_overflow(a, b, &c)) throw bedrock::core::except::bad_alloc();
    return c;
}

template <class T, class U>
void typedFindNode(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const ndArray* x = inputs[0];
    const size_t N = ndGetM(x), P = ndGetN(x);
    const size_t numSubtrees = ndGetNumberOfElements(inputs[1]);
    const size_t n = ndGetN(inputs[3]);
    const bool hasPrune = !ndIsEmpty(inputs[2]);
    const bool binned = !ndIsEmpty(inputs[6]);
    checkedProduct(N, numSubtrees);  // a size the host cannot give is its allocation failure
    matrix::unique_nd_ptr result = zv::createMatrix<double>(N, numSubtrees);

    // Every input is read as far as the tree needs it and no further: what an
    // array does not hold reads as a leaf, no pruning, or a missing value.
    const zv::HostValues<T> X(x, checkedProduct(N, P), T(0));
    const zv::HostValues<double> children(inputs[3], checkedProduct(n, 2), 0.0);
    const zv::HostValues<double> cutVar(inputs[5], n, 0.0);
    const zv::HostValues<double> pruneList(inputs[2], hasPrune ? n : 0, missingValue<double>());
    const zv::HostValues<bool> isCategorical(inputs[4], P, false);
    std::optional<zv::HostValues<U>> bins, cut;
    if (binned) bins.emplace(inputs[6], checkedProduct(n, 2), U(0));
    else cut.emplace(inputs[7], n, missingValue<U>());
    const size_t verbose = zv::checked::truncateSaturated<size_t>(zv::HostValues<double>(inputs[14], 1, 0.0)[0]);
    // With no row there is nothing to stop, and the levels are not read.
    const size_t activeSubtrees = N > 0 ? numSubtrees : 0;
    std::optional<SubtreeOrder> subtrees;
    if (activeSubtrees > 0 && hasPrune)
        subtrees.emplace(numSubtrees, zv::HostValues<double>(inputs[1], numSubtrees, missingValue<double>()).data());
    else subtrees.emplace(activeSubtrees);

    const SplitCells cells{inputs[8], inputs[9], inputs[10], inputs[11], inputs[12], inputs[13]};
    SplitBuilder<T, U> builder(n, P, isCategorical.data(), binned ? bins->data() : nullptr,
                               binned ? nullptr : cut->data(), cells);
    zv::Scratch<NodeRoute> plan(n);
    {
        zv::Scratch<size_t> queue(n);
        planTree(n, P, children.data(), cutVar.data(), plan.get(), queue.get(),
                 [&](size_t u, size_t p) { return builder.add(u, p); });
    }

    const LookupTree<T> tree{N, X.data(), n, plan.get(), builder.splits().data(),
                             hasPrune ? pruneList.data() : nullptr, &*subtrees};
    findNodes(tree, zv::dataOf<double>(result.get()), verbose, faultprobe::InterruptState{hostGetInterruptStateData()});
    zv::handOver(outputs, numOutputs, std::move(result));
}

}  // namespace

namespace classregtree {

ZV_DEFINE_GATEWAY(findNode) {
    zv::raiseIf<ids::BadNumberOfInputArgs>(numInputs != kNumInputs, long(kNumInputs));
    zv::raiseIf<ids::BadNumberOfOutputArgs>(numOutputs > kMaxOutputs, long(kMaxOutputs));
    if (numOutputs <= 0) return;
    // Predictors and cut points pick the instantiation; any other pairing
    // leaves the output unset.
    const ndClassID xClass = ndGetClassID(inputs[0]), cutClass = ndGetClassID(inputs[7]);
    auto both = [&](ndClassID a, ndClassID b) { return xClass == a && cutClass == b; };
    if (both(ndDOUBLE_CLASS, ndDOUBLE_CLASS)) typedFindNode<double, double>(numOutputs, outputs, inputs);
    else if (both(ndDOUBLE_CLASS, ndSINGLE_CLASS)) typedFindNode<double, float>(numOutputs, outputs, inputs);
    else if (both(ndSINGLE_CLASS, ndDOUBLE_CLASS)) typedFindNode<float, double>(numOutputs, outputs, inputs);
    else if (both(ndSINGLE_CLASS, ndSINGLE_CLASS)) typedFindNode<float, float>(numOutputs, outputs, inputs);
    else if (both(ndINT32_CLASS, ndINT32_CLASS)) typedFindNode<int32_t, int32_t>(numOutputs, outputs, inputs);
}

}  // namespace classregtree

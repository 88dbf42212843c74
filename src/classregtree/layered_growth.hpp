// Breadth-first growth: every node of a layer is offered a split on its own
// (in parallel), and only then does the tree decide which candidates it keeps,
// so a split budget cuts the weakest of the last layer and nodes are numbered
// in layer order.
#pragma once

#include <algorithm>
#include <deque>
#include <optional>

#include <tbb/parallel_for.h>

#include "classregtree/fault_probe.hpp"
#include "classregtree/indexed_column.hpp"
#include "classregtree/tree.hpp"
#include "frame/checked.hpp"
#include "frame/limits.hpp"
#include "frame/message_ids.hpp"
#include "host/console.hpp"
#include "host/randstream.hpp"

namespace zv::classregtree {

template <class X, class Y, class W>
Node<X, Y, W>::Node(uint64_t numClasses)
    : classCount_(numClasses, W(0)), classProb_(numClasses, W(0)), classWeight_(numClasses, W(0)) {}

template <class X, class Y, class W>
void Node<X, Y, W>::init(const TreeData<X, Y, W>& data, const RowVector& rows, const W* stats) {
    size_ = rows.size();
    std::vector<W> corrected;
    if (data.isRegression()) {
        classProb_[0] = 1;
        classCount_[0] = W(size_);
        if (stats && stats[0] > 0) {
            weight_ = stats[0];
            sumWY_ = stats[1];
            sumWY2_ = stats[2];
        } else {
            weight_ = sumWY_ = sumWY2_ = 0;
            for (uint64_t r : rows) {
                weight_ += data.w[r];
                sumWY_ += data.wy[2 * r];
                sumWY2_ += data.wy[2 * r + 1];
            }
        }
        value_ = rows.empty() ? std::numeric_limits<W>::quiet_NaN() : sumWY_ / weight_;
        correctedWeight_ = weight_;
        risk_ = data.regCrit->parentAboutMean(data.y, data.w, rows, value_);
    } else {
        const size_t K = data.numClasses;
        std::fill(classProb_.begin(), classProb_.end(), W(0));
        std::fill(classCount_.begin(), classCount_.end(), W(0));
        for (uint64_t r : rows) {
            classProb_[data.classIndex[r]] += data.w[r];
            classCount_[data.classIndex[r]] += 1;
        }
        classWeight_ = classProb_;
        weight_ = classSum<W>(classProb_);
        for (W& p : classProb_) p /= weight_;
        // The most probable class; the lowest index among equals.
        size_t best = 0;
        for (size_t c = 1; c < K; ++c)
            if (classProb_[c] > classProb_[best]) best = c;
        value_ = W(data.classOut(best));
        if (!(classProb_[best] > 0)) value_ = W(mostProbableOut(data));
        corrected.resize(K);
        for (size_t c = 0; c < K; ++c) corrected[c] = classProb_[c] * weight_;
        data.classCrit->correct(corrected, corrected);
        risk_ = data.classCrit->parent(corrected);
        correctedWeight_ = classSum<W>(corrected);
    }
    if (data.options.verbose == 0) return;
    hostPrintf("  NodeProb = %g\n", double(weight_));
    hostPrintf("  Corrected NodeProb = %g\n", double(correctedWeight_));
    hostPrintf("  ClassProb: ");
    for (W p : classProb_) hostPrintf(" %g", double(p));
    hostPrintf("\n");
    if (!data.isRegression()) {
        hostPrintf("  Corrected ClassProb: ");
        for (W p : corrected) hostPrintf(" %g", double(p));
        hostPrintf("\n");
    }
    hostPrintf("  NodeRisk = %g\n", double(risk_));
}

template <class X, class Y, class W>
W Node<X, Y, W>::classProbOut(const TreeData<X, Y, W>& data, uint64_t c) const {
    if (data.isRegression()) return classProb_[0];
    const uint64_t* end = data.classes + data.numClasses;
    const uint64_t* at = std::lower_bound(data.classes, end, c);
    return at != end && *at == c ? classProb_[at - data.classes] : W(0) / weight_;
}

// The most probable record class, lowest index among equals, when classes
// without rows (all of probability 0/weight) may take part: the best value
// only grows along the classes, so of those only the first can win.
template <class X, class Y, class W>
uint64_t Node<X, Y, W>::mostProbableOut(const TreeData<X, Y, W>& data) const {
    const uint64_t* classes = data.classes;
    uint64_t firstAbsent = 0;
    for (uint64_t c = 0; c < data.numClasses && classes[c] == firstAbsent; ++c) ++firstAbsent;
    const W absent = W(0) / weight_;
    uint64_t best = 0;
    W bestValue = firstAbsent == 0 ? absent : classProb_[0];
    const auto consider = [&](uint64_t c, W value) {
        if (value > bestValue) best = c, bestValue = value;
    };
    for (uint64_t c = 0; c < data.numClasses; ++c) {
        if (firstAbsent != 0 && firstAbsent < data.numClassesOut && firstAbsent < classes[c] &&
            (c == 0 || firstAbsent > classes[c - 1]))
            consider(firstAbsent, absent);
        if (classes[c] != 0) consider(classes[c], classProb_[c]);
    }
    if (firstAbsent != 0 && firstAbsent < data.numClassesOut && firstAbsent > classes[data.numClasses - 1])
        consider(firstAbsent, absent);
    return best;
}

template <class X, class Y, class W>
void Node<X, Y, W>::unsplit() {
    cutPoint_ = noCutPoint<X>();
    cutCategoriesLeft_ = {};
    cutCategoriesRight_ = {};
    gain_ = 0;
    cutVar_ = cutBinLeft_ = cutBinRight_ = -1;
    surrogateVars_.clear();
    surrogateBins_.clear();
    surrogateCutPoints_.clear();
    surrogateCategories_.clear();
    surrogateFlips_.clear();
    surrogateGains_.clear();
    surrogateAssociations_.clear();
}

template <class X, class Y, class W>
void Node<X, Y, W>::resetToFresh() {
    unsplit();
    size_ = id_ = 0;
    parent_ = -1;
    left_ = right_ = 0;
    weight_ = correctedWeight_ = value_ = 0;
    std::fill(classCount_.begin(), classCount_.end(), W(0));
    std::fill(classProb_.begin(), classProb_.end(), W(0));
    std::fill(classWeight_.begin(), classWeight_.end(), W(0));
    sumWY_ = sumWY2_ = std::numeric_limits<W>::quiet_NaN();
    risk_ = std::numeric_limits<W>::quiet_NaN();
    curvaturePValues_.clear();
    interactionPValues_.clear();
    hasUnroutedRows_ = false;
    unroutedRows_.clear();
    leftStats_ = rightStats_ = {W(0), W(0), W(0)};
}

template <class X, class Y, class W>
RowPair Node<X, Y, W>::split(const TreeData<X, Y, W>& data, const NodeRows<X>& nodeRows,
                             const SortedOrders<X>& orders, const double* predictors) {
    const RowVector& rows = nodeRows.rows;
    const TreeOptions& o = data.options;
    if (!(correctedWeight_ > 0) || size_ < o.minParent) return {};
    if (data.isRegression()) {
        if (risk_ < riskThreshold_) return {};
    } else {
        const auto nonZero = std::count_if(classCount_.begin(), classCount_.end(), [](W c) { return c != 0; });
        if (nonZero <= 1) return {};
    }
    const size_t listed = std::min(o.numVarsToSample, data.P);
    std::vector<uint64_t> list(listed);
    for (size_t k = 0; k < listed; ++k)
        list[k] = predictors ? std::min(checked::toSize(predictors[k] - 1), size_t(data.P - 1)) : k;
    bool curvature = o.curvature && listed >= 2 && double(size_) >= std::max(double(data.numClassesOut) + 1, 2.0 * double(o.minLeaf));
    bool interaction = curvature && o.interaction;

    std::vector<std::optional<IndexedColumn<X, Y, W>>> columns(listed);
    const auto search = [&](size_t k) {
        auto& column = columns[k].emplace(data, *this, list[k], curvature, interaction);
        const uint64_t p = list[k];
        if (data.keepsOrder(p)) column.init(rows, orders.at(p, nodeRows.sorted[p]), nodeRows.sorted[p].size);
        else column.init(rows);
        pollInterrupt(data.interrupt);
        if (o.verbose > 1) hostPrintf("Sorting variable %i...\n", int(list[k]));
        column.sort();
        if (column.rowsInPlay() >= 2 * o.minLeaf) {
            if (o.verbose > 1) hostPrintf("Dividing variable %i...\n", int(list[k]));
            column.divide();
        }
        probeSite("classregtree_ColumnOperator", data.interrupt);
        pollInterrupt(data.interrupt);
        if (o.verbose > 1) hostPrintf("Performing exhaustive search on variable %i...\n", int(list[k]));
        column.findBestSplit();
        probeSite("classregtree_ColumnSplitter", data.interrupt);
    };
    if (data.parallelColumns && listed >= 2)
        tbb::parallel_for(size_t(0), listed, search);
    else
        for (size_t k = 0; k < listed; ++k) search(k);

    // The first column in list order with the strictly largest gain; there is no minimum gain.
    IndexedColumn<X, Y, W>* winner = nullptr;
    W bestGain = std::numeric_limits<W>::lowest();
    for (auto& column : columns) {
        // A column that never ran was cancelled by an interruption elsewhere in
        // the layer: the growth is abandoned, and this node splits nothing.
        if (!column) return {};
        if (column->gain_ > bestGain) {
            bestGain = column->gain_;
            winner = &*column;
        }
    }
    if (!winner) return {};
    RowPair kids = winner->splitRows();
    if (kids.first.empty() || kids.second.empty()) return {};
    cutBinLeft_ = winner->cutBinLeft_;
    cutBinRight_ = winner->cutBinRight_;
    cutPoint_ = winner->cutPoint();
    cutCategoriesLeft_ = winner->cutCategoriesLeft_;
    cutCategoriesRight_ = winner->cutCategoriesRight_;
    cutVar_ = int64_t(winner->predictor());
    gain_ = winner->gain_;
    if (!data.xHasNaN && winner->kind() == ColumnKind::Binned && data.isRegression())
        winner->binnedChildStats(leftStats_, rightStats_);
    RowVector unrouted = winner->nanRows();
    if (o.numSurrogates > 0) {
        // The smaller child's share of the node; a split without one is taken back.
        const size_t K = data.isRegression() ? 1 : data.numClasses;
        const auto weightOf = [&](const RowVector& part) {
            std::vector<W> classWeights(K, W(0));
            for (uint64_t r : part) data.addRow(classWeights, r);
            return data.correctedSum(classWeights);
        };
        const W minP = std::min(weightOf(kids.first), weightOf(kids.second)) / correctedWeight_;
        if (o.verbose > 3) hostPrintf("       minP=%g\n", double(minP));
        if (!(minP > 0)) {
            unsplit();
            return {};
        }
        for (uint64_t r : rows) data.side[r] = RowSide::Neither;
        for (uint64_t r : kids.first) data.side[r] = RowSide::Left;
        for (uint64_t r : kids.second) data.side[r] = RowSide::Right;
        findSurrogates(data, minP, columns, winner);
        routeBySurrogates(data, unrouted, kids);
    }
    if (!unrouted.empty()) {
        hasUnroutedRows_ = true;
        unroutedRows_ = std::move(unrouted);
    }
    return kids;
}

// Other predictors whose best split imitates the node's split, best
// association first: they route the rows the split's own predictor cannot.
template <class X, class Y, class W>
void Node<X, Y, W>::findSurrogates(const TreeData<X, Y, W>& data, W minP,
                                   std::vector<std::optional<IndexedColumn<X, Y, W>>>& columns,
                                   const IndexedColumn<X, Y, W>* winner) {
    const TreeOptions& o = data.options;
    std::vector<std::pair<uint64_t, W>> found(columns.size(), {0, std::numeric_limits<W>::lowest()});
    std::vector<uint8_t> usable(columns.size(), 0);
    const auto search = [&](size_t k) {
        auto& column = *columns[k];
        if (&column == winner) return;
        pollInterrupt(data.interrupt);
        if (o.verbose > 2) hostPrintf("Searching for surrogate splits on predictor %i...\n", int(column.predictor()));
        W association;
        if (column.findSurrogate(minP, data.side, association)) found[k] = {k, association}, usable[k] = 1;
    };
    if (data.parallelColumns && columns.size() >= 2) tbb::parallel_for(size_t(0), columns.size(), search);
    else
        for (size_t k = 0; k < columns.size(); ++k) search(k);
    std::vector<std::pair<uint64_t, W>> kept;
    for (size_t k = 0; k < columns.size(); ++k)
        if (usable[k] && found[k].second > 0) kept.push_back(found[k]);
    std::stable_sort(kept.begin(), kept.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    if (o.verbose > 4) {
        for (size_t j = 0; j < kept.size(); ++j)
            hostPrintf("  assocPair[%i] = (%i,%g)", int(j), int(columns[kept[j].first]->predictor()),
                       double(kept[j].second));
        hostPrintf("\n");
    }
    if (kept.size() > o.numSurrogates) kept.resize(o.numSurrogates);
    for (const auto& [k, association] : kept) {
        const auto& column = *columns[k];
        surrogateVars_.push_back(int64_t(column.predictor()));
        surrogateBins_.push_back({column.surrogateBinLeft_, column.surrogateBinRight_});
        surrogateFlips_.push_back(int(column.surrogateFlip_));
        surrogateCutPoints_.push_back(column.cutPoint(true));
        surrogateCategories_.push_back({column.surrogateCategoriesLeft_, column.surrogateCategoriesRight_});
        surrogateGains_.push_back(column.surrogateGain_);
        surrogateAssociations_.push_back(association);
    }
}

// Rows the split's predictor cannot place go, surrogate by surrogate, to the
// child the surrogate names; what none can place stays in `rows`.
template <class X, class Y, class W>
void Node<X, Y, W>::routeBySurrogates(const TreeData<X, Y, W>& data, RowVector& rows, RowPair& kids) const {
    for (size_t j = 0; j < surrogateVars_.size() && !rows.empty(); ++j) {
        const uint64_t p = uint64_t(surrogateVars_[j]);
        const X* x = data.column(p);
        const auto& [leftBin, rightBin] = surrogateBins_[j];
        const auto& [leftCategories, rightCategories] = surrogateCategories_[j];
        const bool binned = leftBin >= 0 && rightBin >= 0;
        const bool nominal = !binned && isMissing(surrogateCutPoints_[j], 0);
        if (nominal && (leftCategories.empty() || rightCategories.empty())) continue;
        RowVector remaining;
        for (uint64_t r : rows) {
            const X v = x[r];
            if (isMissing(v, data.numBins[p])) {
                remaining.push_back(r);
                continue;
            }
            if (nominal) {
                (std::binary_search(leftCategories.begin(), leftCategories.end(), v) ? kids.first : kids.second)
                    .push_back(r);
                continue;
            }
            const bool low = binned ? !(uint64_t(v) > uint64_t(leftBin)) : v < surrogateCutPoints_[j];
            (low == (surrogateFlips_[j] >= 0) ? kids.first : kids.second).push_back(r);
        }
        rows = std::move(remaining);
    }
}

template <class X, class Y, class W>
void Tree<X, Y, W>::refreshResponse() {
    if (data_.regCrit) {
        wy_.resize(2 * data_.N);
        for (uint64_t i = 0; i < data_.N; ++i) {
            const W wy = data_.w[i] * W(data_.y[i]);
            wy_[2 * i] = wy;
            wy_[2 * i + 1] = wy * W(data_.y[i]);
        }
        data_.wy = wy_.data();
        classIndex_.assign(data_.N, 0);
    } else {
        classIndex_.resize(data_.N);
        // A class index past the largest representable class saturates, NaN is class 0.
        for (uint64_t i = 0; i < data_.N; ++i)
            classIndex_[i] = std::min(checked::toSize(double(data_.y[i])), size_t(data_.numClassesOut - 1));
        classes_ = classIndex_;
        std::sort(classes_.begin(), classes_.end());
        classes_.erase(std::unique(classes_.begin(), classes_.end()), classes_.end());
        if (classes_.empty()) classes_.push_back(0);
        for (uint64_t& c : classIndex_) c = uint64_t(std::lower_bound(classes_.begin(), classes_.end(), c) - classes_.begin());
        data_.classes = classes_.data();
        data_.numClasses = classes_.size();
        data_.classCrit->restrictToClasses(classes_, data_.numClassesOut);
    }
    data_.classIndex = classIndex_.data();
}

template <class X, class Y, class W>
void Tree<X, Y, W>::init() {
    if (data_.classCrit) {
        double largest = 0;
        for (uint64_t i = 0; i < data_.N; ++i) largest = std::max(largest, double(data_.y[i]));
        data_.numClassesOut = std::min<uint64_t>(checked::toSize(largest), kMaxElementCountWord) + 1;
    } else if (data_.regCrit) {
        data_.numClasses = data_.numClassesOut = 1;
    } else {
        ndErrMsgId(stats::classreg::learning::treeutils::Tree::init::BadCrit());
    }
    refreshResponse();
}

template <class X, class Y, class W>
void Tree<X, Y, W>::reset() {
    refreshResponse();
    for (auto& node : nodes_) node.resetToFresh();
    freshNodes_ = false;
}

template <class X, class Y, class W>
void Tree<X, Y, W>::leafFit(const Node<X, Y, W>& node, const RowVector& rows, W* fit, bool fitIsScores) const {
    if (!fit) return;
    const size_t K = data_.numClassesOut;
    for (uint64_t r : rows) {
        if (fitIsScores)
            for (uint64_t c = 0; c < K; ++c) fit[r * K + c] = node.classProbOut(data_, c);
        else fit[r] = node.value_;
    }
}

// Each numeric predictor's rows sorted once, for the whole growth.
template <class X, class Y, class W>
std::vector<SortedRows<X>> Tree<X, Y, W>::sortedRoot(const RowVector& rows) const {
    std::vector<SortedRows<X>> sorted(data_.P);
    tbb::parallel_for(uint64_t(0), data_.P, [&](uint64_t p) {
        if (!data_.keepsOrder(p)) return;
        const X* x = data_.column(p);
        auto& list = sorted[p];
        list.reserve(rows.size());
        for (uint64_t r : rows)
            if (!isMissing(x[r], data_.numBins[p])) list.push_back({x[r], r});
        sortByX(list.data(), list.data() + list.size());
    });
    return sorted;
}

template <class X, class Y, class W>
void Tree<X, Y, W>::grow(const RowVector& rows, W* fit, bool fitIsScores) {
    TreeOptions& o = data_.options;
    const double relativeTolerance = o.relativeTolerance;
    W riskThreshold = 0;
    if (data_.regCrit) riskThreshold = W(relativeTolerance) * data_.regCrit->parent(data_.y, data_.w, rows);

    // Nodes are laid out once by an estimate and at least doubled afterwards.
    uint64_t estimate = 1;
    if (rows.size() > o.minParent) {
        const uint64_t e = (2 * (rows.size() - o.minParent) / 3) / std::max<uint64_t>(o.minLeaf, 1);
        const uint64_t bySplits = o.maxSplits >= (uint64_t(1) << 40) ? e : 2 * o.maxSplits + 1;
        estimate = std::max<uint64_t>(std::min(e, bySplits), 1);
    }
    data_.parallelColumns = (!data_.classCrit || data_.classCrit->isThreadSafe()) && o.verbose == 0;
    data_.xHasNaN = false;
    for (uint64_t p = 0; p < data_.P && !data_.xHasNaN; ++p) {
        const X* column = data_.column(p);
        for (uint64_t i = 0; i < data_.N; ++i)
            if (isMissing(column[i], data_.numBins[p])) {
                data_.xHasNaN = true;
                break;
            }
    }

    std::deque<NodeRows<X>> rowQueue;
    bool keepsOrders = false;
    for (uint64_t p = 0; p < data_.P; ++p) keepsOrders = keepsOrders || data_.keepsOrder(p);
    orders_.assign(sortedRoot(rows));
    rowQueue.push_back({rows, orders_.rootSpans()});
    side_.assign(data_.N, RowSide::Neither);
    data_.side = side_.data();
    if (freshNodes_) {
        Node<X, Y, W> prototype(data_.numClasses);
        prototype.riskThreshold_ = riskThreshold;
        prototype.init(data_, rows, nullptr);
        // The estimate reserves room; nodes are made as the tree reaches them.
        nodes_.clear();
        nodes_.reserve(estimate);
        nodes_.push_back(prototype);
    } else {
        nodes_[0].init(data_, rows, nullptr);
        for (auto& node : nodes_) node.riskThreshold_ = riskThreshold;
    }
    numNodes_ = 1;
    const Node<X, Y, W> prototype = nodes_[0];
    const bool runSerially = !data_.parallelColumns || o.serial;

    uint64_t layerStart = 0, layerWidth = 1, numSplits = 0, layer = 0;
    const bool sampling = o.numVarsToSample < data_.P;
    std::vector<double> predictorBuffer;
    while (layerWidth > 0 && numSplits < o.maxSplits) {
        if (sampling) {
            // Every draw happens here, on the calling thread, also for nodes that will not split.
            predictorBuffer.resize(layerWidth * o.numVarsToSample);
            for (uint64_t slot = 0; slot < layerWidth; ++slot)
                randstream::randkpermFcn(data_.stream, predictorBuffer.data() + slot * o.numVarsToSample, o.numVarsToSample,
                                         double(data_.P));
        }
        if (o.verbose)
            hostPrintf("\nProcessing layer %i with maximal number of splits %i...\n", int(layer), int(layerWidth));
        std::vector<std::pair<NodeRows<X>, NodeRows<X>>> childRows(layerWidth);
        std::vector<uint8_t> isSplit(layerWidth, 0);
        const auto splitSlot = [&](uint64_t slot) {
            Node<X, Y, W>& node = nodes_[layerStart + slot];
            const double* predictors = sampling ? predictorBuffer.data() + slot * o.numVarsToSample : nullptr;
            RowPair kids = node.split(data_, rowQueue[slot], orders_, predictors);
            if (!kids.first.empty() && !kids.second.empty()) {
                isSplit[slot] = 1;
                auto& [left, right] = childRows[slot];
                if (keepsOrders) {
                    // Each child takes its part of every sorted predictor, in order. Rows
                    // are marked only then: a quartile cut may part copies of a row.
                    for (uint64_t r : rowQueue[slot].rows) side_[r] = RowSide::Neither;
                    for (uint64_t r : kids.first) side_[r] = RowSide::Left;
                    for (uint64_t r : kids.second) side_[r] = RowSide::Right;
                    orders_.partition(rowQueue[slot].sorted, side_.data(), left.sorted, right.sorted);
                }
                left.rows = std::move(kids.first);
                right.rows = std::move(kids.second);
            }
            probeSite("classregtree_Tree_inside_layer", data_.interrupt);
        };
        if (runSerially) {
            for (uint64_t slot = 0; slot < layerWidth; ++slot) {
                if (o.verbose > 0) hostPrintf("    Splitting node %i...\n", int(layerStart + slot));
                splitSlot(slot);
            }
        } else {
            tbb::parallel_for(tbb::blocked_range<uint64_t>(0, layerWidth, 1), [&](const auto& range) {
                for (uint64_t slot = range.begin(); slot != range.end(); ++slot) splitSlot(slot);
            });
        }
        probeSite("classregtree_Tree_after_layer_completed");

        std::vector<uint64_t> candidates;  // slots, in slot order
        for (uint64_t slot = 0; slot < layerWidth; ++slot) {
            if (isSplit[slot]) candidates.push_back(slot);
            else leafFit(nodes_[layerStart + slot], rowQueue[slot].rows, fit, fitIsScores);
        }
        if (o.verbose) hostPrintf("    Found %i split candidates.\n", int(candidates.size()));
        const uint64_t remaining = o.maxSplits - numSplits;
        if (candidates.size() > remaining) {
            if (o.verbose) hostPrintf("    Will keep only %i splits.\n", int(remaining));
            // The largest gains stay; among equal gains the earlier slot.
            std::stable_sort(candidates.begin(), candidates.end(), [&](uint64_t a, uint64_t b) {
                return nodes_[layerStart + a].gain_ > nodes_[layerStart + b].gain_;
            });
            for (size_t k = remaining; k < candidates.size(); ++k) {
                Node<X, Y, W>& node = nodes_[layerStart + candidates[k]];
                if (o.verbose > 1) hostPrintf("Un-splitting node %i.\n", int(layerStart + candidates[k]));
                node.unsplit();
                leafFit(node, rowQueue[candidates[k]].rows, fit, fitIsScores);
            }
            candidates.resize(remaining);
            std::sort(candidates.begin(), candidates.end());
        }
        for (uint64_t k = 0; k < layerWidth; ++k) rowQueue.pop_front();
        for (uint64_t slot : candidates) {
            if (nodes_.size() < numNodes_ + 2) nodes_.resize(numNodes_ + 2, prototype);
            Node<X, Y, W>& parent = nodes_[layerStart + slot];
            if (fit && parent.hasUnroutedRows_) leafFit(parent, parent.unroutedRows_, fit, fitIsScores);
            auto& kids = childRows[slot];
            rowQueue.push_back(std::move(kids.first));
            rowQueue.push_back(std::move(kids.second));
            parent.left_ = numNodes_;
            parent.right_ = numNodes_ + 1;
            const bool passStats = data_.regCrit && !data_.xHasNaN;
            for (uint64_t side = 0; side < 2; ++side) {
                Node<X, Y, W>& child = nodes_[numNodes_ + side];
                child.id_ = numNodes_ + side;
                child.parent_ = int64_t(layerStart + slot);
                const auto& stats = side == 0 ? parent.leftStats_ : parent.rightStats_;
                child.init(data_, rowQueue[rowQueue.size() - 2 + side].rows, passStats ? stats.data() : nullptr);
            }
            numNodes_ += 2;
        }
        orders_.nextLayer();
        numSplits += candidates.size();
        layerStart += layerWidth;
        layerWidth = 2 * candidates.size();
        ++layer;
    }
    if (fit)
        for (size_t k = 0; k < rowQueue.size(); ++k) leafFit(nodes_[layerStart + k], rowQueue[k].rows, fit, fitIsScores);
    nodes_.resize(numNodes_, prototype);
}

}  // namespace zv::classregtree

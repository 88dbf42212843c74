// One predictor as a node sees it while it looks for its split: the node's
// rows cleared of missing values, put in the order the predictor needs, the
// candidate cuts, and the best of them. Nothing is inherited from the parent.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

#include "classregtree/sorted_rows.hpp"
#include "classregtree/nominal_split_finders.hpp"
#include "classregtree/split_evaluators.hpp"
#include "classregtree/tree.hpp"
#include "host/console.hpp"

namespace zv::classregtree {

enum class ColumnKind : int32_t { Numeric = 0, Nominal = 1, Binned = 2, Quartile = 3 };

// Two predictor values are the same when both equal their midpoint: values
// whose sum overflows are never the same, not even as themselves.
template <class X>
bool sameX(X a, X b) {
    if constexpr (std::is_integral_v<X>) return a == b;
    else {
        const X m = (a + b) * X(0.5);
        return a == m && b == m;
    }
}

template <class X, class Y, class W>
class IndexedColumn {
public:
    // From this leaf size on only the middle of the order is needed.
    static constexpr uint64_t kPartialSortLeaf = 100;

    IndexedColumn(const TreeData<X, Y, W>& data, const Node<X, Y, W>& node, uint64_t predictor, bool curvature,
                  bool interaction)
        : data_(data), node_(node), predictor_(predictor), x_(data.column(predictor)),
          numBins_(data.numBins[predictor]), minLeaf_(data.options.minLeaf), critParent_(node.risk_),
          pParent_(node.correctedWeight_), pNotNan_(node.correctedWeight_) {
        const bool categorical = data.isCategorical[predictor];
        if (numBins_ >= 2) kind_ = ColumnKind::Binned;
        else if (categorical) kind_ = ColumnKind::Nominal;
        else if (data.options.quartileSearch && data.options.numSurrogates == 0 && !curvature && !interaction &&
                 node.size_ > std::max<uint64_t>(20, 4 * minLeaf_))
            kind_ = ColumnKind::Quartile;
        else kind_ = ColumnKind::Numeric;
    }

    // `sorted`: the node's `sortedCount` rows in this predictor's order, when the tree keeps them.
    void init(const RowVector& rows, const SortedEntry<X>* sorted = nullptr, size_t sortedCount = 0);
    void sort();
    void divide();
    void findBestSplit();
    // Threshold halfway between the best division's value and the first
    // different value stored behind it; "no cut point" without one.
    X cutPoint(bool surrogate = false) const;
    RowPair splitRows(bool surrogate = false) const;
    // How well this column imitates the node's split, whose sides `side` marks
    // for the node's rows: true with the association when it is above 0.
    bool findSurrogate(W minP, const RowSide* side, W& association);
    // Regression over bins: sums of w, w*y, w*y*y on each side of the best cut.
    void binnedChildStats(std::array<W, 3>& left, std::array<W, 3>& right) const;

    ColumnKind kind() const { return kind_; }
    uint64_t predictor() const { return predictor_; }
    const RowVector& nanRows() const { return nanRows_; }
    size_t rowsInPlay() const { return rows_->size(); }

    W gain_ = std::numeric_limits<W>::lowest();
    int64_t cutBinLeft_ = -1, cutBinRight_ = -1;
    int64_t bestDivision_ = -1;
    std::vector<X> cutCategoriesLeft_, cutCategoriesRight_;  // each ascending
    // The best surrogate split of this column.
    int64_t surrogateDivision_ = -1, surrogateBinLeft_ = -1, surrogateBinRight_ = -1, surrogateFlip_ = 0;
    std::vector<X> surrogateCategoriesLeft_, surrogateCategoriesRight_;
    W surrogateGain_ = std::numeric_limits<W>::lowest();

private:
    using Entry = SortedEntry<X>;

    bool missing(X v) const { return isMissing(v, numBins_); }
    uint64_t binOf(X v) const { return uint64_t(v); }
    Y yAt(size_t position) const { return data_.y[(*rows_)[position]]; }
    void fillFromEntries(const std::vector<Entry>& entries);
    std::vector<Entry> entries() const;
    void divideNumeric();
    void divideQuartile();
    void divideBinned();
    void divideNominal();
    // Fills the category lists; the best two-child value, or the largest finite number.
    W findNominalSplitWithBestGain(std::span<const W> total);
    template <class Evaluator>
    W scanDivisions(Evaluator& evaluator);
    template <class Evaluator, class AddBin>
    W scanBins(Evaluator& evaluator, AddBin&& addBin);
    bool printsAt(uint64_t level) const { return data_.options.verbose > level; }
    W correctedSum(std::vector<W>& classWeights) const { return data_.correctedSum(classWeights); }
    void addRow(std::vector<W>& classWeights, uint64_t r) const { data_.addRow(classWeights, r); }
    W associationSearch(W minP, const RowSide* side, W pL, W pR);

    const TreeData<X, Y, W>& data_;
    const Node<X, Y, W>& node_;
    uint64_t predictor_;
    const X* x_;
    ColumnKind kind_;
    uint64_t numBins_, minLeaf_;
    bool sorted_ = false, divided_ = false, searched_ = false;
    RowVector ownedRows_;
    const RowVector* rows_ = nullptr;
    RowVector nanRows_;
    std::vector<X> xs_;  // x of each position of *rows_ once ordered
    std::vector<uint64_t> divisions_;
    std::vector<uint64_t> binIds_, binCounts_;
    std::vector<W> binClassWeights_, binSumW_, binSumWY_, binSumWY2_;
    std::vector<W> notNanClassWeight_;
    NominalLevels<X, W> levels_;
    std::vector<std::array<W, 3>> levelSums_;  // regression: w, w*y, w*y*y per level
    bool foundNominal_ = false;
    W critParent_, pParent_, pNotNan_;
};

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::init(const RowVector& rows, const SortedEntry<X>* sorted, size_t sortedCount) {
    if (!data_.xHasNaN && kind_ == ColumnKind::Binned) {
        rows_ = &rows;  // binned columns without missing data share the node's rows unordered
        return;
    }
    rows_ = &ownedRows_;
    if (sorted && kind_ == ColumnKind::Numeric) {
        // Already in order and clear of missing values: the sort is done.
        ownedRows_.resize(sortedCount);
        xs_.resize(sortedCount);
        for (size_t i = 0; i < sortedCount; ++i) {
            ownedRows_[i] = sorted[i].row;
            xs_[i] = sorted[i].x;
        }
        sorted_ = true;
        if (data_.xHasNaN)
            for (uint64_t r : rows)
                if (missing(x_[r])) nanRows_.push_back(r);
    } else {
        ownedRows_ = rows;
        if (!data_.xHasNaN) return;
        const auto firstMissing = std::stable_partition(ownedRows_.begin(), ownedRows_.end(),
                                                        [&](uint64_t r) { return !missing(x_[r]); });
        nanRows_.assign(firstMissing, ownedRows_.end());
        ownedRows_.erase(firstMissing, ownedRows_.end());
    }
    if (nanRows_.empty()) return;
    std::vector<W> inPlay(data_.isRegression() ? 1 : data_.numClasses, W(0));
    for (uint64_t r : ownedRows_) addRow(inPlay, r);
    if (!data_.isRegression()) notNanClassWeight_ = inPlay;  // uncorrected: the scans correct it
    pNotNan_ = correctedSum(inPlay);
    if (printsAt(2)) hostPrintf("pParent = %g   Pnotnan = %g\n", double(pParent_), double(pNotNan_));
    // The gain of a column with missing rows is measured against its share of the node.
    critParent_ = (pNotNan_ / pParent_) * critParent_;
}

template <class X, class Y, class W>
std::vector<typename IndexedColumn<X, Y, W>::Entry> IndexedColumn<X, Y, W>::entries() const {
    std::vector<Entry> e(rows_->size());
    for (size_t i = 0; i < e.size(); ++i) e[i] = {x_[(*rows_)[i]], (*rows_)[i]};
    return e;
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::fillFromEntries(const std::vector<Entry>& e) {
    xs_.resize(e.size());
    for (size_t i = 0; i < e.size(); ++i) {
        ownedRows_[i] = e[i].row;
        xs_[i] = e[i].x;
    }
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::sort() {
    if (sorted_) return;
    sorted_ = true;
    if (kind_ == ColumnKind::Binned || kind_ == ColumnKind::Quartile) return;
    const size_t n = rows_->size(), m = minLeaf_;
    if (n < 2 * m) return;
    std::vector<Entry> e = entries();
    const auto byX = [](const Entry& a, const Entry& b) { return a.x < b.x; };
    if (kind_ != ColumnKind::Nominal && m >= kPartialSortLeaf && data_.options.numSurrogates == 0) {
        // The first and last m positions hold the right rows, unordered inside.
        std::nth_element(e.begin(), e.begin() + (m - 1), e.end(), byX);
        std::nth_element(e.begin() + m, e.begin() + (n - m), e.end(), byX);
        sortByX(e.data() + m, e.data() + (n - m));
    } else {
        sortByX(e.data(), e.data() + n);
    }
    fillFromEntries(e);
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divide() {
    switch (kind_) {
    case ColumnKind::Numeric: if (divisions_.empty()) divideNumeric(); break;
    case ColumnKind::Quartile: if (divisions_.empty()) divideQuartile(); break;
    case ColumnKind::Binned: if (binIds_.empty() && numBins_ >= 2) divideBinned(); break;
    case ColumnKind::Nominal: if (levels_.size() == 0) divideNominal(); break;
    }
}

// Candidates are only the positions where the response can change, or
// where that cannot be excluded; every one lies at a change of x.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divideNumeric() {
    const size_t n = rows_->size(), m = std::max<uint64_t>(minLeaf_, 1);
    if (n < 2 * m || xs_.size() != n) return;
    const auto& x = xs_;
    const auto addDivision = [&](size_t d) {
        if (divisions_.empty() || d > divisions_.back()) divisions_.push_back(d);
    };
    if (sameX(x[0], x[n - 1])) return;
    size_t i, lastCut;
    X lastX;
    bool headEqual = true;
    for (size_t k = 0; k < m && headEqual; ++k) headEqual = yAt(k) == yAt(k + 1);
    if (headEqual) {
        i = m;
        lastCut = m - 1;
        lastX = x[m - 1];
    } else {
        size_t q = m;
        while (q <= n - m && sameX(x[q], x[m - 1])) ++q;
        if (q > n - m) return;
        addDivision(q - 1);
        i = lastCut = q;
        lastX = x[q];
    }
    bool pending = false;
    while (i < n - m) {
        const X x0 = x[i], x1 = x[i + 1];
        if (pending || yAt(i) != yAt(i + 1)) {
            if (!sameX(x0, x1)) {
                addDivision(i);
                lastCut = i + 1;
                lastX = x1;
                pending = false;
            } else if (!sameX(lastX, x1)) {
                addDivision(lastCut);
                lastCut = i + 1;
                lastX = x1;
                pending = false;
            } else {
                pending = true;
            }
        } else if (!sameX(x0, x1)) {
            lastCut = i;
            lastX = x0;
        }
        ++i;
    }
    bool tailEqual = true;
    for (size_t k = n - m; k + 1 < n && tailEqual; ++k) tailEqual = yAt(k) == yAt(k + 1);
    if (!tailEqual) {
        // The tail division may leave fewer than minLeaf rows on the left of it.
        const size_t lower = divisions_.empty() ? 0 : divisions_.back() + 1;
        for (size_t t = n - m + 1; t-- > lower;) {
            if (!sameX(x[t], x[n - m])) {
                addDivision(t);
                break;
            }
        }
    }
    if (!divisions_.empty() && x[divisions_.front()] < std::numeric_limits<X>::lowest())
        divisions_.erase(divisions_.begin());
}

// Three selections instead of a sort; a division's left set is a set of
// rows, not a closed range of x.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divideQuartile() {
    std::vector<Entry> e = entries();
    const size_t n = e.size(), q = n / 4;
    if (q == 0) return;
    const auto byX = [](const Entry& a, const Entry& b) { return a.x < b.x; };
    std::nth_element(e.begin(), e.begin() + q, e.end(), byX);
    X low = e[0].x;
    for (size_t k = 1; k <= q; ++k) low = std::min(low, e[k].x);
    const bool first = !sameX(e[q].x, low);
    std::nth_element(e.begin() + q, e.begin() + 2 * q, e.end(), byX);
    const bool second = !sameX(e[2 * q].x, e[q].x);
    std::nth_element(e.begin() + 2 * q, e.begin() + 3 * q, e.end(), byX);
    X high = e[n - 1].x;
    for (size_t k = 3 * q + 1; k < n; ++k) high = std::max(high, e[k].x);
    const bool third = !sameX(e[3 * q].x, e[2 * q].x) && !sameX(e[3 * q].x, high);
    fillFromEntries(e);
    if (first) divisions_.push_back(q);
    if (second) divisions_.push_back(2 * q);
    if (third) divisions_.push_back(3 * q);
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divideBinned() {
    const size_t K = data_.numClasses;
    const bool regression = data_.isRegression();
    // Bins are counted over the codes that can occur: up to the largest one
    // present, or over the distinct codes when those are few among many bins.
    uint64_t largest = 0;
    for (uint64_t r : *rows_) largest = std::max(largest, binOf(x_[r]));
    std::vector<uint64_t> codes;
    const bool dense = largest < 4 * rows_->size() + 64;
    if (!dense) {
        for (uint64_t r : *rows_) codes.push_back(binOf(x_[r]));
        std::sort(codes.begin(), codes.end());
        codes.erase(std::unique(codes.begin(), codes.end()), codes.end());
    }
    const size_t slots = dense ? size_t(largest) + 1 : codes.size();
    const auto slotOf = [&](uint64_t code) {
        return dense ? size_t(code) : size_t(std::lower_bound(codes.begin(), codes.end(), code) - codes.begin());
    };
    std::vector<uint64_t> counts(slots, 0);
    std::vector<W> classWeights(regression ? 0 : slots * K, W(0)), sumW, sumWY, sumWY2;
    if (regression) sumW.assign(slots, W(0)), sumWY.assign(slots, W(0)), sumWY2.assign(slots, W(0));
    for (uint64_t r : *rows_) {
        const size_t b = slotOf(binOf(x_[r]));
        ++counts[b];
        if (regression) {
            sumW[b] += data_.w[r];
            sumWY[b] += data_.wy[2 * r];
            sumWY2[b] += data_.wy[2 * r + 1];
        } else {
            classWeights[b * K + data_.classIndex[r]] += data_.w[r];
        }
    }
    for (size_t b = 0; b < slots; ++b) {
        if (counts[b] == 0) continue;
        binIds_.push_back(dense ? b : codes[b]);
        binCounts_.push_back(counts[b]);
        if (regression) {
            binSumW_.push_back(sumW[b]);
            binSumWY_.push_back(sumWY[b]);
            binSumWY2_.push_back(sumWY2[b]);
        } else {
            binClassWeights_.insert(binClassWeights_.end(), classWeights.begin() + b * K,
                                    classWeights.begin() + (b + 1) * K);
        }
    }
}

template <class X, class Y, class W>
template <class Evaluator>
W IndexedColumn<X, Y, W>::scanDivisions(Evaluator& evaluator) {
    W best = std::numeric_limits<W>::max();
    const uint64_t* rows = rows_->data();
    size_t next = 0;
    for (uint64_t d : divisions_) {
        evaluator.add(rows + next, rows + d + 1);
        next = d + 1;
        W value;
        const KidsState state = evaluator.evaluate(value);
        if (state == KidsState::LeftEmpty) continue;
        if (state == KidsState::RightEmpty) break;
        if (printsAt(3))
            hostPrintf("  critFromKids %13.10g   at split (lower) = %13.10g\n", double(value), double(xs_[d]));
        // Strictly below: among equal values the lowest division stays.
        if (value < best) {
            best = value;
            bestDivision_ = int64_t(d);
        }
    }
    return best;
}

template <class X, class Y, class W>
template <class Evaluator, class AddBin>
W IndexedColumn<X, Y, W>::scanBins(Evaluator& evaluator, AddBin&& addBin) {
    W best = std::numeric_limits<W>::max();
    const uint64_t total = rows_->size();
    uint64_t leftCount = 0;
    for (size_t b = 0; b + 1 < binIds_.size(); ++b) {
        leftCount += binCounts_[b];
        const uint64_t rightCount = total - leftCount;
        addBin(b);
        W value;
        const KidsState state = evaluator.evaluate(value);
        if (rightCount < minLeaf_) break;
        if (leftCount < minLeaf_ || state == KidsState::LeftEmpty) continue;
        if (state == KidsState::RightEmpty) break;
        if (printsAt(3)) hostPrintf("  critFromKids %13.10g   at bin %10i\n", double(value), int(binIds_[b]));
        if (value < best) {
            best = value;
            cutBinLeft_ = int64_t(binIds_[b]);
            cutBinRight_ = int64_t(binIds_[b + 1]);
        }
    }
    return best;
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::findBestSplit() {
    if (searched_) return;
    searched_ = true;
    const uint64_t m = minLeaf_;
    if (!divided_) {
        if (!sorted_) sort();
        if (rows_->size() >= 2 * m) divide();
        divided_ = true;
    }
    gain_ = std::numeric_limits<W>::lowest();
    if (!(pNotNan_ > 0)) return;
    if (printsAt(2)) hostPrintf("critParent_ = %g\n", double(critParent_));
    if (rows_->size() < 2 * m) return;
    const bool binned = kind_ == ColumnKind::Binned, nominal = kind_ == ColumnKind::Nominal;
    if (binned ? binIds_.empty() : nominal ? levels_.size() == 0 : divisions_.empty()) return;
    const bool someMissing = !nanRows_.empty();
    W bestKids;
    if (nominal) {
        if (data_.isRegression()) {
            if (!((someMissing ? pNotNan_ : node_.weight_) > 0)) return;
            bestKids = findNominalSplitWithBestGain({});
        } else {
            const std::span<const W> total(someMissing ? notNanClassWeight_.data() : node_.classWeight_.data(),
                                           data_.numClasses);
            if (!(classSum(total) > 0)) return;
            bestKids = findNominalSplitWithBestGain(total);
        }
    } else if (data_.isRegression()) {
        const W total = someMissing ? pNotNan_ : node_.weight_;
        if (!(total > 0)) return;
        W totalW = node_.weight_, totalWY = node_.sumWY_, totalWY2 = node_.sumWY2_;
        if (someMissing) {
            totalW = totalWY = totalWY2 = 0;
            for (uint64_t r : *rows_) {
                totalW += data_.w[r];
                totalWY += data_.wy[2 * r];
                totalWY2 += data_.wy[2 * r + 1];
            }
        }
        RegressionSplitCriterionEvaluator<W> evaluator(data_.w, data_.wy, totalW, totalWY, totalWY2);
        bestKids = binned ? scanBins(evaluator,
                                     [&](size_t b) { evaluator.addSums(binSumW_[b], binSumWY_[b], binSumWY2_[b]); })
                          : scanDivisions(evaluator);
    } else {
        const std::span<const W> total(someMissing ? notNanClassWeight_.data() : node_.classWeight_.data(),
                                       data_.numClasses);
        if (!(classSum(total) > 0)) return;
        ClassificationSplitCriterionEvaluator<W> evaluator(*data_.classCrit, data_.classIndex, data_.w, total);
        const size_t K = data_.numClasses;
        bestKids = binned ? scanBins(evaluator, [&](size_t b) { evaluator.addClassWeights(&binClassWeights_[b * K]); })
                          : scanDivisions(evaluator);
    }
    // A column without a valid candidate cannot win.
    if (bestDivision_ < 0 && cutBinLeft_ < 0 && !foundNominal_) return;
    gain_ = critParent_ - bestKids;
    if (printsAt(2)) hostPrintf("   gain = %13.10g\n", double(gain_));
}

// Levels from the distinct values in ascending order. For classification a
// value whose rows all have one class joins that class's pool, one level per
// class behind the others, which keeps the level count (and the exhaustive
// search) small.
template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::divideNominal() {
    const size_t n = rows_->size();
    if (n == 0 || xs_.size() != n || xs_.front() == xs_.back()) return;
    const bool regression = data_.isRegression();
    const size_t K = regression ? 1 : data_.numClasses;
    std::vector<std::vector<X>> poolCategories(K);
    std::vector<std::vector<uint64_t>> poolCounts(K, std::vector<uint64_t>(K, 0));
    std::vector<std::vector<W>> poolWeights(K, std::vector<W>(K, W(0)));
    std::vector<W> means;
    for (size_t a = 0; a < n;) {
        size_t b = a + 1;
        while (b < n && xs_[b] == xs_[a]) ++b;
        std::vector<uint64_t> counts(K, 0);
        std::vector<W> weights(K, W(0));
        std::array<W, 3> sums{};
        for (size_t i = a; i < b; ++i) {
            const uint64_t r = (*rows_)[i];
            const size_t c = regression ? 0 : data_.classIndex[r];
            ++counts[c];
            weights[c] += data_.w[r];
            if (regression) sums = {sums[0] + data_.w[r], sums[1] + data_.wy[2 * r], sums[2] + data_.wy[2 * r + 1]};
        }
        const auto present = std::count_if(counts.begin(), counts.end(), [](uint64_t c) { return c > 0; });
        if (!regression && present == 1) {
            const size_t c = size_t(std::find_if(counts.begin(), counts.end(), [](uint64_t v) { return v > 0; }) -
                                    counts.begin());
            poolCategories[c].push_back(xs_[a]);
            poolCounts[c][c] += counts[c];
            poolWeights[c][c] += weights[c];
        } else {
            levels_.categories.push_back({xs_[a]});
            levels_.sizes.push_back(b - a);
            levels_.counts.push_back(std::move(counts));
            levels_.classWeights.push_back(std::move(weights));
            if (regression) {
                levelSums_.push_back(sums);
                means.push_back(sums[0] > 0 ? sums[1] / sums[0] : W(0));
            }
        }
        a = b;
    }
    for (size_t c = 0; c < K; ++c) {
        if (poolCategories[c].empty()) continue;
        levels_.categories.push_back(std::move(poolCategories[c]));
        levels_.sizes.push_back(poolCounts[c][c]);
        levels_.counts.push_back(std::move(poolCounts[c]));
        levels_.classWeights.push_back(std::move(poolWeights[c]));
    }
    const size_t L = levels_.size();
    levels_.order.assign(K, {});
    if (regression) {
        auto& order = levels_.order[0];
        order.resize(L);
        std::iota(order.begin(), order.end(), size_t(0));
        std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
            return means[a] < means[b] || (means[a] == means[b] && levelSums_[a][0] < levelSums_[b][0]);
        });
        return;
    }
    for (size_t c = 0; c < K; ++c) {
        auto& order = levels_.order[c];
        std::vector<W> share(L, W(0));
        for (size_t l = 0; l < L; ++l) {
            if (levels_.counts[l][c] == 0) continue;
            order.push_back(l);
            share[l] = levels_.classWeights[l][c] / classSum<W>(levels_.classWeights[l]);
        }
        std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
            const W wa = levels_.classWeights[a][c], wb = levels_.classWeights[b][c];
            return share[a] > share[b] || (share[a] == share[b] && wa > wb);
        });
    }
}

template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::findNominalSplitWithBestGain(std::span<const W> total) {
    const uint64_t verbose = data_.options.verbose;
    std::optional<NominalSplit<W>> best;
    const char* bestMethod = "";
    const auto compete = [&](std::optional<NominalSplit<W>> found, const char* method) {
        // The smallest value wins; the method that ran first on a tie.
        if (found && !found->left.empty() && !found->right.empty() && (!best || found->value < best->value)) {
            best = std::move(found);
            bestMethod = method;
        }
    };
    if (data_.isRegression()) {
        W totalW = 0, totalWY = 0, totalWY2 = 0;
        for (const auto& sums : levelSums_) totalW += sums[0], totalWY += sums[1], totalWY2 += sums[2];
        if (nanRows_.empty()) totalW = node_.weight_, totalWY = node_.sumWY_, totalWY2 = node_.sumWY2_;
        RegressionSplitCriterionEvaluator<W> evaluator(data_.w, data_.wy, totalW, totalWY, totalWY2);
        const auto& order = levels_.order[0];
        const uint64_t rows = rows_->size();
        uint64_t leftCount = 0;
        NominalSplit<W> split;
        std::optional<size_t> bestPosition;
        for (size_t k = 0; k < order.size(); ++k) {
            const auto& sums = levelSums_[order[k]];
            evaluator.addSums(sums[0], sums[1], sums[2]);
            leftCount += levels_.sizes[order[k]];
            if (rows - leftCount < minLeaf_) break;
            if (leftCount < minLeaf_) continue;
            W value;
            const KidsState state = evaluator.evaluate(value);
            if (state == KidsState::RightEmpty) break;
            if (state == KidsState::Valid && value < split.value) split.value = value, bestPosition = k;
        }
        if (bestPosition) {
            prefixSplit(order, *bestPosition, {}, split.left, split.right);
            compete(std::move(split), "Regression");
        }
    } else {
        namespace ids = stats::classreg::learning::treeutils::IndexedColumn::findNominalSplitWithBestGain;
        std::vector<W> correctedTotal(total.size());
        data_.classCrit->correct(total, correctedTotal);
        const ClassificationNominalSplitFinder<X, W> finder(levels_, correctedTotal, *data_.classCrit, minLeaf_,
                                                            verbose);
        const uint64_t K = data_.numClassesOut, L = levels_.size(), algCat = data_.options.algCat;
        if (K == 2) compete(finder.pullLeft(K), "PullLeft");
        else if (algCat == 0 && L <= data_.options.maxCat) compete(finder.exact(), "Exact");
        else if (algCat == 0 && K <= 4) compete(finder.pca(), "PCA"), compete(finder.ovaByClass(), "OVAbyClass");
        else if (algCat == 0) compete(finder.pullLeft(K), "PullLeft"), compete(finder.pca(), "PCA");
        else if (algCat == 1) compete(finder.exact(), "Exact");
        else if (algCat == 2) compete(finder.pullLeft(K), "PullLeft");
        else if (algCat == 3) compete(finder.pca(), "PCA");
        else if (algCat == 4) compete(finder.ovaByClass(), "OVAbyClass");
        else ndErrMsgId(ids::BadAlgCat());
    }
    if (!best) return std::numeric_limits<W>::max();
    if (verbose > 1)
        hostPrintf("     Found nominal split with %i and %i levels by method %s.\n", int(best->left.size()),
                   int(best->right.size()), bestMethod);
    for (size_t l : best->left)
        cutCategoriesLeft_.insert(cutCategoriesLeft_.end(), levels_.categories[l].begin(), levels_.categories[l].end());
    for (size_t l : best->right)
        cutCategoriesRight_.insert(cutCategoriesRight_.end(), levels_.categories[l].begin(),
                                   levels_.categories[l].end());
    std::sort(cutCategoriesLeft_.begin(), cutCategoriesLeft_.end());
    std::sort(cutCategoriesRight_.begin(), cutCategoriesRight_.end());
    // The left list never lies wholly above the right one.
    if (cutCategoriesRight_.back() < cutCategoriesLeft_.front()) std::swap(cutCategoriesLeft_, cutCategoriesRight_);
    foundNominal_ = true;
    return best->value;
}

template <class X, class Y, class W>
X IndexedColumn<X, Y, W>::cutPoint(bool surrogate) const {
    const int64_t division = surrogate ? surrogateDivision_ : bestDivision_;
    if (division < 0) return noCutPoint<X>();
    const size_t d = size_t(division);
    for (size_t k = d + 1; k < xs_.size(); ++k)
        if (!sameX(xs_[k], xs_[d])) {
            if constexpr (std::is_integral_v<X>) return X((double(xs_[k]) + double(xs_[d])) * 0.5);
            else return (xs_[k] + xs_[d]) * X(0.5);
        }
    return noCutPoint<X>();
}

template <class X, class Y, class W>
RowPair IndexedColumn<X, Y, W>::splitRows(bool surrogate) const {
    RowPair kids;
    const RowVector& rows = *rows_;
    const auto& leftCategories = surrogate ? surrogateCategoriesLeft_ : cutCategoriesLeft_;
    const int64_t leftBin = surrogate ? surrogateBinLeft_ : cutBinLeft_;
    const int64_t division = surrogate ? surrogateDivision_ : bestDivision_;
    if (kind_ == ColumnKind::Nominal) {
        if (surrogate ? surrogateCategoriesLeft_.empty() && surrogateCategoriesRight_.empty() : !foundNominal_)
            return kids;
        for (uint64_t r : rows)
            (std::binary_search(leftCategories.begin(), leftCategories.end(), x_[r]) ? kids.first : kids.second)
                .push_back(r);
    } else if (kind_ == ColumnKind::Binned) {
        if (leftBin < 0) return kids;
        for (uint64_t r : rows) {
            if (missing(x_[r])) continue;
            (binOf(x_[r]) <= uint64_t(leftBin) ? kids.first : kids.second).push_back(r);
        }
    } else if (division >= 0) {
        kids.first.assign(rows.begin(), rows.begin() + division + 1);
        kids.second.assign(rows.begin() + division + 1, rows.end());
    }
    return kids;
}

template <class X, class Y, class W>
bool IndexedColumn<X, Y, W>::findSurrogate(W minP, const RowSide* side, W& association) {
    surrogateGain_ = std::numeric_limits<W>::lowest();
    if (!(pNotNan_ > 0) || rows_->size() < 2 * minLeaf_) return false;
    if (!divided_) {
        sort();
        divide();
        divided_ = true;
    }
    const bool empty = kind_ == ColumnKind::Binned    ? binIds_.empty()
                       : kind_ == ColumnKind::Nominal ? levels_.size() == 0
                                                      : divisions_.empty();
    if (empty) return false;
    // The children's rows that have a value here: the column's rows by their marks.
    const size_t K = data_.isRegression() ? 1 : data_.numClasses;
    std::vector<W> left(K, W(0)), right(K, W(0));
    size_t leftRows = 0, rightRows = 0;
    for (uint64_t r : *rows_) {
        if (side[r] == RowSide::Left) addRow(left, r), ++leftRows;
        else if (side[r] == RowSide::Right) addRow(right, r), ++rightRows;
    }
    if (printsAt(3)) hostPrintf("      Size of kids 1: %i   Size of kids 2: %i\n", int(leftRows), int(rightRows));
    if (leftRows == 0 || rightRows == 0) return false;
    const W pL = correctedSum(left), pR = correctedSum(right);
    if (printsAt(3)) hostPrintf("      pL=%g   pR=%g\n", double(pL / pParent_), double(pR / pParent_));
    if (!(pL / pParent_ > 0) || !(pR / pParent_ > 0)) return false;
    association = associationSearch(minP, side, pL, pR);
    if (!(association > 0)) return false;
    // The surrogate's own gain, against the share of the parent its rows hold.
    RowPair kids = splitRows(true);
    RowVector all = kids.first;
    all.insert(all.end(), kids.second.begin(), kids.second.end());
    W value;
    KidsState state;
    const RowVector& shorter = kids.second.size() < kids.first.size() ? kids.second : kids.first;
    W allWeight;
    if (data_.isRegression()) {
        W totalW = 0, totalWY = 0, totalWY2 = 0;
        for (uint64_t r : all) totalW += data_.w[r], totalWY += data_.wy[2 * r], totalWY2 += data_.wy[2 * r + 1];
        RegressionSplitCriterionEvaluator<W> evaluator(data_.w, data_.wy, totalW, totalWY, totalWY2);
        evaluator.add(shorter.data(), shorter.data() + shorter.size());
        state = evaluator.evaluate(value);
        allWeight = totalW;
    } else {
        std::vector<W> total(K, W(0));
        for (uint64_t r : all) addRow(total, r);
        ClassificationSplitCriterionEvaluator<W> evaluator(*data_.classCrit, data_.classIndex, data_.w, total);
        evaluator.add(shorter.data(), shorter.data() + shorter.size());
        state = evaluator.evaluate(value);
        allWeight = correctedSum(total);
    }
    if (state != KidsState::Valid) return false;
    const W parent = all.size() < rows_->size() ? critParent_ * (allWeight / pNotNan_) : critParent_;
    surrogateGain_ = parent - value;
    return true;
}

// The share of the naive rule's error (every row to the larger child) that a
// candidate removes, read straight or flipped; the best strictly positive one.
template <class X, class Y, class W>
W IndexedColumn<X, Y, W>::associationSearch(W minP, const RowSide* side, W pL, W pR) {
    const size_t K = data_.isRegression() ? 1 : data_.numClasses;
    W best = 0;
    const auto judge = [&](W pLL, W pRL) -> std::pair<W, int> {
        const W pLR = pL / pParent_ - pLL, pRR = pR / pParent_ - pRL;
        if (pRR + pLL < pLR + pRL) return {(minP - (1 - pLR - pRL)) / minP, -1};
        return {(minP - (1 - pLL - pRR)) / minP, 1};
    };
    std::vector<W> leftIn(K, W(0)), rightIn(K, W(0)), scratch(K);
    const auto shares = [&] {
        scratch = leftIn;
        const W pLL = correctedSum(scratch) / pParent_;
        scratch = rightIn;
        return std::pair{pLL, correctedSum(scratch) / pParent_};
    };
    const auto addMarked = [&](uint64_t r) {
        if (side[r] == RowSide::Left) addRow(leftIn, r);
        else if (side[r] == RowSide::Right) addRow(rightIn, r);
    };
    if (kind_ == ColumnKind::Nominal) {
        // Each category alone goes to the side that holds more of its weight.
        W sumLeft = 0, sumRight = 0;
        const size_t n = rows_->size();
        for (size_t a = 0; a < n;) {
            size_t b = a;
            std::fill(leftIn.begin(), leftIn.end(), W(0));
            std::fill(rightIn.begin(), rightIn.end(), W(0));
            for (; b < n && xs_[b] == xs_[a]; ++b) addMarked((*rows_)[b]);
            const W l = correctedSum(leftIn), r = correctedSum(rightIn);
            if (r <= l) surrogateCategoriesLeft_.push_back(xs_[a]), sumLeft += l;
            else surrogateCategoriesRight_.push_back(xs_[a]), sumRight += r;
            a = b;
        }
        surrogateFlip_ = 0;
        return (minP - (1 - sumLeft / pParent_ - sumRight / pParent_)) / minP;
    }
    if (kind_ == ColumnKind::Binned) {
        std::vector<std::vector<W>> binLeft(binIds_.size(), std::vector<W>(K, W(0))), binRight = binLeft;
        for (uint64_t r : *rows_) {
            const size_t b = size_t(std::lower_bound(binIds_.begin(), binIds_.end(), binOf(x_[r])) - binIds_.begin());
            if (side[r] == RowSide::Left) addRow(binLeft[b], r);
            else if (side[r] == RowSide::Right) addRow(binRight[b], r);
        }
        for (size_t b = 0; b + 1 < binIds_.size(); ++b) {
            for (size_t c = 0; c < K; ++c) leftIn[c] += binLeft[b][c], rightIn[c] += binRight[b][c];
            const auto [pLL, pRL] = shares();
            const auto [value, flip] = judge(pLL, pRL);
            if (value > 0 && value > best) {
                best = value;
                surrogateBinLeft_ = int64_t(binIds_[b]);
                surrogateBinRight_ = int64_t(binIds_[b + 1]);
                surrogateFlip_ = flip;
            }
        }
        return best;
    }
    size_t next = 0;
    for (uint64_t d : divisions_) {
        for (; next <= d; ++next) addMarked((*rows_)[next]);
        const auto [pLL, pRL] = shares();
        const auto [value, flip] = judge(pLL, pRL);
        if (printsAt(3)) {
            const W pLR = pL / pParent_ - pLL, pRR = pR / pParent_ - pRL;
            hostPrintf("      idiv=%i  x=%g  pLL=%g  pRL=%g  pLR=%g  pRR=%g  Assoc(-1)=%g  Assoc(+1)=%g\n", int(d),
                       double(xs_[d]), double(pLL), double(pRL), double(pLR), double(pRR),
                       double((minP - (1 - pLR - pRL)) / minP), double((minP - (1 - pLL - pRR)) / minP));
        }
        if (value > 0 && value > best) {
            best = value;
            surrogateDivision_ = int64_t(d);
            surrogateFlip_ = flip;
        }
    }
    return best;
}

template <class X, class Y, class W>
void IndexedColumn<X, Y, W>::binnedChildStats(std::array<W, 3>& left, std::array<W, 3>& right) const {
    left = right = {W(0), W(0), W(0)};
    for (size_t b = 0; b < binIds_.size(); ++b) {
        auto& side = int64_t(binIds_[b]) < cutBinRight_ ? left : right;
        side[0] += binSumW_[b];
        side[1] += binSumWY_[b];
        side[2] += binSumWY2_[b];
    }
}

}  // namespace zv::classregtree

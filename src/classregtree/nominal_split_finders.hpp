// Binary partitions of a categorical predictor's levels. Regression and two
// classes have one exact and cheap answer (levels in order of mean or of
// class share); more classes have an exhaustive search for few levels and
// three heuristics for many.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <optional>
#include <vector>

#include "classregtree/criteria/split_criterion.hpp"
#include "frame/blas.hpp"
#include "frame/message_ids.hpp"
#include "frame/scratch.hpp"
#include "host/console.hpp"

namespace zv::classregtree {

// Levels of a categorical column: the predictor values that make each level,
// its rows per class and weight per class (regression: the row count and the
// sums of w, w*y, w*y*y), and per class the order the searches walk.
template <class X, class W>
struct NominalLevels {
    std::vector<std::vector<X>> categories;
    std::vector<std::vector<uint64_t>> counts;
    std::vector<std::vector<W>> classWeights;
    std::vector<std::vector<size_t>> order;
    std::vector<uint64_t> sizes;  // rows per level

    size_t size() const { return categories.size(); }
};

// Levels to the left and to the right, and the two children's value.
template <class W>
struct NominalSplit {
    std::vector<size_t> left, right;
    W value = std::numeric_limits<W>::max();
};

// The levels walked in `order`: the best prefix goes left, the rest (and
// `others`) right.
inline void prefixSplit(const std::vector<size_t>& order, size_t best, std::vector<size_t> others,
                        std::vector<size_t>& left, std::vector<size_t>& right) {
    left.assign(order.begin(), order.begin() + best + 1);
    right.assign(order.begin() + best + 1, order.end());
    right.insert(right.end(), others.begin(), others.end());
}

template <class X, class W>
class ClassificationNominalSplitFinder {
public:
    ClassificationNominalSplitFinder(const NominalLevels<X, W>& levels, std::span<const W> correctedTotal,
                                     const ClassificationSplitCriterion<W>& criterion, uint64_t minLeaf,
                                     uint64_t verbose)
        : levels_(levels), correctedTotal_(correctedTotal.begin(), correctedTotal.end()), criterion_(criterion),
          minLeaf_(minLeaf), verbose_(verbose), K_(correctedTotal.size()),
          totalRows_(std::accumulate(levels.sizes.begin(), levels.sizes.end(), uint64_t(0))) {}

    std::optional<NominalSplit<W>> exact() const;
    std::optional<NominalSplit<W>> pullLeft(size_t recordClasses) const;
    std::optional<NominalSplit<W>> pca() const;
    std::optional<NominalSplit<W>> ovaByClass() const;

private:
    // Both children's value when both have weight, else the largest finite number.
    W kidsOf(std::vector<W>& left, std::vector<W>& right) const {
        criterion_.correct(left, left);
        for (size_t c = 0; c < K_; ++c) right[c] = correctedTotal_[c] - left[c];
        if (!(classSum<W>(left) > 0) || !(classSum<W>(right) > 0)) return std::numeric_limits<W>::max();
        return criterion_.kids(left, right);
    }
    void addLevel(std::vector<W>& into, size_t level) const {
        for (size_t c = 0; c < K_; ++c) into[c] += levels_.classWeights[level][c];
    }

    const NominalLevels<X, W>& levels_;
    std::vector<W> correctedTotal_;
    const ClassificationSplitCriterion<W>& criterion_;
    uint64_t minLeaf_, verbose_;
    size_t K_;
    uint64_t totalRows_;
};

template <class X, class W>
std::optional<NominalSplit<W>> ClassificationNominalSplitFinder<X, W>::exact() const {
    namespace ids = stats::classreg::learning::treeutils::ClassificationNominalSplitFinder::exact;
    const size_t L = levels_.size();
    if (L > 63) ndErrMsgId(ids::TooManyLevels(64));
    const uint64_t last = (uint64_t(1) << L) - 2, all = (uint64_t(1) << L) - 1;
    if (verbose_ > 2) hostPrintf("Will inspect %i categorical splits for the exact method.\n", int(last));
    W best = std::numeric_limits<W>::max();
    uint64_t bestMask = 0;
    std::vector<W> left(K_), right(K_);
    for (uint64_t mask = 1; mask <= last; ++mask) {
        if (mask > (all ^ mask)) continue;  // the highest level always stays right
        std::fill(left.begin(), left.end(), W(0));
        uint64_t leftCount = 0;
        for (size_t l = 0; l < L; ++l)
            if (mask >> l & 1) addLevel(left, l), leftCount += levels_.sizes[l];
        criterion_.correct(left, left);
        for (size_t c = 0; c < K_; ++c) right[c] = correctedTotal_[c] - left[c];
        const uint64_t rightCount = totalRows_ - leftCount;
        const W leftSum = classSum<W>(left), rightSum = classSum<W>(right);
        if (verbose_ > 3)
            hostPrintf("     Analyzing split with Nbelow=%i  Nabove=%i   Wbelow=%g    Wabove=%g\n", int(leftCount),
                       int(rightCount), double(leftSum), double(rightSum));
        if (leftCount < minLeaf_ || rightCount < minLeaf_ || !(leftSum > 0) || !(rightSum > 0)) continue;
        const W value = criterion_.kids(left, right);
        if (value < best) best = value, bestMask = mask;
    }
    if (bestMask == 0) return std::nullopt;
    NominalSplit<W> split;
    split.value = best;
    for (size_t l = 0; l < L; ++l) (bestMask >> l & 1 ? split.left : split.right).push_back(l);
    return split;
}

template <class X, class W>
std::optional<NominalSplit<W>> ClassificationNominalSplitFinder<X, W>::pullLeft(size_t recordClasses) const {
    const size_t L = levels_.size();
    const size_t C = recordClasses > 2 ? K_ : 1;
    std::vector<uint8_t> pulled(L, 0);
    std::vector<size_t> next(C, 0);  // position reached in each class's order
    std::vector<W> left(K_, W(0)), trial(K_), rest(K_);
    struct Step {
        W score;
        uint64_t leftCount;
        size_t position;
    };
    std::vector<Step> steps;
    std::vector<size_t> pulledOrder;
    uint64_t leftCount = 0;
    for (size_t round = 0; round + 1 < L; ++round) {
        std::vector<std::optional<size_t>> proposal(C);
        for (size_t c = 0; c < C; ++c) {
            const auto& order = levels_.order[c];
            while (next[c] < order.size() && pulled[order[next[c]]]) ++next[c];
            if (next[c] == order.size()) continue;
            const size_t level = order[next[c]];
            bool taken = false;
            for (size_t e = 0; e < c; ++e) taken = taken || proposal[e] == level;
            if (!taken) proposal[c] = level;
        }
        if (verbose_ > 3) {
            hostPrintf("Pulling category indices for classes:");
            for (size_t c = 0; c < C; ++c)
                if (proposal[c]) hostPrintf(" Class=%i  Index=%i", int(c), int(next[c]));
            hostPrintf("\n");
            hostPrintf("Pulling categories:");
            for (size_t c = 0; c < C; ++c)
                if (proposal[c]) hostPrintf("  %i", int(*proposal[c]));
            hostPrintf("\n");
        }
        std::optional<size_t> winner;
        W bestScore = std::numeric_limits<W>::max();
        for (size_t c = 0; c < C; ++c) {
            if (!proposal[c]) continue;
            trial = left;
            addLevel(trial, *proposal[c]);
            const W score = kidsOf(trial, rest);
            if (!winner || score < bestScore) winner = c, bestScore = score;
        }
        if (!winner) break;
        const size_t level = *proposal[*winner];
        if (verbose_ > 3) hostPrintf("     Found bestK=%i  ncat=%i\n", int(*winner), int(level));
        pulled[level] = 1;
        addLevel(left, level);
        leftCount += levels_.sizes[level];
        pulledOrder.push_back(level);
        steps.push_back({bestScore, leftCount, steps.size()});
    }
    std::stable_sort(steps.begin(), steps.end(), [](const Step& a, const Step& b) { return a.score < b.score; });
    if (steps.empty() || steps.front().score == std::numeric_limits<W>::max()) return std::nullopt;
    for (const Step& step : steps) {
        const uint64_t rightCount = totalRows_ - step.leftCount;
        if (verbose_ > 3)
            hostPrintf("   Split candidate with Crit=%g  Nbelow=%i   Nabove=%i\n", double(step.score),
                       int(step.leftCount), int(rightCount));
        if (step.leftCount < minLeaf_ || rightCount < minLeaf_) continue;
        NominalSplit<W> split;
        split.value = step.score;
        split.left.assign(pulledOrder.begin(), pulledOrder.begin() + step.position + 1);
        std::vector<uint8_t> isLeft(L, 0);
        for (size_t l : split.left) isLeft[l] = 1;
        for (size_t l = 0; l < L; ++l)
            if (!isLeft[l]) split.right.push_back(l);
        return split;
    }
    return std::nullopt;
}

template <class X, class W>
std::optional<NominalSplit<W>> ClassificationNominalSplitFinder<X, W>::pca() const {
    namespace ids = stats::classreg::learning::treeutils::ClassificationNominalSplitFinder::pca;
    using Memory = ids::MemoryLessThanXBytes;
    const size_t L = levels_.size(), K = K_;
    const W totalSum = classSum<W>(correctedTotal_);
    std::vector<double> mean(K), d(K * L), weight(L);
    for (size_t c = 0; c < K; ++c) mean[c] = double(correctedTotal_[c] / totalSum);
    std::vector<W> corrected(K);
    double weightSum = 0;
    for (size_t l = 0; l < L; ++l) {
        criterion_.correct(levels_.classWeights[l], corrected);
        const W w = classSum<W>(corrected);
        weight[l] = double(w);
        weightSum += double(w);
        for (size_t c = 0; c < K; ++c) d[l * K + c] = double(corrected[c] / w) - mean[c];
    }
    for (double& w : weight) w = std::sqrt(std::max(w / weightSum, 0.0));
    // S = A A' with column l of A = d(l) w(l); upper triangle, K by K.
    const int n = blas::detail::wholeCount(K);
    Scratch<double, Memory> S(K * K, Heap::worker), eigenvalues(K, Heap::worker);
    std::fill(S.get(), S.get() + K * K, 0.0);
    for (size_t j = 0; j < K; ++j)
        for (size_t i = 0; i <= j; ++i) {
            double s = 0;
            for (size_t l = 0; l < L; ++l) s += d[l * K + i] * weight[l] * (d[l * K + j] * weight[l]);
            S.get()[i + j * K] = s;
        }
    int info = 0, lwork = -1;
    double query = 0;
    dsyev_("V", "U", &n, S.get(), &n, eigenvalues.get(), &query, &lwork, &info, 1, 1);
    lwork = std::max(3 * n + 1, int(query));
    Scratch<double, Memory> work(size_t(lwork), Heap::worker);
    dsyev_("V", "U", &n, S.get(), &n, eigenvalues.get(), work.get(), &lwork, &info, 1, 1);
    if (info < 0) ndErrMsgId(ids::BadDSYEVXInput());
    if (info > 0) {
        ndWarningMsgId(ids::BadDSYEVXOutput());
        return std::nullopt;
    }
    // Eigenvalues come ascending: the first of the largest equal ones.
    size_t top = K - 1;
    while (top > 0 && eigenvalues.get()[top - 1] == eigenvalues.get()[K - 1]) --top;
    const double* v = S.get() + top * K;
    std::vector<double> score(L);
    for (size_t l = 0; l < L; ++l) {
        double s = 0;
        for (size_t c = 0; c < K; ++c) s += d[l * K + c] * v[c];
        score[l] = s;
    }
    std::vector<size_t> order(L);
    std::iota(order.begin(), order.end(), size_t(0));
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return score[a] < score[b]; });
    if (verbose_ > 3) {
        hostPrintf("Category scores:\n");
        for (size_t l : order) hostPrintf("    category %i   score %g\n", int(l), score[l]);
    }
    W best = std::numeric_limits<W>::max();
    std::optional<size_t> bestPosition;
    std::vector<W> left(K, W(0)), trial(K), right(K);
    uint64_t leftCount = 0;
    for (size_t k = 0; k + 1 < L; ++k) {
        addLevel(left, order[k]);
        leftCount += levels_.sizes[order[k]];
        if (leftCount < minLeaf_ || totalRows_ - leftCount < minLeaf_) continue;
        trial = left;
        const W value = kidsOf(trial, right);
        if (value < best) best = value, bestPosition = k;
    }
    if (!bestPosition) return std::nullopt;
    NominalSplit<W> split;
    split.value = best;
    prefixSplit(order, *bestPosition, {}, split.left, split.right);
    return split;
}

template <class X, class W>
std::optional<NominalSplit<W>> ClassificationNominalSplitFinder<X, W>::ovaByClass() const {
    const size_t L = levels_.size();
    W best = std::numeric_limits<W>::max();
    std::optional<std::pair<size_t, size_t>> bestAt;
    std::vector<W> left(K_), right(K_);
    for (size_t c = 0; c < K_; ++c) {
        const auto& order = levels_.order[c];
        std::fill(left.begin(), left.end(), W(0));
        uint64_t leftCount = 0;
        for (size_t k = 0; k < order.size() && k + 1 < L; ++k) {
            addLevel(left, order[k]);
            leftCount += levels_.sizes[order[k]];
            const uint64_t rightCount = totalRows_ - leftCount;
            if (verbose_ > 3) hostPrintf("Nbelow=%i Nabove=%i\n", int(leftCount), int(rightCount));
            if (leftCount < minLeaf_ || rightCount < minLeaf_) continue;
            std::vector<W> corrected(K_);
            criterion_.correct(left, corrected);
            for (size_t e = 0; e < K_; ++e) right[e] = correctedTotal_[e] - corrected[e];
            if (verbose_ > 3) {
                hostPrintf("Pbelow:");
                for (W p : corrected) hostPrintf("   %g", double(p));
                hostPrintf("\n");
                hostPrintf("Pabove:");
                for (W p : right) hostPrintf("   %g", double(p));
                hostPrintf("\n");
            }
            if (!(classSum<W>(corrected) > 0) || !(classSum<W>(right) > 0)) continue;
            const W value = criterion_.kids(corrected, right);
            if (value < best) best = value, bestAt = std::pair{c, k};
        }
    }
    if (!bestAt) return std::nullopt;
    if (verbose_ > 3) hostPrintf("bestK=%i bestL=%i\n", int(bestAt->first), int(bestAt->second));
    const auto& order = levels_.order[bestAt->first];
    std::vector<uint8_t> listed(L, 0);
    for (size_t l : order) listed[l] = 1;
    std::vector<size_t> others;
    for (size_t l = 0; l < L; ++l)
        if (!listed[l]) others.push_back(l);
    NominalSplit<W> split;
    split.value = best;
    prefixSplit(order, bestAt->second, std::move(others), split.left, split.right);
    return split;
}

}  // namespace zv::classregtree

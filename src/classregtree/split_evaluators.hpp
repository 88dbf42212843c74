// The running state of one scan over a column's candidates: rows (or whole
// bins) move from the right child to the left one, and each candidate costs
// K or three operations, never a pass over rows.
#pragma once

#include <cstdint>
#include <vector>

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

// What `evaluate` says about the two children.
enum class KidsState { LeftEmpty = 0, RightEmpty = 1, Valid = 2 };

template <class W>
class ClassificationSplitCriterionEvaluator {
public:
    ClassificationSplitCriterionEvaluator(const ClassificationSplitCriterion<W>& criterion, const uint64_t* classIndex,
                                          const W* weights, std::span<const W> total)
        : classIndex_(classIndex), weights_(weights), left_(total.size(), W(0)), correctedTotal_(total.size()),
          correctedLeft_(total.size()), right_(total.size()), criterion_(criterion) {
        criterion.correct(total, correctedTotal_);
    }

    void add(const uint64_t* first, const uint64_t* last) {
        for (; first != last; ++first) left_[classIndex_[*first]] += weights_[*first];
    }
    // A whole bin: its class weights.
    void addClassWeights(const W* classWeights) {
        for (size_t c = 0; c < left_.size(); ++c) left_[c] += classWeights[c];
    }
    void reset() { std::fill(left_.begin(), left_.end(), W(0)); }

    KidsState evaluate(W& out) {
        criterion_.correct(left_, correctedLeft_);
        if (!(classSum<W>(correctedLeft_) > 0)) return KidsState::LeftEmpty;
        for (size_t c = 0; c < right_.size(); ++c) right_[c] = correctedTotal_[c] - correctedLeft_[c];
        if (!(classSum<W>(right_) > 0)) return KidsState::RightEmpty;
        out = criterion_.kids(correctedLeft_, right_);
        return KidsState::Valid;
    }

private:
    const uint64_t* classIndex_;
    const W* weights_;
    std::vector<W> left_, correctedTotal_, correctedLeft_, right_;
    const ClassificationSplitCriterion<W>& criterion_;
};

// Sums of w, w*y and w*y*y; the two-child value is the closed form of the
// weighted squares about each child's mean.
template <class W>
class RegressionSplitCriterionEvaluator {
public:
    RegressionSplitCriterionEvaluator(const W* weights, const W* wy, W totalW, W totalWY, W totalWY2)
        : weights_(weights), wy_(wy), totalW_(totalW), totalWY_(totalWY), totalWY2_(totalWY2) {}

    void add(const uint64_t* first, const uint64_t* last) {
        for (; first != last; ++first) addSums(weights_[*first], wy_[2 * *first], wy_[2 * *first + 1]);
    }
    void addSums(W w, W wy, W wy2) {
        leftW_ += w;
        leftWY_ += wy;
        leftWY2_ += wy2;
    }
    void reset() { leftW_ = leftWY_ = leftWY2_ = 0; }

    KidsState evaluate(W& out) const {
        if (!(leftW_ > 0)) return KidsState::LeftEmpty;
        const W rightW = totalW_ - leftW_;
        if (!(rightW > 0)) return KidsState::RightEmpty;
        const W a = totalWY_ - leftWY_;
        out = (totalWY2_ - leftWY2_ - a * (a / rightW)) + (leftWY2_ - (leftWY_ / leftW_) * leftWY_);
        return KidsState::Valid;
    }

private:
    const W* weights_;
    const W* wy_;
    W totalW_, totalWY_, totalWY2_;
    W leftW_ = 0, leftWY_ = 0, leftWY2_ = 0;
};

}  // namespace zv::classregtree

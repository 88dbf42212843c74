// Wraps a criterion so that it sees class weights scaled by each class's
// average misclassification cost (factors of mean 1).
#pragma once

#include <memory>
#include <vector>

#include "classregtree/criteria/cost.hpp"

namespace zv::classregtree {

template <class W>
class AverageCostCorrection final : public ClassificationSplitCriterion<W> {
public:
    AverageCostCorrection(std::unique_ptr<ClassificationSplitCriterion<W>> inner, CostView cost)
        : inner_(std::move(inner)), averageCost_(cost.rows) {
        W total = 0;
        for (size_t i = 0; i < cost.rows; ++i) {
            W rowSum = 0;
            for (size_t j = 0; j < cost.columns; ++j) rowSum += W(cost(i, j));
            averageCost_[i] = rowSum;
            total += rowSum;
        }
        for (W& a : averageCost_) a = a / total * W(cost.rows);
    }
    void correct(std::span<const W> in, std::span<W> out) const override {
        // A class past the matrix keeps its weight.
        for (size_t i = 0; i < in.size(); ++i) out[i] = i < averageCost_.size() ? in[i] * averageCost_[i] : in[i];
    }
    W parent(std::span<const W> p) const override { return inner_->parent(p); }
    W kids(std::span<const W> left, std::span<const W> right) const override { return inner_->kids(left, right); }
    bool hasParentValue() const override { return inner_->hasParentValue(); }
    bool isThreadSafe() const override { return inner_->isThreadSafe(); }
    void restrictToClasses(std::span<const uint64_t> classes, uint64_t numClasses) override {
        std::vector<W> kept(classes.size());
        for (size_t i = 0; i < classes.size(); ++i)
            kept[i] = classes[i] < averageCost_.size() ? averageCost_[classes[i]] : W(1);
        averageCost_ = std::move(kept);
        inner_->restrictToClasses(classes, numClasses);
    }

private:
    std::unique_ptr<ClassificationSplitCriterion<W>> inner_;
    std::vector<W> averageCost_;
};

}  // namespace zv::classregtree

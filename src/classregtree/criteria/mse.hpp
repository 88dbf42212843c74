// Weighted sum of squares about the node's weighted mean (not divided by the
// weight), the regression criterion.
#pragma once

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

template <class Y, class W>
class MSE final : public RegressionSplitCriterion<Y, W> {
public:
    using typename RegressionSplitCriterion<Y, W>::Rows;
    W parent(const Y* y, const W* w, Rows rows) const override {
        if (rows.empty()) return 0;
        W sumWY = 0, sumW = 0;
        for (uint64_t r : rows) {
            sumWY += W(y[r]) * w[r];
            sumW += w[r];
        }
        return parentAboutMean(y, w, rows, sumWY / sumW);
    }
    W parentAboutMean(const Y* y, const W* w, Rows rows, W mean) const override {
        W s = 0;
        for (uint64_t r : rows) {
            const W d = W(y[r]) - mean;
            s += d * (w[r] * d);
        }
        return s;
    }
    W kids(const Y* y, const W* w, Rows left, Rows right) const override {
        return parent(y, w, left) + parent(y, w, right);
    }
    bool hasParentValue() const override { return true; }
    bool isThreadSafe() const override { return true; }
};

}  // namespace zv::classregtree

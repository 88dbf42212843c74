// Misclassification cost: the expected cost of the cheapest prediction, with
// C(i, j) the cost of predicting j for true class i.
#pragma once

#include <algorithm>
#include <limits>
#include <vector>

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

// A square cost matrix, column-major, borrowed from the caller.
struct CostView {
    const double* data = nullptr;
    size_t rows = 0, columns = 0;
    // Classes the matrix does not cover cost nothing: a class vector longer
    // than the matrix is never read past its end.
    double operator()(size_t i, size_t j) const {
        return i < rows && j < columns ? data[i + j * rows] : 0.0;
    }
};

template <class W>
class Cost final : public ClassificationSplitCriterion<W> {
public:
    explicit Cost(CostView cost) : cost_(cost) {}
    W parent(std::span<const W> p) const override {
        W best = std::numeric_limits<W>::infinity();
        const size_t predictions = std::max(cost_.columns, size_t(1));
        for (size_t j = 0; j < predictions; ++j) {
            W r = 0;
            for (size_t i = 0; i < p.size(); ++i) r += p[i] * W(cost_(classes_.empty() ? i : classes_[i], j));
            best = std::min(best, r);
        }
        return best;
    }
    // Every prediction stays open, also of a class without rows.
    void restrictToClasses(std::span<const uint64_t> classes, uint64_t) override {
        classes_.assign(classes.begin(), classes.end());
    }

private:
    CostView cost_;
    std::vector<uint64_t> classes_;
};

}  // namespace zv::classregtree

// Twoing: a node has no value of its own; two children score the squared L1
// distance of their class distributions, negated so that smaller is better.
#pragma once

#include <cmath>

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

template <class W>
class Twoing final : public ClassificationSplitCriterion<W> {
public:
    W parent(std::span<const W>) const override { return 0; }
    W kids(std::span<const W> left, std::span<const W> right) const override {
        const W pl = classSum(left), pr = classSum(right);
        W d = 0;
        for (size_t i = 0; i < left.size(); ++i) d += std::abs(left[i] / pl - right[i] / pr);
        return pr * (-pl) * d * d * W(0.25);
    }
    bool hasParentValue() const override { return false; }
};

}  // namespace zv::classregtree

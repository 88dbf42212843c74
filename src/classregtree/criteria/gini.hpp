// Gini diversity index, scaled by the node's weight.
#pragma once

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

template <class W>
class Gini final : public ClassificationSplitCriterion<W> {
public:
    W parent(std::span<const W> p) const override {
        const W s = classSum(p);
        if (!(s != 0)) return 0;  // no weight: a node without rows is not impure
        W sumSquares = 0;
        for (W v : p) {
            const W q = v / s;
            sumSquares += q * q;
        }
        return s * (W(1) - sumSquares);
    }
};

}  // namespace zv::classregtree

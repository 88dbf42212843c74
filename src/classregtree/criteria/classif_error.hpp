// Misclassification weight: what a majority vote in the node gets wrong.
#pragma once

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

template <class W>
class ClassifError final : public ClassificationSplitCriterion<W> {
public:
    W parent(std::span<const W> p) const override {
        W s = 0, largest = 0;
        for (size_t i = 0; i < p.size(); ++i) {
            s += p[i];
            if (i == 0 || p[i] > largest) largest = p[i];
        }
        return s - largest;
    }
};

}  // namespace zv::classregtree

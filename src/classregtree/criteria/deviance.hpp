// Cross-entropy over 2 ln 2, so that two equal classes give half the weight,
// the same as the Gini index.
#pragma once

#include <cmath>

#include "classregtree/criteria/split_criterion.hpp"

namespace zv::classregtree {

template <class W>
class Deviance final : public ClassificationSplitCriterion<W> {
public:
    W parent(std::span<const W> p) const override {
        const W s = classSum(p);
        W entropy = 0;
        for (W v : p) {
            const W q = v / s;
            if (q > 0) entropy -= q * W(std::log(double(q)));
        }
        return s * entropy / kTwoLn2;
    }

private:
    static constexpr W kTwoLn2 = W(1.3862943611198906);
};

}  // namespace zv::classregtree

// The two criterion interfaces of tree growth: how bad a node is (`parent`)
// and how bad two children are together (`kids`); a split's gain is the one
// minus the other. A class vector holds one weight or probability per class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace zv::classregtree {

template <class W>
class ClassificationSplitCriterion {
public:
    virtual ~ClassificationSplitCriterion() = default;
    // The class vector as the criterion sees it; `in` and `out` may be one vector.
    virtual void correct(std::span<const W> in, std::span<W> out) const {
        if (in.data() != out.data())
            for (size_t i = 0; i < in.size(); ++i) out[i] = in[i];
    }
    virtual W parent(std::span<const W> p) const = 0;
    virtual W kids(std::span<const W> left, std::span<const W> right) const {
        return parent(left) + parent(right);
    }
    virtual bool hasParentValue() const { return true; }
    // False when the criterion calls into the host: growth then stays on the calling thread.
    virtual bool isThreadSafe() const { return true; }
    // From now on class vectors hold only `classes` (ascending, out of
    // `numClasses`): a tree works on the classes its rows have, whatever the
    // largest class index is. Criteria that ignore classes of no weight
    // need not do anything.
    virtual void restrictToClasses(std::span<const uint64_t> classes, uint64_t numClasses) {
        (void)classes;
        (void)numClasses;
    }
};

template <class Y, class W>
class RegressionSplitCriterion {
public:
    using Rows = std::span<const uint64_t>;
    virtual ~RegressionSplitCriterion() = default;
    virtual W parent(const Y* y, const W* w, Rows rows) const = 0;
    virtual W parentAboutMean(const Y* y, const W* w, Rows rows, W mean) const = 0;
    virtual W kids(const Y* y, const W* w, Rows left, Rows right) const = 0;
    virtual bool hasParentValue() const = 0;
    virtual bool isThreadSafe() const = 0;
};

// Sum of a class vector, in class order.
template <class W>
W classSum(std::span<const W> p) {
    W s = 0;
    for (W v : p) s += v;
    return s;
}

}  // namespace zv::classregtree

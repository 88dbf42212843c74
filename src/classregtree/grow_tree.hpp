// One tree grown from host arrays: what the gateway parsed, and the typed
// driver (one instantiation per class of predictors, response and weights).
#pragma once

#include <string>
#include <vector>

#include "classregtree/criteria/criteria_factory.hpp"
#include "classregtree/tree.hpp"
#include "host/ndarray.hpp"

namespace zv::classregtree {

struct GrowTreeCall {
    const ndArray *x, *y, *w, *rows, *isCategorical, *numBins, *cost, *stream;
    CriterionKind criterion;
    std::string parentFunction, kidsFunction;
    TreeOptions options;
    uint64_t N, P;
};

template <class X, class Y, class W>
void growTreeTyped(const GrowTreeCall& call, int numOutputs, ndArray** outputs);

#define ZV_GROW_TREE_INSTANCES(EXTERN, X)                                                              \
    EXTERN template void growTreeTyped<X, double, double>(const GrowTreeCall&, int, ndArray**);      \
    EXTERN template void growTreeTyped<X, double, float>(const GrowTreeCall&, int, ndArray**);       \
    EXTERN template void growTreeTyped<X, float, double>(const GrowTreeCall&, int, ndArray**);       \
    EXTERN template void growTreeTyped<X, float, float>(const GrowTreeCall&, int, ndArray**);
ZV_GROW_TREE_INSTANCES(extern, double)
ZV_GROW_TREE_INSTANCES(extern, float)
ZV_GROW_TREE_INSTANCES(extern, int)

}  // namespace zv::classregtree

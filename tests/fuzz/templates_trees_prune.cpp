// Fuzz templates: prune information of a small tree record.
#include "fuzz/fuzz.hpp"

namespace {

using namespace zvfuzz;

// Seven nodes: the root with branches 1 and 2, node 1 with a branch 3; two
// classes, node 1 flagged as having lost rows.
template <class T>
std::vector<Owned> pruneCall(const char* criterion, bool withCost, double verbose) {
    return args(dense<T>(2, 7, {0.5, 0.5, 0.8, 0.2, 0.1, 0.9, 0.9, 0.1, 0.5, 0.5, 1, 0, 0, 1}),
                withCost ? dense<double>(2, 2, {0, 2, 1, 0}) : dense<double>(0, 0),
                dense<T>(7, 1, {1, 0.5, 0.5, 0.2, 0.2, 0.1, 0.1}),
                dense<T>(7, 1, {0.5, 0.2, 0.09, 0.09, 0.1, 0, 0}),
                logicals({false, true, false, false, false, false, false}),
                dense<double>(2, 7, {2, 3, 4, 5, 0, 0, 6, 7, 0, 0, 0, 0, 0, 0}), text(criterion), scalar(verbose));
}

ZV_FUZZ_TEMPLATES("classregtree::computePruneInfo", pruneInfo) {
    t.add("double, given risks", 2, [] { return pruneCall<double>("", false, 0); });
    t.add("single, given risks, verbose", 2, [] { return pruneCall<float>("", false, 1); });
    t.add("double, gini", 1, [] { return pruneCall<double>("gini", false, 0); });
    t.add("single, deviance with costs", 2, [] { return pruneCall<float>("deviance", true, 0); });
    t.add("double, error with costs, verbose", 2, [] { return pruneCall<double>("error", true, 1); });
}

}  // namespace

// Fuzz templates: tree lookup on a five-node record in double, single and
// binned int32, with and without prune levels, surrogates and a nominal split.
#include <limits>

#include "fuzz/fuzz.hpp"

namespace {

using namespace zvfuzz;

template <class T>
Owned row(std::initializer_list<double> values) {
    std::vector<T> v;
    for (double x : values) v.push_back(T(x));
    return dense<T>(1, v.size(), v);
}

// Node 1 splits predictor 1, node 3 predictor 2 (nominal when asked); nodes
// 2, 4 and 5 are leaves. Eight rows of two predictors, one of them NaN.
template <class T>
std::vector<Owned> lookup(bool binned, bool prune, bool surrogates, bool nominal, double verbose = 0) {
    const double missing = std::is_integral_v<T> ? 1 : std::numeric_limits<double>::quiet_NaN();
    Owned x = dense<T>(8, 2, std::vector<T>{T(0), T(1), T(2), T(3), T(missing), T(1), T(2), T(0),
                                            T(1), T(2), T(0), T(1), T(2), T(3), T(1), T(2)});
    Owned categories(ndCreateCellMatrix(5, 2));
    if (nominal) {
        ndSetCell(categories.get(), 2, row<T>({1}).release());
        ndSetCell(categories.get(), 7, row<T>({2, 3}).release());
    }
    auto perNode = [](auto make) {
        std::vector<Owned> v;
        for (int u = 0; u < 5; ++u) v.push_back(u == 0 ? make() : dense<double>(1, 0));
        return cell(std::move(v));
    };
    Owned flips = perNode([] { return row<double>({-1, 1}); });
    Owned predictors = surrogates ? perNode([] { return row<double>({2, 1}); }) : cell({});
    Owned bins = perNode([] { return cell(args(row<double>({1, 2}), row<double>({2, 3}))); });
    Owned cuts = perNode([] { return row<T>({1.5, 2.5}); });
    Owned surrogateCategories = perNode([] { return cell(args(text(""), text(""))); });
    Owned isCategorical = logicals({false, nominal});
    return args(std::move(x), dense<double>(1, 3, {0, 1, 5}),
                prune ? dense<double>(5, 1, {2, 0, 1, 0, 0}) : empty(),
                dense<double>(2, 5, {2, 3, 0, 0, 4, 5, 0, 0, 0, 0}), std::move(isCategorical),
                dense<double>(5, 1, {1, 0, 2, 0, 0}),
                binned ? dense<T>(5, 2, std::vector<T>{T(2), T(0), T(1), T(0), T(0), T(3), T(0), T(2), T(0), T(0)})
                       : dense<T>(0, 0),
                dense<T>(5, 1, std::vector<T>{T(1.5), T(0), T(1.5), T(0), T(0)}), std::move(categories),
                std::move(flips), std::move(predictors), std::move(bins), std::move(cuts),
                std::move(surrogateCategories), scalar(verbose));
}

ZV_FUZZ_TEMPLATES("classregtree::findNode", findNode) {
    t.add("double, pruned, surrogates", 1, [] { return lookup<double>(false, true, true, false); });
    t.add("double, nominal, debug text", 1, [] { return lookup<double>(false, false, true, true, 2); });
    t.add("single, pruned", 1, [] { return lookup<float>(false, true, false, false); });
    t.add("single, nominal surrogates", 1, [] { return lookup<float>(false, true, true, true); });
    t.add("binned int32, surrogates", 1, [] { return lookup<int32_t>(true, true, true, false); });
    t.add("binned double", 1, [] { return lookup<double>(true, false, false, false, 1); });
}

}  // namespace

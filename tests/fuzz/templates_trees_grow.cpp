// Fuzz templates: tree growth, classification and regression, over double,
// single and binned predictors.
#include <cmath>

#include "fuzz/fuzz.hpp"
#include "support/grow_tree_call.hpp"

namespace {

using namespace zvfuzz;

zvtest::GrowTreeInputs smallTree(ndClassID xClass, bool regression) {
    zvtest::GrowTreeInputs in;
    in.xClass = xClass;
    in.N = 12;
    in.P = 3;
    for (size_t i = 0; i < in.N * in.P; ++i) in.x.push_back(double((i * 7) % 11) - (i % 5 == 0 && !regression ? 0.5 : 0));
    for (size_t i = 0; i < in.N; ++i) in.y.push_back(regression ? double(i % 4) * 1.5 : double((i / 4) % 3));
    if (xClass == ndINT32_CLASS) in.numBins = {11, 11, 0};
    in.criterion = regression ? "mse" : "gini";
    return in;
}

ZV_FUZZ_TEMPLATES("classregtree::growTree", growTree) {
    t.add("classification, double", 24, [] { return smallTree(ndDOUBLE_CLASS, false).build(); });
    t.add("regression, single, 2 predictors sampled", 17, [] {
        auto in = smallTree(ndSINGLE_CLASS, true);
        in.yClass = in.wClass = ndSINGLE_CLASS;
        in.numVarsToSample = 2;
        in.relativeTolerance = 0.01;
        return in.build();
    });
    t.add("binned, deviance with costs, budget 2", 8, [] {
        auto in = smallTree(ndINT32_CLASS, false);
        in.criterion = "deviance";
        in.cost = {0, 1, 2, 1, 0, 1, 2, 1, 0};
        in.maxSplits = 2;
        return in.build();
    });
    for (double algCat : {0.0, 3.0})
        t.add("categorical, three classes, method " + std::to_string(int(algCat)), 5, [=] {
            auto in = smallTree(ndDOUBLE_CLASS, false);
            in.categorical = {true, false, true};
            auto args = in.build();
            args[13] = scalar(algCat == 0 ? 10 : 2);  // levels searched exhaustively up to
            args[14] = scalar(algCat);
            return args;
        });
    t.add("categorical regression, single", 24, [] {
        auto in = smallTree(ndSINGLE_CLASS, true);
        in.categorical = {true, true, false};
        return in.build();
    });
    t.add("surrogates, missing values, categorical", 24, [] {
        auto in = smallTree(ndDOUBLE_CLASS, false);
        in.categorical = {false, true, false};
        in.numSurrogates = 2;
        in.x[2] = in.x[12 + 5] = in.x[24 + 7] = std::nan("");
        return in.build();
    });
    t.add("quartile search, twoing, serial", 16, [] {
        auto in = smallTree(ndDOUBLE_CLASS, false);
        in.criterion = "twoing";
        in.quartileSearch = true;
        in.minLeaf = 0;
        in.serial = true;
        return in.build();
    });
}

}  // namespace

// growTree: the record's shapes and classes, the split budget against the
// full tree, and the invariances a tree must keep (threads, serial, verbose,
// custom criterion, precision, binning, repeated rows).
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "support/gateways.hpp"
#include "support/grow_tree_call.hpp"
#include "zvhost/control.hpp"

namespace {

using zvhost::Owned;
using zvtest::GrowTreeInputs;
using Record = std::vector<Owned>;

Record grow(const GrowTreeInputs& in, int numOutputs = 24) { return zvtest::growTreeOn(in.build(), numOutputs); }

// Any numeric field as doubles.
std::vector<double> field(const Record& r, int k) {
    const ndArray* a = r[k].get();
    std::vector<double> v(ndGetNumberOfElements(a));
    for (size_t i = 0; i < v.size(); ++i) {
        switch (ndGetClassID(a)) {
        case ndDOUBLE_CLASS: v[i] = static_cast<const double*>(ndGetData(a))[i]; break;
        case ndSINGLE_CLASS: v[i] = static_cast<const float*>(ndGetData(a))[i]; break;
        case ndINT32_CLASS: v[i] = static_cast<const int32_t*>(ndGetData(a))[i]; break;
        default: v[i] = ndGetLogicals(a)[i];
        }
    }
    return v;
}

size_t numNodes(const Record& r) { return ndGetN(r[0].get()); }

// The shape of a tree: children, split predictors, sizes, weights.
void expectSameTree(const Record& a, const Record& b, bool cutsToo = true) {
    for (int k : {0, 7, 10, 13, 14}) zvtest::expectBitEqual(field(a, k), field(b, k));
    if (cutsToo) zvtest::expectBitEqual(field(a, 5), field(b, 5));
    const auto ga = field(a, 16), gb = field(b, 16);
    ASSERT_EQ(ga.size(), gb.size());
    for (size_t i = 0; i < ga.size(); ++i) EXPECT_NEAR(ga[i], gb[i], 1e-5 * (1 + std::abs(ga[i])));
}

// Distinct values on a grid that single precision holds exactly; two noisy classes.
GrowTreeInputs twoClasses(size_t N = 400, size_t P = 4, unsigned seed = 5) {
    GrowTreeInputs in;
    in.N = N;
    in.P = P;
    std::mt19937 gen(seed);
    for (size_t p = 0; p < P; ++p) {
        std::vector<double> column(N);
        std::iota(column.begin(), column.end(), 0.0);
        std::shuffle(column.begin(), column.end(), gen);
        for (double v : column) in.x.push_back(v * 0.25);
    }
    std::uniform_int_distribution<int> noise(0, 9), weight(1, 4);
    for (size_t i = 0; i < N; ++i) {
        const bool above = in.x[i] + (P > 1 ? in.x[N + i] * 0.5 : 0.0) > double(N) * 0.2;
        in.y.push_back(double(above != (noise(gen) == 0)));
        in.w.push_back(weight(gen) * 0.25);
    }
    return in;
}

TEST(GrowTree, RecordShapesAndClasses) {
    zvtest::LeakCheck leaks;
    const Record r = grow(twoClasses());
    const size_t n = numNodes(r);
    ASSERT_GT(n, 3u);
    const std::vector<std::pair<int, std::array<size_t, 2>>> shapes = {
        {0, {2, n}}, {1, {2, n}}, {2, {2, n}}, {3, {0, 0}}, {4, {n, 2}}, {5, {n, 1}}, {6, {n, 0}}, {7, {n, 1}},
        {8, {n, 1}}, {9, {0, 0}}, {10, {n, 1}}, {11, {n, 1}}, {15, {n, 1}}, {16, {n, 1}}, {17, {0, 0}}, {23, {0, 0}}};
    for (const auto& [k, dims] : shapes) {
        EXPECT_EQ(ndGetM(r[k].get()), dims[0]) << "field " << k;
        EXPECT_EQ(ndGetN(r[k].get()), dims[1]) << "field " << k;
    }
    EXPECT_EQ(ndGetClassID(r[4].get()), ndCELL_CLASS);
    EXPECT_EQ(ndGetCell(r[4].get(), 0), nullptr);  // no categorical splits: empty elements
    EXPECT_EQ(ndGetClassID(r[8].get()), ndLOGICAL_CLASS);
    // Classification values, risks and gains are double whatever the inputs.
    auto in = twoClasses();
    in.xClass = in.yClass = in.wClass = ndSINGLE_CLASS;
    const Record single = grow(in, 17);
    ASSERT_EQ(single.size(), 17u);
    for (int k : {11, 15, 16}) EXPECT_EQ(ndGetClassID(single[k].get()), ndDOUBLE_CLASS);
    for (int k : {2, 5, 12}) EXPECT_EQ(ndGetClassID(single[k].get()), ndSINGLE_CLASS);
    expectSameTree(r, single);  // data and weights single precision holds exactly
    // Regression: single unless response and weights both are double.
    in.criterion = "mse";
    in.yClass = ndDOUBLE_CLASS;
    for (int k : {11, 15, 16}) EXPECT_EQ(ndGetClassID(grow(in)[k].get()), ndSINGLE_CLASS);
    in.xClass = in.wClass = ndDOUBLE_CLASS;
    for (int k : {11, 15, 16}) EXPECT_EQ(ndGetClassID(grow(in)[k].get()), ndDOUBLE_CLASS);
}

TEST(GrowTree, TreeWithoutSplitAndBadCalls) {
    auto in = twoClasses(10, 2);
    in.minLeaf = std::ldexp(1.0, 63);  // twice it overflowed into a search past the rows
    EXPECT_EQ(numNodes(grow(in)), 1u);
    in.minLeaf = 1;
    in.maxSplits = 0;
    const Record stump = grow(in);
    ASSERT_EQ(numNodes(stump), 1u);
    EXPECT_EQ(field(stump, 0), (std::vector<double>{0, 0}));
    EXPECT_EQ(field(stump, 7), std::vector<double>{0});
    EXPECT_EQ(field(stump, 14), std::vector<double>{0});
    // Two classes of equal weight: the lower one is the node's class.
    in.y = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
    in.w.assign(10, 1.0);
    EXPECT_EQ(field(grow(in), 11), std::vector<double>{0});
    // A class index of 2^22 costs nothing but the record's class rows; without
    // weight every class is as likely, and the first one is the node's.
    in.y[3] = std::ldexp(1.0, 22);
    in.w.assign(10, 0.0);
    const Record weightless = grow(in);
    EXPECT_EQ(field(weightless, 11), std::vector<double>{0});
    EXPECT_EQ(ndGetM(weightless[1].get()), (size_t(1) << 22) + 1);
    EXPECT_TRUE(std::isnan(field(weightless, 2)[5]));  // a class without rows: 0 over no weight
    in.w.assign(10, 1.0);
    in.y[3] = 1;
    // No rows: a single root of no weight, whose regression value is NaN.
    in.rows = {-1, 10, std::nan("")};
    in.criterion = "mse";
    in.maxSplits = 5;
    const Record none = grow(in);
    ASSERT_EQ(numNodes(none), 1u);
    EXPECT_TRUE(std::isnan(field(none, 11)[0]));
    const std::string ids = "stats:classreg:learning:treeutils:";
    const auto args = twoClasses(10, 2).build();
    std::vector<const ndArray*> raw;
    for (const auto& a : args) raw.push_back(a.get());
    EXPECT_EQ(zvtest::raisedId([&] { zvhost::call(classregtree::growTree, 25, raw); }),
              ids + "growTree:BadNumberOfOutputArgs");
    raw.pop_back();
    EXPECT_EQ(zvtest::raisedId([&] { zvhost::call(classregtree::growTree, 1, raw); }),
              ids + "growTree:BadNumberOfInputArgs");
    in.criterion = "entropy";
    EXPECT_EQ(zvtest::raisedId([&] { grow(in); }), ids + "SplitCriteriaFactory:make:BadCriterion");
}

// A budget keeps the largest gains of the last layer it reaches: the result
// is the full tree with that layer cut, renumbered.
TEST(GrowTree, SplitBudgetCutsTheFullTreeLayerByLayer) {
    auto in = twoClasses(300, 3, 9);
    in.minLeaf = 5;
    const Record full = grow(in);
    const auto children = field(full, 0), gains = field(full, 16), sizes = field(full, 13);
    for (double budget : {0.0, 1.0, 2.0, 3.0, 5.0, 8.0}) {
        // Walk the full tree's layers, keeping the best splits within the budget.
        std::vector<size_t> layer{0}, expectedSizes{size_t(sizes[0])};
        size_t left = size_t(budget);
        while (!layer.empty() && left > 0) {
            std::vector<size_t> branches;
            for (size_t u : layer)
                if (children[2 * u] != 0) branches.push_back(u);
            std::stable_sort(branches.begin(), branches.end(), [&](size_t a, size_t b) { return gains[a] > gains[b]; });
            if (branches.size() > left) branches.resize(left);
            std::sort(branches.begin(), branches.end());
            left -= branches.size();
            std::vector<size_t> next;
            for (size_t u : branches)
                for (int side : {0, 1}) {
                    next.push_back(size_t(children[2 * u + side]) - 1);
                    expectedSizes.push_back(size_t(sizes[next.back()]));
                }
            layer = next;
        }
        in.maxSplits = budget;
        const auto got = field(grow(in), 13);
        EXPECT_EQ(std::vector<size_t>(got.begin(), got.end()), expectedSizes) << "budget " << budget;
    }
}

TEST(GrowTree, SameTreeOnAnyPath) {
    auto in = twoClasses(600, 5, 3);
    const Record base = zvtest::withThreads(2, [&] { return grow(in); });
    expectSameTree(base, zvtest::withThreads(1, [&] { return grow(in); }));
    in.serial = true;
    expectSameTree(base, grow(in));
    in.serial = false;
    {
        zvhost::ConsoleCapture console;
        in.verbose = 4;
        expectSameTree(base, grow(in));
        const std::string text = console.text();
        for (const char* line : {"\nProcessing layer 0 with maximal number of splits 1...\n", "    Splitting node 0...\n",
                                 "  NodeRisk = ", "Performing exhaustive search on variable 4...\n", "critFromKids",
                                 "    Found 1 split candidates.\n"})
            EXPECT_NE(text.find(line), std::string::npos) << line;
        in.verbose = 0;
    }
    // A host-function criterion computing the Gini index grows the same tree, serially.
    zvhost::registerFunction("giniOfColumn", [](int, ndArray** out, int, const ndArray** args) {
        const double* p = static_cast<const double*>(ndGetData(args[0]));
        const size_t K = ndGetNumberOfElements(args[0]);
        double s = 0, q2 = 0;
        for (size_t i = 0; i < K; ++i) s += p[i];
        for (size_t i = 0; i < K; ++i) q2 += (p[i] / s) * (p[i] / s);
        out[0] = ndCreateDoubleScalar(s > 0 ? s * (1 - q2) : 0);
    });
    in.customFunctions = {"giniOfColumn"};
    expectSameTree(base, grow(in));
    zvhost::unregisterFunction("giniOfColumn");
    in.customFunctions.clear();
    // A class without rows changes nothing but the record's class rows.
    for (double& y : in.y) y *= 2;
    const Record gap = grow(in);
    expectSameTree(base, gap);
    ASSERT_EQ(ndGetM(gap[1].get()), 3u);
    for (size_t u = 0; u < numNodes(gap); ++u) EXPECT_EQ(field(gap, 1)[3 * u + 1], 0.0);
    // A leaf of at least 0 rows is a leaf of at least one.
    for (double& y : in.y) y /= 2;
    in.minLeaf = 0;
    expectSameTree(base, grow(in));
}

TEST(GrowTree, RepeatedRowsWeighTwice) {
    // Every row twice, against every weight doubled: the same splits, twice the sizes.
    auto in = twoClasses(200, 3, 4);
    in.minParent = 4;
    in.minLeaf = 2;
    auto twice = in;
    twice.rows.clear();
    for (size_t i = 0; i < in.N; ++i) twice.rows.insert(twice.rows.end(), {double(i), double(i)});
    in.minParent = 2;
    in.minLeaf = 1;
    for (double& w : in.w) w *= 2;
    const Record a = grow(in), b = grow(twice);
    for (int k : {0, 5, 7}) zvtest::expectBitEqual(field(a, k), field(b, k));
    auto sizes = field(a, 13);
    for (double& s : sizes) s *= 2;
    EXPECT_EQ(sizes, field(b, 13));
}

TEST(GrowTree, BinnedCodesGiveTheTreeOfTheirValues) {
    auto raw = twoClasses(300, 3, 8);
    auto binned = raw;
    binned.xClass = ndINT32_CLASS;
    for (double& v : binned.x) v = v * 4;  // the grid's ranks are its bin codes
    binned.numBins.assign(3, 300);
    const Record a = grow(raw), b = grow(binned);
    expectSameTree(a, b, false);
    // Bins carry the split: field 6 holds the node's last left and first
    // right bin, 1-based, whose midpoint is the raw tree's cut.
    const auto cuts = field(a, 5), bins = field(b, 6);
    const size_t n = numNodes(b);
    ASSERT_EQ(bins.size(), 2 * n);
    for (size_t u = 0; u < n; ++u)
        if (!std::isnan(cuts[u])) EXPECT_EQ((bins[u] - 1 + bins[n + u] - 1) / 2, cuts[u] * 4) << u;
        else EXPECT_EQ(bins[u], 0.0);
    // Bins are counted over the codes present, not over every bin there could be.
    binned.numBins.assign(3, 1e12);
    expectSameTree(b, grow(binned));
    binned.numBins.assign(3, 300);
    // Codes outside the bins are missing values: the rows stay at the branch.
    binned.x[0] = -3;
    binned.x[1] = 300;
    const auto flags = field(grow(binned), 8);
    EXPECT_EQ(flags[0], 1.0);
}

TEST(GrowTree, MissingValuesAndRegressionThresholds) {
    // Root split on predictor 0 at 2.5; the NaN row goes to neither child.
    GrowTreeInputs in;
    in.N = 6;
    in.P = 1;
    in.x = {1, 2, 3, 4, std::nan(""), 5};
    in.y = {1, 1, 5, 5, 3, 5};
    in.criterion = "mse";
    Record r = grow(in);
    ASSERT_EQ(numNodes(r), 3u);
    EXPECT_EQ(field(r, 5)[0], 2.5);
    EXPECT_EQ(field(r, 8)[0], 1.0);
    EXPECT_EQ(field(r, 13), (std::vector<double>{6, 2, 3}));
    // The gain is measured against the share of the weight that has values:
    // the root's squares about 10/3 are 58/3, scaled by 5/6; both children are pure.
    EXPECT_NEAR(field(r, 15)[0], 58.0 / 3, 1e-12);
    EXPECT_NEAR(field(r, 16)[0], 58.0 / 3 * 5 / 6, 1e-12);
    // A risk equal to the threshold is still split; only a smaller one stops.
    in.relativeTolerance = 1;
    EXPECT_EQ(numNodes(grow(in)), 3u);
    in.relativeTolerance = 1.0000001;
    EXPECT_EQ(numNodes(grow(in)), 1u);
}

TEST(GrowTree, QuartileSearchCutsAtQuarters) {
    auto in = twoClasses(401, 1, 6);
    in.quartileSearch = true;
    in.maxSplits = 1;
    const auto sizes = field(grow(in), 13);
    ASSERT_EQ(sizes.size(), 3u);
    EXPECT_TRUE(sizes[1] == 101 || sizes[1] == 201 || sizes[1] == 301) << sizes[1];
}

TEST(GrowTree, ProbesInterruptAndTheNextCallWorks) {
    const auto in = twoClasses(100, 2);
    const Record base = grow(in);
    for (const char* probe : {"classregtree_ColumnOperator", "classregtree_ColumnSplitter",
                              "classregtree_Tree_inside_layer", "classregtree_Tree_after_layer_completed"}) {
        zvtest::LeakCheck leaks;
        zvhost::armProbe(probe);
        EXPECT_THROW(grow(in), zvhost::Interrupted) << probe;
        zvhost::disarmProbes();
        zvhost::clearInterrupt();
        expectSameTree(base, grow(in));
    }
}

TEST(GrowTree, PredictorSamplingFollowsTheStream) {
    auto in = twoClasses(300, 6, 2);
    in.numVarsToSample = 2;
    const Record a = grow(in), b = grow(in);
    expectSameTree(a, b);
    in.seed = 2;
    EXPECT_NE(field(a, 7), field(grow(in), 7));
}

}  // namespace

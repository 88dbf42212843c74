// Split criteria: values worked out by hand, the factory's products and the
// host-function criterion's identifiers.
#include <gtest/gtest.h>

#include <vector>

#include "classregtree/criteria/criteria_factory.hpp"
#include "support/gateways.hpp"
#include "zvhost/control.hpp"

namespace {

using namespace zv::classregtree;
using V = std::vector<double>;

double parentOf(const SplitCriteria<double, double>& c, const V& p) { return c.classification->parent(p); }

SplitCriteria<double, double> made(const char* name, const CostView* cost = nullptr) {
    return makeSplitCriteria<double, double>(parseCriterion(name), cost);
}

TEST(SplitCriteria, NodeValuesByHand) {
    // Pure nodes score 0; two equal classes of weight 4 score half of it in
    // all three, the deviance being scaled by 2 ln 2 for that.
    for (const char* name : {"gini", "gdi", "deviance", "error"}) {
        auto c = made(name);
        EXPECT_EQ(parentOf(c, {0, 3, 0}), 0.0) << name;
        EXPECT_NEAR(parentOf(c, {2, 2}), 2.0, 1e-15) << name;
        EXPECT_EQ(parentOf(c, {0, 0}), 0.0) << name;
    }
    EXPECT_NEAR(parentOf(made("gini"), {1, 2, 3}), 6 * (1 - 14.0 / 36), 1e-14);
    EXPECT_EQ(parentOf(made("error"), {1, 5, 3}), 4.0);
    // Twoing: no parent value; children [3,1] and [1,3]: 4 * -4 * 1 * 0.25.
    auto twoing = made("twoing");
    EXPECT_FALSE(twoing.classification->hasParentValue());
    EXPECT_EQ(parentOf(twoing, {1, 2}), 0.0);
    EXPECT_EQ(twoing.classification->kids(V{3, 1}, V{1, 3}), -4.0);
    // Regression: weighted squares about the weighted mean, not divided.
    auto mse = made("mse");
    ASSERT_TRUE(mse.regression && !mse.classification);
    const double y[] = {1, 2, 4}, w[] = {1, 1, 2};
    const uint64_t rows[] = {0, 1, 2};
    EXPECT_DOUBLE_EQ(mse.regression->parent(y, w, rows), 1.75 * 1.75 + 0.75 * 0.75 + 2 * 1.25 * 1.25);  // mean 2.75
    EXPECT_EQ(mse.regression->parent(y, w, {}), 0.0);
}

TEST(SplitCriteria, CostMatrixAndCorrection) {
    // C(i, j): cost of predicting j for true class i.
    const double c[] = {0, 1, 4,  2, 0, 1,  3, 3, 0};
    const CostView cost{c, 3, 3};
    auto withError = made("error", &cost);
    V p{1, 2, 1}, out(3);
    // Columns: r(0) = 0+2+4, r(1) = 2+0+1, r(2) = 3+6+0.
    EXPECT_EQ(parentOf(withError, p), 3.0);
    withError.classification->correct(p, out);
    EXPECT_EQ(out, p);  // "error" with costs is not corrected
    // Row sums 5, 4, 5 of total 14, scaled to mean 1.
    auto gini = made("gini", &cost);
    gini.classification->correct(p, out);
    EXPECT_DOUBLE_EQ(out[0], 15.0 / 14);
    EXPECT_DOUBLE_EQ(out[1], 24.0 / 14);
    // The usual 0/1 cost changes nothing.
    const double unit[] = {0, 1, 1, 0};
    const CostView unitCost{unit, 2, 2};
    auto corrected = made("deviance", &unitCost);
    V q{3, 5}, qOut(2);
    corrected.classification->correct(q, qOut);
    EXPECT_EQ(qOut, q);
    // A class vector longer than the matrix reads no further than the matrix.
    V longer{1, 1, 7}, longerOut(3);
    corrected.classification->correct(longer, longerOut);
    EXPECT_EQ(longerOut, longer);
    EXPECT_EQ(made("error", &unitCost).classification->parent(longer), 1.0);
}

TEST(SplitCriteria, UnknownNamesAndCustomFunctions) {
    EXPECT_EQ(zvtest::raisedId([] { parseCriterion("Gini"); }),
              "stats:classreg:learning:treeutils:SplitCriteriaFactory:make:BadCriterion");
    zvhost::registerFunction("critSum", [](int, ndArray** out, int nin, const ndArray** in) {
        double s = 0;
        for (int k = 0; k < nin; ++k)
            for (size_t i = 0; i < ndGetNumberOfElements(in[k]); ++i) s += static_cast<const double*>(ndGetData(in[k]))[i];
        out[0] = ndCreateDoubleScalar(s * 10);
    });
    zvhost::registerFunction("critSingle", [](int, ndArray** out, int, const ndArray**) {
        out[0] = ndCreateNumericMatrix(1, 1, ndSINGLE_CLASS, ndREAL);
    });
    zvhost::registerFunction("critFails", [](int, ndArray**, int, const ndArray**) { throw std::runtime_error("no"); });
    zvtest::LeakCheck leaks;
    auto only = makeSplitCriteria<double, double>(CriterionKind::Custom, nullptr, "critSum", "");
    EXPECT_FALSE(only.classification->isThreadSafe());
    EXPECT_EQ(parentOf(only, {1, 2}), 30.0);
    EXPECT_EQ(only.classification->kids(V{1}, V{2}), 30.0);  // two parent calls
    auto both = makeSplitCriteria<double, double>(CriterionKind::Custom, nullptr, "critSingle", "critFails");
    const std::string base = "stats:classreg:learning:treeutils:CustomClassificationSplitCriterion:";
    EXPECT_EQ(zvtest::raisedId([&] { parentOf(both, {1}); }), base + "parent:TypeMismatch");
    EXPECT_EQ(zvtest::raisedId([&] { both.classification->kids(V{1}, V{2}); }), base + "kids:BadUserFunctionCall");
    for (const char* f : {"critSum", "critSingle", "critFails"}) zvhost::unregisterFunction(f);
}

}  // namespace

// Surrogate splits: a copy of the split's predictor imitates it perfectly,
// its mirror with the sides exchanged; rows the split cannot place go where
// the best surrogate sends them, and stay at the node when none can.
#include <gtest/gtest.h>

#include <cmath>

#include "support/gateways.hpp"
#include "support/grow_tree_call.hpp"

namespace {

using zvtest::GrowTreeInputs;

std::vector<double> values(const ndArray* a) {
    const auto* d = static_cast<const double*>(ndGetData(a));
    return std::vector<double>(d, d + ndGetNumberOfElements(a));
}

// Root split on predictor 0 at 10.5 (two classes below and above); predictor
// 1 a copy, 2 its mirror, 3 noise, 4 categorical (1 below, 2 above).
GrowTreeInputs stump(size_t surrogates) {
    GrowTreeInputs in;
    in.N = 20;
    in.P = 5;
    for (int p = 0; p < 5; ++p)
        for (int i = 0; i < 20; ++i)
            in.x.push_back(p == 0 || p == 1 ? i : p == 2 ? -i : p == 3 ? (i * 7) % 20 : 1 + (i > 10));
    for (int i = 0; i < 20; ++i) in.y.push_back(i > 10);
    in.categorical = {false, false, false, false, true};
    in.numSurrogates = double(surrogates);
    in.maxSplits = 1;
    return in;
}

TEST(SurrogateSplits, CopyAndMirrorImitateTheSplit) {
    zvtest::LeakCheck leaks;
    const auto r = zvtest::growTreeOn(stump(10).build());
    const ndArray* vars = ndGetCell(r[21].get(), 0);
    ASSERT_NE(vars, nullptr);
    const auto at = [&](int k, double predictor) {
        const auto v = values(vars);
        for (size_t j = 0; j < v.size(); ++j)
            if (v[j] == predictor) return static_cast<const double*>(ndGetData(ndGetCell(r[k].get(), 0)))[j];
        return std::nan("");
    };
    for (double p : {2.0, 3.0}) EXPECT_DOUBLE_EQ(at(23, p), 1.0) << p;  // associations
    EXPECT_EQ(at(18, 2.0), 1.0);   // the copy reads straight
    EXPECT_EQ(at(18, 3.0), -1.0);  // the mirror flipped
    EXPECT_EQ(at(18, 5.0), 0.0);   // a categorical surrogate carries its sides
    // Fewer usable surrogates than asked for: only those; none kept without the budget.
    EXPECT_LE(ndGetNumberOfElements(vars), 4u);
    const auto none = zvtest::growTreeOn(stump(0).build());
    EXPECT_EQ(ndGetM(none[21].get()), 0u);
    const auto one = zvtest::growTreeOn(stump(1).build());
    EXPECT_EQ(ndGetNumberOfElements(ndGetCell(one[21].get(), 0)), 1u);
}

TEST(SurrogateSplits, MissingRowsFollowTheBestSurrogate) {
    auto in = stump(10);
    in.x[3] = std::nan("");  // low in its copy: goes left
    for (int p : {0, 1, 2, 3, 4}) in.x[20 * p + 15] = std::nan("");  // a high row without any value stays at the root
    auto r = zvtest::growTreeOn(in.build());
    EXPECT_EQ(values(r[13].get()), (std::vector<double>{20, 11, 8}));
    EXPECT_EQ(ndGetLogicals(r[8].get())[0], true);
    in.x[80 + 15] = 2;  // the categorical surrogate places it
    r = zvtest::growTreeOn(in.build());
    EXPECT_EQ(values(r[13].get()), (std::vector<double>{20, 11, 9}));
    EXPECT_EQ(ndGetLogicals(r[8].get())[0], false);
}

}  // namespace

// tsnelossbif: hand-computed losses, the fractional-count position rule, the
// edge cases of the loss, identifiers and the single-precision engine.
#include <cmath>
#include <limits>

#include "embedding/embedding_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

template <class T>
T loss(size_t d, size_t n, const std::vector<T>& y, const std::vector<double>& nb, const std::vector<double>& counts,
       const std::vector<T>& p, double Z) {
    Owned ya = zvhost::matrixOf<T>(d, n, std::span<const T>(y));
    Owned na = zvhost::matrixOf<double>(1, nb.size(), std::span<const double>(nb));
    Owned ca = zvhost::matrixOf<double>(1, counts.size(), std::span<const double>(counts));
    Owned pa = zvhost::matrixOf<T>(1, p.size(), std::span<const T>(p));
    Owned za = zvhost::scalar(Z);
    auto out = zvhost::call(tsnelossbif, 1, {ya.get(), na.get(), ca.get(), pa.get(), za.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return zvhost::valuesOf<T>(out[0].get())[0];
}

// Three points on a line at 0, 1, 3.
const std::vector<double> kLine{0, 1, 3};

TEST(TsneLoss, HandComputedSumOfPLogPqZ) {
    // Entries: 0 -> 1 (q = 2), 0 -> 2 (q = 10), 1 -> 2 (q = 5), 2 -> 0 (q = 10).
    const std::vector<double> p{0.1, 0.2, 0.3, 0.4};
    const double Z = 1.5;
    double expected = 0;
    expected += 0.1 * std::log(2.0 * 0.1 * Z);
    expected += 0.2 * std::log(10.0 * 0.2 * Z);
    expected += 0.3 * std::log(5.0 * 0.3 * Z);
    expected += 0.4 * std::log(10.0 * 0.4 * Z);
    EXPECT_EQ(loss<double>(1, 3, kLine, {2, 3, 3, 1}, {2, 1, 1}, p, Z), expected);
    const std::vector<float> yf{0, 1, 3}, pf{0.1f, 0.2f, 0.3f, 0.4f};
    float expectedF = 0;
    const float Zf = 1.5f;
    expectedF += 0.1f * std::log(2.0f * 0.1f * Zf);
    expectedF += 0.2f * std::log(10.0f * 0.2f * Zf);
    expectedF += 0.3f * std::log(5.0f * 0.3f * Zf);
    expectedF += 0.4f * std::log(10.0f * 0.4f * Zf);
    EXPECT_EQ(loss<float>(1, 3, yf, {2, 3, 3, 1}, {2, 1, 1}, pf, 1.5), expectedF);
}

TEST(TsneLoss, AFractionalCountTakesCeilEntriesButMovesThePositionByItsTruncation) {
    // Point 0, count 1.5: entries 0 and 1; the position moves to 1, so that
    // point 1 (count 1) reads entry 1 again.
    const std::vector<double> p{0.1, 0.2, 0.3};
    const double Z = 2;
    const double e0 = 0.1 * std::log(2.0 * 0.1 * Z);   // 0 -> 1
    const double e1a = 0.2 * std::log(10.0 * 0.2 * Z); // 0 -> 2
    const double e1b = 0.2 * std::log(5.0 * 0.2 * Z);  // 1 -> 2, the same entry
    EXPECT_EQ(loss<double>(1, 3, kLine, {2, 3, 1}, {1.5, 1, 0}, p, Z), ((0 + e0) + e1a) + e1b);
    // A count of 0.5 takes one entry and does not move the position: both
    // points read entry 0 (neighbour 3), from 0 (q = 10) and from 1 (q = 5).
    EXPECT_EQ(loss<double>(1, 3, kLine, {3, 3}, {0.5, 1, 0}, {0.1, 0.2}, Z),
              0.1 * std::log(10.0 * 0.1 * Z) + 0.1 * std::log(5.0 * 0.1 * Z));
}

TEST(TsneLoss, EdgeCases) {
    const std::vector<double> none;
    EXPECT_EQ(loss<double>(2, 0, none, none, none, none, 1.0), 0.0);  // no points
    // d = 0: q = 1 for every entry.
    EXPECT_EQ(loss<double>(0, 2, none, {2}, {1, 0}, {0.5}, 3.0), 0.5 * std::log(1.0 * 0.5 * 3.0));
    // Z = 0: log(0) makes the loss minus infinity.
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {1, 0, 0}, {0.5}, 0.0), -std::numeric_limits<double>::infinity());
    // p = 0: 0 * log(0) is NaN and spreads.
    EXPECT_TRUE(std::isnan(loss<double>(1, 3, kLine, {2, 3}, {2, 0, 0}, {0.0, 0.5}, 1.0)));
}

TEST(TsneLoss, EntriesBeyondWhatWasPassedAreSkipped) {
    const double Z = 2;
    const double e0 = 0.1 * std::log(2.0 * 0.1 * Z);
    // Count 5 with one entry; a neighbour 0 and a NaN neighbour name no point;
    // a NaN count takes nothing and leaves the position where it is.
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {5, 0, 0}, {0.1}, Z), e0);
    EXPECT_EQ(loss<double>(1, 3, kLine, {0, NAN, 2}, {3, 0, 0}, {0.1, 0.1, 0.1}, Z), e0);
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {NAN, 1, 0}, {0.1}, Z), 0.1 * std::log(1.0 * 0.1 * Z));
    // Huge counts run to the end of the entries and stop.
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {1e300, 1e300, 0}, {0.1}, Z), e0);
}

TEST(TsneLoss, IdentifiersInTheirOrder) {
    Owned y = zvhost::matrixOf<double>(1, 3, {0, 1, 3});
    Owned i = zvhost::matrixOf<int32_t>(1, 3);
    Owned nb = zvhost::matrixOf<double>(1, 1, {2});
    Owned c = zvhost::matrixOf<double>(1, 3, {1, 0, 0});
    Owned p = zvhost::matrixOf<double>(1, 1, {0.5});
    Owned z = zvhost::scalar(1);
    auto call = [&](int nout, std::vector<const ndArray*> a) {
        return raisedId([&] { zvhost::call(tsnelossbif, nout, a); });
    };
    EXPECT_EQ(call(2, {y.get(), nb.get(), c.get(), p.get()}), "stats:tsnebif:TooFewInputsLoss");
    EXPECT_EQ(call(2, {y.get(), nb.get(), c.get(), p.get(), z.get()}), "stats:tsnebif:TooManyOutputs");
    EXPECT_EQ(call(1, {i.get(), nb.get(), c.get(), p.get(), z.get()}), "stats:tsnebif:BadInputType");
    zvtest::LeakCheck leaks;
    EXPECT_EQ(call(1, {y.get(), nb.get(), c.get(), p.get(), z.get()}), "");
    EXPECT_EQ(call(0, {y.get(), nb.get(), c.get(), p.get(), z.get()}), "");
}

}  // namespace

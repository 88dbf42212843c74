// The Barnes-Hut tree itself: insertion order, running means, duplicates,
// the closed-box child rule, points outside the box or not finite, depth on
// nearly equal points, and the walk at the leaves.
#include <cmath>
#include <limits>
#include <new>
#include <random>
#include <vector>

#include "embedding/bh_tree.hpp"
#include "support/gateways.hpp"

namespace {

using zv::embedding::BHTree;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// Builds the tree of the unit box around 0 over all columns of y.
template <class T>
struct Built {
    std::vector<T> y;
    std::vector<T> center, width;
    BHTree<T> tree;
    std::vector<bool> accepted;
    Built(std::vector<T> yv, size_t d, std::vector<T> c, std::vector<T> w)
        : y(std::move(yv)), center(std::move(c)), width(std::move(w)), tree(y.data(), d, center.data(), width.data()) {
        for (size_t i = 0; i < y.size() / (d ? d : 1); ++i) accepted.push_back(tree.insert(int32_t(i)));
    }
};

TEST(BHTree, TwoPointsSubdivideOnceWithChildrenNumberedByBits) {
    // Child c lies above the centre in dimension k when bit k of c is 0.
    Built<double> b({0.5, 0.5, -0.5, 0.25}, 2, {0, 0}, {1, 1});
    const auto& t = b.tree;
    ASSERT_EQ(t.numNodes(), 5u);
    EXPECT_EQ(t.node(0).cumSize, 2);
    EXPECT_EQ(t.node(0).index, -1);
    EXPECT_EQ(t.node(0).size, 0);
    EXPECT_EQ(t.node(0).firstChild, 1u);
    EXPECT_EQ(t.node(1).index, 0);  // (+, +): child 0
    EXPECT_EQ(t.node(2).index, 1);  // (-, +): child 1, bit 0 set
    EXPECT_EQ(t.node(3).cumSize, 0);
    EXPECT_EQ(t.node(4).cumSize, 0);
    EXPECT_EQ(t.largestHalfWidth(0), 1.0);
    EXPECT_EQ(t.largestHalfWidth(1), 0.5);
    EXPECT_EQ(t.centerOfMass(0)[0], 0.0);
    EXPECT_EQ(t.centerOfMass(0)[1], 0.375);
}

TEST(BHTree, RunningMeanAndDuplicates) {
    // m = 1/cumSize; mean = y m + mean (1 - m), in the order of the points.
    const std::vector<double> y{0.1, 0.7, 0.3};
    Built<double> b(y, 1, {0}, {1});
    double mean = 0;
    for (int c = 1; c <= 3; ++c) mean = y[c - 1] * (1.0 / c) + mean * (1 - 1.0 / c);
    EXPECT_EQ(b.tree.centerOfMass(0)[0], mean);
    EXPECT_EQ(b.tree.node(0).cumSize, 3);
    // Duplicates are counted in one leaf without subdivision.
    Built<double> same({0.2, 0.3, 0.2, 0.3, 0.2, 0.3}, 2, {0, 0}, {1, 1});
    EXPECT_EQ(same.tree.numNodes(), 1u);
    EXPECT_EQ(same.tree.node(0).cumSize, 3);
    EXPECT_EQ(same.tree.node(0).index, 0);
    EXPECT_EQ(same.accepted, (std::vector<bool>{true, true, true}));
    // 0 and 1 coincide; 2 forces the split: only the held point moves down.
    Built<double> split({0.5, 0.5, 0.5, 0.5, -0.5, -0.5}, 2, {0, 0}, {1, 1});
    EXPECT_EQ(split.tree.node(0).cumSize, 3);
    EXPECT_EQ(split.tree.node(1).cumSize, 1);
    EXPECT_EQ(split.tree.node(1).index, 0);
    EXPECT_EQ(split.tree.node(4).index, 2);
}

TEST(BHTree, WhichPointsABoxTakes) {
    // x = 0 lies on the face between children 0 (upper) and 1 (lower): child
    // 0 takes both and splits again. A point on the outer face is inside too.
    Built<double> b({0.5, 0.5, 0.0, 0.5}, 2, {0, 0}, {1, 1});
    EXPECT_EQ(b.tree.node(1).cumSize, 2);
    EXPECT_EQ(b.tree.node(2).cumSize, 0);
    EXPECT_TRUE((Built<double>({1.0, -1.0}, 2, {0, 0}, {1, 1}).accepted[0]));
    // A point outside is refused and not counted.
    Built<double> out({0.5, 0.5, 1.5, 0.0, -0.5, -0.5}, 2, {0, 0}, {1, 1});
    EXPECT_EQ(out.accepted, (std::vector<bool>{true, false, true}));
    EXPECT_EQ(out.tree.node(0).cumSize, 2);
    EXPECT_EQ(out.tree.centerOfMass(0)[0], 0.0);
    // Non-finite coordinates are left out, so that two NaNs cannot split forever.
    Built<double> nan({kNaN, 0.0, kNaN, 0.1, 0.5, 0.5, kInf, 0.0, 0.0, -kInf}, 2, {0, 0}, {1, 1});
    EXPECT_EQ(nan.accepted, (std::vector<bool>{false, false, true, false, false}));
    EXPECT_EQ(nan.tree.node(0).cumSize, 1);
    // A root box that is not finite takes no point.
    for (double bad : {kNaN, kInf}) {
        Built<double> w({0.5, 0.5, -0.5, -0.5}, 2, {0, 0}, {1, bad});
        EXPECT_EQ(w.accepted, (std::vector<bool>{false, false}));
        Built<double> c({0.5, 0.5, -0.5, -0.5}, 2, {bad, 0}, {1, 1});
        EXPECT_EQ(c.accepted, (std::vector<bool>{false, false}));
        EXPECT_EQ(c.tree.node(0).cumSize, 0);
    }
}

TEST(BHTree, NeighbouringNumbersSplitUntilTheBoxesSeparateThem) {
    // One ulp apart: about 53 levels in double, until a child's centre can no
    // longer be represented; the rounded boxes then refuse the second point,
    // which stays counted above. The build ends either way.
    const double a = 0.75, next = std::nextafter(a, 1.0);
    Built<double> b({a, next}, 1, {0}, {1});
    EXPECT_EQ(b.accepted, (std::vector<bool>{true, false}));
    EXPECT_EQ(b.tree.node(0).cumSize, 2);
    EXPECT_GT(b.tree.numNodes(), 100u);
    const float af = 0.75f, nf = std::nextafter(af, 1.0f);
    Built<float> f({af, nf}, 1, {0}, {1});
    EXPECT_GT(f.tree.numNodes(), 40u);
    // The smallest subnormals below a unit box: over a thousand levels.
    Built<double> tiny({0.0, std::numeric_limits<double>::denorm_min()}, 1, {0}, {1});
    EXPECT_EQ(tiny.accepted, (std::vector<bool>{true, true}));
}

TEST(BHTree, WalkAtTheLeavesSkipsOnlyTheOwnLeaf) {
    // Leaf of a duplicate pair: point 0 holds it, point 1 is counted there.
    Built<double> b({0.5, 0.5, -0.5, 0.5, -0.5, 0.5}, 2, {0, 0}, {1, 1});
    double f[2] = {0, 0}, t[2], q = 0;
    b.tree.walk<2>(1, 0.0, f, q, t);  // sees point 0's leaf only
    EXPECT_EQ(q, 0.5);                // 1 / (1 + 1)
    EXPECT_EQ(f[0], -1.0 * 0.25);     // t = -1, u m = 1/4
    EXPECT_EQ(f[1], 0.0);
    double g[2] = {0, 0}, r = 0;
    b.tree.walk<2>(2, 0.0, g, r, t);  // the duplicate of the held point counts itself too
    EXPECT_EQ(r, 0.5 + 2.0);
    double h[2] = {0, 0}, s = 0;
    b.tree.walk<0>(0, 0.0, h, s, t);  // the runtime-dimension walk, point 0: the leaf of 1 and 2
    EXPECT_EQ(s, 2 * 0.5);
    EXPECT_EQ(h[0], 2 * 0.25);
}

TEST(BHTree, AFarInnerNodeIsOneBodyAtItsCentreOfMass) {
    // Points 1 and 2 share child 1; from point 0 far away the node is one body.
    Built<double> b({100, 0, -90, 1, -80, 1}, 2, {0, 0}, {128, 128});
    double f[2] = {0, 0}, t[2], q = 0;
    b.tree.walk<2>(0, 0.5, f, q, t);  // root opens (w/r > 0.5); child 1: 64/185 < 0.5
    const double dx = 100 - (-85.0), dy = -1.0, D = dx * dx + dy * dy;
    const double u = 1 / (D + 1), m = 2 * u;
    EXPECT_EQ(q, m);
    EXPECT_EQ(f[0], dx * (u * m));
    EXPECT_EQ(f[1], dy * (u * m));
}

TEST(BHTree, TooManyDimensionsForTheChildCountFailLikeAnAllocation) {
    std::vector<double> y(62, 0.0);
    y[31] = 0.5;  // two distinct points in 31 dimensions
    std::vector<double> c(31, 0.0), w(31, 1.0);
    BHTree<double> tree(y.data(), 31, c.data(), w.data());
    EXPECT_TRUE(tree.insert(0));
    EXPECT_THROW(tree.insert(1), std::bad_alloc);
}

template <class T>
void expectOpeningTestIsTheQuotient(unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    const T special[] = {T(0), -T(0), std::numeric_limits<T>::denorm_min(), std::numeric_limits<T>::min(),
                         std::numeric_limits<T>::max(), std::numeric_limits<T>::infinity(),
                         std::numeric_limits<T>::quiet_NaN(), T(-1), T(0.5), T(1), T(2)};
    auto pick = [&](double scale) {
        if (unit(gen) < 0.1) return special[gen() % std::size(special)];
        return T(scale * std::pow(10.0, 8 * unit(gen) - 4));
    };
    for (int it = 0; it < 200000; ++it) {
        const T theta = pick(1), w = pick(1);
        // Half the cases straddle the boundary theta^2 D = w^2 closely.
        T D = pick(1);
        if (it % 2 == 0 && theta > 0) D = T((double(w) / double(theta)) * (double(w) / double(theta)) * (1 + 1e-6 * (unit(gen) - 0.5)));
        const zv::embedding::OpeningTest<T> test(theta);
        ASSERT_EQ(test.isBody(w, D), theta > w / std::sqrt(D)) << theta << " " << w << " " << D;
    }
    // Exactly on the boundary of the squares.
    const zv::embedding::OpeningTest<T> half(T(0.5));
    for (T w : {T(1), T(3), T(0.1)})
        for (T D : {4 * w * w, std::nextafter(4 * w * w, T(0)), std::nextafter(4 * w * w, T(1e30))})
            EXPECT_EQ(half.isBody(w, D), T(0.5) > w / std::sqrt(D));
}

TEST(BHTree, TheOpeningTestAgreesWithTheRoundedQuotientEverywhere) {
    expectOpeningTestIsTheQuotient<double>(1);
    expectOpeningTestIsTheQuotient<float>(2);
}

}  // namespace

// Categorical predictors: the root's gain against every partition of the
// levels tried by brute force (regression by means and two classes by
// shares are exact, as is the exhaustive search), the heuristics' splits
// within that bound, and the method table's identifiers.
#include <gtest/gtest.h>

#include <random>

#include "support/gateways.hpp"
#include "support/grow_tree_call.hpp"
#include "zvhost/control.hpp"

namespace {

using zvtest::GrowTreeInputs;

std::vector<zvhost::Owned> grow(const GrowTreeInputs& in) { return zvtest::growTreeOn(in.build(), 17); }

// One categorical predictor of `levels` values (1..levels); classes or a response at random.
GrowTreeInputs categorical(size_t N, size_t levels, size_t classes, unsigned seed) {
    GrowTreeInputs in;
    in.N = N;
    in.P = 1;
    in.categorical = {true};
    in.maxSplits = 1;
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> level(1, int(levels)), cls(0, int(std::max<size_t>(classes, 2)) - 1);
    std::vector<double> shift(levels + 1);
    for (auto& s : shift) s = std::uniform_real_distribution<double>(0, 4)(gen);
    for (size_t i = 0; i < N; ++i) {
        in.x.push_back(level(gen));
        in.y.push_back(classes == 0 ? std::round(shift[size_t(in.x.back())] * 4 + cls(gen)) / 4 : cls(gen));
    }
    in.criterion = classes == 0 ? "mse" : "gini";
    return in;
}

// The best reduction of the root's value over all partitions of the levels.
double bruteForceGain(const GrowTreeInputs& in, size_t levels, bool regression) {
    const auto value = [&](const std::vector<size_t>& rows) {
        if (regression) {
            double s = 0, m = 0;
            for (size_t r : rows) m += in.y[r];
            m /= double(rows.size());
            for (size_t r : rows) s += (in.y[r] - m) * (in.y[r] - m);
            return s;
        }
        std::vector<double> w(8, 0.0);
        for (size_t r : rows) w[size_t(in.y[r])] += 1;
        double q2 = 0;
        for (double v : w) q2 += (v / double(rows.size())) * (v / double(rows.size()));
        return double(rows.size()) * (1 - q2);
    };
    std::vector<size_t> all(in.N);
    std::iota(all.begin(), all.end(), size_t(0));
    double best = 0;
    for (uint64_t mask = 1; mask + 1 < (uint64_t(1) << levels); ++mask) {
        std::vector<size_t> left, right;
        for (size_t r = 0; r < in.N; ++r) ((mask >> (size_t(in.x[r]) - 1)) & 1 ? left : right).push_back(r);
        if (left.empty() || right.empty()) continue;
        best = std::max(best, value(all) - value(left) - value(right));
    }
    return best;
}

double rootGain(const std::vector<zvhost::Owned>& r) { return static_cast<const double*>(ndGetData(r[16].get()))[0]; }

TEST(NominalSplits, ExactMethodsFindTheBestPartition) {
    // Regression by level means, two classes by class share, three classes exhaustively.
    for (size_t classes : {0, 2, 3}) {
        for (unsigned seed = 1; seed <= 3; ++seed) {
            auto in = categorical(120, 6, classes, seed);
            in.numSurrogates = 0;
            const double expected = bruteForceGain(in, 6, classes == 0);
            EXPECT_NEAR(rootGain(grow(in)), expected, 1e-9 * (1 + expected)) << classes << " classes, seed " << seed;
        }
    }
}

TEST(NominalSplits, HeuristicsStayWithinTheBestPartition) {
    for (double algCat : {2.0, 3.0, 4.0}) {
        auto in = categorical(200, 7, 4, 9);
        in.maxSplits = 1;
        const double bound = bruteForceGain(in, 7, false);
        auto args = in.build();
        args[14] = zvhost::scalar(algCat);
        const auto r = zvtest::growTreeOn(args, 17);
        const double gain = rootGain(r);
        EXPECT_GT(gain, 0.0) << algCat;
        EXPECT_LE(gain, bound + 1e-9) << algCat;
        // The categories go to one side each, the smaller values left.
        const ndArray* left = ndGetCell(r[4].get(), 0);
        const ndArray* right = ndGetCell(r[4].get(), ndGetN(r[0].get()));
        ASSERT_TRUE(left && right);
        EXPECT_EQ(ndGetNumberOfElements(left) + ndGetNumberOfElements(right), 7u);
        EXPECT_LT(static_cast<const double*>(ndGetData(left))[0], static_cast<const double*>(ndGetData(right))[0]);
    }
}

TEST(NominalSplits, MethodTableIdentifiers) {
    auto three = categorical(60, 4, 3, 2);
    auto args = three.build();
    args[14] = zvhost::scalar(7);  // no such method
    EXPECT_EQ(zvtest::raisedId([&] { zvtest::growTreeOn(args, 1); }),
              "stats:classreg:learning:treeutils:IndexedColumn:findNominalSplitWithBestGain:BadAlgCat");
    // Two classes look at no method number at all.
    auto two = categorical(60, 4, 2, 2);
    auto twoArgs = two.build();
    twoArgs[14] = zvhost::scalar(7);
    EXPECT_EQ(zvtest::raisedId([&] { zvtest::growTreeOn(twoArgs, 1); }), "");
    // The exhaustive search takes 63 levels at most: 64 mixed levels, forced.
    GrowTreeInputs many;
    many.N = 192;
    many.P = 1;
    many.categorical = {true};
    for (size_t i = 0; i < many.N; ++i) many.x.push_back(double(i % 64)), many.y.push_back(double(i / 64));
    auto manyArgs = many.build();
    manyArgs[14] = zvhost::scalar(1);
    EXPECT_EQ(zvtest::raisedId([&] { zvtest::growTreeOn(manyArgs, 1); }),
              "stats:classreg:learning:treeutils:ClassificationNominalSplitFinder:exact:TooManyLevels");
    // PCA's scratch comes from the worker heap; a failure names its size.
    auto pca = categorical(60, 5, 3, 4);
    auto pcaArgs = pca.build();
    pcaArgs[14] = zvhost::scalar(3);
    for (long n : {1, 2, 3}) {
        zvtest::LeakCheck leaks;
        zvhost::failAllocationAt(n, zvhost::kWorkerScratch);
        EXPECT_EQ(zvtest::raisedId([&] { zvtest::growTreeOn(pcaArgs, 1); }),
                  "stats:classreg:learning:treeutils:ClassificationNominalSplitFinder:pca:MemoryLessThanXBytes")
            << n;
        zvhost::failAllocationAt(0);
    }
    // One level: no split; pure values merge into one level per class: three
    // levels, parted by two splits.
    GrowTreeInputs pure = many;
    pure.x.assign(many.N, 5.0);
    EXPECT_EQ(ndGetN(grow(pure)[0].get()), 1u);
    for (size_t i = 0; i < many.N; ++i) pure.x[i] = double(i / 3), pure.y[i] = double((i / 3) % 3);
    const auto merged = grow(pure);
    EXPECT_EQ(ndGetN(merged[0].get()), 5u);
}

}  // namespace

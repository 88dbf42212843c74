// tsnebhbif: the exact gradient at theta = 0 against an O(N^2) reference,
// the attractive sums term by term, identifiers in their order, edge cases,
// unsafe inputs, thread-count independence and the absence of polling.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "embedding/embedding_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
using zvtest::TsneInputs;

// A random embedding with K random neighbours per point (never itself).
template <class T>
struct Problem {
    size_t d, n, K;
    std::vector<T> y, p;
    std::vector<double> nb, counts, starts;
    std::vector<T> center, width;
};

template <class T>
Problem<T> randomProblem(size_t d, size_t n, size_t K, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> unit(0.1, 1.0);
    Problem<T> pr{d, n, K, {}, {}, {}, {}, {}, std::vector<T>(d, T(0)), std::vector<T>(d, T(0))};
    for (size_t e = 0; e < d * n; ++e) pr.y.push_back(T(3 * normal(gen)));
    for (size_t k = 0; k < d; ++k) {
        T lo = pr.y[k], hi = pr.y[k];
        for (size_t i = 0; i < n; ++i) lo = std::min(lo, pr.y[i * d + k]), hi = std::max(hi, pr.y[i * d + k]);
        pr.center[k] = (lo + hi) / 2;
        pr.width[k] = (hi - lo) / 2 + T(0.5);
    }
    for (size_t i = 0; i < n; ++i) {
        pr.counts.push_back(double(K));
        pr.starts.push_back(double(i * K));
        for (size_t e = 0; e < K; ++e) {
            pr.nb.push_back(double((i + 1 + gen() % (n - 1)) % n + 1));
            pr.p.push_back(T(unit(gen) / double(n * K)));
        }
    }
    return pr;
}

template <class T>
TsneInputs<T> inputsOf(const Problem<T>& pr, double theta) {
    return TsneInputs<T>(theta, pr.d, pr.n, pr.y, pr.center, pr.width, pr.nb, pr.counts, pr.p, pr.starts);
}

// Exact repulsion over all pairs, in long double, and Z.
template <class T>
std::pair<std::vector<long double>, long double> exactRepulsion(const Problem<T>& pr) {
    std::vector<long double> g(pr.d * pr.n, 0.0L);
    long double Z = 0;
    for (size_t i = 0; i < pr.n; ++i)
        for (size_t j = 0; j < pr.n; ++j) {
            if (i == j) continue;
            long double D = 0;
            for (size_t k = 0; k < pr.d; ++k) {
                const long double t = (long double)pr.y[i * pr.d + k] - pr.y[j * pr.d + k];
                D += t * t;
            }
            const long double q = 1.0L / (1.0L + D);
            Z += q;
            for (size_t k = 0; k < pr.d; ++k) g[i * pr.d + k] += q * q * ((long double)pr.y[i * pr.d + k] - pr.y[j * pr.d + k]);
        }
    for (auto& v : g) v /= Z;
    return {g, Z};
}

// The attractive sums in the engine's own order, in T.
template <class T>
std::vector<T> attractiveReference(const Problem<T>& pr) {
    std::vector<T> a(pr.d * pr.n, T(0));
    for (size_t i = 0; i < pr.n; ++i)
        for (size_t c = 0; c < pr.K; ++c) {
            const size_t e = i * pr.K + c, j = size_t(pr.nb[e]) - 1;
            T s = 1;
            for (size_t k = 0; k < pr.d; ++k) s += (pr.y[i * pr.d + k] - pr.y[j * pr.d + k]) * (pr.y[i * pr.d + k] - pr.y[j * pr.d + k]);
            const T v = pr.p[e] / s;
            for (size_t k = 0; k < pr.d; ++k) a[i * pr.d + k] += (pr.y[i * pr.d + k] - pr.y[j * pr.d + k]) * v;
        }
    return a;
}

template <class T>
void expectExactAtThetaZero(size_t d, double relTol) {
    const auto pr = randomProblem<T>(d, 300, 7, unsigned(d));
    const auto got = zvtest::tsneGradient(inputsOf(pr, 0.0));
    const auto [ref, Z] = exactRepulsion(pr);
    EXPECT_NEAR(got.Z, Z, relTol * Z);
    long double scale = 0;
    for (auto v : ref) scale = std::max(scale, std::fabs(v));
    for (size_t e = 0; e < ref.size(); ++e) ASSERT_NEAR(got.repulsive[e], ref[e], relTol * scale) << "d=" << d << " at " << e;
    EXPECT_EQ(got.attractive, attractiveReference(pr));
}

TEST(TsneGradient, ThetaZeroIsTheExactGradientInOneTwoThreeAndFiveDimensions) {
    for (size_t d : {1, 2, 3, 5}) {
        expectExactAtThetaZero<double>(d, 1e-12);
        expectExactAtThetaZero<float>(d, 2e-5);
    }
}

TEST(TsneGradient, PositiveThetaStaysCloseAndOpensFewerNodes) {
    const auto pr = randomProblem<double>(2, 2000, 5, 9);
    const auto [ref, Z] = exactRepulsion(pr);
    const auto got = zvtest::tsneGradient(inputsOf(pr, 0.25));
    long double err = 0, scale = 0;
    for (size_t e = 0; e < ref.size(); ++e) err = std::max(err, std::fabs(got.repulsive[e] - ref[e])), scale = std::max(scale, std::fabs(ref[e]));
    EXPECT_LT(err, 0.1 * scale);
    EXPECT_GT(err, 1e-9 * scale);  // approximated, not exact
    EXPECT_NEAR(got.Z, Z, 0.05 * Z);
}

TEST(TsneGradient, OneThreadAndTwoThreadsGiveIdenticalResults) {
    for (double theta : {0.0, 0.5}) {
        const auto pr = randomProblem<double>(2, theta > 0 ? 20000 : 1500, 10, 3);
        const auto in = inputsOf(pr, theta);
        const auto one = zvtest::withThreads(1, [&] { return zvtest::tsneGradient(in); });
        const auto two = zvtest::withThreads(2, [&] { return zvtest::tsneGradient(in); });
        EXPECT_EQ(one.attractive, two.attractive);
        EXPECT_EQ(one.repulsive, two.repulsive);
        EXPECT_EQ(one.Z, two.Z);
    }
}

TEST(TsneGradient, OutputsHaveTheClassAndShapeOfY) {
    const auto pr = randomProblem<float>(3, 20, 2, 1);
    const auto in = inputsOf(pr, 0.5);
    auto out = zvhost::call(tsnebhbif, 3, in.gradientArgs());
    for (int k = 0; k < 3; ++k) EXPECT_EQ(ndGetClassID(out[k].get()), ndSINGLE_CLASS);
    EXPECT_EQ(ndGetM(out[0].get()), 3u);
    EXPECT_EQ(ndGetN(out[1].get()), 20u);
    EXPECT_EQ(ndGetNumberOfElements(out[2].get()), 1u);
    // Fewer outputs asked: only the slots the host gave are set.
    zvtest::LeakCheck leaks;
    EXPECT_EQ(zvhost::call(tsnebhbif, 1, in.gradientArgs()).size(), 1u);
    EXPECT_EQ(zvhost::call(tsnebhbif, 0, in.gradientArgs()).size(), 1u);
}

TEST(TsneGradient, IdentifiersInTheirOrder) {
    const auto pr = randomProblem<double>(2, 5, 2, 1);
    const auto in = inputsOf(pr, 0.5);
    auto args = in.gradientArgs();
    Owned bad = zvhost::matrixOf<int32_t>(2, 5);
    auto call = [&](int nout, std::vector<const ndArray*> a) {
        return raisedId([&] { zvhost::call(tsnebhbif, nout, a); });
    };
    EXPECT_EQ(call(4, {args.begin(), args.begin() + 6}), "stats:tsnebif:TooFewInputsGrad");
    EXPECT_EQ(call(4, args), "stats:tsnebif:TooManyOutputs");
    auto badArgs = args;
    badArgs[1] = bad.get();
    EXPECT_EQ(call(3, badArgs), "stats:tsnebif:BadInputType");
    // Seven inputs pass the count test but lack the starts.
    EXPECT_EQ(call(3, {badArgs.begin(), badArgs.begin() + 7}), "stats:tsnebif:BadInputType");
    EXPECT_EQ(call(3, {args.begin(), args.begin() + 7}), "stats:tsnebif:TooFewInputsGrad");
    EXPECT_EQ(call(3, args), "");
}

TEST(TsneGradient, NoPointsGiveTheSmallestNormalZ) {
    const std::vector<double> none;
    TsneInputs<double> in(0.5, 2, 0, none, {0, 0}, {1, 1}, none, none, none, none);
    const auto g = zvtest::tsneGradient(in);
    EXPECT_EQ(g.Z, 2.2250738585072014e-308);
    EXPECT_TRUE(g.attractive.empty());
    const std::vector<float> nonef;
    TsneInputs<float> inf(0.5, 2, 0, nonef, {0, 0}, {1, 1}, none, none, nonef, none);
    EXPECT_EQ(zvtest::tsneGradient(inf).Z, std::numeric_limits<float>::min());
}

TEST(TsneGradient, ZeroCountsLeaveTheAttractiveColumnAtZero) {
    auto pr = randomProblem<double>(2, 10, 3, 2);
    pr.counts[4] = 0;
    pr.counts[7] = -2;
    const auto g = zvtest::tsneGradient(inputsOf(pr, 0.5));
    for (size_t i : {4, 7})
        for (size_t k = 0; k < 2; ++k) EXPECT_EQ(g.attractive[i * 2 + k], 0.0);
    EXPECT_NE(g.attractive[0], 0.0);
}

TEST(TsneGradient, FractionalCountsTakeEntriesWhileTheCounterIsBelowThem) {
    // Point 0 at (0, 0) with count 1.5 from start 0 takes entries 0 and 1.
    const std::vector<double> y{0, 0, 1, 0, 0, 2};
    TsneInputs<double> in(0.0, 2, 3, y, {0, 0}, {4, 4}, {2, 3}, {1.5, 0, 0}, {0.5, 0.25}, {0.7, 0, 0});
    const auto g = zvtest::tsneGradient(in);
    // starts truncate to 0: entry 0 to point 1 (d^2 = 1), entry 1 to point 2 (d^2 = 4).
    EXPECT_EQ(g.attractive[0], -1.0 * (0.5 / 2.0));
    EXPECT_EQ(g.attractive[1], -2.0 * (0.25 / 5.0));
}

TEST(TsneGradient, EntriesAndPointsBeyondWhatWasPassedAreSkipped) {
    const std::vector<double> y{0, 0, 1, 0, 0, 2};
    // Point 0: start 1, count 3 runs past the two entries; neighbour 0 and
    // 4 name no point; point 1's start is NaN; point 2 has no count at all.
    TsneInputs<double> in(0.0, 2, 3, y, {0, 0}, {4, 4}, {2, 3}, {3, 1}, {0.5, 0.25}, {1, std::numeric_limits<double>::quiet_NaN(), 0});
    const auto g = zvtest::tsneGradient(in);
    EXPECT_EQ(g.attractive[0], 0.0);
    EXPECT_EQ(g.attractive[1], -2.0 * (0.25 / 5.0));  // entry 1 only
    for (size_t e = 2; e < 6; ++e) EXPECT_EQ(g.attractive[e], 0.0);
    TsneInputs<double> badNeighbours(0.0, 2, 3, y, {0, 0}, {4, 4}, {0, 4}, {2, 0, 0}, {0.5, 0.25}, {0, 0, 0});
    const auto b = zvtest::tsneGradient(badNeighbours);
    EXPECT_EQ(b.attractive, std::vector<double>(6, 0.0));
}

TEST(TsneGradient, APointOutsideTheBoxStillFeelsTheOthers) {
    const std::vector<double> y{0.5, 0.5, -0.5, -0.5, 3, 0};
    TsneInputs<double> in(0.0, 2, 3, y, {0, 0}, {1, 1}, {}, {0, 0, 0}, {}, {0, 0, 0});
    const auto g = zvtest::tsneGradient(in);
    // Point 2 pushes nobody, but is pushed by both: Z = 2 q01 + q20 + q21.
    const double q01 = 1 / 3.0, q20 = 1 / (1 + 6.25 + 0.25), q21 = 1 / (1 + 12.25 + 0.25);
    EXPECT_DOUBLE_EQ(g.Z, 2 * q01 + q20 + q21);
    EXPECT_DOUBLE_EQ(g.repulsive[4] * g.Z, q20 * q20 * 2.5 + q21 * q21 * 3.5);
    EXPECT_DOUBLE_EQ(g.repulsive[0] * g.Z, q01 * q01 * 1.0);
}

TEST(TsneGradient, NonFiniteCoordinatesEndWithNaNForcesOnThosePoints) {
    std::vector<double> y{0.5, 0.5, NAN, 0.1, NAN, 0.2, -0.5, -0.5, INFINITY, 0};
    TsneInputs<double> in(0.0, 2, 5, y, {0, 0}, {1, 1}, {}, {0, 0, 0, 0, 0}, {}, {0, 0, 0, 0, 0});
    const auto g = zvtest::tsneGradient(in);
    EXPECT_TRUE(std::isnan(g.repulsive[2]));
    EXPECT_TRUE(std::isnan(g.repulsive[4]));
    // The sums of the NaN points make the total NaN, and Z falls to its floor.
    EXPECT_EQ(g.Z, 2.2250738585072014e-308);
    // A box that is not finite takes no point: no repulsion at all.
    const std::vector<double> finite{0.5, 0.5, -0.5, -0.5};
    TsneInputs<double> nanBox(0.0, 2, 2, finite, {0, NAN}, {1, 1}, {}, {0, 0}, {}, {0, 0});
    const auto b = zvtest::tsneGradient(nanBox);
    EXPECT_EQ(b.repulsive, std::vector<double>(4, 0.0));
    EXPECT_EQ(b.Z, 2.2250738585072014e-308);
    // A box with fewer values than dimensions counts as not finite.
    TsneInputs<double> shortBox(0.0, 2, 2, finite, {0}, {1}, {}, {0, 0}, {}, {0, 0});
    EXPECT_EQ(zvtest::tsneGradient(shortBox).repulsive, std::vector<double>(4, 0.0));
}

TEST(TsneGradient, AnArmedInterruptIsNotPolledAndNothingLeaks) {
    const auto pr = randomProblem<double>(2, 3000, 5, 4);
    const auto in = inputsOf(pr, 0.5);
    const auto expected = zvtest::tsneGradient(in);
    zvtest::LeakCheck leaks;
    zvhost::resetPollCount();
    zvhost::interruptAfterPolls(1);
    const auto got = zvtest::withThreads(2, [&] { return zvtest::tsneGradient(in); });
    zvhost::interruptAfterPolls(0);
    EXPECT_EQ(zvhost::pollCount(), 0);
    EXPECT_EQ(got.repulsive, expected.repulsive);
}

TEST(TsneGradient, AFailedOutputAllocationLeaksNothing) {
    const auto pr = randomProblem<double>(2, 100, 5, 4);
    const auto in = inputsOf(pr, 0.5);
    for (long n = 1; n <= 4; ++n) {
        zvtest::LeakCheck leaks;
        zvhost::failAllocationAt(n, zvhost::kArrays);
        EXPECT_THROW(zvhost::call(tsnebhbif, 3, in.gradientArgs()), std::exception) << n;
        zvhost::failAllocationAt(0);
    }
}

}  // namespace

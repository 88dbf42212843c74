// lassoglmCoordDescentCycleNoRecalc and lassoglmWtimesX2: a hand sweep, a plain
// transcription, the threshold edges, zero weights, empty data, the count
// errors in their order and thread-count independence.
#include <cmath>
#include <limits>

#include "sparse/lasso_gateways.hpp"

namespace {

using zvhost::Owned;
using namespace zvtest::lasso;

template <class T>
struct Glm {
    size_t N = 0, P = 0;
    std::vector<T> X, weightedX, xx, z, b, shrink;
    std::vector<bool> active;
    double threshold = 0;
};

template <class T>
std::pair<std::vector<T>, std::vector<bool>> sweep(const Glm<T>& p) {
    Owned X = zvhost::matrixOf<T>(p.N, p.P, std::span<const T>(p.X));
    Owned W = zvhost::matrixOf<T>(p.N, p.P, std::span<const T>(p.weightedX));
    Owned xx = column(p.xx), z = column(p.z), b = column(p.b), active = mask(p.active);
    Owned shrink = column(p.shrink), threshold = scalarOf<T>(p.threshold);
    auto out = zvhost::call(lassoglmCoordDescentCycleNoRecalc, 2,
                            {X.get(), W.get(), xx.get(), z.get(), b.get(), active.get(), shrink.get(), threshold.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return {zvhost::valuesOf<T>(out[0].get()), maskValues(out[1].get())};
}

template <class T>
std::vector<T> weightedSquares(size_t N, size_t P, const std::vector<T>& x, const std::vector<T>& w,
                               const std::vector<bool>& active) {
    Owned X = zvhost::matrixOf<T>(N, P, std::span<const T>(x));
    Owned wA = column(w), aA = mask(active);
    auto out = zvhost::call(lassoglmWtimesX2, 1, {X.get(), wA.get(), nullptr, aA.get()});
    EXPECT_EQ(ndGetM(out[0].get()), P);
    return zvhost::valuesOf<T>(out[0].get());
}

// The sweep in plain loops, every sum ascending in T.
template <class T>
std::pair<std::vector<T>, std::vector<bool>> referenceSweep(const Glm<T>& p) {
    std::vector<T> b = p.b, r = p.z;
    std::vector<bool> active = p.active;
    const size_t N = p.N;
    for (size_t j = 0; j < p.P; ++j)
        for (size_t i = 0; i < N; ++i) r[i] -= p.X[i + j * N] * b[j];
    for (size_t j = 0; j < p.P; ++j) {
        if (!active[j]) continue;
        const T old = b[j];
        T d = 0;
        for (size_t i = 0; i < N; ++i) d += p.weightedX[i + j * N] * r[i];
        d += p.xx[j] * old;
        const T t = T(p.threshold);
        if (d > t) b[j] = (d - t) / p.shrink[j];
        else if (d < -t) b[j] = (d + t) / p.shrink[j];
        else b[j] = 0, active[j] = false;
        for (size_t i = 0; i < N; ++i) r[i] = r[i] - p.X[i + j * N] * (b[j] - old);
    }
    return {b, active};
}

// X = [1 0; 1 2], weights (1, 2), z = (3, 5): exact in every step.
Glm<double> handProblem() {
    Glm<double> p;
    p.N = 2, p.P = 2;
    p.X = {1, 1, 0, 2};
    p.weightedX = {1, 2, 0, 4};
    p.xx = {3, 8};
    p.z = {3, 5};
    p.b = {0, 0};
    p.shrink = {3, 8};
    p.active = {true, true};
    p.threshold = 1;
    return p;
}

template <class T>
Glm<T> randomProblem(size_t N, size_t P, unsigned seed, double threshold, std::vector<T>* weights = nullptr) {
    Glm<T> p;
    p.N = N, p.P = P;
    p.X = normals<T>(N * P, seed);
    p.z = normals<T>(N, seed + 1, 2.0);
    p.b = normals<T>(P, seed + 2, 0.2);
    std::vector<T> w = normals<T>(N, seed + 3);
    for (auto& v : w) v = std::abs(v);
    p.weightedX.resize(N * P);
    p.xx.assign(P, 0);
    p.shrink.resize(P);
    for (size_t j = 0; j < P; ++j) {
        for (size_t i = 0; i < N; ++i) {
            p.weightedX[i + j * N] = w[i] * p.X[i + j * N];
            p.xx[j] += (w[i] * p.X[i + j * N]) * p.X[i + j * N];
        }
        p.shrink[j] = p.xx[j] + T(1);
    }
    p.active.assign(P, true);
    p.threshold = threshold;
    if (weights) *weights = w;
    return p;
}

TEST(LassoGlmSweep, HandComputedSweep) {
    zvtest::LeakCheck leaks;
    // r = (3, 5); j = 0: d = 13, b0 = 12/3, r = (-1, 1); j = 1: d = 4, b1 = 3/8.
    const auto [b, active] = sweep(handProblem());
    EXPECT_EQ(b, (std::vector<double>{4, 0.375}));
    EXPECT_EQ(active, (std::vector<bool>{true, true}));
}

TEST(LassoGlmSweep, ResidualIsRecomputedFromB) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.b = {4, 0};  // r = z - X b = (-1, 1); d0 = -1 + 2 + 3 * 4 = 13 again
    const auto [b, active] = sweep(p);
    EXPECT_EQ(b, (std::vector<double>{4, 0.375}));
}

TEST(LassoGlmSweep, ThresholdEdgesDropThePredictor) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.threshold = 13;  // d0 = 13: dropped; d1 = 4 * 5 = 20: (20 - 13) / 8
    auto [b, active] = sweep(p);
    EXPECT_EQ(b, (std::vector<double>{0, 0.875}));
    EXPECT_EQ(active, (std::vector<bool>{false, true}));
    p.z = {-3, -5};  // d0 = -13 = -threshold
    std::tie(b, active) = sweep(p);
    EXPECT_EQ(b, (std::vector<double>{0, -0.875}));
    EXPECT_EQ(active, (std::vector<bool>{false, true}));
}

TEST(LassoGlmSweep, AllInactiveReturnsBUnchanged) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.b = {1.25, -2};
    p.active = {false, false};
    const auto [b, active] = sweep(p);
    EXPECT_EQ(b, p.b);
    EXPECT_EQ(active, p.active);
}

TEST(LassoGlmSweep, ZeroRowsUseOnlyTheOwnContribution) {
    zvtest::LeakCheck leaks;
    Glm<double> p;
    p.P = 2;
    p.xx = {2, 3};
    p.b = {1.5, 0.25};
    p.shrink = {4, 1};
    p.active = {true, true};
    p.threshold = 1;
    const auto [b, active] = sweep(p);  // d0 = 3: (3 - 1) / 4; d1 = 0.75: dropped
    EXPECT_EQ(b, (std::vector<double>{0.5, 0}));
    EXPECT_EQ(active, (std::vector<bool>{true, false}));
}

TEST(LassoGlmSweep, MatchesPlainTranscriptionInBothPrecisions) {
    zvtest::LeakCheck leaks;
    for (double threshold : {0.0, 5.0, 40.0}) {
        const auto p = randomProblem<double>(250, 9, 3, threshold);
        const auto [b, active] = sweep(p);
        const auto [rb, ractive] = referenceSweep(p);
        expectNear(b, rb, 1e-12);
        EXPECT_EQ(active, ractive);
    }
    const auto p = randomProblem<float>(250, 9, 13, 5.0);
    const auto [b, active] = sweep(p);
    const auto [rb, ractive] = referenceSweep(p);
    expectNear(b, rb, 1e-5);
}

TEST(LassoGlmSweep, SweepIsThreadIndependent) {
    zvtest::LeakCheck leaks;
    const auto p = randomProblem<double>(300000, 3, 17, 10.0);
    const auto one = zvtest::withThreads(1, [&] { return sweep(p); });
    const auto two = zvtest::withThreads(2, [&] { return sweep(p); });
    expectBitEqual(one.first, two.first);
    EXPECT_EQ(one.second, two.second);
    // The starting residual comes from gemv, so only near the transcription.
    expectNear(one.first, referenceSweep(p).first, 1e-12);
}

TEST(LassoGlmSweep, CountErrorsOutputsFirstAndZeroOutputs) {
    zvtest::LeakCheck leaks;
    Owned a = zvhost::scalar(1);
    const auto id = countErrorsOf(lassoglmCoordDescentCycleNoRecalc);
    std::vector<const ndArray*> seven(7, a.get()), nine(9, a.get());
    EXPECT_EQ(id(3, seven), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(3, nine), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(2, seven), "zvhost:TooFewInputs");
    EXPECT_EQ(id(2, nine), "zvhost:TooManyInputs");
    auto out = zvhost::call(lassoglmCoordDescentCycleNoRecalc, 0, std::vector<const ndArray*>(8, nullptr));
    EXPECT_FALSE(out[0]);
}

// ---- weighted squared column sums -------------------------------------------

TEST(LassoGlmWeightedSquares, HandValuesInactiveZeroAndZeroWeights) {
    zvtest::LeakCheck leaks;
    const std::vector<double> X{1, 1, 0, 2, 3, -1};
    EXPECT_EQ(weightedSquares<double>(2, 3, X, {1, 2}, {true, true, true}), (std::vector<double>{3, 8, 11}));
    EXPECT_EQ(weightedSquares<double>(2, 3, X, {1, 2}, {true, false, true}), (std::vector<double>{3, 0, 11}));
    EXPECT_EQ(weightedSquares<double>(2, 3, X, {0, 2}, {true, true, true}), (std::vector<double>{2, 8, 2}));
    const auto f = weightedSquares<float>(2, 3, {1, 1, 0, 2, 3, -1}, {1, 2}, {true, true, true});
    EXPECT_EQ(f, (std::vector<float>{3, 8, 11}));
}

TEST(LassoGlmWeightedSquares, ZeroWeightRowStaysInTheSweepResidual) {
    zvtest::LeakCheck leaks;
    // A zero weight adds nothing to xx or d, but its row is still in r = z - X b.
    auto p = handProblem();
    p.weightedX = {0, 2, 0, 4};
    p.xx = weightedSquares<double>(2, 2, p.X, {0, 2}, {true, true});
    EXPECT_EQ(p.xx, (std::vector<double>{2, 8}));
    p.shrink = p.xx;
    const auto [b, active] = sweep(p);
    // r = (3, 5); d0 = 10: b0 = 9/2, r = (-3/2, 1/2); d1 = 2: b1 = 1/8.
    EXPECT_EQ(b, (std::vector<double>{4.5, 0.125}));
}

TEST(LassoGlmWeightedSquares, EdgesThreadsAndCounts) {
    zvtest::LeakCheck leaks;
    EXPECT_TRUE(weightedSquares<double>(3, 0, {}, {1, 1, 1}, {}).empty());
    EXPECT_EQ(weightedSquares<double>(0, 2, {}, {}, {true, true}), (std::vector<double>{0, 0}));
    std::vector<double> w;
    const auto p = randomProblem<double>(20000, 40, 23, 0, &w);
    const std::vector<bool> all(40, true);
    const auto one = zvtest::withThreads(1, [&] { return weightedSquares(p.N, p.P, p.X, w, all); });
    const auto two = zvtest::withThreads(2, [&] { return weightedSquares(p.N, p.P, p.X, w, all); });
    expectBitEqual(one, two);
    expectBitEqual(one, p.xx);  // the same ascending sums as the problem's own
    Owned a = zvhost::scalar(1);
    const auto id = countErrorsOf(lassoglmWtimesX2);
    EXPECT_EQ(id(2, {a.get()}), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(1, {a.get(), a.get(), a.get()}), "zvhost:TooFewInputs");
    EXPECT_EQ(id(1, {a.get(), a.get(), a.get(), a.get(), a.get()}), "zvhost:TooManyInputs");
    EXPECT_FALSE(zvhost::call(lassoglmWtimesX2, 0, std::vector<const ndArray*>(4, nullptr))[0]);
}

}  // namespace

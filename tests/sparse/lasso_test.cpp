// lassoCoordDescentCycle, lassoCoordDescentCycleWithCov, lassoYminusXb: hand
// sweeps, a plain transcription of the sweep, the threshold edges, the count
// errors in their order, the write through a start vector, and thread-count
// independence of the parallel residual update.
#include <cmath>
#include <limits>

#include "sparse/lasso.hpp"
#include "sparse/lasso_gateways.hpp"

namespace {

using zvhost::Owned;
using namespace zvtest::lasso;

template <class T>
struct Dense {
    size_t N = 0, P = 0;
    std::vector<T> X, weightedX, y, b, shrink, r, xx;
    std::vector<bool> active;
    double divisor = 1, threshold = 0;
};

template <class T>
struct Swept {
    std::vector<T> b, r;
    std::vector<bool> active;
};

// Calls the sweep with `numInputs` of the ten inputs and all three outputs.
template <class T>
Swept<T> sweep(const Dense<T>& p, int numInputs = 10) {
    Owned X = zvhost::matrixOf<T>(p.N, p.P, std::span<const T>(p.X));
    Owned W = zvhost::matrixOf<T>(p.N, p.P, std::span<const T>(p.weightedX));
    Owned y = column(p.y), b = column(p.b), active = mask(p.active), shrink = column(p.shrink);
    Owned divisor = scalarOf<T>(p.divisor), threshold = scalarOf<T>(p.threshold);
    Owned r = column(p.r), xx = column(p.xx);
    std::vector<const ndArray*> in{X.get(), W.get(), y.get(), b.get(), active.get(),
                                   divisor.get(), shrink.get(), threshold.get(), r.get(), xx.get()};
    in.resize(size_t(numInputs));
    auto out = zvhost::call(lassoCoordDescentCycle, 3, in);
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    EXPECT_EQ(ndGetClassID(out[1].get()), ndLOGICAL_CLASS);
    EXPECT_EQ(ndGetM(out[2].get()), p.N);
    return {zvhost::valuesOf<T>(out[0].get()), zvhost::valuesOf<T>(out[2].get()), maskValues(out[1].get())};
}

// The sweep written out with plain loops, every sum ascending in T.
template <class T>
Swept<T> referenceSweep(const Dense<T>& p, bool haveResidual = true) {
    Swept<T> s{p.b, p.r, p.active};
    const size_t N = p.N;
    if (!haveResidual) {
        s.r = p.y;
        for (size_t j = 0; j < p.P; ++j)
            for (size_t i = 0; i < N; ++i) s.r[i] -= p.X[i + j * N] * s.b[j];
    }
    for (size_t j = 0; j < p.P; ++j) {
        if (!s.active[j]) continue;
        const T old = s.b[j];
        T d = 0;
        for (size_t i = 0; i < N; ++i) d += p.weightedX[i + j * N] * s.r[i];
        const T g = (d + old * p.xx[j]) / T(p.divisor);
        if (g > T(p.threshold)) s.b[j] = (g - T(p.threshold)) / p.shrink[j];
        else if (g < -T(p.threshold)) s.b[j] = (g + T(p.threshold)) / p.shrink[j];
        else s.b[j] = 0, s.active[j] = false;
        for (size_t i = 0; i < N; ++i) s.r[i] = s.r[i] - p.X[i + j * N] * (s.b[j] - old);
    }
    return s;
}

// X = [1 0; 1 2], y = (3, 5): small integers, so every step is exact.
Dense<double> handProblem() {
    Dense<double> p;
    p.N = 2, p.P = 2;
    p.X = {1, 1, 0, 2};
    p.weightedX = p.X;
    p.y = {3, 5};
    p.b = {0, 0};
    p.r = p.y;
    p.xx = {2, 4};
    p.shrink = {2, 4};
    p.active = {true, true};
    p.threshold = 1;
    return p;
}

// A random problem with the least-squares mapping: weightedX = X, xx the
// squared column norms, divisor N, shrink (xx + ridge) / N, r the residual of b.
template <class T>
Dense<T> randomProblem(size_t N, size_t P, unsigned seed, double threshold) {
    Dense<T> p;
    p.N = N, p.P = P;
    p.X = normals<T>(N * P, seed);
    p.y = normals<T>(N, seed + 1, 3.0);
    p.b = normals<T>(P, seed + 2, 0.3);
    p.weightedX = p.X;
    p.xx.assign(P, 0);
    p.shrink.assign(P, 0);
    for (size_t j = 0; j < P; ++j) {
        for (size_t i = 0; i < N; ++i) p.xx[j] += p.X[i + j * N] * p.X[i + j * N];
        p.shrink[j] = (p.xx[j] + T(0.5)) / T(N);
    }
    p.divisor = double(N);
    p.threshold = threshold;
    p.active.assign(P, true);
    p.r = p.y;
    for (size_t j = 0; j < P; ++j)
        for (size_t i = 0; i < N; ++i) p.r[i] -= p.X[i + j * N] * p.b[j];
    return p;
}

TEST(LassoSweep, HandComputedSweep) {
    zvtest::LeakCheck leaks;
    const auto s = sweep(handProblem());
    // j = 0: d = 8, g = 8, b0 = 7/2, r = (-1/2, 3/2); j = 1: d = 3, b1 = 2/4, r = (-1/2, 1/2).
    EXPECT_EQ(s.b, (std::vector<double>{3.5, 0.5}));
    EXPECT_EQ(s.r, (std::vector<double>{-0.5, 0.5}));
    EXPECT_EQ(s.active, (std::vector<bool>{true, true}));
}

TEST(LassoSweep, WithoutResidualStartsFromYMinusXb) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.b = {1, 0.5};
    p.r = {-99, -99};  // stale: a call with eight inputs must not need it
    p.active = {false, false};
    const auto s = sweep(p, 8);
    EXPECT_EQ(s.b, p.b);
    EXPECT_EQ(s.r, (std::vector<double>{2, 3}));  // y - X b, nothing visited
    EXPECT_EQ(s.active, p.active);
}

TEST(LassoSweep, ThresholdIsExclusiveOnBothSides) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.threshold = 8;  // g0 = 8 exactly: dropped, no change to r
    auto s = sweep(p);
    EXPECT_EQ(s.b, (std::vector<double>{0, 0.5}));  // g1 = 10: (10 - 8) / 4
    EXPECT_EQ(s.active, (std::vector<bool>{false, true}));
    EXPECT_EQ(s.r, (std::vector<double>{3, 4}));
    p.y = p.r = {-3, -5};  // g0 = -8 = -threshold: dropped as well
    s = sweep(p);
    EXPECT_EQ(s.b, (std::vector<double>{0, -0.5}));
    EXPECT_EQ(s.active, (std::vector<bool>{false, true}));
}

TEST(LassoSweep, DroppedPredictorStillLeavesItsDeltaInTheResidual) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.b = {1, 0};
    p.r = {2, 4};  // y - X b
    p.threshold = 100;
    const auto s = sweep(p);
    EXPECT_EQ(s.b, (std::vector<double>{0, 0}));
    EXPECT_EQ(s.active, (std::vector<bool>{false, false}));
    EXPECT_EQ(s.r, (std::vector<double>{3, 5}));  // back to y - X * 0
}

TEST(LassoSweep, NaNCoordinateIsDropped) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.r = {std::numeric_limits<double>::quiet_NaN(), 5};
    const auto s = sweep(p);
    EXPECT_EQ(s.b[0], 0.0);
    EXPECT_FALSE(s.active[0]);
}

TEST(LassoSweep, InactivePredictorsAreNotRead) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.N = 2, p.P = 3;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    // A middle predictor full of NaN, inactive, with a NaN shrink and xx.
    p.X = {1, 1, nan, nan, 0, 2};
    p.weightedX = p.X;
    p.b = {0, 0, 0};
    p.xx = {2, nan, 4};
    p.shrink = {2, nan, 4};
    p.active = {true, false, true};
    const auto s = sweep(p);
    EXPECT_EQ(s.b, (std::vector<double>{3.5, 0, 0.5}));
    EXPECT_EQ(s.r, (std::vector<double>{-0.5, 0.5}));
}

TEST(LassoSweep, DivisorScalesTheCoordinateValue) {
    zvtest::LeakCheck leaks;
    auto p = handProblem();
    p.divisor = 2;  // g0 = 4, b0 = 3/2, r = (3/2, 7/2); g1 = 7/2, b1 = 5/8
    const auto s = sweep(p);
    EXPECT_EQ(s.b, (std::vector<double>{1.5, 0.625}));
    EXPECT_EQ(s.r, (std::vector<double>{1.5, 2.25}));
}

TEST(LassoSweep, MatchesPlainTranscriptionInBothPrecisions) {
    zvtest::LeakCheck leaks;
    for (double threshold : {0.0, 0.3, 1.0}) {
        const auto p = randomProblem<double>(300, 12, 5, threshold);
        const auto ref = referenceSweep(p), s = sweep(p);
        expectNear(s.b, ref.b, 1e-12);
        expectNear(s.r, ref.r, 1e-12);
        EXPECT_EQ(s.active, ref.active);
    }
    const auto pf = randomProblem<float>(300, 12, 9, 0.3);
    const auto ref = referenceSweep(pf), s = sweep(pf);
    expectNear(s.b, ref.b, 2e-5);
    expectNear(s.r, ref.r, 2e-5);
}

TEST(LassoSweep, EightInputsFormTheirOwnResidual) {
    zvtest::LeakCheck leaks;
    // Without input 8 the sweep starts from y - X b, and xx counts as zero.
    auto p = randomProblem<double>(200, 6, 21, 0.2);
    p.r.assign(p.N, std::numeric_limits<double>::quiet_NaN());  // not passed
    const auto own = sweep(p, 8);
    p.xx.assign(p.P, 0);
    const auto ref = referenceSweep(p, false);
    expectNear(own.b, ref.b, 1e-12);
    expectNear(own.r, ref.r, 1e-12);
    EXPECT_EQ(own.active, ref.active);
}

TEST(LassoSweep, MissingTrailingInputsHaveDefinedMeaning) {
    zvtest::LeakCheck leaks;
    // Eight inputs with active predictors: no residual and no xx, so the
    // own contribution counts as zero. Nine: the residual is used, xx is zero.
    auto p = handProblem();
    p.b = {1, 0};
    p.r = {2, 4};
    auto q = p;
    q.xx = {0, 0};
    const auto eight = sweep(p, 8), nine = sweep(p, 9), reference = referenceSweep(q, true);
    EXPECT_EQ(eight.b, reference.b);
    EXPECT_EQ(eight.r, reference.r);
    EXPECT_EQ(nine.b, reference.b);
    EXPECT_EQ(nine.active, reference.active);
}

TEST(LassoSweep, EmptyPredictorsGiveEmptyOutputsAndResidualY) {
    zvtest::LeakCheck leaks;
    Dense<double> p;
    p.N = 3, p.P = 0;
    p.y = {1, 2, 3};
    const auto s = sweep(p, 8);
    EXPECT_TRUE(s.b.empty());
    EXPECT_TRUE(s.active.empty());
    EXPECT_EQ(s.r, p.y);
    Dense<double> none;  // no rows either
    none.P = 2, none.b = {1, -1}, none.xx = {0, 0}, none.shrink = {1, 1}, none.active = {true, true};
    const auto t = sweep(none);
    EXPECT_EQ(t.b, (std::vector<double>{0, 0}));  // g = 0 for an empty column
    EXPECT_TRUE(t.r.empty());
}

TEST(LassoSweep, SingleInputsSelectSinglePrecision) {
    zvtest::LeakCheck leaks;
    const auto d = handProblem();
    Dense<float> p;
    p.N = d.N, p.P = d.P, p.active = d.active, p.threshold = d.threshold;
    auto f = [](const std::vector<double>& v) { return std::vector<float>(v.begin(), v.end()); };
    p.X = f(d.X), p.weightedX = f(d.weightedX), p.y = f(d.y), p.b = f(d.b), p.r = f(d.r);
    p.xx = f(d.xx), p.shrink = f(d.shrink);
    const auto s = sweep(p);
    EXPECT_EQ(s.b, (std::vector<float>{3.5f, 0.5f}));
    EXPECT_EQ(s.r, (std::vector<float>{-0.5f, 0.5f}));
}

TEST(LassoSweep, OneOutputGivesTheCoefficientsAndNoInputIsWritten) {
    zvtest::LeakCheck leaks;
    const auto p = handProblem();
    Owned X = zvhost::matrixOf<double>(2, 2, std::span<const double>(p.X));
    Owned y = column(p.y), b = column(p.b), active = mask(p.active), shrink = column(p.shrink);
    Owned divisor = zvhost::scalar(1), threshold = zvhost::scalar(1), r = column(p.r), xx = column(p.xx);
    auto out = zvhost::call(lassoCoordDescentCycle, 1, {X.get(), X.get(), y.get(), b.get(), active.get(),
                                                        divisor.get(), shrink.get(), threshold.get(), r.get(), xx.get()});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (std::vector<double>{3.5, 0.5}));
    EXPECT_EQ(zvhost::valuesOf<double>(b.get()), p.b);
    EXPECT_EQ(zvhost::valuesOf<double>(r.get()), p.r);
    EXPECT_EQ(maskValues(active.get()), p.active);
}

// Two predictors over columns just below and just above the parallel row
// threshold: the values match the row-by-row update, and two threads give
// the bits of one.
TEST(LassoSweep, ParallelResidualUpdateAboveThresholdIsThreadIndependent) {
    zvtest::LeakCheck leaks;
    for (size_t N : {size_t(zv::lasso::kParallelUpdateRows), size_t(zv::lasso::kParallelUpdateRows) + 1}) {
        auto p = randomProblem<double>(N, 2, 31, 0.1);
        const auto one = zvtest::withThreads(1, [&] { return sweep(p); });
        const auto two = zvtest::withThreads(2, [&] { return sweep(p); });
        expectBitEqual(one.b, two.b);
        expectBitEqual(one.r, two.r);
        const auto ref = referenceSweep(p);
        expectNear(one.b, ref.b, 1e-10);
        expectNear(one.r, ref.r, 1e-10);
        if (N > zv::lasso::kParallelUpdateRows) {
            // The parallel update is the plain row-by-row one: bit for bit.
            std::vector<double> r = p.r;
            for (size_t j = 0; j < 2; ++j) {
                const double delta = one.b[j] - p.b[j];
                for (size_t i = 0; i < N; ++i) r[i] = r[i] - p.X[i + j * N] * delta;
            }
            expectBitEqual(one.r, r);
        }
    }
}

TEST(LassoSweep, CountErrorsOutputsFirstAndZeroOutputsTouchNothing) {
    zvtest::LeakCheck leaks;
    const auto p = handProblem();
    Owned X = zvhost::matrixOf<double>(2, 2, std::span<const double>(p.X));
    std::vector<const ndArray*> seven(7, X.get()), eleven(11, X.get());
    const auto id = countErrorsOf(lassoCoordDescentCycle);
    EXPECT_EQ(id(4, seven), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(4, eleven), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(3, seven), "zvhost:TooFewInputs");
    EXPECT_EQ(id(3, eleven), "zvhost:TooManyInputs");
    EXPECT_EQ(id(0, seven), "zvhost:TooFewInputs");
    // No output asked for: the inputs are not even looked at.
    std::vector<const ndArray*> nulls(10, nullptr);
    auto out = zvhost::call(lassoCoordDescentCycle, 0, nulls);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_FALSE(out[0]);
}

// ---- covariance form -------------------------------------------------------

template <class T>
std::vector<T> covarianceSweep(size_t P, const std::vector<T>& c, const std::vector<T>& G, std::vector<T> b,
                               std::vector<bool>& active, double divisor, const std::vector<T>& shrink,
                               double threshold, int numOutputs = 2) {
    Owned placeholder = zvhost::matrixOf<T>(0, P);  // only its column count and class are read
    Owned bA = column(b), aA = mask(active), cA = column(c), sA = column(shrink);
    Owned GA = zvhost::matrixOf<T>(P, P, std::span<const T>(G));
    Owned dA = scalarOf<T>(divisor), tA = scalarOf<T>(threshold);
    auto out = zvhost::call(lassoCoordDescentCycleWithCov, numOutputs,
                            {placeholder.get(), nullptr, nullptr, bA.get(), aA.get(), dA.get(), sA.get(),
                             tA.get(), cA.get(), GA.get()});
    if (numOutputs > 1) active = maskValues(out[1].get());
    return zvhost::valuesOf<T>(out[0].get());
}

TEST(LassoCovarianceSweep, HandComputedSweepEqualsDenseSweep) {
    zvtest::LeakCheck leaks;
    // G = X'X and c = X'y of the hand problem: the same sweep without a residual.
    std::vector<bool> active{true, true};
    const auto b = covarianceSweep<double>(2, {8, 10}, {2, 2, 2, 4}, {0, 0}, active, 1, {2, 4}, 1);
    EXPECT_EQ(b, (std::vector<double>{3.5, 0.5}));
    EXPECT_EQ(active, (std::vector<bool>{true, true}));
}

TEST(LassoCovarianceSweep, LaterCoordinatesSeeEarlierUpdates) {
    zvtest::LeakCheck leaks;
    // Threshold 3: g0 = 8 gives b0 = 5/2; g1 = 10 - 2 * 5/2 = 5 gives b1 = 2/4.
    // With the b of the start (0) it would be 10 and b1 = 7/4.
    std::vector<bool> active{true, true};
    const auto b = covarianceSweep<double>(2, {8, 10}, {2, 2, 2, 4}, {0, 0}, active, 1, {2, 4}, 3);
    EXPECT_EQ(b, (std::vector<double>{2.5, 0.5}));
}

TEST(LassoCovarianceSweep, EdgesAndDrops) {
    zvtest::LeakCheck leaks;
    std::vector<bool> active{true, false};
    auto b = covarianceSweep<double>(2, {8, 10}, {2, 2, 2, 4}, {0, 7}, active, 1, {2, 4}, 8);
    EXPECT_EQ(b, (std::vector<double>{0, 7}));  // g0 = 8 - 14 = -6 inside: dropped; b1 untouched
    EXPECT_EQ(active, (std::vector<bool>{false, false}));
    active = {true, true};
    b = covarianceSweep<double>(2, {8, 10}, {2, 2, 2, 4}, {0, 0}, active, 2, {2, 4}, 4);
    EXPECT_EQ(b, (std::vector<double>{0, 0.25}));  // g0 = 4 = threshold; g1 = 5: 1/4
    EXPECT_EQ(active, (std::vector<bool>{false, true}));
}

TEST(LassoCovarianceSweep, MatchesDenseSweepOnRandomProblem) {
    zvtest::LeakCheck leaks;
    auto p = randomProblem<double>(400, 10, 41, 0.25);
    // Covariance form of the same problem: c = X'y, G = X'X, the same divisor.
    std::vector<double> c(p.P, 0), G(p.P * p.P, 0);
    for (size_t j = 0; j < p.P; ++j) {
        for (size_t i = 0; i < p.N; ++i) c[j] += p.X[i + j * p.N] * p.y[i];
        for (size_t k = 0; k < p.P; ++k)
            for (size_t i = 0; i < p.N; ++i) G[k + j * p.P] += p.X[i + j * p.N] * p.X[i + k * p.N];
    }
    std::vector<bool> active(p.P, true);
    const auto b = covarianceSweep(p.P, c, G, p.b, active, p.divisor, p.shrink, p.threshold);
    const auto dense = referenceSweep(p);
    expectNear(b, dense.b, 1e-10);
    EXPECT_EQ(active, dense.active);
}

TEST(LassoCovarianceSweep, CountErrorsAndZeroOutputs) {
    zvtest::LeakCheck leaks;
    Owned a = zvhost::scalar(1);
    std::vector<const ndArray*> nine(9, a.get()), eleven(11, a.get());
    const auto id = countErrorsOf(lassoCoordDescentCycleWithCov);
    EXPECT_EQ(id(3, nine), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(2, nine), "zvhost:TooFewInputs");
    EXPECT_EQ(id(2, eleven), "zvhost:TooManyInputs");
    auto out = zvhost::call(lassoCoordDescentCycleWithCov, 0, std::vector<const ndArray*>(10, nullptr));
    EXPECT_FALSE(out[0]);
    std::vector<bool> active{true};
    EXPECT_EQ(covarianceSweep<double>(1, {3}, {1}, {0}, active, 1, {1}, 1, 1), (std::vector<double>{2}));
}

// ---- residual --------------------------------------------------------------

TEST(LassoResidual, FourInputsStartFromY) {
    zvtest::LeakCheck leaks;
    Owned X = zvhost::matrixOf<double>(2, 2, {1, 1, 0, 2});
    Owned y = column<double>({3, 5}), b = column<double>({3.5, 0.5});
    Owned both = mask({true, true}), first = mask({true, false});
    auto out = zvhost::call(lassoYminusXb, 1, {X.get(), y.get(), b.get(), both.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (std::vector<double>{-0.5, 0.5}));
    out = zvhost::call(lassoYminusXb, 1, {X.get(), y.get(), b.get(), first.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (std::vector<double>{-0.5, 1.5}));
    EXPECT_EQ(zvhost::valuesOf<double>(y.get()), (std::vector<double>{3, 5}));
}

TEST(LassoResidual, FifthInputIsUpdatedInPlaceAndCopiedOut) {
    zvtest::LeakCheck leaks;
    Owned X = zvhost::matrixOf<double>(2, 2, {1, 1, 0, 2});
    Owned y = column<double>({-99, -99});  // not read when a start vector is given
    Owned b = column<double>({3.5, 0.5}), both = mask({true, true});
    Owned start = column<double>({3, 5});
    auto out = zvhost::call(lassoYminusXb, 1, {X.get(), y.get(), b.get(), both.get(), start.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (std::vector<double>{-0.5, 0.5}));
    EXPECT_EQ(zvhost::valuesOf<double>(start.get()), (std::vector<double>{-0.5, 0.5}));
    EXPECT_NE(out[0].get(), start.get());
    // A second call goes on from where the first left it.
    out = zvhost::call(lassoYminusXb, 1, {X.get(), y.get(), b.get(), both.get(), start.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(start.get()), (std::vector<double>{-4, -4}));
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), zvhost::valuesOf<double>(start.get()));
}

TEST(LassoResidual, MatchesPlainLoopsAndSkipsInactive) {
    zvtest::LeakCheck leaks;
    const size_t N = 50, P = 7;
    auto x = normals<float>(N * P, 3), y = normals<float>(N, 4), b = normals<float>(P, 5);
    std::vector<bool> active{true, false, true, true, false, true, true};
    x[1 * N + 3] = std::numeric_limits<float>::quiet_NaN();  // inactive column: never read
    std::vector<float> expected = y;
    for (size_t j = 0; j < P; ++j)
        if (active[j])
            for (size_t i = 0; i < N; ++i) expected[i] = expected[i] - x[i + j * N] * b[j];
    Owned X = zvhost::matrixOf<float>(N, P, std::span<const float>(x));
    Owned yA = column(y), bA = column(b), aA = mask(active);
    auto out = zvhost::call(lassoYminusXb, 1, {X.get(), yA.get(), bA.get(), aA.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndSINGLE_CLASS);
    expectBitEqual(zvhost::valuesOf<float>(out[0].get()), expected);
}

TEST(LassoResidual, CountErrorsAndZeroOutputsLeaveStartVectorAlone) {
    zvtest::LeakCheck leaks;
    Owned X = zvhost::matrixOf<double>(2, 2, {1, 1, 0, 2});
    Owned y = column<double>({3, 5}), b = column<double>({3.5, 0.5}), both = mask({true, true});
    Owned start = column<double>({3, 5});
    const auto id = countErrorsOf(lassoYminusXb);
    const ndArray* a = X.get();
    EXPECT_EQ(id(2, {a, a, a}), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(2, {a, a, a, a, a, a}), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(1, {a, a, a}), "zvhost:TooFewInputs");
    EXPECT_EQ(id(1, {a, a, a, a, a, a}), "zvhost:TooManyInputs");
    auto out = zvhost::call(lassoYminusXb, 0, {X.get(), y.get(), b.get(), both.get(), start.get()});
    EXPECT_FALSE(out[0]);
    EXPECT_EQ(zvhost::valuesOf<double>(start.get()), (std::vector<double>{3, 5}));
}

}  // namespace

// The lasso and GLM-lasso gateways: hand sweeps, plain transcriptions, the
// threshold edges, inputs of other classes, lengths and kinds, the write
// through a start vector, the counts and thread-count independence.
#include <cmath>
#include <functional>
#include <limits>

#include "sparse/lasso.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::expectBitEqual;
using zvtest::normals;
using Gateway = void (*)(int, ndArray**, int, const ndArray**);
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
Owned column(const std::vector<T>& v) {
    return zvhost::matrixOf<T>(v.size(), 1, std::span<const T>(v));
}

Owned mask(const std::vector<bool>& v) {
    Owned a(ndCreateLogicalMatrix(v.size(), 1));
    for (size_t j = 0; j < v.size(); ++j) ndGetLogicals(a.get())[j] = v[j];
    return a;
}

template <class T>
Owned scalarOf(double x) {
    return std::is_same_v<T, float> ? Owned(ndCreateSingleScalar(float(x))) : zvhost::scalar(x);
}

template <class... A>
std::vector<Owned> arrays(A&&... a) {
    std::vector<Owned> v;
    (v.push_back(std::forward<A>(a)), ...);
    return v;
}

std::vector<const ndArray*> borrowed(const std::vector<Owned>& in) {
    std::vector<const ndArray*> v;
    for (const auto& a : in) v.push_back(a.get());
    return v;
}

template <class T>
void expectNear(const std::vector<T>& a, const std::vector<T>& b, double relative) {
    ASSERT_EQ(a.size(), b.size());
    double scale = 1;
    for (T v : b) scale = std::max(scale, std::abs(double(v)));
    for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(double(a[i]), double(b[i]), relative * scale) << "at " << i;
}

// One problem for both sweeps: the GLM sweep is the dense one with y = z,
// divisor 1 and a residual formed afresh.
template <class T>
struct Problem {
    size_t N = 0, P = 0;
    std::vector<T> X, weightedX, y, b, shrink, r, xx;
    std::vector<bool> active;
    double divisor = 1, threshold = 0;

    std::vector<Owned> sweepInputs() const {
        return arrays(matrix(X), matrix(weightedX), column(y), column(b), mask(active), scalarOf<T>(divisor),
                      column(shrink), scalarOf<T>(threshold), column(r), column(xx));
    }
    std::vector<Owned> glmInputs() const {
        return arrays(matrix(X), matrix(weightedX), column(xx), column(y), column(b), mask(active), column(shrink),
                      scalarOf<T>(threshold));
    }
    Owned matrix(const std::vector<T>& v) const { return zvhost::matrixOf<T>(N, P, std::span<const T>(v)); }
};

template <class T>
struct Swept {
    std::vector<T> b, r;
    std::vector<bool> active;
};

// The outputs of a sweep gateway: b, active and, from the dense sweep, r.
template <class T>
Swept<T> run(Gateway f, const std::vector<Owned>& in, size_t numInputs = 10) {
    auto list = borrowed(in);
    list.resize(std::min(list.size(), numInputs));
    const int numOutputs = f == lassoCoordDescentCycle ? 3 : 2;
    auto out = zvhost::call(f, numOutputs, list);
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    const bool* active = ndGetLogicals(out[1].get());
    Swept<T> s{zvhost::valuesOf<T>(out[0].get()), {}, std::vector<bool>(active, active + ndGetNumberOfElements(out[1].get()))};
    if (numOutputs == 3) s.r = zvhost::valuesOf<T>(out[2].get());
    return s;
}

template <class T>
Swept<T> sweep(const Problem<T>& p, size_t numInputs = 10) {
    return run<T>(lassoCoordDescentCycle, p.sweepInputs(), numInputs);
}

template <class T>
Swept<T> glmSweep(const Problem<T>& p) {
    return run<T>(lassoglmCoordDescentCycleNoRecalc, p.glmInputs());
}

// The sweep written out with plain loops, every sum ascending in T.
template <class T>
Swept<T> referenceSweep(const Problem<T>& p, bool haveResidual = true) {
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

// X = [1 0; 1 2], y = (3, 5): small integers, so every step is exact. With
// weights (1, 2), weightedX and xx are those of the GLM sweep.
Problem<double> handProblem(bool weighted = false) {
    Problem<double> p;
    p.N = 2, p.P = 2;
    p.X = {1, 1, 0, 2};
    p.weightedX = weighted ? std::vector<double>{1, 2, 0, 4} : p.X;
    p.y = p.r = {3, 5};
    p.b = {0, 0};
    p.xx = p.shrink = weighted ? std::vector<double>{3, 8} : std::vector<double>{2, 4};
    p.active = {true, true};
    p.threshold = 1;
    return p;
}

Problem<float> inSingle(const Problem<double>& d) {
    auto f = [](const std::vector<double>& v) { return std::vector<float>(v.begin(), v.end()); };
    return {d.N, d.P, f(d.X), f(d.weightedX), f(d.y), f(d.b), f(d.shrink), f(d.r), f(d.xx), d.active, d.divisor, d.threshold};
}

// Least squares (weightedX = X, divisor N, shrink (xx + ridge) / N), or with
// positive weights w the GLM mapping (weightedX = w X, divisor 1, shrink
// xx + 1); xx the weighted squared column sums, r the residual of b.
template <class T>
Problem<T> randomProblem(size_t N, size_t P, unsigned seed, double threshold, bool weighted = false) {
    Problem<T> p;
    p.N = N, p.P = P;
    p.X = normals<T>(N * P, seed);
    p.y = p.r = normals<T>(N, seed + 1, 3.0);
    p.b = normals<T>(P, seed + 2, 0.3);
    std::vector<T> w = normals<T>(N, seed + 3);
    for (auto& v : w) v = weighted ? std::abs(v) : T(1);
    p.weightedX.resize(N * P);
    p.xx.assign(P, 0);
    p.shrink.resize(P);
    for (size_t j = 0; j < P; ++j) {
        for (size_t i = 0; i < N; ++i) {
            p.weightedX[i + j * N] = w[i] * p.X[i + j * N];
            p.xx[j] += (w[i] * p.X[i + j * N]) * p.X[i + j * N];
            p.r[i] -= p.X[i + j * N] * p.b[j];
        }
        p.shrink[j] = weighted ? p.xx[j] + T(1) : (p.xx[j] + T(0.5)) / T(N);
    }
    p.divisor = weighted ? 1.0 : double(N);
    p.threshold = threshold;
    p.active.assign(P, true);
    return p;
}

// ---- the dense sweep ---------------------------------------------------------

TEST(LassoSweep, HandCasesInBothPrecisions) {
    zvtest::LeakCheck leaks;
    struct Case {
        const char* what;
        std::function<void(Problem<double>&)> change;
        std::vector<double> b, r;
        std::vector<bool> active;
    };
    const Case cases[] = {
        // j = 0: d = 8, b0 = 7/2, r = (-1/2, 3/2); j = 1: d = 3, b1 = 2/4.
        {"plain", [](auto&) {}, {3.5, 0.5}, {-0.5, 0.5}, {true, true}},
        {"g0 = threshold is dropped", [](auto& p) { p.threshold = 8; }, {0, 0.5}, {3, 4}, {false, true}},
        {"g0 = -threshold is dropped", [](auto& p) { p.threshold = 8, p.y = p.r = {-3, -5}; }, {0, -0.5}, {-3, -4},
         {false, true}},
        {"a dropped predictor still leaves its delta in r", [](auto& p) { p.b = {1, 0}, p.r = {2, 4}, p.threshold = 100; },
         {0, 0}, {3, 5}, {false, false}},
        {"a NaN coordinate is dropped", [](auto& p) { p.r = {kNaN, 5}; }, {0, 0}, {kNaN, 5}, {false, false}},
        {"the divisor scales g", [](auto& p) { p.divisor = 2; }, {1.5, 0.625}, {1.5, 2.25}, {true, true}},
        {"inactive predictors are not read",
         [](auto& p) {
             p.P = 3, p.X = p.weightedX = {1, 1, kNaN, kNaN, 0, 2};
             p.b = {0, 0, 0}, p.xx = p.shrink = {2, kNaN, 4}, p.active = {true, false, true};
         },
         {3.5, 0, 0.5}, {-0.5, 0.5}, {true, false, true}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Problem<double> p = handProblem();
        c.change(p);
        const auto s = sweep(p);
        expectBitEqual(s.b, c.b);
        expectBitEqual(s.r, c.r);
        EXPECT_EQ(s.active, c.active);
        const auto f = sweep(inSingle(p));
        expectBitEqual(f.b, std::vector<float>(c.b.begin(), c.b.end()));
        expectBitEqual(f.r, std::vector<float>(c.r.begin(), c.r.end()));
    }
}

TEST(LassoSweep, MatchesPlainTranscriptionInBothPrecisions) {
    zvtest::LeakCheck leaks;
    // Eight inputs form r = y - X b; fewer than ten count xx as zero.
    for (size_t count : {8, 9, 10})
        for (double threshold : {0.0, 0.3, 1.0}) {
            const auto p = randomProblem<double>(300, 12, 5 + unsigned(count), threshold);
            auto q = p;
            if (count < 10) q.xx.assign(p.P, 0);
            const auto ref = referenceSweep(q, count > 8), s = sweep(p, count);
            expectNear(s.b, ref.b, 1e-12);
            expectNear(s.r, ref.r, 1e-12);
            EXPECT_EQ(s.active, ref.active);
        }
    const auto pf = randomProblem<float>(300, 12, 9, 0.3);
    const auto ref = referenceSweep(pf), s = sweep(pf);
    expectNear(s.b, ref.b, 2e-5);
    expectNear(s.r, ref.r, 2e-5);
    // Eight inputs and nothing active: b as given and r = y - X b; input 8 is not read.
    auto idle = handProblem();
    idle.b = {1, 0.5}, idle.r = {-99, -99}, idle.active = {false, false};
    EXPECT_EQ(sweep(idle, 8).b, idle.b);
    EXPECT_EQ(sweep(idle, 8).r, (std::vector<double>{2, 3}));
}

TEST(LassoSweep, EmptyShapesAndOneOutput) {
    zvtest::LeakCheck leaks;
    Problem<double> p;
    p.N = 3, p.y = {1, 2, 3};
    const auto s = sweep(p, 8);
    EXPECT_TRUE(s.b.empty() && s.active.empty());
    EXPECT_EQ(s.r, p.y);
    Problem<double> noRows;  // g = 0 for an empty column
    noRows.P = 2, noRows.b = {1, -1}, noRows.xx = {0, 0}, noRows.shrink = {1, 1}, noRows.active = {true, true};
    const auto t = sweep(noRows);
    EXPECT_EQ(t.b, (std::vector<double>{0, 0}));
    EXPECT_TRUE(t.r.empty());
    // One output: the coefficients only, and no input is written.
    const auto in = handProblem().sweepInputs();
    auto out = zvhost::call(lassoCoordDescentCycle, 1, borrowed(in));
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (std::vector<double>{3.5, 0.5}));
    EXPECT_EQ(zvhost::valuesOf<double>(in[3].get()), handProblem().b);
    EXPECT_EQ(zvhost::valuesOf<double>(in[8].get()), handProblem().r);
}

TEST(LassoSweep, InputsOfAnotherClassAreConvertedNotMisread) {
    // The hand problem's numbers are exact in single precision: each data
    // input given so, or the mask as doubles, sweeps the same.
    zvtest::LeakCheck leaks;
    for (size_t slot : {1, 2, 3, 4, 6, 8, 9}) {
        SCOPED_TRACE(::testing::Message() << "input " << slot);
        const size_t count = slot == 2 ? 8 : 10;  // y is read only without a residual
        auto in = handProblem().sweepInputs();
        in[slot] = slot == 4 ? zvhost::matrixOf<double>(2, 1, {1, 1}) : std::move(inSingle(handProblem()).sweepInputs()[slot]);
        const auto s = run<double>(lassoCoordDescentCycle, in, count), expected = sweep(handProblem(), count);
        EXPECT_EQ(s.b, expected.b);
        EXPECT_EQ(s.r, expected.r);
        EXPECT_EQ(s.active, expected.active);
    }
}

// Two predictors over columns just below and just above the parallel row
// threshold: two threads give the bits of one, and the residual is the plain
// row-by-row update, bit for bit where it runs in parallel.
TEST(LassoSweep, ParallelResidualUpdateAboveThresholdIsThreadIndependent) {
    zvtest::LeakCheck leaks;
    for (size_t N : {size_t(zv::sparse::kParallelUpdateRows), size_t(zv::sparse::kParallelUpdateRows) + 1}) {
        auto p = randomProblem<double>(N, 2, 31, 0.1);
        const auto one = zvtest::withThreads(1, [&] { return sweep(p); });
        const auto two = zvtest::withThreads(2, [&] { return sweep(p); });
        expectBitEqual(one.b, two.b);
        expectBitEqual(one.r, two.r);
        expectNear(one.b, referenceSweep(p).b, 1e-10);
        std::vector<double> r = p.r;
        for (size_t j = 0; j < 2; ++j)
            for (size_t i = 0; i < N; ++i) r[i] = r[i] - p.X[i + j * N] * (one.b[j] - p.b[j]);
        if (N > zv::sparse::kParallelUpdateRows) expectBitEqual(one.r, r);
        else expectNear(one.r, r, 1e-12);
    }
}

// ---- the covariance sweep ------------------------------------------------------

template <class T>
std::vector<T> covarianceSweep(const std::vector<T>& c, const std::vector<T>& G, std::vector<T> b,
                               std::vector<bool>& active, double divisor, const std::vector<T>& shrink, double threshold) {
    const size_t P = b.size();
    Owned placeholder = zvhost::matrixOf<T>(0, P);  // only its column count and class are read
    Owned bA = column(b), aA = mask(active), cA = column(c), sA = column(shrink);
    Owned GA = zvhost::matrixOf<T>(P, P, std::span<const T>(G));
    Owned dA = scalarOf<T>(divisor), tA = scalarOf<T>(threshold);
    auto out = zvhost::call(lassoCoordDescentCycleWithCov, 2,
                            {placeholder.get(), nullptr, nullptr, bA.get(), aA.get(), dA.get(), sA.get(), tA.get(),
                             cA.get(), GA.get()});
    const bool* a = ndGetLogicals(out[1].get());
    active.assign(a, a + P);
    return zvhost::valuesOf<T>(out[0].get());
}

TEST(LassoCovarianceSweep, HandCases) {
    zvtest::LeakCheck leaks;
    // G = X'X and c = X'y of the hand problem: the dense sweep without a residual.
    const std::vector<double> c{8, 10}, G{2, 2, 2, 4}, shrink{2, 4};
    std::vector<bool> active{true, true};
    EXPECT_EQ(covarianceSweep<double>(c, G, {0, 0}, active, 1, shrink, 1), (std::vector<double>{3.5, 0.5}));
    EXPECT_EQ(active, (std::vector<bool>{true, true}));
    // Threshold 3: b0 = 5/2; then g1 = 10 - 2 * 5/2 = 5, b1 = 2/4: later
    // coordinates see the updates made before them in the same sweep.
    EXPECT_EQ(covarianceSweep<double>(c, G, {0, 0}, active, 1, shrink, 3), (std::vector<double>{2.5, 0.5}));
    // g0 = 8 - 14 = -6 inside the threshold: dropped; b1 inactive, untouched.
    active = {true, false};
    EXPECT_EQ(covarianceSweep<double>(c, G, {0, 7}, active, 1, shrink, 8), (std::vector<double>{0, 7}));
    EXPECT_EQ(active, (std::vector<bool>{false, false}));
    // Divisor 2, in single precision: g0 = 4 = threshold is dropped; g1 = 5 gives 1/4.
    active = {true, true};
    EXPECT_EQ(covarianceSweep<float>({8, 10}, {2, 2, 2, 4}, {0, 0}, active, 2, {2, 4}, 4), (std::vector<float>{0, 0.25}));
    EXPECT_EQ(active, (std::vector<bool>{false, true}));
}

TEST(LassoCovarianceSweep, MatchesDenseSweepOnRandomProblem) {
    zvtest::LeakCheck leaks;
    auto p = randomProblem<double>(400, 10, 41, 0.25);
    std::vector<double> c(p.P, 0), G(p.P * p.P, 0);
    for (size_t j = 0; j < p.P; ++j) {
        for (size_t i = 0; i < p.N; ++i) c[j] += p.X[i + j * p.N] * p.y[i];
        for (size_t k = 0; k < p.P; ++k)
            for (size_t i = 0; i < p.N; ++i) G[k + j * p.P] += p.X[i + j * p.N] * p.X[i + k * p.N];
    }
    std::vector<bool> active(p.P, true);
    const auto b = covarianceSweep(c, G, p.b, active, p.divisor, p.shrink, p.threshold);
    const auto dense = referenceSweep(p);
    expectNear(b, dense.b, 1e-10);
    EXPECT_EQ(active, dense.active);
}

// ---- the residual ----------------------------------------------------------------

std::vector<double> residual(const std::vector<const ndArray*>& in) {
    return zvhost::valuesOf<double>(zvhost::call(lassoYminusXb, 1, in)[0].get());
}

TEST(LassoResidual, StartsFromYOrUpdatesTheStartVectorInPlace) {
    zvtest::LeakCheck leaks;
    Owned X = zvhost::matrixOf<double>(2, 2, {1, 1, 0, 2});
    Owned y = column<double>({3, 5}), b = column<double>({3.5, 0.5});
    Owned both = mask({true, true}), first = mask({true, false});
    EXPECT_EQ(residual({X.get(), y.get(), b.get(), both.get()}), (std::vector<double>{-0.5, 0.5}));
    EXPECT_EQ(residual({X.get(), y.get(), b.get(), first.get()}), (std::vector<double>{-0.5, 1.5}));
    EXPECT_EQ(zvhost::valuesOf<double>(y.get()), (std::vector<double>{3, 5}));
    // A start vector replaces y, which is not read, and is updated where it
    // stands: a second call goes on from where the first left it.
    Owned stale = column<double>({-99, -99}), start = column<double>({3, 5});
    EXPECT_EQ(residual({X.get(), stale.get(), b.get(), both.get(), start.get()}), (std::vector<double>{-0.5, 0.5}));
    EXPECT_EQ(zvhost::valuesOf<double>(start.get()), (std::vector<double>{-0.5, 0.5}));
    EXPECT_EQ(residual({X.get(), stale.get(), b.get(), both.get(), start.get()}), (std::vector<double>{-4, -4}));
    EXPECT_EQ(zvhost::valuesOf<double>(start.get()), (std::vector<double>{-4, -4}));
    // No output asked for: the start vector is left alone.
    EXPECT_FALSE(zvhost::call(lassoYminusXb, 0, {X.get(), y.get(), b.get(), both.get(), start.get()})[0]);
    EXPECT_EQ(zvhost::valuesOf<double>(start.get()), (std::vector<double>{-4, -4}));
}

TEST(LassoResidual, AStartVectorIsWrittenOnlyWhereItHoldsValuesOfTheDataClass) {
    zvtest::LeakCheck leaks;
    Owned X = zvhost::matrixOf<double>(3, 1, {1, 2, 3});
    Owned y = column<double>({0, 0, 0}), b = column<double>({1}), on = mask({true});
    // Two values for three rows: the missing one is NaN, and the two stored are updated.
    Owned shortStart = column<double>({10, 20});
    expectBitEqual(residual({X.get(), y.get(), b.get(), on.get(), shortStart.get()}), {9, 18, kNaN});
    EXPECT_EQ(zvhost::valuesOf<double>(shortStart.get()), (std::vector<double>{9, 18}));
    // A single start vector for double data is read, not written.
    Owned singleStart = column<float>({10, 20, 30});
    EXPECT_EQ(residual({X.get(), y.get(), b.get(), on.get(), singleStart.get()}), (std::vector<double>{9, 18, 27}));
    EXPECT_EQ(zvhost::valuesOf<float>(singleStart.get()), (std::vector<float>{10, 20, 30}));
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

// ---- the GLM-lasso sweep and its weighted squares ---------------------------------

TEST(LassoGlmSweep, HandCases) {
    zvtest::LeakCheck leaks;
    struct Case {
        const char* what;
        std::function<void(Problem<double>&)> change;
        std::vector<double> b;
        std::vector<bool> active;
    };
    const Case cases[] = {
        // r = (3, 5); j = 0: d = 13, b0 = 12/3, r = (-1, 1); j = 1: d = 4, b1 = 3/8.
        {"plain", [](auto&) {}, {4, 0.375}, {true, true}},
        {"r is recomputed from b: the same d0 = -1 + 2 + 3 * 4", [](auto& p) { p.b = {4, 0}; }, {4, 0.375}, {true, true}},
        {"d0 = threshold is dropped; d1 = 20", [](auto& p) { p.threshold = 13; }, {0, 0.875}, {false, true}},
        {"d0 = -threshold", [](auto& p) { p.threshold = 13, p.y = {-3, -5}; }, {0, -0.875}, {false, true}},
        {"all inactive: b unchanged", [](auto& p) { p.b = {1.25, -2}, p.active = {false, false}; }, {1.25, -2},
         {false, false}},
        // r = (3, 5); d0 = 10: b0 = 9/2, r = (-3/2, 1/2); d1 = 2: b1 = 1/8.
        {"a zero-weight row stays in r", [](auto& p) { p.weightedX = {0, 2, 0, 4}, p.xx = p.shrink = {2, 8}; },
         {4.5, 0.125}, {true, true}},
        // d0 = 3: (3 - 1) / 4; d1 = 0.75: dropped.
        {"no rows: only the own contribution",
         [](auto& p) { p.N = 0, p.X = p.weightedX = p.y = {}, p.xx = {2, 3}, p.b = {1.5, 0.25}, p.shrink = {4, 1}; },
         {0.5, 0}, {true, false}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Problem<double> p = handProblem(true);
        c.change(p);
        const auto s = glmSweep(p);
        EXPECT_EQ(s.b, c.b);
        EXPECT_EQ(s.active, c.active);
    }
}

TEST(LassoGlmSweep, MatchesPlainTranscriptionInBothPrecisionsAndAnyThreadCount) {
    zvtest::LeakCheck leaks;
    for (double threshold : {0.0, 5.0, 40.0}) {
        const auto p = randomProblem<double>(250, 9, 3, threshold, true);
        const auto s = glmSweep(p), ref = referenceSweep(p, false);
        expectNear(s.b, ref.b, 1e-12);
        EXPECT_EQ(s.active, ref.active);
    }
    const auto pf = randomProblem<float>(250, 9, 13, 5.0, true);
    expectNear(glmSweep(pf).b, referenceSweep(pf, false).b, 1e-5);
    const auto big = randomProblem<double>(300000, 3, 17, 10.0, true);
    const auto one = zvtest::withThreads(1, [&] { return glmSweep(big); });
    const auto two = zvtest::withThreads(2, [&] { return glmSweep(big); });
    expectBitEqual(one.b, two.b);
    EXPECT_EQ(one.active, two.active);
    expectNear(one.b, referenceSweep(big, false).b, 1e-12);  // the start residual comes from gemv
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

TEST(LassoGlmWeightedSquares, HandValuesEdgesAndThreads) {
    zvtest::LeakCheck leaks;
    const std::vector<double> X{1, 1, 0, 2, 3, -1};
    EXPECT_EQ(weightedSquares<double>(2, 3, X, {1, 2}, {true, true, true}), (std::vector<double>{3, 8, 11}));
    EXPECT_EQ(weightedSquares<double>(2, 3, X, {1, 2}, {true, false, true}), (std::vector<double>{3, 0, 11}));
    EXPECT_EQ(weightedSquares<double>(2, 3, X, {0, 2}, {true, true, true}), (std::vector<double>{2, 8, 2}));
    EXPECT_EQ(weightedSquares<float>(2, 3, {1, 1, 0, 2, 3, -1}, {1, 2}, {true, true, true}), (std::vector<float>{3, 8, 11}));
    EXPECT_TRUE(weightedSquares<double>(3, 0, {}, {1, 1, 1}, {}).empty());
    EXPECT_EQ(weightedSquares<double>(0, 2, {}, {}, {true, true}), (std::vector<double>{0, 0}));
    // Ascending sums of (w x) x, whatever the thread count.
    const size_t N = 20000, P = 40;
    const auto x = normals(N * P, 23), w = normals(N, 24);
    std::vector<double> expected(P, 0);
    for (size_t j = 0; j < P; ++j)
        for (size_t i = 0; i < N; ++i) expected[j] += (w[i] * x[i + j * N]) * x[i + j * N];
    const std::vector<bool> all(P, true);
    expectBitEqual(zvtest::withThreads(1, [&] { return weightedSquares(N, P, x, w, all); }), expected);
    expectBitEqual(zvtest::withThreads(2, [&] { return weightedSquares(N, P, x, w, all); }), expected);
}

// ---- every gateway -----------------------------------------------------------------

struct GatewayCall {
    const char* name;
    Gateway f;
    int minInputs, maxInputs, maxOutputs;
    std::function<std::vector<Owned>()> valid;
};

const GatewayCall kCalls[] = {
    {"lassoCoordDescentCycle", lassoCoordDescentCycle, 8, 10, 3, [] { return handProblem().sweepInputs(); }},
    {"lassoCoordDescentCycleWithCov", lassoCoordDescentCycleWithCov, 10, 10, 2,
     [] {
         auto in = handProblem().sweepInputs();
         in[8] = column<double>({8, 10}), in[9] = zvhost::matrixOf<double>(2, 2, {2, 2, 2, 4});
         return in;
     }},
    {"lassoYminusXb", lassoYminusXb, 4, 5, 1,
     [] {
         auto in = handProblem().sweepInputs();
         return arrays(std::move(in[0]), std::move(in[2]), std::move(in[3]), std::move(in[4]), std::move(in[8]));
     }},
    {"lassoglmCoordDescentCycleNoRecalc", lassoglmCoordDescentCycleNoRecalc, 8, 8, 2,
     [] { return handProblem(true).glmInputs(); }},
    {"lassoglmWtimesX2", lassoglmWtimesX2, 4, 4, 1,
     [] {
         return arrays(zvhost::matrixOf<double>(2, 2, {1, 1, 0, 2}), column<double>({1, 2}),
                       zvhost::matrixOf<double>(0, 0), mask({true, true}));
     }},
};

TEST(LassoGateways, CountsOutputsFirstAndNoOutputReadsNothing) {
    zvtest::LeakCheck leaks;
    Owned a = zvhost::scalar(1);
    for (const GatewayCall& g : kCalls) {
        SCOPED_TRACE(g.name);
        auto id = [&](int nout, size_t count) {
            return zvtest::raisedId([&] { zvhost::call(g.f, nout, std::vector<const ndArray*>(count, a.get())); });
        };
        EXPECT_EQ(id(g.maxOutputs + 1, g.minInputs - 1), "zvhost:TooManyOutputs");
        EXPECT_EQ(id(g.maxOutputs + 1, g.maxInputs + 1), "zvhost:TooManyOutputs");
        EXPECT_EQ(id(g.maxOutputs, g.minInputs - 1), "zvhost:TooFewInputs");
        EXPECT_EQ(id(g.maxOutputs, g.maxInputs + 1), "zvhost:TooManyInputs");
        EXPECT_EQ(id(0, g.minInputs - 1), "zvhost:TooFewInputs");
        auto out = zvhost::call(g.f, 0, std::vector<const ndArray*>(g.maxInputs, nullptr));
        ASSERT_EQ(out.size(), 1u);
        EXPECT_FALSE(out[0]);
    }
}

TEST(LassoGateways, EmptyShortOrForeignInputsAreReadAsFarAsTheyHoldNumbers) {
    zvtest::LeakCheck leaks;
    for (const GatewayCall& g : kCalls)
        for (size_t slot = 0; slot < size_t(g.maxInputs); ++slot)
            for (int kind = 0; kind < 4; ++kind) {
                auto in = g.valid();
                const ndArray* a = in[slot].get();
                in[slot] = kind == 0   ? zvhost::matrixOf<double>(0, 0)
                           : kind == 1 ? zvhost::matrixOf<double>(ndGetNumberOfElements(a) ? 1 : 0, 1)
                           : kind == 2 ? Owned(zvhost::createFunctionHandle("pdist"))
                                       : Owned(zvhost::createHostObject("gpuArray"));
                SCOPED_TRACE(::testing::Message() << g.name << " input " << slot << " kind " << kind);
                EXPECT_EQ(zvtest::raisedId([&] { zvhost::call(g.f, g.maxOutputs, borrowed(in)); }), "");
            }
    // What is missing counts as NaN: coefficients read as NaN drop every
    // active predictor (g is NaN), and an inactive one keeps its NaN.
    auto in = handProblem().sweepInputs();
    in[3] = zvhost::matrixOf<double>(0, 0);
    in[4] = mask({true, false});
    const auto s = run<double>(lassoCoordDescentCycle, in);
    expectBitEqual(s.b, {0, kNaN});
    EXPECT_EQ(s.active, (std::vector<bool>{false, false}));
}

}  // namespace

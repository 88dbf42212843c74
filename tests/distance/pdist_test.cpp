// pdistbif: values against plain scalar references, the missing-data rules,
// edge cases, identifiers, thread-count independence and interruption.
#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "distance/pair_kernels_isa.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
std::vector<T> pdist(const std::vector<T>& x, size_t p, size_t n, const std::string& code,
                     const ndArray* extra = nullptr) {
    Owned xa = zvhost::matrixOf<T>(p, n, std::span<const T>(x));
    Owned ca = zvhost::text(code);
    auto out = extra ? zvhost::call(pdistbif, 1, {xa.get(), ca.get(), extra})
                     : zvhost::call(pdistbif, 1, {xa.get(), ca.get()});
    EXPECT_EQ(ndGetM(out[0].get()), 1u);
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return zvhost::valuesOf<T>(out[0].get());
}

// Plain scalar references: sums over k ascending, accumulated in T.
template <class T, class Step, class Finish>
std::vector<T> reference(const std::vector<T>& x, size_t p, size_t n, Step step, Finish finish) {
    std::vector<T> y;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j) {
            T acc = 0;
            for (size_t k = 0; k < p; ++k) acc = step(acc, x[i * p + k], x[j * p + k], k);
            y.push_back(finish(acc));
        }
    return y;
}

using zvtest::expectBitEqual;

TEST(Pdist, HandComputedPairUnderEveryMetric) {
    // u = (1, 0, 2, 5), v = (3, 0, 0, 5)
    const std::vector<double> x{1, 0, 2, 5, 3, 0, 0, 5};
    EXPECT_DOUBLE_EQ(pdist(x, 4, 2, "euc")[0], std::sqrt(8.0));
    EXPECT_EQ(pdist(x, 4, 2, "sqe")[0], 8.0);
    EXPECT_EQ(pdist(x, 4, 2, "cit")[0], 4.0);
    EXPECT_EQ(pdist(x, 4, 2, "che")[0], 2.0);
    EXPECT_EQ(pdist(x, 4, 2, "ham")[0], 0.5);
    EXPECT_EQ(pdist(x, 4, 2, "jac")[0], 2.0 / 3.0);  // k = 1 is zero in both
    Owned e = zvhost::scalar(3);
    EXPECT_DOUBLE_EQ(pdist(x, 4, 2, "min", e.get())[0], std::cbrt(16.0));
    Owned w = zvhost::matrixOf<double>(1, 4, {0.5, 1, 2, 1});
    EXPECT_DOUBLE_EQ(pdist(x, 4, 2, "seu", w.get())[0], std::sqrt(0.5 * 4 + 2 * 4));
    // R upper triangular: t = R^T d with d = (-2, 0, 2, 0).
    Owned r = zvhost::matrixOf<double>(4, 4, {1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1});
    // R^T d = (d0, d0 + d1, 2 d2, d3) = (-2, -2, 4, 0)
    EXPECT_DOUBLE_EQ(pdist(x, 4, 2, "mah", r.get())[0], std::sqrt(24.0));
}

TEST(Pdist, CondensedOrderAndLongCodes) {
    // Points on a line at 0, 1, 3, 6: pairs (0,1) (0,2) (0,3) (1,2) (1,3) (2,3).
    const std::vector<double> x{0, 1, 3, 6};
    EXPECT_EQ(pdist(x, 1, 4, "euclidean"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    EXPECT_EQ(pdist(x, 1, 4, "cityblockXYZ"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    EXPECT_EQ(pdist(x, 1, 4, "xyz"), std::vector<double>(6, 0.0));  // unknown: zeros, no error
    EXPECT_EQ(pdist(x, 1, 4, "EUC"), std::vector<double>(6, 0.0));  // codes are case-sensitive
}

TEST(Pdist, BitIdenticalToAscendingSumsAcrossPanelsAndTails) {
    // n is not a multiple of the panel width, so rows start and end mid-panel.
    for (size_t p : {0u, 1u, 3u, 17u, 64u}) {
        const size_t n = 75;
        const auto x = zvtest::normals<double>(p * n, unsigned(p + 1));
        const auto xf = zvtest::normals<float>(p * n, unsigned(p + 1));
        auto sq = [](auto a, auto u, auto v, size_t) { auto d = u - v; return a + d * d; };
        auto ab = [](auto a, auto u, auto v, size_t) { return a + std::abs(u - v); };
        auto mx = [](auto a, auto u, auto v, size_t) { auto d = std::abs(u - v); return d > a ? d : a; };
        auto root = [](auto s) { return std::sqrt(s); };
        auto same = [](auto s) { return s; };
        expectBitEqual(pdist(x, p, n, "euc"), reference(x, p, n, sq, root));
        expectBitEqual(pdist(x, p, n, "sqe"), reference(x, p, n, sq, same));
        expectBitEqual(pdist(x, p, n, "cit"), reference(x, p, n, ab, same));
        expectBitEqual(pdist(x, p, n, "che"), reference(x, p, n, mx, same));
        expectBitEqual(pdist(xf, p, n, "euc"), reference(xf, p, n, sq, root));
        expectBitEqual(pdist(xf, p, n, "cit"), reference(xf, p, n, ab, same));
        std::vector<double> w(p);
        for (size_t k = 0; k < p; ++k) w[k] = 0.25 + double(k);
        Owned wa = zvhost::matrixOf<double>(1, p, std::span<const double>(w));
        auto sw = [&](double a, double u, double v, size_t k) { double d = u - v; return a + (d * d) * w[k]; };
        if (p > 0) expectBitEqual(pdist(x, p, n, "seu", wa.get()), reference(x, p, n, sw, root));
    }
}

TEST(Pdist, MinkowskiSinglePrecisionRoundsEachPowerToFloat) {
    const auto x = zvtest::normals<float>(5 * 9, 3);
    Owned e = zvhost::scalar(2.5);
    auto step = [](float a, float u, float v, size_t) {
        return a + float(std::pow(double(std::abs(u - v)), 2.5));
    };
    const float inverse = 1.0f / 2.5f;
    auto finish = [&](float s) { return float(std::pow(double(s), double(inverse))); };
    expectBitEqual(pdist(x, 5, 9, "min", e.get()), reference(x, 5, 9, step, finish));
    // Without an exponent the usual default of 2 is taken.
    expectBitEqual(pdist(x, 5, 9, "min"), pdist(x, 5, 9, "min", zvhost::scalar(2).get()));
}

TEST(Pdist, MissingDataMarksWholeObservations) {
    // Observation 1 holds a NaN in a coordinate that would compare unequal.
    const std::vector<double> x{1, 2, kNaN, 2, 1, 5};
    for (const char* code : {"ham", "jac", "che"}) {
        const auto y = pdist(x, 2, 3, code);
        EXPECT_TRUE(std::isnan(y[0])) << code;  // (0, 1)
        EXPECT_FALSE(std::isnan(y[1])) << code;  // (0, 2)
        EXPECT_TRUE(std::isnan(y[2])) << code;  // (1, 2)
    }
    // The other metrics let the NaN run through their arithmetic.
    const auto e = pdist(x, 2, 3, "euc");
    EXPECT_TRUE(std::isnan(e[0]));
    EXPECT_EQ(e[1], std::hypot(0.0, 3.0));
}

TEST(Pdist, EdgeCasesOfSizes) {
    for (size_t n : {0u, 1u}) {
        Owned xa = zvhost::matrixOf<double>(3, n);
        Owned code = zvhost::text("euc");
        auto out = zvhost::call(pdistbif, 1, {xa.get(), code.get()});
        EXPECT_EQ(ndGetM(out[0].get()), 1u);
        EXPECT_EQ(ndGetN(out[0].get()), 0u);
    }
    // p = 0: sums are 0; counting metrics divide 0 by 0.
    const std::vector<double> none;
    EXPECT_EQ(pdist(none, 0, 2, "euc")[0], 0.0);
    EXPECT_EQ(pdist(none, 0, 2, "cit")[0], 0.0);
    EXPECT_EQ(pdist(none, 0, 2, "che")[0], 0.0);
    EXPECT_TRUE(std::isnan(pdist(none, 0, 2, "ham")[0]));
    EXPECT_TRUE(std::isnan(pdist(none, 0, 2, "jac")[0]));
    Owned e = zvhost::scalar(3);
    EXPECT_EQ(pdist(none, 0, 2, "min", e.get())[0], std::pow(0.0, 1.0 / 3.0));
    // With no coordinates "seu" reads no weight, so none is missing.
    EXPECT_EQ(pdist(none, 0, 2, "seu")[0], 0.0);
    // Two all-zero observations share no non-zero coordinate.
    EXPECT_TRUE(std::isnan(pdist(std::vector<double>{0, 0, 0, 0}, 2, 2, "jac")[0]));
}

TEST(Pdist, MissingWeightsOrFactorGiveNaNInsteadOfReadingPastTheInput) {
    const std::vector<double> x{1, 2, 3, 4, 5, 6};
    for (const auto& v : pdist(x, 2, 3, "seu")) EXPECT_TRUE(std::isnan(v));
    Owned shortR = zvhost::matrixOf<double>(1, 3, {1, 0, 1});
    for (const auto& v : pdist(x, 2, 3, "mah", shortR.get())) EXPECT_TRUE(std::isnan(v));
    // A sparse 1-by-2 weight vector with one stored value holds one number, not two.
    Owned sparseWeights(zvhost::createSparse(1, 2, 1));
    static_cast<double*>(ndGetData(sparseWeights.get()))[0] = 1.0;
    ndGetColumnStarts(sparseWeights.get())[1] = 1;
    ndGetColumnStarts(sparseWeights.get())[2] = 1;
    for (const auto& v : pdist(x, 2, 3, "seu", sparseWeights.get())) EXPECT_TRUE(std::isnan(v));
}

TEST(Pdist, SparseDataHoldingFewerValuesThanItsShapeGivesNaN) {
    // X is read as p-by-n values; a sparse X stores only its non-zeros.
    Owned x(zvhost::createSparse(3, 40, 2));
    static_cast<double*>(ndGetData(x.get()))[0] = 1.0;
    static_cast<double*>(ndGetData(x.get()))[1] = 2.0;
    ndGetRowIndices(x.get())[1] = 2;
    for (size_t j = 1; j <= 40; ++j) ndGetColumnStarts(x.get())[j] = 2;
    Owned code = zvhost::text("euc");
    const auto y = zvhost::valuesOf<double>(zvhost::call(pdistbif, 1, {x.get(), code.get()})[0].get());
    ASSERT_EQ(y.size(), 40u * 39 / 2);
    for (double v : y) EXPECT_TRUE(std::isnan(v));
}

TEST(Pdist, CosineFamilyTakesPreparedDataAsGiven) {
    // Unit columns; the second pair's dot product rounds just above 1.
    const double a = 1.0 / std::sqrt(2.0);
    const std::vector<double> x{a, a, 0.6, 0.8, a * (1 + 1e-15), a * (1 + 1e-15)};
    for (const char* code : {"cos", "cor", "spe"}) {
        const auto y = pdist(x, 2, 3, code);
        EXPECT_NEAR(y[0], 1.0 - (0.6 + 0.8) * a, 1e-15);
        EXPECT_EQ(y[1], 0.0) << code;  // a dot product above 1 counts as identical
    }
}

TEST(Pdist, Identifiers) {
    Owned x = zvhost::matrixOf<double>(2, 3);
    Owned xi = zvhost::matrixOf<int32_t>(2, 3);
    Owned xs = zvhost::matrixOf<float>(2, 3);
    Owned code = zvhost::text("seu");
    Owned w = zvhost::matrixOf<double>(1, 2, {1, 1});
    Owned ei = zvhost::matrixOf<int32_t>(1, 1, {3});
    Owned mink = zvhost::text("min");
    EXPECT_EQ(raisedId([&] { zvhost::call(pdistbif, 1, {x.get()}); }), "stats:pdistbif:TooFewInputs");
    EXPECT_EQ(raisedId([&] { zvhost::call(pdistbif, 2, {x.get(), code.get()}); }),
              "stats:pdistbif:TooManyOutputs");
    // The input count is tested before the output count.
    EXPECT_EQ(raisedId([&] { zvhost::call(pdistbif, 2, {x.get()}); }), "stats:pdistbif:TooFewInputs");
    EXPECT_EQ(raisedId([&] { zvhost::call(pdistbif, 1, {xi.get(), code.get()}); }),
              "stats:pdistbif:BadInputType");
    EXPECT_EQ(raisedId([&] { zvhost::call(pdistbif, 1, {xs.get(), code.get(), w.get()}); }),
              "stats:pdistbif:MixedInputTypes");
    EXPECT_EQ(raisedId([&] { zvhost::call(pdistbif, 1, {xs.get(), mink.get(), ei.get()}); }), "");
    // numOutputs = 0 still fills slot 0; extra inputs are ignored.
    auto out = zvhost::call(pdistbif, 0, {x.get(), mink.get(), ei.get(), x.get()});
    ASSERT_TRUE(out[0]);
}

TEST(Pdist, OutputLimitIsTestedBeforeAllocation) {
    // 24 million observations of no coordinates: n(n-1)/2 passes 2^48 - 1.
    Owned x(ndCreateNumericMatrix(0, 24000000, ndDOUBLE_CLASS, ndREAL));
    Owned code = zvhost::text("euc");
    zvtest::LeakCheck leaks;
    EXPECT_EQ(raisedId([&] { zvhost::call(pdistbif, 1, {x.get(), code.get()}); }),
              "stats:pdistbif:OutputTooLarge");
}

TEST(Pdist, ResultsDoNotDependOnTheThreadCount) {
    const auto x = zvtest::normals<double>(20 * 300, 11);
    Owned e = zvhost::scalar(1.5);
    for (const char* code : {"euc", "cit", "che", "ham", "jac", "min"}) {
        auto one = zvtest::withThreads(1, [&] { return pdist(x, 20, 300, code, e.get()); });
        auto two = zvtest::withThreads(2, [&] { return pdist(x, 20, 300, code, e.get()); });
        expectBitEqual(one, two);
    }
}

TEST(Pdist, BaselineAndAvx2KernelsAgreeBitForBit) {
    if (!__builtin_cpu_supports("avx2")) GTEST_SKIP() << "no AVX2 here";
    using namespace zv::distance;
    const size_t n = 70, p = 9;
    const auto x = zvtest::normals<double>(n * p, 5);
    const auto panels = ObservationPanels<double>::build(x.data(), n, p);
    std::vector<double> w(p, 0.5), a(n * (n - 1) / 2), b(a.size());
    for (auto metric : {PairMetric::Euclidean, PairMetric::SEuclidean, PairMetric::CityBlock,
                        PairMetric::Chebychev, PairMetric::Hamming}) {
        TriangleTask<double> task{metric, x.data(), n, p, &panels, w.data(), nullptr, a.data()};
        avx2::computeRows(task, 0, n);
        task.y = b.data();
        generic::computeRows(task, 0, n);
        expectBitEqual(a, b);
    }
}

TEST(Pdist, InterruptFromAWorkerReachesTheCallerWithNothingLeaked) {
    const auto x = zvtest::normals<double>(8 * 2000, 2);
    Owned xa = zvhost::matrixOf<double>(8, 2000, std::span<const double>(x));
    for (const char* metric : {"euc", "jac", "cos"}) {
        Owned code = zvhost::text(metric);
        zvtest::LeakCheck leaks;
        zvhost::interruptAfterPolls(3);
        EXPECT_EQ(raisedId([&] { zvtest::withThreads(2, [&] { return zvhost::call(pdistbif, 1, {xa.get(), code.get()}); }); }),
                  "zvhost:Interrupted")
            << metric;
        // The next call runs as if the interrupted one had never been made.
        EXPECT_EQ(zvhost::call(pdistbif, 1, {xa.get(), code.get()}).size(), 1u);
    }
}

TEST(Pdist, MahalanobisScratchFailureBecomesItsOwnIdentifierWithTheByteCount) {
    const auto x = zvtest::normals<double>(3 * 50, 4);
    Owned xa = zvhost::matrixOf<double>(3, 50, std::span<const double>(x));
    Owned code = zvhost::text("mah");
    Owned r = zvhost::matrixOf<double>(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    zvtest::LeakCheck leaks;
    zvhost::failAllocationAt(1, zvhost::kWorkerScratch);
    try {
        zvhost::call(pdistbif, 1, {xa.get(), code.get(), r.get()});
        FAIL() << "no error";
    } catch (const bedrock::core::except::IMsgIDException& e) {
        EXPECT_EQ(e.GetID(), "stats:pdistbif:MemoryLessThanXBytes");
        EXPECT_EQ(std::get<long>(e.GetBaseMsgIDObj().args.at(0)), 24);
    }
    zvhost::failAllocationAt(0);
    // With the identity as factor the distance is euclidean.
    expectBitEqual(pdist(x, 3, 50, "mah", r.get()), pdist(x, 3, 50, "euc"));
}

}  // namespace

// pdistbif: values against plain scalar references, the missing-data rules,
// edge cases, identifiers, thread-count independence and interruption.
#include "distance/distance_fixtures.hpp"
#include "distance/pair_kernels_isa.hpp"

namespace {

using namespace zvtest::distance;
using zvtest::expectBitEqual;
using zvtest::raisedId;

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

TEST(Pdist, HandComputedPairUnderTheCountingMetricsAndTheTransformedOnes) {
    // u = (1, 0, 2, 5), v = (3, 0, 0, 5)
    const std::vector<double> x{1, 0, 2, 5, 3, 0, 0, 5};
    EXPECT_EQ(pdist(x, 4, 2, "ham")[0], 0.5);
    EXPECT_EQ(pdist(x, 4, 2, "jac")[0], 2.0 / 3.0);  // k = 1 is zero in both
    EXPECT_DOUBLE_EQ(pdist(x, 4, 2, "min", zvhost::scalar(3).get())[0], std::cbrt(16.0));
    // The exponent may come in any numeric class.
    Owned three = zvhost::matrixOf<int32_t>(1, 1, {3});
    EXPECT_EQ(pdist(x, 4, 2, "min", three.get()), pdist(x, 4, 2, "min", zvhost::scalar(3).get()));
    // R upper triangular: R^T d with d = (-2, 0, 2, 0) is (d0, d0 + d1, 2 d2, d3) = (-2, -2, 4, 0).
    Owned r = zvhost::matrixOf<double>(4, 4, {1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1});
    EXPECT_DOUBLE_EQ(pdist(x, 4, 2, "mah", r.get())[0], std::sqrt(24.0));
}

TEST(Pdist, CondensedOrderAndCodes) {
    // Points on a line at 0, 1, 3, 6: pairs (0,1) (0,2) (0,3) (1,2) (1,3) (2,3).
    const std::vector<double> x{0, 1, 3, 6};
    EXPECT_EQ(pdist(x, 1, 4, "euclidean"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    EXPECT_EQ(pdist(x, 1, 4, "cityblockXYZ"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    // Unknown codes, case-sensitive ones and short ones give zeros, no error.
    for (const char* code : {"xyz", "EUC", "eu", ""}) EXPECT_EQ(pdist(x, 1, 4, code), std::vector<double>(6, 0.0));
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
        expectBitEqual(pdist(x, p, n, "seu", wa.get()), reference(x, p, n, sw, root));
    }
}

TEST(Pdist, MinkowskiSinglePrecisionRoundsEachPowerToFloat) {
    const auto x = zvtest::normals<float>(5 * 9, 3);
    Owned e = zvhost::scalar(2.5);
    auto step = [](float a, float u, float v, size_t) { return a + float(std::pow(double(std::abs(u - v)), 2.5)); };
    const float inverse = 1.0f / 2.5f;
    auto finish = [&](float s) { return float(std::pow(double(s), double(inverse))); };
    expectBitEqual(pdist(x, 5, 9, "min", e.get()), reference(x, 5, 9, step, finish));
    // Without an exponent, or with an empty one, the usual default of 2 is taken.
    expectBitEqual(pdist(x, 5, 9, "min"), pdist(x, 5, 9, "min", zvhost::scalar(2).get()));
    expectBitEqual(pdist(x, 5, 9, "min", zvhost::matrixOf<float>(0, 0).get()), pdist(x, 5, 9, "min"));
}

TEST(Pdist, MissingDataMarksWholeObservations) {
    // Observation 1 holds a NaN in a coordinate that would compare unequal.
    const std::vector<double> x{1, 2, kNaN, 2, 1, 5};
    for (const char* code : {"ham", "jac", "che"}) {
        const auto y = pdist(x, 2, 3, code);
        EXPECT_TRUE(std::isnan(y[0]) && !std::isnan(y[1]) && std::isnan(y[2])) << code;
    }
    // The other metrics let the NaN run through their arithmetic.
    const auto e = pdist(x, 2, 3, "euc");
    EXPECT_TRUE(std::isnan(e[0]));
    EXPECT_EQ(e[1], std::hypot(0.0, 3.0));
}

TEST(Pdist, EdgeCasesOfSizes) {
    const char* const codes[] = {"euc", "sqe", "seu", "cit", "min", "cos", "ham", "jac", "che", "mah"};
    for (size_t n : {0u, 1u})
        for (const char* code : codes) EXPECT_TRUE(pdist(std::vector<double>(3 * n, 1.0), 3, n, code).empty());
    // p = 0: sums are 0, with no weight or factor to read; counting metrics
    // divide 0 by 0; the cosine family's dot product is 0.
    const std::vector<double> none;
    for (const char* code : {"euc", "sqe", "seu", "cit", "che", "mah"})
        EXPECT_EQ(pdist(none, 0, 2, code)[0], 0.0) << code;
    EXPECT_EQ(pdist(none, 0, 2, "cos")[0], 1.0);
    expectAllNaN(pdist(none, 0, 2, "ham"));
    expectAllNaN(pdist(none, 0, 2, "jac"));
    EXPECT_EQ(pdist(none, 0, 2, "min", zvhost::scalar(3).get())[0], std::pow(0.0, 1.0 / 3.0));
    // Two all-zero observations share no non-zero coordinate.
    expectAllNaN(pdist(std::vector<double>{0, 0, 0, 0}, 2, 2, "jac"));
}

TEST(Pdist, WhatIsNotStoredIsNotReadAndGivesNaN) {
    const std::vector<double> x{1, 2, 3, 4, 5, 6};
    expectAllNaN(pdist(x, 2, 3, "seu"), "no weights");
    expectAllNaN(pdist(x, 2, 3, "mah", zvhost::matrixOf<double>(1, 3, {1, 0, 1}).get()), "short factor");
    // A sparse 1-by-2 weight vector with one stored value holds one number, not two.
    expectAllNaN(pdist(x, 2, 3, "seu", sparseOf(1, {{{0}, {1.0}}, {}}).get()), "sparse weights");
    // X is read as p-by-n values; a sparse X stores only its non-zeros.
    std::vector<Column> columns(40);
    columns[0] = {{0, 2}, {1, 2}};
    Owned sparseX = sparseOf(3, columns);
    Owned euc = zvhost::text("euc");
    const auto y = zvhost::valuesOf<double>(zvhost::call(pdistbif, 1, {sparseX.get(), euc.get()})[0].get());
    ASSERT_EQ(y.size(), 40u * 39 / 2);
    expectAllNaN(y, "sparse X");
}

TEST(Pdist, CosineFamilyTakesPreparedDataAsGiven) {
    // Unit columns; the second pair's dot product rounds just above 1.
    const double a = 1.0 / std::sqrt(2.0);
    const std::vector<double> x{a, a, 0.6, 0.8, a * (1 + 1e-15), a * (1 + 1e-15)};
    for (const char* code : {"cos", "cor", "spe"}) {
        const auto y = pdist(x, 2, 3, code);
        EXPECT_NEAR(y[0], 1.0 - (0.6 + 0.8) * a, 1e-15);
        EXPECT_TRUE(y[1] == 0.0 && !std::signbit(y[1])) << code;  // a dot product above 1 counts as identical
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
    Owned unknown = zvhost::text("xyz");
    auto id = [&](int nout, std::initializer_list<const ndArray*> in) {
        return raisedId([&] { zvhost::call(pdistbif, nout, in); });
    };
    const std::string prefix = "stats:pdistbif:";
    EXPECT_EQ(id(1, {x.get()}), prefix + "TooFewInputs");
    EXPECT_EQ(id(2, {x.get(), code.get()}), prefix + "TooManyOutputs");
    EXPECT_EQ(id(2, {x.get()}), prefix + "TooFewInputs");  // inputs are counted before outputs
    EXPECT_EQ(id(1, {xi.get(), code.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(1, {xs.get(), code.get(), w.get()}), prefix + "MixedInputTypes");
    EXPECT_EQ(id(1, {x.get(), unknown.get(), ei.get()}), prefix + "MixedInputTypes");  // any code but "min"
    EXPECT_EQ(id(1, {xs.get(), mink.get(), ei.get()}), "");
    // An empty third input counts as absent; complex data is double to the class test.
    Owned emptySingle = zvhost::matrixOf<float>(0, 2), complex(zvhost::createComplexMatrix(2, 3));
    EXPECT_EQ(id(1, {x.get(), unknown.get(), emptySingle.get()}), "");
    EXPECT_EQ(id(1, {complex.get(), unknown.get()}), "");
    // numOutputs = 0 still fills slot 0; extra inputs are ignored.
    ASSERT_TRUE(zvhost::call(pdistbif, 0, {x.get(), mink.get(), ei.get(), x.get()})[0]);
    // 24 million observations of no coordinates: n(n-1)/2 passes 2^48 - 1.
    Owned wide(ndCreateNumericMatrix(0, 24000000, ndDOUBLE_CLASS, ndREAL));
    zvtest::LeakCheck leaks;
    EXPECT_EQ(id(1, {wide.get(), code.get()}), prefix + "OutputTooLarge");
}

TEST(Pdist, ResultsDoNotDependOnTheThreadCountAndStopWhenInterrupted) {
    const auto x = zvtest::normals<double>(20 * 300, 11);
    Owned e = zvhost::scalar(1.5);
    for (const char* code : {"euc", "cit", "che", "ham", "jac", "min"})
        expectThreadCountFree([&] { return pdist(x, 20, 300, code, e.get()); }, code);
    const auto big = zvtest::normals<double>(8 * 2000, 2);
    Owned xa = zvhost::matrixOf<double>(8, 2000, std::span<const double>(big));
    for (const char* metric : {"euc", "jac", "cos"}) {
        Owned code = zvhost::text(metric);
        expectInterruptible([&] { return zvhost::call(pdistbif, 1, {xa.get(), code.get()}); }, metric);
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

TEST(Pdist, MahalanobisScratchFailureBecomesItsOwnIdentifierWithTheByteCount) {
    const auto x = zvtest::normals<double>(3 * 50, 4);
    Owned xa = zvhost::matrixOf<double>(3, 50, std::span<const double>(x));
    Owned code = zvhost::text("mah");
    Owned r = zvhost::matrixOf<double>(3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1});
    {
        zvtest::LeakCheck leaks;
        zvhost::failAllocationAt(1, zvhost::kWorkerScratch);
        try {
            zvhost::call(pdistbif, 1, {xa.get(), code.get(), r.get()});
            ADD_FAILURE() << "no error";
        } catch (const bedrock::core::except::IMsgIDException& e) {
            EXPECT_EQ(e.GetID(), "stats:pdistbif:MemoryLessThanXBytes");
            EXPECT_EQ(std::get<long>(e.GetBaseMsgIDObj().args.at(0)), 24);
        }
        zvhost::failAllocationAt(0);
    }
    // With the identity as factor the distance is euclidean.
    expectBitEqual(pdist(x, 3, 50, "mah", r.get()), pdist(x, 3, 50, "euc"));
}

}  // namespace

// pdistSparseBIF and pdist2SparseBIF: values against the dense gateway and
// against the merge's definition, stored zeros and NaNs, edge cases,
// identifiers and thread-count independence.
#include <random>

#include "distance/distance_fixtures.hpp"
#include "distance/sparse_distance.hpp"
#include "frame/limits.hpp"

namespace {

using namespace zvtest::distance;
using zvtest::expectBitEqual;
using zvtest::raisedId;
constexpr double kInf = std::numeric_limits<double>::infinity();

// The non-zeros of dense p-by-n data, as stored columns.
Owned sparseOfDense(const std::vector<double>& dense, size_t p, size_t n) {
    std::vector<Column> columns(n);
    for (size_t j = 0; j < n; ++j)
        for (size_t r = 0; r < p; ++r)
            if (dense[r + j * p] != 0) {
                columns[j].rows.push_back(r);
                columns[j].values.push_back(dense[r + j * p]);
            }
    return sparseOf(p, columns);
}

// Dense p-by-n data with about `density` of its entries non-zero.
std::vector<double> randomDense(size_t p, size_t n, double density, unsigned seed) {
    std::mt19937 gen(seed);
    std::bernoulli_distribution stored(density);
    std::normal_distribution<double> normal;
    std::vector<double> x(p * n, 0.0);
    for (double& v : x)
        if (stored(gen)) v = normal(gen);
    return x;
}

std::vector<double> pdistSparse(const ndArray* x, const std::string& code, const ndArray* extra = nullptr) {
    Owned ca = zvhost::text(code);
    auto out = extra ? zvhost::call(pdistSparseBIF, 1, {x, ca.get(), extra})
                     : zvhost::call(pdistSparseBIF, 1, {x, ca.get()});
    EXPECT_TRUE(ndGetM(out[0].get()) == 1 && ndGetClassID(out[0].get()) == ndDOUBLE_CLASS && !ndIsSparse(out[0].get()));
    return zvhost::valuesOf<double>(out[0].get());
}
std::vector<double> pdistSparse(size_t p, const std::vector<Column>& columns, const std::string& code,
                                const ndArray* extra = nullptr) {
    return pdistSparse(sparseOf(p, columns).get(), code, extra);
}

void expectClose(const std::vector<double>& a, const std::vector<double>& b, double relative) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], relative * std::abs(b[i])) << "at " << i;
}

TEST(PdistSparse, CondensedOrderAndCodes) {
    // Points on a line at 0, 1, 3, 6; the first one stores nothing.
    const std::vector<Column> x{{}, {{0}, {1}}, {{0}, {3}}, {{0}, {6}}};
    EXPECT_EQ(pdistSparse(1, x, "euclidean"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    EXPECT_EQ(pdistSparse(1, x, "cityblockXYZ"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    for (const char* code : {"xyz", "EUC", "eu"}) EXPECT_EQ(pdistSparse(1, x, code), std::vector<double>(6, 0.0));
}

TEST(PdistSparse, EqualsTheDenseGatewayBitForBitWhereTheArithmeticIsTheSame) {
    // Adding the +0 terms of rows that neither column stores leaves a sum
    // unchanged, so the plain ascending sums agree bit for bit. Several
    // column counts exercise fewer, as many and more pairs than merge lanes.
    Owned e = zvhost::scalar(2.5);
    for (size_t n : {2u, 3u, 4u, 5u, 9u, 40u})
        for (double density : {0.05, 0.3, 1.0}) {
            const size_t p = 37;
            const auto dense = randomDense(p, n, density, unsigned(n * 100 + density * 10));
            Owned x = sparseOfDense(dense, p, n);
            for (const char* code : {"euc", "sqe", "cit", "che", "ham", "jac"})
                expectBitEqual(pdistSparse(x.get(), code), pdist(dense, p, n, code));
            expectBitEqual(pdistSparse(x.get(), "min", e.get()), pdist(dense, p, n, "min", e.get()));
        }
}

TEST(PdistSparse, WeightedSimilarityAndMahalanobisFollowTheMergeDefinition) {
    const size_t p = 23, n = 17;
    auto dense = randomDense(p, n, 0.3, 7);
    std::fill_n(dense.begin() + 3 * p, p, 0.0);  // an empty column among the others
    Owned x = sparseOfDense(dense, p, n);
    // The reference walks every row; a row is stored where it is not 0.
    auto pairs = [&](auto distance) {
        std::vector<double> y;
        for (size_t i = 0; i < n; ++i)
            for (size_t j = i + 1; j < n; ++j) y.push_back(distance(&dense[i * p], &dense[j * p]));
        return y;
    };
    std::vector<double> w(p);
    for (size_t k = 0; k < p; ++k) w[k] = 0.25 + double(k % 5);
    Owned wa = zvhost::matrixOf<double>(1, p, std::span<const double>(w));
    // A lone term is w*a*a, a shared one d*(w*d): the two round differently
    // from the dense gateway's (d*d)*w, which is close.
    const auto seu = pairs([&](const double* u, const double* v) {
        double s = 0;
        for (size_t r = 0; r < p; ++r) {
            const double d = u[r] - v[r], lone = u[r] + v[r];
            if (u[r] != 0 && v[r] != 0) s += d * (w[r] * d);
            else if (u[r] != 0 || v[r] != 0) s += w[r] * lone * lone;
        }
        return std::sqrt(s);
    });
    expectBitEqual(pdistSparse(x.get(), "seu", wa.get()), seu);
    expectClose(pdistSparse(x.get(), "seu", wa.get()), pdist(dense, p, n, "seu", wa.get()), 1e-14);
    // The similarity sums products over the shared rows only; a sum above 1,
    // also by rounding, is exactly 0.
    const auto similarity = pairs([&](const double* u, const double* v) {
        double s = 0;
        for (size_t r = 0; r < p; ++r)
            if (u[r] != 0 && v[r] != 0) s += u[r] * v[r];
        return s > 1 ? 0.0 : 1.0 - s;
    });
    for (const char* code : {"cos", "cor", "spe"}) expectBitEqual(pdistSparse(x.get(), code), similarity);
    // Mahalanobis: t_c sums R[r, c] d_r over the stored rows r <= c in order.
    std::vector<double> factor(p * p, 0.0);
    std::mt19937 gen(3);
    std::uniform_real_distribution<double> off(-0.5, 0.5);
    for (size_t c = 0; c < p; ++c)
        for (size_t r = 0; r <= c; ++r) factor[r + c * p] = r == c ? 1.0 + 0.1 * double(c % 4) : off(gen);
    Owned ra = zvhost::matrixOf<double>(p, p, std::span<const double>(factor));
    const auto mah = pairs([&](const double* u, const double* v) {
        double total = 0;
        for (size_t c = 0; c < p; ++c) {
            double t = 0;
            for (size_t r = 0; r <= c; ++r)
                if (u[r] != 0 || v[r] != 0) t += factor[r + c * p] * (u[r] - v[r]);
            total += t * t;
        }
        return std::sqrt(total);
    });
    expectBitEqual(pdistSparse(x.get(), "mah", ra.get()), mah);
    // The dense gateway takes the same product through BLAS, in its own order.
    expectClose(pdistSparse(x.get(), "mah", ra.get()), pdist(dense, p, n, "mah", ra.get()), 1e-13);
}

TEST(PdistSparse, StoredZerosCountUnderHammingAndJaccardOnly) {
    // Column 0 stores a 0 at row 1, column 1 stores 0s at rows 1 and 2.
    const std::vector<Column> x{{{0, 1}, {4, 0}}, {{0, 1, 2}, {4, 0, 0}}, {}};
    // Pair (0, 1): row 0 equal, row 1 shared zeros (equal), row 2 a lone 0;
    // against the empty column every stored row counts.
    EXPECT_EQ(pdistSparse(3, x, "ham"), (std::vector<double>{1.0 / 3, 2.0 / 3, 1.0}));
    EXPECT_EQ(pdistSparse(3, x, "jac"), (std::vector<double>{1.0 / 3, 1.0, 1.0}));
    // The sums do not notice a stored 0.
    const std::vector<Column> plain{{{0}, {4}}, {{0}, {4}}, {}};
    for (const char* code : {"euc", "sqe", "cit", "che", "cos"})
        expectBitEqual(pdistSparse(3, x, code), pdistSparse(3, plain, code));
}

TEST(PdistSparse, NaNRunsThroughTheArithmeticWithoutMarks) {
    // Column 0 holds a NaN at row 1 that column 1 lacks, and shares row 0.
    const std::vector<Column> x{{{0, 1}, {1, kNaN}}, {{0, 2}, {4, 2}}, {{0, 2}, {1, 2}}};
    // "che": the NaN term never passes `term > largest`.
    EXPECT_EQ(pdistSparse(3, x, "che"), (std::vector<double>{3, 2, 3}));
    // "ham", "jac": the NaN row counts as a difference, like any lone value.
    EXPECT_EQ(pdistSparse(3, x, "ham"), (std::vector<double>{1, 2.0 / 3, 1.0 / 3}));
    EXPECT_EQ(pdistSparse(3, x, "jac"), (std::vector<double>{1, 2.0 / 3, 0.5}));
    // So do a NaN shared with a NaN, and inf against inf: their difference is no 0.
    for (double v : {kNaN, kInf}) {
        const std::vector<Column> both{{{0}, {v}}, {{0}, {v}}};
        EXPECT_EQ(pdistSparse(1, both, "ham")[0], 1.0);
        EXPECT_EQ(pdistSparse(1, both, "jac")[0], 1.0);
    }
    // Sums take the NaN in; the similarity only from shared rows.
    const auto euc = pdistSparse(3, x, "euc");
    EXPECT_TRUE(std::isnan(euc[0]) && std::isnan(euc[1]) && euc[2] == 3.0);
    const std::vector<Column> unit{{{0, 1}, {0.6, kNaN}}, {{0, 2}, {0.6, 0.8}}};
    EXPECT_EQ(pdistSparse(3, unit, "cos")[0], 1.0 - 0.6 * 0.6);
}

TEST(PdistSparse, EmptyColumnsAndSizes) {
    for (size_t n : {0u, 1u}) EXPECT_TRUE(pdistSparse(3, std::vector<Column>(n), "euc").empty());
    // Column 0 stores nothing: against column 1 "euc" is the norm of column 1.
    const std::vector<Column> x{{}, {{1, 4}, {3, 4}}, {}};
    EXPECT_EQ(pdistSparse(5, x, "euc")[0], 5.0);
    // Two columns without stored values (pair (0, 2)).
    std::vector<double> identity(25, 0.0);
    for (size_t k = 0; k < 5; ++k) identity[k * 6] = 1;
    Owned r = zvhost::matrixOf<double>(5, 5, std::span<const double>(identity));
    for (const char* code : {"euc", "sqe", "cit", "che", "ham"}) EXPECT_EQ(pdistSparse(5, x, code)[1], 0.0) << code;
    EXPECT_EQ(pdistSparse(5, x, "min", zvhost::scalar(3).get())[1], 0.0);
    EXPECT_EQ(pdistSparse(5, x, "seu", zvhost::matrixOf<double>(1, 5, {1, 1, 1, 1, 1}).get())[1], 0.0);
    EXPECT_EQ(pdistSparse(5, x, "mah", r.get())[1], 0.0);
    EXPECT_EQ(pdistSparse(5, x, "cos")[1], 1.0);
    expectAllNaN(std::vector<double>{pdistSparse(5, x, "jac")[1]});
    // With no rows at all, "ham" divides 0 by p = 0; "seu" and "mah" need no parameter.
    const std::vector<Column> none(2);
    expectAllNaN(pdistSparse(0, none, "ham"));
    EXPECT_EQ(pdistSparse(0, none, "mah")[0], 0.0);
    EXPECT_EQ(pdistSparse(0, none, "seu")[0], 0.0);
}

TEST(PdistSparse, MissingOrShortWeightsAndFactorGiveNaNInsteadOfReadingPastThem) {
    const std::vector<Column> x{{{0}, {1}}, {{1}, {2}}, {{0, 1}, {3, 4}}};
    Owned xa = sparseOf(2, x);
    expectAllNaN(pdistSparse(xa.get(), "seu"));
    expectAllNaN(pdistSparse(xa.get(), "mah"));
    expectAllNaN(pdistSparse(xa.get(), "seu", zvhost::matrixOf<double>(1, 1, {1}).get()));
    expectAllNaN(pdistSparse(xa.get(), "mah", zvhost::matrixOf<double>(1, 3, {1, 0, 1}).get()));
    // A sparse third input holds only its stored values behind the pointer.
    expectAllNaN(pdistSparse(xa.get(), "seu", sparseOf(2, {{{0}, {1}}}).get()));
    // p = 2^32: p*p wraps to 0 in 64 bits, which must not pass for enough.
    expectAllNaN(pdistSparse(sparseOf(size_t(1) << 32, x).get(), "mah", zvhost::scalar(1).get()));
}

TEST(PdistSparse, MinkowskiTakesTheScalarOfAnyClassAndTwoWithoutOne) {
    const std::vector<Column> x{{{0, 1}, {1, 2}}, {{0, 2}, {4, 2}}};
    EXPECT_DOUBLE_EQ(pdistSparse(3, x, "min", zvhost::matrixOf<int32_t>(1, 1, {3}).get())[0], std::cbrt(43.0));
    EXPECT_EQ(pdistSparse(3, x, "min")[0], std::pow(17.0, 0.5));
    EXPECT_EQ(pdistSparse(3, x, "min", zvhost::matrixOf<float>(0, 0).get())[0], std::pow(17.0, 0.5));
}

TEST(PdistSparse, IdentifiersAndTheOutputLimit) {
    Owned x = sparseOf(2, {{{0}, {1}}, {}, {{1}, {2}}});
    Owned dense = zvhost::matrixOf<double>(2, 3), single = zvhost::matrixOf<float>(2, 3);
    Owned code = zvhost::text("seu"), euc = zvhost::text("euc");
    Owned ws = zvhost::matrixOf<float>(1, 2, {1, 1}), emptySingle = zvhost::matrixOf<float>(0, 2);
    const std::string prefix = "stats:pdistbif:";
    zvtest::LeakCheck leaks;
    auto id = [&](int nout, std::initializer_list<const ndArray*> in) {
        return raisedId([&] { zvhost::call(pdistSparseBIF, nout, in); });
    };
    EXPECT_EQ(id(1, {x.get()}), prefix + "TooFewInputs");
    EXPECT_EQ(id(2, {x.get(), code.get()}), prefix + "TooManyOutputs");
    EXPECT_EQ(id(2, {x.get()}), prefix + "TooFewInputs");  // inputs are counted first
    EXPECT_EQ(id(1, {dense.get(), code.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(1, {single.get(), code.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(2, {single.get(), code.get()}), prefix + "TooManyOutputs");  // counts before the type
    // Any code but "min" wants the third input in the class of X.
    EXPECT_EQ(id(1, {x.get(), code.get(), ws.get()}), prefix + "MixedInputTypes");
    EXPECT_EQ(id(1, {x.get(), euc.get(), ws.get()}), prefix + "MixedInputTypes");
    EXPECT_EQ(id(1, {x.get(), euc.get(), emptySingle.get()}), "");  // empty counts as absent
    // numOutputs = 0 still fills slot 0; inputs past the third are ignored.
    ASSERT_TRUE(zvhost::call(pdistSparseBIF, 0, {x.get(), euc.get(), emptySingle.get(), dense.get()})[0]);
    // n(n-1)/2 reaches 2^48 - 1 first at n = 23,726,567; one column fewer
    // passes this test and meets the host's own limit on bytes instead.
    constexpr size_t kFirstTooLarge = 23726567;
    Owned tooLarge(zvhost::createSparse(0, kFirstTooLarge, 0)), largest(zvhost::createSparse(0, kFirstTooLarge - 1, 0));
    EXPECT_EQ(id(1, {tooLarge.get(), euc.get()}), prefix + "OutputTooLarge");
    EXPECT_EQ(id(1, {largest.get(), euc.get()}), "zvhost:ArrayTooLarge");
    // The count does not wrap around where (n - 1) * n would in 64 bits.
    using zv::distance::condensedPairCount;
    EXPECT_EQ(condensedPairCount(1), 0.0);
    EXPECT_EQ(condensedPairCount(kFirstTooLarge), 281474978939461.0);
    EXPECT_TRUE(zv::reachesElementLimit(condensedPairCount((size_t(1) << 32) + 1)));
}

TEST(PdistSparse, ResultsDoNotDependOnTheThreadCount) {
    const size_t p = 200, n = 300;
    Owned x = sparseOfDense(randomDense(p, n, 0.05, 11), p, n);
    std::vector<double> w(p, 0.5), factor(p * p, 0.0);
    for (size_t k = 0; k < p; ++k) factor[k * (p + 1)] = 1.0 + double(k % 3);
    Owned e = zvhost::scalar(1.5), wa = zvhost::matrixOf<double>(1, p, std::span<const double>(w));
    Owned ra = zvhost::matrixOf<double>(p, p, std::span<const double>(factor));
    const ndArray* none = nullptr;
    for (auto [code, extra] : {std::pair{"euc", none}, {"sqe", none}, {"cit", none}, {"min", e.get()},
                               {"seu", wa.get()}, {"cos", none}, {"ham", none}, {"jac", none}, {"che", none},
                               {"mah", ra.get()}}) {
        zvtest::LeakCheck leaks;
        expectThreadCountFree([&] { return pdistSparse(x.get(), code, extra); }, code);
    }
}

// ---- pdist2SparseBIF ----------------------------------------------------------

std::vector<double> pdist2Sparse(const ndArray* x, const ndArray* y, const std::string& code, int nout = 1) {
    Owned ca = zvhost::text(code);
    auto out = zvhost::call(pdist2SparseBIF, nout, {x, y, ca.get()});
    EXPECT_TRUE(ndGetM(out[0].get()) == ndGetN(x) && ndGetN(out[0].get()) == ndGetN(y));
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    for (size_t k = 1; k < out.size(); ++k) EXPECT_FALSE(out[k]);  // only slot 0 is filled
    return zvhost::valuesOf<double>(out[0].get());
}

TEST(Pdist2Sparse, ColumnMajorAndEqualToThePlainAscendingSum) {
    for (auto [nx, ny] : {std::pair{size_t(1), size_t(1)}, {3, 7}, {9, 2}, {25, 30}}) {
        const size_t p = 31;
        const auto xd = randomDense(p, nx, 0.2, unsigned(nx)), yd = randomDense(p, ny, 0.2, unsigned(100 + ny));
        Owned x = sparseOfDense(xd, p, nx), y = sparseOfDense(yd, p, ny);
        std::vector<double> squares(nx * ny);
        for (size_t i = 0; i < nx; ++i)
            for (size_t j = 0; j < ny; ++j) {
                double s = 0;
                for (size_t k = 0; k < p; ++k) s += (xd[k + i * p] - yd[k + j * p]) * (xd[k + i * p] - yd[k + j * p]);
                squares[i + j * nx] = s;
            }
        expectBitEqual(pdist2Sparse(x.get(), y.get(), "sqe"), squares);
        for (double& s : squares) s = std::sqrt(s);
        expectBitEqual(pdist2Sparse(x.get(), y.get(), "euclidean", 2), squares);
    }
}

TEST(Pdist2Sparse, OtherCodesRowCountsAndEmptySides) {
    // Y has more rows than X; its row 3 counts against X's missing 0.
    Owned x = sparseOf(2, {{{0}, {3}}, {}});
    Owned y = sparseOf(4, {{{3}, {4}}});
    EXPECT_EQ(pdist2Sparse(x.get(), y.get(), "euc"), (std::vector<double>{5, 4}));
    for (const char* code : {"cit", "mah", "xyz"})  // zeros, no error
        EXPECT_EQ(pdist2Sparse(x.get(), y.get(), code), (std::vector<double>{0, 0}));
    Owned none(zvhost::createSparse(2, 0, 0));
    EXPECT_TRUE(pdist2Sparse(none.get(), y.get(), "euc").empty());
    EXPECT_TRUE(pdist2Sparse(x.get(), none.get(), "euc").empty());
}

TEST(Pdist2Sparse, Identifiers) {
    Owned x = sparseOf(2, {{{0}, {1}}});
    Owned dense = zvhost::matrixOf<double>(2, 1);
    Owned code = zvhost::text("euc");
    const std::string prefix = "stats:pdist2bif:";
    zvtest::LeakCheck leaks;
    auto id = [&](int nout, std::initializer_list<const ndArray*> in) {
        return raisedId([&] { zvhost::call(pdist2SparseBIF, nout, in); });
    };
    EXPECT_EQ(id(1, {x.get(), x.get()}), prefix + "TooFewInputs");
    EXPECT_EQ(id(3, {x.get(), x.get(), code.get()}), prefix + "TooManyOutputs");
    EXPECT_EQ(id(3, {x.get(), x.get()}), prefix + "TooFewInputs");
    EXPECT_EQ(id(1, {dense.get(), x.get(), code.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(1, {x.get(), dense.get(), code.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(0, {x.get(), x.get(), code.get()}), "");
}

TEST(Pdist2Sparse, ResultsDoNotDependOnTheThreadCount) {
    const size_t p = 500;
    Owned x = sparseOfDense(randomDense(p, 150, 0.03, 1), p, 150);
    Owned y = sparseOfDense(randomDense(p, 170, 0.03, 2), p, 170);
    zvtest::LeakCheck leaks;
    expectThreadCountFree([&] { return pdist2Sparse(x.get(), y.get(), "euc"); });
}

}  // namespace

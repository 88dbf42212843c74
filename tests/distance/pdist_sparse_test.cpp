// pdistSparseBIF and pdist2SparseBIF: values against the dense gateway and
// against a row-by-row reference of the merge, stored zeros and NaNs, edge
// cases, identifiers, thread-count independence and leaks.
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <random>

#include "distance/sparse_distance.hpp"
#include "frame/gateway.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// One column given by its stored entries, rows ascending.
struct Column {
    std::vector<size_t> rows;
    std::vector<double> values;
};

Owned sparseOf(size_t p, const std::vector<Column>& columns) {
    size_t nnz = 0;
    for (const Column& c : columns) nnz += c.rows.size();
    Owned a(zvhost::createSparse(p, columns.size(), nnz));
    auto* values = static_cast<double*>(ndGetData(a.get()));
    size_t* rows = ndGetRowIndices(a.get());
    size_t* starts = ndGetColumnStarts(a.get());
    size_t k = 0;
    for (size_t j = 0; j < columns.size(); ++j) {
        starts[j] = k;
        for (size_t e = 0; e < columns[j].rows.size(); ++e, ++k) {
            rows[k] = columns[j].rows[e];
            values[k] = columns[j].values[e];
        }
    }
    starts[columns.size()] = k;
    return a;
}

// The non-zeros of a dense p-by-n column-major matrix, as stored columns.
std::vector<Column> columnsOfDense(const std::vector<double>& dense, size_t p, size_t n) {
    std::vector<Column> columns(n);
    for (size_t j = 0; j < n; ++j)
        for (size_t r = 0; r < p; ++r)
            if (dense[r + j * p] != 0) {
                columns[j].rows.push_back(r);
                columns[j].values.push_back(dense[r + j * p]);
            }
    return columns;
}

std::vector<double> columnsToDense(const std::vector<Column>& columns, size_t p) {
    std::vector<double> dense(p * columns.size(), 0.0);
    for (size_t j = 0; j < columns.size(); ++j)
        for (size_t e = 0; e < columns[j].rows.size(); ++e) dense[columns[j].rows[e] + j * p] = columns[j].values[e];
    return dense;
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
    EXPECT_EQ(ndGetM(out[0].get()), 1u);
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    EXPECT_FALSE(ndIsSparse(out[0].get()));
    return zvhost::valuesOf<double>(out[0].get());
}

std::vector<double> pdistSparse(size_t p, const std::vector<Column>& columns, const std::string& code,
                                const ndArray* extra = nullptr) {
    return pdistSparse(sparseOf(p, columns).get(), code, extra);
}

std::vector<double> pdistDense(const std::vector<double>& x, size_t p, size_t n, const std::string& code,
                               const ndArray* extra = nullptr) {
    Owned xa = zvhost::matrixOf<double>(p, n, std::span<const double>(x));
    Owned ca = zvhost::text(code);
    auto out = extra ? zvhost::call(pdistbif, 1, {xa.get(), ca.get(), extra})
                     : zvhost::call(pdistbif, 1, {xa.get(), ca.get()});
    return zvhost::valuesOf<double>(out[0].get());
}

// The merge's definition, written row by row over 0..p-1 rather than as a
// merge: lone(x) for a row one column stores, shared(a, b) for a row both
// store, in ascending order of row.
struct RowByRow {
    size_t p;
    const std::vector<Column>& columns;

    std::vector<std::optional<double>> expand(const Column& c) const {
        std::vector<std::optional<double>> d(p);
        for (size_t e = 0; e < c.rows.size(); ++e) d[c.rows[e]] = c.values[e];
        return d;
    }

    template <class Pair>
    std::vector<double> condensed(Pair&& pair) const {
        std::vector<double> y;
        for (size_t i = 0; i < columns.size(); ++i)
            for (size_t j = i + 1; j < columns.size(); ++j) y.push_back(pair(expand(columns[i]), expand(columns[j])));
        return y;
    }

    // A sum over the rows: s = step(s, r, a, b, both) with the absent side 0.
    template <class Step, class Finish>
    std::vector<double> sums(Step step, Finish finish) const {
        return condensed([&](const auto& u, const auto& v) {
            double s = 0;
            for (size_t r = 0; r < p; ++r)
                if (u[r] || v[r]) s = step(s, r, u[r].value_or(0.0), v[r].value_or(0.0), u[r] && v[r]);
            return finish(s);
        });
    }
};

using zvtest::expectBitEqual;

void expectClose(const std::vector<double>& a, const std::vector<double>& b, double relative) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], relative * std::abs(b[i])) << "at " << i;
}

TEST(PdistSparse, HandComputedPairUnderEveryMetric) {
    // u = (1, 0, 2, 5), v = (3, 0, 0, 5): rows 0 and 3 shared, row 2 lone.
    const std::vector<Column> x{{{0, 2, 3}, {1, 2, 5}}, {{0, 3}, {3, 5}}};
    EXPECT_DOUBLE_EQ(pdistSparse(4, x, "euc")[0], std::sqrt(8.0));
    EXPECT_EQ(pdistSparse(4, x, "sqe")[0], 8.0);
    EXPECT_EQ(pdistSparse(4, x, "cit")[0], 4.0);
    EXPECT_EQ(pdistSparse(4, x, "che")[0], 2.0);
    EXPECT_EQ(pdistSparse(4, x, "ham")[0], 0.5);
    EXPECT_EQ(pdistSparse(4, x, "jac")[0], 2.0 / 3.0);
    EXPECT_EQ(pdistSparse(4, x, "cos")[0], 0.0);  // the shared products sum to 28, above 1
    Owned e = zvhost::scalar(3);
    EXPECT_DOUBLE_EQ(pdistSparse(4, x, "min", e.get())[0], std::cbrt(16.0));
    Owned w = zvhost::matrixOf<double>(1, 4, {0.5, 1, 2, 1});
    EXPECT_DOUBLE_EQ(pdistSparse(4, x, "seu", w.get())[0], std::sqrt(0.5 * 4 + 2 * 4));
    // R upper triangular; R^T d with d = (-2, 0, 2, 0) is (-2, -2, 4, 0).
    Owned r = zvhost::matrixOf<double>(4, 4, {1, 0, 0, 0, 1, 1, 0, 0, 0, 0, 2, 0, 0, 0, 0, 1});
    EXPECT_DOUBLE_EQ(pdistSparse(4, x, "mah", r.get())[0], std::sqrt(24.0));
}

TEST(PdistSparse, CondensedOrderCodesAndUnknownCodes) {
    // Points on a line at 0, 1, 3, 6; the first one stores nothing.
    const std::vector<Column> x{{}, {{0}, {1}}, {{0}, {3}}, {{0}, {6}}};
    EXPECT_EQ(pdistSparse(1, x, "euclidean"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    EXPECT_EQ(pdistSparse(1, x, "cityblockXYZ"), (std::vector<double>{1, 3, 6, 2, 5, 3}));
    EXPECT_EQ(pdistSparse(1, x, "xyz"), std::vector<double>(6, 0.0));  // unknown: zeros, no error
    EXPECT_EQ(pdistSparse(1, x, "EUC"), std::vector<double>(6, 0.0));  // codes are case-sensitive
}

TEST(PdistSparse, EqualsTheDenseGatewayBitForBitWhereTheArithmeticIsTheSame) {
    // Adding the +0 terms of rows that neither column stores leaves a sum
    // unchanged, so the plain ascending sums agree bit for bit. Several
    // column counts exercise fewer, as many and more pairs than merge lanes.
    for (size_t n : {2u, 3u, 4u, 5u, 9u, 40u}) {
        for (double density : {0.05, 0.3, 1.0}) {
            const size_t p = 37;
            const auto dense = randomDense(p, n, density, unsigned(n * 100 + density * 10));
            Owned x = sparseOf(p, columnsOfDense(dense, p, n));
            for (const char* code : {"euc", "sqe", "cit", "che", "ham", "jac"})
                expectBitEqual(pdistSparse(x.get(), code), pdistDense(dense, p, n, code));
            Owned e = zvhost::scalar(2.5);
            expectBitEqual(pdistSparse(x.get(), "min", e.get()), pdistDense(dense, p, n, "min", e.get()));
        }
    }
}

TEST(PdistSparse, EveryMetricEqualsTheRowByRowDefinition) {
    const size_t p = 23, n = 17;
    const auto dense = randomDense(p, n, 0.3, 7);
    auto columns = columnsOfDense(dense, p, n);
    columns[3] = {};  // an empty column among the others
    const RowByRow ref{p, columns};
    Owned x = sparseOf(p, columns);

    std::vector<double> w(p);
    for (size_t k = 0; k < p; ++k) w[k] = 0.25 + double(k % 5);
    Owned wa = zvhost::matrixOf<double>(1, p, std::span<const double>(w));
    // A lone term is w*a*a, a shared one d*(w*d): the two round differently
    // from the dense gateway's (d*d)*w, so seu is held to the definition.
    auto seu = [&](double s, size_t r, double a, double b, bool both) {
        const double d = a - b;
        return s + (both ? d * (w[r] * d) : w[r] * (a + b) * (a + b));
    };
    auto root = [](double s) { return std::sqrt(s); };
    expectBitEqual(pdistSparse(x.get(), "seu", wa.get()), ref.sums(seu, root));
    expectClose(pdistSparse(x.get(), "seu", wa.get()), pdistDense(columnsToDense(columns, p), p, n, "seu", wa.get()),
                1e-14);

    // The similarity sums products over the shared rows only.
    auto dot = [](double s, size_t, double a, double b, bool both) { return both ? s + a * b : s; };
    auto similarity = [](double s) { return s > 1 ? 0.0 : 1.0 - s; };
    for (const char* code : {"cos", "cor", "spe"})
        expectBitEqual(pdistSparse(x.get(), code), ref.sums(dot, similarity));

    // Mahalanobis: t_c sums R[r, c] d_r over the stored rows r <= c in order.
    std::vector<double> factor(p * p, 0.0);
    std::mt19937 gen(3);
    std::uniform_real_distribution<double> off(-0.5, 0.5);
    for (size_t c = 0; c < p; ++c)
        for (size_t r = 0; r <= c; ++r) factor[r + c * p] = r == c ? 1.0 + 0.1 * double(c % 4) : off(gen);
    Owned ra = zvhost::matrixOf<double>(p, p, std::span<const double>(factor));
    auto mah = ref.condensed([&](const auto& u, const auto& v) {
        double total = 0;
        for (size_t c = 0; c < p; ++c) {
            double t = 0;
            for (size_t r = 0; r <= c; ++r)
                if (u[r] || v[r]) t += factor[r + c * p] * (u[r].value_or(0.0) - v[r].value_or(0.0));
            total += t * t;
        }
        return std::sqrt(total);
    });
    expectBitEqual(pdistSparse(x.get(), "mah", ra.get()), mah);
    // The dense gateway takes the same product through BLAS, in its own order.
    expectClose(pdistSparse(x.get(), "mah", ra.get()), pdistDense(columnsToDense(columns, p), p, n, "mah", ra.get()),
                1e-13);
}

TEST(PdistSparse, StoredZerosCountUnderHammingAndJaccardOnly) {
    // Column 0 stores a 0 at row 1, column 1 stores 0s at rows 1 and 2.
    const std::vector<Column> x{{{0, 1}, {4, 0}}, {{0, 1, 2}, {4, 0, 0}}, {}};
    // Pair (0, 1): row 0 equal, row 1 shared zeros (equal), row 2 a lone 0.
    EXPECT_EQ(pdistSparse(3, x, "ham")[0], 1.0 / 3.0);
    EXPECT_EQ(pdistSparse(3, x, "jac")[0], 1.0 / 3.0);
    // Pair (0, 2) and (1, 2) against an empty column: every stored row counts.
    EXPECT_EQ(pdistSparse(3, x, "ham")[1], 2.0 / 3.0);
    EXPECT_EQ(pdistSparse(3, x, "jac")[2], 1.0);
    // The dense gateway sees only the values: there the zeros are no rows.
    EXPECT_EQ(pdistDense(columnsToDense(x, 3), 3, 3, "jac")[0], 0.0);
    // The sums do not notice a stored 0.
    const std::vector<Column> plain{{{0}, {4}}, {{0}, {4}}, {}};
    for (const char* code : {"euc", "sqe", "cit", "che", "cos"})
        expectBitEqual(pdistSparse(3, x, code), pdistSparse(3, plain, code));
}

TEST(PdistSparse, NaNRunsThroughTheArithmeticWithoutMarks) {
    // Column 0 holds a NaN at row 1 that column 1 lacks, and shares row 0.
    const std::vector<Column> x{{{0, 1}, {1, kNaN}}, {{0, 2}, {4, 2}}, {{0, 2}, {1, 2}}};
    // "che": the NaN term never passes `term > largest`; pair (0, 1) is max(3, 2).
    const auto che = pdistSparse(3, x, "che");
    EXPECT_EQ(che[0], 3.0);
    EXPECT_EQ(che[1], 2.0);
    // "ham", "jac": the NaN row counts as a difference, like any lone value.
    EXPECT_EQ(pdistSparse(3, x, "ham")[1], 2.0 / 3.0);  // (0, 2): row 0 equal, rows 1 and 2 differ
    EXPECT_EQ(pdistSparse(3, x, "jac")[1], 2.0 / 3.0);
    // A NaN shared with a NaN: its difference is no 0, so it counts too.
    const std::vector<Column> both{{{0}, {kNaN}}, {{0}, {kNaN}}};
    EXPECT_EQ(pdistSparse(1, both, "ham")[0], 1.0);
    EXPECT_EQ(pdistSparse(1, both, "jac")[0], 1.0);
    // So does inf against inf: inf - inf is NaN, not 0.
    const std::vector<Column> infinite{{{0}, {kInf}}, {{0}, {kInf}}};
    EXPECT_EQ(pdistSparse(1, infinite, "ham")[0], 1.0);
    // Sums take the NaN in; the similarity only from shared rows, so a lone
    // NaN leaves it alone.
    EXPECT_TRUE(std::isnan(pdistSparse(3, x, "euc")[0]));
    EXPECT_TRUE(std::isnan(pdistSparse(3, x, "cit")[1]));
    EXPECT_EQ(pdistSparse(3, x, "euc")[2], 3.0);
    const std::vector<Column> unit{{{0, 1}, {0.6, kNaN}}, {{0, 2}, {0.6, 0.8}}};
    EXPECT_EQ(pdistSparse(3, unit, "cos")[0], 1.0 - 0.6 * 0.6);
}

TEST(PdistSparse, EmptyColumnsAndSizes) {
    for (size_t n : {0u, 1u}) {
        Owned x(zvhost::createSparse(3, n, 0));
        Owned code = zvhost::text("euc");
        zvtest::LeakCheck leaks;
        auto out = zvhost::call(pdistSparseBIF, 1, {x.get(), code.get()});
        EXPECT_EQ(ndGetM(out[0].get()), 1u);
        EXPECT_EQ(ndGetN(out[0].get()), 0u);
    }
    // Column 0 stores nothing: against column 1 "euc" is the norm of column 1.
    const std::vector<Column> x{{}, {{1, 4}, {3, 4}}, {}};
    EXPECT_EQ(pdistSparse(5, x, "euc")[0], 5.0);
    // Two columns without stored values (pair (0, 2)).
    Owned e = zvhost::scalar(3);
    Owned w = zvhost::matrixOf<double>(1, 5, {1, 1, 1, 1, 1});
    std::vector<double> identity(25, 0.0);
    for (size_t k = 0; k < 5; ++k) identity[k * 6] = 1;
    Owned r = zvhost::matrixOf<double>(5, 5, std::span<const double>(identity));
    for (const char* code : {"euc", "sqe", "cit", "che", "ham"}) EXPECT_EQ(pdistSparse(5, x, code)[1], 0.0) << code;
    EXPECT_EQ(pdistSparse(5, x, "min", e.get())[1], 0.0);
    EXPECT_EQ(pdistSparse(5, x, "seu", w.get())[1], 0.0);
    EXPECT_EQ(pdistSparse(5, x, "mah", r.get())[1], 0.0);
    EXPECT_EQ(pdistSparse(5, x, "cos")[1], 1.0);
    EXPECT_TRUE(std::isnan(pdistSparse(5, x, "jac")[1]));
    // With no rows at all, "ham" divides 0 by p = 0; "mah" needs no factor.
    Owned none(zvhost::createSparse(0, 2, 0));
    EXPECT_TRUE(std::isnan(pdistSparse(none.get(), "ham")[0]));
    EXPECT_EQ(pdistSparse(none.get(), "mah")[0], 0.0);
    EXPECT_EQ(pdistSparse(none.get(), "seu")[0], 0.0);
}

TEST(PdistSparse, SimilarityJustAboveOneGivesExactlyZero) {
    const double a = 1.0 / std::sqrt(2.0);
    const double above = a * (1 + 1e-15);
    const std::vector<Column> x{{{0, 1}, {a, a}}, {{0, 1}, {above, above}}, {{1}, {1}}};
    for (const char* code : {"cos", "cor", "spe"}) {
        const auto y = pdistSparse(2, x, code);
        EXPECT_GT(a * above + a * above, 1.0);
        EXPECT_EQ(y[0], 0.0) << code;
        EXPECT_EQ(y[1], 1.0 - a) << code;
    }
}

TEST(PdistSparse, MissingOrShortWeightsAndFactorGiveNaNInsteadOfReadingPastThem) {
    const std::vector<Column> x{{{0}, {1}}, {{1}, {2}}, {{0, 1}, {3, 4}}};
    Owned xa = sparseOf(2, x);
    auto allNaN = [](const std::vector<double>& y) {
        return std::all_of(y.begin(), y.end(), [](double v) { return std::isnan(v); });
    };
    EXPECT_TRUE(allNaN(pdistSparse(xa.get(), "seu")));
    EXPECT_TRUE(allNaN(pdistSparse(xa.get(), "mah")));
    Owned shortW = zvhost::matrixOf<double>(1, 1, {1});
    Owned shortR = zvhost::matrixOf<double>(1, 3, {1, 0, 1});
    EXPECT_TRUE(allNaN(pdistSparse(xa.get(), "seu", shortW.get())));
    EXPECT_TRUE(allNaN(pdistSparse(xa.get(), "mah", shortR.get())));
    // A sparse third input holds only its stored values behind the pointer.
    Owned sparseW = sparseOf(2, {{{0}, {1}}});
    EXPECT_TRUE(allNaN(pdistSparse(xa.get(), "seu", sparseW.get())));
    // p = 2^32: p*p wraps to 0 in 64 bits, which must not pass for enough.
    Owned tall = sparseOf(size_t(1) << 32, x);
    Owned one = zvhost::scalar(1);
    EXPECT_TRUE(allNaN(pdistSparse(tall.get(), "mah", one.get())));
}

TEST(PdistSparse, MinkowskiTakesTheScalarOfAnyClassAndTwoWithoutOne) {
    const std::vector<Column> x{{{0, 1}, {1, 2}}, {{0, 2}, {4, 2}}};
    Owned three = zvhost::matrixOf<int32_t>(1, 1, {3});
    EXPECT_DOUBLE_EQ(pdistSparse(3, x, "min", three.get())[0], std::cbrt(27.0 + 8 + 8));
    EXPECT_EQ(pdistSparse(3, x, "min")[0], std::pow(9.0 + 4 + 4, 0.5));
    Owned empty = zvhost::matrixOf<float>(0, 0);
    EXPECT_EQ(pdistSparse(3, x, "min", empty.get())[0], std::pow(17.0, 0.5));
}

TEST(PdistSparse, Identifiers) {
    Owned x = sparseOf(2, {{{0}, {1}}, {}, {{1}, {2}}});
    Owned dense = zvhost::matrixOf<double>(2, 3);
    Owned single = zvhost::matrixOf<float>(2, 3);
    Owned code = zvhost::text("seu");
    Owned euc = zvhost::text("euc");
    Owned ws = zvhost::matrixOf<float>(1, 2, {1, 1});
    Owned emptySingle = zvhost::matrixOf<float>(0, 2);
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
    auto out = zvhost::call(pdistSparseBIF, 0, {x.get(), euc.get(), emptySingle.get(), dense.get()});
    ASSERT_TRUE(out[0]);
}

TEST(PdistSparse, OutputLimitIsTestedBeforeAllocation) {
    // n(n-1)/2 reaches 2^48 - 1 first at n = 23,726,567; one column fewer
    // passes this test and meets the host's own limit on bytes instead.
    constexpr size_t kFirstTooLarge = 23726567;
    zvtest::LeakCheck leaks;
    Owned code = zvhost::text("euc");
    {
        Owned x(zvhost::createSparse(0, kFirstTooLarge, 0));
        EXPECT_EQ(raisedId([&] { zvhost::call(pdistSparseBIF, 1, {x.get(), code.get()}); }),
                  "stats:pdistbif:OutputTooLarge");
    }
    {
        Owned x(zvhost::createSparse(0, kFirstTooLarge - 1, 0));
        EXPECT_EQ(raisedId([&] { zvhost::call(pdistSparseBIF, 1, {x.get(), code.get()}); }), "zvhost:ArrayTooLarge");
    }
}

TEST(PdistSparse, PairCountDoesNotWrapAround) {
    using zv::distance::condensedPairCount;
    EXPECT_EQ(condensedPairCount(0), 0.0);
    EXPECT_EQ(condensedPairCount(1), 0.0);
    EXPECT_EQ(condensedPairCount(4), 6.0);
    EXPECT_EQ(condensedPairCount(23726567), 281474978939461.0);
    // (n - 1) * n in 64 bits would wrap around here to a small count.
    const size_t huge = (size_t(1) << 32) + 1;
    EXPECT_EQ((huge - 1) * huge / 2, size_t(1) << 31);
    EXPECT_TRUE(zv::reachesElementLimit(condensedPairCount(huge)));
}

TEST(PdistSparse, ResultsDoNotDependOnTheThreadCount) {
    const size_t p = 200, n = 300;
    const auto dense = randomDense(p, n, 0.05, 11);
    Owned x = sparseOf(p, columnsOfDense(dense, p, n));
    Owned e = zvhost::scalar(1.5);
    std::vector<double> w(p, 0.5), factor(p * p, 0.0);
    for (size_t k = 0; k < p; ++k) factor[k * (p + 1)] = 1.0 + double(k % 3);
    Owned wa = zvhost::matrixOf<double>(1, p, std::span<const double>(w));
    Owned ra = zvhost::matrixOf<double>(p, p, std::span<const double>(factor));
    const ndArray* none = nullptr;
    for (auto [code, extra] : {std::pair{"euc", none}, {"sqe", none}, {"cit", none}, {"min", e.get()},
                               {"seu", wa.get()}, {"cos", none}, {"ham", none}, {"jac", none}, {"che", none},
                               {"mah", ra.get()}}) {
        zvtest::LeakCheck leaks;
        auto one = zvtest::withThreads(1, [&] { return pdistSparse(x.get(), code, extra); });
        auto two = zvtest::withThreads(2, [&] { return pdistSparse(x.get(), code, extra); });
        expectBitEqual(one, two);
    }
}

// ---- pdist2SparseBIF ----------------------------------------------------------

std::vector<double> pdist2Sparse(const ndArray* x, const ndArray* y, const std::string& code, int nout = 1) {
    Owned ca = zvhost::text(code);
    auto out = zvhost::call(pdist2SparseBIF, nout, {x, y, ca.get()});
    EXPECT_EQ(ndGetM(out[0].get()), ndGetN(x));
    EXPECT_EQ(ndGetN(out[0].get()), ndGetN(y));
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    for (size_t k = 1; k < out.size(); ++k) EXPECT_FALSE(out[k]);  // only slot 0 is filled
    return zvhost::valuesOf<double>(out[0].get());
}

TEST(Pdist2Sparse, ColumnMajorAndEqualToThePlainAscendingSum) {
    for (auto [nx, ny] : {std::pair{size_t(1), size_t(1)}, {3, 7}, {9, 2}, {25, 30}}) {
        const size_t p = 31;
        const auto xd = randomDense(p, nx, 0.2, unsigned(nx)), yd = randomDense(p, ny, 0.2, unsigned(100 + ny));
        Owned x = sparseOf(p, columnsOfDense(xd, p, nx)), y = sparseOf(p, columnsOfDense(yd, p, ny));
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
    EXPECT_EQ(pdist2Sparse(x.get(), y.get(), "cit"), (std::vector<double>{0, 0}));  // zeros, no error
    EXPECT_EQ(pdist2Sparse(x.get(), y.get(), "mah"), (std::vector<double>{0, 0}));
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
    EXPECT_EQ(id(2, {x.get(), x.get(), code.get()}), "");
    EXPECT_EQ(id(0, {x.get(), x.get(), code.get()}), "");
}

TEST(Pdist2Sparse, ResultsDoNotDependOnTheThreadCount) {
    const size_t p = 500;
    const auto xd = randomDense(p, 150, 0.03, 1), yd = randomDense(p, 170, 0.03, 2);
    Owned x = sparseOf(p, columnsOfDense(xd, p, 150)), y = sparseOf(p, columnsOfDense(yd, p, 170));
    zvtest::LeakCheck leaks;
    auto one = zvtest::withThreads(1, [&] { return pdist2Sparse(x.get(), y.get(), "euc"); });
    auto two = zvtest::withThreads(2, [&] { return pdist2Sparse(x.get(), y.get(), "euc"); });
    expectBitEqual(one, two);
}

}  // namespace

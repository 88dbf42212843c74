// pdist2HeterogeneousBIF: the three measures against hand values and a plain
// scalar reference, the categorical scan, edge cases, inputs too short to be
// read, identifiers, thread-count independence and interruption.
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A data set as the caller prepares it: raw values and, of the same shape,
// the count of each categorical value or the scaled continuous value.
template <class T>
struct Observations {
    size_t p, n;
    std::vector<T> values, frequencies;
};

// Categorical coordinates take levels 1..3, counted over the observations;
// continuous ones are normal, their frequency the value scaled by 1/4.
template <class T>
Observations<T> mixedData(size_t p, size_t n, const std::vector<uint64_t>& C, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal;
    std::uniform_int_distribution<int> level(1, 3);
    const std::set<uint64_t> categorical(C.begin(), C.end());
    Observations<T> o{p, n, std::vector<T>(p * n), std::vector<T>(p * n)};
    for (size_t k = 0; k < p; ++k) {
        const bool isCategorical = categorical.count(k + 1) > 0;
        for (size_t i = 0; i < n; ++i) {
            T& v = o.values[k + i * p];
            v = isCategorical ? T(level(gen)) : T(normal(gen));
            if (!isCategorical) o.frequencies[k + i * p] = v / T(4);
        }
        if (isCategorical)
            for (size_t i = 0; i < n; ++i)
                for (size_t m = 0; m < n; ++m) o.frequencies[k + i * p] += T(o.values[k + m * p] == o.values[k + i * p]);
    }
    return o;
}

// The measures as written, from a set of categorical coordinates (valid,
// ascending lists only), summing in T over k ascending.
template <class T>
std::vector<T> reference(const std::string& code, const Observations<T>& X, const Observations<T>& Y,
                         const std::vector<uint64_t>& C) {
    const size_t p = X.p, nx = X.n, ny = Y.n, c = C.size();
    const std::set<uint64_t> categorical(C.begin(), C.end());
    auto logSums = [&](const Observations<T>& o) {
        std::vector<T> sums(o.n, T(0));
        for (size_t i = 0; i < o.n; ++i)
            for (uint64_t e : C) sums[i] += std::log(o.frequencies[e - 1 + i * p] / T(nx + ny));
        return sums;
    };
    const std::vector<T> a = logSums(X), b = logSums(Y);
    std::vector<T> d(nx * ny);
    for (size_t j = 0; j < ny; ++j)
        for (size_t i = 0; i < nx; ++i) {
            T s = 0;
            for (size_t k = 0; k < p; ++k) {
                const T u = X.values[k + i * p], v = Y.values[k + j * p];
                const T f = X.frequencies[k + i * p], g = Y.frequencies[k + j * p];
                const bool isCategorical = categorical.count(k + 1) > 0;
                if (code == "lin") {
                    if (!isCategorical) s += std::abs(f - g) / T(p - c);
                    else s += T(1) / T(c) - T(2) * std::log((u == v ? f : f + g) / T(nx + 1)) / (a[i] + b[j]);
                } else if (code == "goo") {
                    if (!isCategorical) s += std::abs(f - g);
                    else s += u == v ? (f - 1) * f / T(nx * (nx + 1)) : T(1);
                } else {
                    if (!isCategorical) s += std::abs(f - g);
                    else if (!(u == v)) s += T(1) - T(1) / (T(1) + std::log(f / T(nx + 1)) * std::log(g / T(nx + 1)));
                }
            }
            d[i + j * nx] = code == "lin" ? s : s / T(p);
        }
    return d;
}

// D through the gateway; C may be of any class.
template <class T>
std::vector<T> heterogeneous(const std::string& code, const Observations<T>& X, const Observations<T>& Y,
                             const ndArray* C) {
    Owned xa = zvhost::matrixOf<T>(X.p, X.n, std::span<const T>(X.values));
    Owned ya = zvhost::matrixOf<T>(Y.p, Y.n, std::span<const T>(Y.values));
    Owned fa = zvhost::matrixOf<T>(X.p, X.n, std::span<const T>(X.frequencies));
    Owned ga = zvhost::matrixOf<T>(Y.p, Y.n, std::span<const T>(Y.frequencies));
    Owned ca = zvhost::text(code);
    auto out = zvhost::call(pdist2HeterogeneousBIF, 1, {xa.get(), ya.get(), ca.get(), fa.get(), ga.get(), C});
    EXPECT_EQ(ndGetM(out[0].get()), X.n);
    EXPECT_EQ(ndGetN(out[0].get()), Y.n);
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return zvhost::valuesOf<T>(out[0].get());
}
template <class T>
std::vector<T> heterogeneous(const std::string& code, const Observations<T>& X, const Observations<T>& Y,
                             const std::vector<uint64_t>& C) {
    Owned ca = zvhost::matrixOf<uint64_t>(1, C.size(), std::span<const uint64_t>(C));
    return heterogeneous(code, X, Y, ca.get());
}

using zvtest::expectBitEqual;

const char* const kMeasures[] = {"lin", "goo", "ofd"};

TEST(Pdist2Heterogeneous, HandComputedPair) {
    // p = 3, coordinate 2 categorical; continuous frequencies differ by 0.5.
    const Observations<double> x{3, 1, {0.5, 2, 7}, {0.25, 3, 0.5}};
    const Observations<double> same{3, 1, {1.5, 2, 9}, {0.75, 3, 1.0}};
    const Observations<double> other{3, 1, {1.5, 5, 9}, {0.75, 1, 1.0}};
    const std::vector<uint64_t> C{2};
    // Equal categories: lin's term is 1/1 - 2 log(3/2)/(2 log(3/2)) = 0, and
    // each continuous term 0.5/(p - c); Goodall scores (3 - 1)3/(1*2).
    EXPECT_EQ(heterogeneous("lin", x, same, C)[0], 0.5);
    EXPECT_EQ(heterogeneous("goo", x, same, C)[0], (0.5 + 3 + 0.5) / 3);
    EXPECT_EQ(heterogeneous("ofd", x, same, C)[0], 1.0 / 3);
    // Different categories; a = log(3/2), b = log(1/2) with nx + ny = 2,
    // r = (3 + 1)/(nx + 1).
    EXPECT_DOUBLE_EQ(heterogeneous("lin", x, other, C)[0],
                     0.25 + (1 - 2 * std::log(2.0) / (std::log(1.5) + std::log(0.5))) + 0.25);
    EXPECT_DOUBLE_EQ(heterogeneous("goo", x, other, C)[0], 2.0 / 3);
    EXPECT_DOUBLE_EQ(heterogeneous("ofd", x, other, C)[0],
                     (0.5 + (1 - 1 / (1 + std::log(1.5) * std::log(0.5))) + 0.5) / 3);
}

TEST(Pdist2Heterogeneous, BitIdenticalToTheFormulas) {
    // nx != ny and ny > 1, so the two denominators nx + ny and nx + 1 differ.
    const std::vector<std::vector<uint64_t>> lists{{}, {1, 2, 3, 4, 5, 6}, {1, 3, 4, 6}, {6}};
    for (const auto& C : lists) {
        const auto x = mixedData<double>(6, 13, C, 1), y = mixedData<double>(6, 9, C, 2);
        const auto xf = mixedData<float>(6, 13, C, 3), yf = mixedData<float>(6, 9, C, 4);
        for (const char* code : kMeasures) {
            SCOPED_TRACE(std::string(code) + " with " + std::to_string(C.size()) + " categorical");
            expectBitEqual(heterogeneous(code, x, y, C), reference(code, x, y, C));
            expectBitEqual(heterogeneous(code, xf, yf, C), reference(code, xf, yf, C));
        }
    }
}

TEST(Pdist2Heterogeneous, NaNValuesCountAsUnequalCategories) {
    const std::vector<uint64_t> C{1, 3};
    auto x = mixedData<double>(4, 5, C, 5), y = mixedData<double>(4, 4, C, 6);
    // Make pair (0, 0) equal in both categorical coordinates, then hide one
    // behind a NaN on each side.
    y.values[0] = x.values[0] = kNaN;
    y.values[2] = x.values[2];
    x.values[2 + 4 * 2] = kNaN;  // X observation 2, coordinate 3
    y.values[1] = kNaN;          // a NaN in a continuous value is not read
    for (const char* code : kMeasures) {
        const auto d = heterogeneous(code, x, y, C);
        expectBitEqual(d, reference(code, x, y, C));
        for (double v : d) EXPECT_FALSE(std::isnan(v)) << code;
    }
    // In "ofd" the NaN pair pays for the mismatch; equal values would not.
    auto equal = y;
    equal.values[0] = 1;
    auto xe = x;
    xe.values[0] = 1;
    EXPECT_GT(heterogeneous("ofd", x, y, C)[0], heterogeneous("ofd", xe, equal, C)[0]);
}

TEST(Pdist2Heterogeneous, GoodallAndOccurrenceFrequencyAgreeWithoutCategories) {
    const auto x = mixedData<double>(5, 7, {}, 7), y = mixedData<double>(5, 3, {}, 8);
    const auto goo = heterogeneous("goo", x, y, std::vector<uint64_t>{});
    expectBitEqual(goo, heterogeneous("ofd", x, y, std::vector<uint64_t>{}));
    // The mean of abs(f - g).
    double s = 0;
    for (size_t k = 0; k < 5; ++k) s += std::abs(x.frequencies[k] - y.frequencies[k]);
    EXPECT_EQ(goo[0], s / 5);
}

TEST(Pdist2Heterogeneous, AllCategoricalLinNeverDividesByPMinusC) {
    const std::vector<uint64_t> C{1, 2, 3};
    const auto x = mixedData<double>(3, 6, C, 9), y = mixedData<double>(3, 5, C, 10);
    for (double v : heterogeneous("lin", x, y, C)) EXPECT_TRUE(std::isfinite(v));
}

TEST(Pdist2Heterogeneous, OccurrenceFrequencyOfCategoricalTwinsIsTheContinuousMean) {
    const std::vector<uint64_t> C{2, 3};
    auto x = mixedData<double>(4, 1, C, 11), y = mixedData<double>(4, 1, C, 12);
    y.values[1] = x.values[1];
    y.values[2] = x.values[2];
    const double continuous = std::abs(x.frequencies[0] - y.frequencies[0]) + std::abs(x.frequencies[3] - y.frequencies[3]);
    EXPECT_EQ(heterogeneous("ofd", x, y, C)[0], continuous / 4);
}

TEST(Pdist2Heterogeneous, GoodallMatchOfASingletonAddsNothing) {
    // Categorical coordinate 1 equal with f = 1; continuous coordinate 2 adds 0.5.
    const Observations<double> x{2, 2, {4, 0, 5, 0}, {1, 0.5, 1, 0.5}};
    const Observations<double> y{2, 1, {4, 0}, {1, 1.0}};
    EXPECT_EQ(heterogeneous("goo", x, y, std::vector<uint64_t>{1}), (std::vector<double>{0.25, 0.75}));
}

TEST(Pdist2Heterogeneous, CodesAndOutputs) {
    const std::vector<uint64_t> C{1};
    const auto x = mixedData<double>(2, 3, C, 13), y = mixedData<double>(2, 2, C, 14);
    EXPECT_EQ(heterogeneous("xyz", x, y, C), std::vector<double>(6, 0.0));  // unknown: zeros, no error
    EXPECT_EQ(heterogeneous("LIN", x, y, C), std::vector<double>(6, 0.0));
    for (const char* code : kMeasures)  // only the first three letters are read
        expectBitEqual(heterogeneous(std::string(code) + "XYZ", x, y, C), heterogeneous(code, x, y, C));

    Owned xa = zvhost::matrixOf<double>(2, 3, std::span<const double>(x.values));
    Owned ya = zvhost::matrixOf<double>(2, 2, std::span<const double>(y.values));
    Owned fa = zvhost::matrixOf<double>(2, 3, std::span<const double>(x.frequencies));
    Owned ga = zvhost::matrixOf<double>(2, 2, std::span<const double>(y.frequencies));
    Owned ca = zvhost::matrixOf<uint64_t>(1, 1, {1});
    Owned code = zvhost::text("goo");
    // Two outputs are accepted, only the first is set; none asked still sets it.
    auto two = zvhost::call(pdist2HeterogeneousBIF, 2, {xa.get(), ya.get(), code.get(), fa.get(), ga.get(), ca.get()});
    ASSERT_EQ(two.size(), 2u);
    EXPECT_TRUE(two[0] && !two[1]);
    auto none = zvhost::call(pdist2HeterogeneousBIF, 0,
                             {xa.get(), ya.get(), code.get(), fa.get(), ga.get(), ca.get(), xa.get()});
    ASSERT_TRUE(none[0]);
    expectBitEqual(zvhost::valuesOf<double>(none[0].get()), zvhost::valuesOf<double>(two[0].get()));
}

TEST(Pdist2Heterogeneous, EmptySets) {
    const std::vector<uint64_t> C{1};
    for (auto [nx, ny] : {std::pair<size_t, size_t>{0, 3}, {4, 0}, {0, 0}})
        for (const char* code : kMeasures)
            EXPECT_TRUE(heterogeneous(code, mixedData<double>(2, nx, C, 15), mixedData<double>(2, ny, C, 16), C).empty());
    // No coordinates: "lin" sums nothing, the means are 0/0.
    const Observations<double> none3{0, 3, {}, {}}, none2{0, 2, {}, {}};
    EXPECT_EQ(heterogeneous("lin", none3, none2, std::vector<uint64_t>{}), std::vector<double>(6, 0.0));
    EXPECT_EQ(heterogeneous("lin", none3, none2, std::vector<uint64_t>{1}), std::vector<double>(6, 0.0));
    for (double v : heterogeneous("goo", none3, none2, std::vector<uint64_t>{})) EXPECT_TRUE(std::isnan(v));
    for (double v : heterogeneous("ofd", none3, none2, std::vector<uint64_t>{})) EXPECT_TRUE(std::isnan(v));
}

TEST(Pdist2Heterogeneous, StrayCategoricalEntriesNameNoCoordinate) {
    const auto x = mixedData<double>(3, 4, {}, 17), y = mixedData<double>(3, 3, {}, 18);
    const auto goo = reference("goo", x, y, {}), lin = reference("lin", x, y, {});
    // 0 never matches, so no coordinate is categorical; "lin" still divides
    // by p - c with c = 1, and has no use for the log sum it cannot form.
    expectBitEqual(heterogeneous("goo", x, y, std::vector<uint64_t>{0}), goo);
    const auto lin0 = heterogeneous("lin", x, y, std::vector<uint64_t>{0});
    for (size_t i = 0; i < lin.size(); ++i) EXPECT_DOUBLE_EQ(lin0[i], lin[i] * 3 / 2);
    // {2, 9}: coordinate 2 is categorical; entry 9 lies past p, so "lin"'s
    // log sums, which would read it, are NaN, while the others are unaffected.
    const auto x2 = mixedData<double>(3, 4, {2}, 19), y2 = mixedData<double>(3, 3, {2}, 20);
    expectBitEqual(heterogeneous("goo", x2, y2, std::vector<uint64_t>{2, 9}), reference("goo", x2, y2, {2}));
    expectBitEqual(heterogeneous("ofd", x2, y2, std::vector<uint64_t>{2, 9}), reference("ofd", x2, y2, {2}));
    for (double v : heterogeneous("lin", x2, y2, std::vector<uint64_t>{2, 9})) EXPECT_TRUE(std::isnan(v));
    // An entry out of order stops the scan: {3, 1} makes only coordinate 3 categorical.
    const auto x3 = mixedData<double>(3, 4, {3}, 21), y3 = mixedData<double>(3, 3, {3}, 22);
    expectBitEqual(heterogeneous("goo", x3, y3, std::vector<uint64_t>{3, 1}), reference("goo", x3, y3, {3}));
}

TEST(Pdist2Heterogeneous, ListLongerThanPDividesByANegativeCount) {
    // {1, 1, 1} with p = 2: coordinate 1 categorical, 2 continuous, and
    // p - c = -1 rather than a count wrapped round to 2^64 - 1. With
    // nx + ny = 2 the log sums are 3 log(4/2), and the categorical term is
    // 1/3 - 2 log(4/2)/(6 log 2) = 0.
    const Observations<double> x{2, 1, {1, 0}, {4, 0.5}}, y{2, 1, {1, 0}, {4, 1.5}};
    const double a = 3 * std::log(4.0 / 2);
    EXPECT_DOUBLE_EQ(heterogeneous("lin", x, y, std::vector<uint64_t>{1, 1, 1})[0],
                     (1.0 / 3 - 2 * std::log(4.0 / 2) / (a + a)) + 1.0 / -1.0);
}

TEST(Pdist2Heterogeneous, InputsTooShortToReadGiveNaN) {
    const std::vector<uint64_t> C{1};
    const auto x = mixedData<double>(2, 3, C, 23), y = mixedData<double>(2, 2, C, 24);
    Owned xa = zvhost::matrixOf<double>(2, 3, std::span<const double>(x.values));
    Owned ya = zvhost::matrixOf<double>(2, 2, std::span<const double>(y.values));
    Owned fa = zvhost::matrixOf<double>(2, 3, std::span<const double>(x.frequencies));
    Owned ga = zvhost::matrixOf<double>(2, 2, std::span<const double>(y.frequencies));
    Owned yShort = zvhost::matrixOf<double>(1, 2, {1, 2});
    Owned gShort = zvhost::matrixOf<double>(2, 1, {1, 2});
    Owned fSingle = zvhost::matrixOf<float>(2, 3);  // 24 bytes: three doubles, not six
    Owned cu = zvhost::matrixOf<uint64_t>(1, 1, {1});
    Owned cInt = zvhost::matrixOf<int32_t>(1, 1, {1});  // 4 bytes for one 8-byte entry
    Owned cSparse(zvhost::createSparse(1, 3, 0));      // three entries, none stored
    auto run = [&](const char* code, const ndArray* y, const ndArray* f, const ndArray* g, const ndArray* c) {
        Owned ca = zvhost::text(code);
        auto out = zvhost::call(pdist2HeterogeneousBIF, 1, {xa.get(), y, ca.get(), f, g, c});
        return zvhost::valuesOf<double>(out[0].get());
    };
    for (const char* code : kMeasures) {
        for (auto d : {run(code, yShort.get(), fa.get(), ga.get(), cu.get()),
                       run(code, ya.get(), fSingle.get(), ga.get(), cu.get()),
                       run(code, ya.get(), fa.get(), gShort.get(), cu.get()),
                       run(code, ya.get(), fa.get(), ga.get(), cInt.get()),
                       run(code, ya.get(), fa.get(), ga.get(), cSparse.get())}) {
            ASSERT_EQ(d.size(), 6u);
            for (double v : d) EXPECT_TRUE(std::isnan(v)) << code;
        }
        // An unknown code reads nothing and keeps its zeros.
        EXPECT_EQ(run("xyz", yShort.get(), fa.get(), ga.get(), cInt.get()), std::vector<double>(6, 0.0));
    }
    // A double list is read as its 64-bit patterns: 1.0 names no coordinate.
    Owned cDouble = zvhost::matrixOf<double>(1, 1, {1.0});
    expectBitEqual(run("goo", ya.get(), fa.get(), ga.get(), cDouble.get()), reference("goo", x, y, {}));
}

TEST(Pdist2Heterogeneous, Identifiers) {
    Owned x = zvhost::matrixOf<double>(2, 3);
    Owned xs = zvhost::matrixOf<float>(2, 3);
    Owned xi = zvhost::matrixOf<int32_t>(2, 3);
    Owned sparse(zvhost::createSparse(2, 3, 0));
    Owned complex(zvhost::createComplexMatrix(2, 3));
    Owned code = zvhost::text("lin");
    Owned C = zvhost::matrixOf<uint64_t>(1, 1, {1});
    auto id = [&](int nout, std::initializer_list<const ndArray*> inputs) {
        return raisedId([&] { zvhost::call(pdist2HeterogeneousBIF, nout, inputs); });
    };
    const std::string prefix = "stats:pdist2bif:";
    EXPECT_EQ(id(1, {x.get(), x.get(), code.get(), x.get(), x.get()}), prefix + "TooFewInputs");
    EXPECT_EQ(id(3, {x.get(), x.get(), code.get(), x.get(), x.get(), C.get()}), prefix + "TooManyOutputs");
    // Inputs are counted before outputs.
    EXPECT_EQ(id(3, {x.get()}), prefix + "TooFewInputs");
    for (const ndArray* bad : {sparse.get(), complex.get()}) {
        EXPECT_EQ(id(1, {bad, x.get(), code.get(), x.get(), x.get(), C.get()}), prefix + "SparseOrComplexInput");
        EXPECT_EQ(id(1, {x.get(), bad, code.get(), x.get(), x.get(), C.get()}), prefix + "SparseOrComplexInput");
        // The kind is tested before the class.
        EXPECT_EQ(id(1, {xs.get(), bad, code.get(), x.get(), x.get(), C.get()}), prefix + "SparseOrComplexInput");
    }
    EXPECT_EQ(id(1, {x.get(), xs.get(), code.get(), x.get(), x.get(), C.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(1, {xs.get(), x.get(), code.get(), x.get(), x.get(), C.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(1, {xi.get(), xi.get(), code.get(), x.get(), x.get(), C.get()}), prefix + "BadInputType");
    EXPECT_EQ(id(2, {xs.get(), xs.get(), code.get(), xs.get(), xs.get(), C.get()}), "");
}

TEST(Pdist2Heterogeneous, ResultsDoNotDependOnTheThreadCount) {
    const std::vector<uint64_t> C{2, 5, 6, 9, 12, 13, 17, 20};
    const auto x = mixedData<double>(20, 300, C, 25), y = mixedData<double>(20, 170, C, 26);
    for (const char* code : kMeasures) {
        auto one = zvtest::withThreads(1, [&] { return heterogeneous(code, x, y, C); });
        auto two = zvtest::withThreads(2, [&] { return heterogeneous(code, x, y, C); });
        expectBitEqual(one, two);
    }
}

TEST(Pdist2Heterogeneous, InterruptFromAWorkerReachesTheCallerWithNothingLeaked) {
    const std::vector<uint64_t> C{1, 4};
    const auto x = mixedData<double>(6, 1000, C, 27), y = mixedData<double>(6, 800, C, 28);
    Owned xa = zvhost::matrixOf<double>(6, 1000, std::span<const double>(x.values));
    Owned ya = zvhost::matrixOf<double>(6, 800, std::span<const double>(y.values));
    Owned fa = zvhost::matrixOf<double>(6, 1000, std::span<const double>(x.frequencies));
    Owned ga = zvhost::matrixOf<double>(6, 800, std::span<const double>(y.frequencies));
    Owned ca = zvhost::matrixOf<uint64_t>(1, 2, std::span<const uint64_t>(C));
    for (const char* measure : kMeasures) {
        Owned code = zvhost::text(measure);
        const std::initializer_list<const ndArray*> inputs{xa.get(), ya.get(), code.get(), fa.get(), ga.get(), ca.get()};
        zvtest::LeakCheck leaks;
        zvhost::interruptAfterPolls(3);
        EXPECT_EQ(raisedId([&] { zvtest::withThreads(2, [&] { return zvhost::call(pdist2HeterogeneousBIF, 1, inputs); }); }),
                  "zvhost:Interrupted")
            << measure;
        // The next call runs as if the interrupted one had never been made.
        EXPECT_EQ(zvhost::call(pdist2HeterogeneousBIF, 1, inputs).size(), 1u);
    }
}

}  // namespace

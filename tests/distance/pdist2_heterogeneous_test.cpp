// pdist2HeterogeneousBIF: the three measures against hand values and a plain
// scalar reference, the categorical scan, edge cases, inputs too short to be
// read, identifiers, thread-count independence and interruption.
#include <random>
#include <set>

#include "distance/distance_fixtures.hpp"

namespace {

using namespace zvtest::distance;
using zvtest::raisedId;

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

// X, Y, F and G as host arrays.
template <class T>
struct Arrays {
    Owned x, y, f, g;
    Arrays(const Observations<T>& X, const Observations<T>& Y)
        : x(zvhost::matrixOf<T>(X.p, X.n, std::span<const T>(X.values))),
          y(zvhost::matrixOf<T>(Y.p, Y.n, std::span<const T>(Y.values))),
          f(zvhost::matrixOf<T>(X.p, X.n, std::span<const T>(X.frequencies))),
          g(zvhost::matrixOf<T>(Y.p, Y.n, std::span<const T>(Y.frequencies))) {}
    std::vector<Owned> call(const std::string& code, const ndArray* C, int nout = 1) const {
        Owned ca = zvhost::text(code);
        return zvhost::call(pdist2HeterogeneousBIF, nout, {x.get(), y.get(), ca.get(), f.get(), g.get(), C});
    }
};

// D through the gateway, with C as an array of any class or as a list.
template <class T>
std::vector<T> heterogeneous(const std::string& code, const Observations<T>& X, const Observations<T>& Y,
                             const ndArray* C) {
    auto out = Arrays<T>(X, Y).call(code, C);
    EXPECT_TRUE(ndGetM(out[0].get()) == X.n && ndGetN(out[0].get()) == Y.n);
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return zvhost::valuesOf<T>(out[0].get());
}
template <class T>
std::vector<T> heterogeneous(const std::string& code, const Observations<T>& X, const Observations<T>& Y,
                             const std::vector<uint64_t>& C) {
    return heterogeneous(code, X, Y, zvhost::matrixOf<uint64_t>(1, C.size(), std::span<const uint64_t>(C)).get());
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
    // each continuous term 0.5/(p - c); Goodall scores (3 - 1)3/(1*2); "ofd"
    // is the mean of the continuous terms alone.
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
    // Goodall's match of a value seen once (f = 1) adds nothing; the
    // continuous coordinate 2 adds 0.5.
    const Observations<double> singletons{2, 2, {4, 0, 5, 0}, {1, 0.5, 1, 0.5}}, one{2, 1, {4, 0}, {1, 1.0}};
    EXPECT_EQ(heterogeneous("goo", singletons, one, std::vector<uint64_t>{1}), (std::vector<double>{0.25, 0.75}));
}

TEST(Pdist2Heterogeneous, BitIdenticalToTheFormulas) {
    // nx != ny and ny > 1, so the two denominators nx + ny and nx + 1 differ;
    // all six categorical: "lin" has no continuous term to divide by p - c = 0.
    const std::vector<std::vector<uint64_t>> lists{{}, {1, 2, 3, 4, 5, 6}, {1, 3, 4, 6}, {6}};
    for (const auto& C : lists) {
        const auto x = mixedData<double>(6, 13, C, 1), y = mixedData<double>(6, 9, C, 2);
        const auto xf = mixedData<float>(6, 13, C, 3), yf = mixedData<float>(6, 9, C, 4);
        for (const char* code : kMeasures) {
            SCOPED_TRACE(std::string(code) + " with " + std::to_string(C.size()) + " categorical");
            expectBitEqual(heterogeneous(code, x, y, C), reference(code, x, y, C));
            expectBitEqual(heterogeneous(code, xf, yf, C), reference(code, xf, yf, C));
        }
        // Without categories Goodall's measure and the occurrence frequency are one.
        if (C.empty()) expectBitEqual(heterogeneous("goo", x, y, C), heterogeneous("ofd", x, y, C));
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
    auto equal = y, xe = x;
    equal.values[0] = xe.values[0] = 1;
    EXPECT_GT(heterogeneous("ofd", x, y, C)[0], heterogeneous("ofd", xe, equal, C)[0]);
}

TEST(Pdist2Heterogeneous, CodesOutputsAndEmptySets) {
    const std::vector<uint64_t> C{1};
    const auto x = mixedData<double>(2, 3, C, 13), y = mixedData<double>(2, 2, C, 14);
    for (const char* code : {"xyz", "LIN", "li", ""})  // unknown: zeros, no error
        EXPECT_EQ(heterogeneous(code, x, y, C), std::vector<double>(6, 0.0)) << code;
    for (const char* code : kMeasures)  // only the first three letters are read
        expectBitEqual(heterogeneous(std::string(code) + "XYZ", x, y, C), heterogeneous(code, x, y, C));
    // Two outputs are accepted, only the first is set; none asked still sets it.
    const Arrays<double> arrays(x, y);
    Owned ca = zvhost::matrixOf<uint64_t>(1, 1, {1});
    auto two = arrays.call("goo", ca.get(), 2), none = arrays.call("goo", ca.get(), 0);
    ASSERT_EQ(two.size(), 2u);
    EXPECT_TRUE(two[0] && !two[1] && none[0]);
    expectBitEqual(zvhost::valuesOf<double>(none[0].get()), zvhost::valuesOf<double>(two[0].get()));

    for (auto [nx, ny] : {std::pair<size_t, size_t>{0, 3}, {4, 0}, {0, 0}})
        for (const char* code : kMeasures)
            EXPECT_TRUE(
                heterogeneous(code, mixedData<double>(2, nx, C, 15), mixedData<double>(2, ny, C, 16), C).empty());
    // No coordinates: "lin" sums nothing, the means are 0/0.
    const Observations<double> none3{0, 3, {}, {}}, none2{0, 2, {}, {}};
    EXPECT_EQ(heterogeneous("lin", none3, none2, std::vector<uint64_t>{}), std::vector<double>(6, 0.0));
    EXPECT_EQ(heterogeneous("lin", none3, none2, std::vector<uint64_t>{1}), std::vector<double>(6, 0.0));
    expectAllNaN(heterogeneous("goo", none3, none2, std::vector<uint64_t>{}));
    expectAllNaN(heterogeneous("ofd", none3, none2, std::vector<uint64_t>{}));
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
    expectAllNaN(heterogeneous("lin", x2, y2, std::vector<uint64_t>{2, 9}));
    // An entry out of order stops the scan: {3, 1} makes only coordinate 3 categorical.
    const auto x3 = mixedData<double>(3, 4, {3}, 21), y3 = mixedData<double>(3, 3, {3}, 22);
    expectBitEqual(heterogeneous("goo", x3, y3, std::vector<uint64_t>{3, 1}), reference("goo", x3, y3, {3}));
    // {1, 1, 1} with p = 2: coordinate 1 categorical, 2 continuous, and
    // p - c = -1 rather than a count wrapped round to 2^64 - 1. With
    // nx + ny = 2 the log sums are 3 log(4/2), and the categorical term is
    // 1/3 - 2 log(4/2)/(6 log 2) = 0.
    const Observations<double> u{2, 1, {1, 0}, {4, 0.5}}, v{2, 1, {1, 0}, {4, 1.5}};
    const double a = 3 * std::log(4.0 / 2);
    EXPECT_DOUBLE_EQ(heterogeneous("lin", u, v, std::vector<uint64_t>{1, 1, 1})[0],
                     (1.0 / 3 - 2 * std::log(4.0 / 2) / (a + a)) + 1.0 / -1.0);
}

TEST(Pdist2Heterogeneous, InputsTooShortToReadGiveNaN) {
    const std::vector<uint64_t> C{1};
    const auto x = mixedData<double>(2, 3, C, 23), y = mixedData<double>(2, 2, C, 24);
    const Arrays<double> full(x, y);
    Owned yShort = zvhost::matrixOf<double>(1, 2, {1, 2});
    Owned gShort = zvhost::matrixOf<double>(2, 1, {1, 2});
    Owned fSingle = zvhost::matrixOf<float>(2, 3);  // 24 bytes: three doubles, not six
    Owned cu = zvhost::matrixOf<uint64_t>(1, 1, {1});
    Owned cInt = zvhost::matrixOf<int32_t>(1, 1, {1});  // 4 bytes for one 8-byte entry
    Owned cSparse(zvhost::createSparse(1, 3, 0));      // three entries, none stored
    auto run = [&](const char* code, const ndArray* y, const ndArray* f, const ndArray* g, const ndArray* c) {
        Owned ca = zvhost::text(code);
        auto out = zvhost::call(pdist2HeterogeneousBIF, 1, {full.x.get(), y, ca.get(), f, g, c});
        return zvhost::valuesOf<double>(out[0].get());
    };
    const ndArray *ya = full.y.get(), *fa = full.f.get(), *ga = full.g.get();
    for (const char* code : kMeasures) {
        for (auto d : {run(code, yShort.get(), fa, ga, cu.get()), run(code, ya, fSingle.get(), ga, cu.get()),
                       run(code, ya, fa, gShort.get(), cu.get()), run(code, ya, fa, ga, cInt.get()),
                       run(code, ya, fa, ga, cSparse.get())}) {
            ASSERT_EQ(d.size(), 6u);
            expectAllNaN(d, code);
        }
        // An unknown code reads nothing and keeps its zeros.
        EXPECT_EQ(run("xyz", yShort.get(), fa, ga, cInt.get()), std::vector<double>(6, 0.0));
    }
    // A double list is read as its 64-bit patterns: 1.0 names no coordinate.
    Owned cDouble = zvhost::matrixOf<double>(1, 1, {1.0});
    expectBitEqual(run("goo", ya, fa, ga, cDouble.get()), reference("goo", x, y, {}));
}

TEST(Pdist2Heterogeneous, Identifiers) {
    Owned x = zvhost::matrixOf<double>(2, 3), xs = zvhost::matrixOf<float>(2, 3), xi = zvhost::matrixOf<int32_t>(2, 3);
    Owned sparse(zvhost::createSparse(2, 3, 0)), complex(zvhost::createComplexMatrix(2, 3));
    Owned code = zvhost::text("lin");
    Owned C = zvhost::matrixOf<uint64_t>(1, 1, {1});
    auto id = [&](int nout, std::initializer_list<const ndArray*> inputs) {
        return raisedId([&] { zvhost::call(pdist2HeterogeneousBIF, nout, inputs); });
    };
    const std::string prefix = "stats:pdist2bif:";
    EXPECT_EQ(id(1, {x.get(), x.get(), code.get(), x.get(), x.get()}), prefix + "TooFewInputs");
    EXPECT_EQ(id(3, {x.get(), x.get(), code.get(), x.get(), x.get(), C.get()}), prefix + "TooManyOutputs");
    EXPECT_EQ(id(3, {x.get()}), prefix + "TooFewInputs");  // inputs are counted before outputs
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

TEST(Pdist2Heterogeneous, ResultsDoNotDependOnTheThreadCountAndStopWhenInterrupted) {
    const std::vector<uint64_t> C{2, 5, 6, 9, 12, 13, 17, 20};
    const auto x = mixedData<double>(20, 300, C, 25), y = mixedData<double>(20, 170, C, 26);
    for (const char* code : kMeasures) expectThreadCountFree([&] { return heterogeneous(code, x, y, C); }, code);
    const std::vector<uint64_t> C2{1, 4};
    const Arrays<double> big(mixedData<double>(6, 1000, C2, 27), mixedData<double>(6, 800, C2, 28));
    Owned ca = zvhost::matrixOf<uint64_t>(1, 2, std::span<const uint64_t>(C2));
    for (const char* code : kMeasures) expectInterruptible([&] { return big.call(code, ca.get()); }, code);
}

}  // namespace

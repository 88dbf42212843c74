// tsnebhbif and tsnelossbif: the exact gradient at theta = 0 against an
// O(N^2) reference, the attractive sums and the loss by hand (fractional
// counts, entries beyond what was passed), identifiers, edge cases, inputs
// read by value, thread-count independence and the absence of polling.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <span>

#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kTinyZ = 2.2250738585072014e-308;

// Values as a host array with `rows` rows, of their own element type.
template <class U>
Owned array(const std::vector<U>& v, size_t rows = 1) {
    return zvhost::matrixOf<U>(rows, rows ? v.size() / rows : 0, std::span<const U>(v));
}

template <class... A>
std::vector<Owned> owned(A... a) {
    std::vector<Owned> v;
    (v.push_back(std::move(a)), ...);
    return v;
}

std::vector<const ndArray*> pointers(const std::vector<Owned>& args) {
    std::vector<const ndArray*> in;
    for (const auto& a : args) in.push_back(a.get());
    return in;
}

// An embedding (d-by-n) with its affinity list and root box.
template <class T>
struct Problem {
    size_t d, n;
    std::vector<T> y, p, center, width;
    std::vector<double> nb, counts, starts;

    std::vector<Owned> gradientArgs(double theta) const {
        return owned(zvhost::scalar(theta), array(y, d), array(center), array(width), array(nb), array(counts),
                     array(p), array(starts));
    }
};

template <class T>
struct Gradient {
    std::vector<T> attractive, repulsive;
    T Z;
};

template <class T>
Gradient<T> gradient(const std::vector<Owned>& args) {
    auto out = zvhost::call(tsnebhbif, 3, pointers(args));
    return {zvhost::valuesOf<T>(out[0].get()), zvhost::valuesOf<T>(out[1].get()), zvhost::valuesOf<T>(out[2].get())[0]};
}

template <class T>
Gradient<T> gradient(const Problem<T>& pr, double theta) {
    return gradient<T>(pr.gradientArgs(theta));
}

// A random embedding with K random neighbours per point (never itself).
template <class T>
Problem<T> randomProblem(size_t d, size_t n, size_t K, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> unit(0.1, 1.0);
    Problem<T> pr{d, n, {}, {}, std::vector<T>(d), std::vector<T>(d), {}, {}, {}};
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

// Exact repulsion over all pairs in long double, and Z; the attractive sums
// in the engine's own order, in T.
template <class T>
void expectExactAtThetaZero(size_t d, double relTol) {
    const auto pr = randomProblem<T>(d, 300, 7, unsigned(d));
    const auto got = gradient(pr, 0.0);
    std::vector<long double> g(d * pr.n, 0.0L);
    long double Z = 0;
    std::vector<T> a(d * pr.n, T(0));
    for (size_t i = 0; i < pr.n; ++i) {
        const T* yi = &pr.y[i * d];
        for (size_t j = 0; j < pr.n; ++j) {
            if (i == j) continue;
            long double D = 0;
            for (size_t k = 0; k < d; ++k) D += std::pow((long double)yi[k] - pr.y[j * d + k], 2);
            const long double q = 1.0L / (1.0L + D);
            Z += q;
            for (size_t k = 0; k < d; ++k) g[i * d + k] += q * q * ((long double)yi[k] - pr.y[j * d + k]);
        }
        for (size_t c = 0; c < 7; ++c) {
            const size_t e = i * 7 + c;
            const T* yj = &pr.y[(size_t(pr.nb[e]) - 1) * d];
            T s = 1;
            for (size_t k = 0; k < d; ++k) s += (yi[k] - yj[k]) * (yi[k] - yj[k]);
            for (size_t k = 0; k < d; ++k) a[i * d + k] += (yi[k] - yj[k]) * (pr.p[e] / s);
        }
    }
    EXPECT_NEAR(got.Z, Z, relTol * Z);
    long double scale = 0;
    for (auto v : g) scale = std::max(scale, std::fabs(v / Z));
    for (size_t e = 0; e < g.size(); ++e) ASSERT_NEAR(got.repulsive[e], g[e] / Z, relTol * scale) << d << " " << e;
    EXPECT_EQ(got.attractive, a);
}

TEST(TsneGradient, ThetaZeroIsTheExactGradientInOneTwoThreeAndFiveDimensions) {
    for (size_t d : {1, 2, 3, 5}) {
        expectExactAtThetaZero<double>(d, 1e-12);
        expectExactAtThetaZero<float>(d, 2e-5);
    }
}

TEST(TsneGradient, OneThreadAndTwoThreadsGiveIdenticalResults) {
    for (double theta : {0.0, 0.5}) {
        const auto args = randomProblem<double>(2, theta > 0 ? 20000 : 1500, 10, 3).gradientArgs(theta);
        const auto one = zvtest::withThreads(1, [&] { return gradient<double>(args); });
        const auto two = zvtest::withThreads(2, [&] { return gradient<double>(args); });
        EXPECT_EQ(one.attractive, two.attractive);
        EXPECT_EQ(one.repulsive, two.repulsive);
        EXPECT_EQ(one.Z, two.Z);
    }
}

TEST(TsneGradient, IdentifiersOutputsAndTheirClass) {
    zvtest::LeakCheck leaks;
    const auto pr = randomProblem<float>(3, 20, 2, 1);
    const auto owned = pr.gradientArgs(0.5);
    const auto args = pointers(owned);
    Owned bad = zvhost::matrixOf<int32_t>(3, 20);
    auto badArgs = args;
    badArgs[1] = bad.get();
    auto call = [&](int nout, std::vector<const ndArray*> a) {
        return raisedId([&] { zvhost::call(tsnebhbif, nout, a); });
    };
    EXPECT_EQ(call(4, {args.begin(), args.begin() + 6}), "stats:tsnebif:TooFewInputsGrad");
    EXPECT_EQ(call(4, args), "stats:tsnebif:TooManyOutputs");
    EXPECT_EQ(call(3, badArgs), "stats:tsnebif:BadInputType");
    // Seven inputs pass the count test but lack the starts.
    EXPECT_EQ(call(3, {badArgs.begin(), badArgs.begin() + 7}), "stats:tsnebif:BadInputType");
    EXPECT_EQ(call(3, {args.begin(), args.begin() + 7}), "stats:tsnebif:TooFewInputsGrad");
    auto out = zvhost::call(tsnebhbif, 3, args);
    for (int k = 0; k < 3; ++k) EXPECT_EQ(ndGetClassID(out[k].get()), ndSINGLE_CLASS);
    EXPECT_EQ(ndGetM(out[0].get()), 3u);
    EXPECT_EQ(ndGetN(out[1].get()), 20u);
    EXPECT_EQ(ndGetNumberOfElements(out[2].get()), 1u);
    // Fewer outputs asked: only the slots the host gave are set.
    EXPECT_EQ(zvhost::call(tsnebhbif, 1, args).size(), 1u);
    EXPECT_EQ(zvhost::call(tsnebhbif, 0, args).size(), 1u);
}

// Points (0, 0), (1, 0), (0, 2); each case gives neighbours, counts, values
// and starts, and the attractive forces.
TEST(TsneGradient, AttractiveSumsByHand) {
    const Problem<double> base{2, 3, {0, 0, 1, 0, 0, 2}, {}, {0, 0}, {4, 4}, {}, {}, {}};
    const double v = 0.5 / 6.0;  // entry 0 from point 2 to point 1: d^2 = 5
    const struct {
        const char* what;
        std::vector<double> nb, counts, p, starts, force;
    } cases[] = {
        // starts truncate to 0; count 1.5 takes entries 0 (d^2 = 1) and 1 (d^2 = 4).
        {"fractional count", {2, 3}, {1.5, 0, 0}, {0.5, 0.25}, {0.7, 0, 0},
         {-1.0 * (0.5 / 2.0), -2.0 * (0.25 / 5.0), 0, 0, 0, 0}},
        // Point 0 from start 1 runs past the two entries; point 1's start is
        // NaN; point 2 has no count at all.
        {"past what was passed", {2, 3}, {3, 1}, {0.5, 0.25}, {1, kNaN, 0}, {0.0, -2.0 * (0.25 / 5.0), 0, 0, 0, 0}},
        {"neighbours 0 and 4 name no point", {0, 4}, {2, 0, 0}, {0.5, 0.25}, {0, 0, 0}, std::vector<double>(6, 0.0)},
        // Starts before the entries: only offsets below the count take any,
        // entry 0 for point 1, none for point 0.
        {"starts before the entries", {3, 3}, {2, 2, 0}, {0.5, 0.25}, {-INFINITY, -1, 0},
         {0, 0, 1.0 * v, -2.0 * v, 0, 0}},
        {"zero and negative counts", {2, 3}, {0, -2, 1}, {0.5, 0.25}, {0, 0, 0}, {0, 0, 0, 0, -1.0 * v, 2.0 * v}},
    };
    for (const auto& c : cases) {
        Problem<double> pr = base;
        pr.nb = c.nb, pr.counts = c.counts, pr.p = c.p, pr.starts = c.starts;
        EXPECT_EQ(gradient(pr, 0.0).attractive, c.force) << c.what;
    }
}

TEST(TsneGradient, EdgeCasesOfTheRepulsion) {
    // No points: the smallest positive normal Z.
    EXPECT_EQ(gradient(Problem<double>{2, 0, {}, {}, {0, 0}, {1, 1}, {}, {}, {}}, 0.5).Z, kTinyZ);
    EXPECT_EQ(gradient(Problem<float>{2, 0, {}, {}, {0, 0}, {1, 1}, {}, {}, {}}, 0.5).Z,
              std::numeric_limits<float>::min());
    // Point 2 lies outside the box: it pushes nobody, but both push it, so
    // Z = 2 q01 + q20 + q21.
    const Problem<double> outside{2, 3, {0.5, 0.5, -0.5, -0.5, 3, 0}, {}, {0, 0}, {1, 1}, {}, {0, 0, 0}, {0, 0, 0}};
    const auto g = gradient(outside, 0.0);
    const double q01 = 1 / 3.0, q20 = 1 / (1 + 6.25 + 0.25), q21 = 1 / (1 + 12.25 + 0.25);
    EXPECT_DOUBLE_EQ(g.Z, 2 * q01 + q20 + q21);
    EXPECT_DOUBLE_EQ(g.repulsive[4] * g.Z, q20 * q20 * 2.5 + q21 * q21 * 3.5);
    EXPECT_DOUBLE_EQ(g.repulsive[0] * g.Z, q01 * q01 * 1.0);
    // Non-finite coordinates end with NaN forces on those points; their sums
    // make the total NaN, and Z falls to its floor.
    const Problem<double> bad{2, 5, {0.5, 0.5, kNaN, 0.1, kNaN, 0.2, -0.5, -0.5, INFINITY, 0}, {}, {0, 0}, {1, 1},
                              {}, std::vector<double>(5, 0.0), std::vector<double>(5, 0.0)};
    const auto b = gradient(bad, 0.0);
    EXPECT_TRUE(std::isnan(b.repulsive[2]) && std::isnan(b.repulsive[4]));
    EXPECT_EQ(b.Z, kTinyZ);
    // A box that is not finite, or has fewer values than dimensions, takes
    // no point: no repulsion at all.
    using Box = std::pair<std::vector<double>, std::vector<double>>;
    for (const auto& [center, width] : {Box{{0, kNaN}, {1, 1}}, Box{{0}, {1}}}) {
        const Problem<double> boxed{2, 2, {0.5, 0.5, -0.5, -0.5}, {}, center, width, {}, {0, 0}, {0, 0}};
        const auto r = gradient(boxed, 0.0);
        EXPECT_EQ(r.repulsive, std::vector<double>(4, 0.0));
        EXPECT_EQ(r.Z, kTinyZ);
    }
}

// Every input is read by value: sparse or complex Y, a box of another class
// and an affinity list of other numeric classes give the same gradient.
TEST(TsneGradient, InputsAreReadByValue) {
    zvtest::LeakCheck leaks;
    auto pr = randomProblem<double>(2, 40, 3, 8);
    for (size_t i = 0; i < 40; i += 3) pr.y[2 * i] = 0;  // zeros a sparse Y does not store
    const auto args = pr.gradientArgs(0.5);
    const auto expected = gradient<double>(args);
    auto same = [&](size_t at, Owned replaced) {
        auto changed = pr.gradientArgs(0.5);
        changed[at] = std::move(replaced);
        const auto g = gradient<double>(changed);
        EXPECT_EQ(g.attractive, expected.attractive) << at;
        EXPECT_EQ(g.repulsive, expected.repulsive) << at;
    };
    Owned sparse(zvhost::createSparse(2, 40, 80));
    size_t e = 0;
    for (size_t j = 0; j < 40; ++j) {
        ndGetColumnStarts(sparse.get())[j] = e;
        for (size_t k = 0; k < 2; ++k)
            if (pr.y[j * 2 + k] != 0) {
                ndGetRowIndices(sparse.get())[e] = k;
                static_cast<double*>(ndGetData(sparse.get()))[e++] = pr.y[j * 2 + k];
            }
    }
    ndGetColumnStarts(sparse.get())[40] = e;
    same(1, std::move(sparse));
    Owned complex(zvhost::createComplexMatrix(2, 40));
    for (size_t k = 0; k < 80; ++k) static_cast<double*>(ndGetData(complex.get()))[2 * k] = pr.y[k];
    same(1, std::move(complex));
    const std::vector<float> width(pr.width.begin(), pr.width.end());
    same(3, zvhost::matrixOf<float>(2, 1, std::span<const float>(width)));
    std::vector<int32_t> nb(pr.nb.begin(), pr.nb.end()), counts(pr.counts.begin(), pr.counts.end());
    same(4, zvhost::matrixOf<int32_t>(1, nb.size(), std::span<const int32_t>(nb)));
    same(5, zvhost::matrixOf<int32_t>(1, counts.size(), std::span<const int32_t>(counts)));
}

TEST(TsneGradient, AnArmedInterruptIsNotPolledAndFailuresLeakNothing) {
    const auto args = randomProblem<double>(2, 3000, 5, 4).gradientArgs(0.5);
    const auto expected = gradient<double>(args);
    {
        zvtest::LeakCheck leaks;
        zvhost::resetPollCount();
        zvhost::interruptAfterPolls(1);
        const auto got = zvtest::withThreads(2, [&] { return gradient<double>(args); });
        zvhost::interruptAfterPolls(0);
        EXPECT_EQ(zvhost::pollCount(), 0);
        EXPECT_EQ(got.repulsive, expected.repulsive);
    }
    for (long n = 1; n <= 4; ++n) {
        zvtest::LeakCheck leaks;
        zvhost::failAllocationAt(n, zvhost::kArrays);
        EXPECT_THROW(zvhost::call(tsnebhbif, 3, pointers(args)), std::exception) << n;
        zvhost::failAllocationAt(0);
    }
}

template <class T>
T loss(size_t d, size_t n, const std::vector<T>& y, const std::vector<double>& nb, const std::vector<double>& counts,
       const std::vector<T>& p, double Z) {
    const auto args = owned(zvhost::matrixOf<T>(d, n, std::span<const T>(y)), array(nb), array(counts), array(p),
                            zvhost::scalar(Z));
    auto out = zvhost::call(tsnelossbif, 1, pointers(args));
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return zvhost::valuesOf<T>(out[0].get())[0];
}

// Three points on a line at 0, 1, 3; the term of an entry from i to j is
// p log(q p Z) with q = 1 + (yi - yj)^2.
const std::vector<double> kLine{0, 1, 3};
double term(double p, double q, double Z) { return p * std::log(q * p * Z); }

TEST(TsneLoss, ByHand) {
    // Entries: 0 -> 1 (q = 2), 0 -> 2 (q = 10), 1 -> 2 (q = 5), 2 -> 0 (q = 10).
    const std::vector<double> p{0.1, 0.2, 0.3, 0.4};
    EXPECT_EQ(loss<double>(1, 3, kLine, {2, 3, 3, 1}, {2, 1, 1}, p, 1.5),
              term(0.1, 2, 1.5) + term(0.2, 10, 1.5) + term(0.3, 5, 1.5) + term(0.4, 10, 1.5));
    const float Zf = 1.5f;
    float expectedF = 0;
    for (auto [pf, q] : {std::pair<float, float>{0.1f, 2.0f}, {0.2f, 10.0f}, {0.3f, 5.0f}, {0.4f, 10.0f}})
        expectedF += pf * std::log(q * pf * Zf);
    EXPECT_EQ(loss<float>(1, 3, {0, 1, 3}, {2, 3, 3, 1}, {2, 1, 1}, {0.1f, 0.2f, 0.3f, 0.4f}, 1.5), expectedF);
    // Count 1.5 takes entries 0 and 1 but moves the position to 1 only, so
    // point 1 (count 1) reads entry 1 again; a count of 0.5 takes one entry
    // and does not move the position.
    EXPECT_EQ(loss<double>(1, 3, kLine, {2, 3, 1}, {1.5, 1, 0}, {0.1, 0.2, 0.3}, 2),
              ((0 + term(0.1, 2, 2)) + term(0.2, 10, 2)) + term(0.2, 5, 2));
    EXPECT_EQ(loss<double>(1, 3, kLine, {3, 3}, {0.5, 1, 0}, {0.1, 0.2}, 2), term(0.1, 10, 2) + term(0.1, 5, 2));
}

TEST(TsneLoss, EdgeCasesAndEntriesBeyondWhatWasPassed) {
    const std::vector<double> none;
    EXPECT_EQ(loss<double>(2, 0, none, none, none, none, 1.0), 0.0);                          // no points
    EXPECT_EQ(loss<double>(0, 2, none, {2}, {1, 0}, {0.5}, 3.0), term(0.5, 1, 3));            // d = 0: q = 1
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {1, 0, 0}, {0.5}, 0.0), -INFINITY);             // Z = 0
    EXPECT_TRUE(std::isnan(loss<double>(1, 3, kLine, {2, 3}, {2, 0, 0}, {0.0, 0.5}, 1.0)));  // p = 0
    // Count 5 with one entry; neighbours 0 and NaN name no point; a NaN count
    // takes nothing and leaves the position; huge counts stop at the end.
    const double e0 = term(0.1, 2, 2);
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {5, 0, 0}, {0.1}, 2), e0);
    EXPECT_EQ(loss<double>(1, 3, kLine, {0, kNaN, 2}, {3, 0, 0}, {0.1, 0.1, 0.1}, 2), e0);
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {kNaN, 1, 0}, {0.1}, 2), term(0.1, 1, 2));
    EXPECT_EQ(loss<double>(1, 3, kLine, {2}, {1e300, 1e300, 0}, {0.1}, 2), e0);
}

TEST(TsneLoss, IdentifiersInTheirOrder) {
    zvtest::LeakCheck leaks;
    Owned y = zvhost::matrixOf<double>(1, 3, {0, 1, 3}), i = zvhost::matrixOf<int32_t>(1, 3);
    Owned nb = zvhost::matrixOf<double>(1, 1, {2}), c = zvhost::matrixOf<double>(1, 3, {1, 0, 0});
    Owned p = zvhost::matrixOf<double>(1, 1, {0.5}), z = zvhost::scalar(1);
    auto call = [&](int nout, std::vector<const ndArray*> a) {
        return raisedId([&] { zvhost::call(tsnelossbif, nout, a); });
    };
    EXPECT_EQ(call(2, {y.get(), nb.get(), c.get(), p.get()}), "stats:tsnebif:TooFewInputsLoss");
    EXPECT_EQ(call(2, {y.get(), nb.get(), c.get(), p.get(), z.get()}), "stats:tsnebif:TooManyOutputs");
    EXPECT_EQ(call(1, {i.get(), nb.get(), c.get(), p.get(), z.get()}), "stats:tsnebif:BadInputType");
    EXPECT_EQ(call(1, {y.get(), nb.get(), c.get(), p.get(), z.get()}), "");
    EXPECT_EQ(call(0, {y.get(), nb.get(), c.get(), p.get(), z.get()}), "");
}

}  // namespace

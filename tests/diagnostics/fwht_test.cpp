// rkeutils::fwhtbif against a row-at-a-time transcription of the stages, bit
// for bit, in both precisions and for every block size from 1 to 4096 (so
// that every way of grouping stages into passes is met), with signed zeros
// and NaN in the data; truncation and gain, unchecked permutations, short
// parameter arrays, the output limit, identifiers and thread-count
// independence.
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "gateway_declarations.hpp"
#include "diagnostics/fwht_panel.hpp"
#include "frame/checked.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

template <class T>
struct Expansion {
    size_t m = 0, k = 0, L = 0, S = 0;
    std::vector<T> x, d, g, r;
    std::vector<int64_t> perm;
    double sigma = 1.0;
    double q = 1e9;
};

template <class T>
Expansion<T> randomExpansion(size_t m, size_t k, size_t L, size_t S, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal;
    Expansion<T> e;
    e.m = m, e.k = k, e.L = L, e.S = S;
    for (size_t i = 0; i < m * k; ++i) e.x.push_back(T(normal(gen)));
    for (size_t i = 0; i < L * S; ++i) {
        e.d.push_back(normal(gen) > 0 ? T(1) : T(-1));
        e.g.push_back(T(normal(gen)));
        e.r.push_back(T(std::floor(normal(gen))));  // zeros count as negative
    }
    for (size_t b = 0; b < S; ++b) {
        std::vector<int64_t> p(L);
        for (size_t i = 0; i < L; ++i) p[i] = int64_t(i + 1);
        std::shuffle(p.begin(), p.end(), gen);
        e.perm.insert(e.perm.end(), p.begin(), p.end());
    }
    e.sigma = 2.5;
    return e;
}

// std::sin and std::cos called one at a time: through pointers the compiler
// cannot merge them into one sincos call, as it may in the engine.
template <class T>
T (*volatile separateSin)(T) = static_cast<T (*)(T)>(std::sin);
template <class T>
T (*volatile separateCos)(T) = static_cast<T (*)(T)>(std::cos);

// The stages as written, one observation at a time, in T.
template <class T>
std::vector<T> transcription(const Expansion<T>& e) {
    const size_t L = e.L, S = e.S, m = e.m;
    size_t logL = 0;
    while ((L >> (logL + 1)) != 0) ++logL;
    const T scale = std::sqrt(T(L)) * T(e.sigma) / T(std::is_same_v<T, float> ? 1.4142135f : 1.4142135623730951);
    const uint64_t q = uint64_t(e.q), total = 2 * S * L;
    const T gain = total > q ? std::sqrt(T(q) / T(total)) : T(1);
    std::vector<T> out(m * total, T(0));
    auto stage = [&](const std::vector<T>& c) {
        std::vector<T> o(L);
        for (size_t t = 0; t < L / 2; ++t) {
            o[t] = c[2 * t] + c[2 * t + 1];
            o[L / 2 + t] = c[2 * t] - c[2 * t + 1];
        }
        return o;
    };
    for (size_t b = 0; b < S; ++b)
        for (size_t i = 0; i < m; ++i) {
            // X enters at stage 0: with no stage (L = 1) the block stays at zero.
            std::vector<T> c(L, T(0));
            if (logL > 0) {
                for (size_t j = 0; j < std::min(e.k, L); ++j) c[j] = e.x[j * m + i] * e.d[b * L + j];
                for (size_t s = 0; s < logL; ++s) {
                    auto o = stage(c);
                    if (s == logL - 1 && logL >= 2) {
                        // A column no entry reaches stays zero; an entry out
                        // of range is dropped.
                        std::fill(c.begin(), c.end(), T(0));
                        for (size_t u = 0; u < L; ++u) {
                            const int64_t p = e.perm[b * L + u];
                            if (p >= 1 && uint64_t(p) <= L) c[size_t(p - 1)] = o[u] * (e.g[b * L + u] / scale);
                        }
                    } else {
                        c = o;
                    }
                }
                for (size_t u = logL; u >= 1; --u) {
                    c = stage(c);
                    if (u == 1)
                        for (size_t v = 0; v < L; ++v) c[v] = e.r[b * L + v] > T(0) ? c[v] : -c[v];
                }
            }
            for (size_t j = 0; j < L; ++j) {
                T cs = separateCos<T>(c[j]), sn = separateSin<T>(c[j]);
                if (gain != T(1)) cs *= gain, sn *= gain;
                out[(2 * b * L + j) * m + i] = cs;
                out[(2 * b * L + L + j) * m + i] = sn;
            }
        }
    out.resize(m * std::min<uint64_t>(q, total));
    return out;
}

template <class T>
struct ExpansionInputs {
    Owned x, d, g, r, perm, sigma, q;
    explicit ExpansionInputs(const Expansion<T>& e) {
        x = zvhost::matrixOf<T>(e.m, e.k, std::span<const T>(e.x));
        d = zvhost::matrixOf<T>(e.L, e.S, std::span<const T>(e.d));
        g = zvhost::matrixOf<T>(e.L, e.S, std::span<const T>(e.g));
        r = zvhost::matrixOf<T>(e.L, e.S, std::span<const T>(e.r));
        perm = Owned(ndCreateNumericMatrix(e.L, e.S, ndINT64_CLASS, ndREAL));
        if (!e.perm.empty()) std::memcpy(ndGetData(perm.get()), e.perm.data(), e.perm.size() * sizeof(int64_t));
        sigma = zvhost::scalar(e.sigma);
        q = zvhost::scalar(e.q);
    }
    std::vector<const ndArray*> list() const {
        return {x.get(), d.get(), g.get(), r.get(), perm.get(), sigma.get(), q.get()};
    }
};

template <class T>
std::vector<T> expand(const Expansion<T>& e, size_t* columns = nullptr) {
    ExpansionInputs<T> in(e);
    auto out = zvhost::call(rkeutils::fwhtbif, 1, in.list());
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    EXPECT_EQ(ndGetM(out[0].get()), e.m);
    if (columns) *columns = ndGetN(out[0].get());
    return zvhost::valuesOf<T>(out[0].get());
}

// Equal bit for bit: signed zeros and NaN included.
template <class T>
void expectSameBits(const std::vector<T>& a, const std::vector<T>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i)
        ASSERT_EQ(std::memcmp(&a[i], &b[i], sizeof(T)), 0) << "at " << i << ": " << a[i] << " and " << b[i];
}

// One instruction set's panel code, run serially over all rows as one panel.
template <class T, class Panel>
std::vector<T> serialPanels(const Expansion<T>& e, Panel panel) {
    size_t logL = 0;
    while ((e.L >> (logL + 1)) != 0) ++logL;
    std::vector<T> out(e.m * 2 * e.L * e.S, T(0));
    rkeutils::FwhtProblem<T> pr{e.x.data(), e.m, e.k, e.d.data(), e.g.data(), e.r.data(), e.perm.data(),
                                e.L, logL, e.S, std::sqrt(T(e.L)) * T(e.sigma) / T(std::is_same_v<T, float> ? 1.4142135f : 1.4142135623730951),
                                T(1), true, out.data()};
    for (size_t b = 0; b < e.S; ++b) panel(pr, b, size_t(0), e.m);
    return out;
}

template <class T>
void checkAllBlockSizes() {
    unsigned seed = 1;
    for (size_t L = 1; L <= 4096; L *= 2)
        // k = 5 and L/2 + 3 cut a group of columns in the middle.
        for (size_t k : {size_t(1), size_t(5), L / 2 + 3, L - 1, L}) {
            if (k == 0 || k > L || (k == L - 1 && L <= 2)) continue;
            // m = 333 leaves a short last panel and rows beyond whole vectors.
            auto e = randomExpansion<T>(L >= 1024 ? 45 : 333, k, L, 3, seed++);
            // A negative zero and a NaN in the data: their signs come out of
            // the same operations in any grouping of the stages.
            e.x[3] = -T(0);
            if (k > 1) e.x[e.m + 7] = std::numeric_limits<T>::quiet_NaN();
            const auto ref = transcription(e);
            expectSameBits(serialPanels(e, rkeutils::generic::transformPanel<T>), ref);
            if (__builtin_cpu_supports("avx2")) expectSameBits(serialPanels(e, rkeutils::avx2::transformPanel<T>), ref);
            expectSameBits(expand(e), ref);
        }
}

TEST(Fwht, DoubleMatchesTheStages) { checkAllBlockSizes<double>(); }
TEST(Fwht, SingleMatchesTheStages) { checkAllBlockSizes<float>(); }

TEST(Fwht, TruncationKeepsAPrefixAndScalesByTheGain) {
    auto e = randomExpansion<double>(50, 7, 8, 3, 4);
    zvtest::LeakCheck leaks;  // the cut output's new storage belongs to the array
    for (double q : {0.0, 1.0, 15.0, 16.0, 17.0, 40.0, 47.0, 48.0, 49.0, -3.0, std::nan("")}) {
        e.q = q;
        size_t columns = 0;
        const auto got = expand(e, &columns);
        EXPECT_EQ(columns, std::min<size_t>(zv::checked::toSize(q), 48)) << q;
        auto ref = e;
        ref.q = double(columns);
        expectSameBits(got, transcription(ref));
    }
    // q = 8 of 48 columns: every value is scaled by sqrt(8/48).
    e.q = 8;
    const auto cut = expand(e);
    e.q = 48;
    const auto whole = expand(e);
    for (size_t i = 0; i < cut.size(); ++i) EXPECT_EQ(cut[i], whole[i] * std::sqrt(8.0 / 48.0));
}

TEST(Fwht, SmallestBlocks) {
    // L = 1: no stage runs, the block is (cos 0, sin 0) times the gain.
    auto e = randomExpansion<double>(4, 1, 1, 2, 3);
    e.q = 3;
    const double g = std::sqrt(3.0 / 4.0);
    EXPECT_EQ(expand(e), (std::vector<double>{g, g, g, g, 0, 0, 0, 0, g, g, g, g}));
    // L = 2: neither G nor P is applied.
    auto two = randomExpansion<double>(6, 2, 2, 1, 5);
    auto other = two;
    other.g = {123.0, -7.0};
    other.perm = {2, 1};
    expectSameBits(expand(two), expand(other));
    // No block, or no rows: an empty output of the right shape.
    size_t columns = 1;
    EXPECT_TRUE(expand(randomExpansion<double>(4, 2, 4, 0, 3), &columns).empty());
    EXPECT_EQ(columns, 0u);
    EXPECT_TRUE(expand(randomExpansion<double>(0, 2, 4, 2, 3), &columns).empty());
    EXPECT_EQ(columns, 16u);
}

TEST(Fwht, PermutationsOutOfRangeWriteNothingOutsideTheirBlock) {
    auto e = randomExpansion<double>(20, 8, 8, 2, 6);
    auto bad = e;
    bad.perm[0] = 0;    // out of range: dropped
    bad.perm[1] = 99;   // out of range: dropped
    bad.perm[2] = bad.perm[3];  // duplicate: one target column is not reached
    const auto got = expand(bad);
    const auto good = expand(e);
    // Block 1 is untouched by block 0's permutation.
    for (size_t i = 16 * 20; i < good.size(); ++i) ASSERT_EQ(got[i], good[i]);
    for (double v : got) ASSERT_TRUE(std::isfinite(v));
    expectSameBits(got, transcription(bad));
    // With blocks of 1024 the stages before the scatter share passes.
    auto wide = randomExpansion<double>(40, 1000, 1024, 1, 12);
    wide.perm[10] = -4;
    wide.perm[11] = wide.perm[12];
    expectSameBits(expand(wide), transcription(wide));
}

TEST(Fwht, ParametersAreReadAsTheirNumbersAndOnlyAsFarAsTheyGo) {
    zvtest::LeakCheck leaks;
    auto e = randomExpansion<double>(10, 4, 4, 2, 8);
    for (double& g : e.g) g = double(float(g));  // exact in single precision
    ExpansionInputs<double> in(e);
    auto as = [&](auto type, const auto& v) {
        std::vector<decltype(type)> c(v.begin(), v.end());
        return zvhost::matrixOf<decltype(type)>(e.L, e.S, std::span<const decltype(type)>(c));
    };
    // D and R as int32, G as single, P as doubles: converted, not reinterpreted.
    Owned other[] = {nullptr, as(int32_t{}, e.d), as(float{}, e.g), as(int32_t{}, e.r), as(double{}, e.perm)};
    for (size_t slot = 1; slot <= 4; ++slot) {
        auto list = in.list();
        list[slot] = other[slot].get();
        expectSameBits(zvhost::valuesOf<double>(zvhost::call(rkeutils::fwhtbif, 1, list)[0].get()), expand(e));
    }
    // A short G: the values it lacks are zeros.
    auto list = in.list();
    Owned shortG = zvhost::matrixOf<double>(1, 3, {e.g[0], e.g[1], e.g[2]});
    list[2] = shortG.get();
    std::fill(e.g.begin() + 3, e.g.end(), 0.0);
    expectSameBits(zvhost::valuesOf<double>(zvhost::call(rkeutils::fwhtbif, 1, list)[0].get()), expand(e));
}

TEST(Fwht, ResultsDoNotDependOnTheThreadCount) {
    const auto e = randomExpansion<double>(3000, 60, 64, 3, 10);
    const auto f = randomExpansion<float>(3000, 60, 64, 1, 11);
    auto one = zvtest::withThreads(1, [&] { return expand(e); });
    auto two = zvtest::withThreads(2, [&] { return expand(e); });
    expectSameBits(one, two);
    auto onef = zvtest::withThreads(1, [&] { return expand(f); });
    auto twof = zvtest::withThreads(2, [&] { return expand(f); });
    expectSameBits(onef, twof);
}

TEST(Fwht, OutputLimitIsAnIntegerTestThatAlsoCatchesWrapping) {
    auto e = randomExpansion<double>(0, 0, 1, 1, 1);
    zvtest::LeakCheck leaks;
    auto tryRows = [&](size_t m) {
        ExpansionInputs<double> in(e);
        Owned x(ndCreateNumericMatrix(m, 0, ndDOUBLE_CLASS, ndREAL));
        auto list = in.list();
        list[0] = x.get();
        return raisedId([&] { zvhost::call(rkeutils::fwhtbif, 1, list); });
    };
    const std::string tooLarge = "stats:classreg:learning:rkeutils:fwhtbif:OutputTooLarge";
    EXPECT_EQ(tryRows(size_t(1) << 47), tooLarge);          // 2^48 elements
    // 2^48 - 2 elements pass the test; only the host then finds no room.
    EXPECT_NE(tryRows((size_t(1) << 47) - 1), tooLarge);
    EXPECT_EQ(tryRows(size_t(1) << 63), tooLarge);          // 2 * 2^63 wraps to 0
    EXPECT_EQ(tryRows(12), "");
}

TEST(Fwht, IdentifiersInTheirOrder) {
    auto e = randomExpansion<double>(3, 2, 2, 1, 1);
    ExpansionInputs<double> in(e);
    const std::string base = "stats:classreg:learning:rkeutils:fwhtbif:";
    const ndArray* nothing[8] = {};
    EXPECT_EQ(raisedId([&] { rkeutils::fwhtbif(2, nullptr, 6, nothing); }), base + "TooFewInputs");
    EXPECT_EQ(raisedId([&] { rkeutils::fwhtbif(2, nullptr, 8, nothing); }), base + "TooManyInputs");
    EXPECT_EQ(raisedId([&] { rkeutils::fwhtbif(2, nullptr, 7, nothing); }), base + "TooManyOutputs");
    auto list = in.list();
    Owned ints = zvhost::matrixOf<int32_t>(3, 2);
    list[0] = ints.get();
    EXPECT_EQ(raisedId([&] { zvhost::call(rkeutils::fwhtbif, 1, list); }), base + "BadInputType");
    list[0] = in.perm.get();
    EXPECT_EQ(raisedId([&] { zvhost::call(rkeutils::fwhtbif, 1, list); }), base + "BadInputType");
    // numOutputs = 0 fills slot 0.
    EXPECT_TRUE(zvhost::call(rkeutils::fwhtbif, 0, in.list())[0]);
}

}  // namespace

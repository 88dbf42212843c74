// ompBatchImpl and ompCholImpl: hand-worked pursuits, the stopping and group
// rules, edge cases and degenerate dictionaries, identifiers, agreement of the
// two forms, thread-count independence and allocation failures.
#include <cmath>
#include <limits>
#include <random>

#include "gateway_declarations.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
using Gateway = void (*)(int, ndArray**, int, const ndArray**);
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
const Gateway kBoth[] = {ompBatchImpl, ompCholImpl};

struct Fit {
    std::vector<double> coefficients, support;
    size_t supportRows = 0;
};

struct Options {
    double maxAtoms = 10, maxGroups = 1e9, tolerance = 0, parallel = 0;
    std::vector<double> groups = {};  // default: one group per atom
};

// One call with double or float data; results come back as double.
template <class T = double>
Fit omp(Gateway f, const std::vector<double>& x, size_t rows, size_t atoms, const std::vector<double>& y,
        const Options& o = {}) {
    std::vector<T> xt(x.begin(), x.end()), yt(y.begin(), y.end());
    std::vector<T> groups(atoms);
    for (size_t i = 0; i < atoms; ++i) groups[i] = o.groups.empty() ? T(i) : T(o.groups[i]);
    Owned xa = zvhost::matrixOf<T>(rows, atoms, std::span<const T>(xt));
    Owned ya = zvhost::matrixOf<T>(rows, rows ? y.size() / rows : 0, std::span<const T>(yt));
    Owned ga = zvhost::matrixOf<T>(1, atoms, std::span<const T>(groups));
    Owned ma = zvhost::scalar(o.maxAtoms), mg = zvhost::scalar(o.maxGroups), tol = zvhost::scalar(o.tolerance);
    Owned unused = zvhost::scalar(0), par = zvhost::scalar(o.parallel);
    auto out = zvhost::call(f, 2, {xa.get(), ya.get(), ma.get(), ga.get(), mg.get(), tol.get(), unused.get(), par.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    EXPECT_EQ(ndGetClassID(out[1].get()), zvhost::hostClassOf<T>());
    EXPECT_EQ(ndGetM(out[0].get()), atoms);
    Fit fit;
    for (T v : zvhost::valuesOf<T>(out[0].get())) fit.coefficients.push_back(double(v));
    for (T v : zvhost::valuesOf<T>(out[1].get())) fit.support.push_back(double(v));
    fit.supportRows = ndGetM(out[1].get());
    return fit;
}

std::vector<double> identity(size_t n) {
    std::vector<double> x(n * n, 0.0);
    for (size_t i = 0; i < n; ++i) x[i + i * n] = 1;
    return x;
}

// A random dictionary of unit-norm atoms and responses that are exact
// combinations of `nonzeros` atoms each.
struct Problem {
    size_t rows, atoms, responses;
    std::vector<double> x, y;
};
Problem sparseProblem(size_t rows, size_t atoms, size_t responses, size_t nonzeros, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal;
    Problem p{rows, atoms, responses, std::vector<double>(rows * atoms), std::vector<double>(rows * responses, 0.0)};
    for (size_t i = 0; i < atoms; ++i) {
        double s = 0;
        for (size_t r = 0; r < rows; ++r) s += std::pow(p.x[r + i * rows] = normal(gen), 2);
        for (size_t r = 0; r < rows; ++r) p.x[r + i * rows] /= std::sqrt(s);
    }
    std::uniform_int_distribution<size_t> pick(0, atoms - 1);
    for (size_t j = 0; j < responses; ++j)
        for (size_t k = 0; k < nonzeros; ++k) {
            const size_t i = pick(gen);
            const double c = normal(gen) + (normal(gen) > 0 ? 2 : -2);
            for (size_t r = 0; r < rows; ++r) p.y[r + j * rows] += c * p.x[r + i * rows];
        }
    return p;
}

using zvtest::expectBitEqual;

// Small dictionaries worked by hand, in both precisions and by both forms.
TEST(Omp, HandCases) {
    const double s = std::sqrt(0.5);
    const std::vector<double> y{3, -5, 1}, none{};
    struct Case {
        const char* what;
        std::vector<double> x;
        size_t rows, atoms;
        std::vector<double> y;
        Options o;
        std::vector<double> support, coefficients;  // no coefficients: not checked
    };
    const Case cases[] = {
        {"orthonormal atoms come by magnitude", identity(3), 3, 3, y, {.maxAtoms = 3}, {2, 1, 3}, {3, -5, 1}},
        {"up to maxAtoms", identity(3), 3, 3, y, {.maxAtoms = 2}, {2, 1}, {3, -5, 0}},
        // Atoms (1,0) and (s,s): first (s,s) as |3s| > 1, then least squares on
        // both solves y = -1*(1,0) + 2/s*(s,s) exactly.
        {"a non-orthogonal pair", {1, 0, s, s}, 2, 2, {1, 2}, {}, {2, 1, -1, -1, -1, -1, -1, -1, -1, -1}, {-1, 2 / s}},
        {"a response equal to an atom stops with a tolerance", identity(3), 3, 3, {0, 5, 0}, {.maxAtoms = 3, .tolerance = 0.5},
         {2, -1, -1}, {0, 5, 0}},
        // Nothing left to explain: atom 1 comes by default, and then a stop on it.
        {"a tolerance of 0 never stops on the residual", identity(3), 3, 3, {0, 5, 0}, {.maxAtoms = 3}, {2, 1, -1}, {0, 5, 0}},
        {"an all-zero response takes atom 1 and stops on it", identity(3), 3, 3, {0, 0, 0}, {.maxAtoms = 3, .tolerance = 0.5},
         {1, -1, -1}, {0, 0, 0}},
        {"a response orthogonal to all atoms stops on the repeated default", {1, 0, 0, 0, 1, 0}, 3, 2, {0, 0, 4},
         {.maxAtoms = 2}, {1, -1}, {0, 0}},
        {"equal scores go to the lower index", identity(3), 3, 3, {2, -2, 2}, {.maxAtoms = 3}, {1, 2, 3}, none},
        {"no group allowed", identity(3), 3, 3, y, {.maxAtoms = 3, .maxGroups = 0}, {-1, -1, -1}, {0, 0, 0}},
        // Atom 1 joins the seen group of atom 2 for free; atom 3 would open a second.
        {"one group", identity(3), 3, 3, y, {.maxAtoms = 3, .maxGroups = 1, .groups = {7, 7, 9}}, {2, 1, -1}, {3, -5, 0}},
        {"0 and -0 are one group", identity(3), 3, 3, y, {.maxAtoms = 3, .maxGroups = 1, .groups = {0, -0.0, 1}},
         {2, 1, -1}, none},
        {"a NaN group is new each time", identity(3), 3, 3, y,
         {.maxAtoms = 3, .maxGroups = 2, .groups = {kNaN, kNaN, kNaN}}, {2, 1, -1}, none},
        {"a NaN group limit truncates to 0", identity(3), 3, 3, y, {.maxAtoms = 3, .maxGroups = kNaN}, {-1, -1, -1}, none},
        {"count arguments are truncated", identity(3), 3, 3, y,
         {.maxAtoms = 2.9, .maxGroups = 1.7, .groups = {7, 7, 9}}, {2, 1}, none},
        {"more atoms allowed than the dictionary has", identity(2), 2, 2, {1, 4}, {.maxAtoms = 5}, {2, 1, -1, -1, -1},
         {1, 4}},
    };
    for (const Case& c : cases)
        for (Gateway f : kBoth)
            for (bool single : {false, true}) {
                SCOPED_TRACE(::testing::Message() << c.what << (f == ompBatchImpl ? ", batch" : ", chol")
                                                  << (single ? ", single" : ""));
                const Fit fit = single ? omp<float>(f, c.x, c.rows, c.atoms, c.y, c.o) : omp(f, c.x, c.rows, c.atoms, c.y, c.o);
                EXPECT_EQ(fit.support, c.support);
                for (size_t k = 0; k < c.coefficients.size(); ++k)
                    EXPECT_NEAR(fit.coefficients[k], c.coefficients[k], single ? 1e-5 : 1e-14) << k;
            }
}

TEST(Omp, EmptyShapes) {
    for (Gateway f : kBoth) {
        // No responses: empty outputs of the right heights.
        Fit fit = omp(f, identity(3), 3, 3, {}, {.maxAtoms = 2});
        EXPECT_TRUE(fit.coefficients.empty());
        EXPECT_EQ(fit.supportRows, 2u);
        // No atoms, or no atom allowed: nothing can be chosen.
        fit = omp(f, {}, 3, 0, {1, 2, 3}, {.maxAtoms = 2});
        EXPECT_EQ(fit.support, (std::vector<double>{-1, -1}));
        for (double m : {0.0, -3.0, kNaN}) {
            fit = omp(f, identity(3), 3, 3, {1, 2, 3, 4, 5, 6}, {.maxAtoms = m});
            EXPECT_EQ(fit.supportRows, 0u);
            EXPECT_EQ(fit.coefficients, std::vector<double>(6, 0.0));
        }
        // No rows: every atom and response is zero; atom 1 by default, then a stop.
        fit = omp(f, {}, 0, 3, {}, {.maxAtoms = 2});
        EXPECT_TRUE(fit.coefficients.empty());
    }
}

TEST(Omp, DegenerateDataEndsEveryPursuit) {
    // Repeated atoms, a zero atom and more atoms than rows, every pursuit run
    // to maxAtoms = P, give the factor zero diagonals; NaN and infinities in
    // atoms and responses end their pursuits early.
    Problem p = sparseProblem(4, 9, 12, 3, 11);
    std::copy(p.x.begin(), p.x.begin() + 4, p.x.begin() + 4 * 3);  // atom 4 = atom 1
    std::fill(p.x.begin() + 4 * 6, p.x.begin() + 4 * 7, 0.0);      // atom 7 = 0
    Problem q = sparseProblem(5, 8, 6, 2, 23);
    q.x[7] = kNaN, q.y[12] = std::numeric_limits<double>::infinity(), q.y[20] = kNaN;
    for (Gateway f : kBoth) {
        for (double parallel : {0.0, 1.0}) {
            const Fit fit = omp(f, p.x, 4, 9, p.y, {.maxAtoms = 9, .parallel = parallel});
            for (size_t j = 0; j < 12; ++j) EXPECT_GE(fit.support[j * 9], 1.0);  // something was chosen
            EXPECT_EQ(omp<float>(f, p.x, 4, 9, p.y, {.maxAtoms = 9, .parallel = parallel}).support.size(), 9u * 12u);
            EXPECT_EQ(omp(f, q.x, 5, 8, q.y, {.maxAtoms = 8, .tolerance = 1e-3, .parallel = parallel}).support.size(), 48u);
        }
        // All atoms equal, all atoms zero.
        EXPECT_EQ(omp(f, {1, 0, 1, 0, 1, 0}, 2, 3, {2, 1}, {.maxAtoms = 3}).support[0], 1.0);
        EXPECT_EQ(omp(f, std::vector<double>(6, 0.0), 2, 3, {2, 1}, {.maxAtoms = 3}).support[0], 1.0);
    }
}

TEST(Omp, RecoversExactSparseCodesAndBothFormsAgree) {
    const Problem p = sparseProblem(40, 60, 30, 3, 5);
    // The batch form's residual norm comes from a difference of squares, good
    // to about the square root of the rounding: a tolerance well above that.
    const Fit batch = omp(ompBatchImpl, p.x, 40, 60, p.y, {.maxAtoms = 6, .tolerance = 1e-6});
    const Fit chol = omp(ompCholImpl, p.x, 40, 60, p.y, {.maxAtoms = 6, .tolerance = 1e-6});
    EXPECT_EQ(batch.support, chol.support);
    for (size_t k = 0; k < batch.coefficients.size(); ++k)
        EXPECT_NEAR(batch.coefficients[k], chol.coefficients[k], 1e-10) << k;
    // A response equal to an atom stops after one step despite the rounding.
    const std::vector<double> atom(p.x.begin() + 40 * 4, p.x.begin() + 40 * 5);
    for (Gateway f : kBoth) {
        const Fit fit = omp(f, p.x, 40, 60, atom, {.maxAtoms = 4, .tolerance = 1e-6});
        EXPECT_EQ(fit.support, (std::vector<double>{5, -1, -1, -1}));
        EXPECT_NEAR(fit.coefficients[4], 1.0, 1e-12);
    }
    // The codes reproduce the responses.
    for (size_t j = 0; j < 30; ++j)
        for (size_t r = 0; r < 40; ++r) {
            double fitted = 0;
            for (size_t i = 0; i < 60; ++i) fitted += p.x[r + i * 40] * batch.coefficients[i + j * 60];
            EXPECT_NEAR(fitted, p.y[r + j * 40], 1e-9);
        }
    // Single precision follows double on the same problem.
    const Fit single = omp<float>(ompBatchImpl, p.x, 40, 60, p.y, {.maxAtoms = 3});
    const Fit reference = omp(ompBatchImpl, p.x, 40, 60, p.y, {.maxAtoms = 3});
    EXPECT_EQ(single.support, reference.support);
    for (size_t k = 0; k < single.coefficients.size(); ++k)
        EXPECT_NEAR(single.coefficients[k], reference.coefficients[k], 1e-3) << k;
}

TEST(Omp, ParallelRunsEqualTheSerialRunOnAnyThreadCount) {
    const Problem p = sparseProblem(30, 80, 200, 5, 9);
    for (Gateway f : kBoth) {
        const Fit serial = omp(f, p.x, 30, 80, p.y, {.maxAtoms = 8, .tolerance = 1e-3});
        for (size_t threads : {1, 2}) {
            const Fit parallel = zvtest::withThreads(threads, [&] {
                return omp(f, p.x, 30, 80, p.y, {.maxAtoms = 8, .tolerance = 1e-3, .parallel = kNaN});
            });
            expectBitEqual(parallel.coefficients, serial.coefficients);
            expectBitEqual(parallel.support, serial.support);
        }
    }
}

TEST(Omp, OtherInputClassesAndShapesAreConvertedNotMisread) {
    const Problem p = sparseProblem(5, 7, 4, 2, 13);
    Owned x = zvhost::matrixOf<double>(5, 7, std::span<const double>(p.x));
    std::vector<float> yf(p.y.begin(), p.y.end());
    Owned ySingle = zvhost::matrixOf<float>(5, 4, std::span<const float>(yf));
    std::vector<int32_t> groupCodes = {1, 2, 3, 4, 5, 6, 7};
    Owned groupsInt = zvhost::matrixOf<int32_t>(7, 1, std::span<const int32_t>(groupCodes));
    Owned groupsShort = zvhost::matrixOf<double>(1, 2, {1, 2});  // atoms 3..7 have no group value
    Owned ma = zvhost::scalar(3), mg = zvhost::scalar(100), tol = zvhost::scalar(0), zero = zvhost::scalar(0);
    std::vector<double> yRounded(yf.begin(), yf.end());
    for (Gateway f : kBoth) {
        const Fit expected = omp(f, p.x, 5, 7, yRounded, {.maxAtoms = 3});
        auto out = zvhost::call(f, 2, {x.get(), ySingle.get(), ma.get(), groupsInt.get(), mg.get(), tol.get(), zero.get(), zero.get()});
        expectBitEqual(zvhost::valuesOf<double>(out[0].get()), expected.coefficients);
        out = zvhost::call(f, 2, {x.get(), ySingle.get(), ma.get(), groupsShort.get(), mg.get(), tol.get(), zero.get(), zero.get()});
        expectBitEqual(zvhost::valuesOf<double>(out[1].get()), expected.support);
        // Y with fewer rows than X: the missing rows count as zeros.
        Owned yShort = zvhost::matrixOf<double>(2, 1, {p.y[0], p.y[1]});
        out = zvhost::call(f, 2, {x.get(), yShort.get(), ma.get(), groupsInt.get(), mg.get(), tol.get(), zero.get(), zero.get()});
        expectBitEqual(zvhost::valuesOf<double>(out[0].get()),
                       omp(f, p.x, 5, 7, {p.y[0], p.y[1], 0, 0, 0}, {.maxAtoms = 3}).coefficients);
        // A sparse dictionary is read as the dense one.
        Owned xs(zvhost::createSparse(5, 7, 35));
        for (size_t k = 0; k < 35; ++k) {
            static_cast<double*>(ndGetData(xs.get()))[k] = p.x[k];
            ndGetRowIndices(xs.get())[k] = k % 5;
        }
        for (size_t j = 0; j <= 7; ++j) ndGetColumnStarts(xs.get())[j] = 5 * j;
        Owned y = zvhost::matrixOf<double>(5, 4, std::span<const double>(p.y));
        out = zvhost::call(f, 2, {xs.get(), y.get(), ma.get(), groupsInt.get(), mg.get(), tol.get(), zero.get(), zero.get()});
        expectBitEqual(zvhost::valuesOf<double>(out[0].get()), omp(f, p.x, 5, 7, p.y, {.maxAtoms = 3}).coefficients);
    }
}

TEST(Omp, CountsAreTestedOutputsFirstAndNoOutputReturnsAtOnce) {
    Owned a = zvhost::scalar(1);
    std::vector<const ndArray*> eight(8, a.get()), seven(7, a.get()), nine(9, a.get());
    for (Gateway f : kBoth) {
        EXPECT_EQ(raisedId([&] { zvhost::call(f, 3, eight); }), "zvhost:TooManyOutputs");
        EXPECT_EQ(raisedId([&] { zvhost::call(f, 3, seven); }), "zvhost:TooManyOutputs");
        EXPECT_EQ(raisedId([&] { zvhost::call(f, 1, seven); }), "zvhost:TooFewInputs");
        EXPECT_EQ(raisedId([&] { zvhost::call(f, 1, nine); }), "zvhost:TooManyInputs");
        // Wrong counts raise before any input is read.
        EXPECT_EQ(raisedId([&] { zvhost::call(f, 1, std::vector<const ndArray*>{}); }), "zvhost:TooFewInputs");
        zvtest::LeakCheck leaks;
        auto out = zvhost::call(f, 0, eight);
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0], nullptr);
        // One output: the coefficients only.
        out = zvhost::call(f, 1, eight);
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), std::vector<double>{1});
    }
}

// Runs one call that is to fail with the family's allocation error; returns its byte count.
long failedBytes(Gateway f, const Problem& p, double parallel, long failAt, unsigned kinds, double maxAtoms = 4) {
    Owned x = zvhost::matrixOf<double>(p.rows, p.atoms, std::span<const double>(p.x));
    Owned y = zvhost::matrixOf<double>(p.rows, p.responses, std::span<const double>(p.y));
    Owned groups = zvhost::matrixOf<double>(1, p.atoms);
    Owned ma = zvhost::scalar(maxAtoms), mg = zvhost::scalar(1e9), zero = zvhost::scalar(0), par = zvhost::scalar(parallel);
    zvtest::LeakCheck leaks;
    zvhost::failAllocationAt(failAt, kinds);
    long bytes = -1;
    try {
        zvhost::call(f, 2, {x.get(), y.get(), ma.get(), groups.get(), mg.get(), zero.get(), zero.get(), par.get()});
        ADD_FAILURE() << "no error";
    } catch (const bedrock::core::except::IMsgIDException& e) {
        EXPECT_EQ(e.GetID(), "stats:classreg:learning:omputils:omp:UnableToAllocateMemory");
        bytes = std::get<long>(e.GetBaseMsgIDObj().args.at(0));
    }
    zvhost::failAllocationAt(0);
    return bytes;
}

TEST(Omp, AllocationFailuresOnTheCallingThreadGiveTheByteCount) {
    const Problem p = sparseProblem(6, 10, 3, 2, 17);
    // Batch: G (P^2), XtY (P M), atom norms, response norms, then the serial
    // workspace: alpha, L, gamma, alphaI, GI, w, used.
    const long batch[] = {800, 240, 80, 24, 80, 128, 32, 32, 320, 32, 10};
    for (long n = 1; n <= 11; ++n)
        EXPECT_EQ(failedBytes(ompBatchImpl, p, 0, n, zvhost::kScratch), batch[n - 1]) << n;
    // Chol: atom norms, then r, alpha, XtY, alphaI, L, gamma, XI, w, used.
    const long chol[] = {80, 48, 80, 80, 32, 128, 32, 192, 32, 10};
    for (long n = 1; n <= 10; ++n)
        EXPECT_EQ(failedBytes(ompCholImpl, p, 0, n, zvhost::kScratch), chol[n - 1]) << n;
    // An impossible support output is refused before anything is allocated.
    EXPECT_EQ(failedBytes(ompBatchImpl, p, 0, 1000, zvhost::kScratch, 1e300), LONG_MAX);
}

TEST(Omp, AllocationFailureInAWorkerReachesTheCaller) {
    const Problem p = sparseProblem(6, 10, 64, 2, 19);
    for (size_t threads : {1, 2}) {
        zvtest::withThreads(threads, [&] {
            // The first worker block is some column's alpha.
            EXPECT_EQ(failedBytes(ompBatchImpl, p, 1, 1, zvhost::kWorkerScratch), 80);
            EXPECT_EQ(failedBytes(ompCholImpl, p, 1, 1, zvhost::kWorkerScratch), 48);
            // Later columns fail after earlier ones have finished.
            EXPECT_GT(failedBytes(ompBatchImpl, p, 1, 100, zvhost::kWorkerScratch), 0);
            EXPECT_GT(failedBytes(ompCholImpl, p, 1, 100, zvhost::kWorkerScratch), 0);
            return 0;
        });
    }
    // One thread: the blocks of the first column come in order.
    zvtest::withThreads(1, [&] { EXPECT_EQ(failedBytes(ompBatchImpl, p, 1, 5, zvhost::kWorkerScratch), 320); return 0; });
}

}  // namespace

// Fuzz templates: lasso and GLM-lasso sweeps, the lasso residual, and both
// forms of orthogonal matching pursuit.
#include "fuzz/fuzz.hpp"

namespace {

using namespace zvfuzz;

constexpr size_t kRows = 6, kPredictors = 4;

template <class T>
Owned typedScalar(double x) {
    if constexpr (std::is_same_v<T, float>) return single(float(x));
    else return scalar(x);
}

// X, weightedX, y, b, active, divisor, shrink, threshold, r, xx, cut to
// `count` inputs; predictor 2 starts outside the active set.
template <class T>
std::vector<Owned> lassoSweep(int count) {
    auto in = args(randomMatrix<T>(kRows, kPredictors, 1), randomMatrix<T>(kRows, kPredictors, 2),
                   randomMatrix<T>(kRows, 1, 3), randomMatrix<T>(kPredictors, 1, 4, -0.5, 0.5),
                   logicals({true, true, false, true}), typedScalar<T>(kRows), randomMatrix<T>(kPredictors, 1, 5, 0.5, 2),
                   typedScalar<T>(0.05), randomMatrix<T>(kRows, 1, 6), randomMatrix<T>(kPredictors, 1, 7, 1, 3));
    in.resize(size_t(count));
    return in;
}

template <class T>
void addLassoSweeps(TemplateSet& t, const char* type) {
    for (int count : {8, 9, 10})
        t.add(std::string(type) + ", " + std::to_string(count) + " inputs", 3, [=] { return lassoSweep<T>(count); });
}

ZV_FUZZ_TEMPLATES("lassoCoordDescentCycle", lassoCycle) {
    addLassoSweeps<double>(t, "double");
    addLassoSweeps<float>(t, "single");
}

// Placeholders in 0 to 2, b, active, divisor, shrink, threshold, c, G.
template <class T>
std::vector<Owned> covarianceSweep() {
    return args(dense<T>(0, kPredictors), empty(), empty(), randomMatrix<T>(kPredictors, 1, 4, -0.5, 0.5),
                logicals({true, false, true, true}), typedScalar<T>(1), randomMatrix<T>(kPredictors, 1, 5, 1, 3),
                typedScalar<T>(0.1), randomMatrix<T>(kPredictors, 1, 8),
                randomMatrix<T>(kPredictors, kPredictors, 9));
}

ZV_FUZZ_TEMPLATES("lassoCoordDescentCycleWithCov", lassoCovariance) {
    t.add("double", 2, [] { return covarianceSweep<double>(); });
    t.add("single", 2, [] { return covarianceSweep<float>(); });
}

// X, y, b, active, and the start vector updated in place when `withStart`.
template <class T>
std::vector<Owned> residual(bool withStart) {
    auto in = args(randomMatrix<T>(kRows, kPredictors, 1), randomMatrix<T>(kRows, 1, 3),
                   randomMatrix<T>(kPredictors, 1, 4), logicals({true, false, true, true}));
    if (withStart) in.push_back(randomMatrix<T>(kRows, 1, 6));
    return in;
}

ZV_FUZZ_TEMPLATES("lassoYminusXb", lassoResidual) {
    for (bool withStart : {false, true}) {
        const std::string start = withStart ? ", start vector" : "";
        t.add("double" + start, 1, [=] { return residual<double>(withStart); });
        t.add("single" + start, 1, [=] { return residual<float>(withStart); });
    }
}

// X, weightedX, xx, z, b, active, shrink, threshold.
template <class T>
std::vector<Owned> glmSweep() {
    return args(randomMatrix<T>(kRows, kPredictors, 1), randomMatrix<T>(kRows, kPredictors, 2),
                randomMatrix<T>(kPredictors, 1, 7, 1, 3), randomMatrix<T>(kRows, 1, 3),
                randomMatrix<T>(kPredictors, 1, 4, -0.5, 0.5), logicals({true, true, false, true}),
                randomMatrix<T>(kPredictors, 1, 5, 1, 3), typedScalar<T>(0.05));
}

ZV_FUZZ_TEMPLATES("lassoglmCoordDescentCycleNoRecalc", lassoGlmCycle) {
    t.add("double", 2, [] { return glmSweep<double>(); });
    t.add("single", 2, [] { return glmSweep<float>(); });
}

// X, w, an input that is not read, active.
template <class T>
std::vector<Owned> weightedSquares() {
    return args(randomMatrix<T>(kRows, kPredictors, 1), randomMatrix<T>(kRows, 1, 10, 0, 2), empty(),
                logicals({true, false, true, true}));
}

ZV_FUZZ_TEMPLATES("lassoglmWtimesX2", lassoGlmSquares) {
    t.add("double", 1, [] { return weightedSquares<double>(); });
    t.add("single", 1, [] { return weightedSquares<float>(); });
}

// 5 rows, 7 atoms in groups {1, 1, 2, 2, 3, 3, 3}, 3 responses: X, Y,
// maxAtoms, groups, maxGroups, tolerance, an input without effect, parallel.
template <class T>
std::vector<Owned> pursuit(double maxGroups, double tolerance, double parallel) {
    return args(randomMatrix<T>(5, 7, 21), randomMatrix<T>(5, 3, 22), scalar(3),
                dense<T>(1, 7, {1, 1, 2, 2, 3, 3, 3}), scalar(maxGroups), scalar(tolerance), scalar(0),
                scalar(parallel));
}

void addPursuits(TemplateSet& t) {
    t.add("double serial", 2, [] { return pursuit<double>(10, 0, 0); });
    t.add("double parallel, two groups", 2, [] { return pursuit<double>(2, 1e-3, 1); });
    t.add("single serial, one group", 2, [] { return pursuit<float>(1, 0.1, 0); });
    t.add("single parallel", 1, [] { return pursuit<float>(10, 0, 1); });
}

ZV_FUZZ_TEMPLATES("ompBatchImpl", ompBatch) { addPursuits(t); }
ZV_FUZZ_TEMPLATES("ompCholImpl", ompChol) { addPursuits(t); }

}  // namespace

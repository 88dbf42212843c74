// Lasso and GLM-lasso sweeps through the host's call boundary, next to the
// cost of plain passes over the same X by dgemv: one sweep reads X and
// weightedX once each, so it should cost about two passes.
//   build/bin/lasso_bench [--benchmark_filter=Sweep]
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <random>
#include <span>
#include <stdexcept>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr size_t kRows = 200000, kPredictors = 100;

using Dgemv = void (*)(const char*, const int*, const int*, const double*, const double*, const int*,
                       const double*, const int*, const double*, double*, const int*, size_t);

// The BLAS the library itself loaded (single-threaded by the host).
Dgemv blasDgemv() {
    auto f = reinterpret_cast<Dgemv>(dlsym(RTLD_DEFAULT, "dgemv_"));
    if (!f) throw std::runtime_error("dgemv_ not loaded");
    return f;
}

zvhost::Owned normalMatrix(size_t m, size_t n, unsigned seed, double scale = 1.0) {
    zvhost::Owned a = zvhost::matrixOf<double>(m, n);
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, scale);
    double* p = static_cast<double*>(ndGetData(a.get()));
    for (size_t k = 0; k < m * n; ++k) p[k] = normal(gen);
    return a;
}

zvhost::Owned constant(size_t m, double value) {
    zvhost::Owned a = zvhost::matrixOf<double>(m, 1);
    double* p = static_cast<double*>(ndGetData(a.get()));
    for (size_t k = 0; k < m; ++k) p[k] = value;
    return a;
}

zvhost::Owned allActive(size_t p) {
    zvhost::Owned a(ndCreateLogicalMatrix(p, 1));
    bool* m = ndGetLogicals(a.get());
    for (size_t k = 0; k < p; ++k) m[k] = true;
    return a;
}

// The data every benchmark shares, built once.
struct Data {
    zvhost::Owned X = normalMatrix(kRows, kPredictors, 1);
    zvhost::Owned weightedX = normalMatrix(kRows, kPredictors, 2);
    zvhost::Owned y = normalMatrix(kRows, 1, 3, 5.0);
    zvhost::Owned b = normalMatrix(kPredictors, 1, 4, 0.1);
    zvhost::Owned active = allActive(kPredictors);
    zvhost::Owned xx = constant(kPredictors, double(kRows));
    zvhost::Owned shrink = constant(kPredictors, 1.0);
    zvhost::Owned divisor = zvhost::scalar(double(kRows));
    zvhost::Owned threshold = zvhost::scalar(1e-6);  // small: every predictor stays active
};
Data& data() {
    static Data d;
    return d;
}

void setBytes(benchmark::State& state, size_t matrices) {
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(matrices * kRows * kPredictors * sizeof(double)));
}

void BM_Gemv(benchmark::State& state) {
    Data& d = data();
    const int m = int(kRows), n = int(kPredictors), one = 1;
    const double alpha = -1, beta = 1;
    std::vector<double> r(kRows, 0.0);
    const Dgemv gemv = blasDgemv();
    const double* X = static_cast<const double*>(ndGetData(d.X.get()));
    const double* b = static_cast<const double*>(ndGetData(d.b.get()));
    const int passes = int(state.range(0));
    for (auto _ : state) {
        for (int k = 0; k < passes; ++k) gemv("N", &m, &n, &alpha, X, &m, b, &one, &beta, r.data(), &one, 1);
        benchmark::DoNotOptimize(r.data());
    }
    setBytes(state, size_t(passes));
}

void BM_SweepCarriedResidual(benchmark::State& state) {
    Data& d = data();
    for (auto _ : state) {
        auto out = zvhost::call(lassoCoordDescentCycle, 3,
                                {d.X.get(), d.weightedX.get(), d.y.get(), d.b.get(), d.active.get(),
                                 d.divisor.get(), d.shrink.get(), d.threshold.get(), d.y.get(), d.xx.get()});
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, 2);
}

void BM_SweepSameMatrix(benchmark::State& state) {
    // weightedX is X itself, as in a plain least-squares fit: X is read twice.
    Data& d = data();
    for (auto _ : state) {
        auto out = zvhost::call(lassoCoordDescentCycle, 3,
                                {d.X.get(), d.X.get(), d.y.get(), d.b.get(), d.active.get(), d.divisor.get(),
                                 d.shrink.get(), d.threshold.get(), d.y.get(), d.xx.get()});
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, 2);
}

void BM_CovarianceSweep(benchmark::State& state) {
    const size_t P = size_t(state.range(0));
    auto G = normalMatrix(P, P, 5), c = normalMatrix(P, 1, 6), b = normalMatrix(P, 1, 7, 0.1);
    auto placeholder = zvhost::matrixOf<double>(0, P), none = zvhost::matrixOf<double>(0, 0);
    auto active = allActive(P), shrink = constant(P, 1.0);
    auto divisor = zvhost::scalar(1.0), threshold = zvhost::scalar(1e-6);
    for (auto _ : state) {
        auto out = zvhost::call(lassoCoordDescentCycleWithCov, 2,
                                {placeholder.get(), none.get(), none.get(), b.get(), active.get(), divisor.get(),
                                 shrink.get(), threshold.get(), c.get(), G.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(P * P * sizeof(double)));
}

void BM_YminusXb(benchmark::State& state) {
    Data& d = data();
    for (auto _ : state) {
        auto out = zvhost::call(lassoYminusXb, 1, {d.X.get(), d.y.get(), d.b.get(), d.active.get()});
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, 1);
}

void BM_GlmSweep(benchmark::State& state) {
    Data& d = data();
    for (auto _ : state) {
        auto out = zvhost::call(lassoglmCoordDescentCycleNoRecalc, 2,
                                {d.X.get(), d.weightedX.get(), d.xx.get(), d.y.get(), d.b.get(), d.active.get(),
                                 d.shrink.get(), d.threshold.get()});
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, 3);
}

// A GLM sweep on a short design, as in each step of a logistic fit on a few
// thousand rows: there the cost per column, not the bandwidth, decides.
void BM_GlmSweepShort(benchmark::State& state) {
    const size_t n = 2000, p = 200;
    auto X = normalMatrix(n, p, 11), weightedX = normalMatrix(n, p, 12), z = normalMatrix(n, 1, 13);
    auto b = normalMatrix(p, 1, 14, 0.1), xx = constant(p, double(n)), shrink = constant(p, 1.0);
    auto active = allActive(p), threshold = zvhost::scalar(1e-6);
    for (auto _ : state) {
        auto out = zvhost::call(lassoglmCoordDescentCycleNoRecalc, 2,
                                {X.get(), weightedX.get(), xx.get(), z.get(), b.get(), active.get(), shrink.get(),
                                 threshold.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(3 * n * p * sizeof(double)));
}

void BM_WtimesX2(benchmark::State& state) {
    Data& d = data();
    auto w = constant(kRows, 0.5);
    for (auto _ : state) {
        auto out = zvhost::call(lassoglmWtimesX2, 1, {d.X.get(), w.get(), d.y.get(), d.active.get()});
        benchmark::DoNotOptimize(out.data());
    }
    setBytes(state, 1);
}

BENCHMARK(BM_Gemv)->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SweepCarriedResidual)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SweepSameMatrix)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CovarianceSweep)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_YminusXb)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GlmSweep)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_GlmSweepShort)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_WtimesX2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

// Throughput of tsnebhbif and tsnelossbif through the host's call boundary:
// Gaussian blobs with about 90 random neighbours per point, as a perplexity
// of 30 gives. Items/s counts points per second.
//   build/bin/tsne_bench [--benchmark_filter=Gradient2d]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"

struct ndArray;
void tsnebhbif(int, ndArray**, int, const ndArray**);
void tsnelossbif(int, ndArray**, int, const ndArray**);

namespace {

constexpr size_t kNeighbours = 90;

struct Problem {
    zvhost::Owned theta, y, center, halfWidth, neighbours, counts, values, starts;
};

// An embedding of 10 blobs, and affinities to random points of the same blob.
Problem makeProblem(size_t n, size_t d, double theta) {
    std::mt19937 gen(11);
    std::normal_distribution<double> normal;
    std::vector<double> y(d * n), centres(10 * d);
    for (double& c : centres) c = 20 * normal(gen);
    for (size_t i = 0; i < n; ++i)
        for (size_t k = 0; k < d; ++k) y[i * d + k] = centres[(i % 10) * d + k] + normal(gen);
    std::vector<double> lo(d, 1e300), hi(d, -1e300), center(d), halfWidth(d);
    for (size_t i = 0; i < n; ++i)
        for (size_t k = 0; k < d; ++k) lo[k] = std::min(lo[k], y[i * d + k]), hi[k] = std::max(hi[k], y[i * d + k]);
    for (size_t k = 0; k < d; ++k) center[k] = (lo[k] + hi[k]) / 2, halfWidth[k] = (hi[k] - lo[k]) / 2 * 1.001;
    const size_t K = std::min(kNeighbours, n / 10);
    std::uniform_int_distribution<size_t> pick(0, n / 10 - 1);
    std::vector<double> nb(n * K), p(n * K), counts(n, double(K)), starts(n);
    for (size_t i = 0; i < n; ++i) {
        starts[i] = double(i * K);
        for (size_t e = 0; e < K; ++e) {
            nb[i * K + e] = double(pick(gen) * 10 + i % 10 + 1);
            p[i * K + e] = 1.0 / double(n * K);
        }
    }
    return {zvhost::scalar(theta),
            zvhost::matrixOf<double>(d, n, std::span<const double>(y)),
            zvhost::matrixOf<double>(d, 1, std::span<const double>(center)),
            zvhost::matrixOf<double>(d, 1, std::span<const double>(halfWidth)),
            zvhost::matrixOf<double>(1, n * K, std::span<const double>(nb)),
            zvhost::matrixOf<double>(1, n, std::span<const double>(counts)),
            zvhost::matrixOf<double>(1, n * K, std::span<const double>(p)),
            zvhost::matrixOf<double>(1, n, std::span<const double>(starts))};
}

void gradient(benchmark::State& state, size_t d, double theta) {
    const size_t n = size_t(state.range(0));
    const Problem pr = makeProblem(n, d, theta);
    for (auto _ : state) {
        auto out = zvhost::call(tsnebhbif, 3, {pr.theta.get(), pr.y.get(), pr.center.get(), pr.halfWidth.get(),
                                               pr.neighbours.get(), pr.counts.get(), pr.values.get(), pr.starts.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void BM_Gradient2d(benchmark::State& s) { gradient(s, 2, 0.5); }
void BM_Gradient3d(benchmark::State& s) { gradient(s, 3, 0.5); }
void BM_Gradient2dExact(benchmark::State& s) { gradient(s, 2, 0.0); }

void BM_Loss2d(benchmark::State& s) {
    const size_t n = size_t(s.range(0));
    const Problem pr = makeProblem(n, 2, 0.5);
    auto z = zvhost::scalar(1e6);
    for (auto _ : s) {
        auto out = zvhost::call(tsnelossbif, 1, {pr.y.get(), pr.neighbours.get(), pr.counts.get(), pr.values.get(), z.get()});
        benchmark::DoNotOptimize(out.data());
    }
    s.SetItemsProcessed(int64_t(s.iterations()) * int64_t(n));
}

BENCHMARK(BM_Gradient2d)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Gradient3d)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Gradient2dExact)->Arg(2000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Loss2d)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

// Throughput of tsnebhbif and tsnelossbif through the host's call boundary:
// Gaussian blobs with 90 neighbours per point, as a perplexity of 30 gives. Items/s counts points per second.
//   build/bin/tsne_bench [--benchmark_filter=Gradient2d]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr size_t kNeighbours = 90;

struct Problem {
    zvhost::Owned theta, y, center, halfWidth, neighbours, counts, values, starts;
};

// The cell of a point on a 1024-cell grid per dimension, bits interleaved:
// points close in this order are close in space.
uint64_t mortonCode(const double* y, size_t d, const std::vector<double>& lo, const std::vector<double>& hi) {
    uint64_t code = 0;
    for (int bit = 9; bit >= 0; --bit)
        for (size_t k = 0; k < d; ++k) {
            const auto cell = uint64_t(1023.0 * (y[k] - lo[k]) / (hi[k] - lo[k]));
            code = (code << 1) | ((cell >> bit) & 1);
        }
    return code;
}

// An embedding of 10 blobs, and affinities to the points that are nearest
// in the order of their grid cells, as a neighbour search would give.
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
    std::vector<std::pair<uint64_t, size_t>> sorted(n);
    for (size_t i = 0; i < n; ++i) sorted[i] = {mortonCode(&y[i * d], d, lo, hi), i};
    std::sort(sorted.begin(), sorted.end());
    const size_t K = std::min(kNeighbours, n - 1);
    std::vector<double> nb(n * K), p(n * K, 1.0 / double(n * K)), counts(n, double(K)), starts(n);
    for (size_t s = 0; s < n; ++s) {
        const size_t i = sorted[s].second;
        const size_t from = std::min(s >= K / 2 ? s - K / 2 : 0, n - 1 - K);
        starts[i] = double(i * K);
        for (size_t e = 0, t = from; e < K; ++t)
            if (t != s) nb[i * K + e++] = double(sorted[t].second + 1);
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

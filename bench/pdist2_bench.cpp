// Throughput of pdist2bif through the host's call boundary: the full matrix,
// the K nearest and a radius search. Items/s counts pairs per second.
//   build/bin/pdist2_bench [--benchmark_filter=Knn]
#include <benchmark/benchmark.h>

#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

std::vector<double> normalData(size_t p, size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::vector<double> x(p * n);
    for (double& v : x) v = normal(gen);
    return x;
}

// count: 0 for the full matrix; radius: negative for none.
void run(benchmark::State& state, const char* metric, size_t p, size_t nx, size_t ny, double count, double radius) {
    const auto x = normalData(p, nx, 1), y = normalData(p, ny, 2);
    auto xa = zvhost::matrixOf<double>(p, nx, std::span<const double>(x));
    auto ya = zvhost::matrixOf<double>(p, ny, std::span<const double>(y));
    auto code = zvhost::text(metric);
    auto none = zvhost::matrixOf<double>(0, 0);
    auto k = count == 0 ? zvhost::matrixOf<double>(0, 0) : zvhost::scalar(count);
    auto r = radius < 0 ? zvhost::matrixOf<double>(0, 0) : zvhost::scalar(radius);
    for (auto _ : state) {
        auto out = zvhost::call(pdist2bif, 2, {xa.get(), ya.get(), code.get(), none.get(), k.get(), r.get(), none.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(nx * ny));
}

void BM_FullEuclidean(benchmark::State& s) { run(s, "euc", 64, 5000, 5000, 0, -1); }
void BM_FullCityBlock(benchmark::State& s) { run(s, "cit", 64, 5000, 5000, 0, -1); }
void BM_FullMinkowski(benchmark::State& s) { run(s, "min", 64, 1000, 1000, 0, -1); }
void BM_KnnEuclidean(benchmark::State& s) { run(s, "euc", 10, 100000, 10000, 10, -1); }
void BM_KnnFarthestCityBlock(benchmark::State& s) { run(s, "cit", 10, 100000, 2000, -10, -1); }
void BM_KnnJaccard(benchmark::State& s) { run(s, "jac", 10, 20000, 1000, 10, -1); }
void BM_RadiusEuclidean(benchmark::State& s) { run(s, "euc", 10, 100000, 2000, 0, 1.5); }

BENCHMARK(BM_FullEuclidean)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FullCityBlock)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FullMinkowski)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_KnnEuclidean)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_KnnFarthestCityBlock)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_KnnJaccard)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RadiusEuclidean)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

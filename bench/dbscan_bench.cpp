// Throughput of dbscan through the host's call boundary: raw data on the
// nested parallel route, and a condensed adjacency. Items/s counts points.
//   build/bin/dbscan_bench [--benchmark_filter=Data]
#include <benchmark/benchmark.h>

#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

// n points in 2-d: 8 Gaussian blobs and 5% uniform noise, one point per column.
std::vector<double> blobData(size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> box(-10.0, 10.0), wide(-12.0, 12.0);
    std::normal_distribution<double> normal(0.0, 0.6);
    std::vector<double> centres(16);
    for (double& c : centres) c = box(gen);
    std::uniform_int_distribution<size_t> pick(0, 7);
    std::vector<double> x(2 * n);
    for (size_t i = 0; i < n; ++i) {
        if (i % 20 == 19) {
            x[2 * i] = wide(gen), x[2 * i + 1] = wide(gen);
        } else {
            const size_t c = pick(gen);
            x[2 * i] = centres[2 * c] + normal(gen), x[2 * i + 1] = centres[2 * c + 1] + normal(gen);
        }
    }
    return x;
}

void BM_DataEuclidean(benchmark::State& state) {
    const size_t n = size_t(state.range(0));
    const auto x = blobData(n, 1);
    auto data = zvhost::matrixOf<double>(2, n, std::span<const double>(x));
    auto eps = zvhost::scalar(0.15), minpts = zvhost::scalar(10), mode = zvhost::scalar(2);
    auto code = zvhost::text("euc");
    auto none = zvhost::matrixOf<bool>(0, 0);
    auto count = zvhost::scalar(double(n)), dims = zvhost::scalar(2);
    auto nested = zvhost::logicalScalar(false);
    auto param = zvhost::matrixOf<double>(0, 0);
    for (auto _ : state) {
        auto out = zvhost::call(dbscan, 2, {data.get(), eps.get(), minpts.get(), code.get(), mode.get(), none.get(),
                                            count.get(), dims.get(), param.get(), nested.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void BM_CondensedAdjacency(benchmark::State& state) {
    const size_t n = size_t(state.range(0));
    const auto x = blobData(n, 2);
    auto adjacency = zvhost::matrixOf<bool>(1, n * (n - 1) / 2);
    bool* a = static_cast<bool*>(ndGetData(adjacency.get()));
    for (size_t i = 0, k = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j, ++k) {
            const double dx = x[2 * i] - x[2 * j], dy = x[2 * i + 1] - x[2 * j + 1];
            a[k] = dx * dx + dy * dy <= 0.15 * 0.15;
        }
    auto data = zvhost::matrixOf<double>(0, 0);
    auto eps = zvhost::scalar(0.15), minpts = zvhost::scalar(10), mode = zvhost::scalar(1);
    auto code = zvhost::text("euc");
    auto count = zvhost::scalar(double(n)), dims = zvhost::scalar(2);
    auto nested = zvhost::logicalScalar(false);
    for (auto _ : state) {
        auto out = zvhost::call(dbscan, 1, {data.get(), eps.get(), minpts.get(), code.get(), mode.get(), adjacency.get(),
                                            count.get(), dims.get(), data.get(), nested.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

BENCHMARK(BM_DataEuclidean)->Arg(20000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CondensedAdjacency)->Arg(5000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

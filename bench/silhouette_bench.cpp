// Throughput of silhouette through the host's call boundary: the data form
// (distances computed per point) and the one-point form. Items/s counts points.
//   build/bin/silhouette_bench [--benchmark_filter=Data]
#include <benchmark/benchmark.h>

#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

struct Clustered {
    std::vector<double> x, own, counts;
    zvhost::Owned data, mask, countArg, K, ownArg;
};

// n points in p dimensions around K centres, a point per column.
Clustered clustered(size_t p, size_t n, size_t K, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, 1.0);
    Clustered c;
    std::vector<double> centres(p * K);
    for (double& v : centres) v = 3.0 * normal(gen);
    c.x.resize(p * n);
    c.own.resize(n);
    c.counts.assign(K, 0.0);
    c.mask = zvhost::matrixOf<bool>(n, K);
    bool* mask = ndGetLogicals(c.mask.get());
    for (size_t j = 0; j < n; ++j) {
        const size_t k = gen() % K;
        c.own[j] = double(k + 1);
        c.counts[k] += 1;
        mask[k * n + j] = true;
        for (size_t d = 0; d < p; ++d) c.x[j * p + d] = centres[k * p + d] + normal(gen);
    }
    c.data = zvhost::matrixOf<double>(p, n, std::span<const double>(c.x));
    c.countArg = zvhost::matrixOf<double>(1, K, std::span<const double>(c.counts));
    c.K = zvhost::scalar(double(K));
    c.ownArg = zvhost::matrixOf<double>(n, 1, std::span<const double>(c.own));
    return c;
}

void BM_DataEuclidean(benchmark::State& state) {
    const size_t n = size_t(state.range(0));
    Clustered c = clustered(10, n, 10, 1);
    auto code = zvhost::text("euc");
    for (auto _ : state) {
        auto out = zvhost::call(silhouette, 2, {c.data.get(), c.mask.get(), c.countArg.get(), c.K.get(), c.ownArg.get(), code.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void BM_OnePoint(benchmark::State& state) {
    const size_t n = size_t(state.range(0));
    Clustered c = clustered(10, n, 10, 2);
    std::vector<double> d(n);
    for (size_t j = 0; j < n; ++j) d[j] = double(j % 101) * 0.01;
    auto distances = zvhost::matrixOf<double>(n, 1, std::span<const double>(d));
    auto own = zvhost::scalar(3);
    for (auto _ : state) {
        auto out = zvhost::call(silhouette, 2, {distances.get(), c.mask.get(), c.countArg.get(), c.K.get(), own.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

BENCHMARK(BM_DataEuclidean)->Arg(10000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_OnePoint)->Arg(100000)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

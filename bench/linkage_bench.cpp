// linkagebif through the host's call boundary: every method on the condensed
// Euclidean distances of Gaussian points (single also on rounded, tied ones),
// and the memory-saving mode on the points themselves. Items/s counts merges
// per second.
//   build/bin/linkage_bench [--benchmark_filter=Condensed/average]
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr size_t kDims = 10;

std::vector<double> normalData(size_t count, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::vector<double> x(count);
    for (double& v : x) v = normal(gen);
    return x;
}

std::vector<double> condensedEuclidean(const std::vector<double>& x, size_t n) {
    std::vector<double> y;
    y.reserve(n * (n - 1) / 2);
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j) {
            double s = 0;
            for (size_t k = 0; k < kDims; ++k) s += (x[i * kDims + k] - x[j * kDims + k]) * (x[i * kDims + k] - x[j * kDims + k]);
            y.push_back(std::sqrt(s));
        }
    return y;
}

// `decimals` >= 0 rounds the distances, so that equal merge heights occur:
// single linkage then runs the list algorithm instead of the spanning tree.
void condensed(benchmark::State& state, const char* method, size_t n, int decimals = -1) {
    auto y = condensedEuclidean(normalData(kDims * n, 1), n);
    if (decimals >= 0)
        for (double& v : y) v = std::round(v * std::pow(10.0, decimals)) / std::pow(10.0, decimals);
    auto ya = zvhost::matrixOf<double>(1, y.size(), std::span<const double>(y));
    auto code = zvhost::text(method);
    for (auto _ : state) {
        auto out = zvhost::call(linkagebif, 1, {ya.get(), code.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n - 1));
}

void memorySaving(benchmark::State& state, const char* method, size_t n) {
    const auto x = normalData(kDims * n, 2);
    auto xa = zvhost::matrixOf<double>(kDims, n, std::span<const double>(x));
    auto code = zvhost::text(method);
    auto none = zvhost::Owned(ndCreateCellMatrix(1, 0));
    auto yes = zvhost::logicalScalar(true);
    for (auto _ : state) {
        auto out = zvhost::call(linkagebif, 1, {xa.get(), code.get(), none.get(), yes.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n - 1));
}

constexpr size_t kCondensedN = 10000;
constexpr size_t kVectorN = 20000;

}  // namespace

BENCHMARK_CAPTURE(condensed, single, "single", kCondensedN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(condensed, single_tied, "single", kCondensedN, 2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(condensed, complete, "complete", kCondensedN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(condensed, average, "average", kCondensedN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(condensed, weighted, "weighted", kCondensedN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(condensed, ward, "ward", kCondensedN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(condensed, centroid, "centroid", kCondensedN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(condensed, median, "median", kCondensedN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(memorySaving, ward, "ward", kVectorN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(memorySaving, centroid, "centroid", kVectorN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(memorySaving, median, "median", kVectorN)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();

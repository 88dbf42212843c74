// Throughput of pdist2HeterogeneousBIF through the host's call boundary, so
// each timing includes the frame and the zero-filled nx-by-ny output.
// Items/s counts pairs of observations per second. Run by hand:
//   build/bin/pdist2_heterogeneous_bench [--benchmark_filter=lin]
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr unsigned kSeed = 20240612;
constexpr int kLevels = 5;  // categories per categorical coordinate

// Raw values and frequencies, p-by-n, as a caller prepares them: a
// categorical coordinate holds one of kLevels levels and its frequency is the
// level's count among the n observations; a continuous coordinate holds a
// normal and its frequency the value scaled by 1/4.
template <class T>
struct MixedData {
    std::vector<T> values, frequencies;
};

template <class T>
MixedData<T> mixedData(size_t p, size_t n, const std::vector<uint64_t>& categorical, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal;
    std::uniform_int_distribution<int> level(1, kLevels);
    MixedData<T> d{std::vector<T>(p * n), std::vector<T>(p * n)};
    std::vector<bool> isCategorical(p, false);
    for (uint64_t e : categorical) isCategorical[e - 1] = true;
    for (size_t k = 0; k < p; ++k) {
        std::vector<size_t> counts(kLevels + 1, 0);
        for (size_t i = 0; i < n; ++i) {
            T& v = d.values[k + i * p];
            if (isCategorical[k]) {
                v = T(level(gen));
                ++counts[size_t(v)];
            } else {
                v = T(normal(gen));
                d.frequencies[k + i * p] = v / T(4);
            }
        }
        if (isCategorical[k])
            for (size_t i = 0; i < n; ++i) d.frequencies[k + i * p] = T(counts[size_t(d.values[k + i * p])]);
    }
    return d;
}

struct Case {
    const char* measure;
    size_t nx, ny, p;
    std::vector<uint64_t> categorical;
};

template <class T>
void runCase(benchmark::State& state, const Case& c) {
    const MixedData<T> x = mixedData<T>(c.p, c.nx, c.categorical, kSeed);
    const MixedData<T> y = mixedData<T>(c.p, c.ny, c.categorical, kSeed + 1);
    auto xa = zvhost::matrixOf<T>(c.p, c.nx, std::span<const T>(x.values));
    auto ya = zvhost::matrixOf<T>(c.p, c.ny, std::span<const T>(y.values));
    auto fa = zvhost::matrixOf<T>(c.p, c.nx, std::span<const T>(x.frequencies));
    auto ga = zvhost::matrixOf<T>(c.p, c.ny, std::span<const T>(y.frequencies));
    auto ca = zvhost::matrixOf<uint64_t>(1, c.categorical.size(), std::span<const uint64_t>(c.categorical));
    auto code = zvhost::text(c.measure);
    const std::vector<const ndArray*> inputs{xa.get(), ya.get(), code.get(), fa.get(), ga.get(), ca.get()};

    for (auto _ : state) {
        auto out = zvhost::call(&pdist2HeterogeneousBIF, 1, inputs);
        benchmark::DoNotOptimize(ndGetData(out[0].get()));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(c.nx * c.ny));
    state.counters["p"] = double(c.p);
    state.counters["c"] = double(c.categorical.size());
}

template <class T>
void add(const Case& c) {
    const std::string name = std::string(c.measure) + (sizeof(T) == 8 ? "/double" : "/single") +
                             "/nx:" + std::to_string(c.nx) + "/ny:" + std::to_string(c.ny) +
                             "/p:" + std::to_string(c.p) + "/c:" + std::to_string(c.categorical.size());
    // Wall time is the measure: the gateway runs on TBB workers.
    benchmark::RegisterBenchmark(name.c_str(), [c](benchmark::State& s) { runCase<T>(s, c); })
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

void registerAll() {
    // 5,000 by 5,000 observations, 20 coordinates of which 8 categorical,
    // spread over the coordinates as a real table would have them.
    const std::vector<uint64_t> eight{2, 3, 7, 9, 12, 15, 16, 20};
    for (const char* measure : {"lin", "goo", "ofd"}) {
        add<double>({measure, 5000, 5000, 20, eight});
        add<float>({measure, 5000, 5000, 20, eight});
    }
    // The extremes: all continuous and all categorical.
    std::vector<uint64_t> all(20);
    for (uint64_t k = 0; k < 20; ++k) all[k] = k + 1;
    for (const char* measure : {"lin", "goo", "ofd"}) {
        add<double>({measure, 5000, 5000, 20, {}});
        add<double>({measure, 5000, 5000, 20, all});
    }
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

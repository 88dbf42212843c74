// Throughput of wswor through the host's call boundary: K of N positions
// without replacement, from the default stream and from a stream object.
// Items/s counts drawn positions per second. Run by hand: build/bin/wswor_bench
#include <benchmark/benchmark.h>

#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr unsigned kSeed = 20240611;

std::vector<double> uniformWeights(size_t n) {
    std::mt19937 gen(kSeed);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<double> w(n);
    for (double& v : w) v = u(gen);
    return w;
}

void sample(benchmark::State& state, bool streamObject) {
    const auto n = size_t(state.range(0)), k = size_t(state.range(1));
    const auto weights = uniformWeights(n);
    zvhost::Owned w = zvhost::matrixOf<double>(1, n, std::span<const double>(weights));
    zvhost::Owned kArg = zvhost::scalar(double(k));
    zvhost::Owned stream(zvhost::createStreamObject(zvhost::makeStream(kSeed)));
    zvhost::seedDefaultStream(kSeed);
    for (auto _ : state) {
        auto out = streamObject ? zvhost::call(&wswor, 1, {stream.get(), w.get(), kArg.get()})
                                : zvhost::call(&wswor, 1, {w.get(), kArg.get()});
        benchmark::DoNotOptimize(ndGetData(out[0].get()));
    }
    state.SetItemsProcessed(int64_t(state.iterations() * k));
}

}  // namespace

BENCHMARK_CAPTURE(sample, default_stream, false)
    ->Args({1000000, 500000})
    ->Args({1000000, 1000})
    ->Args({10000, 5000})
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(sample, stream_object, true)->Args({1000000, 500000})->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

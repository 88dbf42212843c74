// Throughput of randg through the host's call boundary: 10^7 gamma draws from
// the default stream at a few shapes, as one call with size arguments.
// Items/s counts draws per second. Run by hand: build/bin/randg_bench
#include <benchmark/benchmark.h>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr double kDraws = 1e7;

void drawMany(benchmark::State& state, double shape, const char* cls) {
    zvhost::Owned a = zvhost::scalar(shape), rows = zvhost::scalar(kDraws), one = zvhost::scalar(1);
    zvhost::Owned name = zvhost::text(cls);
    zvhost::seedDefaultStream(20240611);
    for (auto _ : state) {
        auto out = zvhost::call(&randg, 1, {a.get(), rows.get(), one.get(), name.get()});
        benchmark::DoNotOptimize(ndGetData(out[0].get()));
    }
    state.SetItemsProcessed(int64_t(state.iterations() * kDraws));
}

void registerAll() {
    for (double shape : {0.5, 5.0, 50.0})
        for (const char* cls : {"double", "single"})
            benchmark::RegisterBenchmark(("randg/a=" + std::to_string(shape).substr(0, 4) + "/" + cls).c_str(),
                                         [=](benchmark::State& s) { drawMany(s, shape, cls); })
                ->Unit(benchmark::kMillisecond)
                ->MinTime(1.0);
}

}  // namespace

int main(int argc, char** argv) {
    registerAll();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}

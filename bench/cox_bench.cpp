// coxsresbif and coxmresbif through the host's call boundary: p = 10, half
// of the rows events, about ten rows per stop time. The sweep at n = 5,000 to
// 20,000 shows its growth; the Walk cases force the quadratic event walk (an
// infinite risk in the last row makes the sweep decline) on the same data.
// Items/s counts rows.
//   build/bin/cox_bench [--benchmark_filter=Walk]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

struct CoxInputs {
    zvhost::Owned status, x, start, stop, freq, risk, tie;
};

CoxInputs makeInputs(size_t n, size_t p, double tie, bool forceWalk) {
    std::mt19937 gen(3);
    std::uniform_real_distribution<double> unit(0, 1);
    std::normal_distribution<double> normal;
    std::vector<double> stop(n), x(p * n), risk(n);
    for (auto& t : stop) t = std::floor(1 + unit(gen) * double(n) / 10);
    std::sort(stop.begin(), stop.end());
    for (auto& v : x) v = normal(gen);
    for (size_t j = 0; j < n; ++j) {
        double eta = 0;
        for (size_t c = 0; c < p; ++c) eta += 0.2 * x[j * p + c];
        risk[j] = std::exp(eta);
    }
    if (forceWalk) risk[n - 1] = std::numeric_limits<double>::infinity();
    CoxInputs in;
    in.status = zvhost::Owned(ndCreateLogicalMatrix(n, 1));
    auto* s = static_cast<uint8_t*>(ndGetData(in.status.get()));
    for (size_t j = 0; j < n; ++j) s[j] = unit(gen) < 0.5;
    in.x = zvhost::matrixOf<double>(p, n, std::span<const double>(x));
    in.start = zvhost::matrixOf<double>(1, n);
    in.stop = zvhost::matrixOf<double>(n, 1, std::span<const double>(stop));
    in.freq = zvhost::matrixOf<double>(n, 1, std::span<const double>(std::vector<double>(n, 1.0)));
    in.risk = zvhost::matrixOf<double>(n, 1, std::span<const double>(risk));
    in.tie = zvhost::scalar(tie);
    return in;
}

void score(benchmark::State& state, double tie, bool forceWalk) {
    const size_t n = size_t(state.range(0));
    auto in = makeInputs(n, 10, tie, forceWalk);
    for (auto _ : state) {
        auto out = zvhost::call(coxsresbif, 1, {in.status.get(), in.x.get(), in.start.get(), in.stop.get(),
                                                in.freq.get(), in.risk.get(), in.tie.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void martingale(benchmark::State& state, double tie, bool forceWalk) {
    const size_t n = size_t(state.range(0));
    auto in = makeInputs(n, 10, tie, forceWalk);
    for (auto _ : state) {
        auto out = zvhost::call(coxmresbif, 1, {in.status.get(), in.start.get(), in.stop.get(), in.freq.get(),
                                                in.risk.get(), in.tie.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n));
}

void BM_ScoreEfron(benchmark::State& s) { score(s, 1, false); }
void BM_ScoreBreslow(benchmark::State& s) { score(s, 0, false); }
void BM_MartingaleEfron(benchmark::State& s) { martingale(s, 1, false); }
void BM_ScoreEfronWalk(benchmark::State& s) { score(s, 1, true); }
void BM_MartingaleEfronWalk(benchmark::State& s) { martingale(s, 1, true); }

BENCHMARK(BM_ScoreEfron)->Arg(5000)->Arg(10000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScoreBreslow)->Arg(5000)->Arg(10000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MartingaleEfron)->Arg(5000)->Arg(10000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScoreEfronWalk)->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MartingaleEfronWalk)->Arg(5000)->Arg(20000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

// Throughput of ompBatchImpl and ompCholImpl through the host's call boundary
// on a random unit-norm dictionary and responses of exact sparse codes.
// Items/s counts responses per second.
//   build/bin/omp_bench [--benchmark_filter=Batch]
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

struct SparseProblem {
    std::vector<double> x, y;
};

// Unit-norm atoms; each response a combination of `atoms` random atoms.
SparseProblem sparseProblem(size_t rows, size_t numAtoms, size_t responses, size_t atoms, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::uniform_int_distribution<size_t> pick(0, numAtoms - 1);
    SparseProblem p{std::vector<double>(rows * numAtoms), std::vector<double>(rows * responses, 0.0)};
    for (size_t i = 0; i < numAtoms; ++i) {
        double s = 0;
        for (size_t r = 0; r < rows; ++r) s += (p.x[r + i * rows] = normal(gen)) * p.x[r + i * rows];
        for (size_t r = 0; r < rows; ++r) p.x[r + i * rows] /= std::sqrt(s);
    }
    for (size_t j = 0; j < responses; ++j)
        for (size_t a = 0; a < atoms; ++a) {
            const size_t i = pick(gen);
            const double c = normal(gen);
            for (size_t r = 0; r < rows; ++r) p.y[r + j * rows] += c * p.x[r + i * rows];
        }
    return p;
}

void run(benchmark::State& state, void (*gateway)(int, ndArray**, int, const ndArray**), size_t rows,
         size_t numAtoms, size_t responses, size_t atoms, bool parallel) {
    const SparseProblem p = sparseProblem(rows, numAtoms, responses, atoms, 5);
    auto x = zvhost::matrixOf<double>(rows, numAtoms, std::span<const double>(p.x));
    auto y = zvhost::matrixOf<double>(rows, responses, std::span<const double>(p.y));
    std::vector<double> groupValues(numAtoms);
    for (size_t i = 0; i < numAtoms; ++i) groupValues[i] = double(i);
    auto groups = zvhost::matrixOf<double>(1, numAtoms, std::span<const double>(groupValues));
    auto maxAtoms = zvhost::scalar(double(atoms)), maxGroups = zvhost::scalar(double(numAtoms));
    auto tolerance = zvhost::scalar(0.0), unused = zvhost::scalar(0.0), switchOn = zvhost::scalar(parallel ? 1.0 : 0.0);
    for (auto _ : state) {
        auto out = zvhost::call(gateway, 2, {x.get(), y.get(), maxAtoms.get(), groups.get(), maxGroups.get(),
                                             tolerance.get(), unused.get(), switchOn.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(responses));
}

void BM_Batch64x256(benchmark::State& s) { run(s, ompBatchImpl, 64, 256, 10000, 10, true); }
void BM_Batch64x256Serial(benchmark::State& s) { run(s, ompBatchImpl, 64, 256, 10000, 10, false); }
void BM_Batch256x1024(benchmark::State& s) { run(s, ompBatchImpl, 256, 1024, 10000, 10, true); }
void BM_Batch256x1024Serial(benchmark::State& s) { run(s, ompBatchImpl, 256, 1024, 10000, 10, false); }
void BM_Chol64x256(benchmark::State& s) { run(s, ompCholImpl, 64, 256, 10000, 10, true); }
void BM_Chol64x256Serial(benchmark::State& s) { run(s, ompCholImpl, 64, 256, 10000, 10, false); }
void BM_Chol256x1024(benchmark::State& s) { run(s, ompCholImpl, 256, 1024, 1000, 10, true); }

BENCHMARK(BM_Batch64x256)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Batch64x256Serial)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Batch256x1024)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Batch256x1024Serial)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Chol64x256)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Chol64x256Serial)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Chol256x1024)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

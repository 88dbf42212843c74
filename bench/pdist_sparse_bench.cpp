// Throughput of pdistSparseBIF and pdist2SparseBIF through the host's call
// boundary, so each timing includes the frame, the zero-filled output and the
// merge-ready copy of the columns. Items/s counts pairs of observations.
// Run by hand:
//   build/bin/pdist_sparse_bench [--benchmark_filter=cityblock]
// bench/peers/pdist_sparse_vs_sklearn.py times scikit-learn on the same sizes.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr unsigned kSeed = 20240611;

// A p-by-n sparse matrix whose entries are stored with probability
// `density`, independently, with standard normal values: gaps between stored
// rows are geometric, so drawing costs the stored values, not p*n.
zvhost::Owned randomSparse(size_t p, size_t n, double density, unsigned seed, bool unitColumns = false) {
    std::mt19937_64 gen(seed);
    std::geometric_distribution<size_t> gap(density);
    std::normal_distribution<double> normal;
    std::vector<size_t> rows, starts{0};
    std::vector<double> values;
    for (size_t j = 0; j < n; ++j) {
        for (size_t r = gap(gen); r < p; r += 1 + gap(gen)) {
            rows.push_back(r);
            values.push_back(normal(gen));
        }
        starts.push_back(rows.size());
        // The cosine family expects columns of unit length.
        if (unitColumns) {
            double s = 0;
            for (size_t k = starts[j]; k < starts[j + 1]; ++k) s += values[k] * values[k];
            for (size_t k = starts[j]; k < starts[j + 1]; ++k) values[k] /= std::sqrt(s);
        }
    }
    zvhost::Owned x(zvhost::createSparse(p, n, rows.size()));
    std::memcpy(ndGetData(x.get()), values.data(), values.size() * sizeof(double));
    std::memcpy(ndGetRowIndices(x.get()), rows.data(), rows.size() * sizeof(size_t));
    std::memcpy(ndGetColumnStarts(x.get()), starts.data(), starts.size() * sizeof(size_t));
    return x;
}

// Upper-triangular p-by-p factor, well conditioned.
zvhost::Owned upperFactor(size_t p) {
    std::mt19937 gen(kSeed + 1);
    std::uniform_real_distribution<double> off(-0.25, 0.25);
    std::vector<double> r(p * p, 0.0);
    for (size_t c = 0; c < p; ++c)
        for (size_t row = 0; row <= c; ++row) r[row + c * p] = row == c ? 1.0 + 0.1 * double(c % 5) : off(gen);
    return zvhost::matrixOf<double>(p, p, std::span<const double>(r));
}

struct Case {
    const char* metric;  // as the caller passes it; only three letters are read
    size_t n, p;
    double density;
    size_t ny = 0;  // > 0: pdist2SparseBIF with a second matrix of ny columns
};

void runCase(benchmark::State& state, const Case& c) {
    const bool unit = std::strncmp(c.metric, "cos", 3) == 0;
    auto x = randomSparse(c.p, c.n, c.density, kSeed, unit);
    auto y = c.ny ? randomSparse(c.p, c.ny, c.density, kSeed + 7) : zvhost::Owned();
    auto metric = zvhost::text(c.metric);
    zvhost::Owned extra;
    if (std::strncmp(c.metric, "min", 3) == 0) extra = zvhost::scalar(3.0);
    if (std::strncmp(c.metric, "seu", 3) == 0) {
        std::vector<double> w(c.p);
        for (size_t k = 0; k < c.p; ++k) w[k] = 0.5 + double(k % 7);
        extra = zvhost::matrixOf<double>(1, c.p, std::span<const double>(w));
    }
    if (std::strncmp(c.metric, "mah", 3) == 0) extra = upperFactor(c.p);
    std::vector<const ndArray*> inputs{x.get()};
    if (y) inputs.push_back(y.get());
    inputs.push_back(metric.get());
    if (extra) inputs.push_back(extra.get());
    auto gateway = y ? &pdist2SparseBIF : &pdistSparseBIF;

    const size_t pairs = c.ny ? c.n * c.ny : c.n * (c.n - 1) / 2;
    for (auto _ : state) {
        auto out = zvhost::call(gateway, 1, inputs);
        benchmark::DoNotOptimize(ndGetData(out[0].get()));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(pairs));
    state.counters["nnz"] = double(ndGetColumnStarts(x.get())[c.n]);
}

void add(const Case& c) {
    std::string name = std::string(c.ny ? "pdist2Sparse/" : "pdistSparse/") + c.metric + "/n:" + std::to_string(c.n);
    if (c.ny) name += "/ny:" + std::to_string(c.ny);
    char percent[32];
    std::snprintf(percent, sizeof percent, "%g", 100 * c.density);
    name += "/p:" + std::to_string(c.p) + "/percent:" + percent;
    // The gateway runs on TBB workers: wall time is the measure.
    benchmark::RegisterBenchmark(name.c_str(), [c](benchmark::State& s) { runCase(s, c); })
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

void registerAll() {
    // Headline: 3,000 observations of 10,000 coordinates, 1% stored.
    for (const char* m : {"cityblock", "euclidean", "sqeuclidean", "chebychev", "hamming", "jaccard", "cosine",
                          "seuclidean"})
        add({m, 3000, 10000, 0.01});
    // Denser and shorter columns: the merge length moves, the pair count not.
    add({"cityblock", 3000, 1000, 0.1});
    add({"cityblock", 3000, 100000, 0.001});
    // One pow per stored row.
    add({"minkowski", 1000, 10000, 0.01});
    // The triangular product dominates: about p times the stored rows per pair.
    add({"mahalanobis", 500, 300, 0.05});
    // Cross distances.
    add({"euclidean", 2000, 10000, 0.01, 2000});
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

// Throughput of pdistbif through the host's call boundary, so each timing
// includes the frame, the zero-filled output and the observation panels.
// Items/s counts pairs of observations per second. Run by hand:
//   build/bin/pdist_bench [--benchmark_filter=euclidean]
// or, to write the euclidean inputs and results for bench/peers:
//   build/bin/pdist_bench --zv_dump=DIR
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

constexpr unsigned kSeed = 20240611;

// p-by-n column-major standard normals, one observation per column.
template <class T>
std::vector<T> normalData(size_t p, size_t n) {
    std::mt19937 gen(kSeed);
    std::normal_distribution<double> normal(0.0, 1.0);
    std::vector<T> x(p * n);
    for (T& v : x) v = T(normal(gen));
    return x;
}

// The cosine family expects the caller to have scaled each observation to
// unit length, so the dot product is the similarity.
template <class T>
void normaliseColumns(std::vector<T>& x, size_t p, size_t n) {
    for (size_t j = 0; j < n; ++j) {
        double s = 0;
        for (size_t k = 0; k < p; ++k) s += double(x[j * p + k]) * double(x[j * p + k]);
        const double inv = s > 0 ? 1.0 / std::sqrt(s) : 0.0;
        for (size_t k = 0; k < p; ++k) x[j * p + k] = T(double(x[j * p + k]) * inv);
    }
}

// A well-conditioned upper-triangular factor R (p-by-p, column-major), as
// the caller would pass for "mahalanobis" after its Cholesky step.
template <class T>
std::vector<T> upperFactor(size_t p) {
    std::mt19937 gen(kSeed + 1);
    std::uniform_real_distribution<double> off(-0.25, 0.25);
    std::vector<T> r(p * p, T(0));
    for (size_t c = 0; c < p; ++c)
        for (size_t row = 0; row <= c; ++row) r[row + c * p] = row == c ? T(1.0 + 0.1 * double(c % 5)) : T(off(gen));
    return r;
}

struct Case {
    const char* metric;  // as the caller passes it; only three letters are read
    size_t n, p;
    bool withExponent = false;  // minkowski: e = 3
    bool unitColumns = false;   // cosine
    bool withFactor = false;    // mahalanobis
};

template <class T>
void runCase(benchmark::State& state, Case c) {
    std::vector<T> data = normalData<T>(c.p, c.n);
    if (c.unitColumns) normaliseColumns(data, c.p, c.n);
    auto x = zvhost::matrixOf<T>(c.p, c.n, std::span<const T>(data));
    auto metric = zvhost::text(c.metric);
    zvhost::Owned extra;
    if (c.withExponent) extra = zvhost::scalar(3.0);
    if (c.withFactor) {
        const std::vector<T> r = upperFactor<T>(c.p);
        extra = zvhost::matrixOf<T>(c.p, c.p, std::span<const T>(r));
    }
    std::vector<const ndArray*> inputs{x.get(), metric.get()};
    if (extra) inputs.push_back(extra.get());

    const size_t pairs = c.n * (c.n - 1) / 2;
    for (auto _ : state) {
        auto out = zvhost::call(&pdistbif, 1, inputs);
        benchmark::DoNotOptimize(ndGetData(out[0].get()));
        benchmark::ClobberMemory();
        // The output is destroyed here, inside the timed region, as a caller
        // that drops the result right away would see it.
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(pairs));
    state.counters["n"] = double(c.n);
    state.counters["p"] = double(c.p);
}

template <class T>
void add(const Case& c) {
    const std::string name = std::string("pdist/") + c.metric + "/" + (sizeof(T) == 8 ? "double" : "single") +
                             "/n:" + std::to_string(c.n) + "/p:" + std::to_string(c.p);
    // The gateway runs on TBB workers: wall time is the measure, and the CPU
    // column is that of the whole process (all cores, kernel time included),
    // which also shows how much a busy machine stretched the wall time.
    benchmark::RegisterBenchmark(name.c_str(), [c](benchmark::State& s) { runCase<T>(s, c); })
        ->UseRealTime()
        ->MeasureProcessCPUTime()
        ->Unit(benchmark::kMillisecond);
}

void registerAll() {
    // Headline: euclidean at n = 10,000, narrow and wide observations.
    for (size_t p : {size_t(3), size_t(64)}) {
        add<double>({"euclidean", 10000, p});
        add<float>({"euclidean", 10000, p});
    }
    // The other panel metrics at the wide size.
    for (const char* m : {"cityblock", "sqeuclidean", "chebychev", "hamming"}) {
        add<double>({m, 10000, 64});
        add<float>({m, 10000, 64});
    }
    // Minkowski is one pow per coordinate, about two orders slower per pair.
    add<double>({"minkowski", 2000, 64, true});
    add<float>({"minkowski", 2000, 64, true});
    // Cosine: one matrix-vector product per row, on the calling thread.
    add<double>({"cosine", 10000, 64, false, true});
    add<float>({"cosine", 10000, 64, false, true});
    // Mahalanobis: one triangular product per pair.
    add<double>({"mahalanobis", 2000, 16, false, false, true});
    add<float>({"mahalanobis", 2000, 16, false, false, true});
}

// Writes the double euclidean inputs and results of the headline sizes as raw
// little-endian files, so that a peer script times its rival on the very same
// data and can compare results bit for bit even without the Python binding:
//   DIR/x_p{p}_n{n}.f64 (n rows of p values), DIR/euclidean_p{p}_n{n}.f64.
int dump(const std::string& dir) {
    for (size_t p : {size_t(3), size_t(64)}) {
        const size_t n = 10000;
        const std::vector<double> data = normalData<double>(p, n);
        auto x = zvhost::matrixOf<double>(p, n, std::span<const double>(data));
        auto metric = zvhost::text("euclidean");
        auto out = zvhost::call(&pdistbif, 1, {x.get(), metric.get()});
        const std::string suffix = "_p" + std::to_string(p) + "_n" + std::to_string(n) + ".f64";
        for (auto [name, a] : {std::pair{"x", x.get()}, std::pair{"euclidean", out[0].get()}}) {
            const std::string path = dir + "/" + name + suffix;
            FILE* f = std::fopen(path.c_str(), "wb");
            const size_t count = ndGetNumberOfElements(a);
            if (!f || std::fwrite(ndGetData(a), sizeof(double), count, f) != count || std::fclose(f) != 0) {
                std::fprintf(stderr, "pdist_bench: cannot write %s\n", path.c_str());
                return 1;
            }
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    constexpr const char* kDump = "--zv_dump=";
    if (argc == 2 && std::strncmp(argv[1], kDump, std::strlen(kDump)) == 0)
        return dump(argv[1] + std::strlen(kDump));
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

// classregtree::growTree through the host's call boundary on two noisy
// classes from three of P predictors (6% of labels flipped), distinct values
// on a grid single precision holds exactly: the full tree of 200,000 x 20
// single (about 32,000 nodes), with three surrogates, a budget of 255 splits, quartile search, a
// double regression tree, and ten categorical predictors. Items/s counts rows.
//   build/bin/grow_tree_bench [--benchmark_filter=Full]
#include <benchmark/benchmark.h>

#include <numeric>
#include <random>

#include "gateway_declarations.hpp"
#include "support/grow_tree_call.hpp"

namespace {

zvtest::GrowTreeInputs noisyClasses(size_t N, size_t P, ndClassID cls, bool regression) {
    zvtest::GrowTreeInputs in;
    in.N = N;
    in.P = P;
    in.xClass = in.yClass = in.wClass = cls;
    std::mt19937 gen(11);
    std::vector<double> column(N);
    for (size_t p = 0; p < P; ++p) {
        std::iota(column.begin(), column.end(), 0.0);
        std::shuffle(column.begin(), column.end(), gen);
        for (double v : column) in.x.push_back(v * 0.125);
    }
    std::uniform_real_distribution<double> unit(0, 1);
    for (size_t i = 0; i < N; ++i) {
        const double s = in.x[i] - in.x[N + i] + 0.5 * in.x[2 * N + i];
        in.y.push_back(regression ? std::round(s * 4) / 4 + std::round(unit(gen) * 64)
                                  : double((s > 0.25 * double(N) * 0.125) != (unit(gen) < 0.06)));
    }
    in.criterion = regression ? "mse" : "gini";
    return in;
}

void run(benchmark::State& state, const zvtest::GrowTreeInputs& in) {
    const auto args = in.build();
    size_t nodes = 0;
    for (auto _ : state) {
        auto out = zvtest::growTreeOn(args, 1);
        nodes = ndGetN(out[0].get());
    }
    state.counters["nodes"] = double(nodes);
    state.SetItemsProcessed(int64_t(state.iterations() * in.N));
}

void BM_FullTreeSingle_200k_x20(benchmark::State& state) { run(state, noisyClasses(200000, 20, ndSINGLE_CLASS, false)); }
void BM_MaxSplits255Single_200k_x20(benchmark::State& state) {
    auto in = noisyClasses(200000, 20, ndSINGLE_CLASS, false);
    in.maxSplits = 255;
    run(state, in);
}
void BM_ThreeSurrogatesSingle_200k_x20(benchmark::State& state) {
    auto in = noisyClasses(200000, 20, ndSINGLE_CLASS, false);
    in.numSurrogates = 3;
    run(state, in);
}
void BM_QuartileSearchSingle_200k_x20(benchmark::State& state) {
    auto in = noisyClasses(200000, 20, ndSINGLE_CLASS, false);
    in.quartileSearch = true;
    run(state, in);
}
void BM_RegressionDouble_100k_x10_leaf5(benchmark::State& state) {
    auto in = noisyClasses(100000, 10, ndDOUBLE_CLASS, true);
    in.minLeaf = 5;
    run(state, in);
}

// Ten categorical predictors of 20 levels; three classes from two of them.
void BM_CategoricalThreeClasses_100k_x10_L20(benchmark::State& state) {
    zvtest::GrowTreeInputs in;
    in.N = 100000;
    in.P = 10;
    in.categorical.assign(in.P, true);
    std::mt19937 gen(5);
    std::uniform_int_distribution<int> level(1, 20), effect(0, 2), coin(0, 1);
    std::vector<int> effects(in.P * 21);
    for (auto& e : effects) e = effect(gen);
    for (size_t i = 0; i < in.N * in.P; ++i) in.x.push_back(level(gen));
    for (size_t i = 0; i < in.N; ++i)
        in.y.push_back((effects[size_t(in.x[i])] + effects[21 + size_t(in.x[in.N + i])] + coin(gen)) % 3);
    run(state, in);
}

}  // namespace

BENCHMARK(BM_CategoricalThreeClasses_100k_x10_L20)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FullTreeSingle_200k_x20)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MaxSplits255Single_200k_x20)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ThreeSurrogatesSingle_200k_x20)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_QuartileSearchSingle_200k_x20)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RegressionDouble_100k_x10_leaf5)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_MAIN();

// classregtree::findNode through the host's call boundary: 1,000,000 rows of
// 10 uniform predictors through a random tree of 39,999 nodes, at one and at
// 10 prune levels, in double and single, and on binned int32 codes.
// Items/s counts rows per second; CPU time is that of all threads.
//   build/bin/find_node_bench [--benchmark_filter=Double]
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <span>
#include <vector>

#include "gateway_declarations.hpp"
#include "zvhost/arrays.hpp"

namespace {

constexpr size_t kRows = 1000000, kPredictors = 10, kLeaves = 20000;
constexpr int kCodes = 256;

// A tree grown by cutting a random leaf of the unit box (or of the code
// range) across a random predictor, so that depths vary as in fitted trees;
// prune levels are node heights.
struct Tree {
    std::vector<double> children, cutVar, cut, bins, pruneList;
    size_t numNodes = 0;
};

Tree randomTree(bool binned, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    struct Box {
        std::vector<double> lo, hi;
    };
    const double top = binned ? kCodes - 1 : 1;
    std::vector<Box> boxes = {{std::vector<double>(kPredictors, 0), std::vector<double>(kPredictors, top)}};
    std::vector<size_t> leaves = {0};
    Tree t;
    t.children = {0, 0}, t.cutVar = {0}, t.cut = {0}, t.bins = {0, 0};
    while (leaves.size() < kLeaves) {
        const size_t pick = gen() % leaves.size(), u = leaves[pick];
        const size_t p = gen() % kPredictors;
        const double lo = boxes[u].lo[p], hi = boxes[u].hi[p];
        if (binned && hi - lo < 1) continue;
        const double cut = binned ? std::floor(lo + (hi - lo) * unit(gen) * 0.999) : lo + (hi - lo) * (0.3 + 0.4 * unit(gen));
        const size_t left = boxes.size(), right = left + 1;
        t.children[2 * u] = double(left + 1), t.children[2 * u + 1] = double(right + 1);
        t.cutVar[u] = double(p + 1), t.cut[u] = cut;
        t.bins[2 * u] = cut + 1, t.bins[2 * u + 1] = cut + 2;  // 1-based: bins up to cut go left
        Box l = boxes[u], r = boxes[u];
        l.hi[p] = cut, r.lo[p] = binned ? cut + 1 : cut;
        boxes.push_back(l), boxes.push_back(r);
        for (int k = 0; k < 2; ++k) t.children.insert(t.children.end(), {0, 0}), t.cutVar.push_back(0), t.cut.push_back(0),
            t.bins.insert(t.bins.end(), {0, 0});
        leaves[pick] = left, leaves.push_back(right);
    }
    t.numNodes = boxes.size();
    t.pruneList.assign(t.numNodes, 0);
    for (size_t u = t.numNodes; u-- > 0;)
        if (t.cutVar[u] != 0)
            t.pruneList[u] = 1 + std::max(t.pruneList[size_t(t.children[2 * u]) - 1], t.pruneList[size_t(t.children[2 * u + 1]) - 1]);
    return t;
}

template <class T>
zvhost::Owned column(const std::vector<double>& v, size_t m, size_t n) {
    const std::vector<T> t(v.begin(), v.end());
    return zvhost::matrixOf<T>(m, n, std::span<const T>(t));
}

// bins n by 2 from the pairs of the tree.
std::vector<double> binsByColumn(const Tree& t) {
    std::vector<double> b(2 * t.numNodes);
    for (size_t u = 0; u < t.numNodes; ++u) b[u] = t.bins[2 * u], b[t.numNodes + u] = t.bins[2 * u + 1];
    return b;
}

template <class T>
void run(benchmark::State& state, size_t levels, bool binned) {
    static const Tree numeric = randomTree(false, 3), coded = randomTree(true, 3);
    const Tree& t = binned ? coded : numeric;
    std::mt19937 gen(5);
    std::vector<double> x(kRows * kPredictors);
    for (auto& v : x) v = binned ? double(gen() % kCodes) : std::uniform_real_distribution<double>(0, 1)(gen);
    std::vector<double> subtrees(levels);
    for (size_t s = 0; s < levels; ++s) subtrees[s] = double(s);
    using Cut = std::conditional_t<std::is_same_v<T, int32_t>, int32_t, T>;
    zvhost::Owned in[15] = {
        column<T>(x, kRows, kPredictors), column<double>(subtrees, 1, levels), column<double>(t.pruneList, t.numNodes, 1),
        column<double>(t.children, 2, t.numNodes), zvhost::matrixOf<bool>(kPredictors, 1),
        column<double>(t.cutVar, t.numNodes, 1),
        binned ? column<Cut>(binsByColumn(t), t.numNodes, 2) : zvhost::matrixOf<Cut>(0, 0),
        column<Cut>(t.cut, t.numNodes, 1), zvhost::Owned(ndCreateCellMatrix(t.numNodes, 2)),
        zvhost::Owned(ndCreateCellMatrix(0, 0)), zvhost::Owned(ndCreateCellMatrix(0, 0)),
        zvhost::Owned(ndCreateCellMatrix(0, 0)), zvhost::Owned(ndCreateCellMatrix(0, 0)),
        zvhost::Owned(ndCreateCellMatrix(0, 0)), zvhost::scalar(0)};
    std::vector<const ndArray*> inputs;
    for (auto& a : in) inputs.push_back(a.get());
    for (auto _ : state) {
        auto out = zvhost::call(classregtree::findNode, 1, inputs);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kRows));
}

void BM_Double(benchmark::State& s) { run<double>(s, 1, false); }
void BM_Double10Levels(benchmark::State& s) { run<double>(s, 10, false); }
void BM_Single10Levels(benchmark::State& s) { run<float>(s, 10, false); }
void BM_Binned10Levels(benchmark::State& s) { run<int32_t>(s, 10, true); }

BENCHMARK(BM_Double)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_Double10Levels)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_Single10Levels)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_Binned10Levels)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

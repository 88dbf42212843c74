// classregtree::computePruneInfo through the host's call boundary on a tree
// of about 35,000 nodes grown by random splits of noisy three-class data
// (risks are Gini impurities times node weights), in both precisions, with
// the risks given and recomputed from class probabilities by name; and on a
// chain of the same size, the worst case: a level per branch, each changing
// every alpha above it.
// Run by hand: build/bin/prune_info_bench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "gateway_declarations.hpp"
#include "zvhost/arrays.hpp"

namespace {

constexpr size_t kClasses = 3;
constexpr size_t kSplits = 17500;

struct Record {
    std::vector<double> classProb, nodeProb, risk, children;
    size_t n() const { return risk.size(); }
};

// A node's class weights as probabilities, weight and Gini risk.
void addNode(Record& r, const std::vector<int>& labels, size_t lo, size_t hi, size_t total) {
    double counts[kClasses] = {};
    for (size_t k = lo; k < hi; ++k) counts[labels[k]] += 1;
    const double size = double(hi - lo), weight = size / double(total);
    double sumSquares = 0;
    for (double c : counts) {
        r.classProb.push_back(c / size);
        sumSquares += (c / size) * (c / size);
    }
    r.nodeProb.push_back(weight);
    r.risk.push_back(weight * (1 - sumSquares));
    r.children.insert(r.children.end(), {0, 0});
}

// Splits random impure leaves of a sample of points in the plane, whose label
// follows a grid of cells with 20% noise, at a random place along x or y.
Record grownTree() {
    const size_t N = 60000;
    std::mt19937 gen(20240611);
    std::uniform_real_distribution<double> u(0, 1);
    std::vector<std::pair<double, double>> x(N);
    std::vector<int> labels(N);
    std::vector<size_t> order(N);
    for (size_t k = 0; k < N; ++k) {
        x[k] = {u(gen), u(gen)};
        labels[k] = u(gen) < 0.2 ? int(u(gen) * kClasses) : int(x[k].first * 7 + x[k].second * 5) % int(kClasses);
        order[k] = k;
    }
    std::vector<int> sorted(N);
    Record r;
    std::vector<std::pair<size_t, size_t>> range = {{0, N}};
    auto relabel = [&](size_t lo, size_t hi) {
        for (size_t k = lo; k < hi; ++k) sorted[k] = labels[order[k]];
    };
    relabel(0, N);
    addNode(r, sorted, 0, N, N);
    std::vector<size_t> open = {0};
    while (r.n() < 2 * kSplits + 1 && !open.empty()) {
        const size_t pick = size_t(u(gen) * double(open.size()));
        const size_t i = open[pick];
        open.erase(open.begin() + long(pick));
        auto [lo, hi] = range[i];
        const bool byX = u(gen) < 0.5;
        std::sort(order.begin() + long(lo), order.begin() + long(hi), [&](size_t a, size_t b) {
            return byX ? x[a].first < x[b].first : x[a].second < x[b].second;
        });
        relabel(lo, hi);
        const size_t size = hi - lo;
        const size_t cut = std::min(hi - 1, lo + 1 + size / 4 + size_t(u(gen) * double(size / 2)));
        r.children[2 * i] = double(r.n() + 1), r.children[2 * i + 1] = double(r.n() + 2);
        for (auto [a, b] : {std::pair{lo, cut}, std::pair{cut, hi}}) {
            range.push_back({a, b});
            addNode(r, sorted, a, b, N);
            if (b - a >= 2 && r.risk.back() > 0) open.push_back(r.n() - 1);
        }
    }
    return r;
}

// The deepest tree of its size: each branch has a leaf of risk 0 and the next
// branch, and gains shrink with depth, so that every level prunes the deepest
// branch and changes the alpha of every branch above it.
Record chainTree() {
    Record r;
    const size_t n = 2 * kSplits + 1;
    r.classProb.assign(kClasses * n, 1.0 / kClasses);
    r.nodeProb.assign(n, 1.0);
    r.risk.assign(n, 0.0);
    r.children.assign(2 * n, 0.0);
    double below = 1.0;  // risk of the last node
    for (size_t k = kSplits; k-- > 0;) {
        const size_t i = 2 * k;
        r.children[2 * i] = double(i + 2), r.children[2 * i + 1] = double(i + 3);
        r.risk[i + 2] = below;
        below += double(kSplits - k);
    }
    r.risk[0] = below;
    return r;
}

template <class T>
zvhost::Owned matrix(size_t m, size_t n, const std::vector<double>& v) {
    std::vector<T> t(v.begin(), v.end());
    return zvhost::matrixOf<T>(m, n, std::span<const T>(t));
}

template <class T>
void prune(benchmark::State& state, bool chain, const char* criterion) {
    static const Record bushy = grownTree();
    static const Record deep = chainTree();
    const Record& r = chain ? deep : bushy;
    const size_t n = r.n();
    auto classProb = matrix<T>(kClasses, n, r.classProb), nodeProb = matrix<T>(n, 1, r.nodeProb),
         risk = matrix<T>(n, 1, r.risk), children = matrix<double>(2, n, r.children);
    zvhost::Owned cost = zvhost::matrixOf<double>(0, 0), unrouted(ndCreateLogicalMatrix(n, 1)),
                  name = zvhost::text(criterion), verbose = zvhost::scalar(0);
    size_t levels = 0;
    for (auto _ : state) {
        auto out = zvhost::call(&classregtree::computePruneInfo, 2,
                                {classProb.get(), cost.get(), nodeProb.get(), risk.get(), unrouted.get(),
                                 children.get(), name.get(), verbose.get()});
        levels = ndGetM(out[1].get());
    }
    state.counters["nodes"] = double(n);
    state.counters["levels"] = double(levels);
    state.SetItemsProcessed(int64_t(state.iterations() * n));
}

void pruneDouble(benchmark::State& state, bool chain, const char* criterion) { prune<double>(state, chain, criterion); }
void pruneSingle(benchmark::State& state, bool chain, const char* criterion) { prune<float>(state, chain, criterion); }

}  // namespace

BENCHMARK_CAPTURE(pruneDouble, bushy_risks, false, "")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pruneDouble, bushy_gini, false, "gini")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pruneSingle, bushy_risks, false, "")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pruneSingle, bushy_gini, false, "gini")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(pruneDouble, chain_risks, true, "")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();

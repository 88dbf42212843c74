// Demo of decision trees: a classification and a regression tree grown on
// embedded data, the pruning sequence of the first, and the accuracy of its
// subtrees when new rows are looked up.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "demo/demo.hpp"
#include "zvhost/control.hpp"

namespace zvdemo {

namespace {

using zvhost::Owned;

constexpr size_t kRows = 600, kPredictors = 3;

// Two classes split by a wavy border in the first two predictors; the
// third predictor is noise, and 5% of the labels are flipped.
void twoClasses(unsigned seed, std::vector<double>& x, std::vector<double>& y, std::vector<double>& wave) {
    auto stream = zvhost::makeStream(seed);
    x.resize(kRows * kPredictors);
    stream->uniform(x.data(), x.size());
    std::vector<double> flip(kRows);
    stream->uniform(flip.data(), kRows);
    y.resize(kRows);
    wave.resize(kRows);
    for (size_t i = 0; i < kRows; ++i) {
        const double border = 0.5 + 0.2 * std::sin(6 * x[i]);
        y[i] = double((x[kRows + i] > border) != (flip[i] < 0.05));
        wave[i] = std::sin(6 * x[i]) + 0.5 * x[kRows + i] + 0.1 * (flip[i] - 0.5);
    }
}

std::vector<Owned> grow(const Session& s, const std::vector<double>& x, const std::vector<double>& y,
                        const char* criterion, double minLeaf, bool thirdCategorical = false, double surrogates = 0) {
    std::vector<double> rows(kRows);
    for (size_t i = 0; i < kRows; ++i) rows[i] = double(i);
    auto xa = zvhost::matrixOf<double>(kRows, kPredictors, std::span<const double>(x));
    auto ya = zvhost::matrixOf<double>(kRows, 1, std::span<const double>(y));
    auto wa = zvhost::matrixOf<double>(kRows, 1, std::span<const double>(std::vector<double>(kRows, 1.0)));
    auto ra = zvhost::matrixOf<double>(kRows, 1, std::span<const double>(rows));
    Owned no(zvhost::logicalScalar(false)), categorical(ndCreateLogicalMatrix(1, kPredictors));
    ndGetLogicals(categorical.get())[2] = thirdCategorical;
    auto kept = zvhost::scalar(surrogates);
    auto none = zvhost::matrixOf<double>(0, 0), crit = zvhost::text(criterion);
    auto leaf = zvhost::scalar(minLeaf), parent = zvhost::scalar(2 * minLeaf), splits = zvhost::scalar(1e9);
    auto vars = zvhost::scalar(double(kPredictors)), zero = zvhost::scalar(0), maxCat = zvhost::scalar(10);
    Owned stream(zvhost::createStreamObject(zvhost::makeStream(1)));
    return s.call("classregtree::growTree", 24,
                  {xa.get(), ya.get(), wa.get(), ra.get(), no.get(), categorical.get(), none.get(), crit.get(),
                   leaf.get(), parent.get(), splits.get(), vars.get(), kept.get(), maxCat.get(), zero.get(),
                   none.get(), zero.get(), no.get(), no.get(), no.get(), stream.get(), no.get(), zero.get()});
}

size_t depthOf(const std::vector<double>& parents) {
    size_t deepest = 0;
    for (size_t u = 0; u < parents.size(); ++u) {
        size_t d = 0;
        for (double p = parents[u]; p > 0; p = parents[size_t(p) - 1]) ++d;
        deepest = std::max(deepest, d);
    }
    return deepest;
}

void describe(const char* what, const std::vector<Owned>& tree) {
    const auto cutVar = zvhost::valuesOf<double>(tree[7].get());
    const auto cut = zvhost::valuesOf<double>(tree[5].get());
    const auto risk = zvhost::valuesOf<double>(tree[15].get());
    size_t leaves = 0;
    double leafRisk = 0;
    for (size_t u = 0; u < cutVar.size(); ++u)
        if (cutVar[u] == 0) ++leaves, leafRisk += risk[u];
    std::string rootCut = "at " + std::to_string(cut[0]).substr(0, 6);
    if (const ndArray* left = std::isnan(cut[0]) ? ndGetCell(tree[4].get(), 0) : nullptr) {
        rootCut = "sending categories {";
        for (size_t k = 0; k < ndGetNumberOfElements(left); ++k)
            rootCut += (k ? " " : "") + std::to_string(int(static_cast<const double*>(ndGetData(left))[k]));
        rootCut += "} left";
    }
    std::printf("  %s: %zu nodes, %zu leaves, depth %zu; root splits x%.0f %s; risk %.4g at the root, "
                "%.4g summed over the leaves\n",
                what, cutVar.size(), leaves, depthOf(zvhost::valuesOf<double>(tree[14].get())), cutVar[0],
                rootCut.c_str(), risk[0], leafRisk);
}

void demoTrees(const Session& s) {
    heading("classregtree::growTree: Gini trees on 600 rows of two wavy classes (one with a categorical predictor, "
            "missing values and surrogates), a regression tree on a sine");
    std::vector<double> x, y, wave;
    twoClasses(61, x, y, wave);
    const auto tree = grow(s, x, y, "gini", 1);
    describe("classification (min leaf 1)", tree);
    describe("regression (squared error, min leaf 10)", grow(s, x, wave, "mse", 10));

    // The third predictor as four categories that follow the border, and 10% of
    // the first two missing: surrogates route those rows.
    std::vector<double> xCat = x;
    auto holes = zvhost::makeStream(63);
    std::vector<double> u(2 * kRows);
    holes->uniform(u.data(), u.size());
    for (size_t i = 0; i < kRows; ++i) {
        xCat[2 * kRows + i] = 1 + std::floor(4 * std::min(0.999, std::max(0.0, x[kRows + i] - 0.5 - 0.2 * std::sin(6 * x[i]) + 0.5)));
        if (u[i] < 0.1) xCat[i] = std::nan("");
        if (u[kRows + i] < 0.1) xCat[kRows + i] = std::nan("");
    }
    const auto withSurrogates = grow(s, xCat, y, "gini", 5, true, 2);
    describe("categorical x3, 10% missing, 2 surrogates (min leaf 5)", withSurrogates);
    const ndArray* vars = ndGetCell(withSurrogates[21].get(), 0);
    const ndArray* assoc = ndGetCell(withSurrogates[23].get(), 0);
    const ndArray* flips = ndGetCell(withSurrogates[18].get(), 0);
    std::printf("    root surrogates:");
    for (size_t j = 0; vars && j < ndGetNumberOfElements(vars); ++j)
        std::printf(" x%.0f (association %.3f, flip %+.0f)", static_cast<const double*>(ndGetData(vars))[j],
                    static_cast<const double*>(ndGetData(assoc))[j], static_cast<const double*>(ndGetData(flips))[j]);
    const auto unrouted = ndGetLogicals(withSurrogates[8].get());
    size_t stuck = 0;
    for (size_t u = 0; u < ndGetM(withSurrogates[8].get()); ++u) stuck += unrouted[u];
    std::printf("; %zu branch nodes keep rows no surrogate could place\n", stuck);

    if (!s.has("classregtree::computePruneInfo") || !s.has("classregtree::findNode")) return;
    auto noCost = zvhost::matrixOf<double>(0, 0), noName = zvhost::text(""), quiet = zvhost::scalar(0);
    auto prune = s.call("classregtree::computePruneInfo", 2,
                        {tree[2].get(), noCost.get(), tree[12].get(), tree[15].get(), tree[8].get(), tree[0].get(),
                         noName.get(), quiet.get()});
    const auto alphas = zvhost::valuesOf<double>(prune[1].get());
    std::printf("  pruning: %zu levels; alpha of the first levels:", alphas.size());
    for (size_t k = 0; k < std::min<size_t>(alphas.size(), 6); ++k) std::printf(" %.3g", alphas[k]);
    std::printf(" ... %.3g\n", alphas.back());

    // New rows from the same classes, looked up in the full tree and in two pruned ones.
    std::vector<double> xNew, yNew, unused;
    twoClasses(62, xNew, yNew, unused);
    const double mid = std::floor(double(alphas.size()) * 0.7);
    const std::vector<double> levels = {0, mid, double(alphas.size() - 2)};
    auto xa = zvhost::matrixOf<double>(kRows, kPredictors, std::span<const double>(xNew));
    auto la = zvhost::matrixOf<double>(1, levels.size(), std::span<const double>(levels));
    Owned categorical(ndCreateLogicalMatrix(1, kPredictors)), noCell(ndCreateCellMatrix(0, 0));
    auto noBins = zvhost::matrixOf<double>(0, 0);
    auto nodes = s.call("classregtree::findNode", 1,
                        {xa.get(), la.get(), prune[0].get(), tree[0].get(), categorical.get(), tree[7].get(),
                         noBins.get(), tree[5].get(), tree[4].get(), noCell.get(), noCell.get(), noCell.get(),
                         noCell.get(), noCell.get(), quiet.get()});
    const auto found = zvhost::valuesOf<double>(nodes[0].get());
    const auto value = zvhost::valuesOf<double>(tree[11].get());
    const auto level = zvhost::valuesOf<double>(prune[0].get());
    const auto parent = zvhost::valuesOf<double>(tree[14].get());
    for (size_t k = 0; k < levels.size(); ++k) {
        size_t right = 0, leaves = 0;
        for (size_t i = 0; i < kRows; ++i) right += value[size_t(found[k * kRows + i]) - 1] == yNew[i];
        // A leaf of subtree s: pruned at or below s, under a parent that is not.
        for (size_t u = 0; u < level.size(); ++u)
            leaves += level[u] <= levels[k] && (parent[u] == 0 || level[size_t(parent[u]) - 1] > levels[k]);
        std::printf("  subtree at prune level %3.0f: %4zu leaves, %5.1f%% of 600 new rows classified right\n",
                    levels[k], leaves, 100.0 * double(right) / kRows);
    }
}

}  // namespace

ZV_DEMO_SECTION(50, demoTrees);

}  // namespace zvdemo

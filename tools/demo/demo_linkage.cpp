// Demo of agglomerative linkage: the demo blobs clustered by average and ward
// linkage, the first merges and the cluster sizes when the tree is cut into
// three clusters.
#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

// Leaf -> cluster number (from 1) when the tree of n leaves is cut into
// `clusters` clusters: the merges are taken in height order, as the chain
// does not find them so, and the last clusters - 1 are left undone.
std::vector<int> cutTree(const std::vector<double>& z, size_t n, size_t clusters) {
    const size_t rows = n - 1;
    std::vector<size_t> leafOf(2 * n - 1), parent(n), order(rows);
    for (size_t i = 0; i < n; ++i) leafOf[i] = parent[i] = i;
    for (size_t k = 0; k < rows; ++k) leafOf[n + k] = leafOf[size_t(z[k]) - 1];
    for (size_t k = 0; k < rows; ++k) order[k] = k;
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) { return z[a + 2 * rows] < z[b + 2 * rows]; });
    std::function<size_t(size_t)> find = [&](size_t a) { return parent[a] == a ? a : parent[a] = find(parent[a]); };
    for (size_t m = 0; m + clusters < n; ++m) {
        const size_t k = order[m];
        parent[find(leafOf[size_t(z[k]) - 1])] = find(leafOf[size_t(z[k + rows]) - 1]);
    }
    std::map<size_t, int> number;
    std::vector<int> label(n);
    for (size_t i = 0; i < n; ++i) {
        const size_t root = find(i);
        if (!number.count(root)) number.emplace(root, int(number.size()) + 1);
        label[i] = number[root];
    }
    return label;
}

void demoLinkage(const Session& s) {
    Blobs blobs = gaussianBlobs(20, {{0, 0}, {4, 0}, {2, 3.5}}, 0.6, 7);
    auto x = zvhost::matrixOf<double>(blobs.dims, blobs.n, std::span<const double>(blobs.x));
    auto euc = zvhost::text("euclidean");
    auto y = s.call("pdistbif", 1, {x.get(), euc.get()});
    for (const char* method : {"average", "ward"}) {
        char title[96];
        std::snprintf(title, sizeof title, "linkagebif: %s linkage of the %zu blob points", method, blobs.n);
        heading(title);
        auto m = zvhost::text(method);
        auto out = s.call("linkagebif", 1, {y[0].get(), m.get()});
        const auto z = zvhost::valuesOf<double>(out[0].get());
        const size_t rows = blobs.n - 1;
        std::printf("  first rows of the merge table (labels from 1; above %zu: clusters made earlier)\n", blobs.n);
        for (size_t k = 0; k < 5; ++k) std::printf("    %3.0f %3.0f  height %.4f\n", z[k], z[k + rows], z[k + 2 * rows]);
        std::printf("  last rows\n");
        for (size_t k = rows - 3; k < rows; ++k) std::printf("    %3.0f %3.0f  height %.4f\n", z[k], z[k + rows], z[k + 2 * rows]);
        const auto label = cutTree(z, blobs.n, 3);
        std::printf("  cut into 3 clusters: blob -> cluster sizes\n");
        for (int b = 0; b < 3; ++b) {
            int count[4] = {0, 0, 0, 0};
            for (size_t i = 0; i < blobs.n; ++i)
                if (blobs.label[i] == b) ++count[label[i]];
            std::printf("    blob %d: cluster 1: %2d  cluster 2: %2d  cluster 3: %2d\n", b + 1, count[1], count[2], count[3]);
        }
    }
}

}  // namespace

ZV_DEMO_SECTION(30, demoLinkage);

}  // namespace zvdemo

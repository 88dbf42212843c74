// Demo of density-based clustering on the demo blobs, and the mean silhouette
// of the clusters it finds, made from the silhouette gateway's two means.
#include <algorithm>
#include <cstdio>
#include <map>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

void demoDbscan(const Session& s) {
    heading("dbscan: density clusters of 3 Gaussian blobs in 2-D (epsilon 0.8, minpts 5)");
    Blobs blobs = gaussianBlobs(20, {{0, 0}, {4, 0}, {2, 3.5}}, 0.6, 7);
    auto x = zvhost::matrixOf<double>(blobs.dims, blobs.n, std::span<const double>(blobs.x));
    auto epsilon = zvhost::scalar(0.8), minpts = zvhost::scalar(5), dataMode = zvhost::scalar(2);
    auto euc = zvhost::text("euclidean");
    auto none = zvhost::matrixOf<double>(0, 0);
    auto n = zvhost::scalar(double(blobs.n)), p = zvhost::scalar(double(blobs.dims));
    auto nested = zvhost::logicalScalar(false);
    auto out = s.call("dbscan", 2, {x.get(), epsilon.get(), minpts.get(), euc.get(), dataMode.get(), none.get(),
                                    n.get(), p.get(), none.get(), nested.get()});
    const auto labels = zvhost::valuesOf<double>(out[0].get());
    const bool* core = ndGetLogicals(out[1].get());

    std::printf("  labels (-1 noise):\n");
    for (size_t b = 0; b < 3; ++b) {
        std::printf("   blob %zu:", b + 1);
        for (size_t i = b * 20; i < b * 20 + 20; ++i) std::printf(" %2.0f", labels[i]);
        std::printf("\n");
    }
    std::map<double, std::pair<size_t, size_t>> sizes;  // label -> (points, core points)
    for (size_t i = 0; i < blobs.n; ++i) {
        auto& entry = sizes[labels[i]];
        entry.first += 1;
        entry.second += core[i];
    }
    for (const auto& [label, size] : sizes) {
        if (label < 0) std::printf("  noise: %zu points\n", size.first);
        else std::printf("  cluster %.0f: %zu points, %zu of them core\n", label, size.first, size.second);
    }

    // Silhouette of the clustering, noise left out: a = mean distance within
    // the own cluster, b = least mean distance to another, s = (b - a) / max(a, b).
    std::vector<size_t> kept;
    for (size_t i = 0; i < blobs.n; ++i)
        if (labels[i] > 0) kept.push_back(i);
    const size_t K = sizes.rbegin()->first > 0 ? size_t(sizes.rbegin()->first) : 0;
    if (K < 2) {
        std::printf("  fewer than two clusters: no silhouette\n");
        return;
    }
    const size_t m = kept.size();
    auto xk = zvhost::matrixOf<double>(blobs.dims, m);
    auto mask = zvhost::matrixOf<bool>(m, K);
    auto counts = zvhost::matrixOf<double>(1, K);
    auto own = zvhost::matrixOf<double>(m, 1);
    double* xv = static_cast<double*>(ndGetData(xk.get()));
    bool* mv = ndGetLogicals(mask.get());
    double* cv = static_cast<double*>(ndGetData(counts.get()));
    double* ov = static_cast<double*>(ndGetData(own.get()));
    for (size_t r = 0; r < m; ++r) {
        const size_t i = kept[r], c = size_t(labels[i]);
        std::copy_n(blobs.x.data() + i * blobs.dims, blobs.dims, xv + r * blobs.dims);
        mv[(c - 1) * m + r] = true;
        cv[c - 1] += 1;
        ov[r] = double(c);
    }
    auto kArg = zvhost::scalar(double(K));
    auto means = s.call("silhouette", 2, {xk.get(), mask.get(), counts.get(), kArg.get(), own.get(), euc.get()});
    const auto within = zvhost::valuesOf<double>(means[0].get());
    const auto between = zvhost::valuesOf<double>(means[1].get());
    std::vector<double> perCluster(K, 0.0);
    double total = 0;
    for (size_t r = 0; r < m; ++r) {
        double b = between[r];
        for (size_t k = 1; k < K; ++k) b = std::min(b, between[k * m + r]);
        const double a = within[r];
        const double sr = cv[size_t(ov[r]) - 1] > 1 ? (b - a) / std::max(a, b) : 0.0;
        perCluster[size_t(ov[r]) - 1] += sr / cv[size_t(ov[r]) - 1];
        total += sr;
    }
    heading("silhouette: how well the dbscan clusters separate (1 best, -1 worst)");
    for (size_t k = 0; k < K; ++k) std::printf("  cluster %zu: mean silhouette %.4f\n", k + 1, perCluster[k]);
    std::printf("  all %zu clustered points: mean silhouette %.4f\n", m, total / double(m));
}

}  // namespace

ZV_DEMO_SECTION(32, demoDbscan);

}  // namespace zvdemo

// Demo of condensed distances on deterministic Gaussian blobs.
#include <cmath>
#include <cstdio>

#include "demo/demo.hpp"

namespace zvdemo {

void demoDistance(const Session& s) {
    heading("pdistbif: distances between 3 Gaussian blobs in 2-D (20 points each)");
    Blobs blobs = gaussianBlobs(20, {{0, 0}, {4, 0}, {2, 3.5}}, 0.6, 7);
    auto x = zvhost::matrixOf<double>(blobs.dims, blobs.n, std::span<const double>(blobs.x));
    auto euc = zvhost::text("euclidean");

    auto y = s.call("pdistbif", 1, {x.get(), euc.get()});
    const auto d = zvhost::valuesOf<double>(y[0].get());
    std::printf("  %zu points give %zu pairwise distances\n", blobs.n, d.size());

    double within = 0, between = 0;
    size_t nw = 0, nb = 0, k = 0;
    for (size_t i = 0; i < blobs.n; ++i)
        for (size_t j = i + 1; j < blobs.n; ++j, ++k) {
            if (blobs.label[i] == blobs.label[j]) within += d[k], ++nw;
            else between += d[k], ++nb;
        }
    std::printf("  mean distance within a blob %.4f, between blobs %.4f\n", within / double(nw),
                between / double(nb));

    // The first five points of each blob, as a square matrix.
    const size_t pick[] = {0, 1, 20, 21, 40};
    double square[25];
    for (size_t a = 0; a < 5; ++a)
        for (size_t b = 0; b < 5; ++b) {
            size_t i = std::min(pick[a], pick[b]), j = std::max(pick[a], pick[b]);
            square[a + 5 * b] = i == j ? 0.0 : d[i * blobs.n - i * (i + 1) / 2 + (j - i - 1)];
        }
    printMatrix("  euclidean distances among points 1, 2, 21, 22, 41", square, 5, 5);

    heading("pdistbif: one pair under each metric");
    auto pair = zvhost::matrixOf<double>(4, 2, {1, 0, 2, 5, 3, 0, 0, 5});
    auto three = zvhost::scalar(3);
    std::printf("  u = (1, 0, 2, 5), v = (3, 0, 0, 5)\n");
    for (const char* metric : {"euclidean", "sqeuclidean", "cityblock", "minkowski", "chebychev",
                               "hamming", "jaccard"}) {
        auto code = zvhost::text(metric);
        auto out = std::string(metric) == "minkowski"
                       ? s.call("pdistbif", 1, {pair.get(), code.get(), three.get()})
                       : s.call("pdistbif", 1, {pair.get(), code.get()});
        std::printf("  %-12s %s%.6f\n", metric, std::string(metric) == "minkowski" ? "(e=3) " : "",
                    ndGetScalar(out[0].get()));
    }

    heading("pdistbif: single precision agrees");
    std::vector<float> xf(blobs.x.begin(), blobs.x.end());
    auto xs = zvhost::matrixOf<float>(blobs.dims, blobs.n, std::span<const float>(xf));
    auto ys = s.call("pdistbif", 1, {xs.get(), euc.get()});
    const auto ds = zvhost::valuesOf<float>(ys[0].get());
    double worst = 0;
    for (size_t i = 0; i < d.size(); ++i) worst = std::max(worst, std::fabs(double(ds[i]) - d[i]) / d[i]);
    std::printf("  largest relative difference from double: %.2e\n", worst);
}

}  // namespace zvdemo

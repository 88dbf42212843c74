// Demo of condensed distances on deterministic Gaussian blobs.
#include <cmath>
#include <cstdio>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

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

    heading("pdistSparseBIF: the same pair stored sparse");
    // Only the non-zeros are stored: u keeps rows 0, 2, 3 and v rows 0, 3.
    zvhost::Owned sparsePair(zvhost::createSparse(4, 2, 5));
    const double storedValues[] = {1, 2, 5, 3, 5};
    const size_t storedRows[] = {0, 2, 3, 0, 3}, columnStarts[] = {0, 3, 5};
    for (size_t k = 0; k < 5; ++k) {
        static_cast<double*>(ndGetData(sparsePair.get()))[k] = storedValues[k];
        ndGetRowIndices(sparsePair.get())[k] = storedRows[k];
    }
    for (size_t j = 0; j < 3; ++j) ndGetColumnStarts(sparsePair.get())[j] = columnStarts[j];
    for (const char* metric : {"euclidean", "cityblock", "hamming", "jaccard"}) {
        auto code = zvhost::text(metric);
        auto out = s.call("pdistSparseBIF", 1, {sparsePair.get(), code.get()});
        std::printf("  %-12s %.6f\n", metric, ndGetScalar(out[0].get()));
    }

    heading("pdistbif: single precision agrees");
    std::vector<float> xf(blobs.x.begin(), blobs.x.end());
    auto xs = zvhost::matrixOf<float>(blobs.dims, blobs.n, std::span<const float>(xf));
    auto ys = s.call("pdistbif", 1, {xs.get(), euc.get()});
    const auto ds = zvhost::valuesOf<float>(ys[0].get());
    double worst = 0;
    for (size_t i = 0; i < d.size(); ++i) worst = std::max(worst, std::fabs(double(ds[i]) - d[i]) / d[i]);
    std::printf("  largest relative difference from double: %.2e\n", worst);

    heading("pdist2HeterogeneousBIF: colour and size (categorical) with weight (continuous)");
    // One observation per column: (colour, size, weight). The caller passes
    // each category's count and the weight scaled to [0, 1] by its range.
    const double raw[] = {1, 2, 70, 1, 3, 82, 2, 2, 64, 3, 1, 55};
    const double frequencies[] = {2, 2, 15.0 / 27, 2, 1, 1, 1, 2, 9.0 / 27, 1, 1, 0};
    auto mixed = zvhost::matrixOf<double>(3, 4, std::span<const double>(raw));
    auto counts = zvhost::matrixOf<double>(3, 4, std::span<const double>(frequencies));
    auto categorical = zvhost::matrixOf<uint64_t>(1, 2, {1, 2});
    for (const char* measure : {"lin", "goodall", "ofd"}) {
        auto code = zvhost::text(measure);
        auto out = s.call("pdist2HeterogeneousBIF", 1,
                          {mixed.get(), mixed.get(), code.get(), counts.get(), counts.get(), categorical.get()});
        printMatrix(("  " + std::string(measure)).c_str(), static_cast<const double*>(ndGetData(out[0].get())), 4, 4);
    }
}

}  // namespace

ZV_DEMO_SECTION(20, demoDistance);

}  // namespace zvdemo

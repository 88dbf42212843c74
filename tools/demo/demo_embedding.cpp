// Demo of the neighbour-embedding gradient and loss: a short gradient descent
// that lays the demo blobs out in 2-D, the outer loop written here as the
// host's own code would run it.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

constexpr double kSigma = 1.0;          // one bandwidth for every point, for simplicity
constexpr double kTheta = 0.5;
constexpr double kLearningRate = 20.0;
constexpr double kExaggeration = 4.0;   // for the first iterations
constexpr int kExaggeratedIterations = 50;
constexpr int kIterations = 300;

// Symmetric affinities over all other points: p(j|i) from a Gaussian kernel,
// P = (p(j|i) + p(i|j)) / 2N, as one list of N - 1 entries per point.
std::vector<double> affinities(const Blobs& b) {
    const size_t n = b.n;
    std::vector<double> cond(n * n, 0.0);
    for (size_t i = 0; i < n; ++i) {
        double sum = 0;
        for (size_t j = 0; j < n; ++j) {
            if (i == j) continue;
            double d2 = 0;
            for (size_t k = 0; k < b.dims; ++k) d2 += std::pow(b.x[i * b.dims + k] - b.x[j * b.dims + k], 2);
            cond[i * n + j] = std::exp(-d2 / (2 * kSigma * kSigma));
            sum += cond[i * n + j];
        }
        for (size_t j = 0; j < n; ++j) cond[i * n + j] /= sum;
    }
    std::vector<double> p;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = 0; j < n; ++j)
            if (i != j) p.push_back((cond[i * n + j] + cond[j * n + i]) / (2.0 * double(n)));
    return p;
}

void demoEmbedding(const Session& s) {
    heading("tsnebhbif, tsnelossbif: the 3 blobs embedded in 2-D by 300 steps of gradient descent");
    const Blobs blobs = gaussianBlobs(20, {{0, 0}, {4, 0}, {2, 3.5}}, 0.6, 7);
    const size_t n = blobs.n, per = n - 1;
    const std::vector<double> p = affinities(blobs);
    std::vector<double> exaggerated(p);
    for (double& v : exaggerated) v *= kExaggeration;
    std::vector<double> neighbours, counts(n, double(per)), starts(n);
    for (size_t i = 0; i < n; ++i) {
        starts[i] = double(i * per);
        for (size_t j = 0; j < n; ++j)
            if (j != i) neighbours.push_back(double(j + 1));
    }
    auto nb = zvhost::matrixOf<double>(1, neighbours.size(), std::span<const double>(neighbours));
    auto cnt = zvhost::matrixOf<double>(1, n, std::span<const double>(counts));
    auto st = zvhost::matrixOf<double>(1, n, std::span<const double>(starts));
    auto pPlain = zvhost::matrixOf<double>(1, p.size(), std::span<const double>(p));
    auto pExaggerated = zvhost::matrixOf<double>(1, p.size(), std::span<const double>(exaggerated));
    auto theta = zvhost::scalar(kTheta);

    std::vector<double> y(2 * n), velocity(2 * n, 0.0);
    zvhost::makeStream(42)->normal(y.data(), y.size());
    for (double& v : y) v *= 1e-2;

    for (int it = 1; it <= kIterations; ++it) {
        // The root box: the bounding box of the embedding, a little larger.
        double lo[2] = {y[0], y[1]}, hi[2] = {y[0], y[1]};
        for (size_t i = 0; i < n; ++i)
            for (size_t k = 0; k < 2; ++k) lo[k] = std::min(lo[k], y[2 * i + k]), hi[k] = std::max(hi[k], y[2 * i + k]);
        auto center = zvhost::matrixOf<double>(2, 1, {(lo[0] + hi[0]) / 2, (lo[1] + hi[1]) / 2});
        auto half = zvhost::matrixOf<double>(2, 1, {(hi[0] - lo[0]) / 2 * 1.001 + 1e-9, (hi[1] - lo[1]) / 2 * 1.001 + 1e-9});
        auto ya = zvhost::matrixOf<double>(2, n, std::span<const double>(y));
        const bool early = it <= kExaggeratedIterations;
        auto g = s.call("tsnebhbif", 3, {theta.get(), ya.get(), center.get(), half.get(), nb.get(), cnt.get(),
                                         early ? pExaggerated.get() : pPlain.get(), st.get()});
        const auto attractive = zvhost::valuesOf<double>(g[0].get()), repulsive = zvhost::valuesOf<double>(g[1].get());
        const double momentum = early ? 0.5 : 0.8;
        for (size_t e = 0; e < y.size(); ++e) {
            velocity[e] = momentum * velocity[e] - kLearningRate * 4.0 * (attractive[e] - repulsive[e]);
            y[e] += velocity[e];
        }
        if (it % 25 == 0 || it == 1) {
            auto l = s.call("tsnelossbif", 1, {ya.get(), nb.get(), cnt.get(), pPlain.get(), g[2].get()});
            std::printf("  iteration %3d  loss %.4f%s\n", it, zvhost::valuesOf<double>(l[0].get())[0],
                        early ? "  (exaggerated affinities)" : "");
        }
    }
    // Where the blobs ended: their centres and spreads in the embedding.
    for (int c = 0; c < 3; ++c) {
        double mx = 0, my = 0, spread = 0;
        for (size_t i = 0; i < 20; ++i) mx += y[2 * (c * 20 + i)] / 20, my += y[2 * (c * 20 + i) + 1] / 20;
        for (size_t i = 0; i < 20; ++i) spread += std::hypot(y[2 * (c * 20 + i)] - mx, y[2 * (c * 20 + i) + 1] - my) / 20;
        std::printf("  blob %d: centre (%7.3f, %7.3f), mean distance to it %.3f\n", c + 1, mx, my, spread);
    }
}

}  // namespace

ZV_DEMO_SECTION(40, demoEmbedding);

}  // namespace zvdemo

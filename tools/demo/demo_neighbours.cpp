// Demo of cross distances: nearest neighbours and a radius query of a few
// new points against the demo blobs.
#include <cstdio>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

void demoNeighbours(const Session& s) {
    heading("pdist2bif: the 4 nearest blob points of three new points");
    Blobs blobs = gaussianBlobs(20, {{0, 0}, {4, 0}, {2, 3.5}}, 0.6, 7);
    auto x = zvhost::matrixOf<double>(blobs.dims, blobs.n, std::span<const double>(blobs.x));
    auto queries = zvhost::matrixOf<double>(2, 3, {0.2, -0.1, 3.8, 0.3, 2.0, 1.2});
    auto euc = zvhost::text("euclidean");
    auto none = zvhost::matrixOf<double>(0, 0);
    auto four = zvhost::scalar(4);
    auto out = s.call("pdist2bif", 2, {x.get(), queries.get(), euc.get(), none.get(), four.get(), none.get(), none.get()});
    const auto d = zvhost::valuesOf<double>(out[0].get()), ix = zvhost::valuesOf<double>(out[1].get());
    const auto q = zvhost::valuesOf<double>(queries.get());
    for (size_t j = 0; j < 3; ++j) {
        std::printf("  (%4.1f, %4.1f):", q[2 * j], q[2 * j + 1]);
        for (size_t k = 0; k < 4; ++k) {
            const size_t i = size_t(ix[j * 4 + k]);
            std::printf("  #%-2zu blob %d d=%.3f", i, blobs.label[i - 1] + 1, d[j * 4 + k]);
        }
        std::printf("\n");
    }

    heading("pdist2bif: blob points within 0.8 of each new point, nearest first");
    auto radius = zvhost::scalar(0.8);
    out = s.call("pdist2bif", 2, {x.get(), queries.get(), euc.get(), none.get(), none.get(), radius.get(), none.get()});
    for (size_t j = 0; j < 3; ++j) {
        const auto hd = zvhost::valuesOf<double>(ndGetCell(out[0].get(), j));
        const auto hi = zvhost::valuesOf<double>(ndGetCell(out[1].get(), j));
        std::printf("  (%4.1f, %4.1f): %zu points", q[2 * j], q[2 * j + 1], hd.size());
        for (size_t k = 0; k < hd.size() && k < 6; ++k) std::printf("  #%.0f (%.3f)", hi[k], hd[k]);
        std::printf("%s\n", hd.size() > 6 ? "  ..." : "");
    }
}

}  // namespace

ZV_DEMO_SECTION(22, demoNeighbours);

}  // namespace zvdemo

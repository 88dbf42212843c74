// Demo of orthogonal matching pursuit: sparse codes over a small random
// unit-norm dictionary, recovered by both forms of the pursuit.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

constexpr size_t kRows = 24, kAtoms = 48, kResponses = 4, kNonzeros = 3;

void demoOmp(const Session& s) {
    heading("ompBatchImpl / ompCholImpl: 3-sparse codes over a 24 x 48 unit-norm dictionary");
    auto stream = zvhost::makeStream(84);
    std::vector<double> x(kRows * kAtoms);
    stream->normal(x.data(), x.size());
    for (size_t i = 0; i < kAtoms; ++i) {
        double norm = 0;
        for (size_t r = 0; r < kRows; ++r) norm += x[r + i * kRows] * x[r + i * kRows];
        for (size_t r = 0; r < kRows; ++r) x[r + i * kRows] /= std::sqrt(norm);
    }
    // Each response: three distinct atoms with coefficients of size 1 to 3.
    std::vector<double> y(kRows * kResponses, 0.0), codes(kAtoms * kResponses, 0.0);
    for (size_t j = 0; j < kResponses; ++j) {
        for (size_t placed = 0; placed < kNonzeros;) {
            double u[2];
            stream->uniform(u, 2);
            const size_t i = std::min(kAtoms - 1, size_t(u[0] * kAtoms));
            if (codes[i + j * kAtoms] != 0) continue;
            codes[i + j * kAtoms] = (u[1] < 0.5 ? -1 : 1) * (1 + 2 * u[1]);
            for (size_t r = 0; r < kRows; ++r) y[r + j * kRows] += codes[i + j * kAtoms] * x[r + i * kRows];
            ++placed;
        }
    }
    std::vector<double> groupValues(kAtoms);
    for (size_t i = 0; i < kAtoms; ++i) groupValues[i] = double(i);
    auto xa = zvhost::matrixOf<double>(kRows, kAtoms, std::span<const double>(x));
    auto ya = zvhost::matrixOf<double>(kRows, kResponses, std::span<const double>(y));
    auto groups = zvhost::matrixOf<double>(1, kAtoms, std::span<const double>(groupValues));
    auto maxAtoms = zvhost::scalar(6), maxGroups = zvhost::scalar(double(kAtoms));
    auto tolerance = zvhost::scalar(1e-6), unused = zvhost::scalar(0), parallel = zvhost::scalar(1);
    for (const char* gateway : {"ompBatchImpl", "ompCholImpl"}) {
        auto out = s.call(gateway, 2, {xa.get(), ya.get(), maxAtoms.get(), groups.get(), maxGroups.get(),
                                       tolerance.get(), unused.get(), parallel.get()});
        const auto coef = zvhost::valuesOf<double>(out[0].get());
        const auto support = zvhost::valuesOf<double>(out[1].get());
        std::printf("  %s (at most 6 atoms, relative residual tolerance 1e-6)\n", gateway);
        for (size_t j = 0; j < kResponses; ++j) {
            std::printf("    response %zu  true:", j + 1);
            for (size_t i = 0; i < kAtoms; ++i)
                if (codes[i + j * kAtoms] != 0) std::printf(" #%zu=%+.3f", i + 1, codes[i + j * kAtoms]);
            std::printf("   recovered, in order:");
            for (size_t k = 0; k < 6 && support[k + j * 6] > 0; ++k) {
                const size_t i = size_t(support[k + j * 6]);
                std::printf(" #%zu=%+.3f", i, coef[i - 1 + j * kAtoms]);
            }
            std::printf("\n");
        }
    }
}

}  // namespace

ZV_DEMO_SECTION(84, demoOmp);

}  // namespace zvdemo

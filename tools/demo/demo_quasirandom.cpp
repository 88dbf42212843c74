// Demo of quasi-random generation: Sobol points from a few dimensions of the
// usual direction-number tables, and Halton digit permutations.
#include <cstdio>
#include <vector>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

// The first dimensions of the common Sobol tables: the primitive polynomial
// (coefficient bits, leading and constant terms included) and its initial
// values. The first dimension is the recurrence of plain x with m = 1.
struct Dimension {
    double polynomial;
    std::vector<double> m;
};
const std::vector<Dimension> kDimensions{{2, {1}}, {3, {1}}, {7, {1, 3}}, {11, {1, 3, 1}}};

// d-by-53 direction numbers, as the generators take them.
zvhost::Owned directionNumbers(const Session& s) {
    const size_t d = kDimensions.size();
    zvhost::Owned cells(ndCreateCellMatrix(1, d));
    auto polys = zvhost::matrixOf<double>(1, d);
    for (size_t j = 0; j < d; ++j) {
        static_cast<double*>(ndGetData(polys.get()))[j] = kDimensions[j].polynomial;
        const auto& m = kDimensions[j].m;
        ndSetCell(cells.get(), j, zvhost::matrixOf<double>(1, m.size(), std::span<const double>(m)).release());
    }
    auto dn = s.call("sobolset::computeDN", 1, {cells.get(), polys.get()});
    const auto w = zvhost::valuesOf<uint64_t>(dn[0].get());
    auto v = zvhost::matrixOf<uint64_t>(d, 53);
    auto* out = static_cast<uint64_t*>(ndGetData(v.get()));
    for (size_t j = 0; j < d; ++j)
        for (size_t k = 0; k < 53; ++k) out[k * d + j] = w[j * 53 + k];
    return v;
}

void printPoints(const Session& s, const char* title, const ndArray* words) {
    auto x = s.call("sobolset::convertToDouble", 1, {words});
    const auto values = zvhost::valuesOf<double>(x[0].get());
    printMatrix(title, values.data(), ndGetM(x[0].get()), ndGetN(x[0].get()), 8, 5);
}

void demoQuasirandom(const Session& s) {
    heading("sobolset: the first 8 Sobol points in 4 dimensions (Gray-code order)");
    auto v = directionNumbers(s);
    auto first = zvhost::scalar(0), noLeap = zvhost::scalar(0), eight = zvhost::scalar(8);
    auto gray = zvhost::logicalScalar(true);
    auto x = s.call("sobolset::sobolSequenceBIF", 1, {v.get(), first.get(), noLeap.get(), eight.get(), gray.get()});
    printPoints(s, "  points 0 to 7", x[0].get());

    // The next 4 points continue from the last one; with a leap of 3 every
    // fourth point from index 8 is taken instead.
    const auto words = zvhost::valuesOf<uint64_t>(x[0].get());
    auto last = zvhost::matrixOf<uint64_t>(1, kDimensions.size());
    for (size_t j = 0; j < kDimensions.size(); ++j) static_cast<uint64_t*>(ndGetData(last.get()))[j] = words[j * 8 + 7];
    auto four = zvhost::scalar(4), leap = zvhost::scalar(3);
    x = s.call("sobolset::sobolSequenceBIF", 1, {v.get(), eight.get(), noLeap.get(), four.get(), gray.get(), last.get()});
    printPoints(s, "  points 8 to 11, continued from point 7", x[0].get());
    x = s.call("sobolset::sobolSequenceBIF", 1, {v.get(), eight.get(), leap.get(), four.get(), gray.get()});
    printPoints(s, "  points 8, 12, 16, 20 (leap 3)", x[0].get());

    // A digital shift scrambles the points; each dimension XORs its own word.
    std::vector<uint64_t> shift{uint64_t(1) << 51, uint64_t(3) << 50, 0, uint64_t(5) << 49};
    auto shiftArray = zvhost::matrixOf<uint64_t>(1, shift.size(), std::span<const uint64_t>(shift));
    x = s.call("sobolset::sobolNetBIF", 1, {v.get(), four.get(), gray.get()});
    auto shifted = s.call("sobolset::matrixBitXorBIF", 1, {x[0].get(), shiftArray.get()});
    printPoints(s, "  net of 4 points with a digital shift (1/4, 3/8, 0, 5/16 as bits)", shifted[0].get());

    heading("haltonset::computeRR2Perm: reverse-radix digit permutations");
    auto bases = zvhost::matrixOf<double>(1, 4, {2, 5, 7, 13});
    auto perms = s.call("haltonset::computeRR2Perm", 1, {bases.get()});
    for (size_t i = 0; i < 4; ++i) {
        const auto p = zvhost::valuesOf<double>(ndGetCell(perms[0].get(), i));
        std::printf("  base %2zu:", p.size());
        for (double value : p) std::printf(" %2.0f", value);
        std::printf("\n");
    }
}

}  // namespace

ZV_DEMO_SECTION(112, demoQuasirandom);

}  // namespace zvdemo

// pdist2bif: the three modes, their orderings and edges, identifiers,
// thread-count independence, interruption and the nested entry point.
#include <tbb/parallel_for.h>

#include <cmath>
#include <limits>
#include <random>

#include "distance/pdist2.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Inputs {
    Owned x, y, code, param, count, radius, sort;
    std::vector<const ndArray*> list() const {
        return {x.get(), y.get(), code.get(), param.get(), count.get(), radius.get(), sort.get()};
    }
};

Inputs inputs(size_t p, size_t nx, size_t ny, const std::vector<double>& x, const std::vector<double>& y,
              const char* code, double count = kNaN, double radius = kNaN) {
    Inputs in;
    in.x = zvhost::matrixOf<double>(p, nx, std::span<const double>(x));
    in.y = zvhost::matrixOf<double>(p, ny, std::span<const double>(y));
    in.code = zvhost::text(code);
    in.param = zvhost::matrixOf<double>(0, 0);
    in.count = std::isnan(count) ? zvhost::matrixOf<double>(0, 0) : zvhost::scalar(count);
    in.radius = std::isnan(radius) ? zvhost::matrixOf<double>(0, 0) : zvhost::scalar(radius);
    in.sort = zvhost::matrixOf<double>(0, 0);
    return in;
}

std::vector<double> values(const Owned& a) { return zvhost::valuesOf<double>(a.get()); }

TEST(Pdist2, FullMatrixIsColumnMajorOverY) {
    // X on a line at 0, 1, 3; Y at 1, 5.
    auto in = inputs(1, 3, 2, {0, 1, 3}, {1, 5}, "cityblock");
    auto out = zvhost::call(pdist2bif, 2, in.list());
    EXPECT_EQ(ndGetM(out[0].get()), 3u);
    EXPECT_EQ(values(out[0]), (std::vector<double>{1, 0, 2, 5, 4, 2}));
    EXPECT_EQ(values(out[1]), std::vector<double>(6, 0.0));  // the full mode's second output is zeros
}

TEST(Pdist2, NearestAndFarthestBreakTiesByIndexAndPutNaNLast) {
    // Distances from Y = 0: 2, 1, 1, NaN, 2 (index 3 holds a NaN).
    auto in = inputs(1, 5, 1, {2, -1, 1, kNaN, -2}, {0}, "euc", 3);
    auto out = zvhost::call(pdist2bif, 2, in.list());
    EXPECT_EQ(values(out[0]), (std::vector<double>{1, 1, 2}));
    EXPECT_EQ(values(out[1]), (std::vector<double>{2, 3, 1}));
    in.count = zvhost::scalar(-3);  // farthest: numbers first, largest first, ties by index
    out = zvhost::call(pdist2bif, 2, in.list());
    EXPECT_EQ(values(out[0]), (std::vector<double>{2, 2, 1}));
    EXPECT_EQ(values(out[1]), (std::vector<double>{1, 5, 2}));
    in.count = zvhost::scalar(10.9);  // more than nx: all five rows, the NaN last
    out = zvhost::call(pdist2bif, 2, in.list());
    ASSERT_EQ(ndGetM(out[0].get()), 5u);
    EXPECT_TRUE(std::isnan(values(out[0])[4]));
    EXPECT_EQ(values(out[1]), (std::vector<double>{2, 3, 1, 5, 4}));
}

TEST(Pdist2, RadiusIncludesItsBoundaryInEveryMetric) {
    // Integer data: the distances at the radius are exact.
    const std::vector<double> x{0, 0, 3, 4, 1, 0, 6, 8}, y{0, 0};
    for (const char* code : {"euc", "sqe", "cit", "che", "min"}) {
        auto in = inputs(2, 4, 1, x, y, code, kNaN, 5);
        if (std::string(code) == "min") in.param = zvhost::scalar(2);
        auto out = zvhost::call(pdist2bif, 2, in.list());
        const ndArray* hits = ndGetCell(out[1].get(), 0);
        std::vector<double> found = zvhost::valuesOf<double>(hits);
        // euclidean 0, 5, 1, 10; city 0, 7, 1, 14; cheb 0, 4, 1, 8
        const std::string c = code;
        const std::vector<double> expected = c == "cit" ? std::vector<double>{1, 3} : std::vector<double>{1, 3, 2};
        std::sort(found.begin(), found.end());
        auto sortedExpected = expected;
        std::sort(sortedExpected.begin(), sortedExpected.end());
        EXPECT_EQ(found, sortedExpected) << code;
        if (c == "sqe") {  // the radius is a distance; the squares come back
            EXPECT_EQ(zvhost::valuesOf<double>(ndGetCell(out[0].get(), 0)), (std::vector<double>{0, 1, 25}));
        }
    }
}

TEST(Pdist2, RadiusSortFlagAndSelfHits) {
    const auto x = zvtest::normals(3 * 40, 3);
    auto in = inputs(3, 40, 40, x, x, "euc", kNaN, 0);
    auto out = zvhost::call(pdist2bif, 2, in.list());
    for (size_t j = 0; j < 40; ++j)  // radius 0 finds each point itself
        EXPECT_EQ(zvhost::valuesOf<double>(ndGetCell(out[1].get(), j)), (std::vector<double>{double(j + 1)}));
    in.radius = zvhost::scalar(1.5);
    in.sort = zvhost::logicalScalar(false);
    auto unsorted = zvhost::call(pdist2bif, 2, in.list());
    in.sort = zvhost::logicalScalar(true);
    auto sorted = zvhost::call(pdist2bif, 2, in.list());
    for (size_t j = 0; j < 40; ++j) {
        auto ui = zvhost::valuesOf<double>(ndGetCell(unsorted[1].get(), j));
        auto sd = zvhost::valuesOf<double>(ndGetCell(sorted[0].get(), j));
        EXPECT_TRUE(std::is_sorted(ui.begin(), ui.end())) << "unsorted hits are in index order";
        EXPECT_TRUE(std::is_sorted(sd.begin(), sd.end()));
        EXPECT_EQ(ui.size(), sd.size());
    }
}

TEST(Pdist2, EdgesOfSizesAndCodes) {
    auto in = inputs(2, 3, 0, {1, 2, 3, 4, 5, 6}, {}, "euc");
    auto out = zvhost::call(pdist2bif, 1, in.list());
    EXPECT_EQ(ndGetM(out[0].get()), 3u);
    EXPECT_EQ(ndGetN(out[0].get()), 0u);
    in.radius = zvhost::scalar(1);
    out = zvhost::call(pdist2bif, 1, in.list());
    EXPECT_EQ(ndGetClassID(out[0].get()), ndCELL_CLASS);
    EXPECT_EQ(ndGetN(out[0].get()), 0u);
    // An unknown code: zeros in the full and nearest modes, empty cells in the radius mode.
    auto unknown = inputs(1, 2, 2, {1, 2}, {3, 4}, "xyz");
    EXPECT_EQ(values(zvhost::call(pdist2bif, 1, unknown.list())[0]), std::vector<double>(4, 0.0));
    unknown.count = zvhost::scalar(1);
    EXPECT_EQ(values(zvhost::call(pdist2bif, 1, unknown.list())[0]), std::vector<double>(2, 0.0));
    unknown.radius = zvhost::scalar(10);
    auto cells = zvhost::call(pdist2bif, 1, unknown.list());
    EXPECT_EQ(ndGetCell(cells[0].get(), 0), nullptr);
    // A negative radius is no radius; six inputs mean sorted hits.
    auto six = inputs(1, 2, 1, {1, 2}, {0}, "euc", kNaN, -1);
    auto list = six.list();
    list.pop_back();
    EXPECT_EQ(values(zvhost::call(pdist2bif, 1, list)[0]), (std::vector<double>{1, 2}));
    // With no coordinates "seu" reads no weight, so none is missing.
    auto noWeights = inputs(0, 2, 1, {}, {}, "seu");
    EXPECT_EQ(values(zvhost::call(pdist2bif, 1, noWeights.list())[0]), (std::vector<double>{0, 0}));
    // The cosine family: 1 when there are no coordinates.
    auto none = inputs(0, 2, 1, {}, {}, "cos");
    EXPECT_EQ(values(zvhost::call(pdist2bif, 1, none.list())[0]), (std::vector<double>{1, 1}));
}

TEST(Pdist2, Identifiers) {
    auto in = inputs(2, 2, 2, {1, 2, 3, 4}, {1, 2, 3, 4}, "seu");
    auto id = [&](int nout, std::vector<const ndArray*> list) {
        return raisedId([&] { zvhost::call(pdist2bif, nout, list); });
    };
    auto list = in.list();
    EXPECT_EQ(id(1, {list.begin(), list.begin() + 5}), "stats:pdist2bif:TooFewInputs");
    EXPECT_EQ(id(3, list), "stats:pdist2bif:TooManyOutputs");
    Owned sparse(zvhost::createSparse(2, 2, 0));
    auto l2 = list;
    l2[1] = sparse.get();
    EXPECT_EQ(id(1, l2), "stats:pdist2bif:SparseOrComplexInput");
    Owned single = zvhost::matrixOf<float>(2, 2);
    l2 = list;
    l2[1] = single.get();
    EXPECT_EQ(id(1, l2), "stats:pdist2bif:BadInputType");  // mixed classes
    Owned ints = zvhost::matrixOf<int32_t>(2, 2);
    l2 = list;
    l2[0] = l2[1] = ints.get();
    EXPECT_EQ(id(1, l2), "stats:pdist2bif:BadInputType");
    Owned three = zvhost::matrixOf<double>(3, 2);
    l2 = list;
    l2[1] = three.get();
    EXPECT_EQ(id(1, l2), "stats:pdist2bif:XYDimsMismatch");
    Owned weightsSingle = zvhost::matrixOf<float>(1, 2, {1, 1});
    l2 = list;
    l2[3] = weightsSingle.get();
    EXPECT_EQ(id(1, l2), "stats:pdist2bif:MixedInputTypes");
    for (double k : {0.0, 0.4, -0.9, kNaN}) {
        Owned count = zvhost::scalar(k);
        l2 = list;
        l2[4] = count.get();
        EXPECT_EQ(id(1, l2), "stats:pdist2bif:numDistsTooSmall") << k;
    }
    Owned wide(ndCreateNumericMatrix(0, 30000000, ndDOUBLE_CLASS, ndREAL));
    l2 = list;
    l2[0] = l2[1] = wide.get();
    EXPECT_EQ(id(1, l2), "stats:pdist2bif:OutputTooLarge");
    // The same sizes in the radius mode need no test.
    Owned radius = zvhost::scalar(0);
    Owned none(ndCreateNumericMatrix(0, 0, ndDOUBLE_CLASS, ndREAL));
    l2[1] = none.get();
    l2[5] = radius.get();
    EXPECT_EQ(id(1, l2), "");
}

TEST(Pdist2, ModesAgreeAndDoNotDependOnTheThreadCount) {
    const auto x = zvtest::normals(6 * 300, 8), y = zvtest::normals(6 * 70, 9);
    for (const char* code : {"euc", "cit", "min", "ham", "jac", "che", "mah"}) {
        auto in = inputs(6, 300, 70, x, y, code);
        if (std::string(code) == "mah") {
            std::vector<double> r(36, 0.0);
            for (size_t k = 0; k < 6; ++k) r[k * 7] = 1.0 + double(k);
            in.param = zvhost::matrixOf<double>(6, 6, std::span<const double>(r));
        }
        auto full1 = zvtest::withThreads(1, [&] { return values(zvhost::call(pdist2bif, 1, in.list())[0]); });
        auto full2 = zvtest::withThreads(2, [&] { return values(zvhost::call(pdist2bif, 1, in.list())[0]); });
        EXPECT_EQ(full1, full2) << code;
        in.count = zvhost::scalar(7);
        auto knn1 = zvtest::withThreads(1, [&] { return zvhost::call(pdist2bif, 2, in.list()); });
        auto knn2 = zvtest::withThreads(2, [&] { return zvhost::call(pdist2bif, 2, in.list()); });
        EXPECT_EQ(values(knn1[0]), values(knn2[0])) << code;
        EXPECT_EQ(values(knn1[1]), values(knn2[1])) << code;
        // The nearest distances are the matching entries of the full matrix.
        const auto d = values(knn1[0]), ix = values(knn1[1]);
        for (size_t j = 0; j < 70; ++j)
            for (size_t k = 0; k < 7; ++k)
                EXPECT_EQ(d[j * 7 + k], full1[j * 300 + size_t(ix[j * 7 + k]) - 1]) << code;
    }
}

TEST(Pdist2, InterruptFromAWorkerReachesTheCallerWithNothingLeaked) {
    const auto x = zvtest::normals(4 * 3000, 1);
    for (double count : {kNaN, 5.0}) {
        auto in = inputs(4, 3000, 3000, x, x, "euc", count);
        zvtest::LeakCheck leaks;
        zvhost::interruptAfterPolls(3);
        EXPECT_EQ(raisedId([&] { zvtest::withThreads(2, [&] { return zvhost::call(pdist2bif, 2, in.list()); }); }),
                  "zvhost:Interrupted");
    }
}

TEST(Pdist2, NestedEntryPointRunsInsideWorkersWithTheGivenHandle) {
    const auto x = zvtest::normals(3 * 200, 2);
    auto in = inputs(3, 200, 1, x, {0, 0, 0}, "euc", 4);
    auto reference = values(zvhost::call(pdist2bif, 1, in.list())[0]);
    const auto handle = hostGetInterruptStateData();
    zvtest::LeakCheck leaks;
    tbb::parallel_for(0, 8, [&](int) {
        ndArray* out[1] = {nullptr};
        auto list = in.list();
        pdist2bifNested(1, out, 7, list.data(), handle);
        Owned result(out[0]);
        EXPECT_EQ(zvhost::valuesOf<double>(result.get()), reference);
    });
}

}  // namespace

// pdist2bif: the three modes, their orderings and edges, identifiers,
// thread-count independence, interruption and the nested entry point.
#include <tbb/parallel_for.h>

#include "distance/distance_fixtures.hpp"
#include "distance/pdist2.hpp"

namespace {

using namespace zvtest::distance;
using zvtest::raisedId;

struct Inputs {
    Owned x, y, code, param, count, radius, sort;
    std::vector<const ndArray*> list() const {
        return {x.get(), y.get(), code.get(), param.get(), count.get(), radius.get(), sort.get()};
    }
};

// A NaN count or radius stands for an empty input.
Inputs inputs(size_t p, size_t nx, size_t ny, const std::vector<double>& x, const std::vector<double>& y,
              const char* code, double count = kNaN, double radius = kNaN) {
    auto scalarOrEmpty = [](double v) { return std::isnan(v) ? zvhost::matrixOf<double>(0, 0) : zvhost::scalar(v); };
    return {zvhost::matrixOf<double>(p, nx, std::span<const double>(x)),
            zvhost::matrixOf<double>(p, ny, std::span<const double>(y)), zvhost::text(code),
            zvhost::matrixOf<double>(0, 0), scalarOrEmpty(count), scalarOrEmpty(radius),
            zvhost::matrixOf<double>(0, 0)};
}

std::vector<double> values(const Owned& a) { return zvhost::valuesOf<double>(a.get()); }
std::vector<double> first(const Inputs& in) { return values(zvhost::call(pdist2bif, 1, in.list())[0]); }

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
    // Integer data: the distances at the radius are exact. Euclidean 0, 5,
    // 1, 10; city block 0, 7, 1, 14; Chebychev 0, 4, 1, 8.
    const std::vector<double> x{0, 0, 3, 4, 1, 0, 6, 8}, y{0, 0};
    for (std::string code : {"euc", "sqe", "cit", "che", "min"}) {
        auto in = inputs(2, 4, 1, x, y, code.c_str(), kNaN, 5);
        if (code == "min") in.param = zvhost::scalar(2);
        auto out = zvhost::call(pdist2bif, 2, in.list());
        EXPECT_EQ(zvhost::valuesOf<double>(ndGetCell(out[1].get(), 0)),
                  code == "cit" ? (std::vector<double>{1, 3}) : (std::vector<double>{1, 3, 2}))
            << code;
        if (code == "sqe")  // the radius is a distance; the squares come back
            EXPECT_EQ(zvhost::valuesOf<double>(ndGetCell(out[0].get(), 0)), (std::vector<double>{0, 1, 25}));
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
    EXPECT_TRUE(ndGetM(out[0].get()) == 3 && ndGetN(out[0].get()) == 0);
    in.radius = zvhost::scalar(1);
    out = zvhost::call(pdist2bif, 1, in.list());
    EXPECT_TRUE(ndGetClassID(out[0].get()) == ndCELL_CLASS && ndGetN(out[0].get()) == 0);
    // An unknown code: zeros in the full and nearest modes, empty cells in the radius mode.
    auto unknown = inputs(1, 2, 2, {1, 2}, {3, 4}, "xyz");
    EXPECT_EQ(first(unknown), std::vector<double>(4, 0.0));
    unknown.count = zvhost::scalar(1);
    EXPECT_EQ(first(unknown), std::vector<double>(2, 0.0));
    unknown.radius = zvhost::scalar(10);
    EXPECT_EQ(ndGetCell(zvhost::call(pdist2bif, 1, unknown.list())[0].get(), 0), nullptr);
    // A negative radius is no radius; six inputs mean sorted hits.
    auto six = inputs(1, 2, 1, {1, 2}, {0}, "euc", kNaN, -1);
    auto list = six.list();
    list.pop_back();
    EXPECT_EQ(values(zvhost::call(pdist2bif, 1, list)[0]), (std::vector<double>{1, 2}));
    // No coordinates: the cosine family gives 1; "seu" reads no weight, so none is missing.
    EXPECT_EQ(first(inputs(0, 2, 1, {}, {}, "cos")), (std::vector<double>{1, 1}));
    EXPECT_EQ(first(inputs(0, 2, 1, {}, {}, "seu")), (std::vector<double>{0, 0}));
    // Weights or a factor too short to read give NaN in every mode.
    for (const char* code : {"seu", "mah"}) {
        auto shortParameter = inputs(2, 2, 1, {1, 2, 3, 4}, {0, 0}, code);
        shortParameter.param = zvhost::matrixOf<double>(1, 1, {1});
        expectAllNaN(first(shortParameter), code);
        shortParameter.count = zvhost::scalar(1);
        expectAllNaN(first(shortParameter), code);
    }
}

TEST(Pdist2, Identifiers) {
    auto in = inputs(2, 2, 2, {1, 2, 3, 4}, {1, 2, 3, 4}, "seu");
    // The identifier of the call with inputs replaced at their positions,
    // and the list cut to `count`.
    auto id = [&](int nout, std::vector<std::pair<size_t, const ndArray*>> replaced, size_t count = 7) {
        auto l = in.list();
        for (auto [at, a] : replaced) l[at] = a;
        l.resize(count);
        return raisedId([&] { zvhost::call(pdist2bif, nout, l); });
    };
    const std::string prefix = "stats:pdist2bif:";
    Owned sparse(zvhost::createSparse(2, 2, 0)), single = zvhost::matrixOf<float>(2, 2);
    Owned ints = zvhost::matrixOf<int32_t>(2, 2), three = zvhost::matrixOf<double>(3, 2);
    Owned weightsSingle = zvhost::matrixOf<float>(1, 2, {1, 1});
    EXPECT_EQ(id(1, {}, 5), prefix + "TooFewInputs");
    EXPECT_EQ(id(3, {}), prefix + "TooManyOutputs");
    EXPECT_EQ(id(1, {{1, sparse.get()}}), prefix + "SparseOrComplexInput");
    EXPECT_EQ(id(1, {{1, single.get()}}), prefix + "BadInputType");  // mixed classes
    EXPECT_EQ(id(1, {{0, ints.get()}, {1, ints.get()}}), prefix + "BadInputType");
    EXPECT_EQ(id(1, {{1, three.get()}}), prefix + "XYDimsMismatch");
    EXPECT_EQ(id(1, {{3, weightsSingle.get()}}), prefix + "MixedInputTypes");
    for (double k : {0.0, 0.4, -0.9, kNaN})
        EXPECT_EQ(id(1, {{4, zvhost::scalar(k).get()}}), prefix + "numDistsTooSmall") << k;
    Owned wide(ndCreateNumericMatrix(0, 30000000, ndDOUBLE_CLASS, ndREAL));
    EXPECT_EQ(id(1, {{0, wide.get()}, {1, wide.get()}}), prefix + "OutputTooLarge");
    // The same sizes in the radius mode need no test.
    Owned radius = zvhost::scalar(0), none(ndCreateNumericMatrix(0, 0, ndDOUBLE_CLASS, ndREAL));
    EXPECT_EQ(id(1, {{0, wide.get()}, {1, none.get()}, {5, radius.get()}}), "");
}

TEST(Pdist2, ModesAgreeAndDoNotDependOnTheThreadCount) {
    const auto x = zvtest::normals(6 * 300, 8), y = zvtest::normals(6 * 70, 9);
    for (std::string code : {"euc", "cit", "min", "ham", "jac", "che", "mah"}) {
        auto in = inputs(6, 300, 70, x, y, code.c_str());
        if (code == "mah") {
            std::vector<double> r(36, 0.0);
            for (size_t k = 0; k < 6; ++k) r[k * 7] = 1.0 + double(k);
            in.param = zvhost::matrixOf<double>(6, 6, std::span<const double>(r));
        }
        expectThreadCountFree([&] { return first(in); }, code);
        const auto full = first(in);
        in.count = zvhost::scalar(7);
        auto both = [&] {
            auto out = zvhost::call(pdist2bif, 2, in.list());
            auto d = values(out[0]), ix = values(out[1]);
            d.insert(d.end(), ix.begin(), ix.end());
            return d;
        };
        expectThreadCountFree(both, code);
        // The nearest distances are the matching entries of the full matrix.
        const auto knn = both();
        for (size_t j = 0; j < 70; ++j)
            for (size_t k = 0; k < 7; ++k)
                EXPECT_EQ(knn[j * 7 + k], full[j * 300 + size_t(knn[490 + j * 7 + k]) - 1]) << code;
    }
}

TEST(Pdist2, InterruptFromAWorkerReachesTheCallerWithNothingLeaked) {
    const auto x = zvtest::normals(4 * 3000, 1);
    for (double count : {kNaN, 5.0}) {
        auto in = inputs(4, 3000, 3000, x, x, "euc", count);
        expectInterruptible([&] { return zvhost::call(pdist2bif, 2, in.list()); });
    }
}

TEST(Pdist2, NestedEntryPointRunsInsideWorkersWithTheGivenHandle) {
    const auto x = zvtest::normals(3 * 200, 2);
    auto in = inputs(3, 200, 1, x, {0, 0, 0}, "euc", 4);
    const auto reference = first(in);
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

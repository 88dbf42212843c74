// linkagebif: hand-worked trees, a plain full-matrix reference on tied and
// missing distances, single linkage by its spanning tree, the memory-saving
// mode, the host's "pdist" route, identifiers in their order, edge cases and
// thread-count independence.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>

#include "clustering/linkage_reference.hpp"
#include "clustering/linkage_updates.hpp"
#include "support/gateways.hpp"
#include "support/linked_gateways.hpp"
#include "gateway_declarations.hpp"

namespace {

using zvhost::Owned;
using zvtest::expectBitEqual;
using zvtest::raisedId;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();
const std::vector<std::string> kMethods{"si", "co", "av", "we", "ce", "me", "wa"};

template <class T>
std::vector<T> linkage(const std::vector<T>& condensed, const std::string& method) {
    Owned y = zvhost::matrixOf<T>(1, condensed.size(), std::span<const T>(condensed));
    Owned m = zvhost::text(method);
    auto out = zvhost::call(linkagebif, 1, {y.get(), m.get()});
    EXPECT_EQ(ndGetN(out[0].get()), 3u);
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return zvhost::valuesOf<T>(out[0].get());
}

template <class T>
std::vector<T> memorySaving(const std::vector<T>& x, size_t p, size_t n, const std::string& method) {
    Owned xa = zvhost::matrixOf<T>(p, n, std::span<const T>(x));
    Owned m = zvhost::text(method), none(ndCreateCellMatrix(1, 0)), yes = zvhost::logicalScalar(true);
    return zvhost::valuesOf<T>(zvhost::call(linkagebif, 1, {xa.get(), m.get(), none.get(), yes.get()})[0].get());
}

std::vector<double> reference(const std::vector<double>& y, size_t n, const std::string& method) {
    return zvtest::ReferenceLinkage(y, n, method).run();
}

// Each label 1 .. 2n-2 is merged exactly once, and only after it exists.
void expectValidTree(const std::vector<double>& z, size_t n) {
    std::set<double> used;
    for (size_t k = 0; k + 1 < n; ++k)
        for (size_t c = 0; c < 2; ++c) {
            const double label = z[k + c * (n - 1)];
            ASSERT_GE(label, 1);
            ASSERT_LT(label, double(n + k + 1)) << "row " << k;
            ASSERT_TRUE(used.insert(label).second) << "label " << label << " merged twice";
        }
}

// The merge heights, sorted: the chain may give its rows in another order.
template <class T>
std::vector<double> sortedHeights(const std::vector<T>& z) {
    std::vector<double> h(z.begin() + 2 * (z.size() / 3), z.end());
    std::sort(h.begin(), h.end());
    return h;
}

// Euclidean or city-block condensed distances of n points (x p-by-n).
std::vector<double> condensedOf(const std::vector<double>& x, size_t p, size_t n, bool cityBlock = false) {
    std::vector<double> y;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j) {
            double s = 0;
            for (size_t k = 0; k < p; ++k) {
                const double t = x[i * p + k] - x[j * p + k];
                s += cityBlock ? std::abs(t) : t * t;
            }
            y.push_back(cityBlock ? s : std::sqrt(s));
        }
    return y;
}

TEST(Linkage, PointsOnALineByHand) {
    // Points 0, 1, 3, 7: pairs (0,1) (0,2) (0,3) (1,2) (1,3) (2,3).
    const std::vector<double> y{1, 3, 7, 2, 6, 4};
    expectBitEqual(linkage(y, "single"), {1, 3, 4, 2, 5, 6, 1, 2, 4});
    expectBitEqual(linkage(y, "complete"), {1, 3, 4, 2, 5, 6, 1, 3, 7});
    // average: d({0,1},2) = 2.5, d({0,1},3) = 6.5, then (2/3) 6.5 + (1/3) 4.
    const auto a = linkage(y, "average");
    expectBitEqual(std::vector<double>(a.begin(), a.begin() + 8), {1, 3, 4, 2, 5, 6, 1, 2.5});
    EXPECT_NEAR(a[8], 17.0 / 3.0, 1e-12);
    expectBitEqual(linkage(y, "weighted"), {1, 3, 4, 2, 5, 6, 1, 2.5, 5.25});
    // On a line the centroid distance is the distance of the means: 0.5 to 3
    // is 2.5, then 4/3 to 7 is 17/3.
    const auto c = linkage(y, "centroid");
    EXPECT_DOUBLE_EQ(c[7], 2.5);
    EXPECT_DOUBLE_EQ(c[8], 17.0 / 3.0);
    // ward height: sqrt(2 na nb / (na + nb)) times the distance of the means.
    const auto w = linkage(y, "ward");
    EXPECT_DOUBLE_EQ(w[6], 1.0);
    EXPECT_NEAR(w[7], std::sqrt(2.0 * 2 * 1 / 3) * 2.5, 1e-12);
    EXPECT_NEAR(w[8], std::sqrt(2.0 * 3 * 1 / 4) * (7 - 4.0 / 3), 1e-12);
    // Four slots at distance 1: the last slot and its last neighbour go first;
    // with every value NaN the list algorithm joins the slots in their order.
    expectBitEqual(linkage(std::vector<double>(6, 1.0), "single"), {3, 2, 1, 4, 5, 6, 1, 1, 1});
    expectBitEqual(linkage(std::vector<double>(6, kNaN), "single"), {1, 3, 4, 2, 5, 6, kNaN, kNaN, kNaN});
}

TEST(Linkage, AgreesWithThePlainReferenceOnTiesAndNaNs) {
    std::mt19937 gen(5);
    for (size_t n : {2u, 3u, 5u, 9u, 17u, 40u})
        for (int trial = 0; trial < 6; ++trial) {
            std::vector<double> y(n * (n - 1) / 2);
            std::uniform_int_distribution<int> small(1, 4);
            std::uniform_real_distribution<double> u;
            for (auto& v : y) v = u(gen) < 0.08 * trial ? kNaN : double(small(gen));
            for (const auto& m : kMethods) {
                SCOPED_TRACE(m + " n=" + std::to_string(n) + " trial " + std::to_string(trial));
                const auto z = linkage(y, m);
                expectBitEqual(z, reference(y, n, m));
                expectValidTree(z, n);
            }
        }
    for (double v : {1.0, kNaN})
        for (const auto& m : kMethods) {
            const std::vector<double> same(6, v);
            expectBitEqual(linkage(same, m), reference(same, 4, m));
        }
    // Long column walks and many ties, on one thread and on two.
    for (size_t n : {400u, 1500u}) {
        std::uniform_int_distribution<int> wide(1, 200);
        std::vector<double> y(n * (n - 1) / 2);
        for (auto& v : y) v = double(wide(gen));
        for (const auto& m : kMethods) {
            if (n > 1000 && m != "si" && m != "av") continue;
            const auto z = zvtest::withThreads(1, [&] { return linkage(y, m); });
            if (n > 1000) expectBitEqual(z, reference(y, n, m));
            expectBitEqual(zvtest::withThreads(2, [&] { return linkage(y, m); }), z);
        }
    }
}

TEST(Linkage, SinglePrecisionOnExactValues) {
    std::mt19937 gen(9);
    std::uniform_int_distribution<int> small(1, 6);
    const size_t n = 30;
    std::vector<double> y(n * (n - 1) / 2);
    for (auto& v : y) v = double(small(gen));
    const std::vector<float> yf(y.begin(), y.end());
    for (const auto& m : kMethods) {
        const auto zf = linkage(yf, m);
        const auto zd = linkage(y, m);
        if (m == "si" || m == "co" || m == "we") expectBitEqual(zf, std::vector<float>(zd.begin(), zd.end()));
        const auto hf = sortedHeights(zf), hd = sortedHeights(zd);
        for (size_t k = 0; k < hd.size(); ++k) EXPECT_NEAR(hf[k], hd[k], 1e-4 * (1 + hd[k])) << m;
    }
}

TEST(Linkage, SingleOnDistinctHeightsByItsSpanningTree) {
    // Continuous distances: every merge height differs, the case single
    // linkage serves from a spanning tree of the caller's vector.
    for (size_t n : {2u, 3u, 7u, 50u, 400u}) {
        const auto y = condensedOf(zvtest::normals(3 * n, unsigned(n)), 3, n);
        expectBitEqual(linkage(y, "si"), reference(y, n, "si"));
        const std::vector<float> yf(y.begin(), y.end());
        const auto reff = reference(std::vector<double>(yf.begin(), yf.end()), n, "si");
        expectBitEqual(linkage(yf, "si"), std::vector<float>(reff.begin(), reff.end()));
    }
    // Points 0, 1, 3, 6 and 6.5 on a line: 0-3 ties the tree edge 3-6 at 3,
    // and 1-6 ties nothing; the tree's own heights stay distinct.
    const std::vector<double> line = condensedOf({0, 1, 3, 6, 6.5}, 1, 5, true);
    expectBitEqual(linkage(line, "si"), reference(line, 5, "si"));
    // Tied tree heights, a duplicate point, -0, a negative value and an
    // infinity each take the list algorithm's rules.
    const auto y = condensedOf(zvtest::normals(3 * 30, 3), 3, 30);
    for (auto [at, value] : {std::pair<size_t, double>{5, 0.0}, {5, -0.0}, {9, -1.0}, {9, kInf}}) {
        auto v = y;
        v[at] = value;
        if (at == 5) v[6] = value;  // two equal least heights
        const auto ref = reference(v, 30, "si"), z = linkage(v, "si");
        expectBitEqual(z, ref);
        for (size_t k = 0; k < 29; ++k) EXPECT_EQ(std::signbit(z[58 + k]), std::signbit(ref[58 + k])) << k;
    }
    // Many rows: the component pass is parallel.
    const auto big = condensedOf(zvtest::normals(4 * 1500, 21), 4, 1500);
    const auto one = zvtest::withThreads(1, [&] { return linkage(big, "si"); });
    expectBitEqual(one, reference(big, 1500, "si"));
    expectBitEqual(zvtest::withThreads(2, [&] { return linkage(big, "si"); }), one);
}

TEST(Linkage, RunSearchKeepsTheScanRule) {
    // The two-pass search of a run against one offer at a time: least value,
    // last of equals, NaN never, infinity taken when nothing is smaller.
    const std::vector<std::vector<double>> runs{
        {3, 1, 2, 1, kNaN}, {kNaN, kNaN}, {kInf, kNaN, kInf}, {0.0, -0.0, 5}, {}, {2}, {1, 1, 1}};
    for (const auto& start : {kInf, 1.0}) {
        zv::clustering::Nearest<double> one(99), run(99);
        one.best = run.best = start;
        uint64_t base = 0;
        for (const auto& r : runs) {
            for (size_t i = 0; i < r.size(); ++i) one.offer(base + i, r[i]);
            run.offerRun(base, r.data(), r.size());
            EXPECT_EQ(run.at, one.at) << "after run at " << base;
            EXPECT_EQ(run.best, one.best);
            EXPECT_EQ(std::signbit(run.best), std::signbit(one.best));
            base += r.size();
        }
    }
}

TEST(Linkage, EdgeSizes) {
    zvtest::LeakCheck leaks;
    for (const auto& m : kMethods) {
        EXPECT_TRUE(linkage(std::vector<double>{}, m).empty());
        expectBitEqual(linkage(std::vector<double>{2.0}, m), {1, 2, 2});
        // Five values are no triangle: n = ceil(sqrt(10)) = 4 needs six; the
        // missing one reads as NaN instead of past the end.
        const auto z = linkage(std::vector<double>{1, 2, 3, 4, 5}, m);
        expectValidTree(z, 4);
        expectBitEqual(z, reference({1, 2, 3, 4, 5, kNaN}, 4, m));
    }
    // A 0-by-4 row of distances has no values to read.
    Owned empty = zvhost::matrixOf<double>(0, 4), si = zvhost::text("single");
    EXPECT_EQ(ndGetM(zvhost::call(linkagebif, 1, {empty.get(), si.get()})[0].get()), 2u);
    // No observations in the memory-saving mode, and one.
    EXPECT_TRUE(memorySaving<double>({}, 3, 0, "ward").empty());
    EXPECT_TRUE(memorySaving<double>({1, 2, 3}, 3, 1, "centroid").empty());
}

TEST(Linkage, MemorySavingMode) {
    zvtest::LeakCheck leaks;
    // Merged clusters sit at a positive distance from all others: taken
    // literally, the repair would make hi its own nearest neighbour (at 0).
    for (const std::string m : {"ce", "me"}) {
        const auto z = memorySaving<double>({0, 0, 1, 0, 10, 0, 11, 0, 30, 0}, 2, 5, m);
        expectValidTree(z, 5);
        for (size_t k = 0; k < 4; ++k) EXPECT_GT(z[8 + k], 0.5) << m;
    }
    // An equilateral triangle: the centroid of the first pair is nearer to
    // the third point than the pair was apart, and nothing sorts the heights.
    const auto z = memorySaving<double>({0, 0, 1, 0, 0.5, std::sqrt(3.0) / 2}, 2, 3, "ce");
    EXPECT_NEAR(z[4], 1.0, 1e-12);
    EXPECT_NEAR(z[5], std::sqrt(3.0) / 2, 1e-12);
    // Long distance sweeps and many repairs run in parallel: one thread and
    // two give the same tree.
    const auto x = zvtest::normals(3 * 3000, 4);
    expectBitEqual(zvtest::withThreads(1, [&] { return memorySaving(x, 3, 3000, "ce"); }),
                   zvtest::withThreads(2, [&] { return memorySaving(x, 3, 3000, "ce"); }));
}

TEST(Linkage, DataThroughTheHostsPdist) {
    zvtest::useLinkedGateways();
    zvtest::LeakCheck leaks;
    // The data is n-by-p, observations as rows; one call of "pdist" with the
    // extra arguments, then the condensed engines on its result.
    const std::vector<double> rows{0, 1, 3, 7, 0, 0, 0, 1};  // points (0, 0), (1, 0), (3, 0), (7, 1)
    Owned data = zvhost::matrixOf<double>(4, 2, std::span<const double>(rows));
    Owned args(ndCreateCellMatrix(1, 1)), empty = zvhost::matrixOf<double>(0, 0), method = zvhost::text("co");
    ndSetCell(args.get(), 0, ndCreateString("cityblock"));
    zvhost::resetCallLog();
    auto out = zvhost::call(linkagebif, 1, {data.get(), method.get(), args.get(), empty.get()});
    EXPECT_EQ(zvhost::callLog(), std::vector<std::string>{"pdist"});
    expectBitEqual(zvhost::valuesOf<double>(out[0].get()), linkage<double>({1, 3, 8, 2, 7, 5}, "co"));
    // A registered "pdist" takes precedence; it gets the data and the
    // arguments, and its result is read by value whatever its class.
    std::vector<size_t> seenInputs;
    Owned small = zvhost::matrixOf<double>(3, 2), two(ndCreateCellMatrix(1, 2)), no = zvhost::matrixOf<bool>(0, 0);
    ndSetCell(two.get(), 0, ndCreateString("minkowski"));
    ndSetCell(two.get(), 1, ndCreateDoubleScalar(3));
    auto withPdist = [&](const char* method, Owned result) {
        zvhost::registerFunction("pdist", [&](int, ndArray** out, int nin, const ndArray**) {
            seenInputs.push_back(size_t(nin));
            out[0] = result ? ndDuplicateArray(result.get()) : nullptr;
        });
        Owned m = zvhost::text(method);
        auto out = zvhost::call(linkagebif, 1, {small.get(), m.get(), two.get(), no.get()});
        zvhost::unregisterFunction("pdist");
        return zvhost::valuesOf<double>(out[0].get());
    };
    expectBitEqual(withPdist("single", zvhost::matrixOf<double>(1, 3, {2, 1, 3})), {1, 2, 3, 4, 1, 2});
    expectBitEqual(withPdist("single", zvhost::matrixOf<int32_t>(1, 3, {2, 1, 3})), {1, 2, 3, 4, 1, 2});
    // Squared for centroid, heights back on the input's scale; a short or
    // missing result reads as NaN.
    expectBitEqual(withPdist("centroid", zvhost::matrixOf<double>(1, 1, {5})), {1, 3, 2, 4, 5, kNaN});
    expectBitEqual(withPdist("centroid", Owned()), {1, 3, 2, 4, kNaN, kNaN});
    EXPECT_EQ(seenInputs, std::vector<size_t>(4, 3));
}

TEST(Linkage, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned y = zvhost::matrixOf<double>(1, 3, {1, 2, 3}), ys = zvhost::matrixOf<float>(1, 3, {1, 2, 3});
    Owned si = zvhost::text("single"), ce = zvhost::text("centroid"), bad = zvhost::text("xx");
    Owned sparse(zvhost::createSparse(1, 3, 0)), complex(zvhost::createComplexMatrix(1, 3));
    Owned ints = zvhost::matrixOf<int32_t>(1, 3), cell(ndCreateCellMatrix(1, 0));
    Owned yes = zvhost::logicalScalar(true), no = zvhost::matrixOf<bool>(0, 0), notLogical = zvhost::scalar(1);
    Owned many(ndCreateCellMatrix(1, 50));
    for (size_t i = 0; i < 50; ++i) ndSetCell(many.get(), i, ndCreateDoubleScalar(1));
    auto id = [](int nout, std::initializer_list<const ndArray*> in) {
        return raisedId([&] { zvhost::call(linkagebif, nout, in); });
    };
    const std::string c = "stats:linkagebif:";
    EXPECT_EQ(id(2, {sparse.get(), bad.get()}), c + "TooManyOutputArguments");
    EXPECT_EQ(id(1, {sparse.get(), bad.get()}), c + "UndefinedFunctionNoSparse");
    EXPECT_EQ(id(1, {complex.get(), bad.get()}), c + "UndefinedFunctionNoComplex");
    EXPECT_EQ(id(1, {ints.get(), bad.get()}), c + "UndefinedFunctionOnlyDoubleOrSingle");
    EXPECT_EQ(id(1, {y.get(), bad.get(), y.get(), y.get()}), c + "UnknownLinkageMethod");
    EXPECT_EQ(id(1, {ys.get(), bad.get()}), c + "UnknownLinkageMethod");
    EXPECT_EQ(id(1, {y.get()}), c + "UnknownLinkageMethod");
    EXPECT_EQ(id(1, {}), c + "UndefinedFunctionOnlyDoubleOrSingle");  // nothing to read a class from
    EXPECT_EQ(id(1, {y.get(), ce.get(), y.get(), notLogical.get()}), c + "ThirdInputInvalid");
    EXPECT_EQ(id(1, {y.get(), si.get(), cell.get(), notLogical.get()}), c + "ForthInputInvalid");
    EXPECT_EQ(id(1, {y.get(), si.get(), many.get(), yes.get()}), c + "MemEffNotCeMeWa");
    EXPECT_EQ(id(1, {y.get(), si.get(), many.get(), no.get()}), c + "ToManyArgumentsForPDIST");
    // The memory-saving mode never calls "pdist", so the count is not tested.
    EXPECT_EQ(id(1, {y.get(), ce.get(), many.get(), yes.get()}), "");
}

TEST(Linkage, SizeLimits) {
    // Oversized arrays are never read: the host's dimensions alone decide.
    Owned huge = zvhost::matrixOf<double>(1, 1), wide = zvhost::matrixOf<double>(1, 1);
    ndSetN(huge.get(), size_t(1) << 45);  // 2^45 * 8 bytes > 2^48 - 1
    ndSetM(wide.get(), size_t(1) << 22);
    ndSetN(wide.get(), size_t(1) << 23);  // 2^45 elements, 2^48 bytes: at the limit
    Owned si = zvhost::text("single"), wa = zvhost::text("ward"), cell(ndCreateCellMatrix(1, 0));
    Owned yes = zvhost::logicalScalar(true);
    EXPECT_EQ(raisedId([&] { zvhost::call(linkagebif, 1, {huge.get(), si.get()}); }),
              "stats:linkagebif:datSizeTooLarge");
    EXPECT_EQ(raisedId([&] { zvhost::call(linkagebif, 1, {wide.get(), wa.get(), cell.get(), yes.get()}); }),
              "stats:linkagebif:dataSizeTooLarge");
    ndSetM(huge.get(), 1), ndSetN(huge.get(), 1);
    ndSetM(wide.get(), 1), ndSetN(wide.get(), 1);
}

}  // namespace

// linkagebif: hand-worked trees, a plain full-matrix reference on tied and
// missing distances, the memory-saving mode, the host's "pdist" route,
// identifiers in their order, edge cases and thread-count independence.
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
    Owned m = zvhost::text(method);
    Owned none(ndCreateCellMatrix(1, 0));
    Owned yes = zvhost::logicalScalar(true);
    auto out = zvhost::call(linkagebif, 1, {xa.get(), m.get(), none.get(), yes.get()});
    return zvhost::valuesOf<T>(out[0].get());
}

template <class T>
void expectSame(const std::vector<T>& a, const std::vector<T>& b, const std::string& what) {
    ASSERT_EQ(a.size(), b.size()) << what;
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::isnan(a[i]) && std::isnan(b[i])) continue;
        ASSERT_EQ(a[i], b[i]) << what << " at " << i;
    }
}

// Each label 1 .. 2n-2 is merged exactly once, and only after it exists.
void expectValidTree(const std::vector<double>& z, size_t n) {
    const size_t rows = n - 1;
    std::set<double> used;
    for (size_t k = 0; k < rows; ++k)
        for (size_t c = 0; c < 2; ++c) {
            const double label = z[k + c * rows];
            ASSERT_GE(label, 1);
            ASSERT_LT(label, double(n + k + 1)) << "row " << k;
            ASSERT_TRUE(used.insert(label).second) << "label " << label << " merged twice";
        }
}

std::vector<double> condensedOf(const std::vector<double>& x, size_t p, size_t n) {
    std::vector<double> y;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j) {
            double s = 0;
            for (size_t k = 0; k < p; ++k) s += (x[i * p + k] - x[j * p + k]) * (x[i * p + k] - x[j * p + k]);
            y.push_back(std::sqrt(s));
        }
    return y;
}

TEST(Linkage, PointsOnALineByHand) {
    // Points 0, 1, 3, 7: pairs (0,1) (0,2) (0,3) (1,2) (1,3) (2,3).
    const std::vector<double> y{1, 3, 7, 2, 6, 4};
    expectSame(linkage(y, "single"), {1, 3, 4, 2, 5, 6, 1, 2, 4}, "single");
    expectSame(linkage(y, "complete"), {1, 3, 4, 2, 5, 6, 1, 3, 7}, "complete");
    // average: d({0,1},2) = 2.5, d({0,1},3) = 6.5, d(2,3) = 4.
    const auto a = linkage(y, "average");
    expectSame(std::vector<double>(a.begin(), a.begin() + 7), {1, 3, 4, 2, 5, 6, 1}, "average");
    EXPECT_EQ(a[7], 2.5);
    EXPECT_NEAR(a[8], 17.0 / 3.0, 1e-12);  // (2/3) 6.5 + (1/3) 4
    expectSame(linkage(y, "weighted"), {1, 3, 4, 2, 5, 6, 1, 2.5, 5.25}, "weighted");
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
}

TEST(Linkage, AllEqualDistancesTakeTheLastSlot) {
    // Four slots at distance 1: the last slot and its last neighbour go first.
    const std::vector<double> y(6, 1.0);
    expectSame(linkage(y, "single"), {3, 2, 1, 4, 5, 6, 1, 1, 1}, "single");
    for (const auto& m : kMethods) {
        const auto z = linkage(y, m);
        expectSame(z, zvtest::ReferenceLinkage(y, 4, m).run(), m);
    }
}

TEST(Linkage, AgreesWithThePlainReferenceOnTiesAndNaNs) {
    std::mt19937 gen(5);
    for (size_t n : {2u, 3u, 5u, 9u, 17u, 40u}) {
        for (int trial = 0; trial < 6; ++trial) {
            std::vector<double> y(n * (n - 1) / 2);
            std::uniform_int_distribution<int> small(1, 4);
            std::uniform_real_distribution<double> u;
            for (auto& v : y) v = u(gen) < 0.08 * trial ? kNaN : double(small(gen));
            for (const auto& m : kMethods) {
                SCOPED_TRACE(m + " n=" + std::to_string(n) + " trial " + std::to_string(trial));
                const auto z = linkage(y, m);
                expectSame(z, zvtest::ReferenceLinkage(y, n, m).run(), m);
                expectValidTree(z, n);
            }
        }
    }
}

TEST(Linkage, AllNaNJoinsInSlotOrder) {
    const std::vector<double> y(6, kNaN);
    // List algorithm: the remaining slots are joined one by one.
    expectSame(linkage(y, "single"), {1, 3, 4, 2, 5, 6, kNaN, kNaN, kNaN}, "single");
    for (const auto& m : kMethods) {
        const auto z = linkage(y, m);
        expectValidTree(z, 4);
        for (size_t k = 0; k < 3; ++k) EXPECT_TRUE(std::isnan(z[6 + k])) << m;
    }
}

TEST(Linkage, SingleMatchesDoubleOnExactValues) {
    std::mt19937 gen(9);
    std::uniform_int_distribution<int> small(1, 6);
    const size_t n = 30;
    std::vector<double> y(n * (n - 1) / 2);
    for (auto& v : y) v = double(small(gen));
    const std::vector<float> yf(y.begin(), y.end());
    for (const std::string m : {"si", "co", "we"}) {
        const auto zd = linkage(y, m);
        const auto zf = linkage(yf, m);
        expectSame(zf, std::vector<float>(zd.begin(), zd.end()), m);
    }
    for (const auto& m : kMethods) {
        const auto zf = linkage(yf, m);
        const auto zd = linkage(y, m);
        std::vector<double> hf(zf.begin() + 2 * (n - 1), zf.end()), hd(zd.begin() + 2 * (n - 1), zd.end());
        std::sort(hf.begin(), hf.end());
        std::sort(hd.begin(), hd.end());
        for (size_t k = 0; k < hd.size(); ++k) EXPECT_NEAR(hf[k], hd[k], 1e-4 * (1 + hd[k])) << m;
    }
}

TEST(Linkage, SingleOnDistinctHeightsAgreesWithTheListAlgorithm) {
    // Continuous distances: every merge height differs, the case single
    // linkage serves from a spanning tree of the caller's vector.
    for (size_t n : {2u, 3u, 7u, 50u, 400u}) {
        const auto y = condensedOf(zvtest::normals(3 * n, unsigned(n)), 3, n);
        const auto ref = zvtest::ReferenceLinkage(y, n, "si").run();
        expectSame(linkage(y, "si"), ref, "n=" + std::to_string(n));
        const std::vector<float> yf(y.begin(), y.end());
        std::vector<double> exact(yf.begin(), yf.end());
        const auto reff = zvtest::ReferenceLinkage(exact, n, "si").run();
        expectSame(linkage(yf, "si"), std::vector<float>(reff.begin(), reff.end()), "single n=" + std::to_string(n));
    }
    // Points 0, 1, 3, 6 and 6.5 on a line: 0-3 ties the tree edge 3-6 at 3,
    // and 1-6 ties nothing; the tree's own heights stay distinct.
    std::vector<double> line;
    const double at[] = {0, 1, 3, 6, 6.5};
    for (size_t i = 0; i < 5; ++i)
        for (size_t j = i + 1; j < 5; ++j) line.push_back(at[j] - at[i]);
    expectSame(linkage(line, "si"), zvtest::ReferenceLinkage(line, 5, "si").run(), "line");
    // Tied tree heights, a duplicate point, -0, a negative value and an
    // infinity each take the list algorithm's rules.
    auto y = condensedOf(zvtest::normals(3 * 30, 3), 3, 30);
    for (auto edit : {std::pair<size_t, double>{5, 0.0}, {5, -0.0}, {9, -1.0}, {9, kInf}}) {
        auto v = y;
        v[edit.first] = edit.second;
        if (edit.first == 5) v[6] = edit.second;  // two equal least heights
        const auto ref = zvtest::ReferenceLinkage(v, 30, "si").run();
        const auto z = linkage(v, "si");
        expectSame(z, ref, "edit " + std::to_string(edit.second));
        for (size_t k = 0; k < 29; ++k) EXPECT_EQ(std::signbit(z[58 + k]), std::signbit(ref[58 + k])) << k;
    }
    // Many rows: the component pass is parallel.
    const auto big = condensedOf(zvtest::normals(4 * 1500, 21), 4, 1500);
    const auto one = zvtest::withThreads(1, [&] { return linkage(big, "si"); });
    expectSame(one, zvtest::ReferenceLinkage(big, 1500, "si").run(), "n=1500");
    expectSame(one, zvtest::withThreads(2, [&] { return linkage(big, "si"); }), "1 vs 2 threads");
}

TEST(Linkage, RunSearchKeepsTheScanRule) {
    // The two-pass search of a run against one offer at a time: least value,
    // last of equals, NaN never, infinity taken when nothing is smaller.
    const double nan = kNaN;
    const std::vector<std::vector<double>> runs{
        {3, 1, 2, 1, nan}, {nan, nan}, {kInf, nan, kInf}, {0.0, -0.0, 5}, {}, {2}, {1, 1, 1}};
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
    // No distances and one distance.
    for (const auto& m : kMethods) {
        EXPECT_TRUE(linkage(std::vector<double>{}, m).empty());
        expectSame(linkage(std::vector<double>{2.0}, m), {1, 2, 2}, m);
    }
    // Five values are no triangle: n = ceil(sqrt(10)) = 4 needs six; the
    // missing one reads as NaN instead of past the end.
    for (const auto& m : kMethods) {
        const auto z = linkage(std::vector<double>{1, 2, 3, 4, 5}, m);
        ASSERT_EQ(z.size(), 9u);
        expectValidTree(z, 4);
        expectSame(z, zvtest::ReferenceLinkage({1, 2, 3, 4, 5, kNaN}, 4, m).run(), m);
    }
    // A 0-by-4 row of distances has no values to read.
    Owned empty = zvhost::matrixOf<double>(0, 4);
    Owned si = zvhost::text("single");
    auto out = zvhost::call(linkagebif, 1, {empty.get(), si.get()});
    EXPECT_EQ(ndGetM(out[0].get()), 2u);
    // No observations in the memory-saving mode, and one.
    EXPECT_TRUE(memorySaving<double>({}, 3, 0, "ward").empty());
    EXPECT_TRUE(memorySaving<double>({1, 2, 3}, 3, 1, "centroid").empty());
}

TEST(Linkage, MemorySavingAgreesWithCondensedCentroidAndMedian) {
    zvtest::LeakCheck leaks;
    for (size_t n : {2u, 7u, 60u, 150u}) {
        const size_t p = 3;
        const auto x = zvtest::normals(p * n, unsigned(n));
        const auto y = condensedOf(x, p, n);
        for (const std::string m : {"ce", "me"}) {
            const auto zv = memorySaving(x, p, n, m);
            const auto zc = linkage(y, m);
            expectValidTree(zv, n);
            ASSERT_EQ(zv.size(), zc.size());
            for (size_t i = 0; i < zv.size(); ++i) EXPECT_NEAR(zv[i], zc[i], 1e-9 * (1 + std::abs(zc[i]))) << m << " " << i;
        }
        // ward by the chain: same merges up to the order of the rows.
        auto zv = memorySaving(x, p, n, "wa");
        auto zc = linkage(y, "wa");
        expectValidTree(zv, n);
        std::vector<double> hv(zv.begin() + 2 * (n - 1), zv.end()), hc(zc.begin() + 2 * (n - 1), zc.end());
        std::sort(hv.begin(), hv.end());
        std::sort(hc.begin(), hc.end());
        for (size_t k = 0; k < hv.size(); ++k) EXPECT_NEAR(hv[k], hc[k], 1e-9 * (1 + hc[k]));
    }
}

TEST(Linkage, MemorySavingRepairNeverMakesASlotItsOwnNeighbour) {
    // Merged clusters sit at a positive distance from all others: taken
    // literally, the repair would make hi its own nearest neighbour (at 0)
    // and merge it with itself next.
    const std::vector<double> x{0, 0, 1, 0, 10, 0, 11, 0, 30, 0};
    for (const std::string m : {"ce", "me"}) {
        const auto z = memorySaving(x, 2, 5, m);
        expectValidTree(z, 5);
        for (size_t k = 0; k < 4; ++k) EXPECT_GT(z[8 + k], 0.5) << m;
    }
}

TEST(Linkage, MemorySavingCentroidInversion) {
    // An equilateral triangle: the centroid of the first pair is nearer to
    // the third point than the pair was apart.
    const std::vector<double> x{0, 0, 1, 0, 0.5, std::sqrt(3.0) / 2};
    const auto z = memorySaving(x, 2, 3, "ce");
    EXPECT_NEAR(z[4], 1.0, 1e-12);
    EXPECT_NEAR(z[5], std::sqrt(3.0) / 2, 1e-12);
    EXPECT_LT(z[5], z[4]);
}

TEST(Linkage, DataThroughTheHostsPdist) {
    zvtest::useLinkedGateways();
    zvtest::LeakCheck leaks;
    const size_t n = 25, p = 3;
    const auto x = zvtest::normals(p * n, 3);  // p-by-n
    std::vector<double> rows(n * p);        // n-by-p, observations as rows
    for (size_t i = 0; i < n; ++i)
        for (size_t k = 0; k < p; ++k) rows[i + k * n] = x[k + i * p];
    Owned data = zvhost::matrixOf<double>(n, p, std::span<const double>(rows));
    Owned args(ndCreateCellMatrix(1, 1));
    ndSetCell(args.get(), 0, ndCreateString("cityblock"));
    Owned empty = zvhost::matrixOf<double>(0, 0);
    std::vector<double> cityblock;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j) {
            double s = 0;
            for (size_t k = 0; k < p; ++k) s += std::abs(x[i * p + k] - x[j * p + k]);
            cityblock.push_back(s);
        }
    for (const auto& m : kMethods) {
        Owned method = zvhost::text(m);
        zvhost::resetCallLog();
        auto out = zvhost::call(linkagebif, 1, {data.get(), method.get(), args.get(), empty.get()});
        EXPECT_EQ(zvhost::callLog(), std::vector<std::string>{"pdist"});
        const auto z = zvhost::valuesOf<double>(out[0].get());
        const auto expected = linkage(cityblock, m);
        for (size_t i = 0; i < z.size(); ++i) EXPECT_NEAR(z[i], expected[i], 1e-12) << m;
    }
}

TEST(Linkage, RegisteredPdistTakesPrecedence) {
    zvtest::useLinkedGateways();
    zvtest::LeakCheck leaks;
    std::vector<size_t> seenInputs;
    zvhost::registerFunction("pdist", [&](int, ndArray** out, int nin, const ndArray** in) {
        seenInputs.push_back(size_t(nin));
        EXPECT_EQ(ndGetM(in[0]), 3u);
        out[0] = zvhost::matrixOf<double>(1, 3, {2, 1, 3}).release();
    });
    Owned data = zvhost::matrixOf<double>(3, 2);
    Owned args(ndCreateCellMatrix(1, 2));
    ndSetCell(args.get(), 0, ndCreateString("minkowski"));
    ndSetCell(args.get(), 1, ndCreateDoubleScalar(3));
    Owned no = zvhost::matrixOf<bool>(0, 0);
    Owned si = zvhost::text("single");
    auto out = zvhost::call(linkagebif, 1, {data.get(), si.get(), args.get(), no.get()});
    zvhost::unregisterFunction("pdist");
    EXPECT_EQ(seenInputs, std::vector<size_t>{3});
    expectSame(zvhost::valuesOf<double>(out[0].get()), {1, 2, 3, 4, 1, 2}, "registered");
    // Squared for centroid, heights back on the input's scale.
    zvhost::registerFunction("pdist", [&](int, ndArray** out, int, const ndArray**) {
        out[0] = zvhost::matrixOf<double>(1, 1, {5}).release();  // short: the rest reads as NaN
    });
    Owned ce = zvhost::text("centroid");
    out = zvhost::call(linkagebif, 1, {data.get(), ce.get(), args.get(), no.get()});
    zvhost::unregisterFunction("pdist");
    const auto z = zvhost::valuesOf<double>(out[0].get());
    EXPECT_EQ(z[4], 5.0);
    EXPECT_TRUE(std::isnan(z[5]));
}

TEST(Linkage, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned y = zvhost::matrixOf<double>(1, 3, {1, 2, 3});
    Owned ys = zvhost::matrixOf<float>(1, 3, {1, 2, 3});
    Owned si = zvhost::text("single"), ce = zvhost::text("centroid"), bad = zvhost::text("xx");
    Owned sparse(zvhost::createSparse(1, 3, 0));
    Owned complex(zvhost::createComplexMatrix(1, 3));
    Owned ints = zvhost::matrixOf<int32_t>(1, 3);
    Owned cell(ndCreateCellMatrix(1, 0));
    Owned yes = zvhost::logicalScalar(true), no = zvhost::matrixOf<bool>(0, 0);
    Owned notLogical = zvhost::scalar(1);
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
    Owned huge = zvhost::matrixOf<double>(1, 1);
    ndSetN(huge.get(), size_t(1) << 45);  // 2^45 * 8 bytes > 2^48 - 1
    Owned si = zvhost::text("single"), wa = zvhost::text("ward");
    EXPECT_EQ(raisedId([&] { zvhost::call(linkagebif, 1, {huge.get(), si.get()}); }), "stats:linkagebif:datSizeTooLarge");
    Owned wide = zvhost::matrixOf<double>(1, 1);
    ndSetM(wide.get(), size_t(1) << 22);
    ndSetN(wide.get(), size_t(1) << 23);  // 2^45 elements, 2^48 bytes: at the limit
    Owned cell(ndCreateCellMatrix(1, 0));
    Owned yes = zvhost::logicalScalar(true);
    EXPECT_EQ(raisedId([&] { zvhost::call(linkagebif, 1, {wide.get(), wa.get(), cell.get(), yes.get()}); }),
              "stats:linkagebif:dataSizeTooLarge");
    ndSetM(huge.get(), 1), ndSetN(huge.get(), 1);
    ndSetM(wide.get(), 1), ndSetN(wide.get(), 1);
}

TEST(Linkage, LargerProblemsAgreeWithTheReference) {
    // One method of each algorithm on long column walks and many ties.
    const size_t n = 1500;
    std::mt19937 gen(13);
    std::uniform_int_distribution<int> small(1, 200);
    std::vector<double> y(n * (n - 1) / 2);
    for (auto& v : y) v = double(small(gen));
    for (const std::string m : {"si", "av"}) {
        const auto z = linkage(y, m);
        expectSame(z, zvtest::ReferenceLinkage(y, n, m).run(), m);
        expectSame(z, zvtest::withThreads(1, [&] { return linkage(y, m); }), m + " on one thread");
    }
}

TEST(Linkage, OneAndTwoThreadsAgree) {
    const size_t n = 400;
    std::mt19937 gen(11);
    std::uniform_int_distribution<int> small(1, 30);
    std::vector<double> y(n * (n - 1) / 2);
    for (auto& v : y) v = double(small(gen));
    for (const auto& m : kMethods) {
        const auto one = zvtest::withThreads(1, [&] { return linkage(y, m); });
        const auto two = zvtest::withThreads(2, [&] { return linkage(y, m); });
        expectSame(one, two, m);
    }
}

}  // namespace

// silhouette: identifiers in order, the means of one point by hand and their
// edge cases, every row of the data form against the one-point form on the
// nested call's distances, impossible cluster counts, thread counts and
// interruption from a worker.
#include <cmath>
#include <limits>
#include <random>
#include <span>

#include "clustering/silhouette_tiles.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Point j in cluster[j] (1-based; others in none).
Owned maskOf(size_t rows, size_t K, const std::vector<int>& cluster) {
    Owned m = zvhost::matrixOf<bool>(rows, K);
    for (size_t j = 0; j < cluster.size(); ++j)
        if (cluster[j] >= 1 && size_t(cluster[j]) <= K) ndGetLogicals(m.get())[(cluster[j] - 1) * rows + j] = true;
    return m;
}

struct Means {
    std::vector<double> within, between;
};

template <class T = double>
Means onePoint(const std::vector<T>& d, const ndArray* mask, const std::vector<T>& counts, double K, double own) {
    Owned dist = zvhost::matrixOf<T>(d.size(), 1, std::span<const T>(d));
    Owned c = zvhost::matrixOf<T>(1, counts.size(), std::span<const T>(counts));
    Owned k = zvhost::scalar(K), o = zvhost::scalar(own);
    auto out = zvhost::call(silhouette, 2, {dist.get(), mask, c.get(), k.get(), o.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    EXPECT_EQ(ndGetM(out[1].get()), 1u);
    EXPECT_EQ(ndGetN(out[1].get()), size_t(K));
    Means m;
    for (T v : zvhost::valuesOf<T>(out[0].get())) m.within.push_back(double(v));
    for (T v : zvhost::valuesOf<T>(out[1].get())) m.between.push_back(double(v));
    return m;
}

TEST(Silhouette, IdentifiersComeInTheirOrder) {
    zvtest::LeakCheck leaks;
    Owned d = zvhost::matrixOf<double>(2, 1, {0, 1});
    Owned i32 = zvhost::matrixOf<int32_t>(2, 1), logical = zvhost::matrixOf<bool>(2, 1);
    Owned mask = maskOf(2, 1, {1, 1});
    Owned counts = zvhost::matrixOf<double>(1, 1, {2});
    Owned K = zvhost::scalar(1), own = zvhost::scalar(1), euc = zvhost::text("euc");
    auto id = [&](int numOutputs, std::vector<const ndArray*> in) {
        return raisedId([&] { zvhost::call(silhouette, numOutputs, in); });
    };
    EXPECT_EQ(id(1, {i32.get(), mask.get(), counts.get(), K.get()}), "stats:silhouette:IncorrectNumInputs");
    EXPECT_EQ(id(3, {}), "stats:silhouette:IncorrectNumInputs");
    EXPECT_EQ(id(1, {i32.get(), mask.get(), counts.get(), K.get(), own.get()}), "stats:silhouette:IncorrectNumOutputs");
    EXPECT_EQ(id(3, {i32.get(), mask.get(), counts.get(), K.get(), own.get()}), "stats:silhouette:IncorrectNumOutputs");
    EXPECT_EQ(id(2, {i32.get(), mask.get(), counts.get(), K.get(), own.get()}), "stats:silhouette:BadInputType");
    EXPECT_EQ(id(2, {logical.get(), mask.get(), counts.get(), K.get(), own.get(), euc.get()}),
              "stats:silhouette:BadInputType");
    EXPECT_EQ(id(2, {d.get(), mask.get(), counts.get(), K.get(), own.get()}), "");
    // Sparse or complex data reaches the nested distance call, which refuses it.
    Owned sparse(zvhost::createSparse(2, 1, 0)), complex(zvhost::createComplexMatrix(1, 2));
    Owned che = zvhost::text("che");
    for (const ndArray* data : {sparse.get(), complex.get()})
        EXPECT_EQ(id(2, {data, mask.get(), counts.get(), K.get(), own.get(), che.get()}),
                  "stats:pdist2bif:SparseOrComplexInput");
}

// Distances 0, 1, 2, 4 to points in clusters 1, 1, 2, 2 unless a case says
// otherwise; each case gives the mask, counts, K and own cluster.
TEST(Silhouette, OnePointMeansByHandAndTheirEdgeCases) {
    zvtest::LeakCheck leaks;
    Owned twoByTwo = maskOf(4, 2, {1, 1, 2, 2});
    Owned single = maskOf(3, 2, {1, 2, 2}), empty = maskOf(3, 3, {1, 2, 2}), three = maskOf(3, 1, {1, 1, 1});
    Owned shortMask = zvhost::matrixOf<bool>(1, 3, {true, true, false});  // 3 of 3-by-2: no member of 2
    struct Case {
        const char* what;
        std::vector<double> d;
        const ndArray* mask;
        std::vector<double> counts;
        double K, own;
        std::vector<double> within, between;
    } cases[] = {
        {"own 1", {0, 1, 2, 4}, twoByTwo.get(), {2, 2}, 2, 1, {1.0}, {kInf, 3.0}},  // (0 + 1) / 1; 2/2 + 4/2
        {"own 2", {0, 1, 2, 4}, twoByTwo.get(), {2, 2}, 2, 2, {6.0}, {0.5, kInf}},
        {"cluster of one: over 1, the own 0", {0, 3, 5}, single.get(), {1, 2}, 2, 1, {0.0}, {kInf, 4.0}},
        {"empty cluster keeps its 0", {0, 3, 5}, empty.get(), {1, 2, 0}, 3, 1, {0.0}, {kInf, 4.0, 0.0}},
        {"own outside 1..K", {0, 3, 5}, single.get(), {1, 2}, 2, 3, {0.0}, {0.0, 4.0}},
        {"own NaN", {0, 3, 5}, single.get(), {1, 2}, 2, kNaN, {0.0}, {0.0, 4.0}},
        {"NaN distance in its cluster only", {0, kNaN, 5}, single.get(), {1, 2}, 2, 1, {0.0}, {kInf, kNaN}},
        {"K = 0", {0, 3, 5}, single.get(), {}, 0, 1, {0.0}, {}},
        {"divided before added", {1, 1, 1}, three.get(), {3}, 1, 2, {0.0}, {1.0 / 3 + 1.0 / 3 + 1.0 / 3}},
        {"short mask and counts", {0, 2, 4}, shortMask.get(), {2}, 2, 1, {2.0}, {kInf, 0.0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Means m = onePoint<double>(c.d, c.mask, c.counts, c.K, c.own);
        zvtest::expectBitEqual(m.within, c.within);
        zvtest::expectBitEqual(m.between, c.between);
    }
    // Single precision gives the same numbers in single.
    const Means f = onePoint<float>({0, 1, 2, 4}, twoByTwo.get(), {2, 2}, 2, 1);
    EXPECT_EQ(f.within, (std::vector<double>{1.0}));
    EXPECT_EQ(f.between, (std::vector<double>{kInf, 3.0}));
    // Sparse distances are read by value: the zero of the point itself is
    // not stored.
    Owned sparse(zvhost::createSparse(4, 1, 3)), counts = zvhost::matrixOf<double>(1, 2, {2, 2});
    Owned two = zvhost::scalar(2), one = zvhost::scalar(1);
    for (size_t e = 0; e < 3; ++e) ndGetRowIndices(sparse.get())[e] = e + 1;
    std::copy_n(std::vector<double>{1, 2, 4}.begin(), 3, static_cast<double*>(ndGetData(sparse.get())));
    ndGetColumnStarts(sparse.get())[1] = 3;
    auto fromSparse = zvhost::call(silhouette, 2, {sparse.get(), twoByTwo.get(), counts.get(), two.get(), one.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(fromSparse[1].get()), (std::vector<double>{kInf, 3.0}));
    // M comes from the rows of the distances; an M-by-0 array holds none.
    Owned noColumns = zvhost::matrixOf<double>(3, 0);
    Owned c = zvhost::matrixOf<double>(1, 1, {2}), k = zvhost::scalar(1), own = zvhost::scalar(1);
    auto out = zvhost::call(silhouette, 2, {noColumns.get(), shortMask.get(), c.get(), k.get(), own.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (std::vector<double>{0.0}));
}

struct DataSet {
    size_t p, n, K;
    std::vector<double> x;
    std::vector<int> cluster;
    std::vector<double> counts;
};

DataSet dataSet(size_t p, size_t n, size_t K, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, 1.0);
    DataSet s{p, n, K, std::vector<double>(p * n), std::vector<int>(n), std::vector<double>(K, 0)};
    for (size_t j = 0; j < n; ++j) {
        s.cluster[j] = int(gen() % K) + 1;
        s.counts[s.cluster[j] - 1] += 1;
        for (size_t k = 0; k < p; ++k) s.x[j * p + k] = normal(gen) + 3.0 * s.cluster[j] * (k == 0);
    }
    return s;
}

template <class T = double>
std::vector<Owned> allPoints(const DataSet& s, const char* metric = "euc", const ndArray* mask = nullptr,
                             std::vector<double> own = {}) {
    const std::vector<T> x(s.x.begin(), s.x.end()), counts(s.counts.begin(), s.counts.end());
    Owned xa = zvhost::matrixOf<T>(s.p, s.n, std::span<const T>(x));
    Owned partition = maskOf(s.n, s.K, s.cluster);
    Owned c = zvhost::matrixOf<T>(1, s.K, std::span<const T>(counts));
    Owned K = zvhost::scalar(double(s.K));
    if (own.empty()) own.assign(s.cluster.begin(), s.cluster.end());
    Owned o = zvhost::matrixOf<double>(s.n, 1, std::span<const double>(own));
    Owned code = zvhost::text(metric);
    if (!mask) mask = partition.get();
    return zvhost::call(silhouette, 2, {xa.get(), mask, c.get(), K.get(), o.get(), code.get()});
}

// Each point's means in the data form are those of the one-point form on its
// column of the nested call's distances, bit for bit: panel and nested
// metrics, both classes, partial tiles, own clusters outside 1 .. K, and a
// mask that is no partition (points in several clusters or none).
template <class T>
void expectRowsAreOnePointForms(const DataSet& s, const char* metric, const ndArray* mask,
                                const std::vector<double>& own) {
    SCOPED_TRACE(std::string(metric) + " n=" + std::to_string(s.n) + (sizeof(T) == 4 ? " single" : " double"));
    const auto out = allPoints<T>(s, metric, mask, own);
    const auto within = zvhost::valuesOf<T>(out[0].get()), between = zvhost::valuesOf<T>(out[1].get());
    const std::vector<T> x(s.x.begin(), s.x.end()), counts(s.counts.begin(), s.counts.end());
    Owned xa = zvhost::matrixOf<T>(s.p, s.n, std::span<const T>(x));
    Owned code = zvhost::text(metric), none = zvhost::matrixOf<double>(0, 0);
    const ndArray* none4 = none.get();
    auto d = zvhost::call(pdist2bif, 1, {xa.get(), xa.get(), code.get(), none4, none4, none4, none4});
    const auto all = zvhost::valuesOf<T>(d[0].get());
    for (size_t r = 0; r < s.n; ++r) {
        const std::vector<T> column(all.begin() + r * s.n, all.begin() + (r + 1) * s.n);
        Means m = onePoint<T>(column, mask, counts, double(s.K), own[r]);
        std::vector<double> row{double(within[r])};
        for (size_t k = 0; k < s.K; ++k) row.push_back(double(between[k * s.n + r]));
        m.between.insert(m.between.begin(), m.within[0]);
        zvtest::expectBitEqual(m.between, row);
    }
}

TEST(Silhouette, EveryRowOfTheDataFormIsTheOnePointForm) {
    zvtest::LeakCheck leaks;
    for (size_t n : {1u, 37u, 203u}) {
        const DataSet s = dataSet(5, n, 4, unsigned(n));
        Owned partition = maskOf(n, 4, s.cluster);
        std::vector<double> own(s.cluster.begin(), s.cluster.end());
        own[0] = 5;  // outside 1 .. K
        for (const char* metric : {"euc", "sqe", "cit", "che"}) {
            expectRowsAreOnePointForms<double>(s, metric, partition.get(), own);
            expectRowsAreOnePointForms<float>(s, metric, partition.get(), own);
        }
    }
    const DataSet s = dataSet(3, 75, 4, 7);
    std::mt19937 gen(3);
    Owned overlapping = zvhost::matrixOf<bool>(75, 4);
    for (size_t e = 0; e < 300; ++e) ndGetLogicals(overlapping.get())[e] = gen() % 5 < 2;
    std::vector<double> own(75);
    for (auto& o : own) o = double(gen() % 6);  // 0 and 5 are outside 1 .. K
    DataSet counted = s;
    counted.counts = {0, 1, 7, 30};  // not the mask's
    expectRowsAreOnePointForms<double>(counted, "euc", overlapping.get(), own);
    expectRowsAreOnePointForms<float>(counted, "euc", overlapping.get(), own);
}

TEST(Silhouette, EmptyDataAndUnknownMetric) {
    zvtest::LeakCheck leaks;
    DataSet empty{2, 0, 3, {}, {}, {0, 0, 0}};
    auto out = allPoints(empty);
    EXPECT_EQ(ndGetM(out[0].get()), 0u);
    EXPECT_EQ(ndGetN(out[1].get()), 3u);
    // An unknown code gives zero distances, so zero means and the infinities.
    const DataSet s = dataSet(2, 10, 2, 1);
    out = allPoints(s, "xyz");
    for (double v : zvhost::valuesOf<double>(out[0].get())) EXPECT_EQ(v, 0.0);
    const auto between = zvhost::valuesOf<double>(out[1].get());
    for (size_t r = 0; r < s.n; ++r)
        for (size_t k = 0; k < 2; ++k) EXPECT_EQ(between[k * s.n + r], int(k) + 1 == s.cluster[r] ? kInf : 0.0);
}

// A cluster count that no memory holds is the host's allocation failure,
// never a foreign exception, in both forms (on a host of 1 GiB per request).
TEST(Silhouette, AnImpossibleClusterCountIsAnAllocationFailure) {
    zvtest::LeakCheck leaks;
    zvhost::limitRequestBytes(size_t(1) << 30);
    Owned d = zvhost::matrixOf<double>(2, 1, {0, 1}), mask = maskOf(2, 1, {1, 1});
    Owned counts = zvhost::matrixOf<double>(1, 1, {2}), own = zvhost::scalar(1), euc = zvhost::text("euc");
    for (double K : {kInf, 1e300, 0x1p63, 1e12}) {
        Owned k = zvhost::scalar(K);
        EXPECT_THROW(zvhost::call(silhouette, 2, {d.get(), mask.get(), counts.get(), k.get(), own.get()}),
                     std::bad_alloc) << K;
        EXPECT_THROW(zvhost::call(silhouette, 2, {d.get(), mask.get(), counts.get(), k.get(), own.get(), euc.get()}),
                     std::bad_alloc) << K;
    }
    zvhost::limitRequestBytes(0);
}

// The tile sums take room and time for the clusters with members only: with
// 2^40 clusters of which three have members, each point still gets the means
// of the one-point form.
TEST(Silhouette, TileSumsCoverOnlyThePopulatedClusters) {
    const size_t n = 5, K = size_t(1) << 40;
    const double x[n] = {0, 1, 3, 7, 8};
    const std::vector<int> cluster{1, 1, 2, 2, 3};
    std::vector<unsigned char> mask(3 * n, 0);
    for (size_t j = 0; j < n; ++j) mask[(cluster[j] - 1) * n + j] = 1;
    const zv::clustering::ClusterMask m{mask.data(), mask.size(), n};
    const double counts[3] = {2, 2, 1};
    const double own[n] = {1, 2, 2, 3, 3};  // own clusters with and without the point
    std::vector<double> within(n, 0.0), between(3 * n, 0.0);
    auto rows = [&](size_t r0, size_t j0, size_t count, double* d) {
        for (size_t j = 0; j < count; ++j)
            for (size_t c = 0; c < 4; ++c) d[j * 4 + c] = std::abs(x[j0 + j] - x[std::min(r0 + c, n - 1)]);
    };
    zv::clustering::silhouetteByTiles<double, 4, 2>(n, rows, zv::clustering::PointClusters(m, K), counts, K, own,
                                                    within.data(), between.data());
    for (size_t r = 0; r < n; ++r) {
        double w = 0, b[3] = {0, 0, 0}, d[n];
        for (size_t j = 0; j < n; ++j) d[j] = std::abs(x[j] - x[r]);
        zv::clustering::silhouettefun(d, m, counts, 3, own[r], &w, b);
        EXPECT_EQ(within[r], w) << r;
        for (size_t k = 0; k < 3; ++k) EXPECT_EQ(between[k * n + r], b[k]) << r << " " << k;
    }
}

TEST(Silhouette, ResultsDoNotDependOnTheThreadCount) {
    zvtest::LeakCheck leaks;
    const DataSet s = dataSet(5, 700, 6, 4);
    for (const char* metric : {"euc", "che"}) {
        const auto one = zvtest::withThreads(1, [&] { return allPoints(s, metric); });
        const auto two = zvtest::withThreads(2, [&] { return allPoints(s, metric); });
        EXPECT_EQ(zvhost::valuesOf<double>(one[0].get()), zvhost::valuesOf<double>(two[0].get()));
        EXPECT_EQ(zvhost::valuesOf<double>(one[1].get()), zvhost::valuesOf<double>(two[1].get()));
    }
    // The one-point form, parallel over clusters.
    std::vector<double> d(s.n);
    for (size_t j = 0; j < s.n; ++j) d[j] = double(j % 17);
    Owned mask = maskOf(s.n, s.K, s.cluster);
    const Means a = zvtest::withThreads(1, [&] { return onePoint<double>(d, mask.get(), s.counts, double(s.K), 2); });
    const Means b = zvtest::withThreads(2, [&] { return onePoint<double>(d, mask.get(), s.counts, double(s.K), 2); });
    EXPECT_EQ(a.within, b.within);
    EXPECT_EQ(a.between, b.between);
}

TEST(Silhouette, InterruptFromAWorkerLeavesNothingBehind) {
    const DataSet s = dataSet(4, 500, 5, 2);
    for (const char* metric : {"euc", "che"})
        for (long polls : {1L, 9L, 120L}) {
            zvtest::LeakCheck leaks;
            zvhost::interruptAfterPolls(polls);
            EXPECT_EQ(raisedId([&] { zvtest::withThreads(2, [&] { return allPoints(s, metric); }); }),
                      "zvhost:Interrupted") << metric << " " << polls;
            zvhost::interruptAfterPolls(0);
        }
}

}  // namespace

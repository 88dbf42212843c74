// silhouette: identifiers in order, the means of one point by hand and their
// edge cases, the data form against the one-point form, thread counts and
// interruption from a worker.
#include <cmath>
#include <limits>
#include <random>
#include <span>

#include "clustering/dbscan_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Owned maskOf(size_t rows, size_t K, const std::vector<int>& cluster) {
    Owned m = zvhost::matrixOf<bool>(rows, K);
    bool* v = ndGetLogicals(m.get());
    for (size_t j = 0; j < cluster.size(); ++j)
        if (cluster[j] >= 1 && size_t(cluster[j]) <= K) v[(cluster[j] - 1) * rows + j] = true;
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
    Owned i32 = zvhost::matrixOf<int32_t>(2, 1);
    Owned mask = maskOf(2, 1, {1, 1});
    Owned counts = zvhost::matrixOf<double>(1, 1, {2});
    Owned K = zvhost::scalar(1), own = zvhost::scalar(1);
    auto id = [&](int numOutputs, std::vector<const ndArray*> in) {
        return raisedId([&] { zvhost::call(silhouette, numOutputs, in); });
    };
    EXPECT_EQ(id(1, {i32.get(), mask.get(), counts.get(), K.get()}), "stats:silhouette:IncorrectNumInputs");
    EXPECT_EQ(id(3, {}), "stats:silhouette:IncorrectNumInputs");
    EXPECT_EQ(id(1, {i32.get(), mask.get(), counts.get(), K.get(), own.get()}), "stats:silhouette:IncorrectNumOutputs");
    EXPECT_EQ(id(3, {i32.get(), mask.get(), counts.get(), K.get(), own.get()}), "stats:silhouette:IncorrectNumOutputs");
    EXPECT_EQ(id(2, {i32.get(), mask.get(), counts.get(), K.get(), own.get()}), "stats:silhouette:BadInputType");
    Owned logical = zvhost::matrixOf<bool>(2, 1);
    Owned euc = zvhost::text("euc");
    EXPECT_EQ(id(2, {logical.get(), mask.get(), counts.get(), K.get(), own.get(), euc.get()}),
              "stats:silhouette:BadInputType");
    EXPECT_EQ(id(2, {d.get(), mask.get(), counts.get(), K.get(), own.get()}), "");
}

// Distances 0, 1, 2, 4 to points in clusters 1, 1, 2, 2; the point is the first.
TEST(Silhouette, OnePointMeansByHand) {
    zvtest::LeakCheck leaks;
    Owned mask = maskOf(4, 2, {1, 1, 2, 2});
    Means m = onePoint<double>({0, 1, 2, 4}, mask.get(), {2, 2}, 2, 1);
    EXPECT_EQ(m.within, (std::vector<double>{1.0}));  // (0 + 1) / (2 - 1)
    EXPECT_EQ(m.between, (std::vector<double>{kInf, 3.0}));  // 2/2 + 4/2
    // Own cluster 2: its mean over 2 - 1, the other over 2.
    m = onePoint<double>({0, 1, 2, 4}, mask.get(), {2, 2}, 2, 2);
    EXPECT_EQ(m.within, (std::vector<double>{6.0}));
    EXPECT_EQ(m.between, (std::vector<double>{0.5, kInf}));
    // Single precision gives the same numbers in single.
    m = onePoint<float>({0, 1, 2, 4}, mask.get(), {2, 2}, 2, 1);
    EXPECT_EQ(m.within, (std::vector<double>{1.0}));
    EXPECT_EQ(m.between, (std::vector<double>{kInf, 3.0}));
}

TEST(Silhouette, EdgeCasesOfOnePoint) {
    zvtest::LeakCheck leaks;
    // A cluster of one: divided by 1, the mean within is the own 0.
    Owned single = maskOf(3, 2, {1, 2, 2});
    Means m = onePoint<double>({0, 3, 5}, single.get(), {1, 2}, 2, 1);
    EXPECT_EQ(m.within, (std::vector<double>{0.0}));
    EXPECT_EQ(m.between, (std::vector<double>{kInf, 4.0}));
    // An empty cluster (count 0, no member) keeps its 0.
    Owned empty = maskOf(3, 3, {1, 2, 2});
    m = onePoint<double>({0, 3, 5}, empty.get(), {1, 2, 0}, 3, 1);
    EXPECT_EQ(m.between, (std::vector<double>{kInf, 4.0, 0.0}));
    // An own cluster outside 1..K: no mean within and no infinity.
    m = onePoint<double>({0, 3, 5}, single.get(), {1, 2}, 2, 3);
    EXPECT_EQ(m.within, (std::vector<double>{0.0}));
    EXPECT_EQ(m.between, (std::vector<double>{0.0, 4.0}));
    m = onePoint<double>({0, 3, 5}, single.get(), {1, 2}, 2, kNaN);
    EXPECT_EQ(m.between, (std::vector<double>{0.0, 4.0}));
    // A NaN distance enters the sum of its cluster only.
    m = onePoint<double>({0, kNaN, 5}, single.get(), {1, 2}, 2, 1);
    EXPECT_EQ(m.within, (std::vector<double>{0.0}));
    EXPECT_TRUE(std::isnan(m.between[1]));
    // K = 0: nothing to do, a 1-by-0 second output.
    m = onePoint<double>({0, 3, 5}, single.get(), {}, 0, 1);
    EXPECT_EQ(m.within, (std::vector<double>{0.0}));
    EXPECT_TRUE(m.between.empty());
    // Each term is divided before it is added: 1/3 + 1/3 + 1/3, not 1.
    Owned three = maskOf(3, 1, {1, 1, 1});
    m = onePoint<double>({1, 1, 1}, three.get(), {3}, 1, 2);
    EXPECT_EQ(m.between, (std::vector<double>{1.0 / 3 + 1.0 / 3 + 1.0 / 3}));
}

// A mask shorter than M by K, or counts shorter than K: missing entries are
// no members and counts of 0.
TEST(Silhouette, ShortMaskAndCountsAreReadSafely) {
    zvtest::LeakCheck leaks;
    Owned shortMask = zvhost::matrixOf<bool>(1, 3, {true, true, false});  // 3 of 3-by-2
    Means m = onePoint<double>({0, 2, 4}, shortMask.get(), {2}, 2, 1);
    EXPECT_EQ(m.within, (std::vector<double>{2.0}));
    EXPECT_EQ(m.between, (std::vector<double>{kInf, 0.0}));
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

std::vector<Owned> allPoints(const DataSet& s, const char* metric = "euc") {
    Owned x = zvhost::matrixOf<double>(s.p, s.n, std::span<const double>(s.x));
    Owned mask = maskOf(s.n, s.K, s.cluster);
    Owned counts = zvhost::matrixOf<double>(1, s.K, std::span<const double>(s.counts));
    Owned K = zvhost::scalar(double(s.K));
    std::vector<double> own(s.cluster.begin(), s.cluster.end());
    Owned o = zvhost::matrixOf<double>(s.n, 1, std::span<const double>(own));
    Owned code = zvhost::text(metric);
    return zvhost::call(silhouette, 2, {x.get(), mask.get(), counts.get(), K.get(), o.get(), code.get()});
}

TEST(Silhouette, OnePointFormEqualsTheRowOfTheDataForm) {
    zvtest::LeakCheck leaks;
    const DataSet s = dataSet(3, 120, 4, 9);
    const auto out = allPoints(s);
    ASSERT_EQ(ndGetM(out[1].get()), s.n);
    ASSERT_EQ(ndGetN(out[1].get()), s.K);
    const auto within = zvhost::valuesOf<double>(out[0].get()), between = zvhost::valuesOf<double>(out[1].get());
    Owned mask = maskOf(s.n, s.K, s.cluster);
    for (size_t r : {size_t(0), size_t(17), size_t(119)}) {
        std::vector<double> d(s.n);
        for (size_t j = 0; j < s.n; ++j) {
            double sum = 0;
            for (size_t k = 0; k < s.p; ++k) sum += (s.x[j * s.p + k] - s.x[r * s.p + k]) * (s.x[j * s.p + k] - s.x[r * s.p + k]);
            d[j] = std::sqrt(sum);
        }
        const Means m = onePoint<double>(d, mask.get(), s.counts, double(s.K), s.cluster[r]);
        EXPECT_EQ(m.within[0], within[r]) << r;
        for (size_t k = 0; k < s.K; ++k) EXPECT_EQ(m.between[k], between[k * s.n + r]) << r << " " << k;
    }
}

TEST(Silhouette, ResultsDoNotDependOnTheThreadCount) {
    zvtest::LeakCheck leaks;
    const DataSet s = dataSet(5, 700, 6, 4);
    for (const char* metric : {"euc", "cit"}) {
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

TEST(Silhouette, InterruptFromAWorkerLeavesNothingBehind) {
    const DataSet s = dataSet(4, 500, 5, 2);
    for (long polls : {1L, 9L, 120L, 900L}) {
        zvtest::LeakCheck leaks;
        zvhost::interruptAfterPolls(polls);
        EXPECT_EQ(raisedId([&] { zvtest::withThreads(2, [&] { return allPoints(s); }); }), "zvhost:Interrupted")
            << polls;
        zvhost::interruptAfterPolls(0);
    }
}

}  // namespace

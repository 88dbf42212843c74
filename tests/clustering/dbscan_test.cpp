// dbscan: identifiers in order, labels and core flags by hand, the three
// neighbour sources and both routes against each other, thread counts,
// interruption from a worker, and the safe readings of short inputs.
#include <cmath>
#include <limits>
#include <random>
#include <span>

#include "clustering/dbscan_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Result {
    std::vector<double> labels;
    std::vector<bool> core;
};

// The ten inputs of one call.
struct Inputs {
    Owned data, epsilon, minpts, metric, mode, adjacency, n, p, parameter, route;
    std::vector<const ndArray*> list() const {
        return {data.get(), epsilon.get(), minpts.get(), metric.get(), mode.get(), adjacency.get(),
                n.get(), p.get(), parameter.get(), route.get()};
    }
};

// x is p-by-n, a point per column; the host route gets it n-by-p.
template <class T = double>
Inputs dataInputs(const std::vector<T>& x, size_t p, size_t n, double epsilon, double minpts, bool hostRoute = false,
                  const char* metric = "euc") {
    Owned data = zvhost::matrixOf<T>(p, n, std::span<const T>(x));
    if (hostRoute) data = zvtest::transposed(data.get());
    return {std::move(data), zvhost::scalar(epsilon), zvhost::scalar(minpts), zvhost::text(metric),
            zvhost::scalar(2), zvhost::matrixOf<bool>(0, 0), zvhost::scalar(double(n)), zvhost::scalar(double(p)),
            zvhost::matrixOf<double>(0, 0), zvhost::logicalScalar(hostRoute)};
}

Inputs adjacencyInputs(const std::vector<bool>& adjacency, double mode, size_t n, double minpts, bool serial = false) {
    Owned a = zvhost::matrixOf<bool>(1, adjacency.size());
    bool* v = ndGetLogicals(a.get());
    for (size_t k = 0; k < adjacency.size(); ++k) v[k] = adjacency[k];
    return {zvhost::matrixOf<bool>(0, 0), zvhost::scalar(0), zvhost::scalar(minpts), zvhost::text("euc"),
            zvhost::scalar(mode), std::move(a), zvhost::scalar(double(n)), zvhost::scalar(1),
            zvhost::matrixOf<double>(0, 0), zvhost::logicalScalar(serial)};
}

Result run(const Inputs& in, int numOutputs = 2) {
    auto out = zvhost::call(dbscan, numOutputs, in.list());
    Result r;
    r.labels = zvhost::valuesOf<double>(out[0].get());
    EXPECT_EQ(ndGetN(out[0].get()), 1u);
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    if (numOutputs == 2) {
        EXPECT_EQ(ndGetClassID(out[1].get()), ndLOGICAL_CLASS);
        const bool* c = ndGetLogicals(out[1].get());
        r.core.assign(c, c + ndGetNumberOfElements(out[1].get()));
    }
    return r;
}

// Points of a 2-d data set: three blobs, a few isolated points, and
// duplicates; p-by-n.
std::vector<double> blobs(size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, 0.4);
    std::uniform_real_distribution<double> wide(-4.0, 8.0);
    const double centres[3][2] = {{0, 0}, {4, 0}, {2, 3}};
    std::vector<double> x(2 * n);
    for (size_t i = 0; i < n; ++i) {
        if (i % 11 == 10) {
            x[2 * i] = wide(gen), x[2 * i + 1] = wide(gen);
        } else if (i % 13 == 12) {
            x[2 * i] = x[2 * i - 2], x[2 * i + 1] = x[2 * i - 1];
        } else {
            x[2 * i] = centres[i % 3][0] + normal(gen), x[2 * i + 1] = centres[i % 3][1] + normal(gen);
        }
    }
    return x;
}

// The full adjacency and its condensed form for points of x under epsilon.
std::vector<bool> adjacencyOf(const std::vector<double>& x, size_t n, double epsilon, bool condensed) {
    std::vector<bool> a;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = condensed ? i + 1 : 0; j < n; ++j) {
            const double dx = x[2 * i] - x[2 * j], dy = x[2 * i + 1] - x[2 * j + 1];
            a.push_back(std::sqrt(dx * dx + dy * dy) <= epsilon);
        }
    return a;
}

TEST(Dbscan, IdentifiersComeInTheirOrder) {
    zvtest::LeakCheck leaks;
    Inputs in = dataInputs<double>({0, 1}, 1, 2, 1, 1);
    auto ids = [&](int numOutputs, std::vector<const ndArray*> list) {
        return raisedId([&] { zvhost::call(dbscan, numOutputs, list); });
    };
    Owned sparse(zvhost::createSparse(1, 2, 0));
    Owned complex(zvhost::createComplexMatrix(1, 2));
    Owned int32 = zvhost::matrixOf<int32_t>(1, 2);
    auto with = [&](const ndArray* data) {
        auto l = in.list();
        l[0] = data;
        return l;
    };
    auto nine = in.list();
    nine.pop_back();
    auto eleven = in.list();
    eleven.push_back(in.route.get());
    EXPECT_EQ(ids(3, nine), "stats:dbscan:TooFewOrManyInputs");
    EXPECT_EQ(ids(1, eleven), "stats:dbscan:TooFewOrManyInputs");
    EXPECT_EQ(ids(3, with(sparse.get())), "stats:dbscan:TooManyOutputArguments");
    EXPECT_EQ(ids(0, with(sparse.get())), "stats:dbscan:TooManyOutputArguments");
    EXPECT_EQ(ids(2, with(sparse.get())), "stats:dbscan:UndefinedFunctionNoSparse");
    EXPECT_EQ(ids(2, with(complex.get())), "stats:dbscan:UndefinedFunctionNoComplex");
    EXPECT_EQ(ids(2, with(int32.get())), "stats:dbscan:UndefinedFunctionOnlyDoubleOrSingle");
    Owned text = zvhost::text("ab");
    EXPECT_EQ(ids(1, with(text.get())), "stats:dbscan:UndefinedFunctionOnlyDoubleOrSingle");
    EXPECT_EQ(ids(1, in.list()), "");
}

// 1-d points 0, 1, 2, 10, 11, 20 and 20.5 with epsilon 1 (distances of
// exactly 1 are neighbours) and minpts 3.
TEST(Dbscan, LabelsAndCoreFlagsByHand) {
    zvtest::LeakCheck leaks;
    const std::vector<double> x = {0, 1, 2, 10, 11, 20, 20.5};
    for (bool hostRoute : {false, true}) {
        zvtest::HostPdist2 host;
        Result r = run(dataInputs(x, 1, 7, 1.0, 3, hostRoute));
        EXPECT_EQ(r.labels, (std::vector<double>{1, 1, 1, -1, -1, -1, -1})) << hostRoute;
        EXPECT_EQ(r.core, (std::vector<bool>{false, true, false, false, false, false, false}));
        // minpts 2: the pairs become clusters too, numbered by their first point.
        r = run(dataInputs(x, 1, 7, 1.0, 2, hostRoute));
        EXPECT_EQ(r.labels, (std::vector<double>{1, 1, 1, 2, 2, 3, 3}));
        EXPECT_EQ(r.core, std::vector<bool>(7, true));
        // minpts 1: every point is a cluster of its own at least.
        r = run(dataInputs(x, 1, 7, 0.9, 1, hostRoute));
        EXPECT_EQ(r.labels, (std::vector<double>{1, 2, 3, 4, 5, 6, 6}));
    }
}

// Point 0 is noise when it is visited, and becomes a border point of the
// cluster that point 1 starts; as a border point it does not extend it.
TEST(Dbscan, EarlierNoiseJoinsALaterClusterAsBorder) {
    zvtest::LeakCheck leaks;
    const std::vector<double> x = {0, 1, 1.5, 2, -1.5};
    Result r = run(dataInputs(x, 1, 5, 1.0, 3));
    EXPECT_EQ(r.labels, (std::vector<double>{1, 1, 1, 1, -1}));
    EXPECT_EQ(r.core, (std::vector<bool>{false, true, true, true, false}));
}

TEST(Dbscan, EmptyDataGivesAnEmptyColumn) {
    zvtest::LeakCheck leaks;
    auto out = zvhost::call(dbscan, 2, dataInputs<double>({}, 2, 0, 1, 1).list());
    EXPECT_EQ(ndGetM(out[0].get()), 0u);
    EXPECT_EQ(ndGetN(out[0].get()), 1u);
    EXPECT_EQ(ndGetM(out[1].get()), 0u);
}

TEST(Dbscan, OneOutputHasNoCoreFlags) {
    zvtest::LeakCheck leaks;
    auto out = zvhost::call(dbscan, 1, dataInputs<double>({0, 1, 5}, 1, 3, 1, 2).list());
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (std::vector<double>{1, 1, -1}));
    EXPECT_EQ(out.size(), 1u);
}

// A NaN coordinate makes every distance of its point NaN: no neighbours.
TEST(Dbscan, NaNPointIsNoiseOrAClusterOfOne) {
    zvtest::LeakCheck leaks;
    const std::vector<double> x = {0, 0, kNaN, 1, 0.5, 0.5};
    EXPECT_EQ(run(dataInputs(x, 2, 3, 1, 2)).labels, (std::vector<double>{1, -1, 1}));
    EXPECT_EQ(run(dataInputs(x, 2, 3, 1, 1)).labels, (std::vector<double>{1, 2, 1}));
}

TEST(Dbscan, ThreeNeighbourSourcesAndBothRoutesAgree) {
    zvtest::LeakCheck leaks;
    zvtest::HostPdist2 host;
    const size_t n = 300;
    const auto x = blobs(n, 3);
    for (double minpts : {1.0, 4.0, 9.0}) {
        const double epsilon = 0.35;
        const Result nested = run(dataInputs(x, 2, n, epsilon, minpts));
        EXPECT_GT(*std::max_element(nested.labels.begin(), nested.labels.end()), 2.0);
        const Result hosted = run(dataInputs(x, 2, n, epsilon, minpts, true));
        EXPECT_EQ(nested.labels, hosted.labels);
        EXPECT_EQ(nested.core, hosted.core);
        for (bool serial : {false, true}) {
            const Result full = run(adjacencyInputs(adjacencyOf(x, n, epsilon, false), 0, n, minpts, serial));
            const Result condensed = run(adjacencyInputs(adjacencyOf(x, n, epsilon, true), 1, n, minpts, serial));
            EXPECT_EQ(full.labels, nested.labels);
            EXPECT_EQ(full.core, nested.core);
            EXPECT_EQ(condensed.labels, nested.labels);
            EXPECT_EQ(condensed.core, nested.core);
        }
    }
}

TEST(Dbscan, SingleDataRunsTheFloatEngineWithDoubleLabels) {
    zvtest::LeakCheck leaks;
    const auto x = blobs(200, 5);
    const std::vector<float> xf(x.begin(), x.end());
    const Result d = run(dataInputs(x, 2, 200, 0.35, 4));
    const Result f = run(dataInputs(xf, 2, 200, 0.35, 4));
    // Single rounding may move a distance across epsilon; the clusters stay.
    size_t same = 0;
    for (size_t i = 0; i < 200; ++i) same += d.labels[i] == f.labels[i];
    EXPECT_GE(same, 195u);
}

// The full adjacency is read at i*n + j for point i.
TEST(Dbscan, AdjacencyMatrixIsReadByRowsOfPoints) {
    zvtest::LeakCheck leaks;
    // Point 0 lists 1 and 2; nobody lists point 0.
    std::vector<bool> a(9, false);
    a[0 * 3 + 1] = a[0 * 3 + 2] = true;
    EXPECT_EQ(run(adjacencyInputs(a, 0, 3, 3)).labels, (std::vector<double>{1, 1, 1}));
    EXPECT_EQ(run(adjacencyInputs(a, 0, 3, 3)).core, (std::vector<bool>{true, false, false}));
    std::vector<bool> t(9, false);
    t[1 * 3 + 0] = t[2 * 3 + 0] = true;
    EXPECT_EQ(run(adjacencyInputs(t, 0, 3, 3)).labels, (std::vector<double>{-1, -1, -1}));
}

// An adjacency shorter than n points need: the missing pairs are no neighbours.
TEST(Dbscan, ShortAdjacencyReadsMissingPairsAsFalse) {
    zvtest::LeakCheck leaks;
    const std::vector<bool> condensed = {true};  // n = 4 needs 6 pairs
    EXPECT_EQ(run(adjacencyInputs(condensed, 1, 4, 2)).labels, (std::vector<double>{1, 1, -1, -1}));
    const std::vector<bool> full = {false, true, false, false, true};  // n = 4 needs 16
    EXPECT_EQ(run(adjacencyInputs(full, 0, 4, 2)).labels, (std::vector<double>{1, 1, -1, -1}));
}

TEST(Dbscan, ResultsDoNotDependOnTheThreadCount) {
    zvtest::LeakCheck leaks;
    const size_t n = 1500;
    const auto x = blobs(n, 11);
    for (double minpts : {3.0, 12.0}) {
        const Inputs in = dataInputs(x, 2, n, 0.2, minpts);
        const Result one = zvtest::withThreads(1, [&] { return run(in); });
        const Result two = zvtest::withThreads(2, [&] { return run(in); });
        EXPECT_EQ(one.labels, two.labels);
        EXPECT_EQ(one.core, two.core);
        const Inputs adj = adjacencyInputs(adjacencyOf(x, n, 0.2, true), 1, n, minpts);
        const Result adjOne = zvtest::withThreads(1, [&] { return run(adj); });
        const Result adjTwo = zvtest::withThreads(2, [&] { return run(adj); });
        EXPECT_EQ(adjOne.labels, one.labels);
        EXPECT_EQ(adjTwo.labels, one.labels);
        EXPECT_EQ(adjTwo.core, one.core);
    }
}

TEST(Dbscan, InterruptFromAWorkerLeavesNothingBehind) {
    const size_t n = 400;
    const auto x = blobs(n, 2);
    const Inputs in = dataInputs(x, 2, n, 0.3, 3);
    for (long polls : {1L, 7L, 60L, 400L}) {
        zvtest::LeakCheck leaks;
        zvhost::interruptAfterPolls(polls);
        EXPECT_EQ(raisedId([&] { zvtest::withThreads(2, [&] { return zvhost::call(dbscan, 2, in.list()); }); }),
                  "zvhost:Interrupted")
            << polls;
        zvhost::interruptAfterPolls(0);
    }
}

TEST(Dbscan, NestedDistanceErrorsReachTheCaller) {
    zvtest::LeakCheck leaks;
    // p larger than the rows of the data: the column does not match X.
    Inputs in = dataInputs<double>({0, 1, 2}, 1, 3, 1, 2);
    in.p = zvhost::scalar(2);
    EXPECT_EQ(raisedId([&] { zvhost::call(dbscan, 2, in.list()); }), "stats:pdist2bif:XYDimsMismatch");
    // Logical data selects the double engine, and the distance call refuses it.
    Inputs logical = dataInputs<double>({0, 1, 2}, 1, 3, 1, 2);
    logical.data = zvhost::matrixOf<bool>(1, 3, {true, false, true});
    EXPECT_EQ(raisedId([&] { zvhost::call(dbscan, 2, logical.list()); }), "stats:pdist2bif:BadInputType");
    // An unknown metric computes zeros: every point is everyone's neighbour.
    Inputs unknown = dataInputs<double>({0, 1, 5}, 1, 3, 1, 2, false, "xyz");
    EXPECT_EQ(run(unknown).labels, (std::vector<double>{1, 1, 1}));
}

TEST(Dbscan, HostRouteCallsTheHostsPdist2OncePerQuery) {
    zvtest::LeakCheck leaks;
    zvtest::HostPdist2 host;
    zvhost::resetCallLog();
    run(dataInputs<double>({0, 1, 2, 10}, 1, 4, 1, 2, true));
    const auto calls = zvhost::callLog();
    EXPECT_EQ(calls, std::vector<std::string>(4, "pdist2"));
    // The host's errors are the host's.
    zvhost::registerFunction("pdist2", [](int, ndArray**, int, const ndArray**) {
        ndErrMsgId(stats::silhouette::BadInputType());
    });
    EXPECT_EQ(raisedId([&] { run(dataInputs<double>({0, 1}, 1, 2, 1, 2, true)); }), "stats:silhouette:BadInputType");
    // A function that sets no output: the point has no neighbours.
    zvhost::registerFunction("pdist2", [](int, ndArray**, int, const ndArray**) {});
    EXPECT_EQ(run(dataInputs<double>({0, 1}, 1, 2, 1, 1, true)).labels, (std::vector<double>{1, 2}));
}

// n larger than the data holds: the points beyond it have no distances.
TEST(Dbscan, CountBeyondTheDataFindsNoNeighbours) {
    zvtest::LeakCheck leaks;
    Inputs in = dataInputs<double>({0, 1}, 1, 2, 1, 2);
    in.n = zvhost::scalar(3);
    EXPECT_EQ(run(in).labels, (std::vector<double>{1, 1, -1}));
}

}  // namespace

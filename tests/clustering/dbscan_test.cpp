// dbscan: identifiers in order, labels and core flags by hand, the three
// neighbour sources and both routes against each other, the data route
// against the test on the nested call's own distances at and around epsilon,
// thread counts, interruption from a worker, and the safe readings of short
// inputs and of counts beyond the data.
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <span>

#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The transpose of an m-by-n double or single array.
Owned transposed(const ndArray* a) {
    const size_t m = ndGetM(a), n = ndGetN(a), bytes = ndGetClassID(a) == ndSINGLE_CLASS ? 4 : 8;
    Owned t(ndCreateNumericMatrix(n, m, ndGetClassID(a), ndREAL));
    for (size_t i = 0; i < m; ++i)
        for (size_t j = 0; j < n; ++j)
            std::memcpy(static_cast<char*>(ndGetData(t.get())) + (i * n + j) * bytes,
                        static_cast<const char*>(ndGetData(a)) + (j * m + i) * bytes, bytes);
    return t;
}

// The host's "pdist2" for the life of the object: distances from each row of
// its first input to the single row of its second, by pdist2bif.
struct HostPdist2 {
    HostPdist2() {
        zvhost::registerFunction("pdist2", [](int, ndArray** outputs, int, const ndArray** inputs) {
            Owned x = transposed(inputs[0]), y = transposed(inputs[1]), none = zvhost::matrixOf<double>(0, 0);
            const ndArray* in[7] = {x.get(), y.get(), inputs[2], none.get(), none.get(), none.get(), none.get()};
            pdist2bif(1, outputs, 7, in);
        });
    }
    ~HostPdist2() { zvhost::unregisterFunction("pdist2"); }
};

struct Result {
    std::vector<double> labels;
    std::vector<bool> core;
    bool operator==(const Result&) const = default;
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
    if (hostRoute) data = transposed(data.get());
    return {std::move(data), zvhost::scalar(epsilon), zvhost::scalar(minpts), zvhost::text(metric),
            zvhost::scalar(2), zvhost::matrixOf<bool>(0, 0), zvhost::scalar(double(n)), zvhost::scalar(double(p)),
            zvhost::matrixOf<double>(0, 0), zvhost::logicalScalar(hostRoute)};
}

Inputs adjacencyInputs(const std::vector<bool>& adjacency, double mode, size_t n, double minpts, bool serial = false) {
    Owned a = zvhost::matrixOf<bool>(1, adjacency.size());
    for (size_t k = 0; k < adjacency.size(); ++k) ndGetLogicals(a.get())[k] = adjacency[k];
    return {zvhost::matrixOf<bool>(0, 0), zvhost::scalar(0), zvhost::scalar(minpts), zvhost::text("euc"),
            zvhost::scalar(mode), std::move(a), zvhost::scalar(double(n)), zvhost::scalar(1),
            zvhost::matrixOf<double>(0, 0), zvhost::logicalScalar(serial)};
}

Result run(const Inputs& in, int numOutputs = 2) {
    auto out = zvhost::call(dbscan, numOutputs, in.list());
    EXPECT_EQ(out.size(), size_t(numOutputs));
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

// Full (mode 0) or condensed (mode 1) adjacency of the pairs whose distance
// in d (n-by-n) is at most epsilon.
std::vector<bool> adjacencyOf(const std::vector<double>& d, size_t n, double epsilon, bool condensed) {
    std::vector<bool> a;
    for (size_t i = 0; i < n; ++i)
        for (size_t j = condensed ? i + 1 : 0; j < n; ++j) a.push_back(i != j && d[i * n + j] <= epsilon);
    return a;
}

// The nested call's own distances among the n points of x (p-by-n), as doubles.
template <class T>
std::vector<double> nestedDistances(const std::vector<T>& x, size_t p, size_t n, const char* metric) {
    Owned xa = zvhost::matrixOf<T>(p, n, std::span<const T>(x));
    Owned code = zvhost::text(metric), none = zvhost::matrixOf<double>(0, 0);
    const ndArray* none4 = none.get();
    auto d = zvhost::call(pdist2bif, 1, {xa.get(), xa.get(), code.get(), none4, none4, none4, none4});
    const auto v = zvhost::valuesOf<T>(d[0].get());
    return std::vector<double>(v.begin(), v.end());
}

TEST(Dbscan, IdentifiersComeInTheirOrder) {
    zvtest::LeakCheck leaks;
    Inputs in = dataInputs<double>({0, 1}, 1, 2, 1, 1);
    auto ids = [&](int numOutputs, std::vector<const ndArray*> list) {
        return raisedId([&] { zvhost::call(dbscan, numOutputs, list); });
    };
    Owned sparse(zvhost::createSparse(1, 2, 0)), complex(zvhost::createComplexMatrix(1, 2));
    Owned int32 = zvhost::matrixOf<int32_t>(1, 2), text = zvhost::text("ab");
    auto with = [&](const ndArray* data) {
        auto l = in.list();
        l[0] = data;
        return l;
    };
    auto nine = in.list(), eleven = in.list();
    nine.pop_back();
    eleven.push_back(in.route.get());
    EXPECT_EQ(ids(3, nine), "stats:dbscan:TooFewOrManyInputs");
    EXPECT_EQ(ids(1, eleven), "stats:dbscan:TooFewOrManyInputs");
    EXPECT_EQ(ids(3, with(sparse.get())), "stats:dbscan:TooManyOutputArguments");
    EXPECT_EQ(ids(0, with(sparse.get())), "stats:dbscan:TooManyOutputArguments");
    EXPECT_EQ(ids(2, with(sparse.get())), "stats:dbscan:UndefinedFunctionNoSparse");
    EXPECT_EQ(ids(2, with(complex.get())), "stats:dbscan:UndefinedFunctionNoComplex");
    EXPECT_EQ(ids(2, with(int32.get())), "stats:dbscan:UndefinedFunctionOnlyDoubleOrSingle");
    EXPECT_EQ(ids(1, with(text.get())), "stats:dbscan:UndefinedFunctionOnlyDoubleOrSingle");
    EXPECT_EQ(ids(1, in.list()), "");
}

// 1-d points 0, 1, 2, 10, 11, 20 and 20.5; distances of exactly epsilon are
// neighbours, minpts counts the point itself, clusters are numbered by their
// first point, and noise met first joins a later cluster as a border point.
TEST(Dbscan, LabelsAndCoreFlagsByHand) {
    zvtest::LeakCheck leaks;
    const std::vector<double> x = {0, 1, 2, 10, 11, 20, 20.5};
    const bool f = false, t = true;
    const struct {
        std::vector<double> x;
        double epsilon, minpts;
        std::vector<double> labels;
        std::vector<bool> core;
    } cases[] = {
        {x, 1.0, 3, {1, 1, 1, -1, -1, -1, -1}, {f, t, f, f, f, f, f}},
        {x, 1.0, 2, {1, 1, 1, 2, 2, 3, 3}, std::vector<bool>(7, t)},
        {x, 0.9, 1, {1, 2, 3, 4, 5, 6, 6}, std::vector<bool>(7, t)},
        {{0, 1, 1.5, 2, -1.5}, 1.0, 3, {1, 1, 1, 1, -1}, {f, t, t, t, f}},  // 0 is noise, then a border point
        {{}, 1.0, 1, {}, {}},
    };
    HostPdist2 host;
    for (const auto& c : cases)
        for (bool hostRoute : {false, true}) {
            const size_t n = c.x.size();
            EXPECT_EQ(run(dataInputs(c.x, 1, n, c.epsilon, c.minpts, hostRoute)), (Result{c.labels, c.core}));
            const std::vector<float> xf(c.x.begin(), c.x.end());  // the float engine, labels still double
            EXPECT_EQ(run(dataInputs(xf, 1, n, c.epsilon, c.minpts, hostRoute), 1).labels, c.labels);
        }
    // A NaN coordinate makes every distance of its point NaN: no neighbours.
    const std::vector<double> withNaN = {0, 0, kNaN, 1, 0.5, 0.5};
    EXPECT_EQ(run(dataInputs(withNaN, 2, 3, 1, 2)).labels, (std::vector<double>{1, -1, 1}));
    EXPECT_EQ(run(dataInputs(withNaN, 2, 3, 1, 1)).labels, (std::vector<double>{1, 2, 1}));
}

TEST(Dbscan, ThreeNeighbourSourcesAndBothRoutesAgree) {
    zvtest::LeakCheck leaks;
    HostPdist2 host;
    const size_t n = 300;
    const auto x = blobs(n, 3);
    const auto d = nestedDistances(x, 2, n, "euc");
    for (double minpts : {1.0, 4.0, 9.0}) {
        const double epsilon = 0.35;
        const Result nested = run(dataInputs(x, 2, n, epsilon, minpts));
        EXPECT_GT(*std::max_element(nested.labels.begin(), nested.labels.end()), 2.0);
        EXPECT_EQ(run(dataInputs(x, 2, n, epsilon, minpts, true)), nested);
        EXPECT_EQ(run(dataInputs(x, 2, n, epsilon, minpts, false, "che")),
                  run(adjacencyInputs(adjacencyOf(nestedDistances(x, 2, n, "che"), n, epsilon, false), 0, n, minpts)));
        for (bool serial : {false, true}) {
            EXPECT_EQ(run(adjacencyInputs(adjacencyOf(d, n, epsilon, false), 0, n, minpts, serial)), nested);
            EXPECT_EQ(run(adjacencyInputs(adjacencyOf(d, n, epsilon, true), 1, n, minpts, serial)), nested);
        }
    }
}

// The data route tests epsilon on the values before the root, over panels in
// a spatial order; its result is the test "distance <= epsilon" on the nested
// call's own distances, bit for bit, also exactly at a distance and one ulp
// either side, with NaN coordinates, extreme epsilons and far-out points.
template <class T>
void expectDataRouteIsTheTestOnItsDistances(const std::vector<double>& points, size_t n, const char* metric,
                                            size_t picks) {
    const std::vector<T> x(points.begin(), points.end());
    const auto d = nestedDistances(x, 2, n, metric);
    std::vector<double> values;
    for (double v : d)
        if (std::isfinite(v) && v > 0 && v < 0.5) values.push_back(v);
    std::sort(values.begin(), values.end());
    std::vector<T> epsilons{T(0), T(-0.0), T(-1), T(kNaN)};
    if (n < 1000) epsilons.insert(epsilons.end(), {T(INFINITY), T(1e300)});  // everyone's neighbour
    for (size_t q = 1; q <= picks; ++q) {
        const T v = T(values[q * (values.size() - 1) / picks]);
        for (T e : {std::nextafter(v, T(-INFINITY)), v, std::nextafter(v, T(INFINITY))}) epsilons.push_back(e);
    }
    for (T epsilon : epsilons) {
        SCOPED_TRACE(std::string(metric) + " epsilon " + std::to_string(epsilon) + " n " + std::to_string(n));
        Inputs adjacency = adjacencyInputs(adjacencyOf(d, n, double(epsilon), false), 0, n, 1);
        for (double minpts : {1.0, 3.0}) {
            adjacency.minpts = zvhost::scalar(minpts);
            ASSERT_EQ(run(dataInputs(x, 2, n, double(epsilon), minpts, false, metric)), run(adjacency));
        }
    }
}

TEST(Dbscan, DataRouteIsTheTestOnTheNestedDistances) {
    zvtest::LeakCheck leaks;
    auto x = blobs(203, 5);
    x[7] = x[100] = x[101] = kNaN;
    x[40] = 1e200;
    std::mt19937 gen(1);
    std::vector<double> grid(2 * 203);
    for (double& v : grid) v = double(gen() % 12) * 0.1;  // many pairs exactly at a distance; roots that round
    for (const char* metric : {"euc", "sqe", "cit"})
        for (const auto* points : {&x, &grid}) {
            expectDataRouteIsTheTestOnItsDistances<double>(*points, 203, metric, 4);
            expectDataRouteIsTheTestOnItsDistances<float>(*points, 203, metric, 4);
        }
    // Enough points for many groups of panels, some of them far out.
    auto many = blobs(3000, 8);
    for (size_t i = 0; i < many.size(); i += 500) many[i] *= 40.0;
    expectDataRouteIsTheTestOnItsDistances<double>(many, 3000, "euc", 1);
}

// The full adjacency is read at i*n + j for point i; pairs missing from a
// short adjacency are no neighbours, and cost nothing however many points.
TEST(Dbscan, AdjacencyIsReadByRowsOfPointsAndShortOnesAsFalse) {
    zvtest::LeakCheck leaks;
    std::vector<bool> a(9, false);  // point 0 lists 1 and 2; nobody lists point 0
    a[0 * 3 + 1] = a[0 * 3 + 2] = true;
    EXPECT_EQ(run(adjacencyInputs(a, 0, 3, 3)), (Result{{1, 1, 1}, {true, false, false}}));
    std::vector<bool> t(9, false);
    t[1 * 3 + 0] = t[2 * 3 + 0] = true;
    EXPECT_EQ(run(adjacencyInputs(t, 0, 3, 3)).labels, (std::vector<double>{-1, -1, -1}));
    EXPECT_EQ(run(adjacencyInputs({true}, 1, 4, 2)).labels, (std::vector<double>{1, 1, -1, -1}));  // 6 pairs needed
    EXPECT_EQ(run(adjacencyInputs({false, true, false, false, true}, 0, 4, 2)).labels,
              (std::vector<double>{1, 1, -1, -1}));  // 16 needed
    const size_t many = 300000;
    const auto started = std::chrono::steady_clock::now();
    const auto labels = run(adjacencyInputs({true, false, true}, 1, many, 2), 1).labels;
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(), 5.0);
    EXPECT_EQ(std::vector<double>(labels.begin(), labels.begin() + 5), (std::vector<double>{1, 1, -1, 1, -1}));
    EXPECT_EQ(std::count(labels.begin(), labels.end(), -1.0), ptrdiff_t(many - 3));
}

// A count of points beyond what the data holds: those points have no
// distances, and their one shared query is made once, by either route.
TEST(Dbscan, CountBeyondTheDataQueriesTheMissingPointsOnce) {
    zvtest::LeakCheck leaks;
    HostPdist2 host;
    for (bool hostRoute : {false, true}) {
        Inputs in = dataInputs<double>({0, 1, 9}, 1, 3, 1, 2, hostRoute);
        in.n = zvhost::scalar(2000);
        zvhost::resetPollCount();
        zvhost::resetCallLog();
        const auto labels = run(in).labels;
        EXPECT_EQ(std::vector<double>(labels.begin(), labels.begin() + 4), (std::vector<double>{1, 1, -1, -1}));
        EXPECT_EQ(std::count(labels.begin(), labels.end(), -1.0), 1998);
        if (hostRoute) EXPECT_EQ(zvhost::callLog().size(), 4u);  // rows 0, 1, 2 and the missing one
        else EXPECT_LT(zvhost::pollCount(), 100);
    }
    // Data that holds nothing at all (p = 0, or an empty array by the host
    // route): every point is a missing one.
    Inputs none = dataInputs<double>({0, 1, 9}, 1, 3, 1, 2);
    none.p = zvhost::scalar(0);
    EXPECT_EQ(raisedId([&] { run(none); }), "stats:pdist2bif:XYDimsMismatch");
    Inputs empty = dataInputs<double>({0, 1, 9}, 1, 3, 1, 2, true);
    empty.data = zvhost::matrixOf<double>(3, 0);
    EXPECT_EQ(raisedId([&] { run(empty); }), "stats:pdist2bif:XYDimsMismatch");
    // An unknown metric gives zeros: a missing point has the data's points as
    // neighbours, though none has it, and starts a cluster of its own.
    Inputs unknown = dataInputs<double>({0, 1, 9}, 1, 3, 1, 2, false, "xyz");
    unknown.n = zvhost::scalar(5);
    EXPECT_EQ(run(unknown).labels, (std::vector<double>{1, 1, 1, 2, 3}));
}

TEST(Dbscan, ResultsDoNotDependOnTheThreadCount) {
    zvtest::LeakCheck leaks;
    const size_t n = 1500;
    const auto x = blobs(n, 11);
    for (double minpts : {3.0, 12.0})
        for (const char* metric : {"euc", "che"}) {
            const Inputs in = dataInputs(x, 2, n, 0.2, minpts, false, metric);
            const Result one = zvtest::withThreads(1, [&] { return run(in); });
            EXPECT_EQ(zvtest::withThreads(2, [&] { return run(in); }), one);
        }
}

TEST(Dbscan, InterruptFromAWorkerLeavesNothingBehind) {
    const auto x = blobs(400, 2);
    for (const char* metric : {"euc", "che"}) {
        const Inputs in = dataInputs(x, 2, 400, 0.3, 3, false, metric);
        for (long polls : {1L, 7L, 60L, 400L}) {
            zvtest::LeakCheck leaks;
            zvhost::interruptAfterPolls(polls);
            EXPECT_EQ(raisedId([&] { zvtest::withThreads(2, [&] { return zvhost::call(dbscan, 2, in.list()); }); }),
                      "zvhost:Interrupted") << metric << " " << polls;
            zvhost::interruptAfterPolls(0);
        }
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
    EXPECT_EQ(run(dataInputs<double>({0, 1, 5}, 1, 3, 1, 2, false, "xyz")).labels, (std::vector<double>{1, 1, 1}));
}

TEST(Dbscan, HostRouteCallsTheHostsPdist2OncePerQuery) {
    zvtest::LeakCheck leaks;
    HostPdist2 host;
    zvhost::resetCallLog();
    run(dataInputs<double>({0, 1, 2, 10}, 1, 4, 1, 2, true));
    EXPECT_EQ(zvhost::callLog(), std::vector<std::string>(4, "pdist2"));
    // The host's errors are the host's.
    zvhost::registerFunction("pdist2", [](int, ndArray**, int, const ndArray**) {
        ndErrMsgId(stats::silhouette::BadInputType());
    });
    EXPECT_EQ(raisedId([&] { run(dataInputs<double>({0, 1}, 1, 2, 1, 2, true)); }), "stats:silhouette:BadInputType");
    // A function that sets no output: the point has no neighbours.
    zvhost::registerFunction("pdist2", [](int, ndArray**, int, const ndArray**) {});
    EXPECT_EQ(run(dataInputs<double>({0, 1}, 1, 2, 1, 1, true)).labels, (std::vector<double>{1, 2}));
}

}  // namespace

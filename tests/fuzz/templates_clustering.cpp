// Fuzz templates: agglomerative linkage, dbscan, silhouette means, and the
// neighbour-embedding gradient and loss.
#include "fuzz/fuzz.hpp"

namespace {

using namespace zvfuzz;

// Six points in three dimensions, p-by-n (a point per column).
template <class T>
Owned points(bool rows = false) {
    return rows ? randomMatrix<T>(6, 3, 21) : randomMatrix<T>(3, 6, 21);
}

ZV_FUZZ_TEMPLATES("linkagebif", linkage) {
    // Condensed distances of five points, every method by its code or name.
    for (const char* method : {"si", "complete", "av", "weighted", "ce", "median", "ward"}) {
        t.add(std::string("double condensed ") + method, 1,
              [=] { return args(randomMatrix<double>(1, 10, 31, 0.5, 3), text(method)); });
    }
    t.add("single condensed ward", 1, [] { return args(randomMatrix<float>(1, 10, 32, 0.5, 3), text("wa")); });
    t.add("single condensed single", 1, [] { return args(randomMatrix<float>(1, 10, 33, 0.5, 3), text("si")); });
    // Data through the host's "pdist", with and without extra arguments.
    t.add("double data through pdist, minkowski 3", 1, [] {
        std::vector<Owned> extra;
        extra.push_back(text("minkowski"));
        extra.push_back(scalar(3));
        return args(points<double>(true), text("average"), cell(std::move(extra)), empty());
    });
    t.add("single data through pdist, no arguments", 1,
          [] { return args(points<float>(true), text("centroid"), cell({}), logical(false)); });
    // The memory-saving mode on the observations themselves.
    for (const char* method : {"ce", "me", "wa"}) {
        t.add(std::string("double memory-saving ") + method, 1,
              [=] { return args(points<double>(), text(method), cell({}), logical(true)); });
    }
    t.add("single memory-saving ward", 1, [] { return args(points<float>(), text("ward"), cell({}), logical(true)); });
}

// The ten inputs of dbscan on six points; the mode picks the neighbour source.
template <class T>
std::vector<Owned> dbscanCall(double mode, const char* metric, bool hostRoute) {
    Owned data = mode >= 2 ? points<T>(hostRoute) : dense<bool>(0, 0);
    Owned adjacency = dense<bool>(0, 0);
    const bool f = false, t = true;
    if (mode == 0) adjacency = logicals({f, t, t, f, f, f, t, f, t, f, f, f, t, t, f, f, f, f,
                                         f, f, f, f, t, t, f, f, f, t, f, t, f, f, f, t, t, f});
    if (mode == 1) adjacency = logicals({t, t, f, f, f, t, f, f, f, f, f, f, t, t, t}, false);
    return args(std::move(data), scalar(0.9), scalar(2), text(metric), scalar(mode), std::move(adjacency), scalar(6),
                scalar(3), empty(), logical(hostRoute));
}

ZV_FUZZ_TEMPLATES("dbscan", dbscan) {
    t.add("adjacency matrix, two outputs", 2, [] { return dbscanCall<double>(0, "euc", false); });
    t.add("condensed adjacency, serial, one output", 1, [] { return dbscanCall<double>(1, "euc", true); });
    t.add("double data, panel metric", 2, [] { return dbscanCall<double>(2, "euc", false); });
    t.add("double data, nested metric", 1, [] { return dbscanCall<double>(2, "cos", false); });
    t.add("single data, panel metric", 1, [] { return dbscanCall<float>(2, "cit", false); });
    t.add("single data, nested metric", 2, [] { return dbscanCall<float>(2, "che", false); });
    t.add("double data through the host's pdist2", 2, [] { return dbscanCall<double>(2, "euclidean", true); });
    t.add("single data through the host's pdist2", 1, [] { return dbscanCall<float>(2, "cityblock", true); });
}

// Six points in clusters 1, 1, 2, 2, 3, 2.
Owned silhouetteMask() {
    return dense<bool>(6, 3, {true, true, false, false, false, false, false, false, true, true, false, true,
                              false, false, false, false, true, false});
}

template <class T>
std::vector<Owned> onePointCall() {
    return args(dense<T>(6, 1, {0, 0.5, 2, 2.5, 4, 3}), silhouetteMask(), dense<T>(1, 3, {2, 3, 1}), scalar(3),
                scalar(1));
}

template <class T>
std::vector<Owned> allPointsCall(const char* metric) {
    return args(points<T>(), silhouetteMask(), dense<T>(1, 3, {2, 3, 1}), scalar(3),
                dense<double>(6, 1, {1, 1, 2, 2, 3, 2}), text(metric));
}

ZV_FUZZ_TEMPLATES("silhouette", silhouetteTemplates) {
    t.add("double one point", 2, [] { return onePointCall<double>(); });
    t.add("single one point", 2, [] { return onePointCall<float>(); });
    t.add("double all points, panel metric", 2, [] { return allPointsCall<double>("euc"); });
    t.add("double all points, nested metric", 2, [] { return allPointsCall<double>("cos"); });
    t.add("single all points, panel metric", 2, [] { return allPointsCall<float>("sqe"); });
    t.add("single all points, nested metric", 2, [] { return allPointsCall<float>("che"); });
}

// Six points in d dimensions with two affinity entries each.
template <class T>
std::vector<Owned> embeddingCall(size_t d, bool gradient) {
    const std::vector<double> neighbours{2, 3, 3, 1, 4, 5, 5, 6, 6, 1, 1, 2};
    const std::vector<double> counts(6, 2.0);
    std::vector<double> starts;
    for (size_t i = 0; i < 6; ++i) starts.push_back(double(2 * i));
    Owned y = randomMatrix<T>(d, 6, 41);
    Owned values = randomMatrix<T>(1, 12, 42, 0.01, 0.1);
    if (!gradient)
        return args(std::move(y), dense<double>(1, 12, neighbours), dense<double>(1, 6, counts), std::move(values),
                    scalar(3.5));
    return args(scalar(0.5), std::move(y), dense<T>(d, 1, std::vector<T>(d, T(0))),
                dense<T>(d, 1, std::vector<T>(d, T(1.5))), dense<double>(1, 12, neighbours),
                dense<double>(1, 6, counts), std::move(values), dense<double>(1, 6, starts));
}

ZV_FUZZ_TEMPLATES("tsnebhbif", tsneGradient) {
    t.add("double 2-d, three outputs", 3, [] { return embeddingCall<double>(2, true); });
    t.add("double 3-d, two outputs", 2, [] { return embeddingCall<double>(3, true); });
    t.add("single 2-d, one output", 1, [] { return embeddingCall<float>(2, true); });
    t.add("single 4-d, three outputs", 3, [] { return embeddingCall<float>(4, true); });
}

ZV_FUZZ_TEMPLATES("tsnelossbif", tsneLoss) {
    t.add("double 2-d", 1, [] { return embeddingCall<double>(2, false); });
    t.add("single 3-d", 1, [] { return embeddingCall<float>(3, false); });
}

}  // namespace

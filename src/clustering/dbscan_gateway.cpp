// dbscan: density-based cluster labels (and core flags) from an adjacency
// matrix, a condensed adjacency vector, or data with a distance per query.
#include <optional>

#include "clustering/dbscan.hpp"
#include "clustering/dbscan_neighbors.hpp"
#include "distance/panel_columns.hpp"
#include "frame/gateway.hpp"

namespace {

namespace ids = stats::dbscan;

constexpr double kAdjacencyMatrixMode = 0.0;
constexpr double kCondensedAdjacencyMode = 1.0;

// The nested route takes panels of the data built once when the nested call
// would find the same values by them: data of class T holding exactly the n
// points of p >= 1 coordinates, and a metric with a panel kernel.
template <class T>
std::optional<zv::distance::PairMetric> panelRouteMetric(const ndArray* data, size_t n, size_t p,
                                                         const ndArray* metric, const ndArray* parameter) {
    if (ndGetClassID(data) != zv::classOf<T>() || p == 0 || ndGetM(data) != p || ndGetN(data) != n)
        return std::nullopt;
    return zv::distance::panelMetricOf(metric, parameter);
}

template <class T>
void dbscanTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const ndArray* data = inputs[0];
    const T epsilon = T(ndGetScalar(inputs[1]));
    const T minpts = T(ndGetScalar(inputs[2]));
    const ndArray* metric = inputs[3];
    const double mode = ndGetScalar(inputs[4]);
    const ndArray* adjacencyArg = inputs[5];
    const size_t n = zv::checked::toSize(ndGetScalar(inputs[6]));
    const size_t p = zv::checked::toSize(ndGetScalar(inputs[7]));
    const ndArray* parameter = inputs[8];
    const bool hostRoute = ndGetScalar(inputs[9]) != 0;  // first element; empty is false

    matrix::unique_nd_ptr labels = zv::createMatrix<double>(n, 1);
    matrix::unique_nd_ptr core;
    if (numOutputs >= 2) core = zv::createMatrix<bool>(n, 1);
    const std::shared_ptr<InterruptStateData> interrupt = hostGetInterruptStateData();

    double* labelData = zv::dataOf<double>(labels.get());
    bool* coreData = core ? ndGetLogicals(core.get()) : nullptr;
    auto run = [&](const auto& query) {
        zv::clustering::dbscanEngine<T>(query, n, minpts, hostRoute, labelData, coreData);
    };
    const auto* adjacency = static_cast<const unsigned char*>(ndGetData(adjacencyArg));
    if (mode == kAdjacencyMatrixMode) {
        run(zv::clustering::AdjacencyMatrixNeighbors{adjacency, zv::storedBytes(adjacencyArg), n});
    } else if (mode == kCondensedAdjacencyMode) {
        run(zv::clustering::CondensedAdjacencyNeighbors{adjacency, zv::storedBytes(adjacencyArg), n});
    } else if (hostRoute) {
        using Source = zv::clustering::HostPdist2Rows;
        run(zv::clustering::DistanceNeighbors<T, Source>(Source(data, n, p, metric), epsilon, n));
    } else if (const auto panelMetric = panelRouteMetric<T>(data, n, p, metric, parameter)) {
        run(zv::clustering::PanelDistanceNeighbors<T>(zv::dataOf<const T>(data), n, p, *panelMetric, epsilon,
                                                      interrupt));
    } else {
        using Source = zv::clustering::NestedColumns;
        run(zv::clustering::DistanceNeighbors<T, Source>(Source(data, p, metric, parameter, interrupt), epsilon, n));
    }

    zv::handOver(outputs, numOutputs, std::move(labels), std::move(core));
}

}  // namespace

ZV_DEFINE_GATEWAY(dbscan) {
    zv::raiseIf<ids::TooFewOrManyInputs>(numInputs != 10);
    zv::raiseIf<ids::TooManyOutputArguments>(numOutputs != 1 && numOutputs != 2);
    const ndArray* data = inputs[0];
    zv::raiseIf<ids::UndefinedFunctionNoSparse>(ndIsSparse(data));
    zv::raiseIf<ids::UndefinedFunctionNoComplex>(ndIsComplex(data));
    // Logical data runs the double engine.
    if (ndGetClassID(data) == ndLOGICAL_CLASS) return dbscanTyped<double>(numOutputs, outputs, inputs);
    zv::dispatchReal<ids::UndefinedFunctionOnlyDoubleOrSingle>(
        data, [&](auto tag) { dbscanTyped<decltype(tag)>(numOutputs, outputs, inputs); });
}

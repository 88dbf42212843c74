// silhouette: the within-cluster and per-cluster mean distances of one point
// from its known distances (five inputs), or of every point of a data set
// from its distances computed on the way (six or more).
#include <limits>
#include <vector>

#include "clustering/silhouette.hpp"
#include "distance/panel_columns.hpp"
#include "distance/pdist2_column.hpp"
#include "frame/gateway.hpp"

namespace {

namespace ids = stats::silhouette;

// `count` numbers of a double or single array as T; entries it lacks, or of
// another class, take `missing`.
template <class T>
std::vector<T> valuesAs(const ndArray* a, size_t count, T missing) {
    std::vector<T> out(count, missing);
    const size_t have = std::min(count, ndGetNumberOfElements(a));
    zv::visitRealData(a, [&](const auto* v) { std::copy_n(v, have, out.begin()); });
    return out;
}

// The first element as a double; an empty array gives NaN.
double firstValue(const ndArray* a) {
    return ndIsEmpty(a) ? std::numeric_limits<double>::quiet_NaN() : ndGetScalar(a);
}

zv::clustering::ClusterMask maskOf(const ndArray* a, size_t rows) {
    return {static_cast<const unsigned char*>(ndGetData(a)), zv::storedBytes(a), rows};
}

template <class T>
void silhouetteOnePoint(ndArray** outputs, const ndArray** inputs) {
    const ndArray* distances = inputs[0];
    // A distance array with no columns holds no values, whatever its rows.
    const size_t m = std::min(ndGetM(distances), ndGetNumberOfElements(distances));
    const size_t K = zv::checked::toSize(firstValue(inputs[3]));
    const std::vector<T> counts = valuesAs<T>(inputs[2], K, T(0));
    const double own = firstValue(inputs[4]);

    outputs[0] = ndCreateNumericMatrix(1, 1, zv::classOf<T>(), ndREAL);
    outputs[1] = ndCreateNumericMatrix(1, K, zv::classOf<T>(), ndREAL);
    zv::clustering::silhouettefun(zv::dataOf<const T>(distances), maskOf(inputs[1], m), counts.data(), K, own,
                                  zv::dataOf<T>(outputs[0]), zv::dataOf<T>(outputs[1]));
}

template <class T>
void silhouetteAllPoints(ndArray** outputs, const ndArray** inputs) {
    const ndArray* data = inputs[0];
    const size_t p = ndGetM(data), n = ndGetN(data);
    const size_t K = zv::checked::toSize(firstValue(inputs[3]));
    const std::vector<T> counts = valuesAs<T>(inputs[2], K, T(0));
    const std::vector<double> own = valuesAs<double>(inputs[4], n, std::numeric_limits<double>::quiet_NaN());

    outputs[0] = ndCreateNumericMatrix(n, 1, zv::classOf<T>(), ndREAL);
    outputs[1] = ndCreateNumericMatrix(n, K, zv::classOf<T>(), ndREAL);
    const std::shared_ptr<InterruptStateData> interrupt = hostGetInterruptStateData();
    T* within = zv::dataOf<T>(outputs[0]);
    T* between = zv::dataOf<T>(outputs[1]);
    // The metrics with a panel kernel take panels of the data built once;
    // sparse or complex data goes to the nested call, which refuses it.
    const bool dense = !ndIsSparse(data) && !ndIsComplex(data);
    if (const auto panelMetric = zv::distance::panelMetricOf(inputs[5], nullptr); panelMetric && dense && p > 0) {
        const zv::distance::PanelColumns<T> panels(zv::dataOf<const T>(data), n, p, *panelMetric);
        // A tile is one panel: the values of points j against it fall in
        // the rows d[j * L ..] the sums read. The pair's value does not
        // depend on which point is the panel's. Polled once per block of
        // rows, about as often as the nested call polls.
        constexpr size_t L = zv::distance::PanelColumns<T>::kLanes, kRows = 16;
        static_assert(kRows <= zv::distance::PanelColumns<T>::kMaxPoints);
        auto rows = [&](size_t r0, size_t j0, size_t count, T* d) {
            InterruptState::ThrowIfInterruptPending(interrupt);
            panels.block(j0, count, r0 / L, d);
            panels.finish(d, count * L, d);
        };
        const zv::clustering::PointClusters clusters(maskOf(inputs[1], n), K);
        zv::clustering::silhouetteByTiles<T, L, kRows>(n, rows, clusters, counts.data(), K, own.data(), within,
                                                       between);
        return;
    }
    const zv::clustering::ClusterMembers members(maskOf(inputs[1], n), K);
    const zv::distance::Pdist2Column column(data, p, inputs[5], nullptr, interrupt);
    // The full mode gives n values of the class of the data for every point.
    auto distances = [&](size_t r, auto&& use) {
        const matrix::unique_nd_ptr d = column(r);
        use(zv::dataOf<const T>(d.get()));
    };
    zv::clustering::silhouettepdist2fun(n, distances, members, counts.data(), K, own.data(), within, between);
}

}  // namespace

ZV_DEFINE_GATEWAY(silhouette) {
    zv::raiseIf<ids::IncorrectNumInputs>(numInputs < 5);
    zv::raiseIf<ids::IncorrectNumOutputs>(numOutputs != 2);
    zv::dispatchReal<ids::BadInputType>(inputs[0], [&](auto tag) {
        using T = decltype(tag);
        if (numInputs == 5) silhouetteOnePoint<T>(outputs, inputs);
        else silhouetteAllPoints<T>(outputs, inputs);
    });
}

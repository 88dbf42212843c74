// silhouette: the within-cluster and per-cluster mean distances of one point
// from its known distances (five inputs), or of every point of a data set
// from its distances computed on the way (six or more).
#include <limits>

#include "clustering/silhouette.hpp"
#include "clustering/silhouette_tiles.hpp"
#include "distance/panel_columns.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"

namespace {

namespace ids = stats::silhouette;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The first element as a double; an empty array gives NaN.
double firstValue(const ndArray* a) {
    return ndIsEmpty(a) ? kNaN : ndGetScalar(a);
}

zv::clustering::ClusterMask maskOf(const ndArray* a, size_t rows) {
    return {static_cast<const unsigned char*>(ndGetData(a)), zv::storedBytes(a), rows};
}

template <class T>
void silhouetteOnePoint(ndArray** outputs, const ndArray** inputs) {
    // A distance array with no columns holds no values, whatever its rows.
    const size_t m = std::min(ndGetM(inputs[0]), ndGetNumberOfElements(inputs[0]));
    const zv::HostValues<T> distances(inputs[0], m, T(kNaN));
    // K values of the counts are read before anything is made of K.
    const size_t K = zv::checked::toSize(firstValue(inputs[3]));
    const zv::HostValues<T> counts(inputs[2], K, T(0));
    const double own = firstValue(inputs[4]);

    outputs[0] = ndCreateNumericMatrix(1, 1, zv::classOf<T>(), ndREAL);
    outputs[1] = ndCreateNumericMatrix(1, K, zv::classOf<T>(), ndREAL);
    zv::clustering::silhouettefun(distances.data(), maskOf(inputs[1], m), counts.data(), K, own,
                                  zv::dataOf<T>(outputs[0]), zv::dataOf<T>(outputs[1]));
}

template <class T>
void silhouetteAllPoints(ndArray** outputs, const ndArray** inputs) {
    const ndArray* data = inputs[0];
    const size_t p = ndGetM(data), n = ndGetN(data);
    const size_t K = zv::checked::toSize(firstValue(inputs[3]));
    const zv::HostValues<T> counts(inputs[2], K, T(0));
    const zv::HostValues<double> own(inputs[4], n, kNaN);
    const ndArray* metric = inputs[5];

    outputs[0] = ndCreateNumericMatrix(n, 1, zv::classOf<T>(), ndREAL);
    outputs[1] = ndCreateNumericMatrix(n, K, zv::classOf<T>(), ndREAL);
    const std::shared_ptr<InterruptStateData> interrupt = hostGetInterruptStateData();
    T* within = zv::dataOf<T>(outputs[0]);
    T* between = zv::dataOf<T>(outputs[1]);
    // Sparse or complex data goes to the nested call, which refuses it.
    const bool dense = !ndIsSparse(data) && !ndIsComplex(data);
    if (const auto panelMetric = zv::distance::panelMetricOf(metric, nullptr); panelMetric && dense && p > 0)
        zv::clustering::silhouetteByPanels(zv::dataOf<const T>(data), n, p, *panelMetric, maskOf(inputs[1], n),
                                           counts.data(), K, own.data(), interrupt, within, between);
    else
        zv::clustering::silhouetteByNestedCalls(zv::clustering::NestedColumns(data, p, metric, nullptr, interrupt), n,
                                                maskOf(inputs[1], n), counts.data(), K, own.data(), within, between);
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

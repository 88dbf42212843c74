// The distances from columns of a data set to all its columns over panels of
// the data built once per call: what the clustering engines ask of the nested
// cross distance point after point, without regrouping the data per point.
// Values and distances are those of the nested call, bit for bit.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>

#include "distance/metric_codes.hpp"
#include "distance/pair_kernels.hpp"
#include "frame/gateway.hpp"

namespace zv::distance {

// The panel metric that the nested call (data, one of its columns, code,
// parameter) would run with no missing-data marks and no use of the
// parameter: euclidean, squared euclidean, city block with an empty
// parameter. Anything else keeps the nested call.
inline std::optional<PairMetric> panelMetricOf(const ndArray* code, const ndArray* parameter) {
    if (parameter && !ndIsEmpty(parameter)) return std::nullopt;
    const auto metric = metricOfCode(code);
    if (metric == PairMetric::Euclidean || metric == PairMetric::SquaredEuclidean || metric == PairMetric::CityBlock)
        return metric;
    return std::nullopt;
}

template <class T>
class PanelColumns {
public:
    static constexpr size_t kLanes = ObservationPanels<T>::kLanes;
    static constexpr size_t kMaxPoints = 32;

    // x: p-by-n, a point is a column; p >= 1.
    PanelColumns(const T* x, size_t n, size_t p, PairMetric metric)
        : x_(x), p_(p), panels_(ObservationPanels<T>::build(x, n, p)), metric_(metric) {}

    size_t numPanels() const { return panels_.numPanels; }

    // The values (before the root) of points first .. first + count - 1
    // (count <= kMaxPoints) against the points of panel b, into
    // out[c * kLanes + lane].
    void block(size_t first, size_t count, size_t b, T* out) const {
        const T* observations[kMaxPoints];
        for (size_t c = 0; c < count; ++c) observations[c] = x_ + (first + c) * p_;
        computeCrossBlock(CrossBlock<T>{metric_, observations, count, panels_.panel(b, p_), p_, nullptr, out});
    }

    // Values made into distances, in place or not.
    void finish(const T* v, size_t count, T* out) const {
        if (metric_ == PairMetric::Euclidean) computeRoots(v, count, out);
        else if (out != v) std::copy(v, v + count, out);
    }

private:
    const T* x_;
    size_t p_;
    ObservationPanels<T> panels_;
    PairMetric metric_;
};

}  // namespace zv::distance

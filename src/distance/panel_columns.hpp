// The distances from columns of a data set to all its columns over panels of
// the data built once per call: what the clustering engines ask of the nested
// cross distance point after point, without regrouping the data per point.
// Values and distances are those of the nested call, bit for bit.
#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>

#include "distance/cross_distance.hpp"
#include "distance/pair_kernels.hpp"
#include "frame/gateway.hpp"

namespace zv::distance {

// The panel metric that the nested call (data, one of its columns, code,
// parameter) would run with no missing-data marks and no use of the
// parameter: euclidean, squared euclidean, city block with an empty
// parameter. Anything else keeps the nested call.
inline std::optional<PairMetric> panelMetricOf(const ndArray* code, const ndArray* parameter) {
    if (parameter && !ndIsEmpty(parameter)) return std::nullopt;
    const zv::ShortCode<4> metric(code);
    if (metric.is("euc")) return PairMetric::Euclidean;
    if (metric.is("sqe")) return PairMetric::SquaredEuclidean;
    if (metric.is("cit")) return PairMetric::CityBlock;
    return std::nullopt;
}

template <class T>
class PanelColumns {
public:
    // x: p-by-n, a point is a column; p >= 1.
    PanelColumns(const T* x, size_t n, size_t p, PairMetric metric)
        : panels_(ObservationPanels<T>::build(x, n, p)), walker_{&panels_, metric, x, p, nullptr}, n_(n),
          metric_(metric) {}
    // The walker points into the panels.
    PanelColumns(const PanelColumns&) = delete;
    PanelColumns& operator=(const PanelColumns&) = delete;

    size_t size() const { return n_; }

    // Calls g(j, i0, count, values, hits) for the values (before the root)
    // of the pairs (point j, point i0 + k), j in [jb, je), in runs ascending
    // in i; with bounds, as PanelWalker::blocks filters them.
    template <class G>
    void values(size_t jb, size_t je, G&& g, const T* bounds = nullptr) const {
        walker_.blocks(jb, je, 0, n_, g, bounds, T(1));
    }

    // A run of values made into distances.
    void finish(const T* v, size_t count, T* out) const {
        if (metric_ == PairMetric::Euclidean) computeRoots(v, count, out);
        else std::copy(v, v + count, out);
    }

private:
    ObservationPanels<T> panels_;
    PanelWalker<T> walker_;
    size_t n_;
    PairMetric metric_;
};

}  // namespace zv::distance

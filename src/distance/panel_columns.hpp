// The distances from columns of a data set to all its columns over panels of
// the data built once per call: what the clustering engines ask of the nested
// cross distance point after point, without regrouping the data per point.
// Values and distances are those of the nested call, bit for bit.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
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

    // The most points valuesOf takes at once.
    static constexpr size_t kMaxPoints = PanelWalker<T>::kTile;

    // As values() with bounds, for the listed points (at most kMaxPoints):
    // g(c, i0, values, hits) for point points[c], with the lanes of the run
    // starting at i0 in hits; runs with no hit are skipped.
    template <class G>
    void valuesOf(const size_t* points, size_t count, const T* bounds, G&& g) const {
        constexpr size_t L = ObservationPanels<T>::kLanes;
        const size_t p = walker_.p;
        alignas(64) T values[kMaxPoints * L];
        const T* observations[kMaxPoints];
        uint32_t hits[kMaxPoints];
        for (size_t c = 0; c < count; ++c) observations[c] = walker_.Y + points[c] * p;
        for (size_t b = 0; b < panels_.numPanels; ++b) {
            computeCrossBlock(
                CrossBlock<T>{metric_, observations, count, panels_.panel(b, p), p, nullptr, values, bounds, T(1), hits});
            const size_t lanes = n_ - b * L < L ? n_ - b * L : L;
            const uint32_t inRun = lanes == 32 ? ~uint32_t(0) : (uint32_t(1) << lanes) - 1;
            for (size_t c = 0; c < count; ++c)
                if (const uint32_t h = hits[c] & inRun) g(c, b * L, values + c * L, h);
        }
    }

    // A run of values made into distances.
    void finish(const T* v, size_t count, T* out) const {
        if (metric_ == PairMetric::Euclidean) computeRoots(v, count, out);
        else std::copy(v, v + count, out);
    }

    // The largest value whose distance is at most `radius`: a value v (not
    // NaN) has distance <= radius exactly when v <= valueBound(radius). The
    // root is correctly rounded and monotone, so the bound is found by
    // stepping one value at a time from radius squared. -inf when nothing
    // passes (a NaN or negative radius with a root).
    T valueBound(T radius) const {
        constexpr T inf = std::numeric_limits<T>::infinity();
        if (std::isnan(radius)) return -inf;
        if (metric_ != PairMetric::Euclidean) return radius;
        if (radius < T(0)) return -inf;
        T t = radius * radius;
        while (std::sqrt(t) > radius) t = std::nextafter(t, -inf);
        while (t < inf && std::sqrt(std::nextafter(t, inf)) <= radius) t = std::nextafter(t, inf);
        return t;
    }
    // The bound the kernel tests with "below": the value after t, or NaN
    // (every lane passes) when t is infinite.
    static T kernelBound(T t) {
        constexpr T inf = std::numeric_limits<T>::infinity();
        return t == inf ? std::numeric_limits<T>::quiet_NaN() : std::nextafter(t, inf);
    }

private:
    ObservationPanels<T> panels_;
    PanelWalker<T> walker_;
    size_t n_;
    PairMetric metric_;
};

}  // namespace zv::distance

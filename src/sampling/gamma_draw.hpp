// Gamma random numbers with unit scale: Marsaglia and Tsang's squeeze and
// rejection, with the boost by one and a power for shapes below 1.
#pragma once

#include <cmath>
#include <cstddef>
#include "frame/constants.hpp"
#include "frame/message_ids.hpp"

namespace zv::sampling {

// A draw that has rejected this many candidates in a row gives up.
constexpr long kGammaPassLimit = 1000001;
constexpr double kOneThird = 0.3333333333333333;
constexpr double kSqueeze = 0.0331;

// One gamma variate of shape a. `Source` gives uniforms and standard normals
// through uniform(double*, n) and normal(double*, n). The order and size of
// its requests are part of the result: the uniforms of a draw first, in one
// request, then one normal per request.
template <class Source>
double drawGamma(double a, Source& source) {
    if (a == 0) return 0.0;
    if (!(a > 0)) return zv::constants::nan;  // negative or NaN
    if (std::isinf(a)) return a;

    const bool boosted = a < 1;
    double u[2];
    source.uniform(u, boosted ? 2 : 1);
    const double d = (boosted ? a + 1 : a) - kOneThird;
    const double c = 1 / std::sqrt(d * 9 + 0);

    for (long passesLeft = kGammaPassLimit;;) {
        double x, v;
        do {
            source.normal(&x, 1);
            v = c * x + 1;
        } while (!(v > 0));
        v = v * v * v;
        // The multiplications run left to right: results depend on it.
        if (u[0] < 1 - x * x * kSqueeze * x * x || std::log(u[0]) < ((1 - v) + std::log(v)) * d + x * 0.5 * x)
            return boosted ? d * v * std::pow(u[1], 1 / a) : d * v;
        if (--passesLeft == 0) ndErrMsgId(stats::randg::IterLimitExceeded());
        source.uniform(u, 1);
    }
}

// Fills out[0..n) in index order, since every draw moves the stream on;
// `shape` holds n values, or one that all draws share. The shape and the
// output may differ in precision; draws are made in double.
template <class Shape, class T, class Source>
void randgEngine(const Shape* shape, bool sharedShape, T* out, size_t n, Source& source) {
    for (size_t i = 0; i < n; ++i) out[i] = T(drawGamma(double(shape[sharedShape ? 0 : i]), source));
}

}  // namespace zv::sampling

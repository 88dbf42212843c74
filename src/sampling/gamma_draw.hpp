// Gamma random numbers with unit scale: Marsaglia and Tsang's squeeze and
// rejection, with the boost by one and a power for shapes below 1.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include "frame/constants.hpp"
#include "frame/message_ids.hpp"

namespace zv::sampling {

// A draw that has rejected this many candidates in a row gives up.
constexpr long kGammaPassLimit = 1000001;
constexpr double kOneThird = 0.3333333333333333;
constexpr double kSqueeze = 0.0331;

// The constants of the squeeze for one shape, worked out once for all the
// draws that share it.
struct GammaShape {
    bool boosted;  // a < 1: draw with a + 1 and scale by u^(1/a)
    double d;
    double c;
    double inverseA;  // the power 1/a of the boost

    // Shapes 0, negative, NaN and infinite give 0, NaN, NaN and infinity
    // without a draw.
    static bool isSpecial(double a) { return !(a > 0) || std::isinf(a); }
    static double specialValue(double a) { return a == 0 ? 0.0 : a > 0 ? a : zv::constants::nan; }

    explicit GammaShape(double shape)
        : boosted(shape < 1),
          d((boosted ? shape + 1 : shape) - kOneThird),
          c(1 / std::sqrt(d * 9 + 0)),
          inverseA(1 / shape) {}
};

// One gamma variate of a shape that is positive and finite. `Source` gives
// uniforms and standard normals through uniform(double*, n) and
// normal(double*, n). The order and size of its requests are part of the
// result: the uniforms of a draw first, in one request, then one normal per
// request.
template <class Source>
double drawGamma(const GammaShape& g, Source& source) {
    double u[2];
    source.uniform(u, g.boosted ? 2 : 1);
    for (long passesLeft = kGammaPassLimit;;) {
        double x, v;
        do {
            source.normal(&x, 1);
            v = g.c * x + 1;
        } while (!(v > 0));
        v = v * v * v;
        // The multiplications run left to right: results depend on it.
        if (u[0] < 1 - x * x * kSqueeze * x * x || std::log(u[0]) < ((1 - v) + std::log(v)) * g.d + x * 0.5 * x)
            return g.boosted ? g.d * v * std::pow(u[1], g.inverseA) : g.d * v;
        if (--passesLeft == 0) ndErrMsgId(stats::randg::IterLimitExceeded());
        source.uniform(u, 1);
    }
}

template <class Source>
double drawGamma(double a, Source& source) {
    return GammaShape::isSpecial(a) ? GammaShape::specialValue(a) : drawGamma(GammaShape(a), source);
}

// Fills out[0..n) in index order, since every draw moves the stream on;
// `shape` holds n values, or one that all draws share. The shape and the
// output may differ in precision; draws are made in double.
template <class Shape, class T, class Source>
void randgEngine(const Shape* shape, bool sharedShape, T* out, size_t n, Source& source) {
    if (!sharedShape) {
        for (size_t i = 0; i < n; ++i) out[i] = T(drawGamma(double(shape[i]), source));
        return;
    }
    const double a = double(shape[0]);
    if (GammaShape::isSpecial(a)) {
        std::fill(out, out + n, T(GammaShape::specialValue(a)));
        return;
    }
    const GammaShape g(a);
    for (size_t i = 0; i < n; ++i) out[i] = T(drawGamma(g, source));
}

}  // namespace zv::sampling

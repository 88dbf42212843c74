// lassoglmCoordDescentCycleNoRecalc, lassoglmWtimesX2: one sweep of a
// penalised GLM fit on its working response, and the weighted column sums it uses.
#include "frame/double_else_single.hpp"
#include "frame/gateway.hpp"
#include "sparse/lasso_glm.hpp"
#include "sparse/lasso_outputs.hpp"

namespace {

using zv::lasso::copiedColumn;
using zv::lasso::copiedMask;
using zv::lasso::handOver;

template <class T>
void sweepTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const ndArray* X = inputs[0];
    const size_t N = ndGetM(X), P = ndGetN(X);
    matrix::unique_nd_ptr made[2] = {copiedColumn<T>(inputs[4], P), copiedMask(inputs[5], P)};
    // The residual lives for one sweep only; it goes with this array.
    auto residual = zv::createMatrix<T>(N, 1);
    zv::lassoglm::typedCoordDescentCycle<T>(
        N, P, zv::dataOf<T>(X), zv::dataOf<const T>(inputs[1]), zv::dataOf<const T>(inputs[2]),
        zv::dataOf<const T>(inputs[3]), zv::dataOf<T>(residual.get()), zv::dataOf<T>(made[0].get()),
        zv::dataOf<bool>(made[1].get()), zv::dataOf<const T>(inputs[6]), T(ndGetScalar(inputs[7])));
    handOver(made, numOutputs, outputs);
}

template <class T>
void weightedSquaresTyped(ndArray** outputs, const ndArray** inputs) {
    const ndArray* X = inputs[0];
    const size_t N = ndGetM(X), P = ndGetN(X);
    auto xx = zv::createMatrix<T>(P, 1);
    zv::lassoglm::typedWtimesX2<T>(N, P, zv::dataOf<const T>(X), zv::dataOf<const T>(inputs[1]),
                                   ndGetLogicals(inputs[3]), zv::dataOf<T>(xx.get()));
    outputs[0] = matrix::to_host(std::move(xx));
}

}  // namespace

ZV_DEFINE_GATEWAY(lassoglmCoordDescentCycleNoRecalc) {
    if (zv::fixedCountsSayReturn(numOutputs, 2, numInputs, 8, 8)) return;
    zv::dispatchDoubleElseSingle(inputs[0], [&](auto tag) {
        sweepTyped<decltype(tag)>(numOutputs, outputs, inputs);
    });
}

ZV_DEFINE_GATEWAY(lassoglmWtimesX2) {
    if (zv::fixedCountsSayReturn(numOutputs, 1, numInputs, 4, 4)) return;
    zv::dispatchDoubleElseSingle(inputs[0], [&](auto tag) {
        weightedSquaresTyped<decltype(tag)>(outputs, inputs);
    });
}

// lassoglmCoordDescentCycleNoRecalc, lassoglmWtimesX2: one sweep of a
// penalised GLM fit on its working response, and the weighted column sums it uses.
#include "frame/double_else_single.hpp"
#include "frame/gateway.hpp"
#include "sparse/lasso_arguments.hpp"
#include "sparse/lasso_glm.hpp"

namespace {

using namespace zv::sparse;

template <class T>
void sweepTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const size_t N = ndGetM(inputs[0]), P = ndGetN(inputs[0]);
    const auto X = numbers<T>(inputs[0], N, P);
    const auto weightedX = numbers<T>(inputs[1], N, P);
    const auto xx = numbers<T>(inputs[2], P);
    const auto z = numbers<T>(inputs[3], N);
    const auto shrink = numbers<T>(inputs[6], P);
    matrix::unique_nd_ptr made[2] = {copiedColumn<T>(inputs[4], P), copiedMask(inputs[5], P)};
    // The residual lives for one sweep only; it goes with this array.
    auto residual = zv::createMatrix<T>(N, 1);
    typedCoordDescentCycle<T>(N, P, X.data(), weightedX.data(), xx.data(), z.data(), zv::dataOf<T>(residual.get()),
                              zv::dataOf<T>(made[0].get()), zv::dataOf<bool>(made[1].get()), shrink.data(),
                              T(ndGetScalar(inputs[7])));
    zv::handOver(outputs, numOutputs, made);
}

template <class T>
void weightedSquaresTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const size_t N = ndGetM(inputs[0]), P = ndGetN(inputs[0]);
    const auto X = numbers<T>(inputs[0], N, P);
    const auto w = numbers<T>(inputs[1], N);
    const auto active = mask(inputs[3], P);
    auto xx = zv::createMatrix<T>(P, 1);
    typedWtimesX2<T>(N, P, X.data(), w.data(), active.data(), zv::dataOf<T>(xx.get()));
    zv::handOver(outputs, numOutputs, std::move(xx));
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
        weightedSquaresTyped<decltype(tag)>(numOutputs, outputs, inputs);
    });
}

// lassoCoordDescentCycle, lassoCoordDescentCycleWithCov, lassoYminusXb: one
// lasso sweep, dense or on a Gram matrix, and the residual of a coefficient vector.
#include <algorithm>

#include "frame/double_else_single.hpp"
#include "frame/gateway.hpp"
#include "sparse/lasso.hpp"
#include "sparse/lasso_outputs.hpp"

namespace {

using zv::lasso::copiedColumn;
using zv::lasso::copiedMask;
using zv::lasso::handOver;

template <class T>
void sweepTyped(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs) {
    const ndArray* X = inputs[0];
    const size_t N = ndGetM(X), P = ndGetN(X);
    // The residual of the previous sweep comes in position 8. Without xx in
    // position 9 the coefficients' own contribution counts as zero.
    const bool haveResidual = numInputs > 8;
    const T* xx = numInputs > 9 ? zv::dataOf<const T>(inputs[9]) : nullptr;

    matrix::unique_nd_ptr made[3] = {copiedColumn<T>(inputs[3], P), copiedMask(inputs[4], P),
                                     zv::createMatrix<T>(N, 1)};
    T* r = zv::dataOf<T>(made[2].get());
    if (haveResidual) std::copy_n(zv::dataOf<const T>(inputs[8]), N, r);

    zv::lasso::typedCoordDescentCycle<T>(
        N, P, zv::dataOf<T>(X), zv::dataOf<const T>(inputs[1]), zv::dataOf<const T>(inputs[2]), r,
        zv::dataOf<T>(made[0].get()), zv::dataOf<bool>(made[1].get()), T(ndGetScalar(inputs[5])),
        zv::dataOf<const T>(inputs[6]), T(ndGetScalar(inputs[7])), haveResidual, xx);
    handOver(made, numOutputs, outputs);
}

template <class T>
void covarianceSweepTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const size_t P = ndGetN(inputs[0]);  // inputs 0 to 2 are only placeholders
    matrix::unique_nd_ptr made[2] = {copiedColumn<T>(inputs[3], P), copiedMask(inputs[4], P)};
    zv::lasso::typedCoordDescentCycleWithCov<T>(
        P, zv::dataOf<const T>(inputs[8]), zv::dataOf<const T>(inputs[9]), zv::dataOf<T>(made[0].get()),
        zv::dataOf<bool>(made[1].get()), T(ndGetScalar(inputs[5])), zv::dataOf<const T>(inputs[6]),
        T(ndGetScalar(inputs[7])));
    handOver(made, numOutputs, outputs);
}

template <class T>
void residualTyped(ndArray** outputs, int numInputs, const ndArray** inputs) {
    const ndArray* X = inputs[0];
    const size_t N = ndGetM(X), P = ndGetN(X);
    auto out = zv::createMatrix<T>(N, 1);
    T* result = zv::dataOf<T>(out.get());
    // A start vector in position 4 is updated where it stands, and the caller
    // sees the change in its own array; the output is a copy of it.
    T* r = numInputs > 4 ? zv::dataOf<T>(inputs[4]) : result;
    if (numInputs == 4) std::copy_n(zv::dataOf<const T>(inputs[1]), N, r);
    const bool* active = ndGetLogicals(inputs[3]);
    zv::lasso::typedYminusXb<T>(N, P, zv::dataOf<const T>(X), zv::dataOf<const T>(inputs[2]), active, r);
    if (r != result) std::copy_n(r, N, result);
    outputs[0] = matrix::to_host(std::move(out));
}

}  // namespace

ZV_DEFINE_GATEWAY(lassoCoordDescentCycle) {
    if (zv::fixedCountsSayReturn(numOutputs, 3, numInputs, 8, 10)) return;
    zv::dispatchDoubleElseSingle(inputs[0], [&](auto tag) {
        sweepTyped<decltype(tag)>(numOutputs, outputs, numInputs, inputs);
    });
}

ZV_DEFINE_GATEWAY(lassoCoordDescentCycleWithCov) {
    if (zv::fixedCountsSayReturn(numOutputs, 2, numInputs, 10, 10)) return;
    zv::dispatchDoubleElseSingle(inputs[0], [&](auto tag) {
        covarianceSweepTyped<decltype(tag)>(numOutputs, outputs, inputs);
    });
}

ZV_DEFINE_GATEWAY(lassoYminusXb) {
    if (zv::fixedCountsSayReturn(numOutputs, 1, numInputs, 4, 5)) return;
    zv::dispatchDoubleElseSingle(inputs[0], [&](auto tag) {
        residualTyped<decltype(tag)>(outputs, numInputs, inputs);
    });
}

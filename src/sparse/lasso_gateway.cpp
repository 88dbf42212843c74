// lassoCoordDescentCycle, lassoCoordDescentCycleWithCov, lassoYminusXb: one
// lasso sweep, dense or on a Gram matrix, and the residual of a coefficient vector.
#include <algorithm>
#include <optional>

#include "frame/double_else_single.hpp"
#include "frame/gateway.hpp"
#include "sparse/lasso.hpp"
#include "sparse/lasso_arguments.hpp"

namespace {

using namespace zv::sparse;

template <class T>
void sweepTyped(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs) {
    const size_t N = ndGetM(inputs[0]), P = ndGetN(inputs[0]);
    const auto X = numbers<T>(inputs[0], N, P);
    const auto weightedX = numbers<T>(inputs[1], N, P);
    const auto shrink = numbers<T>(inputs[6], P);
    // The residual of the previous sweep comes in position 8, and y is then
    // not read. Without xx in position 9 the coefficients' own contribution
    // counts as zero.
    const bool haveResidual = numInputs > 8;
    std::optional<zv::HostValues<T>> y, xx;
    if (!haveResidual) y.emplace(numbers<T>(inputs[2], N));
    if (numInputs > 9) xx.emplace(numbers<T>(inputs[9], P));

    matrix::unique_nd_ptr made[3] = {copiedColumn<T>(inputs[3], P), copiedMask(inputs[4], P),
                                     zv::createMatrix<T>(N, 1)};
    T* r = zv::dataOf<T>(made[2].get());
    if (haveResidual) zv::HostValues<T>::copyInto(inputs[8], r, N, kMissing<T>);

    typedCoordDescentCycle<T>(N, P, X.data(), weightedX.data(), y ? y->data() : nullptr, r,
                              zv::dataOf<T>(made[0].get()), zv::dataOf<bool>(made[1].get()),
                              T(ndGetScalar(inputs[5])), shrink.data(), T(ndGetScalar(inputs[7])), haveResidual,
                              xx ? xx->data() : nullptr);
    zv::handOver(outputs, numOutputs, made);
}

template <class T>
void covarianceSweepTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const size_t P = ndGetN(inputs[0]);  // inputs 0 to 2 are only placeholders
    const auto shrink = numbers<T>(inputs[6], P);
    const auto c = numbers<T>(inputs[8], P);
    const auto G = numbers<T>(inputs[9], P, P);
    matrix::unique_nd_ptr made[2] = {copiedColumn<T>(inputs[3], P), copiedMask(inputs[4], P)};
    typedCoordDescentCycleWithCov<T>(P, c.data(), G.data(), zv::dataOf<T>(made[0].get()),
                                     zv::dataOf<bool>(made[1].get()), T(ndGetScalar(inputs[5])), shrink.data(),
                                     T(ndGetScalar(inputs[7])));
    zv::handOver(outputs, numOutputs, made);
}

// True when `a` stores dense real values of T, which a gateway may write through.
template <class T>
bool writableAs(const ndArray* a) {
    return ndGetClassID(a) == zv::classOf<T>() && !ndIsSparse(a) && !ndIsComplex(a) && ndGetData(a);
}

template <class T>
void residualTyped(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs) {
    const size_t N = ndGetM(inputs[0]), P = ndGetN(inputs[0]);
    const auto X = numbers<T>(inputs[0], N, P);
    const auto b = numbers<T>(inputs[2], P);
    const auto active = mask(inputs[3], P);
    // The residual starts from y, or from the start vector in position 4.
    const ndArray* start = numInputs > 4 ? inputs[4] : inputs[1];
    auto out = zv::createMatrix<T>(N, 1);
    T* r = zv::dataOf<T>(out.get());
    zv::HostValues<T>::copyInto(start, r, N, kMissing<T>);
    typedYminusXb<T>(N, P, X.data(), b.data(), active.data(), r);
    // The start vector is updated where it stands, and the caller sees the
    // change in its own array; only the values it stores are written.
    if (numInputs > 4 && writableAs<T>(start))
        std::copy_n(r, std::min(N, ndGetNumberOfElements(start)), zv::dataOf<T>(start));
    zv::handOver(outputs, numOutputs, std::move(out));
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
        residualTyped<decltype(tag)>(numOutputs, outputs, numInputs, inputs);
    });
}

// tsnebhbif and tsnelossbif: one gradient of a neighbour embedding for the
// caller's optimisation loop, and the loss of an embedding given its Z.
#include <limits>
#include <vector>

#include "embedding/tsne_loss.hpp"
#include "frame/gateway.hpp"

namespace {

namespace ids = stats::tsnebif;
using zv::embedding::AffinityList;
using zv::embedding::Embedding;

template <class T>
Embedding<T> embeddingOf(const ndArray* y) {
    return {zv::dataOf<const T>(y), ndGetN(y), ndGetM(y)};
}

template <class T>
AffinityList<T> affinitiesOf(const ndArray* neighbours, const ndArray* counts, const ndArray* values,
                             const ndArray* starts) {
    AffinityList<T> P{};
    P.counts = zv::dataOf<const double>(counts);
    P.numCounts = zv::storedCount<double>(counts);
    if (starts) {
        P.starts = zv::dataOf<const double>(starts);
        P.numStarts = zv::storedCount<double>(starts);
    }
    P.neighbours = zv::dataOf<const double>(neighbours);
    P.values = zv::dataOf<const T>(values);
    P.numEntries = std::min(zv::storedCount<double>(neighbours), zv::storedCount<T>(values));
    return P;
}

// The root box padded with NaN where fewer than d values were passed: such a
// box takes no point.
template <class T>
std::vector<T> boxValues(const ndArray* a, size_t d) {
    std::vector<T> v(d, std::numeric_limits<T>::quiet_NaN());
    const T* p = zv::dataOf<const T>(a);
    const size_t n = std::min(d, zv::storedCount<T>(a));
    for (size_t k = 0; k < n; ++k) v[k] = p[k];
    return v;
}

template <class T>
void gradientTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const T theta = T(ndGetScalar(inputs[0]));
    const Embedding<T> y = embeddingOf<T>(inputs[1]);
    const std::vector<T> center = boxValues<T>(inputs[2], y.d);
    const std::vector<T> halfWidth = boxValues<T>(inputs[3], y.d);
    const AffinityList<T> P = affinitiesOf<T>(inputs[4], inputs[5], inputs[6], inputs[7]);

    matrix::unique_nd_ptr attractive = zv::createMatrix<T>(y.d, y.N);
    matrix::unique_nd_ptr repulsive = zv::createMatrix<T>(y.d, y.N);
    matrix::unique_nd_ptr Z = zv::createMatrix<T>(1, 1);
    matrix::unique_nd_ptr sums = zv::createMatrix<T>(1, y.N);
    zv::embedding::PointOrder order;
    *zv::dataOf<T>(Z.get()) = zv::embedding::tsneRepGradient<T>(y, theta, center.data(), halfWidth.data(),
                                                                 zv::dataOf<T>(repulsive.get()),
                                                                 zv::dataOf<T>(sums.get()), order);
    zv::embedding::tsneAttrGradient<T>(y, P, zv::dataOf<T>(attractive.get()), order);

    // All three are results, but only the slots the host gave are written.
    outputs[0] = matrix::to_host(std::move(attractive));
    if (numOutputs > 1) outputs[1] = matrix::to_host(std::move(repulsive));
    if (numOutputs > 2) outputs[2] = matrix::to_host(std::move(Z));
}

template <class T>
void lossTyped(ndArray** outputs, const ndArray** inputs) {
    const Embedding<T> y = embeddingOf<T>(inputs[0]);
    const AffinityList<T> P = affinitiesOf<T>(inputs[1], inputs[2], inputs[3], nullptr);
    const double Z = ndGetScalar(inputs[4]);
    matrix::unique_nd_ptr loss = zv::createMatrix<T>(1, 1);
    *zv::dataOf<T>(loss.get()) += zv::embedding::tsneLoss<T>(y, P, Z);
    outputs[0] = matrix::to_host(std::move(loss));
}

}  // namespace

ZV_DEFINE_GATEWAY(tsnebhbif) {
    zv::raiseIf<ids::TooFewInputsGrad>(numInputs < 7);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 3);
    zv::dispatchReal<ids::BadInputType>(inputs[1], [&](auto tag) {
        // Seven inputs pass the count test, but the starts are the eighth.
        zv::raiseIf<ids::TooFewInputsGrad>(numInputs < 8);
        gradientTyped<decltype(tag)>(numOutputs, outputs, inputs);
    });
}

ZV_DEFINE_GATEWAY(tsnelossbif) {
    zv::raiseIf<ids::TooFewInputsLoss>(numInputs < 5);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 1);
    zv::dispatchReal<ids::BadInputType>(inputs[0], [&](auto tag) { lossTyped<decltype(tag)>(outputs, inputs); });
}

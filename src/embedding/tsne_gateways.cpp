// tsnebhbif and tsnelossbif: one gradient of a neighbour embedding for the
// caller's optimisation loop, and the loss of an embedding given its Z.
#include <limits>
#include <optional>
#include <vector>

#include "embedding/tsne_loss.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"

namespace {

namespace ids = stats::tsnebif;
using zv::embedding::AffinityList;
using zv::embedding::Embedding;

// Y, d-by-N, read by value: sparse or complex data holds its values elsewhere.
template <class T>
struct EmbeddingInput {
    size_t d, N;
    zv::HostValues<T> values;
    explicit EmbeddingInput(const ndArray* y)
        : d(ndGetM(y)), N(ndGetN(y)), values(y, d * N, std::numeric_limits<T>::quiet_NaN()) {}
    Embedding<T> embedding() const { return {values.data(), N, d}; }
};

// The affinity list by value (the loss passes no starts); a point or an entry
// past what an array holds has no count, start, neighbour or value.
template <class T>
class AffinityInput {
public:
    AffinityInput(const ndArray* neighbours, const ndArray* counts, const ndArray* values, const ndArray* starts)
        : neighbours_(neighbours, ndGetNumberOfElements(neighbours), kNaN),
          counts_(counts, ndGetNumberOfElements(counts), 0.0),
          values_(values, ndGetNumberOfElements(values), T(kNaN)) {
        if (starts) starts_.emplace(starts, ndGetNumberOfElements(starts), kNaN);
        list_ = {counts_.data(), ndGetNumberOfElements(counts), starts_ ? starts_->data() : nullptr,
                 starts ? ndGetNumberOfElements(starts) : 0, neighbours_.data(), values_.data(),
                 std::min(ndGetNumberOfElements(neighbours), ndGetNumberOfElements(values))};
    }
    const AffinityList<T>& list() const { return list_; }

private:
    static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    zv::HostValues<double> neighbours_, counts_;
    zv::HostValues<T> values_;
    std::optional<zv::HostValues<double>> starts_;
    AffinityList<T> list_{};
};

template <class T>
void gradientTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const T theta = T(ndGetScalar(inputs[0]));
    const EmbeddingInput<T> input(inputs[1]);
    const Embedding<T> y = input.embedding();
    // The root box padded with NaN where fewer than d values were passed:
    // such a box takes no point.
    const zv::HostValues<T> center(inputs[2], y.d, std::numeric_limits<T>::quiet_NaN());
    const zv::HostValues<T> halfWidth(inputs[3], y.d, std::numeric_limits<T>::quiet_NaN());
    const AffinityInput<T> affinities(inputs[4], inputs[5], inputs[6], inputs[7]);

    matrix::unique_nd_ptr attractive = zv::createMatrix<T>(y.d, y.N);
    matrix::unique_nd_ptr repulsive = zv::createMatrix<T>(y.d, y.N);
    matrix::unique_nd_ptr Z = zv::createMatrix<T>(1, 1);
    matrix::unique_nd_ptr sums = zv::createMatrix<T>(1, y.N);
    zv::embedding::PointOrder order;
    *zv::dataOf<T>(Z.get()) = zv::embedding::tsneRepGradient<T>(y, theta, center.data(), halfWidth.data(),
                                                                 zv::dataOf<T>(repulsive.get()),
                                                                 zv::dataOf<T>(sums.get()), order);
    zv::embedding::tsneAttrGradient<T>(y, affinities.list(), zv::dataOf<T>(attractive.get()), order);

    // All three are results, but only the slots the host gave are written.
    zv::handOver(outputs, numOutputs, std::move(attractive), std::move(repulsive), std::move(Z));
}

template <class T>
void lossTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const EmbeddingInput<T> input(inputs[0]);
    const Embedding<T> y = input.embedding();
    const AffinityInput<T> affinities(inputs[1], inputs[2], inputs[3], nullptr);
    const double Z = ndGetScalar(inputs[4]);
    matrix::unique_nd_ptr loss = zv::createMatrix<T>(1, 1);
    *zv::dataOf<T>(loss.get()) += zv::embedding::tsneLoss<T>(y, affinities.list(), Z);
    zv::handOver(outputs, numOutputs, std::move(loss));
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
    zv::dispatchReal<ids::BadInputType>(inputs[0],
                                        [&](auto tag) { lossTyped<decltype(tag)>(numOutputs, outputs, inputs); });
}

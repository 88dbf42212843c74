// wswor: K distinct positions out of 1..N, each draw with probability
// proportional to the weights of the items still left.
#include <cmath>
#include <cstdint>

#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "sampling/wswor_tree.hpp"

namespace {

namespace ids = stats::datasample;

}  // namespace

ZV_DEFINE_GATEWAY(wswor) {
    if (numOutputs > 1) ndErrMsg(3);
    if (numInputs < 2) ndErrMsg(2);
    const bool ownStream = numInputs > 2;
    const ndArray* weightArg = inputs[ownStream ? 1 : 0];
    const ndArray* kArg = inputs[ownStream ? 2 : 1];

    zv::raiseIf<ids::InputWType>(!ndIsNumeric(weightArg) || !ndIsVector(weightArg) || ndIsComplex(weightArg));
    zv::raiseIf<ids::InputKType>(!ndIsNumeric(kArg) || !ndIsScalar(kArg) || ndIsComplex(kArg));
    const double kValue = ndGetScalar(kArg);
    zv::raiseIf<ids::InputKType>(!(kValue >= 0) || kValue != std::floor(kValue));
    zv::raiseIf<ids::OutputSize>(kValue > zv::kMaxElementCount);
    const size_t n = ndGetNumberOfElements(weightArg);
    zv::raiseIf<ids::KTooLarge>(kValue > double(n));

    const size_t k = zv::checked::toSize(kValue);
    auto out = zv::createMatrix<double>(1, k);
    double* positions = zv::dataOf<double>(out.get());
    if (k > 0 && n == 1) positions[0] = 1;
    if (k == 0 || n == 1) return zv::handOver(outputs, numOutputs, std::move(out));

    // A NaN weight is refused like a negative one: it has no place in a sum.
    const zv::HostValues<double> weights(weightArg, n, 0.0);
    zv::sampling::WeightTree tree(n, [&](size_t i) {
        zv::raiseIf<ids::NegativeWeight>(!(weights[i] >= 0));
        return weights[i];
    });
    zv::raiseIf<ids::PosWeights>(k > tree.positiveCount());

    bool reachedLeaves;
    if (ownStream) {
        RandStream* stream = GetRandStreamFromArray(inputs[0]);
        reachedLeaves = zv::sampling::wsworEngine(tree, k, positions, [stream](double* u, size_t count) {
            randstream::randuFcn<double>(stream, u, count);
        });
    } else {
        reachedLeaves = zv::sampling::wsworEngine(tree, k, positions, hostRandu);
    }
    zv::raiseIf<ids::BinaryTreeAlgorithmFailed>(!reachedLeaves);
    zv::handOver(outputs, numOutputs, std::move(out));
}

// wswor: K distinct positions out of 1..N, each draw with probability
// proportional to the weights of the items still left.
#include <cmath>
#include <cstdint>
#include <vector>

#include "frame/gateway.hpp"
#include "sampling/wswor_tree.hpp"

namespace {

namespace ids = stats::datasample;

// Weights of another numeric class, or sparse ones, are read into doubles;
// dense doubles are read in place.
template <class V>
void widen(const ndArray* w, std::vector<double>& out) {
    const V* v = zv::dataOf<const V>(w);
    out.resize(ndGetNumberOfElements(w));
    for (size_t i = 0; i < out.size(); ++i) out[i] = double(v[i]);
}

const double* weightsAsDoubles(const ndArray* w, std::vector<double>& copy) {
    const size_t n = ndGetNumberOfElements(w);
    if (ndIsSparse(w)) {
        copy.assign(n, 0.0);
        const size_t* rows = ndGetRowIndices(w);
        const size_t* starts = ndGetColumnStarts(w);
        const double* values = zv::dataOf<const double>(w);
        const size_t m = ndGetM(w);
        for (size_t j = 0; j < ndGetN(w); ++j)
            for (size_t e = starts[j]; e < starts[j + 1]; ++e) copy[j * m + rows[e]] = values[e];
        return copy.data();
    }
    switch (ndGetClassID(w)) {
    case ndDOUBLE_CLASS: return zv::dataOf<const double>(w);
    case ndSINGLE_CLASS: widen<float>(w, copy); break;
    case ndINT8_CLASS: widen<int8_t>(w, copy); break;
    case ndUINT8_CLASS: widen<uint8_t>(w, copy); break;
    case ndINT16_CLASS: widen<int16_t>(w, copy); break;
    case ndUINT16_CLASS: widen<uint16_t>(w, copy); break;
    case ndINT32_CLASS: widen<int32_t>(w, copy); break;
    case ndUINT32_CLASS: widen<uint32_t>(w, copy); break;
    case ndINT64_CLASS: widen<int64_t>(w, copy); break;
    case ndUINT64_CLASS: widen<uint64_t>(w, copy); break;
    default: break;
    }
    return copy.data();
}

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
    outputs[0] = matrix::to_host(std::move(out));
    if (k == 0) return;
    if (n == 1) {
        positions[0] = 1;
        return;
    }

    // A NaN weight is refused like a negative one: it has no place in a sum.
    std::vector<double> copy;
    const double* weights = weightsAsDoubles(weightArg, copy);
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
}

// statsizechkBIF: the common size of parameter arrays and size arguments, for
// the random-number and distribution functions of the host's language.
#include <algorithm>
#include <cstdint>

#include "frame/gateway.hpp"

namespace {

namespace ids = stats::statsizechk;

constexpr size_t kLocalDims = 10;  // size lists up to this long need no scratch

bool isPlainValue(const ndArray* a) {
    ndClassID c = ndGetClassID(a);
    return ndIsNumeric(a) || c == ndLOGICAL_CLASS || c == ndCHAR_CLASS;
}

// Dimension lists agree when equal up to the longer length, with missing
// trailing entries counting as 1.
bool sameSize(const size_t* a, size_t na, const size_t* b, size_t nb) {
    for (size_t k = 0; k < std::max(na, nb); ++k)
        if ((k < na ? a[k] : 1) != (k < nb ? b[k] : 1)) return false;
    return true;
}

}  // namespace

ZV_EXPORT void statsizechkBIF(ZV_GATEWAY_SIGNATURE) {
    zv::raiseIf<ids::TooFewInputs>(numInputs < 2);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 3);

    // Anything but plain values is the host language's business.
    for (int k = 0; k < numInputs; ++k) {
        if (!isPlainValue(inputs[k])) {
            hostCallFunction(numOutputs, outputs, numInputs, inputs, "internal.stats.statsizechkM", 0);
            return;
        }
    }

    // The disagreement result stands until the sizes are known to agree.
    outputs[0] = ndCreateDoubleScalar(1.0);
    if (numOutputs > 1) outputs[1] = ndCreateDoubleMatrix(0, 0, ndREAL);
    if (numOutputs == 3) outputs[2] = ndCreateDoubleScalar(0.0);

    const ndArray* npArg = inputs[0];
    zv::raiseIf<ids::BadNParams>(!ndIsNumeric(npArg) || ndGetNumberOfElements(npArg) != 1);
    const int32_t np = zv::checked::truncateSaturated<int32_t>(ndGetScalar(npArg), -1);
    zv::raiseIf<ids::BadNParams>(np < 0);
    zv::raiseIf<ids::WrongNumInputs>(numInputs <= np);

    size_t localDims[kLocalDims];
    size_t* dims = localDims;
    size_t ndim = 0;
    size_t total = 0;
    const size_t* current = nullptr;  // the common size so far, if any
    if (np + 1 < numInputs) {
        const int count = numInputs - np - 1;
        ndim = count == 1 ? ndGetNumberOfElements(inputs[np + 1]) : size_t(count);
        // A single scalar size stands for a square, so leave room for two.
        if (std::max<size_t>(ndim, 2) > kLocalDims) dims = static_cast<size_t*>(ndCalloc(ndim, 8));
        total = ndGetDims(count, &inputs[np + 1], dims, &ndim);
        ndCheckDim(dims, ndim, 8);
        while (ndim > 2 && dims[ndim - 1] == 1) --ndim;
        current = dims;
    }
    auto releaseDims = [&] {
        if (dims != localDims) ndFree(dims);
    };

    for (int i = np; i >= 1; --i) {
        const ndArray* param = inputs[i];
        if (ndGetNumberOfElements(param) == 1) continue;
        const size_t* pd = ndGetDimensions(param);
        const size_t pn = ndGetNumberOfDimensions(param);
        if (!current) {
            current = pd;
            ndim = pn;
            total = ndGetNumberOfElements(param);
        } else if (!sameSize(current, ndim, pd, pn)) {
            releaseDims();
            return;
        }
    }

    static const size_t kScalarSize[2] = {1, 1};
    if (!current) {
        current = kScalarSize;
        ndim = 2;
        total = 1;
    }

    *static_cast<double*>(ndGetData(outputs[0])) = 0.0;
    if (numOutputs >= 2) {
        ndDestroyArray(outputs[1]);
        outputs[1] = nullptr;
        outputs[1] = ndCreateDoubleMatrix(1, ndim, ndREAL);
        double* out = zv::dataOf<double>(outputs[1]);
        for (size_t k = 0; k < ndim; ++k) out[k] = double(current[k]);
    }
    if (numOutputs == 3) *static_cast<double*>(ndGetData(outputs[2])) = double(total);
    releaseDims();
}

// statsizechkBIF: the common size of parameter arrays and size arguments, for
// the random-number and distribution functions of the host's language.
#include <cstdint>
#include <optional>

#include "frame/gateway.hpp"
#include "frame/size_arguments.hpp"

namespace {

namespace ids = stats::statsizechk;

bool isPlainValue(const ndArray* a) {
    ndClassID c = ndGetClassID(a);
    return ndIsNumeric(a) || c == ndLOGICAL_CLASS || c == ndCHAR_CLASS;
}

}  // namespace

ZV_DEFINE_GATEWAY(statsizechkBIF) {
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

    std::optional<zv::SizeArguments> sizes;
    size_t ndim = 0;
    size_t total = 0;
    const size_t* current = nullptr;  // the common size so far, if any
    if (np + 1 < numInputs) {
        sizes.emplace(numInputs - np - 1, &inputs[np + 1]);
        sizes->dropTrailingOnes();
        current = sizes->dims();
        ndim = sizes->ndim();
        total = sizes->total();
    }

    for (int i = np; i >= 1; --i) {
        const ndArray* param = inputs[i];
        if (ndGetNumberOfElements(param) == 1) continue;
        const size_t* pd = ndGetDimensions(param);
        const size_t pn = ndGetNumberOfDimensions(param);
        if (!current) {
            current = pd;
            ndim = pn;
            total = ndGetNumberOfElements(param);
        } else if (!zv::sameSize(current, ndim, pd, pn)) {
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
}

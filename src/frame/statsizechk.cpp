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

// A dimension list borrowed from a parameter, the size arguments or the
// scalar size, and its element count.
struct Size {
    const size_t* dims;
    size_t ndim;
    size_t total;
};

constexpr size_t kScalarDims[2] = {1, 1};

// The size all parameters agree on, the last one first, none if two differ.
// Scalars take no part; an empty array does, with its dimensions.
std::optional<Size> commonSize(const std::optional<zv::SizeArguments>& sizes, int np, const ndArray** inputs) {
    std::optional<Size> current;
    if (sizes) current = Size{sizes->dims(), sizes->ndim(), sizes->total()};
    for (int i = np; i >= 1; --i) {
        const ndArray* param = inputs[i];
        if (ndGetNumberOfElements(param) == 1) continue;
        const Size own{ndGetDimensions(param), ndGetNumberOfDimensions(param), ndGetNumberOfElements(param)};
        if (!current) current = own;
        else if (!zv::sameSize(current->dims, current->ndim, own.dims, own.ndim)) return std::nullopt;
    }
    if (!current) current = Size{kScalarDims, 2, 1};
    return current;
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

    const ndArray* npArg = inputs[0];
    zv::raiseIf<ids::BadNParams>(!ndIsNumeric(npArg) || ndGetNumberOfElements(npArg) != 1);
    const int32_t np = zv::checked::truncateSaturated<int32_t>(ndGetScalar(npArg), -1);
    zv::raiseIf<ids::BadNParams>(np < 0);
    zv::raiseIf<ids::WrongNumInputs>(numInputs <= np);

    std::optional<zv::SizeArguments> sizes;
    if (np + 1 < numInputs) {
        sizes.emplace(numInputs - np - 1, &inputs[np + 1]);
        sizes->dropTrailingOnes();
    }
    const std::optional<Size> size = commonSize(sizes, np, inputs);

    // Sizes that disagree are a result, flag 1 with an empty size, not an error.
    matrix::unique_nd_ptr flag(ndCreateDoubleScalar(size ? 0.0 : 1.0)), dims, total;
    if (numOutputs >= 2) {
        dims = zv::createMatrix<double>(size ? 1 : 0, size ? size->ndim : 0);
        for (size_t k = 0; size && k < size->ndim; ++k) zv::dataOf<double>(dims.get())[k] = double(size->dims[k]);
    }
    if (numOutputs == 3) total.reset(ndCreateDoubleScalar(size ? double(size->total) : 0.0));
    zv::handOver(outputs, numOutputs, std::move(flag), std::move(dims), std::move(total));
}

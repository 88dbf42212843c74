// randg: gamma random numbers with unit scale from the host's default stream,
// with the host's size arguments and a result class by name or by prototype.
#include <algorithm>
#include <cctype>
#include <optional>
#include <string>

#include "frame/gateway.hpp"
#include "frame/options.hpp"
#include "frame/size_arguments.hpp"
#include "sampling/gamma_draw.hpp"

namespace {

namespace ids = stats::randg;

// Only this many leading characters of a keyword are looked at.
constexpr size_t kKeywordChars = 1024;
constexpr const char* kGpuFunction = "internal.stats.gpu.randg";

struct DefaultStream {
    void uniform(double* out, size_t n) { hostRandu(out, n); }
    void normal(double* out, size_t n) { hostRandn(out, n); }
};

bool isText(const ndArray* a) { return ndGetClassID(a) == ndCHAR_CLASS || ndIsClass(a, "string"); }

// The text of a char row or string scalar as ASCII (a non-ASCII character
// throws), cut to `limit` characters; anything else reads as "".
std::string asciiText(const ndArray* a, size_t limit = std::string::npos) {
    std::u16string text;
    if (!hostGetScalarText(a, text, 0)) return {};
    return hostUstringToAscii(text.data(), std::min(text.size(), limit));
}

enum class Route { Double, Single, Gpu };

// Class names at the end of the list, compared exactly.
constexpr zv::OptionName<Route> kClassNames[] = {
    {"double", Route::Double}, {"single", Route::Single}, {"gpuArray", Route::Gpu}};

struct Request {
    Route route;
    int count;  // inputs left once the class arguments are taken off
};

// Takes a trailing "like", P or class name off the argument list.
Request readClassArguments(int numInputs, const ndArray** inputs) {
    if (numInputs >= 2 && isText(inputs[numInputs - 2])) {
        std::string word = asciiText(inputs[numInputs - 2], kKeywordChars);
        std::transform(word.begin(), word.end(), word.begin(), [](unsigned char c) { return char(std::tolower(c)); });
        if (word != "like") return {Route::Double, numInputs};
        const ndArray* prototype = inputs[numInputs - 1];
        if (ndGetClassID(prototype) == ndDOUBLE_CLASS) return {Route::Double, numInputs - 2};
        if (ndGetClassID(prototype) == ndSINGLE_CLASS) return {Route::Single, numInputs - 2};
        if (ndIsClass(prototype, "gpuArray")) return {Route::Gpu, numInputs};
        ndErrMsgId(ids::InvalidPrototype());
    }
    const ndArray* last = inputs[numInputs - 1];
    if (!isText(last)) return {ndGetClassID(inputs[0]) == ndSINGLE_CLASS ? Route::Single : Route::Double, numInputs};
    const Route route = zv::parseOption<ids::InvalidOutputType>(kClassNames, asciiText(last));
    return {route, route == Route::Gpu ? numInputs : numInputs - 1};
}

template <class T>
matrix::unique_nd_ptr scalarDrawWithUnitShape(DefaultStream& stream) {
    const T one = 1;
    auto out = zv::createMatrix<T>(1, 1);
    zv::sampling::randgEngine(&one, true, zv::dataOf<T>(out.get()), 1, stream);
    return out;
}

template <class Out, class Shape>
void fill(ndArray* out, const ndArray* shapeArg, size_t n, DefaultStream& stream) {
    zv::sampling::randgEngine(zv::dataOf<const Shape>(shapeArg), ndGetNumberOfElements(shapeArg) == 1,
                              zv::dataOf<Out>(out), n, stream);
}

}  // namespace

ZV_DEFINE_GATEWAY(randg) {
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 1);
    DefaultStream stream;
    if (numInputs == 0) return zv::handOver(outputs, numOutputs, scalarDrawWithUnitShape<double>(stream));

    const Request request = readClassArguments(numInputs, inputs);
    if (request.route == Route::Gpu) {
        HostFunction* gpuRandg = hostFindFunction(hostToUstring(kGpuFunction));
        zv::raiseIf<ids::InvalidPrototype>(gpuRandg == nullptr);
        (*gpuRandg)(numOutputs, outputs, request.count, inputs);
        return;
    }
    const ndClassID outClass = request.route == Route::Single ? ndSINGLE_CLASS : ndDOUBLE_CLASS;
    if (request.count == 0) {
        return zv::handOver(outputs, numOutputs, outClass == ndSINGLE_CLASS ? scalarDrawWithUnitShape<float>(stream)
                                                                            : scalarDrawWithUnitShape<double>(stream));
    }

    const ndArray* shapeArg = inputs[0];
    const ndClassID shapeClass = ndGetClassID(shapeArg);
    zv::raiseIf<ids::BadInputType>((shapeClass != ndDOUBLE_CLASS && shapeClass != ndSINGLE_CLASS) ||
                                   ndIsSparse(shapeArg) || ndIsComplex(shapeArg));

    // The output takes the shape's dimensions, or those of the size arguments.
    std::optional<zv::SizeArguments> sizes;
    const size_t* dims = ndGetDimensions(shapeArg);
    size_t ndim = ndGetNumberOfDimensions(shapeArg);
    size_t count = ndGetNumberOfElements(shapeArg);
    if (request.count > 1) {
        sizes.emplace(request.count - 1, &inputs[1]);
        zv::raiseIf<ids::InputSizeMismatch>(count != 1 && !sizes->sameSizeAs(shapeArg));
        // The host's arrays end at their last non-singleton dimension.
        sizes->dropTrailingOnes();
        dims = sizes->dims();
        ndim = sizes->ndim();
        count = sizes->total();
    }

    auto out = matrix::detail::do_create_numeric(std::span<const size_t>(dims, ndim), outClass, ndREAL);
    if (outClass == ndSINGLE_CLASS) {
        if (shapeClass == ndSINGLE_CLASS) fill<float, float>(out.get(), shapeArg, count, stream);
        else fill<float, double>(out.get(), shapeArg, count, stream);
    } else {
        if (shapeClass == ndSINGLE_CLASS) fill<double, float>(out.get(), shapeArg, count, stream);
        else fill<double, double>(out.get(), shapeArg, count, stream);
    }
    zv::handOver(outputs, numOutputs, std::move(out));
}

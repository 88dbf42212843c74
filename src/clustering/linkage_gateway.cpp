// linkagebif: hierarchical cluster tree from condensed distances, from data
// through the host's "pdist", or from data in the memory-saving mode.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string_view>
#include <vector>

#include "clustering/linkage.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "frame/options.hpp"
#include "host/callback.hpp"

namespace {

namespace ids = stats::linkagebif;
using zv::clustering::LinkageMethod;

// Only the first two letters of the method's name count.
constexpr zv::OptionName<LinkageMethod> kMethods[] = {
    {"si", LinkageMethod::Single},   {"co", LinkageMethod::Complete}, {"av", LinkageMethod::Average},
    {"we", LinkageMethod::Weighted}, {"ce", LinkageMethod::Centroid}, {"me", LinkageMethod::Median},
    {"wa", LinkageMethod::Ward}};

// The most extra arguments handed on to "pdist".
constexpr size_t kMaxPdistArguments = 49;

LinkageMethod methodOf(int numInputs, const ndArray** inputs) {
    if (numInputs < 2) ndErrMsgId(ids::UnknownLinkageMethod());
    const zv::ShortCode<3> code(inputs[1]);
    return zv::parseOption<ids::UnknownLinkageMethod>(kMethods, std::string_view(code.text.data()));
}

// With a third input the first is data, not distances: the distances come
// from "pdist", or, with a true fourth input, the memory-saving mode works on
// the data itself. An empty fourth input is false, and a missing one too.
struct DataOptions {
    bool given = false;
    bool memorySaving = false;
};

DataOptions dataOptionsOf(int numInputs, const ndArray** inputs, LinkageMethod method) {
    DataOptions data;
    if (numInputs < 3) return data;
    data.given = true;
    zv::raiseIf<ids::ThirdInputInvalid>(ndGetClassID(inputs[2]) != ndCELL_CLASS);
    const ndArray* flag = numInputs >= 4 ? inputs[3] : nullptr;
    if (flag && !ndIsEmpty(flag)) {
        zv::raiseIf<ids::ForthInputInvalid>(ndGetClassID(flag) != ndLOGICAL_CLASS);
        data.memorySaving = ndIsLogicalScalarTrue(flag);
    }
    zv::raiseIf<ids::MemEffNotCeMeWa>(data.memorySaving && !zv::clustering::worksOnSquares(method));
    return data;
}

// The condensed distances of the rows of data through the host's "pdist",
// given the extra arguments in a cell; an empty array if it returned none.
template <class T>
matrix::unique_nd_ptr distancesFromHost(const ndArray* data, const ndArray* arguments) {
    const size_t extra = ndGetNumberOfElements(arguments);
    zv::raiseIf<ids::ToManyArgumentsForPDIST>(extra > kMaxPdistArguments);
    std::vector<const ndArray*> in{data};
    for (size_t i = 0; i < extra; ++i) in.push_back(ndGetCell(arguments, i));
    ndArray* result = nullptr;
    hostCallFunction(1, &result, int(in.size()), in.data(), "pdist", 0);
    return result ? matrix::unique_nd_ptr(result) : zv::createMatrix<T>(0, 0);
}

template <class T>
zv::clustering::MergeTable<T> mergeTableOf(const matrix::unique_nd_ptr& z, size_t n) {
    return {zv::dataOf<T>(z.get()), n};
}

template <class T>
void linkageTyped(int numInputs, const ndArray** inputs, ndArray** outputs) {
    const ndArray* first = inputs[0];
    const LinkageMethod method = methodOf(numInputs, inputs);
    const DataOptions data = dataOptionsOf(numInputs, inputs, method);

    if (data.memorySaving) {
        const size_t p = ndGetM(first), n = ndGetN(first);
        zv::raiseIf<ids::dataSizeTooLarge>(zv::reachesElementLimit(double(p) * double(n) * 8.0));
        auto z = zv::createMatrix<T>(std::max<size_t>(n, 1) - 1, 3);
        zv::clustering::linkageVector(method, zv::dataOf<const T>(first), p, n, mergeTableOf<T>(z, n));
        return zv::handOver(outputs, 1, std::move(z));
    }

    // The distances as given, of which N are read, or as "pdist" returned them.
    size_t n = 0, available = 0;
    matrix::unique_nd_ptr fromHost;
    const ndArray* distances = first;
    if (data.given) {
        n = ndGetM(first);
        fromHost = distancesFromHost<T>(first, inputs[2]);
        distances = fromHost.get();
        available = ndGetNumberOfElements(distances);
    } else {
        const double count = double(ndGetN(first));
        zv::raiseIf<ids::datSizeTooLarge>(count * 8.0 > zv::kMaxElementCount);
        n = zv::checked::toSize(std::ceil(std::sqrt(2.0 * count)));
        available = std::min(ndGetNumberOfElements(first), zv::checked::toSize(count));
    }
    // No observations at all leave no merge, as one does.
    n = std::max<size_t>(n, 1);
    auto z = zv::createMatrix<T>(n - 1, 3);
    const zv::HostValues<T> y(distances, available, std::numeric_limits<T>::quiet_NaN());
    zv::clustering::linkageCondensed(method, y.data(), available, n, mergeTableOf<T>(z, n));
    zv::handOver(outputs, 1, std::move(z));
}

}  // namespace

ZV_DEFINE_GATEWAY(linkagebif) {
    zv::raiseIf<ids::TooManyOutputArguments>(numOutputs > 1);
    zv::raiseIf<ids::UndefinedFunctionOnlyDoubleOrSingle>(numInputs < 1);
    zv::raiseIf<ids::UndefinedFunctionNoSparse>(ndIsSparse(inputs[0]));
    zv::raiseIf<ids::UndefinedFunctionNoComplex>(ndIsComplex(inputs[0]));
    zv::dispatchReal<ids::UndefinedFunctionOnlyDoubleOrSingle>(inputs[0], [&](auto tag) {
        linkageTyped<decltype(tag)>(numInputs, inputs, outputs);
    });
}

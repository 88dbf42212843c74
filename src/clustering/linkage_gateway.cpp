// linkagebif: hierarchical cluster tree from condensed distances, from data
// through the host's "pdist", or from data in the memory-saving mode.
#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "clustering/linkage.hpp"
#include "frame/gateway.hpp"
#include "frame/host_scratch.hpp"
#include "host/callback.hpp"

namespace {

namespace ids = stats::linkagebif;
using zv::clustering::LinkageMethod;

// The most extra arguments handed on to "pdist".
constexpr size_t kMaxPdistArguments = 49;

struct DataOptions {
    bool given = false;            // data instead of condensed distances
    bool memorySaving = false;
    const ndArray* pdistArguments = nullptr;
};

// Copies `count` values of a double or single array, as T, into `to`, squared
// for the methods that work on squares. Values the source lacks (a result of
// the wrong length, a vector length that is not triangular) read as NaN.
template <class T>
void copyCondensed(const ndArray* from, size_t available, T* to, size_t count, bool square) {
    const size_t have = std::min(available, count);
    auto put = [&](const auto* src) {
        for (size_t i = 0; i < have; ++i) {
            const T v = T(src[i]);
            to[i] = square ? v * v : v;
        }
    };
    if (!zv::visitRealData(from, put)) std::fill(to, to + have, std::numeric_limits<T>::quiet_NaN());
    std::fill(to + have, to + count, std::numeric_limits<T>::quiet_NaN());
}

size_t pairCount(size_t n) { return n < 2 ? 0 : n * (n - 1) / 2; }

// Distances of the rows of data through the host's "pdist".
matrix::unique_nd_ptr distancesFromHost(const ndArray* data, const ndArray* arguments) {
    const size_t extra = ndGetNumberOfElements(arguments);
    zv::raiseIf<ids::ToManyArgumentsForPDIST>(extra > kMaxPdistArguments);
    std::vector<const ndArray*> in{data};
    for (size_t i = 0; i < extra; ++i) in.push_back(ndGetCell(arguments, i));
    ndArray* result = nullptr;
    hostCallFunction(1, &result, int(in.size()), in.data(), "pdist", 0);
    return matrix::unique_nd_ptr(result);
}

template <class T>
void linkageTyped(int numInputs, const ndArray** inputs, ndArray** outputs) {
    const ndArray* first = inputs[0];
    LinkageMethod method{};
    const bool known = numInputs >= 2 && zv::clustering::linkageMethodFromCode(zv::ShortCode<3>(inputs[1]).text.data(), method);
    zv::raiseIf<ids::UnknownLinkageMethod>(!known);

    DataOptions data;
    if (numInputs >= 3) {
        data.given = true;
        data.pdistArguments = inputs[2];
        zv::raiseIf<ids::ThirdInputInvalid>(ndGetClassID(inputs[2]) != ndCELL_CLASS);
        const ndArray* flag = numInputs >= 4 ? inputs[3] : nullptr;
        if (flag && !ndIsEmpty(flag)) {
            zv::raiseIf<ids::ForthInputInvalid>(ndGetClassID(flag) != ndLOGICAL_CLASS);
            data.memorySaving = ndIsLogicalScalarTrue(flag);
        }
        zv::raiseIf<ids::MemEffNotCeMeWa>(data.memorySaving && !zv::clustering::worksOnSquares(method));
    }
    const bool square = zv::clustering::worksOnSquares(method);

    size_t n = 0, p = 0;
    // The condensed distances as given or as "pdist" returned them, and how
    // many of them there are.
    matrix::unique_nd_ptr fromHost;
    const ndArray* condensed = nullptr;
    size_t available = 0;
    if (data.memorySaving) {
        p = ndGetM(first);
        n = ndGetN(first);
        zv::raiseIf<ids::dataSizeTooLarge>(zv::reachesElementLimit(double(p) * double(n) * 8.0));
    } else if (data.given) {
        n = ndGetM(first);
        fromHost = distancesFromHost(first, data.pdistArguments);
        condensed = fromHost.get();
        available = condensed ? ndGetNumberOfElements(condensed) : 0;
    } else {
        const double count = double(ndGetN(first));
        zv::raiseIf<ids::datSizeTooLarge>(count * 8.0 > zv::kMaxElementCount);
        n = zv::checked::toSize(std::ceil(std::sqrt(2.0 * count)));
        condensed = first;
        available = std::min(ndGetNumberOfElements(first), zv::checked::toSize(count));
    }
    // No observations at all leave no merge, as one does.
    n = std::max<size_t>(n, 1);
    auto z = zv::createMatrix<T>(n - 1, 3);
    const zv::clustering::MergeTable<T> table{zv::dataOf<T>(z.get()), n};

    // Single linkage reads the distances in place when they are all there.
    if (method == LinkageMethod::Single && condensed && available >= pairCount(n) &&
        ndGetClassID(condensed) == zv::classOf<T>() &&
        zv::clustering::singleLinkageByTree(zv::dataOf<const T>(condensed), n, table)) {
        outputs[0] = matrix::to_host(std::move(z));
        return;
    }

    zv::HostScratch<T> work(0);
    if (!data.memorySaving) {
        work = zv::HostScratch<T>(pairCount(n));
        zv::adviseHugePages(work.get(), pairCount(n) * sizeof(T));
        copyCondensed<T>(condensed, available, work.get(), pairCount(n), square);
        fromHost.reset();
    }
    zv::HostScratch<uint64_t> labels(n);
    for (size_t i = 0; i < n; ++i) labels[i] = i;
    zv::HostScratch<uint64_t> sizes(zv::clustering::keepsSizes(method) ? n : 0);
    if (zv::clustering::keepsSizes(method)) std::fill(sizes.get(), sizes.get() + n, uint64_t(1));
    uint64_t* sizesOrNull = zv::clustering::keepsSizes(method) ? sizes.get() : nullptr;

    if (data.memorySaving)
        zv::clustering::linkageVector(method, zv::dataOf<const T>(first), p, n, labels.get(), sizesOrNull, table);
    else
        zv::clustering::linkageCondensed(method, work.get(), n, labels.get(), sizesOrNull, table);
    outputs[0] = matrix::to_host(std::move(z));
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

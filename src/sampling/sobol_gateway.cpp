// sobolset point generators: a sequence from a first index with a leap, points
// at given indices, one point, and a net of the first n points.
#include <optional>

#include "frame/gateway.hpp"
#include "sampling/sobol_arguments.hpp"
#include "sampling/sobol_points.hpp"

namespace {

namespace ids = stats::sobolset;
using zv::checked::truncateSaturated;
using zv::sampling::DirectionNumbers;

void requireDirectionNumbers(const ndArray* v) {
    zv::raiseIf<ids::InvalidDirectionNumbers>(ndGetClassID(v) != ndUINT64_CLASS);
}

bool grayFlag(const ndArray* flag) {
    zv::raiseIf<ids::InvalidGrayCodeFlag>(ndGetClassID(flag) != ndLOGICAL_CLASS);
    return ndIsLogicalScalarTrue(flag);
}

matrix::unique_nd_ptr pointOutput(size_t n, size_t d) { return zv::sampling::createOutput<uint64_t>(n, d); }

uint64_t* words(const matrix::unique_nd_ptr& out) { return zv::dataOf<uint64_t>(out.get()); }

}  // namespace

namespace sobolset {

ZV_DEFINE_GATEWAY(sobolSequenceBIF) {
    zv::raiseIf<ids::NumInputsSobolSequence>(numInputs != 5 && numInputs != 6);
    const ndArray* v = inputs[0];
    requireDirectionNumbers(v);
    const bool gray = grayFlag(inputs[4]);
    const ndArray* last = numInputs == 6 && !ndIsEmpty(inputs[5]) ? inputs[5] : nullptr;
    zv::raiseIf<ids::InvalidLastX>(last && ndGetClassID(last) != ndUINT64_CLASS);

    const double leap = ndGetScalar(inputs[2]);
    zv::sampling::SequenceRequest request;
    request.first = truncateSaturated<uint64_t>(ndGetScalar(inputs[1]));
    request.step = truncateSaturated<uint64_t>(leap) + 1;
    request.quick = leap == 0.0 && gray;  // a NaN leap is not 0
    request.gray = gray;
    const size_t n = zv::checked::toSize(ndGetScalar(inputs[3]));
    const DirectionNumbers dirs(v);
    auto out = pointOutput(n, dirs.d());
    // A last point shorter than a row continues with zeros.
    std::optional<zv::HostValues<uint64_t>> lastWords;
    if (last) request.last = lastWords.emplace(last, dirs.d(), 0).data();
    zv::sampling::sobolSequence(dirs.table(), request, words(out), n);
    zv::handOver(outputs, numOutputs, std::move(out));
}

// V is not class-tested here: a table of another class is read by its values.
ZV_DEFINE_GATEWAY(sobolIndexedBIF) {
    zv::raiseIf<ids::NumInputsSobolIndexed>(numInputs != 3);
    const bool gray = grayFlag(inputs[2]);
    const ndArray* indices = inputs[1];
    const size_t n = ndGetNumberOfElements(indices);
    const DirectionNumbers dirs(inputs[0]);
    auto out = pointOutput(n, dirs.d());
    const zv::HostValues<double> index(indices, n, 0.0);
    zv::sampling::sobolIndexed(dirs.table(), index.data(), gray, words(out), n);
    zv::handOver(outputs, numOutputs, std::move(out));
}

ZV_DEFINE_GATEWAY(sobolPoint) {
    zv::raiseIf<ids::NumInputsSobolPoint>(numInputs != 3);
    requireDirectionNumbers(inputs[0]);
    const bool gray = grayFlag(inputs[2]);
    const double index = ndGetScalar(inputs[1]);
    const DirectionNumbers dirs(inputs[0]);
    auto out = pointOutput(1, dirs.d());
    zv::sampling::sobolIndexed(dirs.table(), &index, gray, words(out), 1);
    zv::handOver(outputs, numOutputs, std::move(out));
}

ZV_DEFINE_GATEWAY(sobolNetBIF) {
    zv::raiseIf<ids::NumInputsSobolNet>(numInputs != 3);
    requireDirectionNumbers(inputs[0]);
    const bool gray = grayFlag(inputs[2]);
    const size_t n = zv::checked::toSize(ndGetScalar(inputs[1]));
    const DirectionNumbers dirs(inputs[0]);
    auto out = pointOutput(n, dirs.d());
    zv::sampling::sobolNet(dirs.table(), gray, words(out), n);
    zv::handOver(outputs, numOutputs, std::move(out));
}

}  // namespace sobolset

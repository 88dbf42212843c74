// sobolset point generators: a sequence from a first index with a leap, points
// at given indices, one point, and a net of the first n points.
#include "frame/gateway.hpp"
#include "sampling/sobol_arguments.hpp"
#include "sampling/sobol_points.hpp"

namespace {

namespace ids = stats::sobolset;
using zv::checked::truncateSaturated;
using zv::sampling::directionTableOf;

void requireDirectionNumbers(const ndArray* v) {
    zv::raiseIf<ids::InvalidDirectionNumbers>(ndGetClassID(v) != ndUINT64_CLASS);
}

bool grayFlag(const ndArray* flag) {
    zv::raiseIf<ids::InvalidGrayCodeFlag>(ndGetClassID(flag) != ndLOGICAL_CLASS);
    return ndIsLogicalScalarTrue(flag);
}

uint64_t* pointOutput(ndArray** outputs, size_t n, size_t d) {
    return zv::dataOf<uint64_t>(zv::sampling::createOutput(outputs, n, d, ndUINT64_CLASS));
}

}  // namespace

namespace sobolset {

ZV_DEFINE_GATEWAY(sobolSequenceBIF) {
    (void)numOutputs;
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
    if (last) {
        request.last = zv::dataOf<const uint64_t>(last);
        request.lastCount = ndGetNumberOfElements(last);
    }
    const size_t n = zv::checked::toSize(ndGetScalar(inputs[3]));
    const auto dirs = directionTableOf(v);
    zv::sampling::sobolSequence(dirs, request, pointOutput(outputs, n, dirs.d), n);
}

// V is not class-tested here; it is read as words as far as its storage goes.
ZV_DEFINE_GATEWAY(sobolIndexedBIF) {
    (void)numOutputs;
    zv::raiseIf<ids::NumInputsSobolIndexed>(numInputs != 3);
    const bool gray = grayFlag(inputs[2]);
    const ndArray* indices = inputs[1];
    const size_t n = ndGetNumberOfElements(indices);
    const auto dirs = directionTableOf(inputs[0]);
    zv::sampling::sobolIndexed(dirs, zv::dataOf<const double>(indices), zv::storedCount<double>(indices),
                               gray, pointOutput(outputs, n, dirs.d), n);
}

ZV_DEFINE_GATEWAY(sobolPoint) {
    (void)numOutputs;
    zv::raiseIf<ids::NumInputsSobolPoint>(numInputs != 3);
    requireDirectionNumbers(inputs[0]);
    const bool gray = grayFlag(inputs[2]);
    const double index = ndGetScalar(inputs[1]);
    const auto dirs = directionTableOf(inputs[0]);
    zv::sampling::sobolIndexed(dirs, &index, 1, gray, pointOutput(outputs, 1, dirs.d), 1);
}

ZV_DEFINE_GATEWAY(sobolNetBIF) {
    (void)numOutputs;
    zv::raiseIf<ids::NumInputsSobolNet>(numInputs != 3);
    requireDirectionNumbers(inputs[0]);
    const bool gray = grayFlag(inputs[2]);
    const size_t n = zv::checked::toSize(ndGetScalar(inputs[1]));
    const auto dirs = directionTableOf(inputs[0]);
    zv::sampling::sobolNet(dirs, gray, pointOutput(outputs, n, dirs.d), n);
}

}  // namespace sobolset

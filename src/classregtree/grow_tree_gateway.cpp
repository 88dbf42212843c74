// classregtree::growTree: one classification or regression tree, grown
// breadth first, returned as the 24 arrays of the tree record.
#include <algorithm>

#include "classregtree/grow_tree.hpp"
#include "frame/checked.hpp"
#include "frame/gateway.hpp"
#include "frame/limits.hpp"
#include "host/callback.hpp"

namespace {

using namespace zv::classregtree;

bool flag(const ndArray* a) { return ndIsLogicalScalarTrue(a); }
uint64_t count(const ndArray* a) { return zv::checked::toSize(ndGetScalar(a)); }

std::string text(const ndArray* a) {
    if (!a || ndGetClassID(a) != ndCHAR_CLASS) return {};
    return matrix::get_string(a);
}

// Criterion name: a char row, or a cell of the host functions of a custom criterion.
void readCriterion(const ndArray* a, GrowTreeCall& call) {
    if (ndGetClassID(a) == ndCELL_CLASS) {
        const size_t n = ndGetNumberOfElements(a);
        call.criterion = CriterionKind::Custom;
        call.parentFunction = n > 0 ? text(ndGetCell(a, 0)) : std::string();
        call.kidsFunction = n > 1 ? text(ndGetCell(a, 1)) : std::string();
        return;
    }
    call.criterion = parseCriterion(text(a));
}

template <class X>
void dispatchResponse(const GrowTreeCall& call, int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const bool yDouble = ndGetClassID(inputs[1]) == ndDOUBLE_CLASS;
    const bool wDouble = ndGetClassID(inputs[2]) == ndDOUBLE_CLASS;
    if (yDouble && wDouble) growTreeTyped<X, double, double>(call, numOutputs, outputs);
    else if (yDouble) growTreeTyped<X, double, float>(call, numOutputs, outputs);
    else if (wDouble) growTreeTyped<X, float, double>(call, numOutputs, outputs);
    else growTreeTyped<X, float, float>(call, numOutputs, outputs);
}

}  // namespace

namespace classregtree {

ZV_DEFINE_GATEWAY(growTree) {
    namespace ids = stats::classreg::learning::treeutils::growTree;
    zv::raiseIf<ids::BadNumberOfInputArgs>(numInputs != 23, 23);
    zv::raiseIf<ids::BadNumberOfOutputArgs>(numOutputs > 24, 24);
    GrowTreeCall call{};
    call.x = inputs[0];
    call.y = inputs[1];
    call.w = inputs[2];
    call.rows = inputs[3];
    call.isCategorical = inputs[5];
    call.numBins = inputs[6];
    call.cost = inputs[15];
    call.stream = inputs[20];
    call.N = ndGetM(inputs[0]);
    call.P = ndGetN(inputs[0]);
    readCriterion(inputs[7], call);
    TreeOptions& o = call.options;
    o.quartileSearch = flag(inputs[4]);
    // A leaf holds at least one row: a minimum of 0 is 1. Beyond any possible
    // row count the minimum changes nothing, and twice it must not overflow.
    o.minLeaf = std::clamp<uint64_t>(count(inputs[8]), 1, zv::kMaxElementCountWord);
    o.minParent = count(inputs[9]);
    o.maxSplits = count(inputs[10]);
    o.numVarsToSample = std::min<uint64_t>(count(inputs[11]), call.P);
    o.numSurrogates = count(inputs[12]);
    o.maxCat = count(inputs[13]);
    o.algCat = count(inputs[14]);
    o.relativeTolerance = ndGetScalar(inputs[16]);
    o.curvature = flag(inputs[17]);
    o.interaction = flag(inputs[18]);
    o.chiSquareForNumeric = flag(inputs[19]);
    o.serial = flag(inputs[21]);
    o.verbose = count(inputs[22]);
    switch (ndGetClassID(inputs[0])) {
    case ndDOUBLE_CLASS: dispatchResponse<double>(call, numOutputs, outputs, inputs); break;
    case ndINT32_CLASS: dispatchResponse<int>(call, numOutputs, outputs, inputs); break;
    default: dispatchResponse<float>(call, numOutputs, outputs, inputs); break;
    }
}

}  // namespace classregtree

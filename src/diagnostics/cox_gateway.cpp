// coxsresbif and coxmresbif: the risk-set sums behind Cox score and
// martingale residuals. Both run on the calling thread.
#include "diagnostics/cox_residuals.hpp"
#include "frame/gateway.hpp"

namespace {

using zv::diagnostics::CoxProblem;
using zv::diagnostics::CoxScoreWork;
using zv::diagnostics::CoxSums;

bool isDouble(const ndArray* a) { return ndGetClassID(a) == ndDOUBLE_CLASS; }

// status, then the vectors from `first` on, all read as n values.
void readRows(CoxProblem& pr, const ndArray** inputs, int first) {
    pr.status = reinterpret_cast<const uint8_t*>(ndGetLogicals(inputs[0]));
    pr.start = zv::dataOf<const double>(inputs[first]);
    pr.stop = zv::dataOf<const double>(inputs[first + 1]);
    pr.freq = zv::dataOf<const double>(inputs[first + 2]);
    pr.risk = zv::dataOf<const double>(inputs[first + 3]);
    pr.tie = ndGetScalar(inputs[first + 4]);
}

}  // namespace

ZV_DEFINE_GATEWAY(coxsresbif) {
    namespace ids = stats::coxsresbif;
    zv::raiseIf<ids::TooFewInputs>(numInputs < 7);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 1);
    zv::raiseIf<ids::BadInputTypeLogical>(ndGetClassID(inputs[0]) != ndLOGICAL_CLASS);
    for (int k = 1; k <= 4; ++k) zv::raiseIf<ids::BadInputTypeDouble>(!isDouble(inputs[k]));

    const ndArray* xArg = inputs[1];
    CoxProblem pr{};
    pr.kind = CoxSums::Score;
    pr.p = ndGetM(xArg);
    pr.n = ndGetN(xArg);
    outputs[0] = ndCreateDoubleMatrix(pr.p, pr.n, ndREAL);
    if (pr.p == 0) return;
    pr.x = zv::dataOf<const double>(xArg);
    readRows(pr, inputs, 2);
    pr.out = zv::dataOf<double>(outputs[0]);

    const size_t bytes = pr.p * sizeof(double);
    CoxScoreWork work{};
    work.a = static_cast<double*>(ndMalloc(bytes));
    work.b = static_cast<double*>(ndMalloc(bytes));
    work.t = static_cast<double*>(ndCalloc(pr.p, sizeof(double)));
    work.c = static_cast<double*>(ndMalloc(bytes));
    work.d = static_cast<double*>(ndMalloc(bytes));
    zv::raiseIf<ids::MemoryAllocationFailure>(!work.a || !work.b || !work.t || !work.c || !work.d);

    zv::diagnostics::coxRiskSums(pr, work);
    for (double* v : {work.a, work.b, work.t, work.c, work.d}) ndFree(v);
}

ZV_DEFINE_GATEWAY(coxmresbif) {
    namespace ids = stats::coxmresbif;
    zv::raiseIf<ids::TooFewInputs>(numInputs < 6);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 1);
    zv::raiseIf<ids::BadInputTypeLogical>(ndGetClassID(inputs[0]) != ndLOGICAL_CLASS);
    for (int k = 1; k <= 3; ++k) zv::raiseIf<ids::BadInputTypeDouble>(!isDouble(inputs[k]));

    CoxProblem pr{};
    pr.kind = CoxSums::Martingale;
    pr.n = ndGetN(inputs[1]);
    outputs[0] = ndCreateDoubleMatrix(1, pr.n, ndREAL);
    readRows(pr, inputs, 1);
    pr.out = zv::dataOf<double>(outputs[0]);
    zv::diagnostics::coxRiskSums(pr, CoxScoreWork{});
}

// coxsresbif and coxmresbif: the risk-set sums behind Cox score and
// martingale residuals. Both run on the calling thread.
#include <limits>

#include "diagnostics/cox_residuals.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "frame/scratch.hpp"

namespace {

using zv::diagnostics::CoxProblem;
using zv::diagnostics::CoxScoreWork;
using zv::diagnostics::CoxSums;

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

bool isDouble(const ndArray* a) { return ndGetClassID(a) == ndDOUBLE_CLASS; }

// The n rows as the engine reads them. Lengths are the caller's to get
// right; a vector that holds fewer values is read as far as it goes: a row
// past the status has no event, and a time, frequency or risk it lacks is
// NaN, so such a row is never at risk, or makes the sums it enters NaN.
struct Rows {
    zv::HostValues<bool> status;
    zv::HostValues<double> start, stop, freq, risk;

    Rows(const ndArray** inputs, int first, size_t n)
        : status(inputs[0], n, false),
          start(inputs[first], n, kMissing),
          stop(inputs[first + 1], n, kMissing),
          freq(inputs[first + 2], n, kMissing),
          risk(inputs[first + 3], n, kMissing) {}

    void into(CoxProblem& pr) const {
        pr.status = reinterpret_cast<const uint8_t*>(status.data());
        pr.start = start.data();
        pr.stop = stop.data();
        pr.freq = freq.data();
        pr.risk = risk.data();
    }
};

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
    const auto x = zv::HostValues<double>::matrix(xArg, pr.p, pr.n, kMissing);
    const Rows rows(inputs, 2, pr.n);
    rows.into(pr);
    pr.x = x.data();
    pr.tie = ndGetScalar(inputs[6]);
    pr.out = zv::dataOf<double>(outputs[0]);

    zv::Scratch<double> a(pr.p), b(pr.p), t(pr.p, 0.0), c(pr.p), d(pr.p);
    zv::diagnostics::coxRiskSums(pr, CoxScoreWork{a.get(), b.get(), t.get(), c.get(), d.get()});
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
    const Rows rows(inputs, 1, pr.n);
    rows.into(pr);
    pr.tie = ndGetScalar(inputs[5]);
    pr.out = zv::dataOf<double>(outputs[0]);
    zv::diagnostics::coxRiskSums(pr, CoxScoreWork{});
}

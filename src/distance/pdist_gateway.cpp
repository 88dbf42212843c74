// pdistbif: condensed distances between the columns of a p-by-n matrix.
#include "distance/metric_codes.hpp"
#include "distance/pdist.hpp"
#include "frame/gateway.hpp"

namespace {

namespace ids = stats::pdistbif;
using zv::distance::PairMetric;

// Without an exponent the Minkowski distance takes the usual default of 2.
constexpr double kDefaultMinkowskiExponent = 2.0;

template <class T>
void pdistTyped(const ndArray** inputs, int numInputs, ndArray** outputs) {
    const ndArray* xArg = inputs[0];
    const auto metric = zv::distance::metricOfCode(inputs[1]);
    const ndArray* extraArg = numInputs > 2 && !ndIsEmpty(inputs[2]) ? inputs[2] : nullptr;

    zv::distance::PdistProblem<T> problem{};
    problem.x = zv::dataOf<const T>(xArg);
    problem.xCount = zv::storedCount<T>(xArg);
    problem.p = ndGetM(xArg);
    problem.n = ndGetN(xArg);
    problem.exponent = T(kDefaultMinkowskiExponent);
    if (extraArg) {
        if (metric == PairMetric::Minkowski) {
            problem.exponent = T(ndGetScalar(extraArg));
        } else {
            zv::raiseIf<ids::MixedInputTypes>(ndGetClassID(extraArg) != ndGetClassID(xArg));
            problem.extra = zv::dataOf<const T>(extraArg);
            problem.extraCount = zv::storedCount<T>(extraArg);
        }
    }

    const double count = (double(problem.n) - 1.0) * double(problem.n) * 0.5;
    zv::raiseIf<ids::OutputTooLarge>(zv::reachesElementLimit(count));
    auto y = zv::createMatrix<T>(1, zv::checked::toSize(count));
    problem.y = zv::dataOf<T>(y.get());
    const auto& interrupt = hostGetInterruptStateData();

    // An unknown code computes nothing: the zeros are the result.
    if (metric) {
        problem.metric = *metric;
        zv::distance::pdistEngine(problem, interrupt);
    }
    outputs[0] = matrix::to_host(std::move(y));
}

}  // namespace

ZV_DEFINE_GATEWAY(pdistbif) {
    zv::raiseIf<ids::TooFewInputs>(numInputs < 2);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 1);
    zv::dispatchReal<ids::BadInputType>(inputs[0], [&](auto tag) {
        pdistTyped<decltype(tag)>(inputs, numInputs, outputs);
    });
}

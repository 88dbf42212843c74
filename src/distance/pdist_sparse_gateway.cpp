// pdistSparseBIF, pdist2SparseBIF: distances between the columns of double
// sparse matrices, condensed within one or as a cross matrix between two.
#include "distance/metric_codes.hpp"
#include "distance/sparse_distance.hpp"
#include "frame/gateway.hpp"

namespace {

// As in pdistbif: without an exponent the Minkowski distance takes 2.
constexpr double kDefaultMinkowskiExponent = 2.0;

bool isDoubleSparse(const ndArray* a) { return ndGetClassID(a) == ndDOUBLE_CLASS && ndIsSparse(a); }

zv::distance::SparseColumns columnsOf(const ndArray* a) {
    return {zv::dataOf<const double>(a), ndGetRowIndices(a), ndGetColumnStarts(a), ndGetN(a), ndGetM(a)};
}

}  // namespace

ZV_DEFINE_GATEWAY(pdistSparseBIF) {
    namespace ids = stats::pdistbif;
    zv::raiseIf<ids::TooFewInputs>(numInputs < 2);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 1);
    const ndArray* xArg = inputs[0];
    zv::raiseIf<ids::BadInputType>(!isDoubleSparse(xArg));

    const auto metric = zv::distance::metricOfCode(inputs[1]);
    zv::distance::SparsePdistProblem problem{};
    problem.x = columnsOf(xArg);
    problem.exponent = kDefaultMinkowskiExponent;
    if (numInputs >= 3 && !ndIsEmpty(inputs[2])) {
        if (metric == zv::distance::PairMetric::Minkowski) {
            problem.exponent = ndGetScalar(inputs[2]);
        } else {
            zv::raiseIf<ids::MixedInputTypes>(ndGetClassID(inputs[2]) != ndGetClassID(xArg));
            problem.extra = zv::dataOf<const double>(inputs[2]);
            problem.extraCount = zv::storedCount<double>(inputs[2]);
        }
    }

    const double count = zv::distance::condensedPairCount(problem.x.n);
    zv::raiseIf<ids::OutputTooLarge>(zv::reachesElementLimit(count));
    outputs[0] = ndCreateNumericMatrix(1, zv::checked::toSize(count), ndGetClassID(xArg), ndREAL);
    problem.y = zv::dataOf<double>(outputs[0]);
    // An unknown code computes nothing: the zeros are the result.
    if (metric) {
        problem.metric = *metric;
        zv::distance::pdistSparseEngine(problem);
    }
}

ZV_DEFINE_GATEWAY(pdist2SparseBIF) {
    namespace ids = stats::pdist2bif;
    zv::raiseIf<ids::TooFewInputs>(numInputs < 3);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 2);
    zv::raiseIf<ids::BadInputType>(!isDoubleSparse(inputs[0]) || !isDoubleSparse(inputs[1]));

    const auto metric = zv::distance::metricOfCode(inputs[2]);
    zv::distance::SparseCrossProblem problem{};
    problem.x = columnsOf(inputs[0]);
    problem.y = columnsOf(inputs[1]);
    // No size limit of its own: the host's array constructor is the only one.
    outputs[0] = ndCreateNumericMatrix(problem.x.n, problem.y.n, ndGetClassID(inputs[0]), ndREAL);
    problem.d = zv::dataOf<double>(outputs[0]);
    if (metric) {
        problem.metric = *metric;
        zv::distance::pdist2SparseEngine(problem);
    }
}

// pdist2bif: distances between the columns of X and of Y, as a full matrix,
// the K best for each column of Y, or every column of X within a radius.
#include <cmath>

#include "distance/metric_codes.hpp"
#include "distance/pdist2.hpp"
#include "frame/gateway.hpp"

namespace {

namespace ids = stats::pdist2bif;
using zv::distance::PairMetric;

constexpr double kDefaultMinkowskiExponent = 2.0;  // the usual default when none is given

bool isEmptyOrAbsent(int numInputs, const ndArray** inputs, int k) {
    return k >= numInputs || ndIsEmpty(inputs[k]);
}

// Radius hits into the cells of the outputs, on the calling thread, in order.
template <class T>
void fillCells(zv::distance::RadiusResults<T>& results, ndArray* distances, ndArray* indices) {
    for (size_t j = 0; j < results.size(); ++j) {
        auto& hits = results[j];
        matrix::unique_nd_ptr d = zv::createMatrix<T>(1, hits.size());
        T* dv = zv::dataOf<T>(d.get());
        for (size_t k = 0; k < hits.size(); ++k) dv[k] = hits[k].dist;
        if (indices) {
            matrix::unique_nd_ptr ix = zv::createMatrix<double>(1, hits.size());
            double* iv = zv::dataOf<double>(ix.get());
            for (size_t k = 0; k < hits.size(); ++k) iv[k] = double(hits[k].idx + 1);
            ndSetCell(indices, j, matrix::to_host(std::move(ix)));
        }
        ndSetCell(distances, j, matrix::to_host(std::move(d)));
        hits = {};
    }
}

template <class T>
void pdist2Typed(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs,
                 const std::shared_ptr<InterruptStateData>& interrupt) {
    const ndArray* xArg = inputs[0];
    const ndArray* yArg = inputs[1];
    const auto metric = zv::distance::metricOfCode(inputs[2]);
    zv::raiseIf<ids::XYDimsMismatch>(ndGetM(xArg) != ndGetM(yArg));

    zv::distance::Pdist2Problem<T> pr{};
    pr.x = zv::dataOf<const T>(xArg);
    pr.y = zv::dataOf<const T>(yArg);
    pr.p = ndGetM(xArg);
    pr.nx = ndGetN(xArg);
    pr.ny = ndGetN(yArg);
    pr.exponent = T(kDefaultMinkowskiExponent);
    if (!ndIsEmpty(inputs[3])) {
        if (metric == PairMetric::Minkowski) {
            pr.exponent = T(ndGetScalar(inputs[3]));
        } else {
            zv::raiseIf<ids::MixedInputTypes>(ndGetClassID(inputs[3]) != ndGetClassID(xArg));
            pr.extra = zv::dataOf<const T>(inputs[3]);
            pr.extraCount = zv::storedCount<T>(inputs[3]);
        }
    }

    size_t rows = pr.nx;
    if (!ndIsEmpty(inputs[4])) {
        const double s = ndGetScalar(inputs[4]);
        pr.sign = s < 0 ? -1 : 1;  // a NaN counts as positive
        const size_t k = zv::checked::toSize(std::fabs(s));  // NaN gives 0
        zv::raiseIf<ids::numDistsTooSmall>(k == 0);
        pr.K = rows = std::min(pr.nx, k);
    }

    const double radius = isEmptyOrAbsent(numInputs, inputs, 5) ? -1.0 : ndGetScalar(inputs[5]);
    matrix::unique_nd_ptr first, second;
    zv::distance::RadiusResults<T> results;
    if (radius >= 0) {
        pr.radius = T(radius);
        first = matrix::detail::do_create_cell(std::array<size_t, 2>{1, pr.ny});
        if (numOutputs > 1) second = matrix::detail::do_create_cell(std::array<size_t, 2>{1, pr.ny});
        results.resize(pr.ny);
        pr.results = &results;
    } else {
        pr.radius = T(-1);
        zv::raiseIf<ids::OutputTooLarge>(zv::reachesElementLimit(double(rows) * double(pr.ny)));
        first = zv::createMatrix<T>(rows, pr.ny);
        pr.D = zv::dataOf<T>(first.get());
        if (numOutputs > 1) {
            second = zv::createMatrix<double>(rows, pr.ny);
            if (pr.sign != 0) pr.I = zv::dataOf<double>(second.get());
        }
    }
    // Without a seventh input the hits are sorted, as with an empty one.
    pr.sortHits = isEmptyOrAbsent(numInputs, inputs, 6) || ndGetScalar(inputs[6]) != 0;

    // An unknown code computes nothing: zeros, or empty cells.
    if (metric) {
        pr.metric = *metric;
        zv::distance::pdist2Engine(pr, interrupt);
        if (radius >= 0) fillCells(results, first.get(), second.get());
    }

    outputs[0] = matrix::to_host(std::move(first));
    if (numOutputs > 1) outputs[1] = matrix::to_host(std::move(second));
}

void pdist2Frame(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs,
                 const std::shared_ptr<InterruptStateData>& interrupt) {
    zv::raiseIf<ids::TooFewInputs>(numInputs < 6);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 2);
    const ndArray* x = inputs[0];
    const ndArray* y = inputs[1];
    zv::raiseIf<ids::SparseOrComplexInput>(ndIsSparse(x) || ndIsComplex(x) || ndIsSparse(y) || ndIsComplex(y));
    zv::raiseIf<ids::BadInputType>(ndGetClassID(x) != ndGetClassID(y));
    zv::dispatchReal<ids::BadInputType>(x, [&](auto tag) {
        pdist2Typed<decltype(tag)>(numOutputs, outputs, numInputs, inputs, interrupt);
    });
}

}  // namespace

void pdist2bifNested(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs,
                     std::shared_ptr<InterruptStateData> interrupt) {
    pdist2Frame(numOutputs, outputs, numInputs, inputs, interrupt);
}

ZV_DEFINE_GATEWAY(pdist2bif) {
    // The count tests come before the host is asked for the handle.
    zv::raiseIf<ids::TooFewInputs>(numInputs < 6);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 2);
    const std::shared_ptr<InterruptStateData> interrupt = hostGetInterruptStateData();
    pdist2Frame(numOutputs, outputs, numInputs, inputs, interrupt);
}

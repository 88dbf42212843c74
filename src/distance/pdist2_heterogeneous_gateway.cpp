// pdist2HeterogeneousBIF: distances between the columns of X and of Y whose
// coordinates are partly categorical, with the caller's frequency matrices.
#include "distance/heterogeneous.hpp"
#include "frame/gateway.hpp"

namespace {

namespace ids = stats::pdist2bif;

// F, G and C are read as T and size_t whatever their class, so the engine is
// told how many values stand behind each.
template <class T>
void heterogeneousTyped(const ndArray** inputs, ndArray** outputs,
                        const std::shared_ptr<InterruptStateData>& interrupt) {
    const ndArray* xArg = inputs[0];
    const ndArray* yArg = inputs[1];
    const zv::ShortCode<4> code(inputs[2]);
    const auto measure = zv::findOption(zv::distance::kHeterogeneousMeasureCodes, code.text.data());
    const ndArray* fArg = inputs[3];
    const ndArray* gArg = inputs[4];
    const ndArray* categoricalArg = inputs[5];

    zv::distance::HeterogeneousProblem<T> problem{};
    problem.x = zv::dataOf<const T>(xArg);
    problem.y = zv::dataOf<const T>(yArg);
    problem.f = zv::dataOf<const T>(fArg);
    problem.g = zv::dataOf<const T>(gArg);
    problem.categorical = zv::dataOf<const size_t>(categoricalArg);
    problem.p = ndGetM(xArg);
    problem.nx = ndGetN(xArg);
    problem.ny = ndGetN(yArg);
    problem.c = ndGetNumberOfElements(categoricalArg);
    problem.yCount = ndGetNumberOfElements(yArg);
    problem.fCount = zv::storedCount<T>(fArg);
    problem.gCount = zv::storedCount<T>(gArg);
    problem.categoricalCount = zv::storedCount<size_t>(categoricalArg);

    auto d = zv::createMatrix<T>(problem.nx, problem.ny);
    problem.d = zv::dataOf<T>(d.get());
    // An unknown code computes nothing: the zeros are the result.
    if (measure) {
        problem.measure = *measure;
        zv::distance::heterogeneousEngine(problem, interrupt);
    }
    outputs[0] = matrix::to_host(std::move(d));
}

}  // namespace

// A second output may be asked for; it is left unset.
ZV_DEFINE_GATEWAY(pdist2HeterogeneousBIF) {
    zv::raiseIf<ids::TooFewInputs>(numInputs < 6);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 2);
    const ndArray* x = inputs[0];
    const ndArray* y = inputs[1];
    zv::raiseIf<ids::SparseOrComplexInput>(ndIsSparse(x) || ndIsSparse(y) || ndIsComplex(x) || ndIsComplex(y));
    const auto& interrupt = hostGetInterruptStateData();
    zv::raiseIf<ids::BadInputType>(ndGetClassID(x) != ndGetClassID(y));
    zv::dispatchReal<ids::BadInputType>(x, [&](auto tag) {
        heterogeneousTyped<decltype(tag)>(inputs, outputs, interrupt);
    });
}

// ompBatchImpl and ompCholImpl: orthogonal matching pursuit of every column of
// Y over the atoms of X, with the Gram matrix or with explicit residuals. Both
// take the same eight inputs and give coefficients and the support.
#include <algorithm>
#include <climits>
#include <limits>

#include "frame/double_else_single.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "sparse/omp_batch.hpp"
#include "sparse/omp_chol.hpp"

namespace {

using namespace featlearn::omp;

constexpr int kInputs = 8;
constexpr int kMaxOutputs = 2;

// A count argument read as T and truncated, so that single-precision calls
// round it the way the solver sees every other number.
template <class T>
size_t countArgument(const ndArray* a) {
    return zv::checked::toSize(double(T(ndGetScalar(a))));
}

template <template <class> class Solver, class T>
void ompTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    const ndArray* xArg = inputs[0];
    const ndArray* yArg = inputs[1];
    OmpProblem<T> problem;
    problem.numRows = ndGetM(xArg);
    problem.numAtoms = ndGetN(xArg);
    problem.numResponses = ndGetN(yArg);
    problem.maxAtoms = countArgument<T>(inputs[2]);
    problem.maxGroups = countArgument<T>(inputs[4]);
    problem.tolerance = T(ndGetScalar(inputs[5]));
    // inputs[6] is accepted and has no effect.
    const bool parallel = ndGetScalar(inputs[7]) != 0;  // a NaN counts as on

    const size_t P = problem.numAtoms, M = problem.numResponses;
    // Every support entry is an output element: beyond the element limit the
    // support cannot exist, whatever the host would do with such a size.
    if (zv::reachesElementLimit(double(problem.maxAtoms) * double(M))) {
        const double bytes = double(problem.maxAtoms) * double(M) * double(sizeof(T));
        zv::frame::raiseOutOfMemory<OutOfMemory>(bytes < double(LONG_MAX) ? size_t(bytes) : size_t(LONG_MAX));
    }

    // X and Y are seen by their own rows and columns, the groups as a list;
    // whatever an input lacks is a zero, and an atom without a group value
    // shares its group with no other atom.
    using Values = zv::HostValues<T, OutOfMemory>;
    const auto X = Values::matrix(xArg, problem.numRows, P, T(0));
    const auto Y = Values::matrix(yArg, problem.numRows, M, T(0));
    const Values groups(inputs[3], P, std::numeric_limits<T>::quiet_NaN());
    problem.X = X.data();
    problem.Y = Y.data();
    problem.groups = groups.data();

    matrix::unique_nd_ptr coefficients, support;
    // With no atom to choose, or none allowed, every support is empty.
    if (P == 0 || problem.maxAtoms == 0) {
        coefficients = zv::createMatrix<T>(P, M);
        support = zv::createMatrix<T>(problem.maxAtoms, M);
        T* s = zv::dataOf<T>(support.get());
        std::fill(s, s + problem.maxAtoms * M, T(-1));
    } else {
        const Solver<T> solver(problem);
        coefficients = zv::createMatrix<T>(P, M);
        support = zv::createMatrix<T>(problem.maxAtoms, M);
        const OmpOutputs<T> out{zv::dataOf<T>(coefficients.get()), zv::dataOf<T>(support.get())};
        if (parallel) Parallelizer<Solver<T>>(solver, out).solveParallel();
        else solveSerial(solver, out);
    }
    zv::handOver(outputs, numOutputs, std::move(coefficients), std::move(support));
}

template <template <class> class Solver>
void ompGateway(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs) {
    if (zv::fixedCountsSayReturn(numOutputs, kMaxOutputs, numInputs, kInputs, kInputs)) return;
    // The dictionary's class picks the precision: double, or single for anything else.
    zv::dispatchDoubleElseSingle(inputs[0], [&](auto tag) { ompTyped<Solver, decltype(tag)>(numOutputs, outputs, inputs); });
}

}  // namespace

ZV_DEFINE_GATEWAY(ompBatchImpl) { ompGateway<BatchOMPSolver>(numOutputs, outputs, numInputs, inputs); }

ZV_DEFINE_GATEWAY(ompCholImpl) { ompGateway<CholOMPSolver>(numOutputs, outputs, numInputs, inputs); }

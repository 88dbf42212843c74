// What the two orthogonal-matching-pursuit solvers share: the problem, the
// selection rule, the group limit, the scatter into the outputs, and the
// runs over responses (serial with one workspace, parallel with one per column).
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "frame/blas.hpp"
#include "frame/message_ids.hpp"
#include "frame/scratch.hpp"

namespace featlearn::omp {

using OutOfMemory = stats::classreg::learning::omputils::omp::UnableToAllocateMemory;

// Every block of the solvers can fail, and a failure is the family's own
// error with the byte count.
template <class T>
using Scratch = zv::Scratch<T, OutOfMemory>;
using zv::Heap;

template <class T>
struct OmpProblem {
    size_t numRows = 0, numAtoms = 0, numResponses = 0;
    const T* X = nullptr;       // dictionary, numRows x numAtoms
    const T* Y = nullptr;       // responses, numRows x numResponses
    size_t maxAtoms = 0;        // at least 1
    const T* groups = nullptr;  // group value of each atom
    size_t maxGroups = 0;
    T tolerance = 0;            // relative residual at which a response stops

    // No pursuit can take more than numAtoms steps (the next selection would
    // find a used atom), so the per-response blocks need no more columns.
    size_t workspaceAtoms() const { return std::max<size_t>(1, std::min(maxAtoms, numAtoms)); }
};

// coefficients: numAtoms x numResponses; support: maxAtoms x numResponses.
template <class T>
struct OmpOutputs {
    T* coefficients;
    T* support;
};

// The atom with the largest (alpha / norm)^2. The strict comparison from a
// best of 0 keeps the lowest index among equals, falls back to atom 0 when
// nothing scores above 0, and never lets a NaN ratio win.
template <class T>
size_t selectAtom(const T* alpha, const T* atomNorms, size_t numAtoms) {
    size_t best = 0;
    T bestScore = 0;
    for (size_t i = 0; i < numAtoms; ++i) {
        const T ratio = alpha[i] / atomNorms[i];
        const T score = ratio * ratio;
        if (score > bestScore) {
            bestScore = score;
            best = i;
        }
    }
    return best;
}

// The group values met by one response, compared as numbers: 0 and -0 are one
// group, and a NaN is never found, so that it is new each time. A response
// meets at most one group per selected atom, so a flat array suffices.
template <class T>
class GroupSet {
public:
    explicit GroupSet(T* storage) : seen_(storage) {}
    void clear() { count_ = 0; }
    size_t size() const { return count_; }
    bool contains(T g) const { return std::find(seen_, seen_ + count_, g) != seen_ + count_; }
    void add(T g) { seen_[count_++] = g; }

private:
    T* seen_;
    size_t count_ = 0;
};

// The Euclidean norm of n values; without values it is 0, which BLAS may not return.
template <class T>
T vectorNorm(size_t n, const T* v) {
    const T s = n == 0 ? T(0) : zv::blas::dot(n, v, v);
    return s > 0 ? std::sqrt(s) : T(0);
}

// The next atom of a pursuit, or none when the best one is already used or
// would open a group beyond the limit.
template <class T>
struct NextAtom {
    size_t atom;
    T group;
    bool newGroup;
};

template <class T>
bool pickNextAtom(const OmpProblem<T>& problem, const T* alpha, const T* atomNorms, const bool* used,
                  const GroupSet<T>& seen, NextAtom<T>& next) {
    next.atom = selectAtom(alpha, atomNorms, problem.numAtoms);
    if (used[next.atom]) return false;
    next.group = problem.groups[next.atom];
    next.newGroup = !seen.contains(next.group);
    return !(next.newGroup && seen.size() == problem.maxGroups);
}

// Adds an atom of norm `norm` and response correlation `c` to the n already
// selected: extends the upper Cholesky factor L (leading dimension ldL) by one
// column, and solves for the n + 1 coefficients gamma. For n > 0, w holds the
// atom's Gram column with the selected atoms on entry and is overwritten.
template <class T>
void addSelectedAtom(size_t n, T norm, T c, T* w, T* L, size_t ldL, T* alphaI, T* gamma) {
    if (n == 0) {
        L[0] = norm;
        gamma[0] = c / (norm * norm);
        alphaI[0] = c;
        return;
    }
    // A zero on the diagonal of L (a rank-deficient selection) makes trtrs
    // return without solving; its status is deliberately ignored.
    zv::blas::trtrs("U", "T", "N", n, 1, L, ldL, w, n);
    const T d = norm * norm - zv::blas::dot(n, w, w);
    std::copy(w, w + n, L + n * ldL);
    L[n + n * ldL] = d > 0 ? std::sqrt(d) : T(0);
    alphaI[n] = c;
    std::copy(alphaI, alphaI + n + 1, gamma);
    zv::blas::potrs("U", n + 1, 1, L, ldL, gamma, n + 1);
}

// Column j of the outputs from the `count` selected atoms: coefficients at
// their atoms, 1-based atoms in order of selection, -1 for the rest.
template <class T>
void scatterResponse(const OmpProblem<T>& problem, size_t j, const size_t* selected, const T* gamma,
                     size_t count, const OmpOutputs<T>& out) {
    T* coefficients = out.coefficients + j * problem.numAtoms;
    T* support = out.support + j * problem.maxAtoms;
    std::fill(support, support + problem.maxAtoms, T(-1));
    for (size_t k = 0; k < count; ++k) {
        coefficients[selected[k]] = gamma[k];
        support[k] = T(selected[k] + 1);
    }
}

// Euclidean norms of the columns of a rows x cols matrix, one task per column.
// `parallel` false runs the same loop on the calling thread.
template <class T>
void computeXColNorms(size_t rows, size_t cols, const T* x, T* norms, bool parallel);

extern template void computeXColNorms<double>(size_t, size_t, const double*, double*, bool);
extern template void computeXColNorms<float>(size_t, size_t, const float*, float*, bool);

// Runs a solver over all responses: a Solver has numResponses(), a Workspace
// constructible from (solver, heap), and solve(j, workspace, outputs).
template <class Solver, class T>
void solveSerial(const Solver& solver, const OmpOutputs<T>& out) {
    if (solver.numResponses() == 0) return;
    typename Solver::Workspace workspace(solver, Heap::host);
    for (size_t j = 0; j < solver.numResponses(); ++j) solver.solve(j, workspace, out);
}

template <class Solver>
class Parallelizer {
public:
    using T = typename Solver::Value;
    Parallelizer(const Solver& solver, const OmpOutputs<T>& out) : solver_(solver), out_(out) {}

    // Each task allocates and frees its own workspace and writes only its own
    // output columns; a pursuit reads nothing of the workspace that it has
    // not written itself, so every column equals the serial run's. One
    // workspace per task rather than per column: freeing a block of P x
    // maxAtoms per column made the allocator give pages back and fault them
    // in again, which cost more than the pursuits themselves.
    void solveParallel() const {
        if (solver_.numResponses() == 0) return;
        tbb::parallel_for(
            tbb::blocked_range<size_t>(0, solver_.numResponses(), 1),
            [this](const tbb::blocked_range<size_t>& range) {
                typename Solver::Workspace workspace(solver_, Heap::worker);
                for (size_t j = range.begin(); j != range.end(); ++j) solver_.solve(j, workspace, out_);
            },
            tbb::auto_partitioner());
    }

private:
    const Solver& solver_;
    OmpOutputs<T> out_;
};

}  // namespace featlearn::omp

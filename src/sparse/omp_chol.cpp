// Cholesky orthogonal matching pursuit: the residual is formed explicitly and
// the correlations are recomputed from it with one pass over the dictionary.
#include "sparse/omp_chol.hpp"

#include <algorithm>
#include <cmath>

#include "frame/blas.hpp"

namespace featlearn::omp {

template <class T>
CholOMPSolver<T>::CholOMPSolver(const OmpProblem<T>& problem)
    : problem_(problem), atomNorms_(problem.numAtoms, Heap::host) {
    computeXColNorms(problem.numRows, problem.numAtoms, problem.X, atomNorms_.get(), true);
}

template <class T>
CholOMPSolver<T>::Workspace::Workspace(const CholOMPSolver& solver, Heap heap)
    : r(solver.problem_.numRows, heap),
      alpha(solver.problem_.numAtoms, heap),
      XtY(solver.problem_.numAtoms, heap),
      alphaI(solver.problem_.workspaceAtoms(), heap),
      L(solver.problem_.workspaceAtoms() * solver.problem_.workspaceAtoms(), heap),
      gamma(solver.problem_.workspaceAtoms(), heap),
      XI(solver.problem_.numRows * solver.problem_.workspaceAtoms(), heap),
      w(solver.problem_.workspaceAtoms(), heap),
      used(solver.problem_.numAtoms, heap),
      selected(solver.problem_.workspaceAtoms(), heap),
      seenGroups(solver.problem_.workspaceAtoms(), heap) {}

template <class T>
void CholOMPSolver<T>::solve(size_t j, Workspace& ws, const OmpOutputs<T>& out) const {
    const size_t R = problem_.numRows, P = problem_.numAtoms;
    const size_t ldX = std::max<size_t>(R, 1);
    const size_t ldL = problem_.workspaceAtoms();
    const T* X = problem_.X;
    const T* y = problem_.Y + j * R;
    const T* atomNorms = atomNorms_.get();
    T* r = ws.r.get();
    T* alpha = ws.alpha.get();
    T* xty = ws.XtY.get();
    T* alphaI = ws.alphaI.get();
    T* L = ws.L.get();
    T* gamma = ws.gamma.get();
    T* XI = ws.XI.get();
    T* w = ws.w.get();
    bool* used = ws.used.get();
    size_t* selected = ws.selected.get();
    GroupSet<T> seen(ws.seenGroups.get());

    // X' r: without rows it is 0, which BLAS may not write.
    auto correlate = [&](T* to) {
        if (R == 0) std::fill(to, to + P, T(0));
        else zv::blas::gemv("T", R, P, T(1), X, ldX, r, T(0), to);
    };
    std::copy(y, y + R, r);
    correlate(xty);
    std::copy(xty, xty + P, alpha);
    const T ynorm = vectorNorm(R, y);
    const T stopBelow = ynorm * problem_.tolerance;
    std::fill(used, used + P, false);
    size_t count = 0;
    NextAtom<T> next;
    for (size_t k = 1;; ++k) {
        if (!pickNextAtom(problem_, alpha, atomNorms, used, seen, next)) break;
        const size_t i = next.atom;
        const T* x = X + i * R;
        const size_t n = k - 1;  // atoms selected before this one
        if (n > 0) {
            if (R == 0) std::fill(w, w + n, T(0));
            else zv::blas::gemv("T", R, n, T(1), XI, ldX, x, T(0), w);
        }
        addSelectedAtom(n, atomNorms[i], xty[i], w, L, ldL, alphaI, gamma);
        std::copy(x, x + R, XI + n * R);
        std::copy(y, y + R, r);
        if (R > 0) zv::blas::gemv("N", R, k, T(-1), XI, ldX, gamma, T(1), r);
        const T residual = vectorNorm(R, r);
        selected[n] = i;
        used[i] = true;
        count = k;
        if (next.newGroup) seen.add(next.group);
        if (residual < stopBelow || k == problem_.maxAtoms) break;
        correlate(alpha);
    }
    scatterResponse(problem_, j, selected, gamma, count, out);
}

template class CholOMPSolver<double>;
template class CholOMPSolver<float>;

}  // namespace featlearn::omp

// Batch orthogonal matching pursuit: Cholesky updates on the Gram matrix, the
// residual norm carried by the update with no residual vector.
#include "sparse/omp_batch.hpp"

#include <algorithm>
#include <cmath>

#include "frame/blas.hpp"

namespace featlearn::omp {

namespace {

constexpr size_t kMirrorBlock = 32;  // square tiles of the triangle copy, cache-sized

// Copies the lower triangle of the n x n matrix g into its upper triangle,
// tile by tile so that both the read and the write stay in cache.
template <class T>
void mirrorLowerTriangle(T* g, size_t n) {
    const size_t whole = n - n % kMirrorBlock;
    auto tile = [&](size_t i0, size_t i1, size_t j0, size_t j1) {
        for (size_t j = j0; j < j1; ++j)
            for (size_t i = std::max(i0, j + 1); i < i1; ++i) g[j + i * n] = g[i + j * n];
    };
    for (size_t jb = 0; jb < whole; jb += kMirrorBlock)
        for (size_t ib = jb; ib < whole; ib += kMirrorBlock) tile(ib, ib + kMirrorBlock, jb, jb + kMirrorBlock);
    // The remainder strip of n mod 32 rows comes last.
    for (size_t jb = 0; jb < n; jb += kMirrorBlock) tile(std::max(whole, jb), n, jb, std::min(jb + kMirrorBlock, n));
}

}  // namespace

template <class T>
BatchOMPSolver<T>::BatchOMPSolver(const OmpProblem<T>& problem)
    : problem_(problem),
      G_(problem.numAtoms * problem.numAtoms, Heap::host),
      XtY_(problem.numAtoms * problem.numResponses, Heap::host),
      atomNorms_(problem.numAtoms, Heap::host),
      responseNorms_(problem.numResponses, Heap::host) {
    const size_t R = problem.numRows, P = problem.numAtoms, M = problem.numResponses;
    T* G = G_.get();
    T* XtY = XtY_.get();
    if (R == 0) {
        // Without rows every product is empty; BLAS may leave the outputs as they are.
        std::fill(G, G + P * P, T(0));
        std::fill(XtY, XtY + P * M, T(0));
    } else {
        zv::blas::syrk("L", "T", P, R, T(1), problem.X, R, T(0), G, P);
        mirrorLowerTriangle(G, P);
        if (M > 1)
            zv::blas::gemm("T", "N", P, M, R, T(1), problem.X, R, problem.Y, R, T(0), XtY, P);
        else if (M == 1)
            zv::blas::gemv("T", R, P, T(1), problem.X, R, problem.Y, T(0), XtY);
    }
    // One square root per atom: too little work to share out.
    T* norms = atomNorms_.get();
    for (size_t i = 0; i < P; ++i) {
        const T gii = G[i + i * P];
        norms[i] = gii > 0 ? std::sqrt(gii) : T(0);
    }
    computeXColNorms(R, M, problem.Y, responseNorms_.get(), true);
}

template <class T>
BatchOMPSolver<T>::Workspace::Workspace(const BatchOMPSolver& solver, Heap heap)
    : alpha(solver.problem_.numAtoms, heap),
      L(solver.problem_.workspaceAtoms() * solver.problem_.workspaceAtoms(), heap),
      gamma(solver.problem_.workspaceAtoms(), heap),
      alphaI(solver.problem_.workspaceAtoms(), heap),
      GI(solver.problem_.numAtoms * solver.problem_.workspaceAtoms(), heap),
      w(solver.problem_.workspaceAtoms(), heap),
      used(solver.problem_.numAtoms, heap),
      selected(solver.problem_.workspaceAtoms(), heap),
      seenGroups(solver.problem_.workspaceAtoms(), heap) {}

template <class T>
void BatchOMPSolver<T>::solve(size_t j, Workspace& ws, const OmpOutputs<T>& out) const {
    const size_t P = problem_.numAtoms;
    const size_t ldL = problem_.workspaceAtoms();
    const T* G = G_.get();
    const T* xty = XtY_.get() + j * P;
    const T* atomNorms = atomNorms_.get();
    T* alpha = ws.alpha.get();
    T* L = ws.L.get();
    T* gamma = ws.gamma.get();
    T* alphaI = ws.alphaI.get();
    T* GI = ws.GI.get();
    T* w = ws.w.get();
    bool* used = ws.used.get();
    size_t* selected = ws.selected.get();
    GroupSet<T> seen(ws.seenGroups.get());

    std::copy(xty, xty + P, alpha);
    std::fill(used, used + P, false);
    const T ynorm = responseNorms_.get()[j];
    const T stopBelow = ynorm * problem_.tolerance;
    T residual = ynorm;
    size_t count = 0;
    NextAtom<T> next;
    for (size_t k = 0;;) {
        if (!pickNextAtom(problem_, alpha, atomNorms, used, seen, next)) break;
        const size_t i = next.atom;
        const T c = xty[i];
        // The squared residual norm falls by delta - prevDelta with each step.
        T prevDelta = 0;
        if (k > 0) {
            for (size_t m = 0; m < k; ++m) w[m] = G[selected[m] + i * P];
            prevDelta = zv::blas::dot(k, gamma, alphaI);
        }
        addSelectedAtom(k, atomNorms[i], c, w, L, ldL, alphaI, gamma);
        const T delta = k == 0 ? gamma[0] * c : zv::blas::dot(k + 1, gamma, alphaI);
        std::copy(G + i * P, G + (i + 1) * P, GI + k * P);
        const T e = (residual * residual + prevDelta) - delta;
        residual = e > 0 ? std::sqrt(e) : T(0);
        selected[k] = i;
        used[i] = true;
        count = k + 1;
        std::copy(xty, xty + P, alpha);
        zv::blas::gemv("N", P, k + 1, T(-1), GI, P, gamma, T(1), alpha);
        if (next.newGroup) seen.add(next.group);
        if (residual < stopBelow) break;  // strict: a tolerance of 0 never stops here
        if (++k == problem_.maxAtoms) break;
    }
    scatterResponse(problem_, j, selected, gamma, count, out);
}

template class BatchOMPSolver<double>;
template class BatchOMPSolver<float>;

}  // namespace featlearn::omp

// Batch orthogonal matching pursuit: the Gram matrix and all correlations are
// formed once, and each response then works on P-sized vectors only.
#pragma once

#include "sparse/omp_pursuit.hpp"

namespace featlearn::omp {

template <class T>
class BatchOMPSolver {
public:
    using Value = T;

    // Forms G, XtY and the atom and response norms.
    explicit BatchOMPSolver(const OmpProblem<T>& problem);

    // One response's scratch, in allocation order.
    struct Workspace {
        Workspace(const BatchOMPSolver& solver, Heap heap);
        Scratch<T> alpha;          // correlations of every atom with the residual
        Scratch<T> L;              // upper Cholesky factor of the selected atoms' Gram matrix
        Scratch<T> gamma;          // coefficients of the selected atoms
        Scratch<T> alphaI;         // correlations of the response with the selected atoms
        Scratch<T> GI;             // columns of G of the selected atoms
        Scratch<T> w;              // the new column of L
        Scratch<bool> used;        // atoms already selected
        Scratch<size_t> selected;
        Scratch<T> seenGroups;
    };

    size_t numResponses() const { return problem_.numResponses; }
    void solve(size_t j, Workspace& ws, const OmpOutputs<T>& out) const;

private:
    OmpProblem<T> problem_;
    Scratch<T> G_;              // P x P, both triangles
    Scratch<T> XtY_;            // P x M
    Scratch<T> atomNorms_;      // P
    Scratch<T> responseNorms_;  // M
};

extern template class BatchOMPSolver<double>;
extern template class BatchOMPSolver<float>;

}  // namespace featlearn::omp

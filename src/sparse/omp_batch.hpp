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
        Block<T> alpha;        // correlations of every atom with the residual
        Block<T> L;            // upper Cholesky factor of the selected atoms' Gram matrix
        Block<T> gamma;        // coefficients of the selected atoms
        Block<T> alphaI;       // correlations of the response with the selected atoms
        Block<T> GI;           // columns of G of the selected atoms
        Block<T> w;            // the new column of L
        Block<bool> used;      // atoms already selected
        Block<size_t> selected;
        Block<T> seenGroups;
    };

    size_t numResponses() const { return problem_.numResponses; }
    void solve(size_t j, Workspace& ws, const OmpOutputs<T>& out) const;

private:
    OmpProblem<T> problem_;
    Block<T> G_;              // P x P, both triangles
    Block<T> XtY_;            // P x M
    Block<T> atomNorms_;      // P
    Block<T> responseNorms_;  // M
};

extern template class BatchOMPSolver<double>;
extern template class BatchOMPSolver<float>;

}  // namespace featlearn::omp

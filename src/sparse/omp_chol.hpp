// Cholesky orthogonal matching pursuit: no Gram matrix; each step works on the
// dictionary itself with an explicit residual vector.
#pragma once

#include "sparse/omp_pursuit.hpp"

namespace featlearn::omp {

template <class T>
class CholOMPSolver {
public:
    using Value = T;

    // Forms the atom norms only.
    explicit CholOMPSolver(const OmpProblem<T>& problem);

    // One response's scratch, in allocation order.
    struct Workspace {
        Workspace(const CholOMPSolver& solver, Heap heap);
        Block<T> r;           // residual
        Block<T> alpha;       // correlations of every atom with the residual
        Block<T> XtY;         // correlations of every atom with the response
        Block<T> alphaI;      // correlations of the response with the selected atoms
        Block<T> L;           // upper Cholesky factor of the selected atoms' Gram matrix
        Block<T> gamma;       // coefficients of the selected atoms
        Block<T> XI;          // the selected atoms, R x maxAtoms
        Block<T> w;           // the new column of L
        Block<bool> used;     // atoms already selected
        Block<size_t> selected;
        Block<T> seenGroups;
    };

    size_t numResponses() const { return problem_.numResponses; }
    void solve(size_t j, Workspace& ws, const OmpOutputs<T>& out) const;

private:
    OmpProblem<T> problem_;
    Block<T> atomNorms_;  // P
};

extern template class CholOMPSolver<double>;
extern template class CholOMPSolver<float>;

}  // namespace featlearn::omp

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
        Scratch<T> r;              // residual
        Scratch<T> alpha;          // correlations of every atom with the residual
        Scratch<T> XtY;            // correlations of every atom with the response
        Scratch<T> alphaI;         // correlations of the response with the selected atoms
        Scratch<T> L;              // upper Cholesky factor of the selected atoms' Gram matrix
        Scratch<T> gamma;          // coefficients of the selected atoms
        Scratch<T> XI;             // the selected atoms, R x maxAtoms
        Scratch<T> w;              // the new column of L
        Scratch<bool> used;        // atoms already selected
        Scratch<size_t> selected;
        Scratch<T> seenGroups;
    };

    size_t numResponses() const { return problem_.numResponses; }
    void solve(size_t j, Workspace& ws, const OmpOutputs<T>& out) const;

private:
    OmpProblem<T> problem_;
    Scratch<T> atomNorms_;  // P
};

extern template class CholOMPSolver<double>;
extern template class CholOMPSolver<float>;

}  // namespace featlearn::omp

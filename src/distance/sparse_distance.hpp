// Distances between the columns of sparse double matrices, each one merge of
// two compressed columns: condensed within one matrix, or a full cross matrix
// between two.
#pragma once

#include <cstddef>

#include "distance/merge_columns.hpp"
#include "distance/pair_metric.hpp"

namespace zv::distance {

struct SparsePdistProblem {
    SparseColumns x;
    PairMetric metric;
    double exponent;        // Minkowski
    const double* extra;    // SEuclidean: p weights, Mahalanobis: p-by-p factor R; may be null
    size_t extraCount;      // values stored behind `extra`
    double* y;              // n(n-1)/2 outputs, zero on entry
};

// Fills problem.y. Without enough weights or factor values for the metric
// every distance is NaN, rather than a read past the third input.
void pdistSparseEngine(const SparsePdistProblem& problem);

struct SparseCrossProblem {
    SparseColumns x;        // p-by-nx
    SparseColumns y;        // q-by-ny; rows need not match
    PairMetric metric;
    double* d;              // nx-by-ny, column-major, zero on entry
};

// Fills problem.d for Euclidean and SquaredEuclidean, the only metrics of the
// cross distances; any other leaves it untouched.
void pdist2SparseEngine(const SparseCrossProblem& problem);

// n(n-1)/2 as a double: exact wherever the output could exist, and far above
// any limit instead of wrapping around where the 64-bit product would.
constexpr double condensedPairCount(size_t n) { return n < 2 ? 0.0 : double(n) * double(n - 1) / 2.0; }

}  // namespace zv::distance

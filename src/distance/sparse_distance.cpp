// The sparse distance engines: pick the terms of a metric and run one merge
// per pair, a row of pairs per index of the parallel loop.
#include "distance/sparse_distance.hpp"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "distance/column_merge.hpp"
#include "distance/condensed.hpp"
#include "distance/merge_terms.hpp"
#include "distance/sparse_mahalanobis.hpp"
#include "distance/stored_values.hpp"

namespace zv::distance {

namespace {

// Index i of the body owns all of its pairs' outputs; the pairs of one index
// are independent of every other index.
template <class Body>
void forEachIndex(size_t n, const Body& body) {
    if (n == 0) return;
    tbb::parallel_for(size_t(0), n, size_t(1), body, tbb::auto_partitioner());
}

// Row i of the triangle: the pairs (i, j), j = i+1 .. n-1, written in order.
template <class Terms>
void triangleRows(const MergeColumns& columns, size_t n, double* y, const Terms& terms) {
    forEachIndex(n, [&](size_t i) {
        double* row = y + condensedRowStart(i, n);
        mergeOneWithMany(terms, columns.column(i), n - i - 1, [&](size_t k) {
            return std::pair{columns.column(i + 1 + k), row + k};
        });
    });
}

// Row i of the triangle under "mah". Its difference vectors live as long as
// the row, so a pair allocates only when its difference is the longest yet.
void mahalanobisRows(const MergeColumns& columns, size_t n, double* y, const double* factor, size_t p) {
    forEachIndex(n, [&](size_t i) {
        SparseMahalanobis distance(factor, p);
        double* row = y + condensedRowStart(i, n);
        for (size_t j = i + 1; j < n; ++j) *row++ = distance(columns.column(i), columns.column(j));
    });
}

void fillNaN(double* y, size_t n) {
    std::fill(y, y + n * (n - 1) / 2, std::numeric_limits<double>::quiet_NaN());
}

}  // namespace

void pdistSparseEngine(const SparsePdistProblem& pr) {
    const size_t n = pr.x.n, p = pr.x.p;
    if (n < 2) return;
    auto run = [&](const auto& terms) { triangleRows(MergeColumns({pr.x}), n, pr.y, terms); };
    switch (pr.metric) {
    case PairMetric::Euclidean: return run(EuclideanTerms{});
    case PairMetric::SquaredEuclidean: return run(SquaredEuclideanTerms{});
    case PairMetric::SEuclidean:
        if (!holdsMatrix(pr.extraCount, p, 1)) return fillNaN(pr.y, n);
        return run(SEuclideanTerms{pr.extra});
    case PairMetric::CityBlock: return run(CityBlockTerms{});
    case PairMetric::Minkowski: return run(MinkowskiTerms{pr.exponent, 1.0 / pr.exponent});
    case PairMetric::Similarity: return run(SimilarityTerms{});
    case PairMetric::Hamming: return run(HammingTerms{double(p)});
    case PairMetric::Jaccard: return run(JaccardTerms{});
    case PairMetric::Chebychev: return run(ChebychevTerms{});
    case PairMetric::Mahalanobis:
        if (!holdsMatrix(pr.extraCount, p, p)) return fillNaN(pr.y, n);
        return mahalanobisRows(MergeColumns({pr.x}), n, pr.y, pr.extra, p);
    }
}

void pdist2SparseEngine(const SparseCrossProblem& pr) {
    if (pr.metric != PairMetric::Euclidean && pr.metric != PairMetric::SquaredEuclidean) return;
    const size_t nx = pr.x.n, ny = pr.y.n;
    if (nx == 0 || ny == 0) return;
    const MergeColumns columns({pr.x, pr.y});
    auto run = [&](const auto& terms) {
        // Index i fills row i of the column-major result.
        forEachIndex(nx, [&](size_t i) {
            mergeOneWithMany(terms, columns.column(i), ny, [&](size_t j) {
                return std::pair{columns.column(nx + j), pr.d + i + j * nx};
            });
        });
    };
    if (pr.metric == PairMetric::SquaredEuclidean) run(SquaredEuclideanTerms{});
    else run(EuclideanTerms{});
}

}  // namespace zv::distance

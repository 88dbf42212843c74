// The sparse distance engines: pick the terms of a metric and run one merge
// per pair, a row of pairs per index of the parallel loop.
#include "distance/sparse_distance.hpp"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "distance/column_merge.hpp"
#include "distance/condensed.hpp"
#include "distance/merge_terms.hpp"
#include "distance/sparse_mahalanobis.hpp"

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

// available < rows*columns, without the product wrapping around.
bool fewerThan(size_t available, size_t rows, size_t columns) {
    return rows != 0 && columns != 0 && available / rows < columns;
}

void fillNaN(double* y, size_t n) {
    std::fill(y, y + n * (n - 1) / 2, std::numeric_limits<double>::quiet_NaN());
}

}  // namespace

void pdistSparseEngine(const SparsePdistProblem& pr) {
    const size_t n = pr.x.n, p = pr.x.p;
    if (n < 2) return;
    auto is = [&](const char* code) { return std::strcmp(pr.code, code) == 0; };
    auto run = [&](const auto& terms) { triangleRows(MergeColumns({pr.x}), n, pr.y, terms); };
    if (is("euc")) run(EuclideanTerms{});
    else if (is("sqe")) run(SquaredEuclideanTerms{});
    else if (is("seu")) {
        if (fewerThan(pr.extraCount, p, 1)) fillNaN(pr.y, n);
        else run(SEuclideanTerms{pr.extra});
    }
    else if (is("cit")) run(CityBlockTerms{});
    else if (is("min")) run(MinkowskiTerms{pr.exponent, 1.0 / pr.exponent});
    else if (is("cos") || is("cor") || is("spe")) run(SimilarityTerms{});
    else if (is("ham")) run(HammingTerms{double(p)});
    else if (is("jac")) run(JaccardTerms{});
    else if (is("che")) run(ChebychevTerms{});
    else if (is("mah")) {
        if (fewerThan(pr.extraCount, p, p)) fillNaN(pr.y, n);
        else mahalanobisRows(MergeColumns({pr.x}), n, pr.y, pr.extra, p);
    }
}

void pdist2SparseEngine(const SparseCrossProblem& pr) {
    const bool squared = std::strcmp(pr.code, "sqe") == 0;
    if (!squared && std::strcmp(pr.code, "euc") != 0) return;
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
    if (squared) run(SquaredEuclideanTerms{});
    else run(EuclideanTerms{});
}

}  // namespace zv::distance

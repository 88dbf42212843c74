// The Mahalanobis distance between two compressed columns: the merge lists
// the stored differences, then the triangular factor R turns them into
// t = R^T d one column of R at a time.
#pragma once

#include <tbb/scalable_allocator.h>

#include <cmath>
#include <cstddef>
#include <vector>

#include "distance/merge_columns.hpp"

namespace zv::distance {

class SparseMahalanobis {
public:
    // R: p-by-p, column-major, read as upper triangular.
    SparseMahalanobis(const double* factor, size_t p) : factor_(factor), p_(p) {}

    // The vectors keep their capacity from pair to pair.
    double operator()(const MergeEntry* u, const MergeEntry* v) {
        rows_.clear();
        differences_.clear();
        for (;;) {
            const size_t ru = u->row, rv = v->row;
            if (ru == kEndRow && rv == kEndRow) break;
            rows_.push_back(ru <= rv ? ru : rv);
            if (ru == rv) differences_.push_back((u++)->value - (v++)->value);
            else if (ru < rv) differences_.push_back((u++)->value);
            else differences_.push_back(-(v++)->value);
        }
        // t_c sums R[r, c] d_r over the stored rows r <= c, in order. Columns
        // below the first stored row have t_c = 0 and would add +0.
        double total = 0;
        const size_t stored = rows_.size();
        size_t reached = 0;
        for (size_t c = stored ? rows_[0] : p_; c < p_; ++c) {
            while (reached < stored && rows_[reached] <= c) ++reached;
            const double* column = factor_ + c * p_;
            double t = 0;
            for (size_t k = 0; k < reached; ++k) t += column[rows_[k]] * differences_[k];
            total += t * t;
        }
        return std::sqrt(total);
    }

private:
    const double* factor_;
    size_t p_;
    std::vector<size_t, tbb::scalable_allocator<size_t>> rows_;
    std::vector<double, tbb::scalable_allocator<double>> differences_;
};

}  // namespace zv::distance

// The merge-ready copy of compressed columns.
#include "distance/merge_columns.hpp"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

namespace zv::distance {

namespace {

// Copying a column is a few loads and stores per entry: chunks of columns
// large enough to outweigh a task.
constexpr size_t kCopyGrain = 256;

}  // namespace

MergeColumns::MergeColumns(std::initializer_list<SparseColumns> matrices) {
    size_t columns = 0;
    for (const SparseColumns& x : matrices) columns += x.n;
    firsts_.reserve(columns + 1);
    firsts_.push_back(0);
    for (const SparseColumns& x : matrices)
        for (size_t j = 0; j < x.n; ++j) firsts_.push_back(firsts_.back() + (x.starts[j + 1] - x.starts[j]) + 1);
    entries_.resize(firsts_.back());

    size_t offset = 0;  // columns of the matrices before x
    for (const SparseColumns& x : matrices) {
        tbb::parallel_for(tbb::blocked_range<size_t>(0, x.n, kCopyGrain), [&](const tbb::blocked_range<size_t>& r) {
            for (size_t j = r.begin(); j != r.end(); ++j) {
                MergeEntry* out = entries_.data() + firsts_[offset + j];
                for (size_t k = x.starts[j]; k != x.starts[j + 1]; ++k) *out++ = {x.rows[k], x.values[k]};
                *out = {kEndRow, 0.0};
            }
        });
        offset += x.n;
    }
}

}  // namespace zv::distance

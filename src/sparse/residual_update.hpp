// The residual update of the lasso sweeps on long columns, across the workers.
#pragma once

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>
#include <tbb/task_group.h>

#include <cstddef>

namespace zv::sparse {

// A column of at most this many rows is updated on the calling thread: a
// parallel loop over it costs more to schedule than to compute.
inline constexpr size_t kSerialSubtractRows = 16384;

// r -= delta * column, row by row across the workers, in a context of its
// own so that a failure elsewhere cannot cancel it half done. Each row is
// one multiply and one subtract whatever the split, so the values do not
// depend on the thread count.
template <class T>
void parallelSubtractScaled(size_t N, const T* column, T delta, T* r) {
    if (N <= kSerialSubtractRows) {
        for (size_t i = 0; i < N; ++i) r[i] = r[i] - column[i] * delta;
        return;
    }
    tbb::task_group_context context;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, N, 1),
        [=](const tbb::blocked_range<size_t>& rows) {
            for (size_t i = rows.begin(); i != rows.end(); ++i) r[i] = r[i] - column[i] * delta;
        },
        tbb::auto_partitioner(), context);
}

}  // namespace zv::sparse

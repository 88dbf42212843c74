// Column norms for the matching-pursuit solvers.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "sparse/omp_pursuit.hpp"

namespace featlearn::omp {

template <class T>
void computeXColNorms(size_t rows, size_t cols, const T* x, T* norms, bool parallel) {
    auto body = [=](const tbb::blocked_range<size_t>& range) {
        for (size_t j = range.begin(); j != range.end(); ++j) norms[j] = vectorNorm(rows, x + j * rows);
    };
    if (cols == 0) return;
    if (parallel) tbb::parallel_for(tbb::blocked_range<size_t>(0, cols, 1), body, tbb::auto_partitioner());
    else body(tbb::blocked_range<size_t>(0, cols, 1));
}

template void computeXColNorms<double>(size_t, size_t, const double*, double*, bool);
template void computeXColNorms<float>(size_t, size_t, const float*, float*, bool);

}  // namespace featlearn::omp

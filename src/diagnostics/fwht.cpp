// The feature-expansion engine: blocks in parallel, and within a block panels
// of rows in parallel. All stages of a panel run while its 2*L column pieces
// stay in cache, so memory sees each output value written about once. Panels
// only split the rows, so every value goes through exactly the operations of
// whole columns, whatever the thread count.
#include "diagnostics/fwht.hpp"
#include "diagnostics/fwht_panel.hpp"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>

namespace rkeutils {

namespace {

// The two buffers of a panel stay in the last-level cache while all stages
// run over them; at L = 1024 in double that makes 128 rows, column pieces of
// 1 KB that the prefetchers follow. Much smaller panels run into cache-set
// and TLB conflicts between columns that lie m values apart.
constexpr size_t kPanelBytes = 2048 * 1024;
// Rows of a panel are a multiple of this, so the inner loops run whole vectors.
constexpr size_t kPanelRowQuantum = 8;

template <class T>
size_t panelRows(size_t m, size_t L) {
    size_t rows = kPanelBytes / (2 * L * sizeof(T));
    rows = std::max(kPanelRowQuantum, rows - rows % kPanelRowQuantum);
    return std::min(rows, m);
}

template <class T>
void transformPanel(const FwhtProblem<T>& pr, size_t block, size_t row0, size_t rows) {
    if (__builtin_cpu_supports("avx2")) avx2::transformPanel(pr, block, row0, rows);
    else generic::transformPanel(pr, block, row0, rows);
}

}  // namespace

template <class T>
void fwhtfun(const FwhtProblem<T>& pr) {
    if (pr.blocks == 0 || pr.m == 0) return;
    const size_t rows = panelRows<T>(pr.m, pr.L);
    const size_t panels = (pr.m + rows - 1) / rows;
    tbb::parallel_for(
        size_t(0), pr.blocks, size_t(1),
        [&](size_t block) {
            tbb::parallel_for(
                tbb::blocked_range<size_t>(0, panels, 1),
                [&](const tbb::blocked_range<size_t>& range) {
                    for (size_t p = range.begin(); p != range.end(); ++p) {
                        const size_t row0 = p * rows;
                        transformPanel(pr, block, row0, std::min(rows, pr.m - row0));
                    }
                },
                tbb::auto_partitioner());
        },
        tbb::auto_partitioner());
}

template void fwhtfun<double>(const FwhtProblem<double>&);
template void fwhtfun<float>(const FwhtProblem<float>&);

}  // namespace rkeutils

// The per-instruction-set builds of the pair kernels, chosen at run time.
#pragma once

#include "distance/pair_kernels.hpp"

namespace zv::distance {
namespace avx2 {
void regroupPanel(const double*, size_t, double*);
void regroupPanel(const float*, size_t, float*);
void computeRoots(const double*, size_t, double*);
void computeRoots(const float*, size_t, float*);
void computeBlock(const CrossBlock<double>&);
void computeBlock(const CrossBlock<float>&);
void computeRows(const TriangleTask<double>&, size_t, size_t);
void computeRows(const TriangleTask<float>&, size_t, size_t);
}  // namespace avx2
namespace generic {
void regroupPanel(const double*, size_t, double*);
void regroupPanel(const float*, size_t, float*);
void computeRoots(const double*, size_t, double*);
void computeRoots(const float*, size_t, float*);
void computeBlock(const CrossBlock<double>&);
void computeBlock(const CrossBlock<float>&);
void computeRows(const TriangleTask<double>&, size_t, size_t);
void computeRows(const TriangleTask<float>&, size_t, size_t);
}  // namespace generic
}  // namespace zv::distance

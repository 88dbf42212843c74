// Panel layout of the observations and the choice of kernel at run time.
#include "distance/pair_kernels.hpp"
#include "distance/pair_kernels_isa.hpp"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>

namespace zv::distance {

template <class T>
ObservationPanels<T> ObservationPanels<T>::build(const T* x, size_t n, size_t p) {
    ObservationPanels out;
    out.numPanels = (n + kLanes - 1) / kLanes;
    const size_t count = out.numPanels * kLanes * (p ? p : 1);
    if (out.numPanels == 0) return out;
    out.data = Scratch<T>(count, Heap::alignedWorker);
    T* data = out.data.get();
    tbb::parallel_for(tbb::blocked_range<size_t>(0, out.numPanels, 1),
                      [=](const tbb::blocked_range<size_t>& r) {
                          for (size_t b = r.begin(); b != r.end(); ++b) regroup(x, n, p, b, data + b * p * kLanes);
                      });
    return out;
}

template <class T>
void ObservationPanels<T>::regroup(const T* x, size_t n, size_t p, size_t b, T* out) {
    const size_t first = b * kLanes, lanes = n - first < kLanes ? n - first : kLanes;
    if (lanes == kLanes) return regroupPanel(x + first * p, p, out);
    std::fill_n(out, p * kLanes, T(0));
    for (size_t l = 0; l < lanes; ++l)
        for (size_t k = 0; k < p; ++k) out[k * kLanes + l] = x[(first + l) * p + k];
}

template <class T>
void computeTriangleRows(const TriangleTask<T>& task, size_t rowBegin, size_t rowEnd) {
    if (__builtin_cpu_supports("avx2")) avx2::computeRows(task, rowBegin, rowEnd);
    else generic::computeRows(task, rowBegin, rowEnd);
}

template <class T>
void computeCrossBlock(const CrossBlock<T>& block) {
    if (__builtin_cpu_supports("avx2")) avx2::computeBlock(block);
    else generic::computeBlock(block);
}

template <class T>
void computeRoots(const T* values, size_t n, T* out) {
    if (__builtin_cpu_supports("avx2")) avx2::computeRoots(values, n, out);
    else generic::computeRoots(values, n, out);
}

template <class T>
void regroupPanel(const T* x, size_t p, T* out) {
    if (__builtin_cpu_supports("avx2")) avx2::regroupPanel(x, p, out);
    else generic::regroupPanel(x, p, out);
}

template struct ObservationPanels<double>;
template void regroupPanel(const double*, size_t, double*);
template void regroupPanel(const float*, size_t, float*);
template void computeRoots(const double*, size_t, double*);
template void computeRoots(const float*, size_t, float*);
template void computeCrossBlock(const CrossBlock<double>&);
template void computeCrossBlock(const CrossBlock<float>&);
template struct ObservationPanels<float>;
template void computeTriangleRows(const TriangleTask<double>&, size_t, size_t);
template void computeTriangleRows(const TriangleTask<float>&, size_t, size_t);

}  // namespace zv::distance

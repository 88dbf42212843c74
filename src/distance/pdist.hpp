// Condensed pairwise distances between the observations of one data set.
#pragma once

#include <cstddef>
#include <memory>

#include "distance/pair_metric.hpp"
#include "host/interrupt.hpp"

namespace zv::distance {

template <class T>
struct PdistProblem {
    const T* x;          // p-by-n, one observation per column
    size_t xCount;       // values stored behind x
    size_t n;
    size_t p;
    PairMetric metric;
    T exponent;          // Minkowski
    const T* extra;      // SEuclidean: p weights, Mahalanobis: p-by-p factor R; may be null
    size_t extraCount;   // values stored behind `extra`
    T* y;                // n(n-1)/2 outputs, zero on entry
};

// Fills problem.y. Where x, the weights or the factor store fewer values
// than the metric reads, every distance is NaN.
template <class T>
void pdistEngine(const PdistProblem<T>& problem, const std::shared_ptr<InterruptStateData>& interrupt);

extern template void pdistEngine<double>(const PdistProblem<double>&,
                                         const std::shared_ptr<InterruptStateData>&);
extern template void pdistEngine<float>(const PdistProblem<float>&,
                                        const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

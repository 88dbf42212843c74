// Condensed pairwise distances between the observations of one data set.
#pragma once

#include <cstddef>
#include <memory>

#include "host/interrupt.hpp"

namespace zv::distance {

template <class T>
struct PdistProblem {
    const T* x;          // p-by-n, one observation per column
    size_t n;
    size_t p;
    const char* code;    // three-letter metric code
    T exponent;          // "min"
    const T* extra;      // "seu": p weights, "mah": p-by-p factor R; may be null
    size_t extraCount;   // elements behind `extra`
    T* y;                // n(n-1)/2 outputs, zero on entry
};

// Fills problem.y. An unknown code leaves it untouched. For "seu" and "mah"
// without enough weights or factor values every distance is NaN.
template <class T>
void pdistEngine(const PdistProblem<T>& problem, const std::shared_ptr<InterruptStateData>& interrupt);

extern template void pdistEngine<double>(const PdistProblem<double>&,
                                         const std::shared_ptr<InterruptStateData>&);
extern template void pdistEngine<float>(const PdistProblem<float>&,
                                        const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

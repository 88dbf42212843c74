// One panel of rows of one feature block, by instruction set: the generic
// build takes the cosines and sines from libm; the AVX2 build takes them
// from glibc's vector math library, four or eight at a time (within 4 ulp of
// libm, and equal to it in most values). The butterflies are the same
// additions in both, so both agree bit for bit up to the last step.
#pragma once

#include <cstddef>

#include "diagnostics/fwht.hpp"

namespace rkeutils {
namespace generic {
template <class T>
void transformPanel(const FwhtProblem<T>& pr, size_t block, size_t row0, size_t rows);
}
namespace avx2 {
template <class T>
void transformPanel(const FwhtProblem<T>& pr, size_t block, size_t row0, size_t rows);
}
}  // namespace rkeutils

// One panel of rows of one feature block, by instruction set. Both builds do
// the same additions and multiplications and take the cosines and sines from
// the standard library, so they agree bit for bit; AVX2 only makes the
// butterflies wider.
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

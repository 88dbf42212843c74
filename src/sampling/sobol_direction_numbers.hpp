// Direction numbers of one Sobol dimension from its primitive polynomial and
// initial values, and the bit-matrix form in which a caller scrambles them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zv::sampling {

// The degree of a polynomial given by its coefficient bits (bit i is the
// coefficient of x^i), or -1 for the zero polynomial.
int polynomialDegree(uint64_t polynomial);

// Writes the kSobolBits direction numbers of one dimension into v, the
// fraction at the top of the 53-bit word. `m` holds the degree's initial
// values (at most kSobolBits of them are used).
void directionNumbers(uint64_t polynomial, const uint64_t* m, uint64_t* v);

// Word c of the n `words` as column c of the n-by-n 0/1 matrix `bits`, most
// significant of its n low bits at row 0. Bits past the 64 of a word are 0.
void wordsToBitMatrix(const uint64_t* words, double* bits, size_t n);

// The inverse: word j from column j of the n-by-n `bits`, rows from the top,
// any non-zero entry (NaN included) a set bit.
void bitMatrixToWords(const double* bits, uint64_t* words, size_t n);

}  // namespace zv::sampling

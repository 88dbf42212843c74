// Reverse-radix permutations of 0 .. b-1 that scramble the digits of a Halton
// point in base b.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zv::sampling {

// Bits of b - 1 (0 for b = 1): the length of the counters whose reversal
// orders the permutation. b = 0 wraps to all 32 bits.
unsigned permutationBitLength(uint32_t base);

// Writes 0 .. b-1 in the order of their bit-reversed counters into out[0 .. b-1].
void reverseRadixPermutation(uint32_t base, double* out);

// Copies the values below b from a table permutation, in the table's order,
// into out[0 .. b-1]. False when the table's `count` values run out first.
bool permutationFromTable(uint32_t base, const double* table, size_t count, double* out);

}  // namespace zv::sampling

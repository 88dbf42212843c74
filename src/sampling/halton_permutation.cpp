// Reverse-radix permutations, computed or picked out of a caller's table.
#include "sampling/halton_permutation.hpp"

#include <bit>

namespace zv::sampling {

namespace {

uint64_t reverseBits(uint64_t x) {
    x = ((x >> 1) & 0x5555555555555555ull) | ((x & 0x5555555555555555ull) << 1);
    x = ((x >> 2) & 0x3333333333333333ull) | ((x & 0x3333333333333333ull) << 2);
    x = ((x >> 4) & 0x0F0F0F0F0F0F0F0Full) | ((x & 0x0F0F0F0F0F0F0F0Full) << 4);
    return __builtin_bswap64(x);
}

}  // namespace

unsigned permutationBitLength(uint32_t base) {
    return base == 1 ? 0 : unsigned(std::bit_width(uint32_t(base - 1)));
}

void reverseRadixPermutation(uint32_t base, double* out) {
    if (base == 0) return;
    const unsigned length = permutationBitLength(base);
    if (length == 0) {
        out[0] = 0;
        return;
    }
    // Reversing the low `length` bits of i is reversing all 64 and dropping the
    // rest; length >= 1 keeps the shift below 64.
    size_t written = 0;
    for (uint64_t i = 0; written < base; ++i) {
        const uint64_t r = reverseBits(i) >> (64 - length);
        if (r < base) out[written++] = double(r);
    }
}

bool permutationFromTable(uint32_t base, const double* table, size_t count, double* out) {
    size_t written = 0;
    for (size_t k = 0; k < count && written < base; ++k)
        if (table[k] < double(base)) out[written++] = table[k];
    return written == base;
}

}  // namespace zv::sampling

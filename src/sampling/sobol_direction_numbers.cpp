// Direction numbers and their bit-matrix form.
#include "sampling/sobol_direction_numbers.hpp"

#include <algorithm>
#include <bit>

#include "sampling/sobol_points.hpp"

namespace zv::sampling {

int polynomialDegree(uint64_t polynomial) { return int(std::bit_width(polynomial)) - 1; }

void directionNumbers(uint64_t polynomial, const uint64_t* m, uint64_t* v) {
    const size_t s = size_t(polynomialDegree(polynomial));
    const size_t given = std::min(s, kSobolBits);
    for (size_t k = 0; k < given; ++k) v[k] = m[k];
    // The recurrence of the polynomial; its constant term gives the
    // v[k-s] << s term, the leading one the plain v[k-s]. Shifts stay below 53.
    for (size_t k = s; k < kSobolBits; ++k) {
        uint64_t w = v[k - s];
        for (size_t i = 1; i <= s; ++i)
            if ((polynomial >> (s - i)) & 1) w ^= v[k - i] << i;
        v[k] = w;
    }
    for (size_t k = 0; k < kSobolBits; ++k) v[k] <<= kSobolBits - 1 - k;
}

void wordsToBitMatrix(const uint64_t* words, double* bits, size_t n) {
    for (size_t c = 0; c < n; ++c) {
        const uint64_t w = words[c];
        double* column = bits + c * n;
        // Entry (r, c) is bit n-1-r; rows above the 64 bits of a word are 0.
        const size_t high = n > 64 ? n - 64 : 0;
        for (size_t r = high; r < n; ++r) column[r] = double((w >> (n - 1 - r)) & 1);
    }
}

void bitMatrixToWords(const double* bits, uint64_t* words, size_t n) {
    for (size_t j = 0; j < n; ++j) {
        uint64_t w = 0;
        for (size_t r = 0; r < n; ++r) w = (w << 1) | uint64_t(bits[j * n + r] != 0);
        words[j] = w;
    }
}

}  // namespace zv::sampling

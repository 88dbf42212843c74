// Condensed (upper-triangle, row-major) indexing of pairwise results.
#pragma once

#include <cstddef>

namespace zv::distance {

// Where row i of the triangle of n observations starts: pair (i, i+1).
constexpr size_t condensedRowStart(size_t i, size_t n) { return i * n - i * (i + 1) / 2; }

// Index of the pair (i, j), i < j < n.
constexpr size_t condensedIndex(size_t i, size_t j, size_t n) {
    return condensedRowStart(i, n) + (j - i - 1);
}

// Index of the pair {a, b}, a != b, in either order.
constexpr size_t condensedPairIndex(size_t a, size_t b, size_t n) {
    return a < b ? condensedIndex(a, b, n) : condensedIndex(b, a, n);
}

}  // namespace zv::distance

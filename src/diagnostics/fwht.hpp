// Random trigonometric features by structured Walsh-Hadamard products: each
// block of L features is sign(R) H P diag(G)/scale H diag(D) x, followed by
// its cosine and sine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rkeutils {

template <class T>
struct FwhtProblem {
    const T* x;          // m-by-k data, one observation per row
    size_t m;
    size_t k;
    const T* d;          // L-by-S first diagonals, one column per block
    const T* g;          // L*S middle diagonals
    const T* r;          // L*S signs: only r > 0 is read
    const int64_t* perm; // L*S permutations numbered from 1
    size_t L;            // a power of two
    size_t logL;
    size_t blocks;       // blocks to compute; the output may hold more
    T scale;
    T gain;
    bool permutationsChecked;  // every column of perm is a permutation of 1..L
    T* out;              // m-by-(2*L*blocks) at least, zero on entry
};

// Fills the 2*L columns of each block: the first L with the cosines, the next
// L with the sines. Blocks, and row panels within a block, run in parallel;
// every value is computed by the same operations whatever the thread count.
template <class T>
void fwhtfun(const FwhtProblem<T>& problem);

extern template void fwhtfun<double>(const FwhtProblem<double>&);
extern template void fwhtfun<float>(const FwhtProblem<float>&);

}  // namespace rkeutils

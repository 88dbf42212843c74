// Sobol points as 53-bit words: sequences with or without leaps, points at
// given indices, single points and nets, all from a table of direction numbers.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace zv::sampling {

// A point coordinate keeps 53 significant bits, so only 53 direction numbers
// per dimension take part; index bits above them are ignored.
constexpr size_t kSobolBits = 53;

// Direction numbers as the generators take them: d-by-kSobolBits, column k
// holds the k-th direction number of every dimension; higher index bits select
// nothing.
struct DirectionTable {
    const uint64_t* v;
    size_t d;
};

// The Gray code of an index: consecutive codes differ in one bit.
constexpr uint64_t grayCode(uint64_t i) { return i ^ (i >> 1); }

// The bit in which the Gray codes of i and i + 1 differ: the count of trailing
// one bits of i (64 when i is all ones).
constexpr unsigned grayStepBit(uint64_t i) { return unsigned(std::countr_one(i)); }

struct SequenceRequest {
    uint64_t first = 0;         // index of row 0
    uint64_t step = 1;          // leap + 1, in wrapping unsigned arithmetic
    bool quick = false;         // leap 0 with Gray codes: one column per row
    bool gray = false;
    const uint64_t* last = nullptr;  // the point before row 0 (d words), or null
};

// The point matrices below are n-by-d, column-major, zero on entry; a point is
// a row. Blocks of rows run in parallel, each dimension of a block as one
// contiguous run, so the result is the row-by-row recurrence without striding
// through the matrix once per point; it does not depend on the thread count.
void sobolSequence(const DirectionTable& dirs, const SequenceRequest& request, uint64_t* x, size_t n);
void sobolIndexed(const DirectionTable& dirs, const double* indices, bool gray, uint64_t* x, size_t n);
void sobolNet(const DirectionTable& dirs, bool gray, uint64_t* x, size_t n);

}  // namespace zv::sampling

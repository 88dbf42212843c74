// Sobol points: every generator reduces to "row r is row r-1 with the direction
// numbers of some index bits XORed in", run over blocks of rows in parallel.
#include "sampling/sobol_points.hpp"

#include <algorithm>
#include <vector>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "frame/checked.hpp"

namespace zv::sampling {

namespace {

// Rows are produced in blocks: the index work of a block is done once, then
// each dimension runs through it as a contiguous stretch of its column. A
// block is also the unit of parallel work.
constexpr size_t kRowBlock = 1024;

// One slot per possible step bit, 0 to 64; slots past the 53 direction numbers
// stay zero, so a bit without a direction number changes nothing.
constexpr size_t kSlots = 65;

// Index bits that select a direction number.
constexpr uint64_t kSelectableBits = (uint64_t(1) << kSobolBits) - 1;

// The direction numbers regrouped dimension by dimension. It stays a vector:
// from host scratch, the rows that read it ran at half the speed.
class DimensionMajorTable {
public:
    explicit DimensionMajorTable(const DirectionTable& dirs) : words_(dirs.d * kSlots, 0) {
        for (size_t k = 0; k < kSobolBits; ++k)
            for (size_t j = 0; j < dirs.d; ++j) words_[j * kSlots + k] = dirs.v[k * dirs.d + j];
    }
    const uint64_t* of(size_t j) const { return words_.data() + j * kSlots; }

private:
    std::vector<uint64_t> words_;
};

uint64_t xorOfBits(const uint64_t* dir, uint64_t bits) {
    uint64_t w = 0;
    for (; bits; bits &= bits - 1) w ^= dir[std::countr_zero(bits)];
    return w;
}

// A single row straight from the caller's table: regrouping the table would
// cost more than the row itself.
void singleRow(const DirectionTable& dirs, const uint64_t* start, uint64_t bits, uint64_t* x) {
    for (size_t j = 0; j < dirs.d; ++j) x[j] = start ? start[j] : 0;
    for (; bits; bits &= bits - 1) {
        const uint64_t* column = dirs.v + size_t(std::countr_zero(bits)) * dirs.d;
        for (size_t j = 0; j < dirs.d; ++j) x[j] ^= column[j];
    }
}

// Fills rows 0 .. n-1 in parallel blocks of rows. Each block starts from the
// direct definition of its first row, start[j] (0 without a start) with the
// direction numbers of `firstBits(r0)`, and follows the recurrence from there:
// `changes(r, rows, change)` fills change[0 .. rows-1] for rows r .. r+rows-1
// with the index bits that differ from the row before, or, with kStepBit, the
// one step bit (0 to 64) that does. XOR is exact, so every row is its own
// definition whatever the blocks are, and the result does not depend on the
// thread count.
template <bool kStepBit, class FirstBits, class Changes>
void fillRows(const DimensionMajorTable& table, size_t d, const uint64_t* start, FirstBits firstBits,
              Changes changes, uint64_t* x, size_t n) {
    const size_t blocks = (n + kRowBlock - 1) / kRowBlock;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, blocks, 1), [&](const tbb::blocked_range<size_t>& range) {
        uint64_t change[kRowBlock];
        for (size_t b = range.begin(); b < range.end(); ++b) {
            const size_t r0 = b * kRowBlock, rows = std::min(kRowBlock, n - r0);
            const uint64_t bits = firstBits(r0);
            changes(r0 + 1, rows - 1, change);
            for (size_t j = 0; j < d; ++j) {
                uint64_t* column = x + j * n + r0;
                const uint64_t* dir = table.of(j);
                uint64_t w = (start ? start[j] : 0) ^ xorOfBits(dir, bits);
                column[0] = w;
                for (size_t r = 1; r < rows; ++r) {
                    if constexpr (kStepBit) w ^= dir[change[r - 1]];
                    else w ^= xorOfBits(dir, change[r - 1]);
                    column[r] = w;
                }
            }
        }
    }, tbb::auto_partitioner());
}

}  // namespace

void sobolSequence(const DirectionTable& dirs, const SequenceRequest& request, uint64_t* x, size_t n) {
    if (n == 0 || dirs.d == 0) return;
    const uint64_t f = request.first, t = request.step;
    const bool gray = request.gray;
    auto code = [gray](uint64_t i) { return gray ? grayCode(i) : i; };
    // Row r has index f + r t. With a last point it continues from that point,
    // as if it had been row -1: row r is the last point with the bits of
    // code(f - t) ^ code(f + r t), the XOR of all the steps in between.
    const uint64_t origin = request.last ? code(f - t) : 0;
    auto firstBits = [=](size_t r) { return (origin ^ code(f + uint64_t(r) * t)) & kSelectableBits; };
    if (n == 1) return singleRow(dirs, request.last, firstBits(0), x);
    const DimensionMajorTable table(dirs);

    if (request.quick) {
        // Row r follows row r-1 by the step bit of index f + r - 1.
        fillRows<true>(table, dirs.d, request.last, firstBits,
                       [f](size_t r0, size_t rows, uint64_t* change) {
                           uint64_t m = f + r0 - 1;
                           for (size_t r = 0; r < rows; ++r, ++m) change[r] = grayStepBit(m);
                       }, x, n);
        return;
    }
    fillRows<false>(table, dirs.d, request.last, firstBits,
                    [=](size_t r0, size_t rows, uint64_t* change) {
                        uint64_t i = f + uint64_t(r0) * t;
                        uint64_t previous = code(i - t);
                        for (size_t r = 0; r < rows; ++r, i += t) {
                            const uint64_t current = code(i);
                            change[r] = (previous ^ current) & kSelectableBits;
                            previous = current;
                        }
                    }, x, n);
}

void sobolIndexed(const DirectionTable& dirs, const double* indices, bool gray, uint64_t* x, size_t n) {
    if (n == 0 || dirs.d == 0) return;
    auto code = [=](size_t r) {
        const uint64_t i = checked::truncateSaturated<uint64_t>(indices[r]);
        return (gray ? grayCode(i) : i) & kSelectableBits;
    };
    if (n == 1) return singleRow(dirs, nullptr, code(0), x);
    const DimensionMajorTable table(dirs);
    fillRows<false>(table, dirs.d, nullptr, code,
                    [&](size_t r0, size_t rows, uint64_t* change) {
                        uint64_t previous = code(r0 - 1);
                        for (size_t r = 0; r < rows; ++r) {
                            const uint64_t current = code(r0 + r);
                            change[r] = previous ^ current;
                            previous = current;
                        }
                    }, x, n);
}

// Block b of a net, rows 2^b .. 2^(b+1) - 1, is the rows below it (mirrored
// with Gray codes) with direction number b added: row r is the point of
// code(r), which is the sequence from index 0.
void sobolNet(const DirectionTable& dirs, bool gray, uint64_t* x, size_t n) {
    SequenceRequest request;
    request.quick = gray;
    request.gray = gray;
    sobolSequence(dirs, request, x, n);
}

}  // namespace zv::sampling

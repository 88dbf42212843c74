// Sobol points: every generator reduces to "row r is row r-1 with the direction
// numbers of some index bits XORed in", filled one dimension at a time.
#include "sampling/sobol_points.hpp"

#include <algorithm>
#include <vector>

#include "frame/checked.hpp"

namespace zv::sampling {

namespace {

// Rows are produced in blocks: the index work of a block is done once, then
// each dimension runs through it as a contiguous stretch of its column.
constexpr size_t kRowBlock = 1024;

// One slot per possible step bit, 0 to 64; slots past the table stay zero, so a
// bit without a direction number changes nothing.
constexpr size_t kSlots = 65;

// The direction numbers regrouped dimension by dimension.
class DimensionMajorTable {
public:
    explicit DimensionMajorTable(const DirectionTable& dirs) : words_(dirs.d * kSlots, 0) {
        for (size_t k = 0; k < dirs.columns; ++k)
            for (size_t j = 0; j < dirs.d; ++j) words_[j * kSlots + k] = dirs.v[k * dirs.d + j];
    }
    const uint64_t* of(size_t j) const { return words_.data() + j * kSlots; }

private:
    std::vector<uint64_t> words_;
};

uint64_t selectableBits(const DirectionTable& dirs) {
    return dirs.columns >= 64 ? ~uint64_t(0) : (uint64_t(1) << dirs.columns) - 1;
}

uint64_t xorOfBits(const uint64_t* dir, uint64_t bits) {
    uint64_t w = 0;
    for (; bits; bits &= bits - 1) w ^= dir[std::countr_zero(bits)];
    return w;
}

// Row 0: start[j] (0 without a start) with the direction numbers of `bits`.
void writeFirstRow(const DimensionMajorTable& table, size_t d, const uint64_t* start, size_t startCount,
                   uint64_t bits, uint64_t* x, size_t n) {
    for (size_t j = 0; j < d; ++j) x[j * n] = (j < startCount ? start[j] : 0) ^ xorOfBits(table.of(j), bits);
}

// Rows 1 .. n-1. `changes(r0, rows, change)` fills change[0 .. rows-1] for rows
// r0 .. r0+rows-1: the index bits that differ from the row before, or, with
// kStepBit, the one step bit (0 to 64) that does.
template <bool kStepBit, class Changes>
void accumulateRows(const DimensionMajorTable& table, size_t d, uint64_t* x, size_t n, Changes changes) {
    uint64_t change[kRowBlock];
    for (size_t r0 = 1; r0 < n; r0 += kRowBlock) {
        const size_t rows = std::min(kRowBlock, n - r0);
        changes(r0, rows, change);
        for (size_t j = 0; j < d; ++j) {
            uint64_t* column = x + j * n + r0;
            const uint64_t* dir = table.of(j);
            uint64_t w = column[-1];
            for (size_t r = 0; r < rows; ++r) {
                if constexpr (kStepBit) w ^= dir[change[r]];
                else w ^= xorOfBits(dir, change[r]);
                column[r] = w;
            }
        }
    }
}

}  // namespace

void sobolSequence(const DirectionTable& dirs, const SequenceRequest& request, uint64_t* x, size_t n) {
    if (n == 0 || dirs.d == 0) return;
    const DimensionMajorTable table(dirs);
    const uint64_t usable = selectableBits(dirs);
    const uint64_t f = request.first, t = request.step;
    const bool gray = request.gray;
    auto code = [gray](uint64_t i) { return gray ? grayCode(i) : i; };

    // With a last point, row 0 continues from it as the row before would have.
    const uint64_t firstBits = request.last ? code(f - t) ^ code(f) : code(f);
    writeFirstRow(table, dirs.d, request.last, request.last ? request.lastCount : 0, firstBits & usable, x, n);

    if (request.quick) {
        // Row r follows row r-1 by the step bit of index f + r - 1.
        accumulateRows<true>(table, dirs.d, x, n, [f](size_t r0, size_t rows, uint64_t* change) {
            uint64_t m = f + r0 - 1;
            for (size_t r = 0; r < rows; ++r, ++m) change[r] = grayStepBit(m);
        });
        return;
    }
    // Row r has index f + r t and follows the row of index f + (r-1) t.
    accumulateRows<false>(table, dirs.d, x, n, [=](size_t r0, size_t rows, uint64_t* change) {
        uint64_t i = f + uint64_t(r0) * t;
        uint64_t previous = code(i - t);
        for (size_t r = 0; r < rows; ++r, i += t) {
            const uint64_t current = code(i);
            change[r] = (previous ^ current) & usable;
            previous = current;
        }
    });
}

void sobolIndexed(const DirectionTable& dirs, const double* indices, size_t indexCount, bool gray,
                  uint64_t* x, size_t n) {
    if (n == 0 || dirs.d == 0) return;
    const DimensionMajorTable table(dirs);
    const uint64_t usable = selectableBits(dirs);
    // Indices past what the caller's array holds read as 0.
    auto code = [=](size_t r) {
        const uint64_t i = r < indexCount ? checked::truncateSaturated<uint64_t>(indices[r]) : 0;
        return gray ? grayCode(i) : i;
    };
    writeFirstRow(table, dirs.d, nullptr, 0, code(0) & usable, x, n);
    accumulateRows<false>(table, dirs.d, x, n, [&](size_t r0, size_t rows, uint64_t* change) {
        uint64_t previous = code(r0 - 1);
        for (size_t r = 0; r < rows; ++r) {
            const uint64_t current = code(r0 + r);
            change[r] = (previous ^ current) & usable;
            previous = current;
        }
    });
}

void sobolNet(const DirectionTable& dirs, bool gray, uint64_t* x, size_t n) {
    if (n < 2 || dirs.d == 0) return;
    const DimensionMajorTable table(dirs);
    // Block b holds rows 2^b .. 2^(b+1) - 1: the rows below it, in order or
    // mirrored, with direction number b added. Row 0 stays zero.
    for (size_t j = 0; j < dirs.d; ++j) {
        uint64_t* column = x + j * n;
        const uint64_t* dir = table.of(j);
        for (size_t m = 1, b = 0; m < n; m <<= 1, ++b) {
            const uint64_t v = dir[std::min(b, kSlots - 1)];
            const size_t end = std::min(2 * m, n);
            if (gray)
                for (size_t r = m; r < end; ++r) column[r] = column[2 * m - 1 - r] ^ v;
            else
                for (size_t r = m; r < end; ++r) column[r] = column[r - m] ^ v;
        }
    }
}

}  // namespace zv::sampling

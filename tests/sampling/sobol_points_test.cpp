// Sobol point generators against the direct definition (each point the XOR
// of the direction numbers of its code's bits): the quick and general paths,
// continuing from a last point, indexed points, single points, nets, guards
// for short tables and wide indices, identifiers in order, 1 vs 2 threads.
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "frame/checked.hpp"
#include "sampling/quasirandom_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
using Words = std::vector<uint64_t>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr uint64_t kAllOnes = ~uint64_t(0);

// d-by-columns direction numbers, column-major.
struct Table {
    size_t d = 0, columns = 0;
    Words v;
    Owned array() const { return zvhost::matrixOf<uint64_t>(d, columns, std::span<const uint64_t>(v)); }
};

Table randomTable(size_t d, size_t columns = 53, unsigned seed = 1) {
    std::mt19937_64 gen(seed);
    Table t{d, columns, Words(d * columns)};
    for (auto& w : t.v) w = gen() >> 11;  // 53-bit words
    return t;
}

uint64_t gray(uint64_t i) { return i ^ (i >> 1); }

// The point of a code: bit k selects direction number k, for k below 53 and
// below the columns that the table has.
Words point(const Table& t, uint64_t code) {
    Words row(t.d, 0);
    for (size_t k = 0; k < std::min<size_t>(t.columns, 53); ++k)
        if ((code >> k) & 1)
            for (size_t j = 0; j < t.d; ++j) row[j] ^= t.v[k * t.d + j];
    return row;
}

// The n-by-d matrix whose row r is rowOf(r).
template <class F>
Words rows(size_t n, size_t d, F rowOf) {
    Words x(n * d);
    for (size_t r = 0; r < n; ++r) {
        const Words row = rowOf(r);
        for (size_t j = 0; j < d; ++j) x[j * n + r] = row[j];
    }
    return x;
}

Words values(const Owned& a, size_t m, size_t n) {
    EXPECT_EQ(ndGetClassID(a.get()), ndUINT64_CLASS);
    EXPECT_EQ(ndGetM(a.get()), m);
    EXPECT_EQ(ndGetN(a.get()), n);
    return zvhost::valuesOf<uint64_t>(a.get());
}

Words sequence(const Table& t, double first, double leap, double n, bool grayFlag, const Words* last = nullptr) {
    Owned v = t.array(), f = zvhost::scalar(first), l = zvhost::scalar(leap), count = zvhost::scalar(n);
    Owned flag = zvhost::logicalScalar(grayFlag);
    Owned lastArray = last ? zvhost::matrixOf<uint64_t>(1, last->size(), std::span<const uint64_t>(*last)) : nullptr;
    auto out = last ? zvhost::call(sobolset::sobolSequenceBIF, 1, {v.get(), f.get(), l.get(), count.get(), flag.get(), lastArray.get()})
                    : zvhost::call(sobolset::sobolSequenceBIF, 1, {v.get(), f.get(), l.get(), count.get(), flag.get()});
    return values(out[0], zvhost::valuesOf<uint64_t>(out[0].get()).size() / std::max<size_t>(t.d, 1), t.d);
}

Words lastRow(const Words& x, size_t n, size_t d) {
    Words row(d);
    for (size_t j = 0; j < d; ++j) row[j] = x[j * n + n - 1];
    return row;
}

TEST(SobolSequence, QuickPathIsTheGrayCodedPoints) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(5);
    for (uint64_t f : {0ull, 1ull, 6ull, 1000ull, (1ull << 40) - 3}) {
        const size_t n = 3000;  // more than one block of rows
        EXPECT_EQ(sequence(t, double(f), 0, n, true), rows(n, t.d, [&](size_t r) { return point(t, gray(f + r)); }))
            << f;
    }
}

TEST(SobolSequence, GeneralPathWithLeapsAndEitherCode) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(4, 53, 2);
    for (bool g : {false, true})
        for (double leap : {0.0, 1.0, 2.0, 7.0})
            for (uint64_t f : {0ull, 3ull, 1025ull}) {
                const uint64_t step = uint64_t(leap) + 1;
                const size_t n = 1500;
                const Words expected = rows(n, t.d, [&](size_t r) {
                    const uint64_t i = f + r * step;
                    return point(t, g ? gray(i) : i);
                });
                EXPECT_EQ(sequence(t, double(f), leap, n, g), expected) << g << " " << leap << " " << f;
            }
}

TEST(SobolSequence, AnEmptyLastPointCountsAsNone) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3);
    const Words none;
    EXPECT_EQ(sequence(t, 9, 0, 10, true, &none), sequence(t, 9, 0, 10, true));
}

TEST(SobolSequence, LastPointBeforeIndexZeroWrapsWithoutAShiftPast63) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3, 53, 4);
    const Words last{11, 22, 33};
    // Quick path: the step bit of index 2^64 - 1 is 64, which selects nothing.
    Words x = sequence(t, 0, 0, 1, true, &last);
    EXPECT_EQ(x, last);
    // General path: the codes of 0 - t (unsigned) and 0 differ only above
    // bit 53 for t = 1, and in low bits for t = 3.
    for (double leap : {0.0, 2.0})
        for (bool g : {false, true}) {
            const uint64_t step = uint64_t(leap) + 1;
            auto code = [&](uint64_t i) { return g ? gray(i) : i; };
            Words expected = point(t, code(0 - step) ^ code(0));
            for (size_t j = 0; j < 3; ++j) expected[j] ^= last[j];
            if (leap == 0.0 && g) continue;  // the quick path, above
            EXPECT_EQ(sequence(t, 0, leap, 1, g, &last), expected) << leap << g;
        }
}

TEST(SobolSequence, ShortLastPointReadsMissingWordsAsZero) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(4);
    const Words shortLast{7, 9};
    // Row 0 is the last point stepped from index 11 to 12.
    Words expected = point(t, gray(11) ^ gray(12));
    expected[0] ^= 7;
    expected[1] ^= 9;
    EXPECT_EQ(sequence(t, 12, 0, 1, true, &shortLast), expected);
}

TEST(SobolSequence, CountsAndFirstPoints) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3);
    EXPECT_TRUE(sequence(t, 4, 0, 0, true).empty());
    EXPECT_TRUE(sequence(t, 4, 0, kNaN, true).empty());
    EXPECT_TRUE(sequence(t, 4, 0, -5, true).empty());
    EXPECT_EQ(sequence(t, 0, 0, 1, true), Words(3, 0));   // f = 0: the zero point
    EXPECT_EQ(sequence(t, 0, 5, 1, false), Words(3, 0));
    EXPECT_EQ(sequence(t, 6, 0, 1, true), point(t, gray(6)));
    EXPECT_EQ(sequence(t, 6.9, 0, 2.5, false), rows(2, 3, [&](size_t r) { return point(t, 6 + r); }));
}

TEST(SobolSequence, NanLeapTakesTheGeneralPathWithStepOne) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3);
    EXPECT_EQ(sequence(t, 3, kNaN, 100, true), sequence(t, 3, 0, 100, true));
    EXPECT_EQ(sequence(t, 3, kNaN, 100, false), sequence(t, 3, 0, 100, false));
    EXPECT_EQ(sequence(t, 3, -2, 100, true), sequence(t, 3, 0, 100, true));
}

TEST(SobolSequence, HugeLeapWrapsToAStepOfZero) {
    // leap saturates at 2^64 - 1, so step = leap + 1 wraps to 0: every code is
    // the first one and rows are copies of row 0.
    zvtest::LeakCheck leaks;
    const Table t = randomTable(2);
    EXPECT_EQ(sequence(t, 9, 1e30, 4, false), rows(4, 2, [&](size_t) { return point(t, 9); }));
}

TEST(SobolSequence, IndexBitsFrom53UpSelectNothing) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3);
    const double big = std::ldexp(1.0, 53) + 6;  // 2^53 + 6
    EXPECT_EQ(sequence(t, big, 0, 1, false), point(t, 6));
    EXPECT_EQ(sequence(t, big, 0, 1, true), point(t, gray((1ull << 53) + 6)));
    // Beyond 2^64 an index saturates; the quick path then steps past bit 63.
    EXPECT_EQ(sequence(t, 1e30, 0, 3, true), rows(3, 3, [&](size_t r) { return point(t, gray(kAllOnes + r)); }));
    EXPECT_EQ(sequence(t, 1e30, 0, 1, false), point(t, kAllOnes));
}

TEST(SobolSequence, ShortDirectionTableReadsOnlyItsColumns) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(4, 3);  // 3 direction numbers per dimension
    const size_t n = 40;
    EXPECT_EQ(sequence(t, 0, 0, n, true), rows(n, 4, [&](size_t r) { return point(t, gray(r)); }));
    EXPECT_EQ(sequence(t, 0, 2, n, false), rows(n, 4, [&](size_t r) { return point(t, 3 * r); }));
    Table none{4, 0, {}};
    EXPECT_EQ(sequence(none, 5, 0, 3, true), Words(12, 0));
}

TEST(SobolSequence, NoDimensionsWithAHugeCountDoesNoWork) {
    zvtest::LeakCheck leaks;
    Owned v = zvhost::matrixOf<uint64_t>(0, 53), f = zvhost::scalar(0), l = zvhost::scalar(3);
    Owned n = zvhost::scalar(1e18), flag = zvhost::logicalScalar(true);
    auto out = zvhost::call(sobolset::sobolSequenceBIF, 1, {v.get(), f.get(), l.get(), n.get(), flag.get()});
    EXPECT_EQ(ndGetM(out[0].get()), size_t(1e18));
    EXPECT_EQ(ndGetN(out[0].get()), 0u);
    out = zvhost::call(sobolset::sobolNetBIF, 1, {v.get(), n.get(), flag.get()});
    EXPECT_EQ(ndGetM(out[0].get()), size_t(1e18));
}

TEST(SobolSequence, OutputBeyondTheSizeLimitFailsAsAnAllocation) {
    zvtest::LeakCheck leaks;
    Owned v = zvhost::matrixOf<uint64_t>(1024, 53), f = zvhost::scalar(0), l = zvhost::scalar(0);
    Owned n = zvhost::scalar(std::ldexp(1.0, 60)), flag = zvhost::logicalScalar(true);
    EXPECT_THROW(zvhost::call(sobolset::sobolSequenceBIF, 1, {v.get(), f.get(), l.get(), n.get(), flag.get()}),
                 std::bad_alloc);
    EXPECT_THROW(zvhost::call(sobolset::sobolNetBIF, 1, {v.get(), n.get(), flag.get()}), std::bad_alloc);
}

Words indexed(const ndArray* v, const ndArray* indices, bool g, size_t d) {
    Owned flag = zvhost::logicalScalar(g);
    auto out = zvhost::call(sobolset::sobolIndexedBIF, 1, {v, indices, flag.get()});
    return values(out[0], ndGetNumberOfElements(indices), d);
}

TEST(SobolIndexed, RowsAreThePointsOfTheirIndices) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(5, 53, 7);
    Owned v = t.array();
    std::vector<double> idx{0, 3, 3, 1e6, 17.8, 0, 5, -4, kNaN, 1e30, std::ldexp(1.0, 53) + 1};
    std::mt19937_64 gen(5);
    for (int k = 0; k < 3000; ++k) idx.push_back(double(gen() % 100000));
    Owned indices = zvhost::matrixOf<double>(idx.size(), 1, std::span<const double>(idx));
    for (bool g : {false, true}) {
        const Words expected = rows(idx.size(), t.d, [&](size_t r) {
            const uint64_t i = zv::checked::truncateSaturated<uint64_t>(idx[r]);
            return point(t, g ? gray(i) : i);
        });
        EXPECT_EQ(indexed(v.get(), indices.get(), g, t.d), expected) << g;
    }
}

TEST(SobolIndexed, NoClassTestOnTheTableAndShortIndexStorage) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(2, 53, 8);
    // A double table with the same bits gives the same points.
    Owned asDouble = zvhost::matrixOf<double>(2, 53);
    std::memcpy(ndGetData(asDouble.get()), t.v.data(), t.v.size() * 8);
    Owned indices = zvhost::matrixOf<double>(1, 3, {5, 9, 2});
    const Words expected = rows(3, 2, [&](size_t r) { return point(t, gray(std::vector<uint64_t>{5, 9, 2}[r])); });
    EXPECT_EQ(indexed(asDouble.get(), indices.get(), true, 2), expected);
    // A 2-by-3 logical table holds no whole word: every point is zero.
    Owned logical(ndCreateLogicalMatrix(2, 3));
    std::memset(ndGetData(logical.get()), 1, 6);
    EXPECT_EQ(indexed(logical.get(), indices.get(), true, 2), Words(6, 0));
    // Logical indices hold fewer than one double each: the missing read as 0.
    Owned logicalIndices(ndCreateLogicalMatrix(1, 3));
    std::memset(ndGetData(logicalIndices.get()), 1, 3);
    Owned v = t.array();
    EXPECT_EQ(indexed(v.get(), logicalIndices.get(), true, 2), Words(6, 0));
    Owned empty = zvhost::matrixOf<double>(0, 1);
    EXPECT_TRUE(indexed(v.get(), empty.get(), false, 2).empty());
}

TEST(SobolPoint, OneRowForOneIndex) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(6, 53, 9);
    Owned v = t.array();
    for (bool g : {false, true})
        for (double i : {0.0, 1.0, 12345.0, 1e15, -1.0}) {
            Owned index = zvhost::scalar(i), flag = zvhost::logicalScalar(g);
            auto out = zvhost::call(sobolset::sobolPoint, 1, {v.get(), index.get(), flag.get()});
            const uint64_t c = zv::checked::truncateSaturated<uint64_t>(i);
            EXPECT_EQ(values(out[0], 1, 6), point(t, g ? gray(c) : c));
        }
}

TEST(SobolPoint, ShortTableReadsOnlyItsColumns) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(4, 3, 14);  // 3 direction numbers: index bits from 3 up select nothing
    Owned v = t.array(), index = zvhost::scalar(13 + 64), flag = zvhost::logicalScalar(false);
    auto out = zvhost::call(sobolset::sobolPoint, 1, {v.get(), index.get(), flag.get()});
    Words expected(4);
    for (size_t j = 0; j < 4; ++j) expected[j] = t.v[0 * 4 + j] ^ t.v[2 * 4 + j];  // 13 = 1101b: bits 0 and 2
    EXPECT_EQ(values(out[0], 1, 4), expected);
    EXPECT_EQ(sequence(t, 13 + 64, 0, 1, false), expected);
}

TEST(SobolNet, FirstPointsInEitherOrder) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3, 53, 10);
    Owned v = t.array();
    for (bool g : {false, true})
        for (double n : {0.0, 1.0, 2.0, 3.0, 8.0, 13.0, 1000.0}) {
            Owned count = zvhost::scalar(n), flag = zvhost::logicalScalar(g);
            auto out = zvhost::call(sobolset::sobolNetBIF, 1, {v.get(), count.get(), flag.get()});
            EXPECT_EQ(values(out[0], size_t(n), 3), rows(size_t(n), 3, [&](size_t r) { return point(t, g ? gray(r) : r); }))
                << g << " " << n;
        }
    // With only 2 direction numbers, blocks from the third on add nothing.
    const Table two = randomTable(2, 2, 11);
    Owned v2 = two.array(), count = zvhost::scalar(20), flag = zvhost::logicalScalar(false);
    auto out = zvhost::call(sobolset::sobolNetBIF, 1, {v2.get(), count.get(), flag.get()});
    EXPECT_EQ(values(out[0], 20, 2), rows(20, 2, [&](size_t r) { return point(two, r); }));
}

TEST(SobolPoints, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned v = zvhost::matrixOf<uint64_t>(2, 53), vd = zvhost::matrixOf<double>(2, 53);
    Owned x = zvhost::scalar(1), yes = zvhost::logicalScalar(true), last = zvhost::matrixOf<double>(1, 2);
    auto id = [](auto gateway, std::initializer_list<const ndArray*> in) {
        return raisedId([&] { zvhost::call(gateway, 1, in); });
    };
    const std::string p = "stats:sobolset:";
    EXPECT_EQ(id(sobolset::sobolSequenceBIF, {vd.get(), x.get(), x.get(), x.get()}), p + "NumInputsSobolSequence");
    EXPECT_EQ(id(sobolset::sobolSequenceBIF, {vd.get(), x.get(), x.get(), x.get(), x.get(), last.get(), x.get()}),
              p + "NumInputsSobolSequence");
    EXPECT_EQ(id(sobolset::sobolSequenceBIF, {vd.get(), x.get(), x.get(), x.get(), x.get(), last.get()}),
              p + "InvalidDirectionNumbers");
    EXPECT_EQ(id(sobolset::sobolSequenceBIF, {v.get(), x.get(), x.get(), x.get(), x.get(), last.get()}),
              p + "InvalidGrayCodeFlag");
    EXPECT_EQ(id(sobolset::sobolSequenceBIF, {v.get(), x.get(), x.get(), x.get(), yes.get(), last.get()}),
              p + "InvalidLastX");
    EXPECT_EQ(id(sobolset::sobolSequenceBIF, {v.get(), x.get(), x.get(), x.get(), yes.get()}), "");

    EXPECT_EQ(id(sobolset::sobolIndexedBIF, {vd.get(), x.get()}), p + "NumInputsSobolIndexed");
    EXPECT_EQ(id(sobolset::sobolIndexedBIF, {vd.get(), x.get(), x.get()}), p + "InvalidGrayCodeFlag");
    EXPECT_EQ(id(sobolset::sobolIndexedBIF, {vd.get(), x.get(), yes.get()}), "");

    EXPECT_EQ(id(sobolset::sobolPoint, {vd.get(), x.get(), x.get(), x.get()}), p + "NumInputsSobolPoint");
    EXPECT_EQ(id(sobolset::sobolPoint, {vd.get(), x.get(), x.get()}), p + "InvalidDirectionNumbers");
    EXPECT_EQ(id(sobolset::sobolPoint, {v.get(), x.get(), x.get()}), p + "InvalidGrayCodeFlag");

    EXPECT_EQ(id(sobolset::sobolNetBIF, {vd.get(), x.get()}), p + "NumInputsSobolNet");
    EXPECT_EQ(id(sobolset::sobolNetBIF, {vd.get(), x.get(), x.get()}), p + "InvalidDirectionNumbers");
    EXPECT_EQ(id(sobolset::sobolNetBIF, {v.get(), x.get(), x.get()}), p + "InvalidGrayCodeFlag");
    // A logical array that is not a scalar true counts as false.
    Owned pair(ndCreateLogicalMatrix(1, 2));
    std::memset(ndGetData(pair.get()), 1, 2);
    EXPECT_EQ(id(sobolset::sobolNetBIF, {v.get(), x.get(), pair.get()}), "");
}

TEST(SobolSequence, ContinuingFromTheLastPointGivesTheSameRows) {
    // Blocks of rows start from their own first row; with a last point that
    // row is the last point with all the steps since it. The head ends inside
    // a block, so the tail's blocks start where the whole run's do not.
    zvtest::LeakCheck leaks;
    const Table t = randomTable(7, 53, 13);
    for (bool g : {false, true})
        for (double leap : {0.0, 5.0}) {
            const uint64_t step = uint64_t(leap) + 1;
            const size_t n = 6000, head = 2500;
            const Words whole = sequence(t, 11, leap, n, g);
            const Words last = lastRow(sequence(t, 11, leap, head, g), head, t.d);
            const Words tail = sequence(t, double(11 + head * step), leap, n - head, g, &last);
            for (size_t j = 0; j < t.d; ++j)
                for (size_t r = 0; r < n - head; ++r) ASSERT_EQ(tail[j * (n - head) + r], whole[j * n + head + r]);
        }
}

TEST(SobolPoints, SameResultOnOneAndTwoThreads) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(20, 53, 12);
    Owned v = t.array();
    std::vector<double> idx(7000);
    for (size_t i = 0; i < idx.size(); ++i) idx[i] = double((i * 2654435761u) % 100000);
    Owned indices = zvhost::matrixOf<double>(idx.size(), 1, std::span<const double>(idx));
    const Words last(20, 0x123456789ull);
    auto run = [&] {
        std::vector<Words> r;
        r.push_back(sequence(t, 17, 0, 9000, true));
        r.push_back(sequence(t, 17, 4, 9000, false));
        r.push_back(sequence(t, 17, 0, 9000, true, &last));
        r.push_back(sequence(t, 17, 2, 9000, true, &last));
        r.push_back(indexed(v.get(), indices.get(), true, t.d));
        Owned count = zvhost::scalar(9000), flag = zvhost::logicalScalar(false);
        auto out = zvhost::call(sobolset::sobolNetBIF, 1, {v.get(), count.get(), flag.get()});
        r.push_back(zvhost::valuesOf<uint64_t>(out[0].get()));
        return r;
    };
    const auto one = zvtest::withThreads(1, run);
    EXPECT_EQ(one, zvtest::withThreads(2, run));
    EXPECT_EQ(one[0], rows(9000, t.d, [&](size_t r) { return point(t, gray(17 + r)); }));
}

}  // namespace

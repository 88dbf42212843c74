// Sobol point generators against the direct definition (each point the XOR
// of the direction numbers of its code's bits): the quick and general paths,
// continuing from a last point, indexed points, single points, nets, guards
// for short tables, wide indices and huge counts, identifiers in order, 1 vs
// 2 threads.
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

#include "frame/checked.hpp"
#include "sampling/sampling_fixtures.hpp"

namespace {

using zvhost::Owned;
using zvtest::idOf;
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
uint64_t code(bool g, uint64_t i) { return g ? gray(i) : i; }

// The point of a code: bit k selects direction number k, for k below 53 and
// below the columns that the table has.
Words point(const Table& t, uint64_t c) {
    Words row(t.d, 0);
    for (size_t k = 0; k < std::min<size_t>(t.columns, 53); ++k)
        if ((c >> k) & 1)
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

// The points of codes code(first + r step), r = 0 .. n-1.
Words points(const Table& t, size_t n, bool g, uint64_t first, uint64_t step = 1) {
    return rows(n, t.d, [&](size_t r) { return point(t, code(g, first + r * step)); });
}

Words values(const Owned& a, size_t m, size_t n) {
    EXPECT_EQ(ndGetClassID(a.get()), ndUINT64_CLASS);
    EXPECT_EQ(zvtest::dimsOf(a.get()), (std::vector<size_t>{m, n}));
    return zvhost::valuesOf<uint64_t>(a.get());
}

Words sequence(const Table& t, double first, double leap, double n, bool grayFlag, const Words* last = nullptr) {
    Owned v = t.array(), f = zvhost::scalar(first), l = zvhost::scalar(leap), count = zvhost::scalar(n);
    Owned flag = zvhost::logicalScalar(grayFlag), lastArray = last ? zvtest::row(*last) : nullptr;
    std::vector<const ndArray*> in{v.get(), f.get(), l.get(), count.get(), flag.get()};
    if (last) in.push_back(lastArray.get());
    auto out = zvhost::call(sobolset::sobolSequenceBIF, 1, in);
    return values(out[0], ndGetM(out[0].get()), t.d);
}

TEST(SobolSequence, PointsOfTheirIndicesOnTheQuickAndGeneralPaths) {
    zvtest::LeakCheck leaks;
    // The quick path is leap 0 with Gray codes; 1500 rows are more than a block.
    const Table t = randomTable(4, 53, 2);
    for (bool g : {false, true})
        for (double leap : {0.0, 1.0, 2.0, 7.0})
            for (uint64_t f : {0ull, 1ull, 6ull, 1025ull, (1ull << 40) - 3})
                EXPECT_EQ(sequence(t, double(f), leap, 1500, g), points(t, 1500, g, f, uint64_t(leap) + 1))
                    << g << " " << leap << " " << f;
}

TEST(SobolSequence, IndexArithmetic) {
    zvtest::LeakCheck leaks;
    struct Case {
        double first, leap, n;
        bool gray;
        uint64_t firstIndex, step;
        size_t rows;
    };
    const double wide = std::ldexp(1.0, 53) + 6;  // index bits from 53 up select nothing
    const Case cases[] = {
        {4, 0, 0, true, 4, 1, 0}, {4, 0, kNaN, true, 4, 1, 0}, {4, 0, -5, true, 4, 1, 0},
        {0, 0, 1, true, 0, 1, 1}, {0, 5, 1, false, 0, 6, 1},  // f = 0: the zero point
        {6, 0, 1, true, 6, 1, 1}, {6.9, 0, 2.5, false, 6, 1, 2},
        // A NaN leap is not 0: the general path, with a step of one.
        {3, kNaN, 100, true, 3, 1, 100}, {3, kNaN, 100, false, 3, 1, 100}, {3, -2, 100, true, 3, 1, 100},
        // The leap saturates at 2^64 - 1 and the step wraps to 0: copies of row 0.
        {9, 1e30, 4, false, 9, 0, 4},
        {wide, 0, 1, false, (1ull << 53) + 6, 1, 1}, {wide, 0, 1, true, (1ull << 53) + 6, 1, 1},
        // Beyond 2^64 an index saturates; the quick path then steps past bit 63.
        {1e30, 0, 3, true, kAllOnes, 1, 3}, {1e30, 0, 1, false, kAllOnes, 1, 1},
    };
    const Table t = randomTable(3);
    for (const Case& c : cases)
        EXPECT_EQ(sequence(t, c.first, c.leap, c.n, c.gray), points(t, c.rows, c.gray, c.firstIndex, c.step))
            << c.first << " " << c.leap << " " << c.n << " " << c.gray;
}

TEST(SobolSequence, LastPoint) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3, 53, 4);
    const Words last{11, 22, 33}, none;
    EXPECT_EQ(sequence(t, 9, 0, 10, true, &none), sequence(t, 9, 0, 10, true));
    // Before index 0 the quick path steps by bit 64 of 2^64 - 1: no change.
    EXPECT_EQ(sequence(t, 0, 0, 1, true, &last), last);
    // The general path: the codes of 0 - t (unsigned) and 0 differ only above
    // bit 53 for t = 1, and in low bits for t = 3.
    for (double leap : {0.0, 2.0})
        for (bool g : {false, true}) {
            if (leap == 0.0 && g) continue;  // the quick path, above
            const uint64_t step = uint64_t(leap) + 1;
            Words expected = point(t, code(g, 0 - step) ^ code(g, 0));
            for (size_t j = 0; j < 3; ++j) expected[j] ^= last[j];
            EXPECT_EQ(sequence(t, 0, leap, 1, g, &last), expected) << leap << g;
        }
    // A short last point continues with zeros: row 0 is it stepped from 11 to 12.
    const Words shortLast{7, 9};
    Words expected = point(t, gray(11) ^ gray(12));
    expected[0] ^= 7;
    expected[1] ^= 9;
    EXPECT_EQ(sequence(t, 12, 0, 1, true, &shortLast), expected);
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
            const Words whole = sequence(t, 11, leap, n, g), start = sequence(t, 11, leap, head, g);
            Words last(t.d);
            for (size_t j = 0; j < t.d; ++j) last[j] = start[j * head + head - 1];
            const Words tail = sequence(t, double(11 + head * step), leap, n - head, g, &last);
            for (size_t j = 0; j < t.d; ++j)
                for (size_t r = 0; r < n - head; ++r) ASSERT_EQ(tail[j * (n - head) + r], whole[j * n + head + r]);
        }
}

TEST(SobolPoints, ShortDirectionTablesReadOnlyTheirColumns) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(4, 3, 14);  // 3 direction numbers: index bits from 3 up select nothing
    EXPECT_EQ(sequence(t, 0, 0, 40, true), points(t, 40, true, 0));
    EXPECT_EQ(sequence(t, 0, 2, 40, false), points(t, 40, false, 0, 3));
    EXPECT_EQ(sequence(Table{4, 0, {}}, 5, 0, 3, true), Words(12, 0));
    Owned v = t.array(), index = zvhost::scalar(13 + 64), no = zvhost::logicalScalar(false);
    auto out = zvhost::call(sobolset::sobolPoint, 1, {v.get(), index.get(), no.get()});
    Words expected(4);
    for (size_t j = 0; j < 4; ++j) expected[j] = t.v[0 * 4 + j] ^ t.v[2 * 4 + j];  // 13 = 1101b: bits 0 and 2
    EXPECT_EQ(values(out[0], 1, 4), expected);
    // With only 2 direction numbers, net blocks from the third on add nothing.
    const Table two = randomTable(2, 2, 11);
    Owned v2 = two.array(), count = zvhost::scalar(20);
    out = zvhost::call(sobolset::sobolNetBIF, 1, {v2.get(), count.get(), no.get()});
    EXPECT_EQ(values(out[0], 20, 2), points(two, 20, false, 0));
}

TEST(SobolPoints, CountsAndSizesAtTheElementLimit) {
    zvtest::LeakCheck leaks;
    Owned none = zvhost::matrixOf<uint64_t>(0, 53), wide = zvhost::matrixOf<uint64_t>(1024, 53);
    Owned f = zvhost::scalar(0), l = zvhost::scalar(3), flag = zvhost::logicalScalar(true);
    // No dimensions: a count below the limit does no work.
    Owned below = zvhost::scalar(std::ldexp(1.0, 47));
    auto out = zvhost::call(sobolset::sobolSequenceBIF, 1, {none.get(), f.get(), l.get(), below.get(), flag.get()});
    EXPECT_EQ(zvtest::dimsOf(out[0].get()), (std::vector<size_t>{size_t(1) << 47, 0}));
    out = zvhost::call(sobolset::sobolNetBIF, 1, {none.get(), below.get(), flag.get()});
    EXPECT_EQ(ndGetM(out[0].get()), size_t(1) << 47);
    // A count, or a count of points times dimensions, past the limit fails as
    // an allocation: no such array can exist.
    const std::pair<double, const ndArray*> tooLarge[] = {
        {std::ldexp(1.0, 63), none.get()}, {1e30, none.get()}, {std::ldexp(1.0, 40), wide.get()}};
    for (const auto& [count, v] : tooLarge) {
        Owned n = zvhost::scalar(count);
        EXPECT_THROW(zvhost::call(sobolset::sobolSequenceBIF, 1, {v, f.get(), l.get(), n.get(), flag.get()}),
                     std::bad_alloc) << count;
        EXPECT_THROW(zvhost::call(sobolset::sobolNetBIF, 1, {v, n.get(), flag.get()}), std::bad_alloc) << count;
    }
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
            return point(t, code(g, zv::checked::truncateSaturated<uint64_t>(idx[r])));
        });
        EXPECT_EQ(indexed(v.get(), indices.get(), g, t.d), expected) << g;
    }
    Owned empty = zvhost::matrixOf<double>(0, 1);
    EXPECT_TRUE(indexed(v.get(), empty.get(), false, 5).empty());
    // sobolPoint: the one row of one index.
    for (bool g : {false, true})
        for (double i : {0.0, 12345.0, 1e15, -1.0}) {
            Owned index = zvhost::scalar(i), flag = zvhost::logicalScalar(g);
            auto out = zvhost::call(sobolset::sobolPoint, 1, {v.get(), index.get(), flag.get()});
            EXPECT_EQ(values(out[0], 1, 5), point(t, code(g, zv::checked::truncateSaturated<uint64_t>(i))));
        }
}

TEST(SobolIndexed, TablesAndIndicesOfOtherClassesAreReadByTheirValues) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(2, 53, 8);
    Owned asDouble = zvhost::matrixOf<double>(2, 53);
    for (size_t k = 0; k < t.v.size(); ++k) static_cast<double*>(ndGetData(asDouble.get()))[k] = double(t.v[k]);
    Owned indices = zvhost::matrixOf<double>(1, 3, {5, 9, 2});
    const Words expected = rows(3, 2, [&](size_t r) { return point(t, gray(Words{5, 9, 2}[r])); });
    EXPECT_EQ(indexed(asDouble.get(), indices.get(), true, 2), expected);
    Owned logicalIndices(ndCreateLogicalMatrix(1, 3));
    std::memset(ndGetData(logicalIndices.get()), 1, 3);
    Owned v = t.array();
    EXPECT_EQ(indexed(v.get(), logicalIndices.get(), false, 2), points(t, 3, false, 1, 0));
}

TEST(SobolNet, FirstPointsInEitherOrder) {
    zvtest::LeakCheck leaks;
    const Table t = randomTable(3, 53, 10);
    Owned v = t.array();
    for (bool g : {false, true})
        for (double n : {0.0, 1.0, 2.0, 3.0, 8.0, 13.0, 1000.0}) {
            Owned count = zvhost::scalar(n), flag = zvhost::logicalScalar(g);
            auto out = zvhost::call(sobolset::sobolNetBIF, 1, {v.get(), count.get(), flag.get()});
            EXPECT_EQ(values(out[0], size_t(n), 3), points(t, size_t(n), g, 0)) << g << " " << n;
        }
}

TEST(SobolPoints, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned v = zvhost::matrixOf<uint64_t>(2, 53), vd = zvhost::matrixOf<double>(2, 53);
    Owned x = zvhost::scalar(1), yes = zvhost::logicalScalar(true), last = zvhost::matrixOf<double>(1, 2);
    const std::string p = "stats:sobolset:";
    EXPECT_EQ(idOf(sobolset::sobolSequenceBIF, 1, {vd.get(), x.get(), x.get(), x.get()}), p + "NumInputsSobolSequence");
    EXPECT_EQ(idOf(sobolset::sobolSequenceBIF, 1, {vd.get(), x.get(), x.get(), x.get(), x.get(), last.get(), x.get()}),
              p + "NumInputsSobolSequence");
    EXPECT_EQ(idOf(sobolset::sobolSequenceBIF, 1, {vd.get(), x.get(), x.get(), x.get(), x.get(), last.get()}),
              p + "InvalidDirectionNumbers");
    EXPECT_EQ(idOf(sobolset::sobolSequenceBIF, 1, {v.get(), x.get(), x.get(), x.get(), x.get(), last.get()}),
              p + "InvalidGrayCodeFlag");
    EXPECT_EQ(idOf(sobolset::sobolSequenceBIF, 1, {v.get(), x.get(), x.get(), x.get(), yes.get(), last.get()}),
              p + "InvalidLastX");
    EXPECT_EQ(idOf(sobolset::sobolSequenceBIF, 1, {v.get(), x.get(), x.get(), x.get(), yes.get()}), "");

    EXPECT_EQ(idOf(sobolset::sobolIndexedBIF, 1, {vd.get(), x.get()}), p + "NumInputsSobolIndexed");
    EXPECT_EQ(idOf(sobolset::sobolIndexedBIF, 1, {vd.get(), x.get(), x.get()}), p + "InvalidGrayCodeFlag");
    EXPECT_EQ(idOf(sobolset::sobolIndexedBIF, 1, {vd.get(), x.get(), yes.get()}), "");

    EXPECT_EQ(idOf(sobolset::sobolPoint, 1, {vd.get(), x.get(), x.get(), x.get()}), p + "NumInputsSobolPoint");
    EXPECT_EQ(idOf(sobolset::sobolPoint, 1, {vd.get(), x.get(), x.get()}), p + "InvalidDirectionNumbers");
    EXPECT_EQ(idOf(sobolset::sobolPoint, 1, {v.get(), x.get(), x.get()}), p + "InvalidGrayCodeFlag");

    EXPECT_EQ(idOf(sobolset::sobolNetBIF, 1, {vd.get(), x.get()}), p + "NumInputsSobolNet");
    EXPECT_EQ(idOf(sobolset::sobolNetBIF, 1, {vd.get(), x.get(), x.get()}), p + "InvalidDirectionNumbers");
    EXPECT_EQ(idOf(sobolset::sobolNetBIF, 1, {v.get(), x.get(), x.get()}), p + "InvalidGrayCodeFlag");
    // A logical array that is not a scalar true counts as false.
    Owned pair(ndCreateLogicalMatrix(1, 2));
    std::memset(ndGetData(pair.get()), 1, 2);
    EXPECT_EQ(idOf(sobolset::sobolNetBIF, 1, {v.get(), x.get(), pair.get()}), "");
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
        std::vector<Words> r{sequence(t, 17, 0, 9000, true), sequence(t, 17, 4, 9000, false),
                             sequence(t, 17, 0, 9000, true, &last), sequence(t, 17, 2, 9000, true, &last),
                             indexed(v.get(), indices.get(), true, t.d)};
        Owned count = zvhost::scalar(9000), flag = zvhost::logicalScalar(false);
        r.push_back(zvhost::valuesOf<uint64_t>(zvhost::call(sobolset::sobolNetBIF, 1, {v.get(), count.get(), flag.get()})[0].get()));
        return r;
    };
    const auto one = zvtest::withThreads(1, run);
    EXPECT_EQ(one, zvtest::withThreads(2, run));
    EXPECT_EQ(one[0], points(t, 9000, true, 17));
}

}  // namespace

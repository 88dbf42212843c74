// sobolset word gateways: direction numbers worked out by hand, the guards on
// polynomial degrees, the bit-matrix conversions both ways, the XOR shift and
// the conversion to double; identifiers in order and no leaks.
#include <cmath>
#include <cstring>
#include <limits>

#include "sampling/quasirandom_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
using Words = std::vector<uint64_t>;
using Values = std::vector<double>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Owned row(const Values& v) { return zvhost::matrixOf<double>(1, v.size(), std::span<const double>(v)); }
Owned words(size_t m, size_t n, const Words& w) { return zvhost::matrixOf<uint64_t>(m, n, std::span<const uint64_t>(w)); }

Words directionNumbers(const std::vector<Values>& m, const Values& polynomials) {
    Owned cells = zvtest::cellOfRows(m), polys = row(polynomials);
    auto out = zvhost::call(sobolset::computeDN, 1, {cells.get(), polys.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndUINT64_CLASS);
    EXPECT_EQ(ndGetM(out[0].get()), 53u);
    EXPECT_EQ(ndGetN(out[0].get()), polynomials.size());
    return zvhost::valuesOf<uint64_t>(out[0].get());
}

TEST(SobolDirectionNumbers, RecurrenceByHand) {
    zvtest::LeakCheck leaks;
    // x^2 + x + 1 (7) with m = 1, 3: m_k = 2 m_{k-1} ^ 4 m_{k-2} ^ m_{k-2},
    // so m_2 = 6 ^ 4 ^ 1 = 3 and m_3 = 6 ^ 12 ^ 3 = 9; word k is m_k << (52 - k).
    // x^3 + x + 1 (11) with m = 1, 3, 1: m_3 = 4 m_1 ^ 8 m_0 ^ m_0 = 12 ^ 8 ^ 1 = 5.
    const Words v = directionNumbers({{1, 3}, {1, 3, 1}}, {7, 11});
    EXPECT_EQ(v[0], 1ull << 52);
    EXPECT_EQ(v[1], 3ull << 51);
    EXPECT_EQ(v[2], 3ull << 50);
    EXPECT_EQ(v[3], 9ull << 49);
    EXPECT_EQ(v[53 + 0], 1ull << 52);
    EXPECT_EQ(v[53 + 2], 1ull << 50);
    EXPECT_EQ(v[53 + 3], 5ull << 49);
    for (size_t k = 0; k < 53; ++k) {
        EXPECT_EQ(v[k] >> (52 - k) & 1, 1u) << k;          // every m_k is odd
        EXPECT_EQ(v[k] >> (52 - k), v[k] >> (52 - k) & ((2ull << k) - 1)) << k;  // and below 2^(k+1)
    }
}

TEST(SobolDirectionNumbers, PlainXGivesTheFirstDimension) {
    zvtest::LeakCheck leaks;
    // Polynomial x (2) with m = 1 repeats m_0: every word is one bit, the
    // first dimension of a Sobol sequence (the van der Corput points).
    const Words v = directionNumbers({{1}}, {2});
    for (size_t k = 0; k < 53; ++k) EXPECT_EQ(v[k], 1ull << (52 - k));
}

TEST(SobolDirectionNumbers, DegreeZeroGivesAZeroColumn) {
    zvtest::LeakCheck leaks;
    const Words v = directionNumbers({{}, {1}}, {1, 3});
    for (size_t k = 0; k < 53; ++k) EXPECT_EQ(v[k], 0u);
    EXPECT_EQ(v[53 + 1], 3ull << 51);  // x + 1: m_1 = 2 m_0 ^ m_0
}

TEST(SobolDirectionNumbers, InitialValuesAreTruncated) {
    zvtest::LeakCheck leaks;
    EXPECT_EQ(directionNumbers({{1.9, 3.2}}, {7.99}), directionNumbers({{1, 3}}, {7}));
}

TEST(SobolDirectionNumbers, DegreeAbove53UsesTheFirst53Values) {
    zvtest::LeakCheck leaks;
    // x^60 + 1: 60 initial values, of which the 53 words take the first 53.
    Values m(60);
    for (size_t k = 0; k < 60; ++k) m[k] = double(2 * k + 1);
    const Words v = directionNumbers({m}, {std::ldexp(1.0, 60) + 1});
    for (size_t k = 0; k < 53; ++k) EXPECT_EQ(v[k], uint64_t(2 * k + 1) << (52 - k)) << k;
}

TEST(SobolDirectionNumbers, InvalidInitialValues) {
    zvtest::LeakCheck leaks;
    const std::string invalid = "stats:sobolset:InvalidInitialMValues";
    auto id = [](const Owned& cells, const Values& polys) {
        Owned p = row(polys);
        return raisedId([&] { zvhost::call(sobolset::computeDN, 1, {cells.get(), p.get()}); });
    };
    EXPECT_EQ(id(zvtest::cellOfRows({{}}), {0}), invalid);           // the zero polynomial
    EXPECT_EQ(id(zvtest::cellOfRows({{1, 1}}), {3}), invalid);       // degree 1, two values
    EXPECT_EQ(id(zvtest::cellOfRows({{1}}), {7}), invalid);          // degree 2, one value
    EXPECT_EQ(id(zvtest::cellOfRows({{1}}), {-7}), invalid);         // negative: 0
    EXPECT_EQ(id(zvtest::cellOfRows({{1}}), {kNaN}), invalid);
    EXPECT_EQ(id(zvtest::cellOfRows({{1}, {1}}, {false, true}), {3, 3}), invalid);  // an empty slot
    EXPECT_EQ(id(row({1, 1}), {3, 3}), invalid);                      // not a cell at all
    EXPECT_EQ(id(zvtest::cellOfRows({{1}, {1}}), {3, 3}), "");
}

TEST(SobolDirectionNumbers, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned cells = zvtest::cellOfRows({{1, 1}}), one = row({3}), two = row({3, 3});
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::computeDN, 1, {cells.get()}); }),
              "stats:sobolset:NumInputsComputeDN");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::computeDN, 1, {cells.get(), two.get(), two.get()}); }),
              "stats:sobolset:NumInputsComputeDN");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::computeDN, 1, {cells.get(), two.get()}); }),
              "stats:sobolset:InputSizesComputeDN");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::computeDN, 1, {cells.get(), one.get()}); }),
              "stats:sobolset:InvalidInitialMValues");
    Owned none(ndCreateCellMatrix(0, 0)), nothing = zvhost::matrixOf<double>(0, 0);
    auto out = zvhost::call(sobolset::computeDN, 1, {none.get(), nothing.get()});
    EXPECT_EQ(ndGetM(out[0].get()), 53u);
    EXPECT_EQ(ndGetN(out[0].get()), 0u);
}

Values bitMatrix(const Words& dn) {
    Owned in = words(1, dn.size(), dn);
    auto out = zvhost::call(sobolset::DNToMatrix, 1, {in.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    EXPECT_EQ(ndGetM(out[0].get()), dn.size());
    EXPECT_EQ(ndGetN(out[0].get()), dn.size());
    return zvhost::valuesOf<double>(out[0].get());
}

Words fromBitMatrix(size_t m, size_t n, const Values& bits) {
    Owned in = zvhost::matrixOf<double>(m, n, std::span<const double>(bits));
    auto out = zvhost::call(sobolset::MatrixToDN, 1, {in.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndUINT64_CLASS);
    EXPECT_EQ(ndGetM(out[0].get()), m);
    EXPECT_EQ(ndGetN(out[0].get()), 1u);
    return zvhost::valuesOf<uint64_t>(out[0].get());
}

TEST(SobolBitMatrix, WordsAsColumnsMostSignificantBitFirst) {
    zvtest::LeakCheck leaks;
    // 5 = 101, 2 = 010, 15 = 1111 of which the 3 low bits stay.
    EXPECT_EQ(bitMatrix({5, 2, 15}), (Values{1, 0, 1, 0, 1, 0, 1, 1, 1}));
    EXPECT_TRUE(bitMatrix({}).empty());
}

TEST(SobolBitMatrix, RowsAboveTheWordAreZero) {
    zvtest::LeakCheck leaks;
    // n = 70: entry (r, c) is bit 69 - r, so rows 0 to 5 stand for bits 64 to 69.
    const Words all(70, ~uint64_t(0));
    const Values b = bitMatrix(all);
    for (size_t c = 0; c < 70; ++c)
        for (size_t r = 0; r < 70; ++r) ASSERT_EQ(b[c * 70 + r], r < 6 ? 0.0 : 1.0) << r << " " << c;
}

TEST(SobolBitMatrix, MatrixToWordsByHand) {
    zvtest::LeakCheck leaks;
    EXPECT_EQ(fromBitMatrix(3, 3, {1, 0, 1, 0, 1, 0, 1, 1, 1}), (Words{5, 2, 7}));
    // Any non-zero entry is a set bit, NaN included.
    EXPECT_EQ(fromBitMatrix(2, 2, {kNaN, -0.5, 0, 2}), (Words{3, 1}));
    // Columns that the matrix lacks give 0; extra columns are ignored.
    EXPECT_EQ(fromBitMatrix(3, 1, {1, 1, 0}), (Words{6, 0, 0}));
    EXPECT_EQ(fromBitMatrix(1, 3, {1, 1, 1}), (Words{1}));
    // Past 64 rows the first bits are shifted out.
    Values tall(70 * 70, 0.0);
    tall[0] = tall[69] = 1;
    EXPECT_EQ(fromBitMatrix(70, 70, tall)[0], 1u);
}

TEST(SobolBitMatrix, RoundTripOf53BitWords) {
    zvtest::LeakCheck leaks;
    Words w(53);
    uint64_t x = 0x9E3779B97F4A7C15ull;
    for (auto& v : w) v = (x = x * 6364136223846793005ull + 1442695040888963407ull) >> 11;
    EXPECT_EQ(fromBitMatrix(53, 53, bitMatrix(w)), w);
}

TEST(SobolBitMatrix, WithoutAnInputTheHostsOwnError) {
    zvtest::LeakCheck leaks;
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::DNToMatrix, 1, {}); }), "zvhost:TooFewInputs");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::MatrixToDN, 1, {}); }), "zvhost:TooFewInputs");
    // Extra inputs are ignored.
    Owned w = words(1, 2, {1, 2}), b = zvhost::matrixOf<double>(1, 1, {1.0});
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::DNToMatrix, 1, {w.get(), w.get()}); }), "");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::MatrixToDN, 1, {b.get(), w.get()}); }), "");
}

TEST(SobolBitMatrix, NoClassTestReadsWhatIsStored) {
    zvtest::LeakCheck leaks;
    // A logical "word vector" of 3 bytes holds no whole word: all zero.
    Owned logical(ndCreateLogicalMatrix(1, 3));
    std::memset(ndGetData(logical.get()), 1, 3);
    auto out = zvhost::call(sobolset::DNToMatrix, 1, {logical.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), Values(9, 0.0));
    // A single-precision 2-by-2 holds two doubles' worth of bytes.
    Owned single = zvhost::matrixOf<float>(2, 2, {1, 1, 1, 1});
    out = zvhost::call(sobolset::MatrixToDN, 1, {single.get()});
    EXPECT_EQ(ndGetM(out[0].get()), 2u);
}

Words xorShift(const Owned& matrix, const Owned& shift) {
    auto out = zvhost::call(sobolset::matrixBitXorBIF, 1, {matrix.get(), shift.get()});
    EXPECT_EQ(ndGetM(out[0].get()), ndGetM(matrix.get()));
    EXPECT_EQ(ndGetN(out[0].get()), ndGetN(matrix.get()));
    EXPECT_EQ(ndGetClassID(out[0].get()), ndGetClassID(matrix.get()));
    return zvhost::valuesOf<uint64_t>(out[0].get());
}

TEST(SobolXor, EachColumnWithItsWord) {
    zvtest::LeakCheck leaks;
    Owned m = words(2, 3, {1, 2, 3, 4, 5, 6}), s = words(3, 1, {1, 0, 7});
    EXPECT_EQ(xorShift(m, s), (Words{0, 3, 3, 4, 2, 1}));
    EXPECT_EQ(zvhost::valuesOf<uint64_t>(m.get()), (Words{1, 2, 3, 4, 5, 6}));  // input untouched
    Owned none = words(0, 3, {}), three = words(1, 3, {1, 2, 3});
    EXPECT_TRUE(xorShift(none, three).empty());
}

TEST(SobolXor, OtherClassesAreChangedOnlyWhereTheyHoldWords) {
    zvtest::LeakCheck leaks;
    // A double matrix keeps its class; its bits are XORed.
    Owned d = zvhost::matrixOf<double>(1, 2, {1.0, 2.0}), s = words(1, 2, {1ull << 63, 0});
    auto out = zvhost::call(sobolset::matrixBitXorBIF, 1, {d.get(), s.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (Values{-1.0, 2.0}));
    // A logical matrix holds no whole word and comes back as it was.
    Owned logical(ndCreateLogicalMatrix(1, 3));
    std::memset(ndGetData(logical.get()), 1, 3);
    Owned s3 = words(1, 3, {~0ull, ~0ull, ~0ull});
    out = zvhost::call(sobolset::matrixBitXorBIF, 1, {logical.get(), s3.get()});
    const auto* bytes = static_cast<const unsigned char*>(ndGetData(out[0].get()));
    EXPECT_EQ(bytes[0] + bytes[1] + bytes[2], 3);
    // A shift of single-precision values holds one word for two columns.
    Owned m = words(1, 3, {0, 0, 0}), singles = zvhost::matrixOf<float>(1, 3, {0.f, 0.f, 0.f});
    EXPECT_EQ(xorShift(m, singles), (Words{0, 0, 0}));
}

TEST(SobolXor, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned m = words(2, 3, {1, 2, 3, 4, 5, 6}), s = words(1, 2, {1, 2});
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::matrixBitXorBIF, 1, {s.get()}); }),
              "stats:sobolset:NumInputsMatrixBitXor");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::matrixBitXorBIF, 1, {m.get(), s.get()}); }),
              "stats:sobolset:InputSizesMatrixBitXor");
}

TEST(SobolToDouble, WordsTimesTwoToTheMinus53) {
    zvtest::LeakCheck leaks;
    Owned w = words(2, 2, {0, 1, (1ull << 53) - 1, ~0ull});
    auto out = zvhost::call(sobolset::convertToDouble, 1, {w.get()});
    const Values v = zvhost::valuesOf<double>(out[0].get());
    EXPECT_EQ(v[0], 0.0);
    EXPECT_EQ(v[1], std::ldexp(1.0, -53));
    EXPECT_EQ(v[2], 1.0 - std::ldexp(1.0, -53));
    EXPECT_EQ(v[3], 2048.0);  // 2^64 - 1 rounds to 2^64
    const size_t dims[3] = {2, 0, 3};
    Owned empty(ndCreateNumericArray(3, dims, ndUINT64_CLASS, ndREAL));
    out = zvhost::call(sobolset::convertToDouble, 1, {empty.get()});
    EXPECT_EQ(ndGetNumberOfDimensions(out[0].get()), 3u);
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
}

TEST(SobolToDouble, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned w = words(1, 1, {1}), d = zvhost::scalar(1);
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::convertToDouble, 1, {}); }),
              "stats:sobolset:NumInputsConvertToDouble");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::convertToDouble, 1, {d.get(), w.get()}); }),
              "stats:sobolset:NumInputsConvertToDouble");
    EXPECT_EQ(raisedId([&] { zvhost::call(sobolset::convertToDouble, 1, {d.get()}); }),
              "stats:sobolset:InputClassConvertToDouble");
}

}  // namespace

// sobolset word gateways: direction numbers worked out by hand, the guards on
// polynomial degrees, the bit-matrix conversions both ways, the XOR shift and
// the conversion to double; identifiers in order and no leaks.
#include <cmath>
#include <cstring>
#include <limits>

#include "sampling/sampling_fixtures.hpp"

namespace {

using zvhost::Owned;
using zvtest::idOf;
using zvtest::row;
using Words = std::vector<uint64_t>;
using Values = std::vector<double>;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Owned words(size_t m, size_t n, const Words& w) { return zvhost::matrixOf<uint64_t>(m, n, std::span<const uint64_t>(w)); }

Words directionNumbers(const std::vector<Values>& m, const Values& polynomials) {
    Owned cells = zvtest::cellOfRows(m), polys = row(polynomials);
    auto out = zvhost::call(sobolset::computeDN, 1, {cells.get(), polys.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndUINT64_CLASS);
    EXPECT_EQ(zvtest::dimsOf(out[0].get()), (std::vector<size_t>{53, polynomials.size()}));
    return zvhost::valuesOf<uint64_t>(out[0].get());
}

TEST(SobolDirectionNumbers, RecurrenceByHand) {
    zvtest::LeakCheck leaks;
    // x^2 + x + 1 (7) with m = 1, 3: m_k = 2 m_{k-1} ^ 4 m_{k-2} ^ m_{k-2},
    // so m_2 = 6 ^ 4 ^ 1 = 3 and m_3 = 6 ^ 12 ^ 3 = 9; word k is m_k << (52 - k).
    // x^3 + x + 1 (11) with m = 1, 3, 1: m_3 = 4 m_1 ^ 8 m_0 ^ m_0 = 12 ^ 8 ^ 1 = 5.
    // Polynomials and initial values are truncated.
    const Words v = directionNumbers({{1.9, 3.2}, {1, 3, 1}, {1}, {}, {1}}, {7.99, 11, 2, 1, 3});
    EXPECT_EQ(v[0], 1ull << 52);
    EXPECT_EQ(v[1], 3ull << 51);
    EXPECT_EQ(v[2], 3ull << 50);
    EXPECT_EQ(v[3], 9ull << 49);
    EXPECT_EQ(v[53 + 2], 1ull << 50);
    EXPECT_EQ(v[53 + 3], 5ull << 49);
    EXPECT_EQ(v[4 * 53 + 1], 3ull << 51);  // x + 1: m_1 = 2 m_0 ^ m_0
    for (size_t k = 0; k < 53; ++k) {
        EXPECT_EQ(v[k] >> (52 - k) & 1, 1u) << k;  // every m_k is odd and below 2^(k+1)
        EXPECT_EQ(v[k] >> (52 - k), v[k] >> (52 - k) & ((2ull << k) - 1)) << k;
        // x with m = 1 repeats m_0: every word one bit, the van der Corput points.
        EXPECT_EQ(v[2 * 53 + k], 1ull << (52 - k));
        EXPECT_EQ(v[3 * 53 + k], 0u);  // degree 0: a zero column
    }
}

TEST(SobolDirectionNumbers, DegreeAbove53UsesTheFirst53Values) {
    zvtest::LeakCheck leaks;
    // x^60 + 1: 60 initial values, of which the 53 words take the first 53.
    Values m(60);
    for (size_t k = 0; k < 60; ++k) m[k] = double(2 * k + 1);
    const Words v = directionNumbers({m}, {std::ldexp(1.0, 60) + 1});
    for (size_t k = 0; k < 53; ++k) EXPECT_EQ(v[k], uint64_t(2 * k + 1) << (52 - k)) << k;
}

TEST(SobolDirectionNumbers, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    const std::string p = "stats:sobolset:";
    Owned cells = zvtest::cellOfRows({{1, 1}}), one = row(Values{3}), two = row(Values{3, 3});
    EXPECT_EQ(idOf(sobolset::computeDN, 1, {cells.get()}), p + "NumInputsComputeDN");
    EXPECT_EQ(idOf(sobolset::computeDN, 1, {cells.get(), two.get(), two.get()}), p + "NumInputsComputeDN");
    EXPECT_EQ(idOf(sobolset::computeDN, 1, {cells.get(), two.get()}), p + "InputSizesComputeDN");
    EXPECT_EQ(idOf(sobolset::computeDN, 1, {cells.get(), one.get()}), p + "InvalidInitialMValues");
    struct Invalid {
        Owned m;
        Values polynomials;
    };
    const Invalid invalid[] = {
        {zvtest::cellOfRows({{}}), {0}},            // the zero polynomial
        {zvtest::cellOfRows({{1}}), {7}},           // degree 2, one value
        {zvtest::cellOfRows({{1}}), {-7}},          // negative: 0
        {zvtest::cellOfRows({{1}}), {kNaN}},
        {zvtest::cellOfRows({{1}, {1}}, {false, true}), {3, 3}},  // an empty slot
        {row(Values{1, 1}), {3, 3}},                // not a cell at all
    };
    for (const Invalid& c : invalid) {
        Owned polynomials = row(c.polynomials);
        EXPECT_EQ(idOf(sobolset::computeDN, 1, {c.m.get(), polynomials.get()}), p + "InvalidInitialMValues");
    }
    Owned none(ndCreateCellMatrix(0, 0)), nothing = zvhost::matrixOf<double>(0, 0);
    auto out = zvhost::call(sobolset::computeDN, 1, {none.get(), nothing.get()});
    EXPECT_EQ(zvtest::dimsOf(out[0].get()), (std::vector<size_t>{53, 0}));
}

Values bitMatrix(const ndArray* dn) {
    auto out = zvhost::call(sobolset::DNToMatrix, 1, {dn});
    const size_t n = ndGetNumberOfElements(dn);
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    EXPECT_EQ(zvtest::dimsOf(out[0].get()), (std::vector<size_t>{n, n}));
    return zvhost::valuesOf<double>(out[0].get());
}
Values bitMatrix(const Words& dn) { return bitMatrix(words(1, dn.size(), dn).get()); }

Words fromBitMatrix(const ndArray* bits) {
    auto out = zvhost::call(sobolset::MatrixToDN, 1, {bits});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndUINT64_CLASS);
    EXPECT_EQ(zvtest::dimsOf(out[0].get()), (std::vector<size_t>{ndGetM(bits), 1}));
    return zvhost::valuesOf<uint64_t>(out[0].get());
}
Words fromBitMatrix(size_t m, size_t n, const Values& bits) {
    return fromBitMatrix(zvhost::matrixOf<double>(m, n, std::span<const double>(bits)).get());
}

TEST(SobolBitMatrix, WordsAsColumnsMostSignificantBitFirst) {
    zvtest::LeakCheck leaks;
    // 5 = 101, 2 = 010, 15 = 1111 of which the 3 low bits stay.
    EXPECT_EQ(bitMatrix({5, 2, 15}), (Values{1, 0, 1, 0, 1, 0, 1, 1, 1}));
    EXPECT_TRUE(bitMatrix(Words{}).empty());
    // n = 70: entry (r, c) is bit 69 - r, so rows 0 to 5 stand for bits 64 to 69.
    const Values b = bitMatrix(Words(70, ~uint64_t(0)));
    for (size_t c = 0; c < 70; ++c)
        for (size_t r = 0; r < 70; ++r) ASSERT_EQ(b[c * 70 + r], r < 6 ? 0.0 : 1.0) << r << " " << c;
    // Words of another class are read by their values; extra inputs are ignored.
    Owned logical(ndCreateLogicalMatrix(1, 3));
    std::memset(ndGetData(logical.get()), 1, 3);
    EXPECT_EQ(bitMatrix(logical.get()), (Values{0, 0, 1, 0, 0, 1, 0, 0, 1}));
    EXPECT_EQ(idOf(sobolset::DNToMatrix, 1, {logical.get(), logical.get()}), "");
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
    // Entries of another class are read by their values.
    Owned single = zvhost::matrixOf<float>(2, 2, {1, 0, 0, 1});
    EXPECT_EQ(fromBitMatrix(single.get()), (Words{2, 1}));
    EXPECT_EQ(idOf(sobolset::MatrixToDN, 1, {single.get(), single.get()}), "");  // extra inputs are ignored
}

TEST(SobolBitMatrix, RoundTripOf53BitWordsAndTheHostsErrorWithoutAnInput) {
    zvtest::LeakCheck leaks;
    Words w(53);
    uint64_t x = 0x9E3779B97F4A7C15ull;
    for (auto& v : w) v = (x = x * 6364136223846793005ull + 1442695040888963407ull) >> 11;
    EXPECT_EQ(fromBitMatrix(53, 53, bitMatrix(w)), w);
    EXPECT_EQ(idOf(sobolset::DNToMatrix, 1, {}), "zvhost:TooFewInputs");
    EXPECT_EQ(idOf(sobolset::MatrixToDN, 1, {}), "zvhost:TooFewInputs");
}

TEST(SobolXor, EachColumnWithItsWord) {
    zvtest::LeakCheck leaks;
    auto xorShift = [](const Owned& matrix, const Owned& shift) {
        auto out = zvhost::call(sobolset::matrixBitXorBIF, 1, {matrix.get(), shift.get()});
        EXPECT_EQ(zvtest::dimsOf(out[0].get()), zvtest::dimsOf(matrix.get()));
        EXPECT_EQ(ndGetClassID(out[0].get()), ndGetClassID(matrix.get()));
        return zvhost::valuesOf<uint64_t>(out[0].get());
    };
    Owned m = words(2, 3, {1, 2, 3, 4, 5, 6}), s = words(3, 1, {1, 0, 7});
    EXPECT_EQ(xorShift(m, s), (Words{0, 3, 3, 4, 2, 1}));
    EXPECT_EQ(zvhost::valuesOf<uint64_t>(m.get()), (Words{1, 2, 3, 4, 5, 6}));  // input untouched
    Owned none = words(0, 3, {}), three = words(1, 3, {1, 2, 3});
    EXPECT_TRUE(xorShift(none, three).empty());
    // A shift of another class is read by its values.
    Owned singles = zvhost::matrixOf<float>(1, 3, {1.f, 2.f, 4.f});
    EXPECT_EQ(xorShift(m, singles), (Words{0, 3, 1, 6, 1, 2}));
    // A double matrix keeps its class; its bits are XORed.
    Owned d = zvhost::matrixOf<double>(1, 2, {1.0, 2.0}), sign = words(1, 2, {1ull << 63, 0});
    auto out = zvhost::call(sobolset::matrixBitXorBIF, 1, {d.get(), sign.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (Values{-1.0, 2.0}));
    // A logical matrix holds no whole word and comes back as it was.
    Owned logical(ndCreateLogicalMatrix(1, 3));
    std::memset(ndGetData(logical.get()), 1, 3);
    Owned ones = words(1, 3, {~0ull, ~0ull, ~0ull});
    out = zvhost::call(sobolset::matrixBitXorBIF, 1, {logical.get(), ones.get()});
    const auto* bytes = static_cast<const unsigned char*>(ndGetData(out[0].get()));
    EXPECT_EQ(bytes[0] + bytes[1] + bytes[2], 3);

    EXPECT_EQ(idOf(sobolset::matrixBitXorBIF, 1, {s.get()}), "stats:sobolset:NumInputsMatrixBitXor");
    EXPECT_EQ(idOf(sobolset::matrixBitXorBIF, 1, {m.get(), sign.get()}), "stats:sobolset:InputSizesMatrixBitXor");
}

TEST(SobolToDouble, WordsTimesTwoToTheMinus53) {
    zvtest::LeakCheck leaks;
    Owned w = words(2, 2, {0, 1, (1ull << 53) - 1, ~0ull});
    auto out = zvhost::call(sobolset::convertToDouble, 1, {w.get()});
    // 2^64 - 1 rounds to 2^64.
    EXPECT_EQ(zvhost::valuesOf<double>(out[0].get()), (Values{0.0, std::ldexp(1.0, -53), 1.0 - std::ldexp(1.0, -53), 2048.0}));
    const size_t dims[3] = {2, 0, 3};
    Owned empty(ndCreateNumericArray(3, dims, ndUINT64_CLASS, ndREAL));
    out = zvhost::call(sobolset::convertToDouble, 1, {empty.get()});
    EXPECT_EQ(zvtest::dimsOf(out[0].get()), (std::vector<size_t>{2, 0, 3}));
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);

    Owned d = zvhost::scalar(1);
    const std::string p = "stats:sobolset:";
    EXPECT_EQ(idOf(sobolset::convertToDouble, 1, {}), p + "NumInputsConvertToDouble");
    EXPECT_EQ(idOf(sobolset::convertToDouble, 1, {d.get(), w.get()}), p + "NumInputsConvertToDouble");
    EXPECT_EQ(idOf(sobolset::convertToDouble, 1, {d.get()}), p + "InputClassConvertToDouble");
}

}  // namespace

// haltonset::computeRR2Perm: permutations worked out by hand, the b = 0 and
// b = 1 cases, selection from a table, identifiers in order, no leaks.
#include <algorithm>
#include <cmath>
#include <limits>

#include "sampling/sampling_fixtures.hpp"

namespace {

using zvhost::Owned;
using zvtest::idOf;
using Values = std::vector<double>;

// The permutations of a list of bases, one per cell of a 1-by-m cell.
std::vector<Values> computed(const Values& bases) {
    Owned in = zvtest::row(bases);
    auto out = zvhost::call(haltonset::computeRR2Perm, 1, {in.get()});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndCELL_CLASS);
    EXPECT_EQ(zvtest::dimsOf(out[0].get()), (std::vector<size_t>{1, bases.size()}));
    std::vector<Values> perms;
    for (size_t i = 0; i < bases.size(); ++i) {
        const ndArray* perm = ndGetCell(out[0].get(), i);
        EXPECT_EQ(ndGetClassID(perm), ndDOUBLE_CLASS);
        EXPECT_EQ(ndGetM(perm), 1u);
        perms.push_back(zvhost::valuesOf<double>(perm));
    }
    return perms;
}

Values fromTable(double b, const ndArray* table) {
    Owned in = zvhost::scalar(b);
    auto out = zvhost::call(haltonset::computeRR2Perm, 1, {in.get(), table});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    EXPECT_EQ(ndGetM(out[0].get()), 1u);
    return zvhost::valuesOf<double>(out[0].get());
}

TEST(HaltonPermutation, ComputedByHand) {
    zvtest::LeakCheck leaks;
    // Base 5 uses 3-bit counters; reversed they run 0 4 2 6 1 5 3 7, and the
    // values below 5 stay. Bases are truncated to unsigned integers.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto p = computed({2, 3, 5.9, 8, 0, 1, -3, nan});
    EXPECT_EQ(p[0], (Values{0, 1}));
    EXPECT_EQ(p[1], (Values{0, 2, 1}));
    EXPECT_EQ(p[2], (Values{0, 4, 2, 1, 3}));
    EXPECT_EQ(p[3], (Values{0, 4, 2, 6, 1, 5, 3, 7}));  // a power of two: the plain bit reversal
    EXPECT_EQ(p[5], (Values{0}));
    for (size_t i : {4, 6, 7}) EXPECT_TRUE(p[i].empty());
    EXPECT_TRUE(computed({}).empty());
}

TEST(HaltonPermutation, EveryComputedPermutationIsOneOfItsBase) {
    const Values b{97, 127, 128, 129, 1009};
    const auto p = computed(b);
    for (size_t i = 0; i < b.size(); ++i) {
        Values sorted = p[i];
        std::sort(sorted.begin(), sorted.end());
        for (size_t k = 0; k < sorted.size(); ++k) ASSERT_EQ(sorted[k], double(k));
        EXPECT_EQ(p[i][1], std::exp2(std::floor(std::log2(b[i] - 1))));  // counter 1 reversed: the top bit
    }
}

TEST(HaltonPermutation, TableElementOfTheBitLengthInItsOwnOrder) {
    zvtest::LeakCheck leaks;
    // Element e serves bases of e + 1 bits; the table need not be a bit reversal.
    Owned table = zvtest::cellOfRows({{1, 0}, {3, 0, 2, 1}, {7, 6, 0, 5, 1, 4, 2, 3}});
    EXPECT_EQ(fromTable(2, table.get()), (Values{1, 0}));
    EXPECT_EQ(fromTable(3, table.get()), (Values{0, 2, 1}));
    EXPECT_EQ(fromTable(4, table.get()), (Values{3, 0, 2, 1}));
    EXPECT_EQ(fromTable(5, table.get()), (Values{0, 1, 4, 2, 3}));
    EXPECT_EQ(fromTable(8.7, table.get()), (Values{7, 6, 0, 5, 1, 4, 2, 3}));
    // An element of another class is read by its values.
    Owned singles(ndCreateCellMatrix(1, 2));
    ndSetCell(singles.get(), 1, zvhost::matrixOf<float>(1, 4, {3.f, 0.f, 2.f, 1.f}).release());
    EXPECT_EQ(fromTable(3, singles.get()), (Values{0, 2, 1}));
    // b = 0 counts as 32 bits (b - 1 wraps): element 31 must exist, and no value is needed.
    Owned long32 = zvtest::cellOfRows(std::vector<Values>(32, Values{0}));
    EXPECT_TRUE(fromTable(0, long32.get()).empty());
}

TEST(HaltonPermutation, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned two = zvtest::row(Values{2, 3}), one = zvhost::scalar(2), empty = zvtest::cellOfRows({});
    Owned table = zvtest::cellOfRows({{1, 0}, {3, 0, 2, 1}});
    const std::string noData = "stats:haltonset:NoPermDataForBase";
    EXPECT_EQ(idOf(haltonset::computeRR2Perm, 1, {}), "stats:haltonset:NumInputsComputeRR2Perm");
    EXPECT_EQ(idOf(haltonset::computeRR2Perm, 1, {two.get(), table.get(), table.get()}),
              "stats:haltonset:NumInputsComputeRR2Perm");
    // More than one base is refused before the table is looked at.
    EXPECT_EQ(idOf(haltonset::computeRR2Perm, 1, {two.get(), empty.get()}), "stats:haltonset:OnlyOneBasePerm");
    EXPECT_EQ(idOf(haltonset::computeRR2Perm, 1, {one.get(), empty.get()}), noData);
    for (double b : {1.0, 0.0}) {
        Owned base = zvhost::scalar(b);
        EXPECT_EQ(idOf(haltonset::computeRR2Perm, 1, {base.get(), table.get()}), noData) << b;
    }
    // A table element without b values below b raises instead of running off.
    Owned three = zvhost::scalar(3), notACell = zvtest::row(Values{0, 2, 1, 3});
    for (const Owned& t : {zvtest::cellOfRows({{1, 0}, {3, 0, 1}}), zvtest::cellOfRows({{1, 0}, {}}, {false, true})})
        EXPECT_EQ(idOf(haltonset::computeRR2Perm, 1, {three.get(), t.get()}), noData);
    EXPECT_EQ(idOf(haltonset::computeRR2Perm, 1, {three.get(), notACell.get()}), noData);
    // numOutputs is not tested.
    EXPECT_EQ(idOf(haltonset::computeRR2Perm, 3, {one.get()}), "");
}

TEST(HaltonPermutation, FailedAllocationLeavesNothingBehind) {
    zvtest::LeakCheck leaks;
    Owned b = zvtest::row(Values{3, 5, 7, 11});
    for (long at = 1; at <= 5; ++at) {
        zvhost::failAllocationAt(at, zvhost::kArrays);
        EXPECT_THROW(zvhost::call(haltonset::computeRR2Perm, 1, {b.get()}), std::bad_alloc) << at;
    }
    zvhost::failAllocationAt(0);
}

}  // namespace

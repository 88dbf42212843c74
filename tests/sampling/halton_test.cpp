// haltonset::computeRR2Perm: permutations worked out by hand, the b = 0 and
// b = 1 cases, selection from a table, identifiers in order, no leaks.
#include <algorithm>
#include <cmath>
#include <limits>

#include "sampling/quasirandom_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
using Values = std::vector<double>;

Owned bases(const Values& b) { return zvhost::matrixOf<double>(1, b.size(), std::span<const double>(b)); }

// The permutations of a list of bases, one per cell.
std::vector<Values> computed(const Values& b) {
    Owned in = bases(b);
    auto out = zvhost::call(haltonset::computeRR2Perm, 1, {in.get()});
    const ndArray* cell = out[0].get();
    EXPECT_EQ(ndGetClassID(cell), ndCELL_CLASS);
    EXPECT_EQ(ndGetM(cell), 1u);
    EXPECT_EQ(ndGetN(cell), b.size());
    std::vector<Values> perms;
    for (size_t i = 0; i < ndGetNumberOfElements(cell); ++i) {
        const ndArray* perm = ndGetCell(cell, i);
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

TEST(HaltonPermutation, SmallBasesByHand) {
    zvtest::LeakCheck leaks;
    // Base 5 uses 3-bit counters; reversed they run 0 4 2 6 1 5 3 7, and the
    // values below 5 stay.
    const auto p = computed({2, 3, 5, 8});
    EXPECT_EQ(p[0], (Values{0, 1}));
    EXPECT_EQ(p[1], (Values{0, 2, 1}));
    EXPECT_EQ(p[2], (Values{0, 4, 2, 1, 3}));
    EXPECT_EQ(p[3], (Values{0, 4, 2, 6, 1, 5, 3, 7}));  // a power of two: the plain bit reversal
}

TEST(HaltonPermutation, BasesZeroAndOneAndEmptyInput) {
    zvtest::LeakCheck leaks;
    const auto p = computed({0, 1});
    EXPECT_TRUE(p[0].empty());
    EXPECT_EQ(p[1], (Values{0}));
    EXPECT_TRUE(computed({}).empty());
    Owned none = zvhost::matrixOf<double>(0, 0);
    auto out = zvhost::call(haltonset::computeRR2Perm, 1, {none.get()});
    EXPECT_EQ(ndGetM(out[0].get()), 1u);
    EXPECT_EQ(ndGetN(out[0].get()), 0u);
}

TEST(HaltonPermutation, BasesAreTruncatedToUnsignedIntegers) {
    zvtest::LeakCheck leaks;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const auto p = computed({5.9, -3, nan, 2.5});
    EXPECT_EQ(p[0], (Values{0, 4, 2, 1, 3}));
    EXPECT_TRUE(p[1].empty());
    EXPECT_TRUE(p[2].empty());
    EXPECT_EQ(p[3], (Values{0, 1}));
}

TEST(HaltonPermutation, EveryComputedPermutationIsOneOfItsBase) {
    zvtest::LeakCheck leaks;
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
}

TEST(HaltonPermutation, TableWithBaseOneOrZero) {
    zvtest::LeakCheck leaks;
    Owned table = zvtest::cellOfRows({{1, 0}, {3, 0, 2, 1}});
    EXPECT_EQ(raisedId([&] { fromTable(1, table.get()); }), "stats:haltonset:NoPermDataForBase");
    // b = 0 counts as 32 bits (b - 1 wraps): element 31 must exist, and no value is needed.
    EXPECT_EQ(raisedId([&] { fromTable(0, table.get()); }), "stats:haltonset:NoPermDataForBase");
    Owned long32 = zvtest::cellOfRows(std::vector<Values>(32, Values{0}));
    EXPECT_TRUE(fromTable(0, long32.get()).empty());
    Owned long31 = zvtest::cellOfRows(std::vector<Values>(31, Values{0}));
    EXPECT_EQ(raisedId([&] { fromTable(0, long31.get()); }), "stats:haltonset:NoPermDataForBase");
}

TEST(HaltonPermutation, TableElementWithoutEnoughValuesRaisesInsteadOfRunningOff) {
    zvtest::LeakCheck leaks;
    Owned shortElement = zvtest::cellOfRows({{1, 0}, {3, 0, 1}});  // 2 missing
    EXPECT_EQ(raisedId([&] { fromTable(3, shortElement.get()); }), "stats:haltonset:NoPermDataForBase");
    Owned emptySlot = zvtest::cellOfRows({{1, 0}, {}}, {false, true});
    EXPECT_EQ(raisedId([&] { fromTable(3, emptySlot.get()); }), "stats:haltonset:NoPermDataForBase");
    Owned singles(ndCreateCellMatrix(1, 2));
    ndSetCell(singles.get(), 1, zvhost::matrixOf<float>(1, 4, {0.f, 2.f, 1.f, 3.f}).release());
    EXPECT_EQ(raisedId([&] { fromTable(3, singles.get()); }), "stats:haltonset:NoPermDataForBase");
    Owned notACell = zvhost::matrixOf<double>(1, 4, {0, 2, 1, 3});
    EXPECT_EQ(raisedId([&] { fromTable(3, notACell.get()); }), "stats:haltonset:NoPermDataForBase");
}

TEST(HaltonPermutation, IdentifiersInOrder) {
    zvtest::LeakCheck leaks;
    Owned two = bases({2, 3});
    Owned table = zvtest::cellOfRows({});
    EXPECT_EQ(raisedId([&] { zvhost::call(haltonset::computeRR2Perm, 1, {}); }),
              "stats:haltonset:NumInputsComputeRR2Perm");
    EXPECT_EQ(raisedId([&] { zvhost::call(haltonset::computeRR2Perm, 1, {two.get(), table.get(), table.get()}); }),
              "stats:haltonset:NumInputsComputeRR2Perm");
    // More than one base is refused before the table is looked at.
    EXPECT_EQ(raisedId([&] { zvhost::call(haltonset::computeRR2Perm, 1, {two.get(), table.get()}); }),
              "stats:haltonset:OnlyOneBasePerm");
    Owned one = bases({2});
    EXPECT_EQ(raisedId([&] { zvhost::call(haltonset::computeRR2Perm, 1, {one.get(), table.get()}); }),
              "stats:haltonset:NoPermDataForBase");
    // numOutputs is not tested.
    EXPECT_EQ(raisedId([&] { zvhost::call(haltonset::computeRR2Perm, 3, {one.get()}); }), "");
}

TEST(HaltonPermutation, FailedAllocationLeavesNothingBehind) {
    zvtest::LeakCheck leaks;
    Owned b = bases({3, 5, 7, 11});
    for (long at = 1; at <= 5; ++at) {
        zvhost::failAllocationAt(at, zvhost::kArrays);
        EXPECT_THROW(zvhost::call(haltonset::computeRR2Perm, 1, {b.get()}), std::bad_alloc) << at;
    }
    zvhost::failAllocationAt(0);
}

}  // namespace

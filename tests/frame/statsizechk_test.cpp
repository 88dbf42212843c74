// statsizechkBIF: agreement of parameter sizes and size arguments.
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

struct SizeResult {
    double flag;
    std::vector<double> size;
    double total;
};

SizeResult check(const std::vector<const ndArray*>& inputs) {
    auto out = zvhost::call(statsizechkBIF, 3, inputs);
    return {ndGetScalar(out[0].get()), zvhost::valuesOf<double>(out[1].get()), ndGetScalar(out[2].get())};
}

TEST(StatSizeChk, AgreementAndDisagreement) {
    Owned two = zvhost::scalar(2), three = zvhost::scalar(3), one = zvhost::scalar(1);
    Owned a = zvhost::matrixOf<double>(2, 3), b = zvhost::matrixOf<double>(2, 3);
    Owned c = zvhost::matrixOf<double>(3, 2), s = zvhost::scalar(4), e = zvhost::matrixOf<double>(0, 0);

    auto r = check({three.get(), a.get(), b.get(), s.get()});
    EXPECT_EQ(r.flag, 0);
    EXPECT_EQ(r.size, (std::vector<double>{2, 3}));
    EXPECT_EQ(r.total, 6);

    Owned sizeTwo = zvhost::scalar(2), sizeThree = zvhost::scalar(3);
    r = check({one.get(), a.get(), sizeTwo.get(), sizeThree.get(), one.get()});
    EXPECT_EQ(r.flag, 0);
    EXPECT_EQ(r.size, (std::vector<double>{2, 3}));  // trailing 1 dropped

    r = check({two.get(), a.get(), c.get()});
    EXPECT_EQ(r.flag, 1);
    EXPECT_TRUE(r.size.empty());
    EXPECT_EQ(r.total, 0);

    r = check({two.get(), e.get(), s.get()});  // empty is no scalar
    EXPECT_EQ(r.flag, 0);
    EXPECT_EQ(r.size, (std::vector<double>{0, 0}));
    EXPECT_EQ(r.total, 0);

    r = check({one.get(), s.get()});  // all scalars, no size arguments
    EXPECT_EQ(r.size, (std::vector<double>{1, 1}));
    EXPECT_EQ(r.total, 1);

    // A vector of sizes, with trailing ones to drop, against an N-d parameter.
    size_t dims[3] = {2, 3, 4};
    Owned nd(ndCreateNumericArray(3, dims, ndDOUBLE_CLASS, ndREAL));
    Owned sizes = zvhost::matrixOf<double>(1, 5, {2, 3, 4, 1, 1});
    r = check({one.get(), nd.get(), sizes.get()});
    EXPECT_EQ(r.size, (std::vector<double>{2, 3, 4}));
    EXPECT_EQ(r.total, 24);

    // 2.7 parameters count as 2: the third input is then a size argument.
    Owned np = zvhost::scalar(2.7);
    r = check({np.get(), a.get(), b.get(), sizeTwo.get(), sizeThree.get()});
    EXPECT_EQ(r.flag, 0);
    EXPECT_EQ(r.total, 6);
}

TEST(StatSizeChk, LongSizeListsComeFromHostScratch) {
    Owned one = zvhost::scalar(1), p = zvhost::scalar(5);
    std::vector<const ndArray*> ten{one.get(), p.get()}, eleven{one.get(), p.get()};
    for (int k = 0; k < 10; ++k) ten.push_back(one.get());
    for (int k = 0; k < 11; ++k) eleven.push_back(one.get());
    zvtest::LeakCheck leaks;
    zvhost::failAllocationAt(1, zvhost::kScratch);
    EXPECT_NO_THROW(zvhost::call(statsizechkBIF, 3, ten));
    EXPECT_THROW(zvhost::call(statsizechkBIF, 3, eleven), std::bad_alloc);
    zvhost::failAllocationAt(0);
    EXPECT_EQ(check(eleven).size, (std::vector<double>{1, 1}));
}

TEST(StatSizeChk, OtherClassesGoToTheHostFunction) {
    Owned one = zvhost::scalar(1);
    Owned cell(ndCreateCellMatrix(1, 1));
    std::vector<int> seen;
    zvhost::registerFunction("internal.stats.statsizechkM", [&](int nout, ndArray** out, int nin, const ndArray** in) {
        seen = {nout, nin};
        EXPECT_EQ(in[0], cell.get());
        out[0] = ndCreateDoubleScalar(42);
    });
    auto out = zvhost::call(statsizechkBIF, 2, {cell.get(), one.get()});
    EXPECT_EQ(seen, (std::vector<int>{2, 2}));
    EXPECT_EQ(ndGetScalar(out[0].get()), 42);
    EXPECT_FALSE(out[1]);
    zvhost::unregisterFunction("internal.stats.statsizechkM");
}

TEST(StatSizeChk, Identifiers) {
    Owned one = zvhost::scalar(1), yes = zvhost::logicalScalar(true), t = zvhost::text("a");
    Owned nan = zvhost::scalar(std::nan("")), neg = zvhost::scalar(-1), big = zvhost::scalar(3);
    Owned pair = zvhost::matrixOf<double>(1, 2, {1, 2});
    zvhost::resetCallLog();
    auto id = [&](int nout, std::vector<const ndArray*> in) {
        return raisedId([&] { zvhost::call(statsizechkBIF, nout, in); });
    };
    EXPECT_EQ(id(1, {one.get()}), "stats:statsizechk:TooFewInputs");
    EXPECT_EQ(id(4, {one.get(), one.get()}), "stats:statsizechk:TooManyOutputs");
    EXPECT_EQ(id(1, {yes.get(), one.get()}), "stats:statsizechk:BadNParams");
    EXPECT_EQ(id(1, {t.get(), one.get()}), "stats:statsizechk:BadNParams");
    EXPECT_EQ(id(1, {pair.get(), one.get()}), "stats:statsizechk:BadNParams");
    EXPECT_EQ(id(1, {nan.get(), one.get()}), "stats:statsizechk:BadNParams");
    EXPECT_EQ(id(1, {neg.get(), one.get()}), "stats:statsizechk:BadNParams");
    EXPECT_EQ(id(1, {big.get(), one.get()}), "stats:statsizechk:WrongNumInputs");
    EXPECT_TRUE(zvhost::callLog().empty());
}

TEST(StatSizeChk, OnlyTheAskedSlotsAreTouched) {
    Owned one = zvhost::scalar(1), a = zvhost::matrixOf<double>(2, 2);
    for (int nout : {0, 1}) {
        auto out = zvhost::call(statsizechkBIF, nout, {one.get(), a.get()});
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(ndGetScalar(out[0].get()), 0);
    }
    auto out = zvhost::call(statsizechkBIF, 2, {one.get(), a.get()});
    EXPECT_EQ(zvhost::valuesOf<double>(out[1].get()), (std::vector<double>{2, 2}));
}

}  // namespace

// statsizechkBIF: agreement of parameter sizes and size arguments, the
// hand-over of other classes to the host's function, identifiers in order.
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
using Sizes = std::vector<double>;
using Inputs = std::vector<const ndArray*>;

constexpr const char* kHostFunction = "internal.stats.statsizechkM";

struct SizeResult {
    double flag;
    Sizes size;
    double total;
    bool operator==(const SizeResult&) const = default;
    friend std::ostream& operator<<(std::ostream& o, const SizeResult& r) {
        o << "flag " << r.flag << ", total " << r.total << ", size";
        for (double d : r.size) o << " " << d;
        return o;
    }
};

SizeResult check(const Inputs& inputs) {
    auto out = zvhost::call(statsizechkBIF, 3, inputs);
    EXPECT_EQ(ndGetClassID(out[1].get()), ndDOUBLE_CLASS);
    if (out[0] && ndGetScalar(out[0].get()) == 1) EXPECT_EQ(ndGetM(out[1].get()), 0u);  // 0-by-0
    return {ndGetScalar(out[0].get()), zvhost::valuesOf<double>(out[1].get()), ndGetScalar(out[2].get())};
}

Owned zeros(std::vector<size_t> dims, ndClassID cls = ndDOUBLE_CLASS) {
    return Owned(ndCreateNumericArray(dims.size(), dims.data(), cls, ndREAL));
}

std::string idOf(int nout, const Inputs& inputs) {
    return raisedId([&] { zvhost::call(statsizechkBIF, nout, inputs); });
}

TEST(StatSizeChk, SizesThatAgreeOrNot) {
    Owned n0 = zvhost::scalar(0), n1 = zvhost::scalar(1), n2 = zvhost::scalar(2), n3 = zvhost::scalar(3);
    Owned s1 = zvhost::scalar(1), s2 = zvhost::scalar(2), s3 = zvhost::scalar(3), s4 = zvhost::scalar(4);
    Owned m23 = zvhost::matrixOf<double>(2, 3), m32 = zvhost::matrixOf<double>(3, 2), e00 = zeros({0, 0});
    Owned e03 = zeros({0, 3}), e02 = zeros({0, 2}), nd234 = zeros({2, 3, 4}), nd2311 = zeros({2, 3, 1, 1});
    Owned nd232 = zeros({2, 3, 2}), i8 = zeros({4, 1}, ndINT8_CLASS), np32 = Owned(ndCreateSingleScalar(1));
    Owned npInt = zeros({1, 1}, ndINT32_CLASS), chars = zvhost::text("abc"), npFrac = zvhost::scalar(2.7);
    Owned logicals(ndCreateLogicalMatrix(1, 2)), sparseZero(zvhost::createSparse(1, 1, 0));
    Owned vec23 = zvhost::matrixOf<double>(1, 2, {2, 3}), vec232 = zvhost::matrixOf<double>(1, 3, {2, 3, 2});
    Owned vec23411 = zvhost::matrixOf<double>(1, 5, {2, 3, 4, 1, 1});
    *static_cast<int32_t*>(ndGetData(npInt.get())) = 1;
    const std::pair<Inputs, SizeResult> cases[] = {
        {{n3.get(), m23.get(), s4.get(), m23.get()}, {0, {2, 3}, 6}},
        {{n2.get(), s4.get(), m23.get()}, {0, {2, 3}, 6}},
        {{n1.get(), m23.get(), s2.get(), s3.get(), s1.get()}, {0, {2, 3}, 6}},  // trailing 1 dropped
        {{n1.get(), m23.get(), vec23.get()}, {0, {2, 3}, 6}},                   // one vector of sizes
        {{n1.get(), nd234.get(), vec23411.get()}, {0, {2, 3, 4}, 24}},
        {{n1.get(), nd234.get(), s2.get(), s3.get(), s4.get()}, {0, {2, 3, 4}, 24}},
        {{n2.get(), nd2311.get(), m23.get()}, {0, {2, 3}, 6}},
        {{n1.get(), s4.get(), s1.get(), s1.get(), s1.get()}, {0, {1, 1}, 1}},
        {{n2.get(), e00.get(), s4.get()}, {0, {0, 0}, 0}},  // empty is no scalar
        {{n1.get(), s4.get()}, {0, {1, 1}, 1}},             // all scalars, no sizes
        {{n0.get(), s4.get(), s2.get()}, {0, {4, 2}, 8}},
        {{n0.get(), s3.get()}, {0, {3, 3}, 9}},             // one scalar size: a square
        {{n0.get(), sparseZero.get(), s3.get()}, {0, {0, 3}, 0}},  // a sparse size is read by its value
        // 2.7 parameters count as 2: the third input is then a size argument.
        {{npFrac.get(), m23.get(), m23.get(), s2.get(), s3.get()}, {0, {2, 3}, 6}},
        {{npInt.get(), i8.get()}, {0, {4, 1}, 4}},
        {{np32.get(), logicals.get()}, {0, {1, 2}, 2}},
        {{n1.get(), chars.get()}, {0, {1, 3}, 3}},
        // Disagreements are a result, not an error.
        {{n2.get(), m23.get(), m32.get()}, {1, {}, 0}},
        {{n1.get(), m23.get(), s3.get(), s2.get()}, {1, {}, 0}},
        {{n1.get(), m23.get(), vec232.get()}, {1, {}, 0}},
        {{n2.get(), m23.get(), nd232.get()}, {1, {}, 0}},
        {{n2.get(), e03.get(), e02.get()}, {1, {}, 0}},
        {{n1.get(), e00.get(), s4.get()}, {1, {}, 0}},
    };
    zvtest::LeakCheck leaks;
    for (const auto& [inputs, want] : cases) EXPECT_EQ(check(inputs), want) << inputs.size();
}

TEST(StatSizeChk, OnlyTheAskedSlotsAreFilled) {
    Owned one = zvhost::scalar(1), two = zvhost::scalar(2), a = zvhost::matrixOf<double>(2, 2);
    Owned b = zvhost::matrixOf<double>(2, 3);
    for (int nout : {0, 1})
        for (const auto& [second, flag] : {std::pair{a.get(), 0.0}, std::pair{b.get(), 1.0}}) {
            auto out = zvhost::call(statsizechkBIF, nout, {two.get(), a.get(), second});
            ASSERT_EQ(out.size(), 1u);
            EXPECT_EQ(ndGetScalar(out[0].get()), flag);
        }
    auto out = zvhost::call(statsizechkBIF, 2, {one.get(), a.get()});
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(zvhost::valuesOf<double>(out[1].get()), (Sizes{2, 2}));
}

TEST(StatSizeChk, LongSizeListsComeFromHostScratch) {
    Owned one = zvhost::scalar(1), p = zvhost::scalar(5);
    Inputs ten{one.get(), p.get()};
    ten.insert(ten.end(), 10, one.get());
    Inputs eleven = ten;
    eleven.push_back(one.get());
    zvtest::LeakCheck leaks;
    zvhost::failAllocationAt(1, zvhost::kScratch);
    EXPECT_NO_THROW(zvhost::call(statsizechkBIF, 3, ten));
    EXPECT_THROW(zvhost::call(statsizechkBIF, 3, eleven), std::bad_alloc);
    zvhost::failAllocationAt(0);
    EXPECT_EQ(check(eleven).size, Sizes(2, 1.0));
}

TEST(StatSizeChk, OtherClassesGoToTheHostFunctionUnchanged) {
    Owned one = zvhost::scalar(1), yes = zvhost::logicalScalar(true), chars = zvhost::text("np");
    Owned cell(ndCreateCellMatrix(1, 1)), gpu(zvhost::createHostObject("gpuArray"));
    Owned handle(zvhost::createFunctionHandle("sin")), text(zvhost::createStringObject(u"text"));
    Owned a = zvhost::matrixOf<double>(2, 3), two = zvhost::scalar(2), three = zvhost::scalar(3);
    // A handle after a logical np: the hand-over comes before BadNParams.
    const Inputs calls[] = {{cell.get(), one.get()}, {one.get(), a.get(), cell.get()},
                            {one.get(), a.get(), two.get(), three.get(), gpu.get()},
                            {yes.get(), handle.get()}, {chars.get(), text.get()}};
    for (int nout : {0, 1, 3})
        for (const Inputs& inputs : calls) {
            std::vector<int> seen;
            zvhost::registerFunction(kHostFunction, [&](int n, ndArray** out, int nin, const ndArray** in) {
                seen = {n, nin};
                EXPECT_EQ(Inputs(in, in + nin), inputs);
                out[0] = ndCreateDoubleScalar(42);
            });
            zvhost::resetCallLog();
            auto out = zvhost::call(statsizechkBIF, nout, inputs);
            EXPECT_EQ(seen, (std::vector<int>{nout, int(inputs.size())}));
            EXPECT_EQ(zvhost::callLog(), std::vector<std::string>{kHostFunction});
            EXPECT_EQ(ndGetScalar(out[0].get()), 42);
            for (size_t k = 1; k < out.size(); ++k) EXPECT_FALSE(out[k]);
        }
    // Its failures pass through; without it, the host's own error.
    zvhost::registerFunction(kHostFunction, [](int, ndArray**, int, const ndArray**) {
        ndErrMsgId(stats::randg::BadInputType());
    });
    EXPECT_EQ(idOf(1, {one.get(), cell.get()}), "stats:randg:BadInputType");
    zvhost::unregisterFunction(kHostFunction);
    EXPECT_EQ(idOf(1, {one.get(), cell.get()}), "zvhost:UndefinedFunction");
}

TEST(StatSizeChk, IdentifiersInOrder) {
    Owned one = zvhost::scalar(1), yes = zvhost::logicalScalar(true), t = zvhost::text("a");
    Owned nan = zvhost::scalar(std::nan("")), neg = zvhost::scalar(-1), three = zvhost::scalar(3);
    Owned pair = zvhost::matrixOf<double>(1, 2, {1, 2}), empty = zeros({0, 0}), half = zvhost::scalar(3.5);
    Owned fraction = zvhost::scalar(2.5);
    zvhost::resetCallLog();
    const std::string p = "stats:statsizechk:";
    EXPECT_EQ(idOf(1, {}), p + "TooFewInputs");
    EXPECT_EQ(idOf(1, {one.get()}), p + "TooFewInputs");
    EXPECT_EQ(idOf(4, {one.get(), one.get()}), p + "TooManyOutputs");
    for (const Owned* np : {&yes, &t, &pair, &empty, &nan, &neg}) EXPECT_EQ(idOf(1, {np->get(), one.get()}), p + "BadNParams");
    EXPECT_EQ(idOf(1, {three.get(), one.get()}), p + "WrongNumInputs");
    EXPECT_EQ(idOf(1, {half.get(), one.get(), one.get()}), p + "WrongNumInputs");
    EXPECT_EQ(idOf(1, {one.get(), one.get(), fraction.get()}), "zvhost:NonIntegerSize");
    EXPECT_TRUE(zvhost::callLog().empty());
}

}  // namespace

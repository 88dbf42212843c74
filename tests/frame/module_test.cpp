// Module functions, load-time constants and probeCallFunction.
#include <cmath>
#include <cstring>

#include "frame/constants.hpp"
#include "frame/gateway.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;

TEST(Module, ConstantsAreSetAtLoad) {
    uint64_t bits;
    std::memcpy(&bits, &zv::constants::nan, 8);
    EXPECT_EQ(bits, 0xFFF8000000000000ull);
    EXPECT_TRUE(std::isinf(zv::constants::inf));
    EXPECT_EQ(zv::constants::eps, std::ldexp(1.0, -52));
}

TEST(ProbeCallFunction, CallsTheNamedFunctionWithTheRestOfTheInputs) {
    zvtest::LeakCheck leaks;
    auto out = zvhost::call(probeCallFunction, 1, {});  // no input: the slots stay alone
    ASSERT_EQ(out.size(), 1u);
    EXPECT_FALSE(out[0]);
    Owned twice = zvhost::text("twice"), failing = zvhost::text("failing"), x = zvhost::scalar(21);
    zvhost::registerFunction("twice", [](int nout, ndArray** out, int nin, const ndArray** in) {
        EXPECT_EQ(nout, 1);
        ASSERT_EQ(nin, 1);
        out[0] = ndCreateDoubleScalar(2 * ndGetScalar(in[0]));
    });
    zvhost::registerFunction("failing", [](int, ndArray**, int, const ndArray**) {
        ndErrMsgId(stats::pdistbif::BadInputType());
    });
    EXPECT_EQ(ndGetScalar(zvhost::call(probeCallFunction, 1, {twice.get(), x.get()})[0].get()), 42);
    // A failure reaches the caller as its own exception, the handles' copy freed.
    EXPECT_EQ(zvtest::raisedId([&] { zvhost::call(probeCallFunction, 1, {failing.get()}); }),
              "stats:pdistbif:BadInputType");
    Owned missing = zvhost::text("no.such.function");
    EXPECT_EQ(zvtest::raisedId([&] { zvhost::call(probeCallFunction, 1, {missing.get()}); }),
              "zvhost:UndefinedFunction");
    zvhost::unregisterFunction("twice");
    zvhost::unregisterFunction("failing");
}

}  // namespace

namespace {

using zvhost::Owned;

// A gateway in the fixed-error form: at most 1 output, 2 to 3 inputs.
int fixedFormReturns = 0;
void fixedFormGateway(int numOutputs, ndArray** outputs, int numInputs, const ndArray**) {
    if (zv::fixedCountsSayReturn(numOutputs, 1, numInputs, 2, 3)) {
        ++fixedFormReturns;
        return;
    }
    outputs[0] = ndCreateDoubleScalar(1);
}

TEST(GatewayFrame, FixedCountErrorsTestOutputsFirstAndReturnOnZeroOutputs) {
    Owned a = zvhost::scalar(1);
    auto id = [&](int nout, std::vector<const ndArray*> in) {
        return zvtest::raisedId([&] { zvhost::call(fixedFormGateway, nout, in); });
    };
    EXPECT_EQ(id(2, {a.get()}), "zvhost:TooManyOutputs");  // both wrong: outputs win
    EXPECT_EQ(id(1, {a.get()}), "zvhost:TooFewInputs");
    EXPECT_EQ(id(1, {a.get(), a.get(), a.get(), a.get()}), "zvhost:TooManyInputs");
    auto out = zvhost::call(fixedFormGateway, 0, {a.get(), a.get()});
    EXPECT_FALSE(out[0]);
    EXPECT_EQ(fixedFormReturns, 1);
}

TEST(GatewayFrame, CheckedConversionsHaveNoUndefinedCases) {
    using zv::checked::truncateSaturated;
    EXPECT_EQ(truncateSaturated<int32_t>(2.7), 2);
    EXPECT_EQ(truncateSaturated<int32_t>(-2.7), -2);
    EXPECT_EQ(truncateSaturated<int32_t>(std::nan(""), -1), -1);
    EXPECT_EQ(truncateSaturated<int32_t>(1e300), INT32_MAX);
    EXPECT_EQ(truncateSaturated<int32_t>(-INFINITY), INT32_MIN);
    EXPECT_EQ(zv::checked::toSize(-5.0), 0u);
    EXPECT_EQ(zv::checked::toSize(1e30), SIZE_MAX);
    EXPECT_EQ(zv::checked::toSize(18446744073709549568.0), 18446744073709549568ull);
    EXPECT_TRUE(zv::reachesElementLimit(281474976710655.0));
    EXPECT_FALSE(zv::reachesElementLimit(281474976710654.0));
    EXPECT_TRUE(zv::reachesElementLimit(std::nan("")));
}

}  // namespace

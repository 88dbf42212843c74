// Module functions, load-time constants and probeCallFunction.
#include <cmath>
#include <cstring>

#include "frame/constants.hpp"
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

TEST(ProbeCallFunction, NoInputLeavesTheSlotsAlone) {
    auto out = zvhost::call(probeCallFunction, 1, {});
    ASSERT_EQ(out.size(), 1u);
    EXPECT_FALSE(out[0]);
}

TEST(ProbeCallFunction, CallsTheNamedFunctionWithTheRestOfTheInputs) {
    Owned name = zvhost::text("twice"), x = zvhost::scalar(21);
    zvhost::registerFunction("twice", [](int nout, ndArray** out, int nin, const ndArray** in) {
        EXPECT_EQ(nout, 1);
        ASSERT_EQ(nin, 1);
        out[0] = ndCreateDoubleScalar(2 * ndGetScalar(in[0]));
    });
    auto out = zvhost::call(probeCallFunction, 1, {name.get(), x.get()});
    EXPECT_EQ(ndGetScalar(out[0].get()), 42);
    zvhost::unregisterFunction("twice");
}

TEST(ProbeCallFunction, AFailureReachesTheCallerAsItsOwnException) {
    Owned name = zvhost::text("failing");
    zvhost::registerFunction("failing", [](int, ndArray**, int, const ndArray**) {
        ndErrMsgId(stats::pdistbif::BadInputType());
    });
    zvtest::LeakCheck leaks;
    EXPECT_EQ(zvtest::raisedId([&] { zvhost::call(probeCallFunction, 1, {name.get()}); }),
              "stats:pdistbif:BadInputType");
    Owned missing = zvhost::text("no.such.function");
    EXPECT_EQ(zvtest::raisedId([&] { zvhost::call(probeCallFunction, 1, {missing.get()}); }),
              "zvhost:UndefinedFunction");
    zvhost::unregisterFunction("failing");
}

}  // namespace

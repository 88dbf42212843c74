// The shared gateway frame: scratch owners, the reader of host arrays as T,
// output hand-over, option tables, BLAS past 32-bit counts, and the frame
// that turns a foreign length error into the host's allocation failure.
#include <climits>
#include <stdexcept>
#include <vector>

#include "frame/blas.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "frame/options.hpp"
#include "frame/scratch.hpp"
#include "support/gateways.hpp"

namespace {

using zvhost::Owned;

TEST(Scratch, FailuresRaiseTheFamilyIdentifierWithTheBytesOrTheHostFailure) {
    using OutOfMemory = stats::classreg::learning::omputils::omp::UnableToAllocateMemory;
    zvtest::LeakCheck leaks;
    for (zv::Heap heap : {zv::Heap::host, zv::Heap::worker}) {
        zvhost::failAllocationAt(1, heap == zv::Heap::host ? zvhost::kScratch : zvhost::kWorkerScratch);
        try {
            zv::Scratch<double, OutOfMemory> s(5, heap);
            ADD_FAILURE() << "no error";
        } catch (const bedrock::core::except::IMsgIDException& e) {
            EXPECT_EQ(e.GetID(), "stats:classreg:learning:omputils:omp:UnableToAllocateMemory");
            EXPECT_EQ(std::get<long>(e.GetBaseMsgIDObj().args.at(0)), 40);
        }
    }
    EXPECT_THROW(zv::Scratch<double>(SIZE_MAX / 4), std::bad_alloc);
    const zv::Scratch<float> aligned(3, 1.5f, zv::Heap::alignedWorker);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(aligned.get()) % zv::kCacheLine, 0u);
    EXPECT_EQ(std::vector<float>(aligned.begin(), aligned.end()), std::vector<float>(3, 1.5f));
}

TEST(HostValues, BorrowsDenseValuesAndConvertsOrPadsAnythingElse) {
    Owned d = zvhost::matrixOf<double>(2, 2, {1, 2, 3, 4});
    const zv::HostValues<double> borrowed(d.get(), 3, -1);
    EXPECT_TRUE(borrowed.borrowed());
    EXPECT_EQ(borrowed.data(), ndGetData(d.get()));

    // Short, another class, an object or an empty array: converted, padded.
    Owned i = zvhost::matrixOf<int32_t>(1, 2, {7, -8});
    const zv::HostValues<double> fromInt(i.get(), 4, -1);
    EXPECT_EQ(std::vector<double>(fromInt.data(), fromInt.data() + 4), (std::vector<double>{7, -8, -1, -1}));
    Owned object(zvhost::createHostObject("gpuArray")), empty = zvhost::matrixOf<double>(0, 0);
    for (const ndArray* a : {object.get(), empty.get()}) {
        const zv::HostValues<double> v(a, 2, 9);
        EXPECT_EQ(std::vector<double>(v.data(), v.data() + 2), (std::vector<double>{9, 9}));
    }
    // Floating values become integers by saturation: NaN is 0.
    Owned nan = zvhost::matrixOf<double>(1, 3, {NAN, 1e300, -3.7});
    const zv::HostValues<int64_t> asInt(nan.get(), 3, 0);
    EXPECT_EQ(std::vector<int64_t>(asInt.data(), asInt.data() + 3), (std::vector<int64_t>{0, INT64_MAX, -3}));

    // A sparse 3-by-2 with (1,0) = 5 and (2,1) = 6, as a 2-by-2 view: the
    // zeros it does not store are zeros, the row it lacks in the view is cut.
    Owned s(zvhost::createSparse(3, 2, 2));
    double* sv = static_cast<double*>(ndGetData(s.get()));
    sv[0] = 5, sv[1] = 6;
    ndGetRowIndices(s.get())[0] = 1, ndGetRowIndices(s.get())[1] = 2;
    size_t* starts = ndGetColumnStarts(s.get());
    starts[0] = 0, starts[1] = 1, starts[2] = 2;
    const auto view = zv::HostValues<float>::matrix(s.get(), 2, 3, -1);
    EXPECT_EQ(std::vector<float>(view.data(), view.data() + 6), (std::vector<float>{0, 5, 0, 0, -1, -1}));

    std::vector<double> squares(3);
    zv::HostValues<double>::copyInto(i.get(), squares.data(), 3, -1, [](double v) { return v * v; });
    EXPECT_EQ(squares, (std::vector<double>{49, 64, -1}));
}

TEST(HandOver, FillsTheAskedSlotsAndSlotZeroAlways) {
    zvtest::LeakCheck leaks;
    for (int numOutputs : {0, 1, 2, 3}) {
        ndArray* slots[3] = {};
        zv::handOver(slots, numOutputs, Owned(ndCreateDoubleScalar(1)), Owned(ndCreateDoubleScalar(2)));
        for (int k = 0; k < 2; ++k) {
            EXPECT_EQ(slots[k] != nullptr, k < std::max(numOutputs, 1)) << numOutputs << " " << k;
            if (slots[k]) ndDestroyArray(slots[k]);
        }
    }
}

TEST(Options, NamesMapToValuesExactly) {
    enum class Colour { Red, Green };
    static constexpr zv::OptionName<Colour> kColours[] = {{"red", Colour::Red}, {"green", Colour::Green}};
    EXPECT_EQ(zv::findOption(kColours, "green"), Colour::Green);
    EXPECT_FALSE(zv::findOption(kColours, "Green"));
    EXPECT_EQ(zv::optionName(kColours, Colour::Red), "red");
    Owned blue = zvhost::text("blue");
    EXPECT_EQ(zvtest::raisedId([&] { zv::parseOption<stats::clustering::ldautils::UnknownSolver>(kColours, blue.get()); }),
              "stats:clustering:ldautils:UnknownSolver");
}

// Leading dimensions past 32 bits take the loops; with one column nothing
// beyond the first is read, so small arrays show the same values as BLAS.
TEST(Blas, CountsPast32BitsGiveTheValuesOfBlas) {
    const size_t huge = size_t(INT_MAX) + 7;
    const std::vector<double> a = {1, 2, 3}, x = {4, 5, 6};
    for (const char* trans : {"N", "T"}) {
        const size_t m = 3, n = 1;
        std::vector<double> viaBlas = {1, 1, 1}, viaLoops = viaBlas;
        zv::blas::gemv(trans, m, n, 2.0, a.data(), 3, x.data(), 0.5, viaBlas.data());
        zv::blas::gemv(trans, m, n, 2.0, a.data(), huge, x.data(), 0.5, viaLoops.data());
        EXPECT_EQ(viaBlas, viaLoops) << trans;
    }
    double c1 = 7, c2 = 7;
    zv::blas::gemm("T", "N", 1, 1, 3, 1.0, a.data(), 3, x.data(), 3, 0.0, &c1, 1);
    zv::blas::gemm("T", "N", 1, 1, 3, 1.0, a.data(), 3, x.data(), 3, 0.0, &c2, huge);
    EXPECT_EQ(c1, c2);
    double s1 = 0, s2 = 0;
    zv::blas::syrk("L", "T", 1, 3, 1.0, a.data(), 3, 0.0, &s1, 1);
    zv::blas::syrk("L", "T", 1, 3, 1.0, a.data(), huge, 0.0, &s2, 1);
    EXPECT_EQ(s1, 14.0);
    EXPECT_EQ(s2, 14.0);
    // A square order no 32-bit count holds cannot exist: an allocation failure.
    std::vector<double> b(1);
    EXPECT_THROW(zv::blas::potrs("U", huge, 1, a.data(), huge, b.data(), huge), std::bad_alloc);
}

void lengthErrorBody(int, ndArray**, int, const ndArray**) { std::vector<double>().reserve(SIZE_MAX); }

TEST(GatewayFrame, AForeignLengthErrorIsTheHostsAllocationFailure) {
    EXPECT_THROW(zv::frame::runGateway(&lengthErrorBody, 1, nullptr, 0, nullptr), std::bad_alloc);
    EXPECT_THROW(lengthErrorBody(1, nullptr, 0, nullptr), std::length_error);
}

}  // namespace

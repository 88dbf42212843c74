// The reference host's arrays, scratch memory and call boundary.
#include <tbb/parallel_for.h>

#include <thread>

#include "support/gateways.hpp"

namespace {

using zvhost::Owned;

TEST(HostArrays, ShapesClassesAndText) {
    size_t dims[3] = {2, 3, 4};
    Owned a(ndCreateNumericArray(3, dims, ndSINGLE_CLASS, ndREAL));
    EXPECT_EQ(ndGetM(a.get()), 2u);
    EXPECT_EQ(ndGetN(a.get()), 12u);  // trailing dimensions fold into the columns
    EXPECT_EQ(ndGetNumberOfElements(a.get()), 24u);
    EXPECT_TRUE(ndIsNumeric(a.get()));
    size_t subs[3] = {1, 2, 3};
    EXPECT_EQ(ndCalcSingleSubscript(a.get(), 3, subs), 1u + 2 * 2 + 3 * 6);

    Owned t = zvhost::text("euclidean");
    char buf[4];
    ndGetString(t.get(), buf, sizeof buf);
    EXPECT_STREQ(buf, "euc");
    EXPECT_EQ(matrix::get_string(t.get()), "euclidean");
    EXPECT_FALSE(ndIsNumeric(t.get()));

    Owned yes = zvhost::logicalScalar(true);
    EXPECT_TRUE(ndIsLogicalScalarTrue(yes.get()));
    EXPECT_EQ(ndGetScalar(yes.get()), 1.0);
    Owned gpu(zvhost::createHostObject("gpuArray"));
    EXPECT_TRUE(ndIsClass(gpu.get(), "gpuArray"));
    EXPECT_NE(ndGetClassID(gpu.get()), ndDOUBLE_CLASS);
    Owned str(zvhost::createStringObject(u"like"));
    std::u16string out;
    EXPECT_TRUE(hostGetScalarText(str.get(), out, 0));
    EXPECT_EQ(out, u"like");
    EXPECT_THROW(hostUstringToAscii(u"\u00e9", 1), bedrock::ustring::CtypeInvalidCharacter);
}

TEST(HostArrays, CellsOwnTheirElementsAndSharedCopiesShareStorage) {
    zvtest::LeakCheck leaks;
    {
        Owned cell(ndCreateCellMatrix(1, 2));
        ndSetCell(cell.get(), 1, ndCreateDoubleScalar(5));
        EXPECT_EQ(ndGetScalar(ndGetCell(cell.get(), 1)), 5);
        Owned copy(ndDuplicateArray(cell.get()));
        EXPECT_NE(ndGetCell(copy.get(), 1), ndGetCell(cell.get(), 1));

        Owned a = zvhost::matrixOf<double>(1, 2, {1, 2});
        Owned shared = matrix::detail::do_shared_copy(a.get());
        static_cast<double*>(ndGetData(shared.get()))[0] = 9;
        EXPECT_EQ(zvhost::valuesOf<double>(a.get())[0], 9);
        a.reset();
        EXPECT_EQ(zvhost::valuesOf<double>(shared.get())[1], 2);  // storage outlives the first owner
    }
}

TEST(HostArrays, WorkersMayCreateReadAndDestroyDifferentArrays) {
    zvtest::LeakCheck leaks;
    tbb::parallel_for(0, 2000, [](int k) {
        Owned a = zvhost::matrixOf<double>(3, 1, {double(k), 1, 2});
        Owned c(ndCreateCellMatrix(1, 1));
        ndSetCell(c.get(), 0, ndDuplicateArray(a.get()));
        EXPECT_EQ(ndGetScalar(ndGetCell(c.get(), 0)), double(k));
        ndSetArrayScope(a.get(), 0);
        void* p = ndMallocEx(64);
        ndFreeEx(p);
    });
}

TEST(HostArrays, SizeArgumentsInTheHostConvention) {
    Owned v = zvhost::matrixOf<double>(1, 3, {2, -1, 4});
    const ndArray* args[] = {v.get()};
    size_t dims[3], ndim = 0;
    EXPECT_EQ(ndGetDims(1, args, dims, &ndim), 0u);  // negative sizes count as 0
    EXPECT_EQ(ndim, 3u);
    Owned bad = zvhost::scalar(std::nan(""));
    const ndArray* nanArgs[] = {bad.get(), bad.get()};
    EXPECT_EQ(zvtest::raisedId([&] { ndGetDims(2, nanArgs, dims, &ndim); }), "zvhost:NonIntegerSize");
    size_t huge[2] = {size_t(1) << 40, size_t(1) << 20};
    EXPECT_EQ(zvtest::raisedId([&] { ndCheckDim(huge, 2, 8); }), "zvhost:ArrayTooLarge");
}

// A gateway that leaves scratch behind, fills a slot and then fails.
void failingGateway(int, ndArray** outputs, int, const ndArray**) {
    ndMalloc(100);
    ndCalloc(3, 8);
    outputs[0] = ndCreateDoubleScalar(1);
    ndErrMsgId(stats::pdistbif::TooFewInputs());
}
void scratchGateway(int, ndArray** outputs, int, const ndArray**) {
    void* kept = ndMalloc(16);
    ndSetData(outputs[0] = ndCreateDoubleMatrix(0, 0, ndREAL), kept);  // the array takes it over
    ndSetM(outputs[0], 1);
    ndSetN(outputs[0], 2);
    ndMalloc(32);  // reclaimed when the call ends
}

TEST(HostBoundary, FailureDestroysSlotsAndReclaimsScratch) {
    zvtest::LeakCheck leaks;
    EXPECT_EQ(zvtest::raisedId([] { zvhost::call(failingGateway, 0, {}); }), "stats:pdistbif:TooFewInputs");
    auto out = zvhost::call(scratchGateway, 1, {});
    EXPECT_EQ(ndGetNumberOfElements(out[0].get()), 2u);
}

TEST(HostBoundary, AllocationFaultsByKind) {
    zvtest::LeakCheck leaks;
    zvhost::failAllocationAt(2, zvhost::kArrays);
    Owned first(ndCreateDoubleScalar(1));
    EXPECT_THROW(ndCreateDoubleScalar(2), std::bad_alloc);
    zvhost::failAllocationAt(1, zvhost::kWorkerScratch);
    EXPECT_EQ(ndMallocEx(8), nullptr);
    void* p = ndMallocEx(8);
    EXPECT_NE(p, nullptr);
    ndFreeEx(p);
}

TEST(HostBoundary, HostThreadServicesReportCallsFromWorkers) {
    zvhost::setStrictThreadChecks(true);
    const long before = zvhost::threadViolations();
    auto probe = [](int, ndArray**, int, const ndArray**) {
        std::string id;
        std::thread worker([&] { id = zvtest::raisedId([] { hostPrintf("from a worker\n"); }); });
        worker.join();
        EXPECT_EQ(id, "zvhost:NotOnHostThread");
        void* p = ndMallocEx(4);  // fine on any thread
        ndFreeEx(p);
    };
    zvhost::call(probe, 0, {});
    EXPECT_EQ(zvhost::threadViolations(), before + 1);
    zvhost::setStrictThreadChecks(false);
}

}  // namespace

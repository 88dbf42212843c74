// Control API of the reference host, for tests, the command-line host and the
// Python binding. The builtins library never sees this header.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/host.hpp"

// A host random stream. The standard one is MT19937 (std::mt19937, seeded
// with init_genrand); uniforms take 53 bits from two draws, (a>>5, b>>6), as
// numpy's legacy RandomState does, and a draw of exactly 0 is redrawn;
// normals come from a ziggurat of 256 layers fed with both words of a pair
// whole (a<<32 | b), with uniforms for its rare wedge and tail tests, one
// normal at a time, so that they do not depend on how requests are batched.
class ZV_HOST_API RandStream {
public:
    virtual ~RandStream();
    virtual void uniform(double* out, size_t n) = 0;
    virtual void normal(double* out, size_t n) = 0;
};

namespace zvhost {

using Gateway = void (*)(int, ndArray**, int, const ndArray**);

// ---- arrays the library cannot make itself --------------------------------
ZV_HOST_API ndArray* createCharRow(const std::u16string& text);
ZV_HOST_API ndArray* createSparse(size_t m, size_t n, size_t nnz);  // fill through nd* pointers
ZV_HOST_API ndArray* createComplexMatrix(size_t m, size_t n);
ZV_HOST_API ndArray* createHostObject(const std::string& className);  // "gpuArray", ...
ZV_HOST_API ndArray* createStringObject(const std::u16string& text);  // scalar "string"
ZV_HOST_API ndArray* createFunctionHandle(const std::string& name);
ZV_HOST_API ndArray* createStreamObject(std::shared_ptr<RandStream> stream);
ZV_HOST_API std::string className(const ndArray* a);
ZV_HOST_API std::u16string charData(const ndArray* a);
ZV_HOST_API size_t elementSize(ndClassID cls);
// The name a function handle refers to.
ZV_HOST_API std::string functionHandleName(const ndArray* a);

// ---- the call boundary ----------------------------------------------------
// Gives max(numOutputs, 1) empty slots, calls the gateway, and hands back the
// slots (some may be null). On failure destroys what stands in the slots,
// reclaims the call's scratch and rethrows the error.
ZV_HOST_API std::vector<ndArray*> callGateway(Gateway f, int numOutputs,
                                              std::span<const ndArray* const> inputs);

// Loads the builtins library with dlopen, as the real host does.
class ZV_HOST_API BuiltinsLibrary {
public:
    explicit BuiltinsLibrary(const std::string& path);
    ~BuiltinsLibrary();
    BuiltinsLibrary(const BuiltinsLibrary&) = delete;
    BuiltinsLibrary& operator=(const BuiltinsLibrary&) = delete;
    // A gateway by its C++ name ("pdistbif", "classregtree::growTree"), or null.
    Gateway find(std::string_view qualifiedName) const;
    void* symbol(const std::string& rawName) const;
    void initialize() const;
    void terminate() const;

private:
    void* handle_;
};
// The Itanium-ABI symbol of a gateway with the usual signature.
ZV_HOST_API std::string mangledGatewayName(std::string_view qualifiedName);
// The default location of the builtins library next to a program in bin/.
ZV_HOST_API std::string defaultLibraryPath();

// ---- accounting and fault injection ---------------------------------------
struct Usage {
    long liveArrays;        // arrays created and not destroyed
    long liveScratch;       // ndMalloc blocks not freed nor reclaimed
    long liveWorkerScratch; // ndMallocEx blocks not freed
};
ZV_HOST_API Usage usage();

enum AllocationKind : unsigned {
    kScratch = 1u,        // ndMalloc, ndCalloc, ndRealloc: raise
    kWorkerScratch = 2u,  // ndMallocEx: return null
    kArrays = 4u,         // ndCreate...: raise
    kAnyAllocation = 7u,
};
// Makes the n-th allocation of the given kinds from now on fail (n >= 1);
// n = 0 disarms.
ZV_HOST_API void failAllocationAt(long n, unsigned kinds = kAnyAllocation);
// Makes every single request for more than `bytes` (an array's storage,
// scratch, worker scratch) fail as on a host with only that much memory to
// give; 0 lifts the limit.
ZV_HOST_API void limitRequestBytes(size_t bytes);

// Services that belong to the host thread report a call from elsewhere by
// raising "zvhost:NotOnHostThread" when this is on.
ZV_HOST_API void setStrictThreadChecks(bool on);
ZV_HOST_API long threadViolations();

// ---- interruption ---------------------------------------------------------
// The n-th poll (n >= 1, counted from any thread) on this thread's handle
// during the next call raises the interruption; 0 disarms.
ZV_HOST_API void interruptAfterPolls(long n);
// Polls seen on this thread's handle since the last reset.
ZV_HOST_API long pollCount();
ZV_HOST_API void resetPollCount();
// Makes hostGetInterruptStateData give a null handle on this thread.
ZV_HOST_API void useNullInterruptHandle(bool on);
// Marks an interruption as pending on this thread's handle (async-signal-safe).
ZV_HOST_API void requestInterrupt() noexcept;
ZV_HOST_API void clearInterrupt() noexcept;

// The host's interruption, thrown by the polls.
class ZV_HOST_API Interrupted : public bedrock::core::except::HostError {
public:
    Interrupted();
    Interrupted* clone() const override;
    [[noreturn]] void rethrow() const override;
};

// ---- console --------------------------------------------------------------
// Collects console text (and counts flushes) while alive; nests.
class ZV_HOST_API ConsoleCapture {
public:
    ConsoleCapture();
    ~ConsoleCapture();
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;
    std::string text() const;
    long flushes() const;
    struct State;

private:
    std::unique_ptr<State> state_;
};
ZV_HOST_API std::vector<BaseMsgID> takeWarnings();
// The readable text the stub catalogue makes of an identifier.
ZV_HOST_API std::string messageText(const BaseMsgID& id);

// ---- the host's language --------------------------------------------------
using HostCallable = std::function<void(int numOutputs, ndArray** outputs, int numInputs,
                                        const ndArray** inputs)>;
ZV_HOST_API void registerFunction(const std::string& name, HostCallable fn);
ZV_HOST_API void unregisterFunction(const std::string& name);
ZV_HOST_API bool isRegistered(const std::string& name);
// The host's own "pdist" and "pdist2" (rows as observations, metric names)
// call the library's gateways, found by C++ name through the resolver; a
// registered function of the same name takes precedence. BuiltinsLibrary
// installs one on load; programs that link the library's objects install
// their own. `owner` lets an installer remove only what it installed.
using GatewayResolver = std::function<Gateway(std::string_view qualifiedName)>;
ZV_HOST_API void setGatewayResolver(GatewayResolver resolver, const void* owner = nullptr);
ZV_HOST_API void releaseGatewayResolver(const void* owner);
// Names of the calls made through hostCallFunction, in order, since reset.
ZV_HOST_API std::vector<std::string> callLog();
ZV_HOST_API void resetCallLog();

// ---- random streams -------------------------------------------------------
ZV_HOST_API std::shared_ptr<RandStream> makeStream(uint32_t seed);
struct StreamRequest {
    char kind;  // 'u' uniform, 'n' normal
    size_t count;
};
// Returns the given numbers, in order, to uniform and normal requests alike,
// and records each request; running out raises "zvhost:ScriptExhausted".
class ZV_HOST_API ScriptedStream : public RandStream {
public:
    explicit ScriptedStream(std::vector<double> numbers);
    void uniform(double* out, size_t n) override;
    void normal(double* out, size_t n) override;
    const std::vector<StreamRequest>& requests() const { return requests_; }

private:
    void take(char kind, double* out, size_t n);
    std::vector<double> numbers_;
    size_t next_ = 0;
    std::vector<StreamRequest> requests_;
};
ZV_HOST_API void seedDefaultStream(uint32_t seed);
ZV_HOST_API void setDefaultStream(std::shared_ptr<RandStream> stream);
ZV_HOST_API std::shared_ptr<RandStream> defaultStream();

// ---- fault probes ---------------------------------------------------------
ZV_HOST_API void armProbe(const std::string& name);
ZV_HOST_API void disarmProbes();
// Calls of CreateTesterByName and GetTesterByName since the last reset.
ZV_HOST_API long probeServiceCalls();

// ---- runtime ---------------------------------------------------------------
// One BLAS thread: BLAS runs inside parallel bodies. Called at host load.
ZV_HOST_API void limitBlasThreads();

}  // namespace zvhost

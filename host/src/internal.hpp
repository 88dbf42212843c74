// Internals shared by the reference host's translation units.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "zvhost/control.hpp"

// Element storage, shared between an array and its shared copies.
struct ArrayStorage {
    void* data = nullptr;
    size_t cellCount = 0;  // for cells: handles owned by the storage
    bool isCell = false;
    size_t mappedBytes = 0;  // non-zero: data is a private mapping of this size
    ~ArrayStorage();
    void release();  // frees data, however it was obtained
};

struct ndArray {
    ndClassID cls = ndDOUBLE_CLASS;
    std::string className = "double";
    std::vector<size_t> dims{0, 0};
    bool complex = false;
    bool sparse = false;
    std::shared_ptr<ArrayStorage> storage;
    std::vector<size_t> rowIndices;    // sparse
    std::vector<size_t> columnStarts;  // sparse, N + 1 entries
    std::shared_ptr<void> object;      // host objects: streams
    std::string functionName;          // function handles
    int scope = 1;
};

namespace zvhost::detail {

[[noreturn]] void raise(const char* id, std::vector<BaseMsgID::Arg> args = {});
// Counts one allocation of `kind`; true when it is the one armed to fail.
bool allocationShouldFail(unsigned kind);
// True when one request of `bytes` is beyond the limit of limitRequestBytes.
bool beyondRequestLimit(size_t bytes);
// Host-thread services check their caller only when strict checks are on;
// the test of the switch is inline, since random draws come in millions.
extern std::atomic<bool> strictThreadChecks;
void checkHostThreadStrictly(const char* service);
inline void checkHostThread(const char* service) {
    if (strictThreadChecks.load(std::memory_order_relaxed)) checkHostThreadStrictly(service);
}
void noteArrayCreated();
void noteArrayDestroyed();

// Per-call scratch scopes on the host thread.
void pushScratchScope();
void popScratchScope();  // reclaims what is left
bool releaseScratchOwnership(void* p);  // for ndSetData: the array takes it over

// The call depth of callGateway on this thread; the outermost resets state.
int enterCall();
void leaveCall();
void resetInterruptForCall(bool outermost);
void endInterruptForCall();
void markPending(const std::shared_ptr<InterruptStateData>& state);

void consoleWrite(const std::string& text);

// The host-language function served by the host itself, or null.
HostFunction* languageFunction(const std::string& name);

std::string toUtf8(const std::u16string& s);
std::u16string fromUtf8(const std::string& s);

// BLAS runs inside parallel bodies, so for the length of an outermost call it
// keeps one thread; the caller's own setting comes back afterwards.
class BlasThreadScope {
public:
    BlasThreadScope();
    ~BlasThreadScope();
    BlasThreadScope(const BlasThreadScope&) = delete;
    BlasThreadScope& operator=(const BlasThreadScope&) = delete;
    // Finds the thread controls in a loaded library's own scope.
    static void resolveFrom(void* handle);

private:
    int saved_ = 0;
};

}  // namespace zvhost::detail

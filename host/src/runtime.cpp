// Host runtime: accounting, scratch scopes, the host thread, interruption and
// the call boundary around a gateway.
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <optional>
#include <utility>
#include <thread>
#include <unordered_map>

#include "internal.hpp"

namespace {

std::atomic<long> liveArrays{0};
std::atomic<long> liveWorkerScratch{0};
std::atomic<long> allocationCountdown{0};
std::atomic<unsigned> allocationKinds{0};
std::atomic<long> violations{0};
std::atomic<size_t> requestLimit{0};

// The thread on which the outermost gateway call runs.
std::atomic<std::thread::id> hostThread{};

struct ScratchScope {
    std::unordered_map<void*, size_t> blocks;
};
thread_local std::vector<ScratchScope> scratchScopes;
// Blocks allocated outside any call stay here until freed; they count as live.
thread_local ScratchScope looseScratch;
std::atomic<long> liveScratch{0};

ScratchScope& currentScope() { return scratchScopes.empty() ? looseScratch : scratchScopes.back(); }

thread_local int callDepth = 0;

}  // namespace

struct InterruptStateData {
    std::atomic<bool> pending{false};
    std::atomic<long> countdown{0};  // > 0: armed
    std::atomic<long> polls{0};
    std::atomic<bool> counting{false};
};

namespace {
thread_local std::shared_ptr<InterruptStateData> threadState = std::make_shared<InterruptStateData>();
thread_local bool nullHandle = false;
const std::shared_ptr<InterruptStateData> kNullState;
}  // namespace

namespace zvhost::detail {

bool allocationShouldFail(unsigned kind) {
    if (!(allocationKinds.load(std::memory_order_relaxed) & kind)) return false;
    long left = allocationCountdown.fetch_sub(1) - 1;
    if (left == 0) {
        allocationKinds.store(0);
        return true;
    }
    return false;
}

bool beyondRequestLimit(size_t bytes) {
    const size_t limit = requestLimit.load(std::memory_order_relaxed);
    return limit != 0 && bytes > limit;
}

std::atomic<bool> strictThreadChecks{false};

void checkHostThreadStrictly(const char* service) {
    std::thread::id host = hostThread.load();
    if (host != std::thread::id{} && host != std::this_thread::get_id()) {
        ++violations;
        raise("zvhost:NotOnHostThread", {std::string(service)});
    }
}

void noteArrayCreated() { ++liveArrays; }
void noteArrayDestroyed() { --liveArrays; }

void pushScratchScope() { scratchScopes.emplace_back(); }
void popScratchScope() {
    for (auto& [p, bytes] : scratchScopes.back().blocks) {
        std::free(p);
        --liveScratch;
    }
    scratchScopes.pop_back();
}
bool releaseScratchOwnership(void* p) {
    if (!p) return false;
    for (auto it = scratchScopes.rbegin(); it != scratchScopes.rend(); ++it)
        if (it->blocks.erase(p)) { --liveScratch; return true; }
    if (looseScratch.blocks.erase(p)) { --liveScratch; return true; }
    return false;
}

int enterCall() {
    if (callDepth == 0) hostThread.store(std::this_thread::get_id());
    return ++callDepth;
}
void leaveCall() {
    if (--callDepth == 0) hostThread.store(std::thread::id{});
}

void resetInterruptForCall(bool outermost) {
    if (outermost) threadState->pending.store(false);
}
void markPending(const std::shared_ptr<InterruptStateData>& state) {
    if (state) state->pending.store(true);
}
void endInterruptForCall() {
    threadState->pending.store(false);
    threadState->countdown.store(0);
    threadState->counting.store(false);
}

}  // namespace zvhost::detail

using namespace zvhost::detail;

// ---- scratch memory ----------------------------------------------------------
void* ndMalloc(size_t bytes) {
    checkHostThread("ndMalloc");
    if (allocationShouldFail(zvhost::kScratch) || beyondRequestLimit(bytes)) throw bedrock::core::except::bad_alloc();
    void* p = std::malloc(bytes ? bytes : 1);
    if (!p) throw bedrock::core::except::bad_alloc();
    currentScope().blocks.emplace(p, bytes);
    ++liveScratch;
    return p;
}
void* ndCalloc(size_t count, size_t size) {
    checkHostThread("ndCalloc");
    if (allocationShouldFail(zvhost::kScratch)) throw bedrock::core::except::bad_alloc();
    if (size && count > SIZE_MAX / size) throw bedrock::core::except::bad_alloc();
    if (beyondRequestLimit(count * size)) throw bedrock::core::except::bad_alloc();
    void* p = std::calloc(count ? count : 1, size ? size : 1);
    if (!p) throw bedrock::core::except::bad_alloc();
    currentScope().blocks.emplace(p, count * size);
    ++liveScratch;
    return p;
}
void* ndRealloc(void* p, size_t bytes) {
    checkHostThread("ndRealloc");
    if (!p) return ndMalloc(bytes);
    if (allocationShouldFail(zvhost::kScratch) || beyondRequestLimit(bytes)) return nullptr;  // the caller keeps p
    ScratchScope* owner = nullptr;
    for (auto it = scratchScopes.rbegin(); it != scratchScopes.rend() && !owner; ++it)
        if (it->blocks.count(p)) owner = &*it;
    if (!owner && looseScratch.blocks.count(p)) owner = &looseScratch;
    if (!owner) raise("zvhost:NotScratchMemory");
    void* q = std::realloc(p, bytes ? bytes : 1);
    if (!q) return nullptr;
    owner->blocks.erase(p);
    owner->blocks.emplace(q, bytes);
    return q;
}
void ndFree(void* p) {
    if (!p) return;
    checkHostThread("ndFree");
    if (releaseScratchOwnership(p)) std::free(p);
}
void* ndMallocEx(size_t bytes) {
    if (allocationShouldFail(zvhost::kWorkerScratch) || beyondRequestLimit(bytes)) return nullptr;
    void* p = std::malloc(bytes ? bytes : 1);
    if (p) ++liveWorkerScratch;
    return p;
}
void ndFreeEx(void* p) {
    if (!p) return;
    --liveWorkerScratch;
    std::free(p);
}

// ---- interruption ------------------------------------------------------------
const std::shared_ptr<InterruptStateData>& hostGetInterruptStateData() {
    checkHostThread("hostGetInterruptStateData");
    return nullHandle ? kNullState : threadState;
}

void InterruptState::ThrowIfInterruptPending(const std::shared_ptr<InterruptStateData>& state) {
    InterruptStateData* s = state.get();
    if (!s) return;
    if (s->counting.load(std::memory_order_relaxed)) {
        ++s->polls;
        if (s->countdown.load() > 0 && s->countdown.fetch_sub(1) == 1) s->pending.store(true);
    }
    if (s->pending.load(std::memory_order_relaxed)) throw zvhost::Interrupted();
}
void InterruptState::ThrowIfInterruptPending() {
    checkHostThread("ThrowIfInterruptPending");
    ThrowIfInterruptPending(threadState);
}

namespace zvhost {

namespace {
BaseMsgID interruptedId() { return BaseMsgID("zvhost", 6, "Interrupted", 11, 0); }
}  // namespace
Interrupted::Interrupted() : HostError(interruptedId()) {}
Interrupted* Interrupted::clone() const { return new Interrupted(*this); }
void Interrupted::rethrow() const { throw Interrupted(*this); }

void interruptAfterPolls(long n) {
    threadState->countdown.store(n > 0 ? n : 0);
    threadState->counting.store(true);
}
long pollCount() { return threadState->polls.load(); }
void resetPollCount() {
    threadState->polls.store(0);
    threadState->counting.store(true);
}
void useNullInterruptHandle(bool on) { nullHandle = on; }
void requestInterrupt() noexcept { threadState->pending.store(true); }
void clearInterrupt() noexcept {
    threadState->pending.store(false);
    threadState->countdown.store(0);
}

// ---- accounting ----------------------------------------------------------------
Usage usage() { return Usage{liveArrays.load(), liveScratch.load(), liveWorkerScratch.load()}; }

void failAllocationAt(long n, unsigned kinds) {
    allocationCountdown.store(n > 0 ? n : 0);
    allocationKinds.store(n > 0 ? kinds : 0);
}

void limitRequestBytes(size_t bytes) { requestLimit.store(bytes); }

void setStrictThreadChecks(bool on) { detail::strictThreadChecks.store(on); }
long threadViolations() { return violations.load(); }

// ---- the call boundary -----------------------------------------------------------
std::vector<ndArray*> callGateway(Gateway f, int numOutputs, std::span<const ndArray* const> inputs) {
    std::vector<ndArray*> slots(size_t(numOutputs > 1 ? numOutputs : 1), nullptr);
    bool outermost = enterCall() == 1;
    std::optional<detail::BlasThreadScope> blasThreads;
    if (outermost) blasThreads.emplace();
    resetInterruptForCall(outermost);
    pushScratchScope();
    try {
        f(numOutputs, slots.data(), int(inputs.size()), const_cast<const ndArray**>(inputs.data()));
    } catch (...) {
        for (ndArray*& a : slots) ndDestroyArray(std::exchange(a, nullptr));
        popScratchScope();
        if (outermost) endInterruptForCall();
        leaveCall();
        throw;
    }
    popScratchScope();
    if (outermost) endInterruptForCall();
    leaveCall();
    return slots;
}

}  // namespace zvhost

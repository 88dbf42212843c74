// Host services: console, calls into the host's language, text conversions
// and fault probes.
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>

#include "internal.hpp"

using zvhost::detail::checkHostThread;
using zvhost::detail::raise;

// ---- console -------------------------------------------------------------------
struct zvhost::ConsoleCapture::State {
    std::string text;
    long flushes = 0;
};

namespace {
std::mutex consoleMutex;
std::vector<zvhost::ConsoleCapture::State*> captures;  // innermost last
}  // namespace

void zvhost::detail::consoleWrite(const std::string& text) {
    std::lock_guard<std::mutex> lock(consoleMutex);
    if (!captures.empty()) captures.back()->text += text;
    else std::fwrite(text.data(), 1, text.size(), stdout);
}

zvhost::ConsoleCapture::ConsoleCapture() : state_(std::make_unique<State>()) {
    std::lock_guard<std::mutex> lock(consoleMutex);
    captures.push_back(state_.get());
}
zvhost::ConsoleCapture::~ConsoleCapture() {
    std::lock_guard<std::mutex> lock(consoleMutex);
    std::erase(captures, state_.get());
}
std::string zvhost::ConsoleCapture::text() const {
    std::lock_guard<std::mutex> lock(consoleMutex);
    return state_->text;
}
long zvhost::ConsoleCapture::flushes() const {
    std::lock_guard<std::mutex> lock(consoleMutex);
    return state_->flushes;
}

int hostPrintf(const char* format, ...) {
    checkHostThread("hostPrintf");
    va_list args, copy;
    va_start(args, format);
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(n > 0 ? size_t(n) : 0, '\0');
    if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
    va_end(args);
    zvhost::detail::consoleWrite(text);
    return n;
}

void hostFlush() {
    checkHostThread("hostFlush");
    std::lock_guard<std::mutex> lock(consoleMutex);
    if (!captures.empty()) ++captures.back()->flushes;
    else std::fflush(stdout);
}

hostUserOutput::hostUserOutput() : std::ostream(nullptr) { rdbuf(&buffer_); }
hostUserOutput::~hostUserOutput() { zvhost::detail::consoleWrite(buffer_.str()); }

// ---- the host's language ---------------------------------------------------------
namespace {

class RegisteredFunction final : public HostFunction {
public:
    explicit RegisteredFunction(zvhost::HostCallable fn) : fn_(std::move(fn)) {}
    void operator()(int nout, ndArray** out, int nin, const ndArray** in) override {
        fn_(nout, out, nin, in);
    }

private:
    zvhost::HostCallable fn_;
};

std::mutex registryMutex;
std::map<std::string, std::shared_ptr<RegisteredFunction>> registry;
// Functions replaced or removed while a call may still hold them stay alive.
std::vector<std::shared_ptr<RegisteredFunction>> retired;
std::vector<std::string> calls;

std::shared_ptr<RegisteredFunction> lookup(const std::string& name) {
    std::lock_guard<std::mutex> lock(registryMutex);
    auto it = registry.find(name);
    return it == registry.end() ? nullptr : it->second;
}

}  // namespace

HostFunction::~HostFunction() = default;

void zvhost::registerFunction(const std::string& name, HostCallable fn) {
    std::lock_guard<std::mutex> lock(registryMutex);
    auto& slot = registry[name];
    if (slot) retired.push_back(slot);
    slot = std::make_shared<RegisteredFunction>(std::move(fn));
}
void zvhost::unregisterFunction(const std::string& name) {
    std::lock_guard<std::mutex> lock(registryMutex);
    auto it = registry.find(name);
    if (it == registry.end()) return;
    retired.push_back(it->second);
    registry.erase(it);
}
bool zvhost::isRegistered(const std::string& name) { return lookup(name) != nullptr; }
std::vector<std::string> zvhost::callLog() {
    std::lock_guard<std::mutex> lock(registryMutex);
    return calls;
}
void zvhost::resetCallLog() {
    std::lock_guard<std::mutex> lock(registryMutex);
    calls.clear();
}

int hostCallFunction(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs,
                     const char* name, int trap) {
    checkHostThread("hostCallFunction");
    {
        std::lock_guard<std::mutex> lock(registryMutex);
        calls.emplace_back(name);
    }
    const auto registered = lookup(name);  // held for the length of the call
    HostFunction* fn = registered ? registered.get() : zvhost::detail::languageFunction(name);
    if (!fn) {
        if (trap) return 1;
        raise("zvhost:UndefinedFunction", {std::string(name)});
    }
    if (!trap) {
        (*fn)(numOutputs, outputs, numInputs, inputs);
        return 0;
    }
    try {
        (*fn)(numOutputs, outputs, numInputs, inputs);
    } catch (...) {
        return 1;
    }
    return 0;
}

HostFunction* hostFindFunction(const std::u16string& name) {
    checkHostThread("hostFindFunction");
    const std::string utf8 = zvhost::detail::toUtf8(name);
    if (auto fn = lookup(utf8)) return fn.get();
    return zvhost::detail::languageFunction(utf8);
}

HostDiagnostic hostFunctionCall(int numOutputs, ndArray** outputs, int numInputs,
                                const ndArray** inputs, const char* name, int) {
    try {
        hostCallFunction(numOutputs, outputs, numInputs, inputs, name, 0);
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

void hostThrowFromDiagnostic(const HostDiagnostic* diag, void*) {
    if (diag && *diag) std::rethrow_exception(*diag);
    raise("zvhost:EmptyDiagnostic");
}

// ---- text ----------------------------------------------------------------------------
std::u16string hostGetUStringFromArray(const ndArray* a, size_t, const HostStringMode&) {
    if (ndGetClassID(a) != ndCHAR_CLASS) raise("zvhost:NotText");
    return zvhost::charData(a);
}

bool hostGetScalarText(const ndArray* a, std::u16string& out, int) {
    if (ndGetClassID(a) == ndCHAR_CLASS && (ndGetM(a) == 1 || ndIsEmpty(a))) {
        out = zvhost::charData(a);
        return true;
    }
    if (ndIsClass(a, "string") && a->object) {
        out = *static_cast<const std::u16string*>(a->object.get());
        return true;
    }
    return false;
}

std::string hostUstringToString(const std::u16string& text, int) { return zvhost::detail::toUtf8(text); }

std::string hostUstringToAscii(const char16_t* text, size_t n) {
    std::string out(n, '\0');
    for (size_t k = 0; k < n; ++k) {
        if (text[k] >= 128) bedrock::ustring::detail::throw_ctype_invalid_character_exception();
        out[k] = char(text[k]);
    }
    return out;
}

std::u16string hostToUstring(const char* text) { return zvhost::detail::fromUtf8(text); }

// ---- fault probes ----------------------------------------------------------------------
uint32_t faultprobe::ProbeExceptionTester::staticTesterMode = faultprobe::ProbeExceptionTester::kInactive;

namespace {
std::mutex probeMutex;
std::set<std::string> armedProbes;
std::map<std::string, std::unique_ptr<faultprobe::ProbeExceptionTester>> testers;
std::atomic<long> probeCalls{0};
}  // namespace

faultprobe::ProbeExceptionTester::~ProbeExceptionTester() = default;
void faultprobe::ProbeExceptionTester::emulateCtrlC(InterruptState& state) {
    if (state.state) {
        // Route through the poll machinery: the next poll on this handle throws.
        std::shared_ptr<InterruptStateData> handle = state.state;
        zvhost::detail::markPending(handle);
    }
}
void faultprobe::ProbeExceptionTester::emulateCtrlC() {
    InterruptState own{hostGetInterruptStateData()};
    emulateCtrlC(own);
}

void faultprobe::CreateTesterByName(void*, void*, const char* name) {
    ++probeCalls;
    std::lock_guard<std::mutex> lock(probeMutex);
    if (armedProbes.count(name) && !testers.count(name))
        testers.emplace(name, std::make_unique<ProbeExceptionTester>());
}
faultprobe::ProbeExceptionTester* faultprobe::GetTesterByName(void*, void*, const char* name) {
    ++probeCalls;
    std::lock_guard<std::mutex> lock(probeMutex);
    auto it = testers.find(name);
    return it == testers.end() ? nullptr : it->second.get();
}

void zvhost::armProbe(const std::string& name) {
    std::lock_guard<std::mutex> lock(probeMutex);
    armedProbes.insert(name);
    faultprobe::ProbeExceptionTester::staticTesterMode = 0;
}
void zvhost::disarmProbes() {
    std::lock_guard<std::mutex> lock(probeMutex);
    armedProbes.clear();
    testers.clear();
    faultprobe::ProbeExceptionTester::staticTesterMode = faultprobe::ProbeExceptionTester::kInactive;
}
long zvhost::probeServiceCalls() { return probeCalls.exchange(0); }

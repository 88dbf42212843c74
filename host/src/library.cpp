// Loading the builtins library with dlopen and finding gateways by name.
#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <climits>

#include "internal.hpp"

namespace zvhost {

namespace {

// Itanium substitution index: S_ for 0, S<n-1 in base 36>_ after.
std::string substitution(size_t index) {
    if (index == 0) return "S_";
    std::string digits;
    size_t n = index - 1;
    do {
        int d = int(n % 36);
        digits.insert(digits.begin(), char(d < 10 ? '0' + d : 'A' + d - 10));
        n /= 36;
    } while (n);
    return "S" + digits + "_";
}

std::vector<std::string> splitQualified(std::string_view name) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        size_t pos = name.find("::", start);
        parts.emplace_back(name.substr(start, pos - start));
        if (pos == std::string_view::npos) break;
        start = pos + 2;
    }
    return parts;
}

}  // namespace

// void f(int, ndArray**, int, ndArray const**): the namespaces of a nested
// name are substitution candidates before ndArray, which shifts its index.
std::string mangledGatewayName(std::string_view qualifiedName) {
    auto parts = splitQualified(qualifiedName);
    std::string out = "_Z";
    if (parts.size() > 1) out += "N";
    for (const auto& p : parts) out += std::to_string(p.size()) + p;
    if (parts.size() > 1) out += "E";
    size_t ndArrayIndex = parts.size() - 1;
    out += "iPP7ndArrayiPPK" + substitution(ndArrayIndex);
    return out;
}

std::string defaultLibraryPath() {
    char buf[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n > 0) {
        std::string exe(buf, size_t(n));
        std::string dir = exe.substr(0, exe.rfind('/'));
        std::string candidate = dir + "/../lib/libzvstatsbuiltins.so";
        if (access(candidate.c_str(), R_OK) == 0) return candidate;
    }
#ifdef ZV_BUILTINS_LIBRARY_PATH
    return ZV_BUILTINS_LIBRARY_PATH;
#else
    return "libzvstatsbuiltins.so";
#endif
}

BuiltinsLibrary::BuiltinsLibrary(const std::string& path) {
    // Never unloaded: oneTBB, which it brings in, keeps worker threads alive.
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle_) detail::raise("zvhost:CannotLoadLibrary", {std::string(dlerror())});
    // Its BLAS may sit in a local scope (Python loads numpy's privately),
    // out of reach of the global lookup.
    detail::BlasThreadScope::resolveFrom(handle_);
    setGatewayResolver([handle = handle_](std::string_view name) {
        return reinterpret_cast<Gateway>(dlsym(handle, mangledGatewayName(name).c_str()));
    }, this);
}
BuiltinsLibrary::~BuiltinsLibrary() {
    releaseGatewayResolver(this);
    if (handle_) dlclose(handle_);
}
void* BuiltinsLibrary::symbol(const std::string& rawName) const { return dlsym(handle_, rawName.c_str()); }
Gateway BuiltinsLibrary::find(std::string_view qualifiedName) const {
    return reinterpret_cast<Gateway>(symbol(mangledGatewayName(qualifiedName)));
}
void BuiltinsLibrary::initialize() const {
    if (auto f = reinterpret_cast<void (*)()>(symbol("ModInitialize_libzvstatsbuiltins"))) f();
}
void BuiltinsLibrary::terminate() const {
    if (auto f = reinterpret_cast<void (*)()>(symbol("ModTerminate_libzvstatsbuiltins"))) f();
}

namespace {
using SetThreads = void (*)(int);
using GetThreads = int (*)();
std::atomic<SetThreads> blasSetThreads{nullptr};
std::atomic<GetThreads> blasGetThreads{nullptr};
}  // namespace

void detail::BlasThreadScope::resolveFrom(void* handle) {
    auto set = reinterpret_cast<SetThreads>(dlsym(handle, "openblas_set_num_threads"));
    auto get = reinterpret_cast<GetThreads>(dlsym(handle, "openblas_get_num_threads"));
    if (!set || !get || blasSetThreads.load()) return;
    blasGetThreads.store(get);
    blasSetThreads.store(set);
}

detail::BlasThreadScope::BlasThreadScope() {
    SetThreads set = blasSetThreads.load();
    if (!set) return;
    saved_ = blasGetThreads.load()();
    if (saved_ != 1) set(1);
}

detail::BlasThreadScope::~BlasThreadScope() {
    if (saved_ > 1) blasSetThreads.load()(saved_);
}

void limitBlasThreads() {
    detail::BlasThreadScope::resolveFrom(RTLD_DEFAULT);
    if (SetThreads set = blasSetThreads.load()) set(1);
}

namespace {
// BLAS runs inside parallel bodies, so it must not start threads of its own.
[[maybe_unused]] const bool blasLimited = (limitBlasThreads(), true);
}  // namespace

}  // namespace zvhost

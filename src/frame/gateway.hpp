// Shared gateway frame: count checks, element-type dispatch, argument reading,
// the output-size limit and output creation, each one line in a gateway.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <stdexcept>
#include <type_traits>

#include "frame/checked.hpp"
#include "frame/element_class.hpp"
#include "frame/limits.hpp"
#include "frame/message_ids.hpp"
#include "host/host.hpp"

// Gateways and module functions are the only symbols the library exports.
#define ZV_EXPORT __attribute__((visibility("default")))

#define ZV_GATEWAY_SIGNATURE int numOutputs, ndArray **outputs, int numInputs, const ndArray **inputs

// Defines the exported gateway NAME, whose body follows as a block and runs
// inside the frame (zv::frame::runGateway).
#define ZV_DEFINE_GATEWAY(NAME)                                                          \
    static void NAME##Body(ZV_GATEWAY_SIGNATURE);                                        \
    ZV_EXPORT void NAME(ZV_GATEWAY_SIGNATURE) {                                          \
        ::zv::frame::runGateway(&NAME##Body, numOutputs, outputs, numInputs, inputs);     \
    }                                                                                    \
    static void NAME##Body(ZV_GATEWAY_SIGNATURE)

namespace zv {

namespace frame {

using GatewayBody = void (*)(ZV_GATEWAY_SIGNATURE);

// The frame around every gateway body. Errors of the host and of the library
// leave unchanged; a container of the standard library asked for more
// elements than it can address is, like any other impossible size, the
// host's allocation failure, so no foreign exception reaches the host.
inline void runGateway(GatewayBody body, ZV_GATEWAY_SIGNATURE) {
    try {
        body(numOutputs, outputs, numInputs, inputs);
    } catch (const std::length_error&) {
        throw bedrock::core::except::bad_alloc();
    }
}

}  // namespace frame

// Raises E(args...) when `failed` holds.
template <class E, class... A>
inline void raiseIf(bool failed, A... args) {
    if (failed) ndErrMsgId(E(args...));
}

// The count test of gateways that use the host's fixed errors, outputs first.
// Returns true when the gateway is to return at once (no output asked for).
inline bool fixedCountsSayReturn(int numOutputs, int maxOutputs, int numInputs, int minInputs,
                                 int maxInputs) {
    if (numOutputs > maxOutputs) matrix::detail::error_maxoutputs();
    if (numInputs < minInputs) matrix::detail::error_mininputs();
    if (numInputs > maxInputs) matrix::detail::error_maxinputs();
    return numOutputs == 0;
}

// Calls f(T{}) with T = double or float after the class of `a`; any other
// class raises BadType.
template <class BadType, class F>
decltype(auto) dispatchReal(const ndArray* a, F&& f) {
    switch (ndGetClassID(a)) {
    case ndDOUBLE_CLASS: return f(double{});
    case ndSINGLE_CLASS: return f(float{});
    default: ndErrMsgId(BadType());
    }
}

// A short option code read the way the gateways read it: through a buffer
// of N bytes, so a longer text is cut to its first N - 1 letters.
template <size_t N>
struct ShortCode {
    std::array<char, N> text{};
    explicit ShortCode(const ndArray* a) { ndGetString(a, text.data(), N); }
    bool is(const char* code) const { return std::strcmp(text.data(), code) == 0; }
};

// The bytes actually stored behind ndGetData: a sparse array holds only its
// non-zeros; cells, functions and objects hold no numbers. A parameter array
// read as T has storedBytes / sizeof(T) values, whatever its class.
inline size_t storedBytes(const ndArray* a) {
    size_t elementBytes = 0;
    switch (ndGetClassID(a)) {
    case ndLOGICAL_CLASS: case ndINT8_CLASS: case ndUINT8_CLASS: elementBytes = 1; break;
    case ndCHAR_CLASS: case ndINT16_CLASS: case ndUINT16_CLASS: elementBytes = 2; break;
    case ndSINGLE_CLASS: case ndINT32_CLASS: case ndUINT32_CLASS: elementBytes = 4; break;
    case ndDOUBLE_CLASS: case ndINT64_CLASS: case ndUINT64_CLASS: elementBytes = 8; break;
    default: return 0;
    }
    const size_t count = ndIsSparse(a) ? ndGetColumnStarts(a)[ndGetN(a)] : ndGetNumberOfElements(a);
    return count * elementBytes;
}

// How many values of T the stored bytes of `a` hold (see storedBytes).
template <class T>
size_t storedCount(const ndArray* a) {
    return storedBytes(a) / sizeof(T);
}

template <class T>
T* dataOf(const ndArray* a) {
    return static_cast<T*>(ndGetData(a));
}

// Calls f with the data of a double or single array, as const double* or
// const float*. False, without calling f, for a null array or another class.
template <class F>
bool visitRealData(const ndArray* a, F&& f) {
    if (a && ndGetClassID(a) == ndDOUBLE_CLASS) f(dataOf<const double>(a));
    else if (a && ndGetClassID(a) == ndSINGLE_CLASS) f(dataOf<const float>(a));
    else return false;
    return true;
}

template <class T>
matrix::unique_nd_ptr createMatrix(size_t m, size_t n) {
    const size_t dims[2] = {m, n};
    return matrix::detail::do_create_numeric(std::span<const size_t>(dims, 2), classOf<T>(), ndREAL);
}

inline ndArray* doubleScalar(double x) { return ndCreateDoubleScalar(x); }

// Hands made outputs to the host in slot order as the gateway's last step:
// slot k takes the k-th while k < max(numOutputs, 1); the others die here.
// Nothing can fail once it runs.
template <class... Owned>
void handOver(ndArray** outputs, int numOutputs, Owned&&... made) {
    const size_t slots = numOutputs > 1 ? size_t(numOutputs) : 1;
    size_t k = 0;
    ((k < slots ? void(outputs[k] = matrix::to_host(std::move(made))) : void(made.reset()), ++k), ...);
}
template <size_t K>
void handOver(ndArray** outputs, int numOutputs, matrix::unique_nd_ptr (&made)[K]) {
    const size_t slots = numOutputs > 1 ? size_t(numOutputs) : 1;
    for (size_t k = 0; k < K && k < slots; ++k) outputs[k] = matrix::to_host(std::move(made[k]));
}

}  // namespace zv

// Small conveniences over the host array interface for tests, the CLI and the
// binding: owned arrays from values, values from arrays, calls by gateway.
#pragma once

#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "zvhost/control.hpp"

namespace zvhost {

using Owned = matrix::unique_nd_ptr;

template <class T>
constexpr ndClassID hostClassOf() {
    if constexpr (std::is_same_v<T, double>) return ndDOUBLE_CLASS;
    else if constexpr (std::is_same_v<T, float>) return ndSINGLE_CLASS;
    else if constexpr (std::is_same_v<T, int32_t>) return ndINT32_CLASS;
    else if constexpr (std::is_same_v<T, uint64_t>) return ndUINT64_CLASS;
    else if constexpr (std::is_same_v<T, bool>) return ndLOGICAL_CLASS;
    else static_assert(!sizeof(T), "no host class");
}

// An m-by-n array of T from column-major values (zero-filled if empty).
template <class T>
Owned matrixOf(size_t m, size_t n, std::span<const T> columnMajor = {}) {
    Owned a(ndCreateNumericMatrix(m, n, hostClassOf<T>(), ndREAL));
    if (!columnMajor.empty()) std::memcpy(ndGetData(a.get()), columnMajor.data(), m * n * sizeof(T));
    return a;
}
template <class T>
Owned matrixOf(size_t m, size_t n, std::initializer_list<T> columnMajor) {
    return matrixOf<T>(m, n, std::span<const T>(columnMajor.begin(), columnMajor.size()));
}
inline Owned scalar(double x) { return Owned(ndCreateDoubleScalar(x)); }
inline Owned text(const std::string& s) { return Owned(ndCreateString(s.c_str())); }
inline Owned logicalScalar(bool b) {
    Owned a(ndCreateLogicalMatrix(1, 1));
    *static_cast<unsigned char*>(ndGetData(a.get())) = b;
    return a;
}

template <class T>
std::vector<T> valuesOf(const ndArray* a) {
    const T* p = static_cast<const T*>(ndGetData(a));
    return std::vector<T>(p, p + ndGetNumberOfElements(a));
}

// Calls a gateway through the host's call boundary; the outputs come back
// owned, one per slot (null where the gateway set none).
inline std::vector<Owned> call(Gateway f, int numOutputs, std::initializer_list<const ndArray*> inputs) {
    std::vector<ndArray*> raw = callGateway(f, numOutputs, std::span<const ndArray* const>(inputs.begin(), inputs.size()));
    std::vector<Owned> out;
    for (ndArray* a : raw) out.emplace_back(a);
    return out;
}
inline std::vector<Owned> call(Gateway f, int numOutputs, const std::vector<const ndArray*>& inputs) {
    std::vector<ndArray*> raw = callGateway(f, numOutputs, inputs);
    std::vector<Owned> out;
    for (ndArray* a : raw) out.emplace_back(a);
    return out;
}

}  // namespace zvhost

// The host class that stores elements of a C++ type.
#pragma once

#include <cstdint>
#include <type_traits>

#include "host/ndarray.hpp"

namespace zv {

template <class T>
constexpr ndClassID classOf() {
    if constexpr (std::is_same_v<T, double>) return ndDOUBLE_CLASS;
    else if constexpr (std::is_same_v<T, float>) return ndSINGLE_CLASS;
    else if constexpr (std::is_same_v<T, int32_t>) return ndINT32_CLASS;
    else if constexpr (std::is_same_v<T, int64_t>) return ndINT64_CLASS;
    else if constexpr (std::is_same_v<T, uint64_t>) return ndUINT64_CLASS;
    else if constexpr (std::is_same_v<T, bool>) return ndLOGICAL_CLASS;
    else static_assert(!sizeof(T), "no host class for this element type");
}

}  // namespace zv

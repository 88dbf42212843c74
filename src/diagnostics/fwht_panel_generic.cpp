// Feature-block panels for any x86-64 processor.
#include <cmath>
#include <cstddef>

namespace rkeutils::generic {
namespace {
template <class T>
void sinCos(T* __restrict angles, T* __restrict sines, size_t count) {
    for (size_t r = 0; r < count; ++r) {
        const T angle = angles[r];
        sines[r] = std::sin(angle);
        angles[r] = std::cos(angle);
    }
}
}  // namespace
}  // namespace rkeutils::generic

#define ZV_FWHT_ISA generic
#include "diagnostics/fwht_panel_impl.hpp"

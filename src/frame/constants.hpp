// Constants the library keeps from load to unload.
#pragma once

namespace zv::constants {
extern const double nan;  // bit pattern 0xFFF8000000000000
extern const double inf;
extern const double eps;  // the double machine epsilon, from the host
}  // namespace zv::constants

// The largest element count (or byte count, where a gateway says so) that an
// output or a working copy may have, and the one test against it.
#pragma once

#include <cstdint>

namespace zv {

inline constexpr uint64_t kMaxElementCountWord = (uint64_t(1) << 48) - 1;
inline constexpr double kMaxElementCount = double(kMaxElementCountWord);  // 2^48 - 1, exact

// True when `count`, computed in double from its factors before anything is
// allocated, reaches the limit; a NaN count reaches it too.
inline bool reachesElementLimit(double count) { return !(count < kMaxElementCount); }

}  // namespace zv

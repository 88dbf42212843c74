// What the Sobol gateways share in reading their arguments and making outputs.
#pragma once

#include <algorithm>

#include "frame/gateway.hpp"
#include "sampling/sobol_points.hpp"

namespace zv::sampling {

// The caller's d-by-53 direction numbers. Only the columns that its storage
// really holds are used, so a short or mistyped table reads nothing beyond it.
inline DirectionTable directionTableOf(const ndArray* v) {
    const size_t d = ndGetM(v);
    const size_t words = storedCount<uint64_t>(v);
    return {dataOf<const uint64_t>(v), d, d == 0 ? 0 : std::min(kSobolBits, words / d)};
}

// A zero-filled m-by-n output of `cls`, stored into the slot at once. A count
// that would overflow the size arithmetic fails as an allocation.
inline ndArray* createOutput(ndArray** slot, size_t m, size_t n, ndClassID cls) {
    if (reachesElementLimit(double(m) * double(n))) throw bedrock::core::except::bad_alloc();
    *slot = ndCreateNumericMatrix(m, n, cls, ndREAL);
    return *slot;
}

}  // namespace zv::sampling

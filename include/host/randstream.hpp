// Host random streams: stream objects and the default stream.
#pragma once

#include <cstddef>

#include "host/ndarray.hpp"

class RandStream;  // host stream, opaque to the library

// The stream that a host stream object stands for.
ZV_HOST_API RandStream* GetRandStreamFromArray(const ndArray* a);

namespace randstream {
// n uniform numbers in (0, 1).
template <class T>
void randuFcn(RandStream* stream, T* out, size_t n);
extern template ZV_HOST_API void randuFcn<double>(RandStream*, double*, size_t);
extern template ZV_HOST_API void randuFcn<float>(RandStream*, float*, size_t);

// 1..n as doubles in random order.
ZV_HOST_API void randpermFcn(RandStream* stream, double* out, size_t n);
// k distinct numbers out of 1..n, as doubles.
ZV_HOST_API void randkpermFcn(RandStream* stream, double* out, size_t k, double n);
}  // namespace randstream

// From the host's default stream.
ZV_HOST_API void hostRandu(double* out, size_t n);
ZV_HOST_API void hostRandn(double* out, size_t n);

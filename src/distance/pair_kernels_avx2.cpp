// Triangle-row kernels for processors with AVX2 (built with -mavx2).
#define ZV_KERNEL_NS avx2
#include "distance/pair_kernels_impl.hpp"

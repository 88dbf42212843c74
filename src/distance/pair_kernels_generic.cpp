// Triangle-row kernels for the baseline instruction set.
#define ZV_KERNEL_NS generic
#include "distance/pair_kernels_impl.hpp"

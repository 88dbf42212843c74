// Feature-block panels for processors with AVX2 (built with -mavx2).
#define ZV_FWHT_ISA avx2
#include "diagnostics/fwht_panel_impl.hpp"

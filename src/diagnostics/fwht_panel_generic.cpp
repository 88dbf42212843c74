// Feature-block panels for any x86-64 processor.
#define ZV_FWHT_ISA generic
#include "diagnostics/fwht_panel_impl.hpp"

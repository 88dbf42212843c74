// Everything the builtins may use of the host, in one include.
#pragma once

#include "host/callback.hpp"
#include "host/console.hpp"
#include "host/except.hpp"
#include "host/faultprobe.hpp"
#include "host/interrupt.hpp"
#include "host/matrix.hpp"
#include "host/ndarray.hpp"
#include "host/randstream.hpp"
#include "host/specfun.hpp"

// Host special functions, double only, thread-safe, never throwing.
#pragma once

#include "host/ndarray.hpp"

namespace specfun {
enum TailType { Lower = 0, Upper = 1 };

// Regularised incomplete gamma P(a, x) (or Q with the upper tail); x first.
ZV_HOST_API double gammainc(double x, double a, TailType tail);
// Regularised incomplete beta I_x(a, b) (or 1 - I with the upper tail).
ZV_HOST_API double betainc(double x, double a, double b, TailType tail);
ZV_HOST_API double gammaln(double x);
}  // namespace specfun

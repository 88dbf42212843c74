// Double-double sums: a running value with its rounding error carried along,
// for sums of many terms, and differences of such sums, that must stay
// accurate to the last bit of the result.
#pragma once

#include <cmath>

namespace zv::diagnostics {

struct Compensated {
    double hi = 0;
    double lo = 0;

    void add(double x) {
        const double s = hi + x;
        const double v = s - hi;
        const double err = (hi - (s - v)) + (x - v);
        lo += err;
        hi = s + lo;
        lo -= hi - s;
    }
    void add(const Compensated& x) {
        add(x.hi);
        add(x.lo);
    }
    // Adds the exact product a*b.
    void addProduct(double a, double b) {
        const double p = a * b;
        add(p);
        add(std::fma(a, b, -p));
    }
    double value() const { return hi + lo; }
};

}  // namespace zv::diagnostics

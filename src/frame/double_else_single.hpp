// Element-type choice of the gateways that trust the host for classes: double
// data selects the double engine, any other class the single one.
#pragma once

#include "host/host.hpp"

namespace zv {

// Calls f(T{}) with T = double when `a` is double, float otherwise.
template <class F>
decltype(auto) dispatchDoubleElseSingle(const ndArray* a, F&& f) {
    if (ndGetClassID(a) == ndDOUBLE_CLASS) return f(double{});
    return f(float{});
}

}  // namespace zv

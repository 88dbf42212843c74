// The lasso gateways the sparse-regression tests call, and a few helpers to
// build their inputs.
#pragma once

#include <random>
#include <vector>

#include "support/gateways.hpp"
#include "gateway_declarations.hpp"

namespace zvtest::lasso {

template <class T>
zvhost::Owned column(const std::vector<T>& v) {
    return zvhost::matrixOf<T>(v.size(), 1, std::span<const T>(v));
}

inline zvhost::Owned mask(const std::vector<bool>& v) {
    zvhost::Owned a(ndCreateLogicalMatrix(v.size(), 1));
    bool* p = ndGetLogicals(a.get());
    for (size_t j = 0; j < v.size(); ++j) p[j] = v[j];
    return a;
}

template <class T>
zvhost::Owned scalarOf(double x) {
    if constexpr (std::is_same_v<T, float>) return zvhost::Owned(ndCreateSingleScalar(float(x)));
    else return zvhost::scalar(x);
}

inline std::vector<bool> maskValues(const ndArray* a) {
    const bool* p = ndGetLogicals(a);
    return std::vector<bool>(p, p + ndGetNumberOfElements(a));
}

using zvtest::expectBitEqual;
using zvtest::normals;

// For the count tests: id(nout, inputs) is the identifier that a call of f raises.
inline auto countErrorsOf(void (*f)(int, ndArray**, int, const ndArray**)) {
    return [f](int nout, const std::vector<const ndArray*>& in) {
        return zvtest::raisedId([&] { zvhost::call(f, nout, in); });
    };
}

template <class T>
void expectNear(const std::vector<T>& a, const std::vector<T>& b, double relative) {
    ASSERT_EQ(a.size(), b.size());
    double scale = 0;
    for (T v : b) scale = std::max(scale, std::abs(double(v)));
    for (size_t i = 0; i < a.size(); ++i)
        ASSERT_NEAR(double(a[i]), double(b[i]), relative * std::max(scale, 1.0)) << "at " << i;
}

}  // namespace zvtest::lasso

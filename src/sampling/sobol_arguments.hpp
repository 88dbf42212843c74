// What the Sobol gateways share in reading their arguments and making outputs.
#pragma once

#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "sampling/sobol_points.hpp"

namespace zv::sampling {

// The caller's d-by-53 direction numbers, d its rows. A table that is short,
// or of another class, is read by its values, with 0 for what it lacks.
class DirectionNumbers {
public:
    explicit DirectionNumbers(const ndArray* v)
        : d_(ndGetM(v)), words_(HostValues<uint64_t>::matrix(v, d_, kSobolBits, 0)) {}
    DirectionTable table() const { return {words_.data(), d_}; }
    size_t d() const { return d_; }

private:
    size_t d_;
    HostValues<uint64_t> words_;
};

// A zero-filled m-by-n output of T. A dimension or a count that reaches the
// element limit fails as an allocation, since no such array can exist.
template <class T>
matrix::unique_nd_ptr createOutput(size_t m, size_t n) {
    if (reachesElementLimit(double(m)) || reachesElementLimit(double(n)) ||
        reachesElementLimit(double(m) * double(n)))
        throw bedrock::core::except::bad_alloc();
    return createMatrix<T>(m, n);
}

}  // namespace zv::sampling

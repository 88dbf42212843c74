// The distances from every column of a data array to one of its own columns,
// by the nested cross-distance entry point: what the clustering engines ask
// for one observation at a time, from worker threads, in O(n) memory.
#pragma once

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>

#include "distance/pdist2.hpp"
#include "frame/gateway.hpp"

namespace zv::distance {

// A new m-by-n array of the class: NaN for double and single, zeros otherwise.
inline matrix::unique_nd_ptr missingValues(ndClassID cls, size_t m, size_t n) {
    const size_t dims[2] = {m, n};
    matrix::unique_nd_ptr a = matrix::detail::do_create_numeric(std::span<const size_t>(dims, 2), cls, ndREAL);
    if (cls == ndDOUBLE_CLASS) std::fill_n(zv::dataOf<double>(a.get()), m * n, std::numeric_limits<double>::quiet_NaN());
    if (cls == ndSINGLE_CLASS) std::fill_n(zv::dataOf<float>(a.get()), m * n, std::numeric_limits<float>::quiet_NaN());
    return a;
}

class Pdist2Column {
public:
    // x: data with p values per column; metric and parameter as pdist2bif
    // takes them (a null parameter passes an empty array).
    Pdist2Column(const ndArray* x, size_t p, const ndArray* metric, const ndArray* parameter,
                 const std::shared_ptr<InterruptStateData>& interrupt)
        : x_(x), metric_(metric), parameter_(parameter), interrupt_(interrupt),
          p_(p), elementBytes_(zv::storedBytes(x) / std::max<size_t>(1, ndGetNumberOfElements(x))),
          storedBytes_(zv::storedBytes(x)) {}

    // The full-mode result of pdist2bif(x, x(:, i)): one distance per column
    // of x, in the class of x. Column i is copied as far as x holds it; past
    // its end the coordinates are NaN, so that no point is near it.
    matrix::unique_nd_ptr operator()(size_t i) const {
        matrix::unique_nd_ptr column = missingValues(ndGetClassID(x_), p_, 1);
        const size_t begin = i * p_ * elementBytes_;
        if (begin < storedBytes_)
            std::memcpy(ndGetData(column.get()), static_cast<const char*>(ndGetData(x_)) + begin,
                        std::min(p_ * elementBytes_, storedBytes_ - begin));
        matrix::unique_nd_ptr empty = zv::createMatrix<double>(0, 0);
        const ndArray* parameter = parameter_ ? parameter_ : empty.get();
        const ndArray* inputs[7] = {x_, column.get(), metric_, parameter, empty.get(), empty.get(), empty.get()};
        ndArray* output = nullptr;
        pdist2bifNested(1, &output, 7, inputs, interrupt_);
        matrix::unique_nd_ptr distances(output);
        ndSetArrayScope(distances.get(), 0);
        return distances;
    }

private:
    const ndArray* x_;
    const ndArray* metric_;
    const ndArray* parameter_;
    const std::shared_ptr<InterruptStateData>& interrupt_;
    size_t p_, elementBytes_, storedBytes_;
};

}  // namespace zv::distance

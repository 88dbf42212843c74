// The distances from every column of a data array to one of its own columns
// by the nested cross-distance entry point: what dbscan and silhouette ask
// for one point at a time, from worker threads, in O(n) memory.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

#include "distance/pdist2.hpp"
#include "frame/gateway.hpp"

namespace zv::clustering {

// A new m-by-n array of the class: NaN for double and single, zeros otherwise.
inline matrix::unique_nd_ptr missingValues(ndClassID cls, size_t m, size_t n) {
    const size_t dims[2] = {m, n};
    matrix::unique_nd_ptr a = matrix::detail::do_create_numeric(std::span<const size_t>(dims, 2), cls, ndREAL);
    if (cls == ndDOUBLE_CLASS) std::fill_n(dataOf<double>(a.get()), m * n, std::numeric_limits<double>::quiet_NaN());
    if (cls == ndSINGLE_CLASS) std::fill_n(dataOf<float>(a.get()), m * n, std::numeric_limits<float>::quiet_NaN());
    return a;
}

class NestedColumns {
public:
    // x: data with p values per column; metric and parameter as pdist2bif
    // takes them (a null parameter passes an empty array).
    NestedColumns(const ndArray* x, size_t p, const ndArray* metric, const ndArray* parameter,
                  const std::shared_ptr<InterruptStateData>& interrupt)
        : x_(x), metric_(metric), parameter_(parameter), interrupt_(interrupt), p_(p), stored_(storedBytes(x)) {
        const size_t elementBytes = stored_ / std::max<size_t>(1, ndGetNumberOfElements(x));
        columnBytes_ = elementBytes && p > SIZE_MAX / elementBytes ? SIZE_MAX : p * elementBytes;
    }

    // The full-mode result of pdist2bif(x, x(:, i)): one distance per column
    // of x, in the class of x. Column i is copied as far as x holds it; past
    // its end the coordinates are NaN, so that no point is near it.
    matrix::unique_nd_ptr operator()(size_t i) const {
        matrix::unique_nd_ptr column = missingValues(ndGetClassID(x_), p_, 1);
        if (i < firstWithoutData()) {
            const size_t begin = i * columnBytes_;
            std::memcpy(ndGetData(column.get()), static_cast<const char*>(ndGetData(x_)) + begin,
                        std::min(columnBytes_, stored_ - begin));
        }
        matrix::unique_nd_ptr empty = createMatrix<double>(0, 0);
        const ndArray* parameter = parameter_ ? parameter_ : empty.get();
        const ndArray* inputs[7] = {x_, column.get(), metric_, parameter, empty.get(), empty.get(), empty.get()};
        ndArray* output = nullptr;
        pdist2bifNested(1, &output, 7, inputs, interrupt_);
        matrix::unique_nd_ptr distances(output);
        ndSetArrayScope(distances.get(), 0);
        return distances;
    }

    // The first column that starts past the stored bytes: it and all later
    // ones are made of NaN alone (all of them, when a column holds nothing).
    size_t firstWithoutData() const {
        return columnBytes_ == 0 ? 0 : stored_ / columnBytes_ + (stored_ % columnBytes_ != 0);
    }

private:
    const ndArray* x_;
    const ndArray* metric_;
    const ndArray* parameter_;
    const std::shared_ptr<InterruptStateData>& interrupt_;
    size_t p_, stored_, columnBytes_ = 0;
};

}  // namespace zv::clustering

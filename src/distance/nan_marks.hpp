// Missing-data marks of the metrics that compare coordinates: per
// observation 0, or NaN if it holds a NaN.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace zv::distance {

// Empty when the data hold no NaN at all, found by one scan that stops at
// the first NaN.
template <class T>
inline std::vector<T> nanMarks(const T* x, size_t n, size_t p) {
    const T* end = x + n * p;
    const T* first = x;
    while (first != end && !std::isnan(*first)) ++first;
    if (first == end) return {};
    std::vector<T> marks(n, T(0));
    for (size_t j = 0; j < n; ++j)
        for (size_t k = 0; k < p; ++k)
            if (std::isnan(x[j * p + k])) {
                marks[j] = std::numeric_limits<T>::quiet_NaN();
                break;
            }
    return marks;
}


}  // namespace zv::distance

// The engines read a parameter or a data array only as far as the host
// stores it: where fewer values stand behind it than its use needs, the
// distances are NaN instead.
#pragma once

#include <cstddef>

namespace zv::distance {

// Whether `count` stored values hold a rows-by-cols matrix; the product
// itself may not fit in a size_t.
constexpr bool holdsMatrix(size_t count, size_t rows, size_t cols) { return cols == 0 || rows <= count / cols; }

}  // namespace zv::distance

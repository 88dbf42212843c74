// Compressed sparse columns, as the host lends them and as the distance
// merges read them: rows and values closed by an end marker per column.
#pragma once

#include <tbb/scalable_allocator.h>

#include <cstddef>
#include <initializer_list>
#include <limits>
#include <vector>

namespace zv::distance {

// A borrowed p-by-n compressed-column matrix: column j holds the entries
// starts[j] .. starts[j+1]-1 of `rows` and `values`, rows ascending.
struct SparseColumns {
    const double* values;
    const size_t* rows;
    const size_t* starts;  // n + 1 entries
    size_t n;
    size_t p;
};

struct MergeEntry {
    size_t row;
    double value;
};

// The row of the marker that closes every column. It compares above any
// real row, so a merge moves on along the other column once one has ended.
inline constexpr size_t kEndRow = std::numeric_limits<size_t>::max();

// A copy of the columns of one or more matrices, one after the other, with
// row and value side by side and an end marker (row kEndRow, value 0) after
// each column, so that a merge step never tests where a column ends.
class MergeColumns {
public:
    MergeColumns(std::initializer_list<SparseColumns> matrices);
    // Column j, counted over the matrices in order.
    const MergeEntry* column(size_t j) const { return entries_.data() + firsts_[j]; }

private:
    template <class T>
    using Vector = std::vector<T, tbb::scalable_allocator<T>>;
    Vector<size_t> firsts_;
    Vector<MergeEntry> entries_;
};

}  // namespace zv::distance

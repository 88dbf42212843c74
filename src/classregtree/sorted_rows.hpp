// A predictor's rows in ascending order of its values, with the values
// beside them. The root sorts each numeric predictor once; a split hands
// each child its part in the same order, so no node sorts again.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>
#include <vector>

#include <boost/sort/pdqsort/pdqsort.hpp>
#include <boost/sort/spreadsort/float_sort.hpp>
#include <boost/sort/spreadsort/integer_sort.hpp>
#include <tbb/scalable_allocator.h>

namespace zv::classregtree {

// Row numbers (0-based) of a node, as they travel from layer to layer.
using RowVector = std::vector<uint64_t, tbb::scalable_allocator<uint64_t>>;

template <class X>
struct SortedEntry {
    X x;
    uint64_t row;
};

template <class X>
using SortedRows = std::vector<SortedEntry<X>, tbb::scalable_allocator<SortedEntry<X>>>;

// Sorting pays for spreadsort's buckets only from this many rows on.
inline constexpr size_t kSpreadsortRows = 1000;

template <class X>
void sortByX(SortedEntry<X>* first, SortedEntry<X>* last) {
    using Entry = SortedEntry<X>;
    const auto byX = [](const Entry& a, const Entry& b) { return a.x < b.x; };
    if (size_t(last - first) < kSpreadsortRows) {
        boost::sort::pdqsort(first, last, byX);
    } else if constexpr (std::is_integral_v<X>) {
        boost::sort::spreadsort::integer_sort(first, last, [](const Entry& e, unsigned shift) { return e.x >> shift; },
                                              byX);
    } else {
        using Bits = std::conditional_t<sizeof(X) == 4, int32_t, int64_t>;
        boost::sort::spreadsort::float_sort(
            first, last,
            [](const Entry& e, unsigned shift) { return boost::sort::spreadsort::float_mem_cast<X, Bits>(e.x) >> shift; },
            byX);
    }
}

// Where a node's part of one predictor's order lies in the layer's buffer.
struct SortedSpan {
    uint64_t offset = 0, size = 0;
};

// The rows of one node: as they arrived, and per numeric predictor its span
// of the sorted order (rows whose value is missing left out).
template <class X>
struct NodeRows {
    RowVector rows;
    std::vector<SortedSpan> sorted;
};

// Row sides of a split, one byte per row of the matrix: every row is in one
// node of a layer, so the nodes of a layer share the marks.
enum class RowSide : uint8_t { Left = 0, Right = 1, Neither = 2 };

// A layer's sorted orders live in one buffer per predictor, and the next
// layer's in another: a child's part lies within its parent's span, lefts
// first, so buffers are made once per growth and swapped between layers.
template <class X>
class SortedOrders {
public:
    void assign(std::vector<SortedRows<X>> root) {
        current_ = std::move(root);
        next_.resize(current_.size());
        for (size_t p = 0; p < current_.size(); ++p) next_[p].resize(current_[p].size());
    }
    const SortedEntry<X>* at(uint64_t p, SortedSpan s) const { return current_[p].data() + s.offset; }
    std::vector<SortedSpan> rootSpans() const {
        std::vector<SortedSpan> spans(current_.size());
        for (size_t p = 0; p < current_.size(); ++p) spans[p] = {0, current_[p].size()};
        return spans;
    }
    // Writes the children's parts of every predictor into the next buffers.
    void partition(const std::vector<SortedSpan>& parent, const RowSide* side, std::vector<SortedSpan>& left,
                   std::vector<SortedSpan>& right) {
        left.resize(parent.size());
        right.resize(parent.size());
        for (size_t p = 0; p < parent.size(); ++p) {
            const SortedEntry<X>* in = current_[p].data() + parent[p].offset;
            SortedEntry<X>* out = next_[p].data() + parent[p].offset;
            size_t lefts = 0, rights = 0;
            const size_t n = parent[p].size;
            for (size_t i = 0; i < n; ++i) {
                const RowSide s = side[in[i].row];
                if (s == RowSide::Left) out[lefts++] = in[i];
                else if (s == RowSide::Right) out[n - 1 - rights++] = in[i];
            }
            std::reverse(out + n - rights, out + n);
            left[p] = {parent[p].offset, lefts};
            right[p] = {parent[p].offset + n - rights, rights};
        }
    }
    void nextLayer() { current_.swap(next_); }

private:
    std::vector<SortedRows<X>> current_, next_;
};

}  // namespace zv::classregtree

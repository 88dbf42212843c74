// Agglomerative linkage: the methods, the problem handed from the gateway to
// the engines, and the engines themselves.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zv::clustering {

enum class LinkageMethod { Single, Complete, Average, Weighted, Centroid, Median, Ward };

// Methods that work on squared distances report square-root heights.
constexpr bool worksOnSquares(LinkageMethod m) {
    return m == LinkageMethod::Centroid || m == LinkageMethod::Median || m == LinkageMethod::Ward;
}
// Methods whose update needs the cluster sizes.
constexpr bool keepsSizes(LinkageMethod m) {
    return m == LinkageMethod::Average || m == LinkageMethod::Centroid || m == LinkageMethod::Ward;
}

// The merge table Z, (n-1)-by-3 column-major: labels (1-based, smaller first)
// in the first two columns, the height in the third.
template <class T>
struct MergeTable {
    T* z;
    size_t n;
    void write(size_t k, uint64_t a, uint64_t b, T height) const {
        const size_t rows = n - 1;
        z[k] = T(a < b ? a : b) + T(1);
        z[k + rows] = T(a < b ? b : a) + T(1);
        z[k + 2 * rows] = height;
    }
};

// Linkage of n observations on their condensed distances y, of which the
// first `available` are given (the others read as NaN). The engine works on a
// private copy, squared for the methods that work on squares, except where
// single linkage can read y in place.
template <class T>
void linkageCondensed(LinkageMethod method, const T* y, size_t available, size_t n, const MergeTable<T>& out);

// Single linkage by a minimum spanning tree of the n(n-1)/2 distances in y,
// read in place. Returns false, leaving the rows to the list algorithm, where
// the outcome would hinge on its tie rule: equal merge heights, or any value
// that is not finite, is negative or is -0.
template <class T>
bool singleLinkageByTree(const T* y, size_t n, const MergeTable<T>& out);

// Memory-saving linkage for centroid, median and ward on p-by-n data x, one
// observation per column; the engine works on a private copy of its own.
template <class T>
void linkageVector(LinkageMethod method, const T* x, size_t p, size_t n, const MergeTable<T>& out);

}  // namespace zv::clustering

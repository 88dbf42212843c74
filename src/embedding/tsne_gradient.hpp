// Engines of one neighbour-embedding gradient: the exact attractive part over
// the sparse affinities and the Barnes-Hut repulsive part over all pairs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "embedding/affinity_list.hpp"

namespace zv::embedding {

// Y is d-by-N, one point per column.
template <class T>
struct Embedding {
    const T* Y;
    size_t N;
    size_t d;
};

// The order in which the points are visited: neighbours in space follow each
// other, so that their walks and affinity sums share cached data. Results do
// not depend on it.
using PointOrder = std::vector<int32_t>;

// Builds the tree over the root box (centre and half-width, d values each),
// writes the repulsive forces divided by Z into G (d-by-N, zeroed) and the
// per-point similarity sums into S (N, zeroed); returns Z, at least the
// smallest positive normal number of T. `order` receives the visiting order.
template <class T>
T tsneRepGradient(const Embedding<T>& y, T theta, const T* center, const T* halfWidth, T* G, T* S,
                  PointOrder& order);

// Adds the attractive forces into A (d-by-N, zeroed), visiting the points in
// `order` (a permutation of 0 .. N-1) or, when it is empty, ascending.
template <class T>
void tsneAttrGradient(const Embedding<T>& y, const AffinityList<T>& P, T* A, const PointOrder& order = {});

#define ZV_GRADIENT_ENGINES(T, EXTERN)                                                              \
    EXTERN template T tsneRepGradient<T>(const Embedding<T>&, T, const T*, const T*, T*, T*, PointOrder&); \
    EXTERN template void tsneAttrGradient<T>(const Embedding<T>&, const AffinityList<T>&, T*, const PointOrder&);
ZV_GRADIENT_ENGINES(double, extern)
ZV_GRADIENT_ENGINES(float, extern)

}  // namespace zv::embedding

// Engines of one neighbour-embedding gradient: the exact attractive part over
// the sparse affinities and the Barnes-Hut repulsive part over all pairs.
#pragma once

#include <cstddef>

#include "embedding/affinity_list.hpp"

namespace zv::embedding {

// Y is d-by-N, one point per column.
template <class T>
struct Embedding {
    const T* Y;
    size_t N;
    size_t d;
};

// Builds the tree over the root box (centre and half-width, d values each),
// writes the repulsive forces divided by Z into G (d-by-N, zeroed) and the
// per-point similarity sums into S (N, zeroed); returns Z, at least the
// smallest positive normal number of T.
template <class T>
T tsneRepGradient(const Embedding<T>& y, T theta, const T* center, const T* halfWidth, T* G, T* S);

// Adds the attractive forces into A (d-by-N, zeroed).
template <class T>
void tsneAttrGradient(const Embedding<T>& y, const AffinityList<T>& P, T* A);

#define ZV_GRADIENT_ENGINES(T, EXTERN)                                                              \
    EXTERN template T tsneRepGradient<T>(const Embedding<T>&, T, const T*, const T*, T*, T*);        \
    EXTERN template void tsneAttrGradient<T>(const Embedding<T>&, const AffinityList<T>&, T*);
ZV_GRADIENT_ENGINES(double, extern)
ZV_GRADIENT_ENGINES(float, extern)

}  // namespace zv::embedding

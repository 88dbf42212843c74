// Engine of the embedding loss: the divergence of the sparse affinities from
// the normalised similarities of the embedded points.
#pragma once

#include "embedding/tsne_gradient.hpp"

namespace zv::embedding {

// The sum of p log(q p Z) over the entries, q = 1 + squared distance; the
// entries of point i follow those of point i - 1. Serial, on the calling
// thread: the sum is in entry order.
template <class T>
T tsneLoss(const Embedding<T>& y, const AffinityList<T>& P, double Z);

extern template double tsneLoss<double>(const Embedding<double>&, const AffinityList<double>&, double);
extern template float tsneLoss<float>(const Embedding<float>&, const AffinityList<float>&, double);

}  // namespace zv::embedding

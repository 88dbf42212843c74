// The metrics of the dense and sparse distances. Kept free of code, since the
// kernel builds for one instruction set include it too.
#pragma once

namespace zv::distance {

// "cos", "cor" and "spe" are one metric here, Similarity: the caller has
// prepared the data so that the plain dot product is the similarity.
enum class PairMetric {
    Euclidean,
    SquaredEuclidean,
    SEuclidean,
    CityBlock,
    Minkowski,
    Similarity,
    Hamming,
    Jaccard,
    Chebychev,
    Mahalanobis
};

}  // namespace zv::distance

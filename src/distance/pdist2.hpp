// Cross distances between the columns of X and Y: the full matrix, the K
// nearest or farthest, or a radius search.
#pragma once

#include <cstddef>
#include <memory>

#include "distance/distance_two.hpp"
#include "distance/pair_metric.hpp"
#include "host/host.hpp"

namespace zv::distance {

template <class T>
struct Pdist2Problem {
    const T* x;           // p-by-nx
    const T* y;           // p-by-ny
    size_t nx, ny, p;
    PairMetric metric;
    T exponent;           // Minkowski
    const T* extra;       // SEuclidean: p weights, Mahalanobis: p-by-p factor R; may be null
    size_t extraCount;    // values stored behind `extra`
    int sign;             // 0: full matrix; +1: K smallest; -1: K largest
    size_t K;
    T radius;             // at least 0: radius search
    T* D;                 // nx-by-ny or K-by-ny (unused in the radius search)
    double* I;            // K-by-ny 1-based indices, may be null
    RadiusResults<T>* results;  // ny hit lists in the radius search
    bool sortHits;        // radius search: each list in the order of idxDistPdist2
};

// Fills D and I, or the hit lists. Without enough weights or factor values
// for the metric every distance is NaN.
template <class T>
void pdist2Engine(const Pdist2Problem<T>& problem, const std::shared_ptr<InterruptStateData>& interrupt);

extern template void pdist2Engine<double>(const Pdist2Problem<double>&, const std::shared_ptr<InterruptStateData>&);
extern template void pdist2Engine<float>(const Pdist2Problem<float>&, const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

// The gateway's computation with the caller's interrupt handle, for engines
// that run it nested inside their own parallel loops (from worker threads).
void pdist2bifNested(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs,
                     std::shared_ptr<InterruptStateData> interrupt);

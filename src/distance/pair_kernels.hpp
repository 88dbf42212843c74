// Vectorised walks over rows of the distance triangle for the metrics whose
// per-coordinate step is plain arithmetic. Work is vectorised across pairs,
// never along the coordinates, so every distance is the plain ascending sum.
// They serve Euclidean, SquaredEuclidean, SEuclidean, CityBlock, Chebychev
// and Hamming; no other metric reaches them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "distance/pair_metric.hpp"
#include "frame/scratch.hpp"

namespace zv::distance {

// Observations regrouped in panels of kLanes: panel b holds, for k = 0..p-1,
// the k-th coordinate of observations b*kLanes .. b*kLanes + kLanes - 1
// (zero past n), so that one coordinate of a whole panel is contiguous.
template <class T>
struct ObservationPanels {
    static constexpr size_t kLanes = 128 / sizeof(T);
    Scratch<T> data;  // on cache lines, for the kernels' vector loads
    size_t numPanels = 0;

    static ObservationPanels build(const T* x, size_t n, size_t p);
    // Panel b of the n observations of x, as build lays it out, into out.
    static void regroup(const T* x, size_t n, size_t p, size_t b, T* out);
    const T* panel(size_t b, size_t p) const { return data.get() + b * p * kLanes; }
};

template <class T>
struct TriangleTask {
    PairMetric metric;
    const T* x;        // p-by-n, observations contiguous
    size_t n, p;
    const ObservationPanels<T>* panels;
    const T* weights;  // SEuclidean: p values
    const T* marks;    // Hamming, Chebychev: per observation, 0 or NaN; may be null
    T* y;              // condensed output
};

// Values of `count` observations against the kLanes observations of one
// panel, into out[c * kLanes + lane]: sums before any root, or for Hamming
// the fraction of unequal coordinates.
template <class T>
struct CrossBlock {
    PairMetric metric;
    const T* const* observations;
    size_t count;
    const T* panel;
    size_t p;
    const T* weights;  // SEuclidean
    T* out;
    // Optional, for nearest-neighbour scans: hits[c] gets a bit for each lane
    // whose sign * value is below bounds[c]; a NaN bound lets every lane pass.
    const T* bounds = nullptr;
    T sign = 1;
    uint32_t* hits = nullptr;
};

template <class T>
void computeCrossBlock(const CrossBlock<T>& block);

// One full panel (kLanes observations from x, p values each) into out, laid
// out as ObservationPanels lays out its panels.
template <class T>
void regroupPanel(const T* x, size_t p, T* out);

// out[k] = sqrt(values[k]) for k < n, by vectors where the processor has them.
template <class T>
void computeRoots(const T* values, size_t n, T* out);

// Computes rows [rowBegin, rowEnd) of the triangle into task.y.
template <class T>
void computeTriangleRows(const TriangleTask<T>& task, size_t rowBegin, size_t rowEnd);

}  // namespace zv::distance

// Cross distances between the columns of X and Y: the full matrix, the K
// nearest or farthest, or a radius search.
#pragma once

#include <cstddef>
#include <memory>

#include "distance/distance_two.hpp"
#include "host/host.hpp"

namespace zv::distance {

template <class T>
struct Pdist2Problem {
    const T* x;           // p-by-nx
    const T* y;           // p-by-ny
    size_t nx, ny, p;
    const char* code;     // three-letter metric code
    T exponent;           // "min"
    const T* extra;       // "seu": p weights, "mah": p-by-p factor R; may be null
    size_t extraCount;
    int sign;             // 0: full matrix; +1: K smallest; -1: K largest
    size_t K;
    T radius;             // at least 0: radius search
    T* D;                 // nx-by-ny or K-by-ny (unused in the radius search)
    double* I;            // K-by-ny 1-based indices, may be null
    RadiusResults<T>* results;  // ny hit lists in the radius search
};

// Fills D and I, or the hit lists (unsorted). An unknown code computes
// nothing and gives false. "seu" and "mah" without enough weights or factor
// values give NaN.
template <class T>
bool pdist2Engine(const Pdist2Problem<T>& problem, const std::shared_ptr<InterruptStateData>& interrupt);

extern template bool pdist2Engine<double>(const Pdist2Problem<double>&, const std::shared_ptr<InterruptStateData>&);
extern template bool pdist2Engine<float>(const Pdist2Problem<float>&, const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

// The gateway's computation with the caller's interrupt handle, for engines
// that run it nested inside their own parallel loops (from worker threads).
void pdist2bifNested(int numOutputs, ndArray** outputs, int numInputs, const ndArray** inputs,
                     std::shared_ptr<InterruptStateData> interrupt);

// Distances between two data sets of mixed categorical and continuous
// coordinates, by Lin's, Goodall's or the occurrence-frequency measure.
#pragma once

#include <cstddef>
#include <memory>

#include "frame/options.hpp"
#include "host/interrupt.hpp"

namespace zv::distance {

enum class HeterogeneousMeasure { Lin, Goodall, OccurrenceFrequency };

// By the first three letters of the code, compared exactly.
inline constexpr OptionName<HeterogeneousMeasure> kHeterogeneousMeasureCodes[] = {
    {"lin", HeterogeneousMeasure::Lin},
    {"goo", HeterogeneousMeasure::Goodall},
    {"ofd", HeterogeneousMeasure::OccurrenceFrequency}};

template <class T>
struct HeterogeneousProblem {
    const T* x;                 // p-by-nx raw values, one observation per column
    const T* y;                 // p-by-ny
    size_t nx, ny, p;
    const T* f;                 // p-by-nx: the count of X's value at a categorical
    const T* g;                 // coordinate, its scaled value at a continuous one; G for Y
    const size_t* categorical;  // c coordinates, 1-based, ascending
    size_t c;
    HeterogeneousMeasure measure;
    T* d;                       // nx-by-ny, zero on entry
    // What stands behind y, f, g (in T) and categorical (in 64-bit words).
    // Nothing past them is read: too little gives NaN distances.
    size_t yCount, fCount, gCount, categoricalCount;
};

// Fills problem.d.
template <class T>
void heterogeneousEngine(const HeterogeneousProblem<T>& problem,
                         const std::shared_ptr<InterruptStateData>& interrupt);

extern template void heterogeneousEngine<double>(const HeterogeneousProblem<double>&,
                                                 const std::shared_ptr<InterruptStateData>&);
extern template void heterogeneousEngine<float>(const HeterogeneousProblem<float>&,
                                                const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

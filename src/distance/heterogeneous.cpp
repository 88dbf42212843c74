// The mixed-type distance engine: picks the functor of a measure and runs it
// over the 2-d block range of (Y, X) pairs; "lin" first sums the logarithms
// of each observation's categorical counts.
#include "distance/heterogeneous.hpp"

#include <tbb/blocked_range.h>
#include <tbb/blocked_range2d.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "distance/heterogeneous_distance.hpp"
#include "distance/stored_values.hpp"

namespace zv::distance {

namespace {

template <class T>
bool inputsComplete(const HeterogeneousProblem<T>& pr) {
    return holdsMatrix(pr.yCount, pr.p, pr.ny) && holdsMatrix(pr.fCount, pr.p, pr.nx) &&
           holdsMatrix(pr.gCount, pr.p, pr.ny) && pr.categoricalCount >= pr.c;
}

// sums[i] = the sum over the entries e of C, in order, of
// log(freq[C[e] - 1, i] / total). An entry outside 1..p names no coordinate
// of the data, and its term is NaN.
template <class T>
void fillLogSums(T* sums, const T* freq, size_t n, size_t p, const size_t* C, size_t c, T total) {
    if (n == 0) return;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, n, 1),
        [=](const tbb::blocked_range<size_t>& r) {
            for (size_t i = r.begin(); i != r.end(); ++i) {
                const T* column = freq + i * p;
                T sum = 0;
                for (size_t e = 0; e < c; ++e)
                    sum += C[e] - 1 < p ? std::log(column[C[e] - 1] / total) : std::numeric_limits<T>::quiet_NaN();
                sums[i] = sum;
            }
        },
        tbb::auto_partitioner());
}

// Rows of the range are observations of Y, columns those of X.
template <class Body>
void runPairs(size_t nx, size_t ny, const Body& body) {
    if (nx == 0 || ny == 0) return;
    tbb::parallel_for(tbb::blocked_range2d<size_t, size_t>(0, ny, 1, 0, nx, 1), body, tbb::auto_partitioner());
}

}  // namespace

template <class T>
void heterogeneousEngine(const HeterogeneousProblem<T>& pr, const std::shared_ptr<InterruptStateData>& interrupt) {
    if (!inputsComplete(pr)) {
        std::fill(pr.d, pr.d + pr.nx * pr.ny, std::numeric_limits<T>::quiet_NaN());
        return;
    }
    const size_t nx = pr.nx, ny = pr.ny, p = pr.p, c = pr.c;
    const T *x = pr.x, *y = pr.y, *f = pr.f, *g = pr.g;
    const size_t* C = pr.categorical;

    switch (pr.measure) {
    case HeterogeneousMeasure::Lin: {
        // The log sums share the denominator nx + ny; the distances use nx + 1.
        std::vector<T> a(nx, T(0)), b(ny, T(0));
        const T total = T(nx + ny);
        fillLogSums(a.data(), f, nx, p, C, c, total);
        fillLogSums(b.data(), g, ny, p, C, c, total);
        return runPairs(nx, ny, LinDistanceTwo<T>(x, y, nx, ny, p, pr.d, interrupt, f, g, C, c, a.data(), b.data()));
    }
    case HeterogeneousMeasure::Goodall:
        return runPairs(nx, ny, GoodDistanceTwo<T>(x, y, nx, ny, p, pr.d, interrupt, f, g, C, c));
    case HeterogeneousMeasure::OccurrenceFrequency:
        return runPairs(nx, ny, OfDistanceTwo<T>(x, y, nx, ny, p, pr.d, interrupt, f, g, C, c));
    }
}

template void heterogeneousEngine<double>(const HeterogeneousProblem<double>&,
                                          const std::shared_ptr<InterruptStateData>&);
template void heterogeneousEngine<float>(const HeterogeneousProblem<float>&,
                                         const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

// The condensed-distance engine: picks the functor for a metric and runs
// it over the rows of the triangle; the cosine family runs as one
// matrix-vector product per row on the calling thread.
#include "distance/pdist.hpp"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <cmath>
#include <limits>
#include <new>
#include <type_traits>
#include <vector>

#include "distance/distance_one.hpp"
#include "distance/nan_marks.hpp"
#include "distance/stored_values.hpp"
#include "frame/blas.hpp"
#include "frame/message_ids.hpp"

namespace zv::distance {

namespace {

template <class Body>
void runRows(size_t n, const Body& body) {
    if (n == 0) return;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 1), body, tbb::auto_partitioner());
}

// "cos", "cor", "spe": X is prepared so that the dot product is the
// similarity; row i-1 of the triangle is X(:, i:n-1)^T x_{i-1}.
template <class T>
void similarityRows(const PdistProblem<T>& pr, const std::shared_ptr<InterruptStateData>& interrupt) {
    const size_t n = pr.n, p = pr.p;
    for (size_t i = 1; i < n; ++i) {
        T* row = pr.y + condensedRowStart(i - 1, n);
        blas::gemv("T", p, n - i, T(1), pr.x + i * p, p, pr.x + (i - 1) * p, T(0), row);
        InterruptState::ThrowIfInterruptPending(interrupt);
        for (size_t j = 0; j < n - i; ++j) row[j] = row[j] > T(1) ? T(0) : T(1) - row[j];
    }
}

template <class T>
void fillNaN(const PdistProblem<T>& pr) {
    const size_t count = pr.n < 2 ? 0 : pr.n * (pr.n - 1) / 2;
    std::fill(pr.y, pr.y + count, std::numeric_limits<T>::quiet_NaN());
}

}  // namespace

template <class T>
void pdistEngine(const PdistProblem<T>& pr, const std::shared_ptr<InterruptStateData>& interrupt) {
    const size_t n = pr.n, p = pr.p;
    if (!holdsMatrix(pr.xCount, p, n)) return fillNaN(pr);
    auto panelTask = [&](const ObservationPanels<T>& panels, const T* marks) {
        return TriangleTask<T>{pr.metric, pr.x, n, p, &panels, pr.extra, marks, pr.y};
    };
    auto runPanels = [&]<class Body>(std::type_identity<Body>, const T* marks = nullptr) {
        const auto panels = ObservationPanels<T>::build(pr.x, n, p);
        runRows(n, Body(panelTask(panels, marks), interrupt));
    };
    auto withMarks = [&](auto run) {
        if (n == 0) return;
        const std::vector<T> marks = nanMarks(pr.x, n, p);
        run(marks.empty() ? nullptr : marks.data());
    };

    switch (pr.metric) {
    case PairMetric::Euclidean:
    case PairMetric::SquaredEuclidean: return runPanels(std::type_identity<EuclideanDistanceOne<T>>{});
    case PairMetric::SEuclidean:
        if (!holdsMatrix(pr.extraCount, p, 1)) return fillNaN(pr);
        return runPanels(std::type_identity<SEuclideanDistanceOne<T>>{});
    case PairMetric::CityBlock: return runPanels(std::type_identity<CityBlockDistanceOne<T>>{});
    case PairMetric::Minkowski:
        return runRows(n, MinkowskiDistanceOne<T>(pr.x, n, p, pr.y, interrupt,
                                                   MinkowskiMetric<T>{pr.exponent, T(1) / pr.exponent}));
    case PairMetric::Similarity: return similarityRows(pr, interrupt);
    case PairMetric::Hamming:
        return withMarks([&](const T* marks) { runPanels(std::type_identity<HammingDistanceOne<T>>{}, marks); });
    case PairMetric::Chebychev:
        return withMarks([&](const T* marks) { runPanels(std::type_identity<ChebychevDistanceOne<T>>{}, marks); });
    case PairMetric::Jaccard:
        return withMarks([&](const T* marks) {
            runRows(n, JaccardDistanceOne<T>(pr.x, n, p, pr.y, interrupt, JaccardMetric<T>{}, marks));
        });
    case PairMetric::Mahalanobis:
        if (n == 0) return;
        if (!holdsMatrix(pr.extraCount, p, p)) return fillNaN(pr);
        try {
            runRows(n, MahalanobisDistanceOne<T>(pr.x, n, p, pr.y, interrupt, MahalanobisMetric<T>{pr.extra}));
        } catch (const std::bad_alloc&) {
            ndErrMsgId(stats::pdistbif::MemoryLessThanXBytes(long(sizeof(T) * p)));
        }
        return;
    }
}

template void pdistEngine<double>(const PdistProblem<double>&, const std::shared_ptr<InterruptStateData>&);
template void pdistEngine<float>(const PdistProblem<float>&, const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

// The cross-distance engine: picks the policy of a metric and runs the
// functor of the requested mode.
#include "distance/pdist2.hpp"

#include <tbb/blocked_range.h>
#include <tbb/blocked_range2d.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_sort.h>

#include <new>
#include <vector>

#include "distance/cross_distance.hpp"
#include "distance/nan_marks.hpp"
#include "distance/stored_values.hpp"
#include "frame/blas.hpp"
#include "frame/message_ids.hpp"

namespace zv::distance {

namespace {

template <class T>
class CrossRun {
public:
    CrossRun(const Pdist2Problem<T>& pr, const std::shared_ptr<InterruptStateData>& interrupt)
        : pr_(pr), interrupt_(interrupt) {}

    // Runs the mode's functor for one metric policy.
    template <class Metric>
    void operator()(Metric metric, const T* marksX = nullptr, const T* marksY = nullptr,
                    const PanelWalker<T>* walker = nullptr) const {
        const Pdist2Problem<T>& p = pr_;
        if (p.radius >= 0) {
            if (p.ny == 0) return;
            tbb::parallel_for(tbb::blocked_range<size_t>(0, p.ny, 1),
                              MetricDistanceRadius<T, Metric>(p.x, p.y, p.nx, p.ny, p.p, p.radius, *p.results,
                                                              interrupt_, metric, marksX, marksY, walker),
                              tbb::auto_partitioner());
        } else if (p.sign != 0) {
            if (p.ny == 0) return;
            tbb::parallel_for(tbb::blocked_range<size_t>(0, p.ny, 1),
                              MetricDistanceKNN<T, Metric>(p.x, p.y, p.nx, p.ny, p.p, p.K, p.sign, p.D, p.I,
                                                           interrupt_, metric, marksX, marksY, walker),
                              tbb::auto_partitioner());
        } else {
            if (p.nx == 0 || p.ny == 0) return;
            tbb::parallel_for(tbb::blocked_range2d<size_t, size_t>(0, p.ny, 1, 0, p.nx, 1),
                              MetricDistanceTwo<T, Metric>(p.x, p.y, p.nx, p.ny, p.p, p.D, interrupt_, metric,
                                                           marksX, marksY, walker),
                              tbb::auto_partitioner());
        }
    }

private:
    const Pdist2Problem<T>& pr_;
    const std::shared_ptr<InterruptStateData>& interrupt_;
};

// The full cosine-family matrix is one product X^T Y on the calling thread.
template <class T>
void similarityMatrix(const Pdist2Problem<T>& pr, const std::shared_ptr<InterruptStateData>& interrupt) {
    if (pr.nx == 0 || pr.ny == 0) return;
    blas::gemm("T", "N", pr.nx, pr.ny, pr.p, T(1), pr.x, pr.p, pr.y, pr.p, T(0), pr.D, pr.nx);
    for (size_t j = 0; j < pr.ny; ++j) {
        InterruptState::ThrowIfInterruptPending(interrupt);
        T* column = pr.D + j * pr.nx;
        for (size_t i = 0; i < pr.nx; ++i) column[i] = column[i] > T(1) ? T(0) : T(1) - column[i];
    }
}

// The hit lists, sorted one after the other on the calling thread.
template <class T>
void sortHits(RadiusResults<T>& results) {
    for (auto& hits : results)
        if (!hits.empty()) tbb::parallel_sort(hits.begin(), hits.end());
}

}  // namespace

template <class T>
void pdist2Engine(const Pdist2Problem<T>& pr, const std::shared_ptr<InterruptStateData>& interrupt) {
    const CrossRun<T> run(pr, interrupt);
    // The metrics with vectorised kernels run over panels of X built once.
    ObservationPanels<T> panels;
    PanelWalker<T> walker{};
    auto panelWalker = [&] {
        if (PanelWalker<T>::regroupsOnTheFly(pr.ny, pr.p)) {
            walker = PanelWalker<T>{nullptr, pr.metric, pr.y, pr.p, pr.extra, pr.x, pr.nx};
        } else {
            panels = ObservationPanels<T>::build(pr.x, pr.nx, pr.p);
            walker = PanelWalker<T>{&panels, pr.metric, pr.y, pr.p, pr.extra};
        }
        return &walker;
    };
    auto withMarks = [&](auto run) {
        std::vector<T> marksX = nanMarks(pr.x, pr.nx, pr.p), marksY = nanMarks(pr.y, pr.ny, pr.p);
        if (!marksX.empty() || !marksY.empty()) {
            marksX.resize(pr.nx, T(0));
            marksY.resize(pr.ny, T(0));
        }
        run(marksX.empty() ? nullptr : marksX.data(), marksY.empty() ? nullptr : marksY.data());
    };

    switch (pr.metric) {
    case PairMetric::Euclidean:
    case PairMetric::SquaredEuclidean:
        run(EuclideanMetric<T>{.squared = pr.metric == PairMetric::SquaredEuclidean}, nullptr, nullptr,
            panelWalker());
        break;
    case PairMetric::SEuclidean:
        if (holdsMatrix(pr.extraCount, pr.p, 1))
            run(SEuclideanMetric<T>{.weights = pr.extra}, nullptr, nullptr, panelWalker());
        else
            run(UndefinedMetric<T>{});
        break;
    case PairMetric::CityBlock: run(CityBlockMetric<T>{}, nullptr, nullptr, panelWalker()); break;
    case PairMetric::Mahalanobis:
        if (!holdsMatrix(pr.extraCount, pr.p, pr.p)) {
            run(UndefinedMetric<T>{});
            break;
        }
        try {
            run(MahalanobisMetric<T>{.factor = pr.extra});
        } catch (const std::bad_alloc&) {
            ndErrMsgId(stats::pdist2bif::MemoryLessThanXBytes(long(sizeof(T) * pr.p)));
        }
        break;
    case PairMetric::Minkowski: run(MinkowskiMetric<T>{.exponent = pr.exponent, .inverse = T(1) / pr.exponent}); break;
    case PairMetric::Similarity:
        if (pr.radius < 0 && pr.sign == 0) similarityMatrix(pr, interrupt);
        else run(CosCorMetric<T>{});
        break;
    case PairMetric::Hamming:
        withMarks([&](const T* mx, const T* my) { run(HammingMetric<T>{}, mx, my, panelWalker()); });
        break;
    case PairMetric::Jaccard: withMarks([&](const T* mx, const T* my) { run(JaccardMetric<T>{}, mx, my); }); break;
    case PairMetric::Chebychev:
        withMarks([&](const T* mx, const T* my) { run(ChebychevMetric<T>{}, mx, my, panelWalker()); });
        break;
    }
    if (pr.radius >= 0 && pr.sortHits) sortHits(*pr.results);
}

template void pdist2Engine<double>(const Pdist2Problem<double>&, const std::shared_ptr<InterruptStateData>&);
template void pdist2Engine<float>(const Pdist2Problem<float>&, const std::shared_ptr<InterruptStateData>&);

}  // namespace zv::distance

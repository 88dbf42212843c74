// The two gradient engines: a serial tree build on the calling thread, then
// one parallel force walk per point; the attractive sums per point.
#include "embedding/tsne_gradient.hpp"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "embedding/bh_tree.hpp"
#include "frame/scratch.hpp"

namespace zv::embedding {

namespace {

// The points in the order their leaves lie in the tree, then the rest
// (duplicates, points left out) ascending: neighbouring walks then read the
// same nodes. Each point's result does not depend on this order.
template <class T>
PointOrder walkOrder(const BHTree<T>& tree, size_t N) {
    PointOrder order;
    order.reserve(N);
    tree.appendLeafPoints(order);
    std::vector<char> placed(N, 0);
    for (int32_t i : order) placed[size_t(i)] = 1;
    for (size_t i = 0; i < N; ++i)
        if (!placed[i]) order.push_back(int32_t(i));
    return order;
}

template <class T, size_t DIMS>
void buildAndWalk(BHTree<T>& tree, size_t N, size_t d, T theta, T* G, T* S, PointOrder& order) {
    for (size_t i = 0; i < N; ++i) tree.template insert<DIMS>(int32_t(i));
    if (N == 0) return;
    order = walkOrder(tree, N);
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, order.size(), 1),
        [&](const tbb::blocked_range<size_t>& r) {
            // Every worker allocates at once: the scalable allocator serves them.
            const Scratch<T> t(d, T(0), Heap::alignedWorker);
            for (size_t o = r.begin(); o != r.end(); ++o) {
                const int32_t i = order[o];
                tree.template walk<DIMS>(i, theta, G + size_t(i) * d, S[i], t.get());
            }
        },
        tbb::auto_partitioner());
}

template <class T, size_t DIMS>
void attractAll(const Embedding<T>& y, const AffinityList<T>& P, T* A, const PointOrder& order) {
    const size_t d = DIMS > 0 ? DIMS : y.d;
    const int64_t N = int64_t(y.N), numEntries = int64_t(P.numEntries);
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, y.N, 1),
        [&](const tbb::blocked_range<size_t>& r) {
            const Scratch<T> scratch(d, T(0), Heap::alignedWorker);
            T fixedT[DIMS > 0 ? DIMS : 1];
            T* t = DIMS > 0 ? fixedT : scratch.get();
            for (size_t o = r.begin(); o != r.end(); ++o) {
                const size_t i = order.empty() ? o : size_t(order[o]);
                const double count = P.count(i);
                if (!(count > 0)) continue;
                if (i >= P.numStarts || std::isnan(P.starts[i])) continue;
                const int64_t start = AffinityList<T>::position(P.starts[i]);
                const T* yi = y.Y + i * d;
                // Sums in registers where the dimension is fixed; they start
                // at the zero of the output, so the sums are the same.
                T fixed[DIMS > 0 ? DIMS : 1] = {};
                T* a = DIMS > 0 ? fixed : A + i * d;
                // Entries before the first or past the last that were passed
                // are skipped; an entry's offset from the start compares with
                // the count in double, so no integer can overflow.
                for (int64_t e = std::max<int64_t>(start, 0); e < numEntries; ++e) {
                    if (!(double(e) - double(start) < count)) break;
                    const int64_t j = P.neighbour(e, N);
                    if (j < 0) continue;
                    const T* yj = y.Y + size_t(j) * d;
                    T s = 1;  // 1 + the squared distance, summed from the 1
                    for (size_t k = 0; k < d; ++k) {
                        t[k] = yi[k] - yj[k];
                        s += t[k] * t[k];
                    }
                    const T v = P.values[e] / s;
                    for (size_t k = 0; k < d; ++k) a[k] += t[k] * v;
                }
                if (DIMS > 0) std::copy_n(fixed, d, A + i * d);
            }
        },
        tbb::auto_partitioner());
}

}  // namespace

template <class T>
T tsneRepGradient(const Embedding<T>& y, T theta, const T* center, const T* halfWidth, T* G, T* S,
                  PointOrder& order) {
    {
        BHTree<T> tree(y.Y, y.d, center, halfWidth, y.d <= 3 ? 3 * y.N + 1 : 1);
        switch (y.d) {
        case 1: buildAndWalk<T, 1>(tree, y.N, y.d, theta, G, S, order); break;
        case 2: buildAndWalk<T, 2>(tree, y.N, y.d, theta, G, S, order); break;
        case 3: buildAndWalk<T, 3>(tree, y.N, y.d, theta, G, S, order); break;
        default: buildAndWalk<T, 0>(tree, y.N, y.d, theta, G, S, order); break;
        }
    }
    T Z = 0;
    for (size_t i = 0; i < y.N; ++i) Z += S[i];
    Z = std::fmax(Z, std::numeric_limits<T>::min());
    const size_t count = y.N * y.d;
    for (size_t e = 0; e < count; ++e) G[e] /= Z;
    return Z;
}

template <class T>
void tsneAttrGradient(const Embedding<T>& y, const AffinityList<T>& P, T* A, const PointOrder& order) {
    if (y.N == 0) return;
    switch (y.d) {
    case 1: attractAll<T, 1>(y, P, A, order); break;
    case 2: attractAll<T, 2>(y, P, A, order); break;
    case 3: attractAll<T, 3>(y, P, A, order); break;
    default: attractAll<T, 0>(y, P, A, order); break;
    }
}

ZV_GRADIENT_ENGINES(double, )
ZV_GRADIENT_ENGINES(float, )

}  // namespace zv::embedding

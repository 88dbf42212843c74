// The embedding loss, one pass over the affinity entries in order.
#include "embedding/tsne_loss.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zv::embedding {

template <class T>
T tsneLoss(const Embedding<T>& y, const AffinityList<T>& P, double Z) {
    const size_t d = y.d;
    const int64_t N = int64_t(y.N), numEntries = int64_t(P.numEntries);
    const T z = T(Z);
    T L = 0;
    int64_t e = 0;
    for (size_t i = 0; i < y.N; ++i) {
        const double c = P.count(i);
        if (c > 0) {
            // A fractional count takes ceil(c) entries but moves the position
            // by trunc(c) only; entries outside what was passed are skipped.
            // Entries from max(e, 0) while their offset from e is below c;
            // the offset is taken in double, so no integer can overflow.
            for (int64_t entry = std::max<int64_t>(e, 0); entry < numEntries; ++entry) {
                if (!(double(entry) - double(e) < c)) break;
                const int64_t j = P.neighbour(entry, N);
                if (j < 0) continue;
                const T* yi = y.Y + i * d;
                const T* yj = y.Y + size_t(j) * d;
                T q = 1;
                for (size_t k = 0; k < d; ++k) {
                    const T t = yi[k] - yj[k];
                    q += t * t;
                }
                const T p = P.values[entry];
                L += p * std::log(q * p * z);
            }
        }
        if (!std::isnan(c)) e = checked::truncateSaturated<int64_t>(double(e) + c);
    }
    return L;
}

template double tsneLoss<double>(const Embedding<double>&, const AffinityList<double>&, double);
template float tsneLoss<float>(const Embedding<float>&, const AffinityList<float>&, double);

}  // namespace zv::embedding

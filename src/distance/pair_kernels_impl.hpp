// Body of the triangle-row kernels, compiled once per instruction set. The
// including file defines ZV_KERNEL_NS; everything here has internal linkage
// so that no code of one instruction set is shared with another.
#include <cstdint>
#include <cstring>
#if defined(__AVX2__)
#include <immintrin.h>
#endif
#include <type_traits>

#include "distance/condensed.hpp"
#include "distance/pair_kernels.hpp"

namespace zv::distance::ZV_KERNEL_NS {
namespace {

template <class T>
struct Vec;
template <>
struct Vec<double> {
    typedef double type __attribute__((vector_size(32)));
    typedef int64_t bits __attribute__((vector_size(32)));
};
template <>
struct Vec<float> {
    typedef float type __attribute__((vector_size(32)));
    typedef int32_t bits __attribute__((vector_size(32)));
};

template <class T>
inline typename Vec<T>::type absOf(typename Vec<T>::type d) {
    using B = typename Vec<T>::bits;
    using I = std::remove_reference_t<decltype(B{}[0])>;
    constexpr I signMask = I(~(I(1) << (sizeof(I) * 8 - 1)));
    return (typename Vec<T>::type)((B)d & signMask);
}

template <class V, class T>
inline V splat(T s) {
    V r;
    for (size_t l = 0; l < sizeof(V) / sizeof(T); ++l) r[l] = s;
    return r;
}

template <class V, class T>
inline V load(const T* p) {
    V r;
    std::memcpy(&r, p, sizeof(V));
    return r;
}

// One coordinate step of each metric, on a vector of pairs. The order of the
// operations is that of the scalar definition, lane by lane.
template <class T, PairMetric M>
inline typename Vec<T>::type step(typename Vec<T>::type acc, typename Vec<T>::type u,
                                  typename Vec<T>::type x, typename Vec<T>::type w) {
    using V = typename Vec<T>::type;
    if constexpr (M == PairMetric::Euclidean || M == PairMetric::SquaredEuclidean) {
        V d = u - x;
        return acc + d * d;
    } else if constexpr (M == PairMetric::SEuclidean) {
        V d = u - x;
        return acc + (d * d) * w;
    } else if constexpr (M == PairMetric::CityBlock) {
        return acc + absOf<T>(u - x);
    } else if constexpr (M == PairMetric::Chebychev) {
        V a = absOf<T>(u - x);
        return a > acc ? a : acc;  // NaN differences never win
    } else {
        // Hamming: the mask is all ones where unequal; and-ed with the bits
        // of 1 it gives 1 there, with no integer-to-float conversion.
        using B = typename Vec<T>::bits;
        return acc + (V)((B)(u != x) & (B)splat<V>(T(1)));
    }
}

template <class T, PairMetric M>
inline T finish(T sum, size_t p) {
    if constexpr (M == PairMetric::Euclidean || M == PairMetric::SEuclidean) {
        if constexpr (sizeof(T) == sizeof(double)) return __builtin_sqrt(sum);
        else return __builtin_sqrtf(sum);
    }
    else if constexpr (M == PairMetric::Hamming) return sum / T(p);
    else return sum;
}

template <class T>
struct PanelSums {
    typename Vec<T>::type v[4];
    const typename Vec<T>::type& operator[](size_t k) const { return v[k]; }
};

// The sums of one observation u against the kLanes observations of a panel,
// in four independent accumulators kept in registers.
template <class T, PairMetric M>
inline PanelSums<T> panelSums(const T* u, const T* panel, size_t p, const T* weights) {
    using V = typename Vec<T>::type;
    constexpr size_t L = ObservationPanels<T>::kLanes;
    constexpr size_t VL = sizeof(V) / sizeof(T);
    static_assert(L == 4 * VL, "the kernel keeps four vector accumulators");
    V acc0{}, acc1{}, acc2{}, acc3{};
    for (size_t k = 0; k < p; ++k) {
        const V uk = splat<V>(u[k]);
        const V wk = M == PairMetric::SEuclidean ? splat<V>(weights[k]) : V{};
        const T* lane = panel + k * L;
        acc0 = step<T, M>(acc0, uk, load<V>(lane), wk);
        acc1 = step<T, M>(acc1, uk, load<V>(lane + VL), wk);
        acc2 = step<T, M>(acc2, uk, load<V>(lane + 2 * VL), wk);
        acc3 = step<T, M>(acc3, uk, load<V>(lane + 3 * VL), wk);
    }
    return PanelSums<T>{{acc0, acc1, acc2, acc3}};
}

// One bit per lane of a comparison mask.
template <class T>
inline uint32_t laneBits(typename Vec<T>::bits m) {
#if defined(__AVX2__)
    if constexpr (sizeof(T) == sizeof(double)) return uint32_t(_mm256_movemask_pd(__m256d(m)));
    else return uint32_t(_mm256_movemask_ps(__m256(m)));
#else
    uint32_t r = 0;
    for (size_t l = 0; l < sizeof(m) / sizeof(T); ++l) r |= uint32_t(m[l] != 0) << l;
    return r;
#endif
}

// The lanes of a finished panel row whose sign * value is below `bound`:
// v < bound, or v > -bound for the largest; NaN values never pass.
template <class T>
inline uint32_t laneHits(const PanelSums<T>& acc, T bound, T sign) {
    using V = typename Vec<T>::type;
    using B = typename Vec<T>::bits;
    constexpr size_t VL = sizeof(V) / sizeof(T);
    constexpr size_t L = ObservationPanels<T>::kLanes;
    if (bound != bound) return L == 32 ? ~uint32_t(0) : (uint32_t(1) << L) - 1;
    const V limit = splat<V>(sign * bound);
    B below[4];
    if (sign > 0) {
#pragma GCC unroll 4
        for (size_t v = 0; v < 4; ++v) below[v] = (B)(acc[v] < limit);
    } else {
#pragma GCC unroll 4
        for (size_t v = 0; v < 4; ++v) below[v] = (B)(acc[v] > limit);
    }
    return laneBits<T>(below[0]) | laneBits<T>(below[1]) << VL | laneBits<T>(below[2]) << (2 * VL) |
           laneBits<T>(below[3]) << (3 * VL);
}

// Cross values of several observations against one panel: sums, except the
// Hamming count, which becomes its fraction. The panel stays in cache for all.
template <class T, PairMetric M>
void blockValues(const CrossBlock<T>& b) {
    constexpr size_t L = ObservationPanels<T>::kLanes;
    using V = typename Vec<T>::type;
    constexpr size_t VL = sizeof(V) / sizeof(T);
    for (size_t c = 0; c < b.count; ++c) {
        PanelSums<T> acc = panelSums<T, M>(b.observations[c], b.panel, b.p, b.weights);
        if constexpr (M == PairMetric::Hamming) {
#pragma GCC unroll 4
            for (size_t v = 0; v < 4; ++v) acc.v[v] = acc.v[v] / splat<V>(T(b.p));
        }
        T* out = b.out + c * L;
#pragma GCC unroll 4
        for (size_t v = 0; v < 4; ++v) std::memcpy(out + v * VL, &acc.v[v], sizeof(V));
        if (b.hits) b.hits[c] = laneHits<T>(acc, b.bounds[c], b.sign);
    }
}

// Rows are taken in tiles so that one panel, read once from memory, serves
// every row of the tile from the first-level cache.
constexpr size_t kRowTile = 32;

template <class T, PairMetric M>
void rows(const TriangleTask<T>& t, size_t rowBegin, size_t rowEnd) {
    using V = typename Vec<T>::type;
    constexpr size_t L = ObservationPanels<T>::kLanes;
    constexpr size_t VL = sizeof(V) / sizeof(T);
    constexpr size_t NV = L / VL;
    static_assert(NV == 4, "the kernel keeps four vector accumulators");
    const size_t n = t.n, p = t.p;
    const size_t numPanels = t.panels->numPanels;
    alignas(64) T sums[L];

    for (size_t a = rowBegin; a < rowEnd; a += kRowTile) {
        const size_t b = rowEnd - a < kRowTile ? rowEnd : a + kRowTile;
        for (size_t pb = (a + 1) / L; pb < numPanels; ++pb) {
            const T* panel = t.panels->panel(pb, p);
            const size_t j0 = pb * L;
            const size_t jEnd = j0 + L < n ? j0 + L : n;
            for (size_t i = a; i < b; ++i) {
                if (jEnd <= i + 1) continue;
                const PanelSums<T> acc = panelSums<T, M>(t.x + i * p, panel, p, t.weights);
                const size_t jStart = j0 > i + 1 ? j0 : i + 1;
                T* out = t.y + condensedRowStart(i, n) - (i + 1);
                if (!t.marks && jStart == j0 && jEnd == j0 + L) {
                    // The whole panel lies right of the diagonal: finish and
                    // store it by vectors.
#pragma GCC unroll 4
                    for (size_t v = 0; v < NV; ++v) {
                        V r = acc[v];
                        for (size_t l = 0; l < VL; ++l) r[l] = finish<T, M>(r[l], p);
                        std::memcpy(out + j0 + v * VL, &r, sizeof(V));
                    }
                    continue;
                }
                std::memcpy(sums, &acc, sizeof(sums));
                if (t.marks) {
                    const T mi = t.marks[i];
                    for (size_t j = jStart; j < jEnd; ++j) {
                        const T mj = t.marks[j];
                        out[j] = (mi != 0 || mj != 0) ? mi + mj : finish<T, M>(sums[j - j0], p);
                    }
                } else {
                    for (size_t j = jStart; j < jEnd; ++j) out[j] = finish<T, M>(sums[j - j0], p);
                }
            }
        }
    }
}

template <class T>
void dispatchBlock(const CrossBlock<T>& b) {
    switch (b.metric) {
    case PairMetric::Euclidean:
    case PairMetric::SquaredEuclidean: return blockValues<T, PairMetric::Euclidean>(b);
    case PairMetric::SEuclidean: return blockValues<T, PairMetric::SEuclidean>(b);
    case PairMetric::CityBlock: return blockValues<T, PairMetric::CityBlock>(b);
    case PairMetric::Chebychev: return blockValues<T, PairMetric::Chebychev>(b);
    case PairMetric::Hamming: return blockValues<T, PairMetric::Hamming>(b);
    default: return;
    }
}

template <class T>
void dispatchRows(const TriangleTask<T>& t, size_t rowBegin, size_t rowEnd) {
    switch (t.metric) {
    case PairMetric::Euclidean: return rows<T, PairMetric::Euclidean>(t, rowBegin, rowEnd);
    case PairMetric::SquaredEuclidean: return rows<T, PairMetric::SquaredEuclidean>(t, rowBegin, rowEnd);
    case PairMetric::SEuclidean: return rows<T, PairMetric::SEuclidean>(t, rowBegin, rowEnd);
    case PairMetric::CityBlock: return rows<T, PairMetric::CityBlock>(t, rowBegin, rowEnd);
    case PairMetric::Chebychev: return rows<T, PairMetric::Chebychev>(t, rowBegin, rowEnd);
    case PairMetric::Hamming: return rows<T, PairMetric::Hamming>(t, rowBegin, rowEnd);
    default: return;
    }
}

// Square roots by vectors; each is correctly rounded, as the scalar root is.
template <class T>
void roots(const T* in, size_t n, T* out) {
    using V = typename Vec<T>::type;
    constexpr size_t VL = sizeof(V) / sizeof(T);
    size_t k = 0;
    for (; k + VL <= n; k += VL) {
        V r = load<V>(in + k);
        for (size_t l = 0; l < VL; ++l) r[l] = finish<T, PairMetric::Euclidean>(r[l], 0);
        std::memcpy(out + k, &r, sizeof(V));
    }
    for (; k < n; ++k) out[k] = finish<T, PairMetric::Euclidean>(in[k], 0);
}

// One full panel of kLanes observations of x (p values each, contiguous) in
// the layout of ObservationPanels, by 4-by-4 transposes of doubles; floats,
// and the coordinates past the last multiple of 4 or 2, go value by value.
template <class T>
void panelOf(const T* x, size_t p, T* out) {
    constexpr size_t L = ObservationPanels<T>::kLanes;
    size_t k = 0;
    if constexpr (sizeof(T) == sizeof(double)) {
        using V = typename Vec<double>::type;
        using V2 = double __attribute__((vector_size(16)));
        using I = typename Vec<double>::bits;
        if (p == 2) {  // planar data: two vectors hold four whole observations
            for (size_t l = 0; l < L; l += 4) {
                const V a = load<V>(x + 2 * l), b = load<V>(x + 2 * l + 4);
                const V c0 = __builtin_shuffle(a, b, I{0, 2, 4, 6}), c1 = __builtin_shuffle(a, b, I{1, 3, 5, 7});
                std::memcpy(out + l, &c0, sizeof(V));
                std::memcpy(out + L + l, &c1, sizeof(V));
            }
            return;
        }
        for (size_t l = 0; l < L; l += 4) {
            const double* o = x + l * p;
            size_t c = 0;
            for (; c + 4 <= p; c += 4) {
                const V r0 = load<V>(o + c), r1 = load<V>(o + p + c), r2 = load<V>(o + 2 * p + c),
                        r3 = load<V>(o + 3 * p + c);
                const V t0 = __builtin_shuffle(r0, r1, I{0, 4, 2, 6}), t1 = __builtin_shuffle(r0, r1, I{1, 5, 3, 7});
                const V t2 = __builtin_shuffle(r2, r3, I{0, 4, 2, 6}), t3 = __builtin_shuffle(r2, r3, I{1, 5, 3, 7});
                const V c0 = __builtin_shuffle(t0, t2, I{0, 1, 4, 5}), c1 = __builtin_shuffle(t1, t3, I{0, 1, 4, 5});
                const V c2 = __builtin_shuffle(t0, t2, I{2, 3, 6, 7}), c3 = __builtin_shuffle(t1, t3, I{2, 3, 6, 7});
                std::memcpy(out + c * L + l, &c0, sizeof(V));
                std::memcpy(out + (c + 1) * L + l, &c1, sizeof(V));
                std::memcpy(out + (c + 2) * L + l, &c2, sizeof(V));
                std::memcpy(out + (c + 3) * L + l, &c3, sizeof(V));
            }
            if (c + 2 <= p) {
                const V2 a0 = load<V2>(o + c), a1 = load<V2>(o + p + c), a2 = load<V2>(o + 2 * p + c),
                         a3 = load<V2>(o + 3 * p + c);
                const V lo = {a0[0], a1[0], a2[0], a3[0]}, hi = {a0[1], a1[1], a2[1], a3[1]};
                std::memcpy(out + c * L + l, &lo, sizeof(V));
                std::memcpy(out + (c + 1) * L + l, &hi, sizeof(V));
                c += 2;
            }
            for (; c < p; ++c)
                for (size_t m = 0; m < 4; ++m) out[c * L + l + m] = o[m * p + c];
        }
        k = p;
    }
    for (; k < p; ++k)
        for (size_t l = 0; l < L; ++l) out[k * L + l] = x[l * p + k];
}

}  // namespace

void regroupPanel(const double* x, size_t p, double* out) { panelOf(x, p, out); }
void regroupPanel(const float* x, size_t p, float* out) { panelOf(x, p, out); }
void computeRoots(const double* in, size_t n, double* out) { roots(in, n, out); }
void computeRoots(const float* in, size_t n, float* out) { roots(in, n, out); }
void computeBlock(const CrossBlock<double>& b) { dispatchBlock(b); }
void computeBlock(const CrossBlock<float>& b) { dispatchBlock(b); }
void computeRows(const TriangleTask<double>& t, size_t rowBegin, size_t rowEnd) {
    dispatchRows(t, rowBegin, rowEnd);
}
void computeRows(const TriangleTask<float>& t, size_t rowBegin, size_t rowEnd) {
    dispatchRows(t, rowBegin, rowEnd);
}

}  // namespace zv::distance::ZV_KERNEL_NS

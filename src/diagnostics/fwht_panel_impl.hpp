// The stages of one panel of one block, compiled once per instruction set
// (ZV_FWHT_ISA names the namespace).
#include <algorithm>
#include <cmath>

#include "diagnostics/fwht_panel.hpp"

namespace rkeutils::ZV_FWHT_ISA {
namespace {

// The sines into `sines`, the cosines over the angles. They are the standard
// library's on every machine: a vector library would round differently.
template <class T>
void sinCos(T* __restrict angles, T* __restrict sines, size_t count) {
    for (size_t r = 0; r < count; ++r) {
        const T angle = angles[r];
        sines[r] = std::sin(angle);
        angles[r] = std::cos(angle);
    }
}

}  // namespace

namespace stages {

// One panel of one block: `rows` rows, columns `ld` apart.
template <class T>
struct PanelView {
    size_t ld;
    size_t rows;
    T* col(T* buffer, size_t j) const { return buffer + j * ld; }
};

// out[t] = c[2t] + c[2t+1], out[L/2 + t] = c[2t] - c[2t+1].
template <class T>
void plainStage(const PanelView<T>& v, size_t L, T* src, T* dst) {
    const size_t half = L / 2;
    for (size_t t = 0; t < half; ++t) {
        const T* __restrict a = v.col(src, 2 * t);
        const T* __restrict b = v.col(src, 2 * t + 1);
        T* __restrict s = v.col(dst, t);
        T* __restrict d = v.col(dst, half + t);
        for (size_t r = 0; r < v.rows; ++r) {
            s[r] = a[r] + b[r];
            d[r] = a[r] - b[r];
        }
    }
}

// Two plain stages in one pass over the panel, with the very same additions:
// inputs 4t..4t+3 end in outputs t, t + L/4, L/2 + t, L/2 + t + L/4.
template <class T>
void plainStagePair(const PanelView<T>& v, size_t L, T* src, T* dst) {
    const size_t half = L / 2, quarter = L / 4;
    for (size_t t = 0; t < quarter; ++t) {
        const T* __restrict c0 = v.col(src, 4 * t);
        const T* __restrict c1 = v.col(src, 4 * t + 1);
        const T* __restrict c2 = v.col(src, 4 * t + 2);
        const T* __restrict c3 = v.col(src, 4 * t + 3);
        T* __restrict o0 = v.col(dst, t);
        T* __restrict o1 = v.col(dst, t + quarter);
        T* __restrict o2 = v.col(dst, half + t);
        T* __restrict o3 = v.col(dst, half + t + quarter);
        for (size_t r = 0; r < v.rows; ++r) {
            const T s01 = c0[r] + c1[r], d01 = c0[r] - c1[r];
            const T s23 = c2[r] + c3[r], d23 = c2[r] - c3[r];
            o0[r] = s01 + s23;
            o1[r] = d01 + d23;
            o2[r] = s01 - s23;
            o3[r] = d01 - d23;
        }
    }
}

// Stage 0: the input columns are X(:, j) * D[j] for j < k and zero beyond.
// A pair cut by k keeps the additions with zero, so signed zeros come out as
// the plain stage would make them.
template <class T>
void dataStage(const PanelView<T>& v, size_t L, const T* x, size_t xld, size_t k, const T* d, T* dst) {
    const size_t half = L / 2;
    for (size_t t = 0; t < half; ++t) {
        T* __restrict s = v.col(dst, t);
        T* __restrict df = v.col(dst, half + t);
        const size_t j0 = 2 * t, j1 = 2 * t + 1;
        if (j1 < k) {
            const T* __restrict a = x + j0 * xld;
            const T* __restrict b = x + j1 * xld;
            const T da = d[j0], db = d[j1];
            for (size_t r = 0; r < v.rows; ++r) {
                const T u = a[r] * da, w = b[r] * db;
                s[r] = u + w;
                df[r] = u - w;
            }
        } else if (j0 < k) {
            const T* __restrict a = x + j0 * xld;
            const T da = d[j0];
            for (size_t r = 0; r < v.rows; ++r) {
                const T u = a[r] * da;
                s[r] = u + T(0);
                df[r] = u - T(0);
            }
        } else {
            std::fill(s, s + v.rows, T(0));
            std::fill(df, df + v.rows, T(0));
        }
    }
}

// The last stage of the first transform: output i goes to column P[i] - 1,
// times G[i]/scale. With permutations that were not checked, a column no
// entry reaches stays zero and an entry out of range is dropped.
template <class T>
void scatterStage(const PanelView<T>& v, size_t L, const T* g, const int64_t* perm, T scale,
                  bool checked, T* src, T* dst) {
    const size_t half = L / 2;
    if (!checked)
        for (size_t j = 0; j < L; ++j) std::fill(v.col(dst, j), v.col(dst, j) + v.rows, T(0));
    auto target = [&](size_t i) -> T* {
        const int64_t p = perm[i];
        if (!checked && (p < 1 || uint64_t(p) > L)) return nullptr;
        return v.col(dst, size_t(p - 1));
    };
    for (size_t t = 0; t < half; ++t) {
        const T* __restrict a = v.col(src, 2 * t);
        const T* __restrict b = v.col(src, 2 * t + 1);
        T* __restrict s = target(t);
        T* __restrict d = target(half + t);
        const T qs = g[t] / scale, qd = g[half + t] / scale;
        if (s && d) {
            for (size_t r = 0; r < v.rows; ++r) {
                s[r] = (a[r] + b[r]) * qs;
                d[r] = (a[r] - b[r]) * qd;
            }
        } else {
            if (s)
                for (size_t r = 0; r < v.rows; ++r) s[r] = (a[r] + b[r]) * qs;
            if (d)
                for (size_t r = 0; r < v.rows; ++r) d[r] = (a[r] - b[r]) * qd;
        }
    }
}

// The last stage of the second transform: output i is negated unless R[i] > 0.
template <class T>
void signStage(const PanelView<T>& v, size_t L, const T* rsign, T* src, T* dst) {
    const size_t half = L / 2;
    for (size_t t = 0; t < half; ++t) {
        const T* __restrict a = v.col(src, 2 * t);
        const T* __restrict b = v.col(src, 2 * t + 1);
        T* __restrict s = v.col(dst, t);
        T* __restrict d = v.col(dst, half + t);
        const bool keepS = rsign[t] > T(0), keepD = rsign[half + t] > T(0);
        for (size_t r = 0; r < v.rows; ++r) {
            const T sum = a[r] + b[r], diff = a[r] - b[r];
            s[r] = keepS ? sum : -sum;
            d[r] = keepD ? diff : -diff;
        }
    }
}

// B = sin(A), A = cos(A), both times gain unless it is 1.
template <class T>
void trigPass(const PanelView<T>& v, size_t L, T gain, T* a, T* b) {
    for (size_t j = 0; j < L; ++j) {
        T* __restrict c = v.col(a, j);
        T* __restrict s = v.col(b, j);
        sinCos(c, s, v.rows);
        if (gain != T(1))
            for (size_t r = 0; r < v.rows; ++r) {
                s[r] *= gain;
                c[r] *= gain;
            }
    }
}

// Passes over a panel: the data stage, the plain stages two at a time, the
// scatter stage (logL >= 2), the plain stages of the second transform two at
// a time, and the sign stage.
size_t pairedPasses(size_t stages) { return stages / 2 + stages % 2; }
size_t passCount(size_t logL) {
    if (logL == 0) return 0;
    const size_t first = logL >= 2 ? 1 + pairedPasses(logL - 2) + 1 : 1;
    return first + pairedPasses(logL - 1) + 1;
}

}  // namespace stages

template <class T>
void transformPanel(const FwhtProblem<T>& pr, size_t block, size_t row0, size_t rows) {
    using namespace stages;
    const size_t L = pr.L, logL = pr.logL, m = pr.m;
    const PanelView<T> v{m, rows};
    T* a = pr.out + 2 * block * L * m + row0;
    T* b = a + L * m;
    const T* d = pr.d + block * L;
    const T* g = pr.g + block * L;
    const T* rsign = pr.r + block * L;
    const int64_t* perm = pr.perm + block * L;

    // The buffers alternate; the first pass writes where the count of passes
    // makes the last one end in A.
    T* buffers[2] = {a, b};
    size_t next = passCount(logL) % 2 == 1 ? 0 : 1;
    auto pass = [&](auto&& stage) {
        T* dst = buffers[next];
        T* src = buffers[next ^ 1];
        stage(src, dst);
        next ^= 1;
    };
    auto plainRun = [&](size_t count) {
        for (; count >= 2; count -= 2) pass([&](T* s, T* t) { plainStagePair(v, L, s, t); });
        if (count == 1) pass([&](T* s, T* t) { plainStage(v, L, s, t); });
    };

    if (logL > 0) {
        pass([&](T*, T* t) { dataStage(v, L, pr.x + row0, m, std::min(pr.k, L), d, t); });
        if (logL >= 2) {
            plainRun(logL - 2);
            pass([&](T* s, T* t) { scatterStage(v, L, g, perm, pr.scale, pr.permutationsChecked, s, t); });
        }
        plainRun(logL - 1);
        pass([&](T* s, T* t) { signStage(v, L, rsign, s, t); });
    }
    trigPass(v, L, pr.gain, a, b);
}

template void transformPanel<double>(const FwhtProblem<double>&, size_t, size_t, size_t);
template void transformPanel<float>(const FwhtProblem<float>&, size_t, size_t, size_t);

}  // namespace rkeutils::ZV_FWHT_ISA

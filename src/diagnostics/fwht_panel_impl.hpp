// The stages of one panel of one block, compiled once per instruction set
// (ZV_FWHT_ISA names the namespace).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "diagnostics/fwht_panel.hpp"

namespace rkeutils::ZV_FWHT_ISA {
namespace {

// The sines into `sines`, the cosines over the angles. They are the standard
// library's on every machine: a vector library would round differently. The
// compiler turns the pair into one sincos call, which gives the same bits as
// the two (the tests compare with separate calls).
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

// A vector register of T. Lane by lane the operations are those on single
// values.
#ifdef __AVX__
constexpr size_t kVectorBytes = 32;
#else
constexpr size_t kVectorBytes = 16;
#endif
template <class T>
struct Lanes {
    typedef T type __attribute__((vector_size(kVectorBytes)));
    typedef int64_t bits __attribute__((vector_size(kVectorBytes)));
    static constexpr size_t width = kVectorBytes / sizeof(T);
    static type load(const T* p) {
        type v;
        std::memcpy(&v, p, sizeof v);
        return v;
    }
    static void store(T* p, type v) { std::memcpy(p, &v, sizeof v); }
};

// `stages` stages on the 2^stages values of one group, in place: the pair
// (2u, 2u + 1) goes to u and 2^(stages-1) + u, as the stage does with whole
// columns. With consecutive stages over whole columns, the inputs 2^stages*t
// + i of a group meet only each other, and value l of the group ends in
// column t + l*L/2^stages.
template <int Stages, class V>
inline void groupStages(V* v) {
    constexpr int n = 1 << Stages;
    for (int s = 0; s < Stages; ++s) {
        V w[n];
#pragma GCC unroll 16
        for (int u = 0; u < n / 2; ++u) {
            w[u] = v[2 * u] + v[2 * u + 1];
            w[n / 2 + u] = v[2 * u] - v[2 * u + 1];
        }
#pragma GCC unroll 16
        for (int i = 0; i < n; ++i) v[i] = w[i];
    }
}

// Where a group's values come from: columns of the other buffer, or, for the
// first stage of all, X(:, j) * D[j] for j < k and zero beyond.
enum class Source { Buffer, Data };
// Where its values go: plain columns; column P[i] - 1 times G[i]/scale (the
// last stage of the first transform); or negated unless R[i] > 0 (the last
// stage of the second).
enum class Sink { Plain, Scatter, Sign };

template <class T>
struct PassArgs {
    PanelView<T> v;
    size_t L;
    const T* src;         // Source::Buffer
    const T* x;           // Source::Data: the panel's first row of X
    size_t k;             //   columns of X that enter, at most L
    const T* d;
    T* dst;
    const int64_t* perm;  // Sink::Scatter
    const T* g;
    T scale;
    const T* rsign;       // Sink::Sign
};

// `Stages` consecutive stages in one pass over the panel, with the very same
// additions and multiplications as one stage at a time.
template <class T, int Stages, Source From, Sink To>
void fusedPass(const PassArgs<T>& a) {
    using V = typename Lanes<T>::type;
    using Bits = typename Lanes<T>::bits;
    constexpr size_t n = size_t(1) << Stages;
    constexpr size_t w = Lanes<T>::width;
    // Value l of group t ends in column t + l*groups.
    const size_t rows = a.v.rows, groups = a.L / n;
    for (size_t t = 0; t < groups; ++t) {
        const T* in[n];
        T factor[n];
        size_t present = n;  // inputs of the data stage before k
        for (size_t i = 0; i < n; ++i) {
            const size_t c = n * t + i;
            if constexpr (From == Source::Data) {
                if (c >= a.k) {
                    present = std::min(present, i);
                    in[i] = a.x;
                    factor[i] = T(0);
                } else {
                    in[i] = a.x + c * a.v.ld;
                    factor[i] = a.d[c];
                }
            } else {
                in[i] = a.src + c * a.v.ld;
            }
        }
        T* out[n];
        T mult[n];
        Bits flip[n];
        for (size_t l = 0; l < n; ++l) {
            const size_t o = t + l * groups;
            if constexpr (To == Sink::Scatter) {
                out[l] = a.dst + size_t(a.perm[o] - 1) * a.v.ld;
                mult[l] = a.g[o] / a.scale;
            } else {
                out[l] = a.dst + o * a.v.ld;
            }
            if constexpr (To == Sink::Sign) {
                // The sign bit of every lane, for values that change sign.
                const uint64_t signs = sizeof(T) == 8 ? 0x8000000000000000u : 0x8000000080000000u;
                flip[l] = Bits{} + int64_t(a.rsign[o] > T(0) ? 0 : signs);
            }
        }
        if constexpr (From == Source::Data) {
            if (present == 0) {
                // Zero columns give zeros through every stage.
                for (size_t l = 0; l < n; ++l) {
                    T* o = out[l];
                    std::fill(o, o + rows, To == Sink::Scatter ? T(0) * mult[l] : T(0));
                }
                continue;
            }
        }
        auto finish = [&](auto* vals, size_t r) {
            using U = std::remove_reference_t<decltype(vals[0])>;
            for (size_t l = 0; l < n; ++l) {
                U y = vals[l];
                if constexpr (To == Sink::Scatter) y = y * mult[l];
                if constexpr (To == Sink::Sign) {
                    if constexpr (std::is_same_v<U, V>)
                        y = __builtin_bit_cast(V, __builtin_bit_cast(Bits, y) ^ flip[l]);
                    else
                        y = a.rsign[t + l * groups] > T(0) ? y : -y;
                }
                if constexpr (std::is_same_v<U, V>)
                    Lanes<T>::store(out[l] + r, y);
                else
                    out[l][r] = y;
            }
        };
        size_t r = 0;
        if (present == n) {
            for (; r + w <= rows; r += w) {
                V vals[n];
#pragma GCC unroll 16
                for (size_t i = 0; i < n; ++i) {
                    vals[i] = Lanes<T>::load(in[i] + r);
                    if constexpr (From == Source::Data) vals[i] = vals[i] * factor[i];
                }
                groupStages<Stages>(vals);
                finish(vals, r);
            }
        }
        // The last rows, and the one group of the data stage cut by k.
        for (; r < rows; ++r) {
            T vals[n];
            for (size_t i = 0; i < n; ++i) {
                if constexpr (From == Source::Data)
                    vals[i] = i < present ? in[i][r] * factor[i] : T(0);
                else
                    vals[i] = in[i][r];
            }
            groupStages<Stages>(vals);
            finish(vals, r);
        }
    }
}

template <class T, Source From, Sink To>
void fusedPassOf(int stages, const PassArgs<T>& a) {
    switch (stages) {
        case 1: return fusedPass<T, 1, From, To>(a);
        case 2: return fusedPass<T, 2, From, To>(a);
        case 3: return fusedPass<T, 3, From, To>(a);
        default: return fusedPass<T, 4, From, To>(a);
    }
}

// The last stage of the first transform when the permutations were not
// checked: a column no entry reaches stays zero and an entry out of range is
// dropped.
template <class T>
void uncheckedScatterStage(const PanelView<T>& v, size_t L, const T* g, const int64_t* perm, T scale,
                           const T* src, T* dst) {
    const size_t half = L / 2;
    for (size_t j = 0; j < L; ++j) std::fill(v.col(dst, j), v.col(dst, j) + v.rows, T(0));
    auto target = [&](size_t i) -> T* {
        const int64_t p = perm[i];
        if (p < 1 || uint64_t(p) > L) return nullptr;
        return v.col(dst, size_t(p - 1));
    };
    for (size_t t = 0; t < half; ++t) {
        const T* __restrict a = src + 2 * t * v.ld;
        const T* __restrict b = src + (2 * t + 1) * v.ld;
        const T qs = g[t] / scale, qd = g[half + t] / scale;
        if (T* s = target(t))
            for (size_t r = 0; r < v.rows; ++r) s[r] = (a[r] + b[r]) * qs;
        if (T* d = target(half + t))
            for (size_t r = 0; r < v.rows; ++r) d[r] = (a[r] - b[r]) * qd;
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

// Up to four stages share a pass: 16 columns in and out per group fill the
// vector registers; with five, the spills cost more than the pass saved.
constexpr int kMaxFused = 4;

struct Pass {
    int stages;
    bool data;     // takes X and D
    Sink sink;
    bool unchecked;  // the single scatter stage with unchecked permutations
};

// Splits `count` stages into passes of at most kMaxFused, as even as possible.
template <class Add>
void splitStages(size_t count, Add add) {
    const size_t passes = (count + kMaxFused - 1) / kMaxFused;
    for (size_t p = 0; p < passes; ++p) add(int(count * (p + 1) / passes - count * p / passes), p == 0, p + 1 == passes);
}

}  // namespace stages

template <class T>
void transformPanel(const FwhtProblem<T>& pr, size_t block, size_t row0, size_t rows) {
    using namespace stages;
    const size_t L = pr.L, logL = pr.logL, m = pr.m;
    const PanelView<T> v{m, rows};
    T* a = pr.out + 2 * block * L * m + row0;
    T* b = a + L * m;

    // The passes: the first transform, whose first stage reads X and whose
    // last (logL >= 2) scatters, then the second, whose last applies the signs.
    Pass passes[2 * 64 / kMaxFused + 4];
    size_t count = 0;
    if (logL > 0) {
        const bool scatters = logL >= 2, split = scatters && !pr.permutationsChecked;
        const size_t firstStages = split ? logL - 1 : logL;
        splitStages(firstStages, [&](int s, bool first, bool last) {
            passes[count++] = {s, first, last && scatters && !split ? Sink::Scatter : Sink::Plain, false};
        });
        if (split) passes[count++] = {1, false, Sink::Scatter, true};
        splitStages(logL, [&](int s, bool, bool last) {
            passes[count++] = {s, false, last ? Sink::Sign : Sink::Plain, false};
        });
    }

    // The buffers alternate; the first pass writes where the count of passes
    // makes the last one end in A.
    T* buffers[2] = {a, b};
    size_t next = count % 2 == 1 ? 0 : 1;
    PassArgs<T> args{v,
                     L,
                     nullptr,
                     pr.x + row0,
                     std::min(pr.k, L),
                     pr.d + block * L,
                     nullptr,
                     pr.perm + block * L,
                     pr.g + block * L,
                     pr.scale,
                     pr.r + block * L};
    for (size_t p = 0; p < count; ++p) {
        const Pass& pass = passes[p];
        args.dst = buffers[next];
        args.src = buffers[next ^ 1];
        if (pass.unchecked)
            uncheckedScatterStage(v, L, args.g, args.perm, pr.scale, args.src, args.dst);
        else if (pass.data && pass.sink == Sink::Scatter)
            fusedPassOf<T, Source::Data, Sink::Scatter>(pass.stages, args);
        else if (pass.data)
            fusedPassOf<T, Source::Data, Sink::Plain>(pass.stages, args);
        else if (pass.sink == Sink::Scatter)
            fusedPassOf<T, Source::Buffer, Sink::Scatter>(pass.stages, args);
        else if (pass.sink == Sink::Sign)
            fusedPassOf<T, Source::Buffer, Sink::Sign>(pass.stages, args);
        else
            fusedPassOf<T, Source::Buffer, Sink::Plain>(pass.stages, args);
        next ^= 1;
    }
    trigPass(v, L, pr.gain, a, b);
}

template void transformPanel<double>(const FwhtProblem<double>&, size_t, size_t, size_t);
template void transformPanel<float>(const FwhtProblem<float>&, size_t, size_t, size_t);

}  // namespace rkeutils::ZV_FWHT_ISA

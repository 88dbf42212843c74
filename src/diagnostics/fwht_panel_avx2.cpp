// Feature-block panels for processors with AVX2 (built with -mavx2).
#include <immintrin.h>

#include <cstddef>
#include <cstring>

// glibc's vector math library, AVX2 variants.
extern "C" {
__m256d _ZGVdN4v_sin(__m256d);
__m256d _ZGVdN4v_cos(__m256d);
__m256 _ZGVdN8v_sinf(__m256);
__m256 _ZGVdN8v_cosf(__m256);
}

namespace rkeutils::avx2 {
namespace {

template <class T>
struct VectorTrig;
template <>
struct VectorTrig<double> {
    using V = __m256d;
    static constexpr size_t kWidth = 4;
    static V load(const double* p) { return _mm256_loadu_pd(p); }
    static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
    static V sin(V v) { return _ZGVdN4v_sin(v); }
    static V cos(V v) { return _ZGVdN4v_cos(v); }
};
template <>
struct VectorTrig<float> {
    using V = __m256;
    static constexpr size_t kWidth = 8;
    static V load(const float* p) { return _mm256_loadu_ps(p); }
    static void store(float* p, V v) { _mm256_storeu_ps(p, v); }
    static V sin(V v) { return _ZGVdN8v_sinf(v); }
    static V cos(V v) { return _ZGVdN8v_cosf(v); }
};

// Every value goes through the vector functions, the last few padded, so
// that no value's result depends on where a panel ends.
template <class T>
void sinCos(T* __restrict angles, T* __restrict sines, size_t count) {
    using VT = VectorTrig<T>;
    constexpr size_t W = VT::kWidth;
    size_t r = 0;
    for (; r + W <= count; r += W) {
        const auto v = VT::load(angles + r);
        VT::store(sines + r, VT::sin(v));
        VT::store(angles + r, VT::cos(v));
    }
    if (r < count) {
        T in[W] = {}, s[W], c[W];
        std::memcpy(in, angles + r, (count - r) * sizeof(T));
        const auto v = VT::load(in);
        VT::store(s, VT::sin(v));
        VT::store(c, VT::cos(v));
        std::memcpy(sines + r, s, (count - r) * sizeof(T));
        std::memcpy(angles + r, c, (count - r) * sizeof(T));
    }
}

}  // namespace
}  // namespace rkeutils::avx2

#define ZV_FWHT_ISA avx2
#include "diagnostics/fwht_panel_impl.hpp"

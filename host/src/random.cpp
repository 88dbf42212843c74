// Host random streams: MT19937 streams, the scripted stream, the default
// stream and the operations the builtins call.
#include <immintrin.h>

#include <atomic>
#include <bit>
#include <cmath>
#include <mutex>
#include <random>
#include <unordered_set>

#include "internal.hpp"

using zvhost::detail::checkHostThread;
using zvhost::detail::raise;

RandStream::~RandStream() = default;

namespace {

// MT19937 with the output of std::mt19937 (init_genrand seeding), made a
// block of 624 words at a time with AVX2 or SSE2 and turned into 312 doubles
// of 53 bits, two words each, (a>>5, b>>6): the builtins ask the streams for
// a few numbers at a time, millions of times. A block holds whole pairs, so
// no double straddles two blocks. The same pair of words can instead be taken
// whole, as 64 bits (a<<32 | b), by the normals.
class Mt19937Doubles {
public:
    explicit Mt19937Doubles(uint32_t seed) {
        state_[0] = seed;
        for (uint32_t i = 1; i < kN; ++i) state_[i] = 1812433253u * (state_[i - 1] ^ (state_[i - 1] >> 30)) + i;
    }
    // In [0, 1); 0 comes once in 2^53 draws.
    double operator()() {
        if (next_ == kN / 2) refill();
        return out_[next_++];
    }
    // The next pair of tempered words, whole.
    uint64_t bits() {
        if (next_ == kN / 2) refill();
        const uint32_t* w = tempered_ + 2 * next_++;
        return uint64_t(w[0]) << 32 | w[1];
    }

private:
    static constexpr uint32_t kN = 624, kM = 397;

    // One step of the twist on four consecutive words: state[i..i+3] from
    // state[i..i+4] and state[i+m..i+m+3].
    static __m128i twist(__m128i cur, __m128i nextWords, __m128i far) {
        const __m128i upper = _mm_set1_epi32(int(0x80000000u)), lower = _mm_set1_epi32(0x7fffffff);
        const __m128i y = _mm_or_si128(_mm_and_si128(cur, upper), _mm_and_si128(nextWords, lower));
        const __m128i odd = _mm_sub_epi32(_mm_setzero_si128(), _mm_and_si128(y, _mm_set1_epi32(1)));
        const __m128i mag = _mm_and_si128(odd, _mm_set1_epi32(int(0x9908b0dfu)));
        return _mm_xor_si128(_mm_xor_si128(far, _mm_srli_epi32(y, 1)), mag);
    }
    static uint32_t twistOne(uint32_t cur, uint32_t nextWord, uint32_t far) {
        const uint32_t y = (cur & 0x80000000u) | (nextWord & 0x7fffffffu);
        return far ^ (y >> 1) ^ ((y & 1u) ? 0x9908b0dfu : 0u);
    }
    static __m128i load(const uint32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(uint32_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

    // In the twist, words i < N - M read words not yet renewed; later ones
    // read renewed words N - M places back, more than a vector's lanes behind.
    void refill() {
        if (hasAvx2) refillAvx2();
        else refillSse2();
        next_ = 0;
    }

    // The same block eight lanes at a time.
    __attribute__((target("avx2"))) static __m256i load8(const uint32_t* p) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    }
    __attribute__((target("avx2"))) static void twist8(uint32_t* mt, uint32_t i, uint32_t far) {
        const __m256i upper = _mm256_set1_epi32(int(0x80000000u)), lower = _mm256_set1_epi32(0x7fffffff);
        const __m256i y =
            _mm256_or_si256(_mm256_and_si256(load8(mt + i), upper), _mm256_and_si256(load8(mt + i + 1), lower));
        const __m256i odd = _mm256_sub_epi32(_mm256_setzero_si256(), _mm256_and_si256(y, _mm256_set1_epi32(1)));
        const __m256i mag = _mm256_and_si256(odd, _mm256_set1_epi32(int(0x9908b0dfu)));
        const __m256i w = _mm256_xor_si256(_mm256_xor_si256(load8(mt + far), _mm256_srli_epi32(y, 1)), mag);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(mt + i), w);
    }
    __attribute__((target("avx2"))) void refillAvx2() {
        uint32_t* mt = state_;
        uint32_t i = 0;
        for (; i + 8 <= kN - kM; i += 8) twist8(mt, i, i + kM);
        for (; i < kN - kM; ++i) mt[i] = twistOne(mt[i], mt[i + 1], mt[i + kM]);
        for (; i + 8 <= kN - 1; i += 8) twist8(mt, i, i + kM - kN);
        for (; i < kN - 1; ++i) mt[i] = twistOne(mt[i], mt[i + 1], mt[i + kM - kN]);
        mt[kN - 1] = twistOne(mt[kN - 1], mt[0], mt[kM - 1]);

        const __m256d high = _mm256_set1_pd(67108864.0), scale = _mm256_set1_pd(1.0 / 9007199254740992.0);
        const __m256i evens = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
        const __m256i odds = _mm256_setr_epi32(1, 3, 5, 7, 0, 2, 4, 6);
        for (uint32_t k = 0; k < kN; k += 8) {
            __m256i y = load8(mt + k);
            y = _mm256_xor_si256(y, _mm256_srli_epi32(y, 11));
            y = _mm256_xor_si256(y, _mm256_and_si256(_mm256_slli_epi32(y, 7), _mm256_set1_epi32(int(0x9d2c5680u))));
            y = _mm256_xor_si256(y, _mm256_and_si256(_mm256_slli_epi32(y, 15), _mm256_set1_epi32(int(0xefc60000u))));
            y = _mm256_xor_si256(y, _mm256_srli_epi32(y, 18));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(tempered_ + k), y);
            const __m128i a = _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_srli_epi32(y, 5), evens));
            const __m128i b = _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_srli_epi32(y, 6), odds));
            const __m256d x = _mm256_add_pd(_mm256_mul_pd(_mm256_cvtepi32_pd(a), high), _mm256_cvtepi32_pd(b));
            _mm256_storeu_pd(out_ + k / 2, _mm256_mul_pd(x, scale));
        }
    }

    void refillSse2() {
        uint32_t* mt = state_;
        uint32_t i = 0;
        for (; i + 4 <= kN - kM; i += 4) store(mt + i, twist(load(mt + i), load(mt + i + 1), load(mt + i + kM)));
        for (; i < kN - kM; ++i) mt[i] = twistOne(mt[i], mt[i + 1], mt[i + kM]);
        for (; i + 4 <= kN - 1; i += 4)
            store(mt + i, twist(load(mt + i), load(mt + i + 1), load(mt + i + kM - kN)));
        for (; i < kN - 1; ++i) mt[i] = twistOne(mt[i], mt[i + 1], mt[i + kM - kN]);
        mt[kN - 1] = twistOne(mt[kN - 1], mt[0], mt[kM - 1]);

        // Temper four words, then make two doubles of them: the even words
        // give the high 27 bits, the odd ones the low 26. Both steps of the
        // conversion are exact, so the product by 2^-53 is the quotient.
        const __m128d high = _mm_set1_pd(67108864.0), scale = _mm_set1_pd(1.0 / 9007199254740992.0);
        for (uint32_t k = 0; k < kN; k += 4) {
            __m128i y = load(mt + k);
            y = _mm_xor_si128(y, _mm_srli_epi32(y, 11));
            y = _mm_xor_si128(y, _mm_and_si128(_mm_slli_epi32(y, 7), _mm_set1_epi32(int(0x9d2c5680u))));
            y = _mm_xor_si128(y, _mm_and_si128(_mm_slli_epi32(y, 15), _mm_set1_epi32(int(0xefc60000u))));
            y = _mm_xor_si128(y, _mm_srli_epi32(y, 18));
            store(tempered_ + k, y);
            const __m128i a = _mm_shuffle_epi32(_mm_srli_epi32(y, 5), _MM_SHUFFLE(3, 1, 2, 0));
            const __m128i b = _mm_shuffle_epi32(_mm_srli_epi32(y, 6), _MM_SHUFFLE(2, 0, 3, 1));
            const __m128d x = _mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(a), high), _mm_cvtepi32_pd(b));
            _mm_store_pd(out_ + k / 2, _mm_mul_pd(x, scale));
        }
    }

    // Either path gives the same numbers; this only picks the faster one.
    static inline const bool hasAvx2 = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();

    alignas(32) uint32_t state_[kN];
    alignas(32) uint32_t tempered_[kN];
    alignas(32) double out_[kN / 2];
    size_t next_ = kN / 2;
};

// The ziggurat of 256 layers of equal area under exp(-x^2/2): x[1] = r is
// where the tail begins, layer i > 0 spans [0, x[i]] between the heights
// f[i] and f[i + 1], and layer 0 is the strip of height f(r) with the tail
// folded in, x[0] = v / f(r) wide. A draw m of 53 bits lands at m * width[i]
// and is under the curve without a test when m < inside[i].
struct Ziggurat {
    static constexpr int kLayers = 256;
    double x[kLayers + 1], f[kLayers + 1], width[kLayers];
    uint64_t inside[kLayers];

    Ziggurat() {
        const double r = 3.6541528853610088, v = 4.92867323399e-3;
        const auto curve = [](double t) { return std::exp(-0.5 * t * t); };
        x[0] = v / curve(r);
        x[1] = r;
        for (int i = 1; i < kLayers - 1; ++i) x[i + 1] = std::sqrt(-2 * std::log(curve(x[i]) + v / x[i]));
        x[kLayers] = 0;  // the top layer ends at the peak
        for (int i = 0; i <= kLayers; ++i) f[i] = curve(x[i]);
        const double two53 = 9007199254740992.0;
        for (int i = 0; i < kLayers; ++i) {
            width[i] = x[i] / two53;
            inside[i] = uint64_t(x[i + 1] / x[i] * two53);
        }
    }
};
const Ziggurat ziggurat;  // before any stream below: theirs draw on it

class MersenneStream final : public RandStream {
public:
    explicit MersenneStream(uint32_t seed) : engine_(seed) {}

    void uniform(double* out, size_t n) override {
        for (size_t k = 0; k < n; ++k) out[k] = next();
    }

    // One normal per 64 bits in nearly all cases, so a request of one costs
    // no more than its share and needs nothing kept between requests.
    void normal(double* out, size_t n) override {
        for (size_t k = 0; k < n; ++k) out[k] = gaussian();
    }

    // Marsaglia and Tsang's ziggurat: of the 64 bits, the low 8 pick a layer,
    // the next one the sign, and the top 53 the place along the layer. Nearly
    // all draws end at the first test; the rest go out of line, so that this
    // part stays small enough to inline into a request of one.
    double gaussian() {
        const uint64_t r = engine_.bits();
        const uint64_t m = r >> 11;
        const unsigned i = unsigned(r & 0xff);
        if (m < ziggurat.inside[i]) [[likely]]  // under the layer above: no test
            return withSign(double(m) * ziggurat.width[i], r);
        return gaussianOutside(r);
    }

private:
    // 0 is redrawn so results lie in (0, 1).
    double next() {
        for (;;) {
            const double x = engine_();
            if (x > 0.0) return x;
        }
    }

    // The sign bit of x set from bit 8 of r; x is not negative.
    static double withSign(double x, uint64_t r) {
        return std::bit_cast<double>(std::bit_cast<uint64_t>(x) | (r & 0x100) << 55);
    }

    // Finishes the draw of r, which fell outside its layer's inside part, and
    // draws again as long as it takes.
    __attribute__((noinline)) double gaussianOutside(uint64_t r) {
        const Ziggurat& z = ziggurat;
        for (;;) {
            const uint64_t m = r >> 11;
            const unsigned i = unsigned(r & 0xff);
            const double x = double(m) * z.width[i];
            if (m < z.inside[i]) return withSign(x, r);
            if (i == 0) return withSign(tail(z.x[1]), r);
            if (z.f[i] + next() * (z.f[i + 1] - z.f[i]) < std::exp(-0.5 * x * x)) return withSign(x, r);
            r = engine_.bits();
        }
    }

    // Beyond r, by Marsaglia's exponential rejection.
    double tail(double r) {
        for (;;) {
            const double a = -std::log(next()) / r;
            const double b = -std::log(next());
            if (b + b > a * a) return r + a;
        }
    }

    Mt19937Doubles engine_;
};

std::mutex defaultMutex;
std::shared_ptr<RandStream> defaultStreamPtr = std::make_shared<MersenneStream>(0);
// The stream that defaultStreamPtr owns, for the draws: they come a few numbers
// at a time, and a lock per request would cost as much as the numbers.
std::atomic<RandStream*> defaultRaw{defaultStreamPtr.get()};
// The same stream when it is the standard kind, so that its draws are called
// directly and inline rather than through the virtual table; null otherwise.
std::atomic<MersenneStream*> defaultMersenne{static_cast<MersenneStream*>(defaultStreamPtr.get())};

RandStream& defaultRef() { return *defaultRaw.load(std::memory_order_acquire); }

}  // namespace

namespace zvhost {

std::shared_ptr<RandStream> makeStream(uint32_t seed) { return std::make_shared<MersenneStream>(seed); }

ScriptedStream::ScriptedStream(std::vector<double> numbers) : numbers_(std::move(numbers)) {}
void ScriptedStream::uniform(double* out, size_t n) { take('u', out, n); }
void ScriptedStream::normal(double* out, size_t n) { take('n', out, n); }
void ScriptedStream::take(char kind, double* out, size_t n) {
    requests_.push_back({kind, n});
    if (n > numbers_.size() - next_) raise("zvhost:ScriptExhausted", {long(n)});
    for (size_t k = 0; k < n; ++k) out[k] = numbers_[next_++];
}

void seedDefaultStream(uint32_t seed) { setDefaultStream(makeStream(seed)); }
void setDefaultStream(std::shared_ptr<RandStream> stream) {
    std::lock_guard<std::mutex> lock(defaultMutex);
    defaultRaw.store(stream.get(), std::memory_order_release);
    defaultMersenne.store(dynamic_cast<MersenneStream*>(stream.get()), std::memory_order_release);
    defaultStreamPtr = std::move(stream);
}
std::shared_ptr<RandStream> defaultStream() {
    std::lock_guard<std::mutex> lock(defaultMutex);
    return defaultStreamPtr;
}

}  // namespace zvhost

RandStream* GetRandStreamFromArray(const ndArray* a) {
    if (!ndIsClass(a, "RandStream") || !a->object) raise("zvhost:NotAStream");
    return static_cast<RandStream*>(a->object.get());
}

namespace randstream {

template <class T>
void randuFcn(RandStream* stream, T* out, size_t n) {
    checkHostThread("randuFcn");
    if constexpr (std::is_same_v<T, double>) {
        stream->uniform(out, n);
    } else {
        std::vector<double> tmp(n);
        stream->uniform(tmp.data(), n);
        for (size_t k = 0; k < n; ++k) out[k] = T(tmp[k]);
    }
}
template void randuFcn<double>(RandStream*, double*, size_t);
template void randuFcn<float>(RandStream*, float*, size_t);

// Fisher-Yates driven by one uniform per position.
void randpermFcn(RandStream* stream, double* out, size_t n) {
    checkHostThread("randpermFcn");
    for (size_t k = 0; k < n; ++k) out[k] = double(k + 1);
    if (n < 2) return;
    std::vector<double> u(n - 1);
    stream->uniform(u.data(), n - 1);
    for (size_t k = n - 1; k > 0; --k) {
        size_t j = std::min(k, size_t(u[n - 1 - k] * double(k + 1)));
        std::swap(out[k], out[j]);
    }
}

// Partial Fisher-Yates for k close to n, Floyd's sampling otherwise, so that
// a huge n needs no n-sized buffer.
void randkpermFcn(RandStream* stream, double* out, size_t k, double nd) {
    checkHostThread("randkpermFcn");
    if (!(nd >= 0) || nd > 9007199254740992.0) raise("zvhost:BadPermutationSize");
    auto n = size_t(nd);
    if (k > n) raise("zvhost:BadPermutationSize");
    if (k == 0) return;
    std::vector<double> u(k);
    stream->uniform(u.data(), k);
    if (n <= 4 * k) {
        std::vector<double> all(n);
        for (size_t i = 0; i < n; ++i) all[i] = double(i + 1);
        for (size_t i = 0; i < k; ++i) {
            size_t j = i + std::min(n - i - 1, size_t(u[i] * double(n - i)));
            std::swap(all[i], all[j]);
            out[i] = all[i];
        }
        return;
    }
    std::unordered_set<size_t> chosen;
    for (size_t i = 0; i < k; ++i) {
        size_t top = n - k + i;  // draw from 0..top
        size_t t = std::min(top, size_t(u[i] * double(top + 1)));
        size_t pick = chosen.count(t) ? top : t;
        chosen.insert(pick);
        out[i] = double(pick + 1);
    }
}

}  // namespace randstream

void hostRandu(double* out, size_t n) {
    checkHostThread("hostRandu");
    if (MersenneStream* m = defaultMersenne.load(std::memory_order_acquire)) m->uniform(out, n);
    else defaultRef().uniform(out, n);
}
void hostRandn(double* out, size_t n) {
    checkHostThread("hostRandn");
    if (MersenneStream* m = defaultMersenne.load(std::memory_order_acquire)) {
        if (n == 1) *out = m->gaussian();  // the usual request
        else m->normal(out, n);
    } else {
        defaultRef().normal(out, n);
    }
}

// Host random streams: MT19937 streams, the scripted stream, the default
// stream and the operations the builtins call.
#include <cmath>
#include <mutex>
#include <random>
#include <unordered_set>

#include "internal.hpp"

using zvhost::detail::checkHostThread;
using zvhost::detail::raise;

RandStream::~RandStream() = default;

namespace {

class MersenneStream final : public RandStream {
public:
    explicit MersenneStream(uint32_t seed) : engine_(seed) {}

    void uniform(double* out, size_t n) override {
        for (size_t k = 0; k < n; ++k) out[k] = next();
    }

    // Marsaglia's polar method; both values of a pair are used.
    void normal(double* out, size_t n) override {
        size_t k = 0;
        while (k < n) {
            double u, v, s;
            do {
                u = 2.0 * next() - 1.0;
                v = 2.0 * next() - 1.0;
                s = u * u + v * v;
            } while (s >= 1.0 || s == 0.0);
            double f = std::sqrt(-2.0 * std::log(s) / s);
            out[k++] = u * f;
            if (k < n) out[k++] = v * f;
        }
    }

private:
    // 53 random bits from two 32-bit draws; 0 is redrawn so results lie in (0, 1).
    double next() {
        for (;;) {
            uint32_t a = engine_() >> 5, b = engine_() >> 6;
            double x = (a * 67108864.0 + b) / 9007199254740992.0;
            if (x > 0.0) return x;
        }
    }
    std::mt19937 engine_;
};

std::mutex defaultMutex;
std::shared_ptr<RandStream> defaultStreamPtr = std::make_shared<MersenneStream>(0);

RandStream& defaultRef() {
    std::lock_guard<std::mutex> lock(defaultMutex);
    return *defaultStreamPtr;
}

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
    defaultRef().uniform(out, n);
}
void hostRandn(double* out, size_t n) {
    checkHostThread("hostRandn");
    defaultRef().normal(out, n);
}

// rkeutils::fwhtbif through the host's call boundary, next to a copy
// benchmark of the same machine, so that the bytes the expansion has to move
// can be set against what memory can move, and next to its floor: the
// standard sine and cosine of every angle written once into a fresh output.
// Items/s counts output values (angles for the sine and cosine).
//   build/bin/fwht_bench [--benchmark_filter='m20k_L1024']   (floor and expansion side by side)
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <span>
#include <thread>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

template <class T>
struct Inputs {
    zvhost::Owned x, d, g, r, perm, sigma, q;
};

template <class T>
Inputs<T> makeInputs(size_t m, size_t k, size_t L, size_t S) {
    std::mt19937 gen(7);
    std::normal_distribution<double> normal;
    std::vector<T> x(m * k), d(L * S), g(L * S), r(L * S);
    for (auto& v : x) v = T(normal(gen));
    for (size_t i = 0; i < L * S; ++i) {
        d[i] = normal(gen) > 0 ? T(1) : T(-1);
        g[i] = T(normal(gen));
        r[i] = normal(gen) > 0 ? T(1) : T(-1);
    }
    std::vector<int64_t> perm(L * S);
    for (size_t b = 0; b < S; ++b) {
        for (size_t i = 0; i < L; ++i) perm[b * L + i] = int64_t(i + 1);
        std::shuffle(perm.begin() + b * L, perm.begin() + (b + 1) * L, gen);
    }
    Inputs<T> in;
    in.x = zvhost::matrixOf<T>(m, k, std::span<const T>(x));
    in.d = zvhost::matrixOf<T>(L, S, std::span<const T>(d));
    in.g = zvhost::matrixOf<T>(L, S, std::span<const T>(g));
    in.r = zvhost::matrixOf<T>(L, S, std::span<const T>(r));
    in.perm = zvhost::Owned(ndCreateNumericMatrix(L, S, ndINT64_CLASS, ndREAL));
    std::memcpy(ndGetData(in.perm.get()), perm.data(), perm.size() * sizeof(int64_t));
    in.sigma = zvhost::scalar(3.0);
    in.q = zvhost::scalar(double(2 * L * S));
    return in;
}

// Bytes the expansion cannot avoid: X read once per block, the output written once.
template <class T>
void expansion(benchmark::State& state, size_t m, size_t k, size_t L, size_t S) {
    auto in = makeInputs<T>(m, k, L, S);
    for (auto _ : state) {
        auto out = zvhost::call(rkeutils::fwhtbif, 1,
                                {in.x.get(), in.d.get(), in.g.get(), in.r.get(), in.perm.get(), in.sigma.get(), in.q.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(m * 2 * L * S));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t((S * m * k + m * 2 * L * S) * sizeof(T)));
}

// A copy of 1 GiB on every core: STREAM's copy kernel, counting bytes read
// and written.
void BM_StreamCopy(benchmark::State& state) {
    const size_t n = size_t(1) << 27;
    std::vector<double> a(n, 1.0), b(n, 0.0);
    const size_t threads = std::max(1u, std::thread::hardware_concurrency());
    for (auto _ : state) {
        std::vector<std::thread> pool;
        for (size_t t = 0; t < threads; ++t)
            pool.emplace_back([&, t] {
                const size_t lo = n * t / threads, hi = n * (t + 1) / threads;
                std::memcpy(b.data() + lo, a.data() + lo, (hi - lo) * sizeof(double));
            });
        for (auto& th : pool) th.join();
        benchmark::DoNotOptimize(b.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(2 * n * sizeof(double)));
}

// The least that any producer of the expansion's output pays: a fresh host
// array of the same size written once on every core. In a virtual machine the
// kernel's zeroing of newly touched pages can cost more than the writes.
void BM_FreshOutputWrite_m100k_8192(benchmark::State& state) {
    const size_t m = 100000, n = 8192;
    const size_t threads = std::max(1u, std::thread::hardware_concurrency());
    for (auto _ : state) {
        zvhost::Owned out(ndCreateNumericMatrix(m, n, ndDOUBLE_CLASS, ndREAL));
        double* p = static_cast<double*>(ndGetData(out.get()));
        std::vector<std::thread> pool;
        for (size_t t = 0; t < threads; ++t)
            pool.emplace_back([&, t] {
                const size_t lo = m * n * t / threads, hi = m * n * (t + 1) / threads;
                std::fill(p + lo, p + hi, 1.0);
            });
        for (auto& th : pool) th.join();
        benchmark::DoNotOptimize(p);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(m * n * sizeof(double)));
}

// The standard library's cosine and sine of one value, on one core, at the
// size of the angles the expansion meets (about N(0, 15^2) in the cases
// below): the expansion takes both for each of its m*S*L angles, so this
// bounds it from below whatever the butterflies cost.
template <class T>
void BM_StandardSinCos(benchmark::State& state) {
    std::mt19937 gen(3);
    std::normal_distribution<double> normal(0.0, 15.0);
    std::vector<T> angle(size_t(1) << 20), sine(angle.size()), cosine(angle.size());
    for (auto& v : angle) v = T(normal(gen));
    for (auto _ : state) {
        for (size_t i = 0; i < angle.size(); ++i) {
            sine[i] = std::sin(angle[i]);
            cosine[i] = std::cos(angle[i]);
        }
        benchmark::DoNotOptimize(sine.data());
        benchmark::DoNotOptimize(cosine.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(angle.size()));
}

// The floor of the expansion at one size, as it is judged: a fresh output of
// m-by-2LS written once on every core, each value the standard cosine or
// sine of its own angle, read in order from a table of angles of the
// expansion's size. The table is long (2^20): the branches inside sincos
// depend on the angle, and a short table repeating within a column would let
// the branch predictor learn them, which no real expansion allows.
template <class T>
void floorOf(benchmark::State& state, size_t m, size_t L, size_t S) {
    std::mt19937 gen(3);
    std::normal_distribution<double> normal(0.0, 15.0);
    constexpr size_t kAngles = size_t(1) << 20;
    std::vector<T> angle(kAngles);
    for (auto& v : angle) v = T(normal(gen));
    const size_t threads = std::max(1u, std::thread::hardware_concurrency());
    const size_t columns = L * S;
    for (auto _ : state) {
        zvhost::Owned out(ndCreateNumericMatrix(m, 2 * columns, zvhost::hostClassOf<T>(), ndREAL));
        T* p = static_cast<T*>(ndGetData(out.get()));
        std::vector<std::thread> pool;
        for (size_t t = 0; t < threads; ++t)
            pool.emplace_back([&, t] {
                for (size_t c = columns * t / threads; c < columns * (t + 1) / threads; ++c) {
                    const size_t block = c / L, j = c % L;
                    T* cosines = p + (2 * block * L + j) * m;
                    T* sines = cosines + L * m;
                    for (size_t i = 0; i < m; ++i) {
                        const T a = angle[(c * m + i) % kAngles];
                        cosines[i] = std::cos(a);
                        sines[i] = std::sin(a);
                    }
                }
            });
        for (auto& th : pool) th.join();
        benchmark::DoNotOptimize(p);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(m * 2 * columns));
}

void BM_FloorDouble_m20k_L1024_S4(benchmark::State& s) { floorOf<double>(s, 20000, 1024, 4); }
void BM_ExpansionDouble_m20k_L1024_S4(benchmark::State& s) { expansion<double>(s, 20000, 1000, 1024, 4); }
void BM_ExpansionDouble_m100k_L1024_S4(benchmark::State& s) { expansion<double>(s, 100000, 1000, 1024, 4); }
void BM_ExpansionSingle_m100k_L1024_S4(benchmark::State& s) { expansion<float>(s, 100000, 1000, 1024, 4); }
void BM_ExpansionDouble_m100k_L64_S16(benchmark::State& s) { expansion<double>(s, 100000, 50, 64, 16); }
void BM_ExpansionDouble_m20k_L4096_S1(benchmark::State& s) { expansion<double>(s, 20000, 3000, 4096, 1); }

BENCHMARK(BM_StreamCopy)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_FreshOutputWrite_m100k_8192)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_StandardSinCos<double>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StandardSinCos<float>)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FloorDouble_m20k_L1024_S4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExpansionDouble_m20k_L1024_S4)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExpansionDouble_m100k_L1024_S4)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_ExpansionSingle_m100k_L1024_S4)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(2);
BENCHMARK(BM_ExpansionDouble_m100k_L64_S16)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExpansionDouble_m20k_L4096_S1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

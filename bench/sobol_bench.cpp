// Throughput of the sobolset gateways and haltonset::computeRR2Perm through the
// host's call boundary. Items/s counts point coordinates (or words) per second.
//   build/bin/sobol_bench [--benchmark_filter=Sequence]
#include <benchmark/benchmark.h>

#include <random>
#include <span>
#include <vector>

#include "zvhost/arrays.hpp"
#include "gateway_declarations.hpp"

namespace {

using zvhost::Owned;

constexpr size_t kDims = 50;
constexpr size_t kPoints = size_t(1) << 20;

// Random polynomials of degree 1 to 12 with odd initial values below 2^k:
// the shape of a real table, which is what the timing depends on.
struct Tables {
    Owned m, polynomials;
    explicit Tables(size_t d) : m(ndCreateCellMatrix(1, d)), polynomials(zvhost::matrixOf<double>(1, d)) {
        std::mt19937_64 gen(1);
        auto* p = static_cast<double*>(ndGetData(polynomials.get()));
        for (size_t j = 0; j < d; ++j) {
            const unsigned degree = 1 + unsigned(gen() % 12);
            p[j] = double((uint64_t(1) << degree) | (gen() & ((uint64_t(1) << degree) - 1)) | 1);
            std::vector<double> values(degree);
            for (unsigned k = 0; k < degree; ++k) values[k] = double((gen() % (uint64_t(1) << k)) | 1);
            ndSetCell(m.get(), j, zvhost::matrixOf<double>(1, degree, std::span<const double>(values)).release());
        }
    }
};

// The d-by-53 direction numbers the generators take.
Owned directionNumbers(size_t d) {
    Tables t(d);
    auto dn = zvhost::call(sobolset::computeDN, 1, {t.m.get(), t.polynomials.get()});
    const auto* w = static_cast<const uint64_t*>(ndGetData(dn[0].get()));
    Owned v = zvhost::matrixOf<uint64_t>(d, 53);
    auto* out = static_cast<uint64_t*>(ndGetData(v.get()));
    for (size_t j = 0; j < d; ++j)
        for (size_t k = 0; k < 53; ++k) out[k * d + j] = w[j * 53 + k];
    return v;
}

void sequence(benchmark::State& state, double leap, bool gray) {
    Owned v = directionNumbers(kDims), first = zvhost::scalar(0), l = zvhost::scalar(leap);
    Owned n = zvhost::scalar(double(kPoints)), flag = zvhost::logicalScalar(gray);
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::sobolSequenceBIF, 1, {v.get(), first.get(), l.get(), n.get(), flag.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints * kDims));
}

void BM_SequenceGray(benchmark::State& s) { sequence(s, 0, true); }
void BM_SequenceNatural(benchmark::State& s) { sequence(s, 0, false); }
void BM_SequenceLeap(benchmark::State& s) { sequence(s, 99, true); }

// The doubles a caller wants: the sequence, then its conversion (and, when
// scrambled, the digital shift before it), as one chain of host arrays.
void sequenceToDouble(benchmark::State& state, bool shifted) {
    Owned v = directionNumbers(kDims), first = zvhost::scalar(0), l = zvhost::scalar(0);
    Owned n = zvhost::scalar(double(kPoints)), flag = zvhost::logicalScalar(true);
    Owned shift = zvhost::matrixOf<uint64_t>(1, kDims);
    for (size_t j = 0; j < kDims; ++j) static_cast<uint64_t*>(ndGetData(shift.get()))[j] = 0x5A5A5A5A5A5A5ull + j;
    for (auto _ : state) {
        auto x = zvhost::call(sobolset::sobolSequenceBIF, 1, {v.get(), first.get(), l.get(), n.get(), flag.get()});
        if (shifted) x = zvhost::call(sobolset::matrixBitXorBIF, 1, {x[0].get(), shift.get()});
        auto out = zvhost::call(sobolset::convertToDouble, 1, {x[0].get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints * kDims));
}

void BM_SequenceToDouble(benchmark::State& s) { sequenceToDouble(s, false); }
void BM_ScrambledToDouble(benchmark::State& s) { sequenceToDouble(s, true); }

void BM_SequenceContinued(benchmark::State& state) {
    Owned v = directionNumbers(kDims), first = zvhost::scalar(double(kPoints)), l = zvhost::scalar(0);
    Owned n = zvhost::scalar(double(kPoints)), flag = zvhost::logicalScalar(true);
    Owned last = zvhost::matrixOf<uint64_t>(1, kDims);
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::sobolSequenceBIF, 1,
                                {v.get(), first.get(), l.get(), n.get(), flag.get(), last.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints * kDims));
}

void BM_Indexed(benchmark::State& state) {
    const size_t n = size_t(1) << 18;
    Owned v = directionNumbers(kDims), flag = zvhost::logicalScalar(true);
    std::mt19937_64 gen(2);
    std::vector<double> idx(n);
    for (auto& i : idx) i = double(gen() >> 20);
    Owned indices = zvhost::matrixOf<double>(n, 1, std::span<const double>(idx));
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::sobolIndexedBIF, 1, {v.get(), indices.get(), flag.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(n * kDims));
}

void BM_Net(benchmark::State& state) {
    Owned v = directionNumbers(kDims), n = zvhost::scalar(double(kPoints)), flag = zvhost::logicalScalar(true);
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::sobolNetBIF, 1, {v.get(), n.get(), flag.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints * kDims));
}

void BM_Point(benchmark::State& state) {
    const size_t d = 21201;
    Owned v = directionNumbers(d), index = zvhost::scalar(123456789), flag = zvhost::logicalScalar(true);
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::sobolPoint, 1, {v.get(), index.get(), flag.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(d));
}

void BM_ComputeDN(benchmark::State& state) {
    const size_t d = 21201;
    Tables t(d);
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::computeDN, 1, {t.m.get(), t.polynomials.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(d * 53));
}

Owned pointWords() {
    Owned x = zvhost::matrixOf<uint64_t>(kPoints, kDims);
    auto* w = static_cast<uint64_t*>(ndGetData(x.get()));
    std::mt19937_64 gen(3);
    for (size_t i = 0; i < kPoints * kDims; ++i) w[i] = gen() >> 11;
    return x;
}

void BM_ConvertToDouble(benchmark::State& state) {
    Owned x = pointWords();
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::convertToDouble, 1, {x.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints * kDims));
}

void BM_MatrixBitXor(benchmark::State& state) {
    Owned x = pointWords(), shift = zvhost::matrixOf<uint64_t>(1, kDims);
    for (auto _ : state) {
        auto out = zvhost::call(sobolset::matrixBitXorBIF, 1, {x.get(), shift.get()});
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints * kDims));
}

// One dimension's scramble: its 53 words to bits and back.
void BM_BitMatrixRoundTrip(benchmark::State& state) {
    Owned dn = zvhost::matrixOf<uint64_t>(1, 53);
    auto* w = static_cast<uint64_t*>(ndGetData(dn.get()));
    for (size_t k = 0; k < 53; ++k) w[k] = (uint64_t(2 * k + 1)) << (52 - k);
    for (auto _ : state) {
        auto bits = zvhost::call(sobolset::DNToMatrix, 1, {dn.get()});
        auto back = zvhost::call(sobolset::MatrixToDN, 1, {bits[0].get()});
        benchmark::DoNotOptimize(back.data());
    }
}

void BM_HaltonPermutations(benchmark::State& state) {
    // The first 1000 primes, as a Halton set in 1000 dimensions would use.
    std::vector<double> primes;
    for (uint64_t c = 2; primes.size() < 1000; ++c) {
        bool prime = true;
        for (uint64_t q = 2; q * q <= c && prime; ++q) prime = c % q != 0;
        if (prime) primes.push_back(double(c));
    }
    Owned bases = zvhost::matrixOf<double>(1, primes.size(), std::span<const double>(primes));
    for (auto _ : state) {
        auto out = zvhost::call(haltonset::computeRR2Perm, 1, {bases.get()});
        benchmark::DoNotOptimize(out.data());
    }
}

BENCHMARK(BM_SequenceGray)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SequenceNatural)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SequenceLeap)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SequenceToDouble)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ScrambledToDouble)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SequenceContinued)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Indexed)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Net)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Point)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_ComputeDN)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ConvertToDouble)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_MatrixBitXor)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BitMatrixRoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_HaltonPermutations)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

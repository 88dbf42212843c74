// Demo of the random generators: gamma draws from the seeded default stream
// with their sample moments, and a weighted sample without replacement.
#include <cstdio>
#include <vector>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

constexpr unsigned kSeed = 2024;
constexpr double kMomentDraws = 100000;

void demoRandom(const Session& s) {
    heading("randg: gamma draws with unit scale (default stream, seed 2024)");
    zvhost::seedDefaultStream(kSeed);
    for (double a : {0.5, 1.0, 5.0}) {
        auto shape = zvhost::scalar(a), one = zvhost::scalar(1), six = zvhost::scalar(6);
        auto few = zvhost::valuesOf<double>(s.call("randg", 1, {shape.get(), one.get(), six.get()})[0].get());
        std::printf("  a = %.1f:", a);
        for (double v : few) std::printf(" %8.4f", v);
        auto many = zvhost::scalar(kMomentDraws);
        auto x = zvhost::valuesOf<double>(s.call("randg", 1, {shape.get(), many.get(), one.get()})[0].get());
        double mean = 0, var = 0;
        for (double v : x) mean += v;
        mean /= double(x.size());
        for (double v : x) var += (v - mean) * (v - mean);
        var /= double(x.size() - 1);
        std::printf("   mean %.4f, variance %.4f over %.0f draws (both a*1 = %.1f)\n", mean, var, kMomentDraws, a);
    }

    heading("wswor: 5 of 10 positions without replacement, weights 1..10 (seed 2024)");
    std::vector<double> w{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    auto weights = zvhost::matrixOf<double>(1, w.size(), std::span<const double>(w));
    auto five = zvhost::scalar(5);
    auto stream(zvhost::Owned(zvhost::createStreamObject(zvhost::makeStream(kSeed))));
    for (int round = 0; round < 3; ++round) {
        auto pick = zvhost::valuesOf<double>(s.call("wswor", 1, {stream.get(), weights.get(), five.get()})[0].get());
        std::printf("  draw %d:", round + 1);
        for (double p : pick) std::printf(" %2.0f", p);
        std::printf("\n");
    }
    // Inclusion counts over many samples: heavier positions come more often,
    // but no position more than once per sample.
    std::vector<int> counts(w.size(), 0);
    const int samples = 2000;
    for (int r = 0; r < samples; ++r)
        for (double p : zvhost::valuesOf<double>(s.call("wswor", 1, {stream.get(), weights.get(), five.get()})[0].get()))
            ++counts[size_t(p) - 1];
    std::printf("  inclusion rate over %d samples:", samples);
    for (int c : counts) std::printf(" %.2f", double(c) / samples);
    std::printf("\n");
}

}  // namespace

ZV_DEMO_SECTION(110, demoRandom);

}  // namespace zvdemo

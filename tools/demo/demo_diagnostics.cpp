// Demo of the model diagnostics: Cox residual sums of a small survival data
// set, and a random trigonometric feature block of a few observations.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

// Twelve patients, sorted by follow-up time (months): event (1) or censored
// (0), age in decades and a treatment flag. The coefficients stand in for a
// fitted model.
constexpr size_t kPatients = 12;
constexpr double kTime[kPatients] = {2, 3, 3, 5, 6, 6, 6, 8, 9, 11, 12, 14};
constexpr uint8_t kEvent[kPatients] = {1, 1, 0, 1, 1, 1, 0, 0, 1, 0, 1, 0};
constexpr double kAge[kPatients] = {6.7, 5.9, 7.1, 6.2, 4.8, 6.9, 5.5, 5.1, 6.0, 4.4, 5.7, 4.9};
constexpr double kTreated[kPatients] = {0, 0, 1, 0, 1, 0, 1, 1, 0, 1, 0, 1};
constexpr double kBetaAge = 0.45, kBetaTreated = -0.8, kAgeCentre = 5.8;

void demoCoxResiduals(const Session& s) {
    std::vector<double> x(2 * kPatients), risk(kPatients);
    for (size_t j = 0; j < kPatients; ++j) {
        x[2 * j] = kAge[j];
        x[2 * j + 1] = kTreated[j];
        risk[j] = std::exp(kBetaAge * (kAge[j] - kAgeCentre) + kBetaTreated * kTreated[j]);
    }
    zvhost::Owned status(ndCreateLogicalMatrix(kPatients, 1));
    std::memcpy(ndGetData(status.get()), kEvent, kPatients);
    auto xa = zvhost::matrixOf<double>(2, kPatients, std::span<const double>(x));
    auto start = zvhost::matrixOf<double>(1, kPatients);
    auto stop = zvhost::matrixOf<double>(kPatients, 1, std::span<const double>(kTime, kPatients));
    auto freq = zvhost::matrixOf<double>(kPatients, 1, std::span<const double>(std::vector<double>(kPatients, 1.0)));
    auto ra = zvhost::matrixOf<double>(kPatients, 1, std::span<const double>(risk));

    heading("coxmresbif, coxsresbif: Cox residual sums of 12 patients (ties at 3 and 6 months)");
    std::printf("  %4s %5s %4s %5s %7s | %10s %10s | %10s | %9s %9s\n", "t", "event", "age", "trt", "risk",
                "H Breslow", "H Efron", "martingale", "S age", "S trt");
    std::vector<double> h[2], sums;
    for (int tie = 0; tie < 2; ++tie) {
        auto t = zvhost::scalar(tie);
        auto out = s.call("coxmresbif", 1, {status.get(), start.get(), stop.get(), freq.get(), ra.get(), t.get()});
        h[tie] = zvhost::valuesOf<double>(out[0].get());
    }
    auto efron = zvhost::scalar(1);
    auto out = s.call("coxsresbif", 1, {status.get(), xa.get(), start.get(), stop.get(), freq.get(), ra.get(), efron.get()});
    sums = zvhost::valuesOf<double>(out[0].get());
    for (size_t j = 0; j < kPatients; ++j)
        std::printf("  %4.0f %5d %4.1f %5.0f %7.3f | %10.4f %10.4f | %10.4f | %9.4f %9.4f\n", kTime[j], kEvent[j],
                    kAge[j], kTreated[j], risk[j], h[0][j], h[1][j], kEvent[j] - h[1][j], sums[2 * j],
                    sums[2 * j + 1]);
    std::printf("  martingale residual = event - H (Efron); a score residual is its event term minus S\n");
}

void demoFeatureExpansion(const Session& s) {
    heading("rkeutils::fwhtbif: 8 random Fourier features of 4 points in 3 dimensions (L = 4, 1 block)");
    const size_t m = 4, k = 3, L = 4;
    auto x = zvhost::matrixOf<double>(m, k, {0.0, 1.0, 0.5, -1.0, 0.0, 0.0, 1.0, 2.0, 0.0, 0.5, -0.5, 1.0});
    auto d = zvhost::matrixOf<double>(L, 1, {1, -1, -1, 1});
    auto g = zvhost::matrixOf<double>(L, 1, {0.8, -1.3, 0.4, 1.1});
    auto r = zvhost::matrixOf<double>(L, 1, {1, -1, 1, 1});
    zvhost::Owned perm(ndCreateNumericMatrix(L, 1, ndINT64_CLASS, ndREAL));
    const int64_t p[L] = {3, 1, 4, 2};
    std::memcpy(ndGetData(perm.get()), p, sizeof p);
    auto sigma = zvhost::scalar(1.0), q = zvhost::scalar(8.0);
    auto out = s.call("rkeutils::fwhtbif", 1, {x.get(), d.get(), g.get(), r.get(), perm.get(), sigma.get(), q.get()});
    printMatrix("cosines (columns 1-4) and sines (columns 5-8), one row per point", zvhost::valuesOf<double>(out[0].get()).data(),
                m, 2 * L);
    q = zvhost::scalar(5.0);
    out = s.call("rkeutils::fwhtbif", 1, {x.get(), d.get(), g.get(), r.get(), perm.get(), sigma.get(), q.get()});
    printMatrix("the same, cut to q = 5 columns and scaled by sqrt(5/8)", zvhost::valuesOf<double>(out[0].get()).data(), m, 5);
}

void demoDiagnostics(const Session& s) {
    demoCoxResiduals(s);
    demoFeatureExpansion(s);
}

}  // namespace

ZV_DEMO_SECTION(120, demoDiagnostics);

}  // namespace zvdemo

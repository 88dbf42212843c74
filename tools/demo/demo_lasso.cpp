// Demo of lasso coordinate descent: a short regularisation path on generated
// data with three true predictors, the outer loop written here as a host would.
#include <cmath>
#include <cstdio>
#include <string>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

constexpr size_t kRows = 60, kPredictors = 12;
constexpr double kSettled = 1e-10;  // largest coefficient move that counts as settled
constexpr int kMaxSweeps = 1000;

void demoLasso(const Session& s) {
    heading("lassoCoordDescentCycle: a lasso path on 60 x 12 data, true support {3, 6, 10}");
    const double truth[kPredictors] = {0, 0, 2.5, 0, 0, -1.8, 0, 0, 0, 1.2, 0, 0};
    auto stream = zvhost::makeStream(80);
    std::vector<double> x(kRows * kPredictors), noise(kRows);
    stream->normal(x.data(), x.size());
    stream->normal(noise.data(), noise.size());
    std::vector<double> y(kRows), xx(kPredictors, 0.0), shrink(kPredictors);
    for (size_t i = 0; i < kRows; ++i) {
        y[i] = 0.2 * noise[i];
        for (size_t j = 0; j < kPredictors; ++j) y[i] += x[i + j * kRows] * truth[j];
    }
    double lambdaMax = 0;  // the smallest penalty at which every coefficient is zero
    for (size_t j = 0; j < kPredictors; ++j) {
        double xy = 0;
        for (size_t i = 0; i < kRows; ++i) {
            xx[j] += x[i + j * kRows] * x[i + j * kRows];
            xy += x[i + j * kRows] * y[i];
        }
        shrink[j] = xx[j] / double(kRows);
        lambdaMax = std::fmax(lambdaMax, std::fabs(xy) / double(kRows));
    }

    auto X = zvhost::matrixOf<double>(kRows, kPredictors, std::span<const double>(x));
    auto yA = zvhost::matrixOf<double>(kRows, 1, std::span<const double>(y));
    auto xxA = zvhost::matrixOf<double>(kPredictors, 1, std::span<const double>(xx));
    auto shrinkA = zvhost::matrixOf<double>(kPredictors, 1, std::span<const double>(shrink));
    auto divisor = zvhost::scalar(double(kRows));
    auto b = zvhost::matrixOf<double>(kPredictors, 1);  // warm start along the path
    auto r = zvhost::matrixOf<double>(kRows, 1, std::span<const double>(y));
    zvhost::Owned everyone(ndCreateLogicalMatrix(kPredictors, 1));
    for (size_t j = 0; j < kPredictors; ++j) ndGetLogicals(everyone.get())[j] = true;

    std::printf("  %9s %7s  %-22s  coefficients on the support\n", "lambda", "sweeps", "support");
    for (double fraction : {0.9, 0.6, 0.3, 0.1, 0.03, 0.01}) {
        auto threshold = zvhost::scalar(fraction * lambdaMax);
        int sweeps = 0;
        double moved = INFINITY;
        // Every sweep re-admits all predictors: the simplest host policy.
        while (moved > kSettled && sweeps < kMaxSweeps) {
            auto out = s.call("lassoCoordDescentCycle", 3,
                              {X.get(), X.get(), yA.get(), b.get(), everyone.get(), divisor.get(), shrinkA.get(),
                               threshold.get(), r.get(), xxA.get()});
            const double* before = static_cast<const double*>(ndGetData(b.get()));
            const double* after = static_cast<const double*>(ndGetData(out[0].get()));
            moved = 0;
            for (size_t j = 0; j < kPredictors; ++j) moved = std::fmax(moved, std::fabs(after[j] - before[j]));
            b = std::move(out[0]);
            r = std::move(out[2]);
            ++sweeps;
        }
        const double* coef = static_cast<const double*>(ndGetData(b.get()));
        std::string support, values;
        for (size_t j = 0; j < kPredictors; ++j) {
            if (coef[j] == 0) continue;
            char v[32];
            support += (support.empty() ? "" : " ") + std::to_string(j + 1);
            std::snprintf(v, sizeof v, " %+.3f", coef[j]);
            values += v;
        }
        std::printf("  %9.4f %7d  %-22s %s\n", fraction * lambdaMax, sweeps, ("{" + support + "}").c_str(),
                    values.c_str());
    }
    std::printf("  true coefficients: +2.500 -1.800 +1.200 on {3 6 10}\n");
}

}  // namespace

ZV_DEMO_SECTION(80, demoLasso);

}  // namespace zvdemo

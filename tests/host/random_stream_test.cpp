// The reference host's MT19937 stream gives the numbers of std::mt19937 with
// the documented uniform and ziggurat-normal recipes, whatever the request
// sizes, and its normals are standard normal.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "zvhost/control.hpp"

namespace {

// The stream as documented, on the standard library's engine, with the
// ziggurat written out from its definition: 256 layers of equal area v under
// exp(-x^2/2), the base one of width v / f(r) with the tail beyond r in it.
class ReferenceStream {
public:
    explicit ReferenceStream(uint32_t seed) : engine_(seed) {
        edge_[0] = v_ / curve(r_);
        edge_[1] = r_;
        for (int i = 1; i < 255; ++i) edge_[i + 1] = std::sqrt(-2 * std::log(curve(edge_[i]) + v_ / edge_[i]));
        edge_[256] = 0;
    }
    double uniform() {
        for (;;) {
            uint32_t a = uint32_t(engine_()) >> 5, b = uint32_t(engine_()) >> 6;
            double x = (a * 67108864.0 + b) / 9007199254740992.0;
            if (x > 0.0) return x;
        }
    }
    void normal(double* out, size_t n) {
        for (size_t k = 0; k < n; ++k) out[k] = gaussian();
    }

private:
    static double curve(double t) { return std::exp(-0.5 * t * t); }

    double gaussian() {
        for (;;) {
            const uint64_t high = uint32_t(engine_()), low = uint32_t(engine_());
            const uint64_t bits = high << 32 | low;
            const int layer = int(bits % 256);
            const double sign = (bits >> 8) % 2 ? -1.0 : 1.0;
            const uint64_t place = bits >> 11;  // 53 bits
            const double x = double(place) * (edge_[layer] / 9007199254740992.0);
            if (place < uint64_t(edge_[layer + 1] / edge_[layer] * 9007199254740992.0)) return sign * x;
            if (layer == 0) {
                for (;;) {
                    const double a = -std::log(uniform()) / r_, b = -std::log(uniform());
                    if (2 * b > a * a) return sign * (r_ + a);
                }
            }
            const double lowHeight = curve(edge_[layer]), highHeight = curve(edge_[layer + 1]);
            if (lowHeight + uniform() * (highHeight - lowHeight) < curve(x)) return sign * x;
        }
    }

    static constexpr double r_ = 3.6541528853610088, v_ = 4.92867323399e-3;
    std::mt19937 engine_;
    double edge_[257];
};

TEST(HostRandomStream, MatchesTheStandardEngineOverManyBlocks) {
    for (uint32_t seed : {0u, 1u, 5489u, 20240611u, 0xFFFFFFFFu}) {
        auto stream = zvhost::makeStream(seed);
        ReferenceStream reference(seed);
        std::vector<double> got(1000), want(1000);
        // Mixed request sizes and kinds cross many 624-word block ends.
        for (size_t round = 0; round < 3000; ++round) {
            const size_t n = 1 + (round * 37) % 11 + (round % 97 == 0 ? 700 : 0);
            if (round % 3 == 0) {
                stream->normal(got.data(), n);
                reference.normal(want.data(), n);
            } else {
                stream->uniform(got.data(), n);
                for (size_t k = 0; k < n; ++k) want[k] = reference.uniform();
            }
            for (size_t k = 0; k < n; ++k) ASSERT_EQ(got[k], want[k]) << seed << " " << round << " " << k;
        }
    }
}

TEST(HostRandomStream, NormalsDoNotDependOnHowRequestsAreBatched) {
    auto whole = zvhost::makeStream(7), single = zvhost::makeStream(7);
    std::vector<double> a(9), b(9);
    whole->normal(a.data(), 9);
    for (size_t k = 0; k < 9; ++k) single->normal(&b[k], 1);
    EXPECT_EQ(a, b);
    // A request of none draws nothing.
    double x = 0, y = 0, none = 0;
    whole->normal(&x, 1);
    whole->normal(&none, 0);
    single->normal(&y, 1);
    single->normal(&y, 1);
    whole->normal(&x, 1);
    EXPECT_EQ(x, y);
}

TEST(HostRandomStream, LongRunsOfNormalsMatchTheRecipeThroughWedgesAndTails) {
    for (uint32_t seed : {3u, 20240611u}) {
        auto stream = zvhost::makeStream(seed);
        ReferenceStream reference(seed);
        std::vector<double> got(200000), want(200000);
        stream->normal(got.data(), got.size());
        reference.normal(want.data(), want.size());
        ASSERT_EQ(got, want) << seed;
        // about 52 of the 200000 lie beyond the base layer's edge
        const auto beyond =
            std::count_if(got.begin(), got.end(), [](double x) { return std::abs(x) > 3.6541528853610088; });
        EXPECT_GT(beyond, 10) << seed;
    }
}

// Phi(b) - Phi(a) for the standard normal.
double normalMass(double a, double b) {
    return 0.5 * (std::erfc(-b / std::sqrt(2.0)) - std::erfc(-a / std::sqrt(2.0)));
}

TEST(HostRandomStream, NormalsAreStandardNormal) {
    auto stream = zvhost::makeStream(20240611);
    const size_t n = 2000000;
    std::vector<double> x(n);
    stream->normal(x.data(), n);

    // Kolmogorov-Smirnov: sqrt(n) D above 1.95 has probability 0.001.
    std::sort(x.begin(), x.end());
    double d = 0;
    for (size_t i = 0; i < n; ++i) {
        const double cdf = normalMass(-INFINITY, x[i]);
        d = std::max({d, cdf - double(i) / double(n), double(i + 1) / double(n) - cdf});
    }
    EXPECT_LT(std::sqrt(double(n)) * d, 1.95);

    // Chi-squared on bins of 1/16 over [-6, 6] and the two far tails, which
    // sees a mis-built layer that the KS statistic would average away.
    const double step = 1.0 / 16;
    const int bins = 192;
    std::vector<double> count(bins + 2, 0.0);
    for (double v : x) {
        const double t = std::floor((v + 6) / step);
        count[t < 0 ? 0 : t >= bins ? bins + 1 : size_t(t) + 1] += 1;
    }
    double chi2 = 0;
    for (int b = 0; b < bins + 2; ++b) {
        const double lo = b == 0 ? -INFINITY : -6 + (b - 1) * step, hi = b == bins + 1 ? INFINITY : -6 + b * step;
        const double expected = double(n) * normalMass(lo, hi);
        if (expected < 5) continue;  // the far tails hold about 4 in 10^9
        chi2 += (count[b] - expected) * (count[b] - expected) / expected;
    }
    const double dof = bins - 1;
    EXPECT_LT(chi2, dof + 5 * std::sqrt(2 * dof));

    // Mean, variance and kurtosis.
    double m1 = 0, m2 = 0, m4 = 0;
    for (double v : x) m1 += v, m2 += v * v, m4 += v * v * v * v;
    m1 /= double(n), m2 /= double(n), m4 /= double(n);
    EXPECT_LT(std::abs(m1), 5 / std::sqrt(double(n)));
    EXPECT_LT(std::abs(m2 - 1), 5 * std::sqrt(2.0 / double(n)));
    EXPECT_LT(std::abs(m4 - 3), 5 * std::sqrt(96.0 / double(n)));
}

TEST(HostRandomStream, NormalsBeyondTheBaseLayerFollowTheNormalTail) {
    // Only about 1 in 3900 normals comes from the tail beyond r; given that,
    // |x| has the distribution function 1 - Q(t) / Q(r).
    const double r = 3.6541528853610088;
    const auto upper = [](double t) { return 0.5 * std::erfc(t / std::sqrt(2.0)); };
    auto stream = zvhost::makeStream(11);
    std::vector<double> chunk(1 << 20), tail;
    for (int round = 0; round < 30; ++round) {
        stream->normal(chunk.data(), chunk.size());
        for (double v : chunk)
            if (std::abs(v) > r) tail.push_back(std::abs(v));
    }
    ASSERT_GT(tail.size(), 7000u);
    std::sort(tail.begin(), tail.end());
    const double n = double(tail.size());
    double d = 0;
    for (size_t i = 0; i < tail.size(); ++i) {
        const double cdf = 1 - upper(tail[i]) / upper(r);
        d = std::max({d, cdf - double(i) / n, double(i + 1) / n - cdf});
    }
    EXPECT_LT(std::sqrt(n) * d, 1.95);
}

TEST(HostRandomStream, DefaultStreamFollowsSetDefaultStream) {
    auto saved = zvhost::defaultStream();
    zvhost::setDefaultStream(zvhost::makeStream(42));
    double a[3], b[3];
    hostRandu(a, 3);
    zvhost::setDefaultStream(zvhost::makeStream(42));
    hostRandu(b, 3);
    EXPECT_EQ(std::vector<double>(a, a + 3), std::vector<double>(b, b + 3));
    ReferenceStream reference(42);
    EXPECT_EQ(a[0], reference.uniform());
    zvhost::setDefaultStream(saved);
}

TEST(HostRandomStream, DefaultStreamRequestsOfOneFollowTheRecipe) {
    // hostRandn has its own path for a count of 1, the request of randg.
    auto saved = zvhost::defaultStream();
    zvhost::setDefaultStream(zvhost::makeStream(9));
    ReferenceStream reference(9);
    std::vector<double> got(20000), want(20000);
    for (size_t k = 0; k < got.size(); ++k) {
        if (k % 5 == 0) {
            hostRandu(&got[k], 1);
            want[k] = reference.uniform();
        } else {
            hostRandn(&got[k], 1);
            reference.normal(&want[k], 1);
        }
    }
    EXPECT_EQ(got, want);
    zvhost::setDefaultStream(saved);
}

}  // namespace

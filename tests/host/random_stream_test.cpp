// The reference host's MT19937 stream gives the numbers of std::mt19937 with
// the documented uniform and polar-normal recipes, whatever the request sizes.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "zvhost/control.hpp"

namespace {

// The stream as documented, on the standard library's engine.
class ReferenceStream {
public:
    explicit ReferenceStream(uint32_t seed) : engine_(seed) {}
    double uniform() {
        for (;;) {
            uint32_t a = uint32_t(engine_()) >> 5, b = uint32_t(engine_()) >> 6;
            double x = (a * 67108864.0 + b) / 9007199254740992.0;
            if (x > 0.0) return x;
        }
    }
    void normal(double* out, size_t n) {
        size_t k = 0;
        if (n > 0 && hasSpare_) {
            out[k++] = spare_;
            hasSpare_ = false;
        }
        while (k < n) {
            double u, v, s;
            do {
                u = 2.0 * uniform() - 1.0;
                v = 2.0 * uniform() - 1.0;
                s = u * u + v * v;
            } while (s >= 1.0 || s == 0.0);
            double f = std::sqrt(-2.0 * std::log(s) / s);
            out[k++] = u * f;
            if (k < n) {
                out[k++] = v * f;
            } else {
                spare_ = v * f;
                hasSpare_ = true;
            }
        }
    }

private:
    std::mt19937 engine_;
    double spare_ = 0.0;
    bool hasSpare_ = false;
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
    // A request of none leaves the spare value for the next.
    double x = 0, y = 0, none = 0;
    whole->normal(&x, 1);
    whole->normal(&none, 0);
    single->normal(&y, 1);
    single->normal(&y, 1);
    whole->normal(&x, 1);
    EXPECT_EQ(x, y);
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

}  // namespace

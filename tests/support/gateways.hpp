// The gateways (declared by the build from the gateway list) and the helpers
// every suite uses.
#pragma once

#include <gtest/gtest.h>
#include <tbb/global_control.h>

#include <cmath>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "frame/message_ids.hpp"
#include "gateway_declarations.hpp"
#include "zvhost/arrays.hpp"

namespace zvtest {

// The identifier a call raises, or "" if it returns.
template <class F>
std::string raisedId(F&& f) {
    try {
        f();
    } catch (const bedrock::core::except::IMsgIDException& e) {
        return e.GetID();
    }
    return "";
}

// Fails the test if arrays or scratch outlive the scope.
class LeakCheck {
public:
    LeakCheck() : before_(zvhost::usage()) {}
    ~LeakCheck() {
        const zvhost::Usage after = zvhost::usage();
        EXPECT_EQ(after.liveArrays, before_.liveArrays) << "arrays leaked";
        EXPECT_EQ(after.liveScratch, before_.liveScratch) << "scratch leaked";
        EXPECT_EQ(after.liveWorkerScratch, before_.liveWorkerScratch) << "worker scratch leaked";
    }

private:
    zvhost::Usage before_;
};

// Equal bit for bit, or NaN at the same places.
template <class T>
void expectBitEqual(const std::vector<T>& a, const std::vector<T>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) {
        if (std::isnan(a[i]) && std::isnan(b[i])) continue;
        ASSERT_EQ(a[i], b[i]) << "at " << i;
    }
}

// count standard normal values (times scale) from a fixed seed, as T.
template <class T = double>
std::vector<T> normals(size_t count, unsigned seed, double scale = 1.0) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal(0.0, scale);
    std::vector<T> v(count);
    for (auto& x : v) x = T(normal(gen));
    return v;
}

// Runs f with TBB limited to `threads` workers.
template <class F>
auto withThreads(size_t threads, F&& f) {
    tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
    return f();
}

}  // namespace zvtest

// Panel searches: the exact bound on the values before the root, the boxes
// of ordered panels, and the distances made from panel columns.
#include <algorithm>

#include "distance/ordered_panels.hpp"
#include "distance/panel_columns.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

using zv::distance::PairMetric;
using zv::distance::PanelColumns;

template <class T>
class PanelSearch : public ::testing::Test {};
using Types = ::testing::Types<double, float>;
TYPED_TEST_SUITE(PanelSearch, Types);

// The largest value whose root is at most the radius: its root passes, the
// root of the next value does not.
template <class T>
void expectLargestPassing(T radius) {
    constexpr T inf = std::numeric_limits<T>::infinity();
    const T t = zv::distance::radiusValueBound(PairMetric::Euclidean, radius);
    ASSERT_FALSE(std::isnan(t)) << radius;
    EXPECT_LE(std::sqrt(t), radius) << radius;
    if (t < inf) {
        EXPECT_GT(std::sqrt(std::nextafter(t, inf)), radius) << radius;
    }
}

TYPED_TEST(PanelSearch, EuclideanBoundIsTheLargestValueWhoseRootPasses) {
    using T = TypeParam;
    std::mt19937 gen(4);
    std::uniform_real_distribution<double> mantissa(1.0, 2.0);
    std::uniform_int_distribution<int> exponent(-60, 60);
    for (int k = 0; k < 20000; ++k) expectLargestPassing(T(std::ldexp(mantissa(gen), exponent(gen))));
    const T special[] = {T(0), T(1), T(0.15), T(0.1), std::sqrt(T(2)), std::numeric_limits<T>::denorm_min(),
                         std::numeric_limits<T>::min(), std::numeric_limits<T>::max(),
                         std::sqrt(std::numeric_limits<T>::max()), std::numeric_limits<T>::infinity()};
    for (T r : special) {
        expectLargestPassing(r);
        expectLargestPassing(std::nextafter(r, T(0)));
    }
}

TYPED_TEST(PanelSearch, NothingPassesANaNOrNegativeRadius) {
    using T = TypeParam;
    constexpr T inf = std::numeric_limits<T>::infinity();
    auto euclidean = [](T r) { return zv::distance::radiusValueBound(PairMetric::Euclidean, r); };
    auto cityBlock = [](T r) { return zv::distance::radiusValueBound(PairMetric::CityBlock, r); };
    EXPECT_EQ(euclidean(std::numeric_limits<T>::quiet_NaN()), -inf);
    EXPECT_EQ(euclidean(T(-1)), -inf);
    EXPECT_EQ(euclidean(-std::numeric_limits<T>::denorm_min()), -inf);
    EXPECT_EQ(euclidean(T(-0.0)), T(0));  // sqrt(0) <= -0
    EXPECT_EQ(cityBlock(std::numeric_limits<T>::quiet_NaN()), -inf);
    // Without a root the radius itself bounds the values, negative or not.
    EXPECT_EQ(cityBlock(T(-1)), T(-1));
    EXPECT_EQ(cityBlock(T(0.25)), T(0.25));
}

TYPED_TEST(PanelSearch, KernelBoundIsStrictlyAboveTheValueBound) {
    using T = TypeParam;
    constexpr T inf = std::numeric_limits<T>::infinity();
    EXPECT_EQ(zv::distance::kernelBelowBound(T(1)), std::nextafter(T(1), inf));
    EXPECT_EQ(zv::distance::kernelBelowBound(T(0)), std::numeric_limits<T>::denorm_min());
    EXPECT_TRUE(std::isnan(zv::distance::kernelBelowBound(inf)));  // every lane passes, then the test at most
    EXPECT_EQ(zv::distance::kernelBelowBound(std::numeric_limits<T>::max()), inf);
}

// The blocks of panel columns, finished, are the distances of the points.
TYPED_TEST(PanelSearch, BlocksFinishedAreTheDistances) {
    using T = TypeParam;
    const size_t n = 37, p = 3;
    constexpr size_t L = PanelColumns<T>::kLanes;
    std::vector<T> x(n * p);
    for (size_t k = 0; k < x.size(); ++k) x[k] = T(int(k * 7 % 11) - 5);
    const PanelColumns<T> euclidean(x.data(), n, p, PairMetric::Euclidean);
    ASSERT_EQ(euclidean.numPanels(), (n + L - 1) / L);
    const size_t first = 3, count = 5;
    std::vector<T> block(count * L);
    for (size_t b = 0; b < euclidean.numPanels(); ++b) {
        euclidean.block(first, count, b, block.data());
        euclidean.finish(block.data(), block.size(), block.data());
        for (size_t c = 0; c < count; ++c)
            for (size_t l = 0; l < L && b * L + l < n; ++l) {
                const size_t i = b * L + l, j = first + c;
                T s = 0;
                for (size_t k = 0; k < p; ++k) s += (x[j * p + k] - x[i * p + k]) * (x[j * p + k] - x[i * p + k]);
                EXPECT_EQ(block[c * L + l], std::sqrt(s)) << j << " " << i;
            }
    }
}

// No pair of a point with a panel's points falls below the panel's least
// value, computed as the kernel computes it; and the panels hold every point
// once.
TYPED_TEST(PanelSearch, NoPairFallsBelowItsPanelsLeastValue) {
    using T = TypeParam;
    for (size_t p : {1, 2, 5}) {
        const size_t n = 700;  // more than one group of panels
        std::mt19937 gen{unsigned(p)};
        std::normal_distribution<double> normal(0.0, 1.0);
        std::vector<T> x(n * p);
        for (size_t k = 0; k < x.size(); ++k) x[k] = T(std::ldexp(normal(gen), int(k % 7) * 9 - 30));
        const zv::distance::OrderedPanels<T> panels(x.data(), n, p);
        std::vector<size_t> seen;
        for (size_t b = 0; b < panels.numPanels(); ++b)
            for (size_t l = 0; l < panels.lanes(b); ++l) seen.push_back(panels.pointAt(b, l));
        std::sort(seen.begin(), seen.end());
        for (size_t i = 0; i < n; ++i) ASSERT_EQ(seen[i], i);
        for (PairMetric metric : {PairMetric::Euclidean, PairMetric::CityBlock}) {
            for (size_t i = 0; i < n; i += 7) {
                const T* u = x.data() + i * p;
                alignas(64) T values[zv::distance::OrderedPanels<T>::kLanes];
                for (size_t b = 0; b < panels.numPanels(); ++b) {
                    zv::distance::computeCrossBlock(
                        zv::distance::CrossBlock<T>{metric, &u, 1, panels.panel(b), p, nullptr, values});
                    const T least = panels.leastValue(u, b, metric);
                    const T groupLeast = panels.groupLeastValue(u, b / panels.kGroup, metric);
                    EXPECT_LE(groupLeast, least);
                    for (size_t l = 0; l < panels.lanes(b); ++l) EXPECT_LE(least, values[l]) << p << " " << i;
                }
            }
        }
    }
}

// Data with a NaN keeps its order, and no panel is ever skipped.
TYPED_TEST(PanelSearch, DataWithANaNSkipsNoPanel) {
    using T = TypeParam;
    std::vector<T> x(40);
    for (size_t k = 0; k < x.size(); ++k) x[k] = T(k);
    x[7] = std::numeric_limits<T>::quiet_NaN();
    const zv::distance::OrderedPanels<T> panels(x.data(), 20, 2);
    const T far[2] = {T(1e30), T(-1e30)};
    for (size_t b = 0; b < panels.numPanels(); ++b) {
        EXPECT_EQ(panels.leastValue(far, b, PairMetric::Euclidean), T(0));
        EXPECT_EQ(panels.groupLeastValue(far, b / panels.kGroup, PairMetric::Euclidean), T(0));
        for (size_t l = 0; l < panels.lanes(b); ++l) EXPECT_EQ(panels.pointAt(b, l), b * panels.kLanes + l);
    }
}

}  // namespace

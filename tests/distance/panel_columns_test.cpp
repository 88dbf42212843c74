// Panel columns: the exact bound on the values before the root, and the
// distances made from the panels against those of the nested call.
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
class PanelColumnsBound : public ::testing::Test {};
using Types = ::testing::Types<double, float>;
TYPED_TEST_SUITE(PanelColumnsBound, Types);

// The largest value whose root is at most the radius: its root passes, the
// root of the next value does not.
template <class T>
void expectLargestPassing(const PanelColumns<T>& euclidean, T radius) {
    constexpr T inf = std::numeric_limits<T>::infinity();
    const T t = euclidean.valueBound(radius);
    ASSERT_FALSE(std::isnan(t)) << radius;
    EXPECT_LE(std::sqrt(t), radius) << radius;
    if (t < inf) {
        EXPECT_GT(std::sqrt(std::nextafter(t, inf)), radius) << radius;
    }
}

TYPED_TEST(PanelColumnsBound, EuclideanBoundIsTheLargestValueWhoseRootPasses) {
    using T = TypeParam;
    const std::vector<T> x = {0, 1, 2, 3};
    const PanelColumns<T> euclidean(x.data(), 2, 2, PairMetric::Euclidean);
    std::mt19937 gen(4);
    std::uniform_real_distribution<double> mantissa(1.0, 2.0);
    std::uniform_int_distribution<int> exponent(-60, 60);
    for (int k = 0; k < 20000; ++k) expectLargestPassing(euclidean, T(std::ldexp(mantissa(gen), exponent(gen))));
    const T special[] = {T(0), T(1), T(0.15), T(0.1), std::sqrt(T(2)), std::numeric_limits<T>::denorm_min(),
                         std::numeric_limits<T>::min(), std::numeric_limits<T>::max(),
                         std::sqrt(std::numeric_limits<T>::max()), std::numeric_limits<T>::infinity()};
    for (T r : special) {
        expectLargestPassing(euclidean, r);
        expectLargestPassing(euclidean, std::nextafter(r, T(0)));
    }
}

TYPED_TEST(PanelColumnsBound, NothingPassesANaNOrNegativeRadius) {
    using T = TypeParam;
    constexpr T inf = std::numeric_limits<T>::infinity();
    const std::vector<T> x = {0, 1};
    const PanelColumns<T> euclidean(x.data(), 2, 1, PairMetric::Euclidean);
    const PanelColumns<T> cityBlock(x.data(), 2, 1, PairMetric::CityBlock);
    EXPECT_EQ(euclidean.valueBound(std::numeric_limits<T>::quiet_NaN()), -inf);
    EXPECT_EQ(euclidean.valueBound(T(-1)), -inf);
    EXPECT_EQ(euclidean.valueBound(-std::numeric_limits<T>::denorm_min()), -inf);
    EXPECT_EQ(euclidean.valueBound(T(-0.0)), T(0));  // sqrt(0) <= -0
    EXPECT_EQ(cityBlock.valueBound(std::numeric_limits<T>::quiet_NaN()), -inf);
    // Without a root the radius itself bounds the values, negative or not.
    EXPECT_EQ(cityBlock.valueBound(T(-1)), T(-1));
    EXPECT_EQ(cityBlock.valueBound(T(0.25)), T(0.25));
}

TYPED_TEST(PanelColumnsBound, KernelBoundIsStrictlyAboveTheValueBound) {
    using T = TypeParam;
    constexpr T inf = std::numeric_limits<T>::infinity();
    EXPECT_EQ(PanelColumns<T>::kernelBound(T(1)), std::nextafter(T(1), inf));
    EXPECT_EQ(PanelColumns<T>::kernelBound(T(0)), std::numeric_limits<T>::denorm_min());
    EXPECT_TRUE(std::isnan(PanelColumns<T>::kernelBound(inf)));  // every lane passes, then the test at most
    EXPECT_EQ(PanelColumns<T>::kernelBound(std::numeric_limits<T>::max()), inf);
}

// The values of a run, finished, are the distances of the points; runs
// cover every point once, in ascending order.
TYPED_TEST(PanelColumnsBound, RunsCoverEveryPointInOrder) {
    using T = TypeParam;
    const size_t n = 37, p = 3;
    std::vector<T> x(n * p);
    for (size_t k = 0; k < x.size(); ++k) x[k] = T(int(k * 7 % 11) - 5);
    const PanelColumns<T> euclidean(x.data(), n, p, PairMetric::Euclidean);
    for (size_t j = 0; j < n; j += 5) {
        std::vector<T> d(n, T(-1));
        size_t next = 0;
        euclidean.values(j, j + 1, [&](size_t jj, size_t i0, size_t count, const T* v, uint32_t) {
            EXPECT_EQ(jj, j);
            EXPECT_EQ(i0, next);
            euclidean.finish(v, count, d.data() + i0);
            next = i0 + count;
        });
        EXPECT_EQ(next, n);
        for (size_t i = 0; i < n; ++i) {
            T s = 0;
            for (size_t k = 0; k < p; ++k) s += (x[j * p + k] - x[i * p + k]) * (x[j * p + k] - x[i * p + k]);
            EXPECT_EQ(d[i], std::sqrt(s)) << j << " " << i;
        }
    }
}

}  // namespace

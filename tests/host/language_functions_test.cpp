// The host's own "pdist" and "pdist2": rows as observations, metric names and
// their parameters, the gateways reached through the resolver, and the
// precedence of registered functions.
#include <cmath>
#include <random>

#include "host/callback.hpp"
#include "support/gateways.hpp"
#include "support/linked_gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

struct Data {
    size_t n, p;
    std::vector<double> rows;  // n-by-p, column-major
    double at(size_t i, size_t k) const { return rows[i + k * n]; }
};

Data randomRows(size_t n, size_t p, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> normal;
    Data d{n, p, std::vector<double>(n * p)};
    for (auto& v : d.rows) v = normal(gen);
    return d;
}

std::vector<double> callByName(const char* name, std::vector<const ndArray*> in) {
    ndArray* out = nullptr;
    EXPECT_EQ(hostCallFunction(1, &out, int(in.size()), in.data(), name, 0), 0);
    Owned owned(out);
    return zvhost::valuesOf<double>(out);
}

template <class F>
std::vector<double> pairwise(const Data& d, F distance) {
    std::vector<double> y;
    for (size_t i = 0; i < d.n; ++i)
        for (size_t j = i + 1; j < d.n; ++j) y.push_back(distance(i, j));
    return y;
}

void expectNear(const std::vector<double>& a, const std::vector<double>& b, double tol = 1e-12) {
    ASSERT_EQ(a.size(), b.size());
    for (size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], b[i], tol * (1 + std::abs(b[i]))) << i;
}

class LanguageFunctions : public ::testing::Test {
protected:
    void SetUp() override { zvtest::useLinkedGateways(); }
};

TEST_F(LanguageFunctions, PdistTakesRowsAndMetricNames) {
    zvtest::LeakCheck leaks;
    const Data d = randomRows(12, 3, 1);
    Owned x = zvhost::matrixOf<double>(d.n, d.p, std::span<const double>(d.rows));
    auto euclid = [&](size_t i, size_t j) {
        double s = 0;
        for (size_t k = 0; k < d.p; ++k) s += (d.at(i, k) - d.at(j, k)) * (d.at(i, k) - d.at(j, k));
        return std::sqrt(s);
    };
    auto city = [&](size_t i, size_t j) {
        double s = 0;
        for (size_t k = 0; k < d.p; ++k) s += std::abs(d.at(i, k) - d.at(j, k));
        return s;
    };
    auto cheb = [&](size_t i, size_t j) {
        double s = 0;
        for (size_t k = 0; k < d.p; ++k) s = std::max(s, std::abs(d.at(i, k) - d.at(j, k)));
        return s;
    };
    auto mink3 = [&](size_t i, size_t j) {
        double s = 0;
        for (size_t k = 0; k < d.p; ++k) s += std::pow(std::abs(d.at(i, k) - d.at(j, k)), 3);
        return std::cbrt(s);
    };
    auto cosine = [&](size_t i, size_t j) {
        double uv = 0, uu = 0, vv = 0;
        for (size_t k = 0; k < d.p; ++k) uv += d.at(i, k) * d.at(j, k), uu += d.at(i, k) * d.at(i, k), vv += d.at(j, k) * d.at(j, k);
        return 1 - uv / std::sqrt(uu * vv);
    };
    expectNear(callByName("pdist", {x.get()}), pairwise(d, euclid));
    Owned name = zvhost::text("Euclidean"), cityName = zvhost::text("cityblock"), chebName = zvhost::text("chebychev");
    expectNear(callByName("pdist", {x.get(), name.get()}), pairwise(d, euclid));
    expectNear(callByName("pdist", {x.get(), cityName.get()}), pairwise(d, city));
    expectNear(callByName("pdist", {x.get(), chebName.get()}), pairwise(d, cheb));
    Owned minkName = zvhost::text("minkowski"), three = zvhost::scalar(3);
    expectNear(callByName("pdist", {x.get(), minkName.get(), three.get()}), pairwise(d, mink3));
    Owned cosName = zvhost::text("cosine");
    expectNear(callByName("pdist", {x.get(), cosName.get()}), pairwise(d, cosine), 1e-10);
    // Codes pass as they are.
    Owned code = zvhost::text("cit");
    expectNear(callByName("pdist", {x.get(), code.get()}), pairwise(d, city));
}

TEST_F(LanguageFunctions, PdistScalesForStandardisedAndMahalanobis) {
    const Data d = randomRows(15, 2, 2);
    Owned x = zvhost::matrixOf<double>(d.n, d.p, std::span<const double>(d.rows));
    // Given scales: weights 1/s^2.
    Owned seu = zvhost::text("seuclidean"), scales = zvhost::matrixOf<double>(1, 2, {2, 0.5});
    expectNear(callByName("pdist", {x.get(), seu.get(), scales.get()}), pairwise(d, [&](size_t i, size_t j) {
                   const double a = (d.at(i, 0) - d.at(j, 0)) / 2, b = (d.at(i, 1) - d.at(j, 1)) / 0.5;
                   return std::sqrt(a * a + b * b);
               }));
    // Mahalanobis with a given diagonal covariance is the standardised distance.
    Owned mah = zvhost::text("mahalanobis"), cov = zvhost::matrixOf<double>(2, 2, {4, 0, 0, 0.25});
    expectNear(callByName("pdist", {x.get(), mah.get(), cov.get()}), callByName("pdist", {x.get(), seu.get(), scales.get()}),
               1e-12);
}

TEST_F(LanguageFunctions, Pdist2FromEachRowToOneRow) {
    zvtest::LeakCheck leaks;
    const Data d = randomRows(9, 3, 4);
    Owned x = zvhost::matrixOf<double>(d.n, d.p, std::span<const double>(d.rows));
    Owned row = zvhost::matrixOf<double>(1, 3, {0.5, -1, 2});
    Owned city = zvhost::text("cit");
    const auto got = callByName("pdist2", {x.get(), row.get(), city.get()});
    ASSERT_EQ(got.size(), d.n);
    for (size_t i = 0; i < d.n; ++i)
        EXPECT_NEAR(got[i], std::abs(d.at(i, 0) - 0.5) + std::abs(d.at(i, 1) + 1) + std::abs(d.at(i, 2) - 2), 1e-12);
    // Single data stays single.
    Owned xs = zvhost::matrixOf<float>(2, 1, {1, 4});
    Owned rs = zvhost::matrixOf<float>(1, 1, {2});
    ndArray* out = nullptr;
    const ndArray* in[] = {xs.get(), rs.get(), city.get()};
    hostCallFunction(1, &out, 3, in, "pdist2", 0);
    Owned owned(out);
    EXPECT_EQ(ndGetClassID(out), ndSINGLE_CLASS);
    EXPECT_EQ(zvhost::valuesOf<float>(out), (std::vector<float>{1, 2}));
}

TEST_F(LanguageFunctions, RegisteredFunctionsTakePrecedence) {
    zvhost::registerFunction("pdist", [](int, ndArray** out, int, const ndArray**) {
        out[0] = zvhost::matrixOf<double>(1, 1, {42}).release();
    });
    Owned x = zvhost::matrixOf<double>(2, 1, {0, 1});
    EXPECT_EQ(callByName("pdist", {x.get()}), std::vector<double>{42});
    zvhost::unregisterFunction("pdist");
    EXPECT_EQ(callByName("pdist", {x.get()}), std::vector<double>{1});
    EXPECT_FALSE(zvhost::isRegistered("pdist"));
    EXPECT_NE(hostFindFunction(u"pdist2"), nullptr);
}

TEST_F(LanguageFunctions, ErrorsAreTheHosts) {
    Owned x = zvhost::matrixOf<double>(2, 1, {0, 1});
    Owned unknown = zvhost::text("nosuchmetric");
    EXPECT_EQ(raisedId([&] { callByName("pdist", {x.get(), unknown.get()}); }), "zvhost:pdist:UnknownDistance");
    // Only dense real data and parameters of the metric's size are read.
    Owned none(zvhost::createSparse(2, 1, 0)), complex(zvhost::createComplexMatrix(2, 1));
    Owned seu = zvhost::text("seuclidean"), mah = zvhost::text("mahalanobis"), oneScale = zvhost::scalar(2);
    for (const ndArray* data : {none.get(), complex.get()}) {
        EXPECT_EQ(raisedId([&] { callByName("pdist", {data}); }), "zvhost:pdist:DataNotFloatingPoint");
        EXPECT_EQ(raisedId([&] { callByName("pdist2", {x.get(), data}); }), "zvhost:pdist:DataNotFloatingPoint");
    }
    Owned x2 = zvhost::matrixOf<double>(3, 2, {0, 1, 2, 3, 1, 0});
    EXPECT_EQ(raisedId([&] { callByName("pdist", {x2.get(), seu.get(), oneScale.get()}); }), "zvhost:pdist:BadParameter");
    EXPECT_EQ(raisedId([&] { callByName("pdist", {x2.get(), mah.get(), none.get()}); }), "zvhost:pdist:BadParameter");
    // Without a resolver the host cannot reach the library.
    zvhost::setGatewayResolver(nullptr, this);
    EXPECT_EQ(raisedId([&] { callByName("pdist", {x.get()}); }), "zvhost:NoGatewayForFunction");
    zvhost::releaseGatewayResolver(this);
    zvtest::useLinkedGateways();
    // Trapped calls report the failure instead.
    ndArray* out = nullptr;
    const ndArray* in[] = {x.get(), unknown.get()};
    EXPECT_NE(hostCallFunction(1, &out, 2, in, "pdist", 1), 0);
}

}  // namespace

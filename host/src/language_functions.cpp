// The host-language functions "pdist" and "pdist2" that builtins call by
// name. As the host's language does, they take observations as rows, turn
// metric names into the gateways' codes, prepare the data a metric needs,
// and call the library's own gateways, found through the gateway resolver.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <mutex>
#include <vector>

#include "internal.hpp"

namespace zvhost {

namespace {

std::mutex resolverMutex;
GatewayResolver resolver;
const void* resolverOwner = nullptr;

Gateway resolveGateway(const char* name) {
    GatewayResolver copy;
    {
        std::lock_guard<std::mutex> lock(resolverMutex);
        copy = resolver;
    }
    Gateway g = copy ? copy(name) : nullptr;
    if (!g) detail::raise("zvhost:NoGatewayForFunction", {std::string(name)});
    return g;
}

using Owned = matrix::unique_nd_ptr;

// Metric names of the host's language and the codes of the gateways.
const std::map<std::string, std::string> metricCodes = {
    {"euclidean", "euc"}, {"squaredeuclidean", "sqe"}, {"seuclidean", "seu"}, {"cityblock", "cit"},
    {"minkowski", "min"}, {"chebychev", "che"}, {"mahalanobis", "mah"}, {"cosine", "cos"},
    {"correlation", "cor"}, {"hamming", "ham"}, {"jaccard", "jac"}};

std::string metricCode(const ndArray* metric) {
    if (!metric || ndIsEmpty(metric)) return "euc";
    if (ndGetClassID(metric) != ndCHAR_CLASS) detail::raise("zvhost:pdist:BadDistance");
    std::string name = detail::toUtf8(charData(metric));
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    if (auto it = metricCodes.find(name); it != metricCodes.end()) return it->second;
    for (const auto& [full, code] : metricCodes)
        if (name == code) return code;
    detail::raise("zvhost:pdist:UnknownDistance", {name});
}

// Reads element i of a double or single array as double.
double valueAt(const ndArray* a, size_t i) {
    return ndGetClassID(a) == ndSINGLE_CLASS ? double(static_cast<const float*>(ndGetData(a))[i])
                                             : static_cast<const double*>(ndGetData(a))[i];
}

// Writes v into element i of a double or single array.
void setValueAt(ndArray* a, size_t i, double v) {
    if (ndGetClassID(a) == ndSINGLE_CLASS) static_cast<float*>(ndGetData(a))[i] = float(v);
    else static_cast<double*>(ndGetData(a))[i] = v;
}

// Only dense real double or single arrays are read element by element here.
bool isDenseFloating(const ndArray* a) {
    return (ndGetClassID(a) == ndDOUBLE_CLASS || ndGetClassID(a) == ndSINGLE_CLASS) && !ndIsSparse(a) &&
           !ndIsComplex(a);
}

// Rows of an n-by-p array as the columns of a p-by-n array of class cls.
Owned observationsAsColumns(const ndArray* rows, ndClassID cls) {
    if (!isDenseFloating(rows)) detail::raise("zvhost:pdist:DataNotFloatingPoint");
    const size_t n = ndGetM(rows), p = ndGetN(rows);
    Owned cols(ndCreateNumericMatrix(p, n, cls, ndREAL));
    for (size_t i = 0; i < n; ++i)
        for (size_t k = 0; k < p; ++k) setValueAt(cols.get(), k + i * p, valueAt(rows, i + k * n));
    return cols;
}

Owned arrayOf(const std::vector<double>& values, size_t m, size_t n, ndClassID cls) {
    Owned a(ndCreateNumericMatrix(m, n, cls, ndREAL));
    for (size_t i = 0; i < values.size(); ++i) setValueAt(a.get(), i, values[i]);
    return a;
}

// Column means and covariance of the p-by-n observations (n - 1 normalised).
std::vector<double> covarianceOf(const ndArray* cols) {
    const size_t p = ndGetM(cols), n = ndGetN(cols);
    std::vector<double> mean(p, 0.0), cov(p * p, 0.0);
    for (size_t i = 0; i < n; ++i)
        for (size_t k = 0; k < p; ++k) mean[k] += valueAt(cols, k + i * p) / double(n);
    for (size_t i = 0; i < n; ++i)
        for (size_t a = 0; a < p; ++a)
            for (size_t b = 0; b < p; ++b)
                cov[a + b * p] += (valueAt(cols, a + i * p) - mean[a]) * (valueAt(cols, b + i * p) - mean[b]) /
                                  double(n > 1 ? n - 1 : 1);
    return cov;
}

// The upper triangular R with R R^T = C^-1: the inverse of the upper Cholesky
// factor of C.
std::vector<double> inverseCholeskyFactor(std::vector<double> c, size_t p) {
    std::vector<double> u(p * p, 0.0), r(p * p, 0.0);
    for (size_t j = 0; j < p; ++j) {
        double diag = c[j + j * p];
        for (size_t k = 0; k < j; ++k) diag -= u[k + j * p] * u[k + j * p];
        if (!(diag > 0)) detail::raise("zvhost:pdist:NotPositiveDefinite");
        u[j + j * p] = std::sqrt(diag);
        for (size_t i = j + 1; i < p; ++i) {
            double s = c[j + i * p];
            for (size_t k = 0; k < j; ++k) s -= u[k + j * p] * u[k + i * p];
            u[j + i * p] = s / u[j + j * p];
        }
    }
    for (size_t j = 0; j < p; ++j) {
        r[j + j * p] = 1.0 / u[j + j * p];
        for (size_t i = j; i-- > 0;) {
            double s = 0;
            for (size_t k = i + 1; k <= j; ++k) s += u[i + k * p] * r[k + j * p];
            r[i + j * p] = -s / u[i + i * p];
        }
    }
    return r;
}

// Cosine and correlation take unit-length (for correlation also centred)
// observations, so that the gateways' dot product is the similarity.
void normaliseColumns(ndArray* cols, bool centre) {
    const size_t p = ndGetM(cols), n = ndGetN(cols);
    std::vector<double> v(p);
    for (size_t i = 0; i < n; ++i) {
        double mean = 0, norm = 0;
        for (size_t k = 0; k < p; ++k) v[k] = valueAt(cols, k + i * p);
        if (centre) {
            for (double x : v) mean += x / double(p);
            for (double& x : v) x -= mean;
        }
        for (double x : v) norm += x * x;
        norm = std::sqrt(norm);
        for (size_t k = 0; k < p; ++k) setValueAt(cols, k + i * p, v[k] / norm);
    }
}

// The metric parameter as the gateways take it, computed from the reference
// observations where the caller gave none; null where the metric has none.
Owned metricParameter(const std::string& code, const ndArray* given, const ndArray* reference) {
    const bool has = given && !ndIsEmpty(given);
    const ndClassID cls = ndGetClassID(reference);
    const size_t p = ndGetM(reference);
    // A given weight vector or covariance is read as p or p*p numbers.
    const size_t needed = code == "seu" ? p : code == "mah" ? p * p : 0;
    if (has && needed && (!isDenseFloating(given) || ndGetNumberOfElements(given) < needed))
        detail::raise("zvhost:pdist:BadParameter");
    if (code == "min") return has ? Owned(ndCreateDoubleScalar(ndGetScalar(given))) : nullptr;
    if (code == "seu") {
        std::vector<double> weights(p);
        const std::vector<double> cov = has ? std::vector<double>() : covarianceOf(reference);
        for (size_t k = 0; k < p; ++k) {
            const double scale = has ? valueAt(given, k) : std::sqrt(cov[k + k * p]);
            weights[k] = 1.0 / (scale * scale);
        }
        return arrayOf(weights, 1, p, cls);
    }
    if (code == "mah") {
        std::vector<double> cov(p * p);
        if (has) for (size_t i = 0; i < p * p; ++i) cov[i] = valueAt(given, i);
        else cov = covarianceOf(reference);
        return arrayOf(inverseCholeskyFactor(cov, p), p, p, cls);
    }
    return nullptr;
}

class PdistFunction final : public HostFunction {
public:
    // pdist(X, metric, parameter): condensed distances between the rows of X.
    void operator()(int, ndArray** outputs, int numInputs, const ndArray** inputs) override {
        if (numInputs < 1) detail::raise("zvhost:pdist:TooFewInputs");
        const std::string code = metricCode(numInputs > 1 ? inputs[1] : nullptr);
        Owned cols = observationsAsColumns(inputs[0], ndGetClassID(inputs[0]));
        if (code == "cos" || code == "cor") normaliseColumns(cols.get(), code == "cor");
        Owned parameter = metricParameter(code, numInputs > 2 ? inputs[2] : nullptr, cols.get());
        Owned codeText(ndCreateString(code.c_str()));
        std::vector<const ndArray*> in{cols.get(), codeText.get()};
        if (parameter) in.push_back(parameter.get());
        outputs[0] = callGateway(resolveGateway("pdistbif"), 1, in)[0];
    }
};

class Pdist2Function final : public HostFunction {
public:
    // pdist2(X, Y, metric, parameter): distances from each row of X (rows)
    // to each row of Y (columns).
    void operator()(int, ndArray** outputs, int numInputs, const ndArray** inputs) override {
        if (numInputs < 2) detail::raise("zvhost:pdist2:TooFewInputs");
        const std::string code = metricCode(numInputs > 2 ? inputs[2] : nullptr);
        const bool single = ndGetClassID(inputs[0]) == ndSINGLE_CLASS || ndGetClassID(inputs[1]) == ndSINGLE_CLASS;
        const ndClassID cls = single ? ndSINGLE_CLASS : ndDOUBLE_CLASS;
        Owned x = observationsAsColumns(inputs[0], cls);
        Owned y = observationsAsColumns(inputs[1], cls);
        if (code == "cos" || code == "cor") {
            normaliseColumns(x.get(), code == "cor");
            normaliseColumns(y.get(), code == "cor");
        }
        Owned parameter = metricParameter(code, numInputs > 3 ? inputs[3] : nullptr, x.get());
        Owned none(ndCreateDoubleMatrix(0, 0, ndREAL));
        Owned codeText(ndCreateString(code.c_str()));
        const std::vector<const ndArray*> in{x.get(), y.get(), codeText.get(), parameter ? parameter.get() : none.get(),
                                             none.get(), none.get(), none.get()};
        outputs[0] = callGateway(resolveGateway("pdist2bif"), 1, in)[0];
    }
};

}  // namespace

void setGatewayResolver(GatewayResolver r, const void* owner) {
    std::lock_guard<std::mutex> lock(resolverMutex);
    resolver = std::move(r);
    resolverOwner = owner;
}

void releaseGatewayResolver(const void* owner) {
    std::lock_guard<std::mutex> lock(resolverMutex);
    if (resolverOwner != owner) return;
    resolver = nullptr;
    resolverOwner = nullptr;
}

HostFunction* detail::languageFunction(const std::string& name) {
    static PdistFunction pdist;
    static Pdist2Function pdist2;
    if (name == "pdist") return &pdist;
    if (name == "pdist2") return &pdist2;
    return nullptr;
}

}  // namespace zvhost

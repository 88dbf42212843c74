// Fuzz templates: condensed, cross, sparse and mixed-type distances, every
// metric code with its parameter, the nearest-neighbour and radius modes.
#include "fuzz/fuzz.hpp"

namespace {

using namespace zvfuzz;

constexpr size_t kP = 3;

// What the metric code wants as its parameter, in the class of the data:
// weights, an upper-triangular factor, an exponent, or nothing.
template <class T>
Owned parameterOf(const std::string& code) {
    if (code == "seu") return dense<T>(1, kP, {T(0.5), T(1), T(2)});
    if (code == "mah") return dense<T>(kP, kP, {T(1), T(0), T(0), T(0.5), T(2), T(0), T(0), T(-1), T(1)});
    if (code == "min") return scalar(3);
    return empty();
}

const char* const kMetrics[] = {"euc", "sqe", "seu", "cit", "min", "cos", "cor", "spe", "ham", "jac", "che", "mah"};

template <class T>
void addPdist(TemplateSet& t, const char* type) {
    for (std::string code : kMetrics)
        t.add(std::string(type) + " " + code, 1, [code] {
            return args(randomMatrix<T>(kP, 7, 1), text(code), parameterOf<T>(code));
        });
    t.add(std::string(type) + " no parameter", 1, [] { return args(randomMatrix<T>(kP, 5, 2), text("euclidean")); });
}

ZV_FUZZ_TEMPLATES("pdistbif", pdist) {
    addPdist<double>(t, "double");
    addPdist<float>(t, "single");
}

// X, Y, code, parameter, number of distances, radius, sort flag.
template <class T>
std::vector<Owned> pdist2Call(const std::string& code, Owned count, Owned radius, Owned sort) {
    return args(randomMatrix<T>(kP, 9, 3), randomMatrix<T>(kP, 4, 4), text(code), parameterOf<T>(code),
                std::move(count), std::move(radius), std::move(sort));
}

template <class T>
void addPdist2(TemplateSet& t, const char* type) {
    for (std::string code : kMetrics) {
        const std::string name = std::string(type) + " " + code;
        t.add(name + " full", 2, [code] { return pdist2Call<T>(code, empty(), empty(), empty()); });
        t.add(name + " 3 nearest", 2, [code] { return pdist2Call<T>(code, scalar(3), empty(), empty()); });
        t.add(name + " 2 farthest", 2, [code] { return pdist2Call<T>(code, scalar(-2), empty(), empty()); });
        t.add(name + " radius", 2, [code] { return pdist2Call<T>(code, empty(), scalar(0.8), logical(true)); });
    }
    t.add(std::string(type) + " radius unsorted, one output", 1,
          [] { return pdist2Call<T>("euc", empty(), scalar(1.5), logical(false)); });
    t.add(std::string(type) + " six inputs", 1, [] {
        auto call = pdist2Call<T>("cit", empty(), scalar(1), empty());
        call.pop_back();
        return call;
    });
}

ZV_FUZZ_TEMPLATES("pdist2bif", pdist2) {
    addPdist2<double>(t, "double");
    addPdist2<float>(t, "single");
}

// p-by-n with about half the entries stored, some of them shared.
Owned sparseData(size_t p, size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(-1, 1);
    std::vector<double> v(p * n);
    for (auto& x : v) x = u(gen) > 0 ? u(gen) : 0.0;
    return sparse(p, n, v);
}

ZV_FUZZ_TEMPLATES("pdistSparseBIF", pdistSparse) {
    for (std::string code : kMetrics)
        t.add(code, 1, [code] { return args(sparseData(kP, 6, 5), text(code), parameterOf<double>(code)); });
    t.add("no parameter", 1, [] { return args(sparseData(kP, 4, 6), text("cit")); });
}

ZV_FUZZ_TEMPLATES("pdist2SparseBIF", pdist2Sparse) {
    for (const char* code : {"euc", "sqe", "cit"})
        t.add(code, 1, [code] { return args(sparseData(kP, 5, 7), sparseData(kP, 3, 8), text(code)); });
    t.add("two outputs", 2, [] { return args(sparseData(kP, 2, 9), sparseData(kP, 4, 10), text("sqe")); });
}

// X, Y, code, F, G, C: coordinates 1 and 3 categorical with levels 1..2 and
// their counts, coordinate 2 continuous.
template <class T>
std::vector<Owned> heterogeneousCall(const std::string& code) {
    return args(dense<T>(kP, 4, {1, T(0.2), 2, 2, T(0.5), 2, 1, T(-0.3), 1, 2, T(0.9), 1}),
                dense<T>(kP, 2, {1, T(0.1), 1, 2, T(-0.4), 2}), text(code),
                dense<T>(kP, 4, {2, T(0.6), 2, 2, T(0.8), 2, 2, T(0.4), 2, 2, T(1), 2}),
                dense<T>(kP, 2, {2, T(0.5), 2, 2, T(0.3), 2}), dense<uint64_t>(1, 2, {1, 3}));
}

ZV_FUZZ_TEMPLATES("pdist2HeterogeneousBIF", heterogeneous) {
    for (std::string code : {"lin", "goo", "ofd"}) {
        t.add("double " + code, 1, [code] { return heterogeneousCall<double>(code); });
        t.add("single " + code, 2, [code] { return heterogeneousCall<float>(code); });
    }
}

}  // namespace

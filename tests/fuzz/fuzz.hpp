// The gateway fuzzer: valid template calls per gateway, which the harness
// mutates (one input or the counts) and runs in child processes. A template
// file registers the calls of its gateways with ZV_FUZZ_TEMPLATES.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "zvhost/arrays.hpp"

namespace zvfuzz {

using zvhost::Owned;

// One call of a gateway: how many outputs it asks for, and its inputs.
struct Call {
    int numOutputs = 1;
    std::vector<Owned> inputs;
};

// A valid call, built afresh for every run so that mutations and in-place
// gateways never see a used input.
struct Template {
    std::string name;
    int numOutputs;
    std::function<std::vector<Owned>()> build;
};

class TemplateSet {
public:
    void add(std::string name, int numOutputs, std::function<std::vector<Owned>()> build) {
        templates_.push_back({std::move(name), numOutputs, std::move(build)});
    }
    const std::vector<Template>& all() const { return templates_; }

private:
    std::vector<Template> templates_;
};

// Templates by gateway name, filled at static initialisation.
std::map<std::string, TemplateSet>& registry();

struct Registrar {
    Registrar(const char* gateway, void (*fill)(TemplateSet&)) { fill(registry()[gateway]); }
};

#define ZV_FUZZ_TEMPLATES(GATEWAY, FN)                                           \
    static void FN(::zvfuzz::TemplateSet&);                                      \
    static const ::zvfuzz::Registrar zvFuzzRegistrar_##FN(GATEWAY, FN);          \
    static void FN([[maybe_unused]] ::zvfuzz::TemplateSet& t)

// ---- builders for templates --------------------------------------------------

template <class... A>
std::vector<Owned> args(A&&... a) {
    std::vector<Owned> v;
    (v.push_back(std::forward<A>(a)), ...);
    return v;
}

// An m-by-n array of T holding `values` column-major (zeros if empty).
template <class T>
Owned dense(size_t m, size_t n, std::initializer_list<T> values = {}) {
    return zvhost::matrixOf<T>(m, n, values);
}
template <class T>
Owned dense(size_t m, size_t n, const std::vector<T>& values) {
    return zvhost::matrixOf<T>(m, n, std::span<const T>(values));
}

// An m-by-n array of T with values from a fixed seed, uniform on [lo, hi).
template <class T>
Owned randomMatrix(size_t m, size_t n, unsigned seed, double lo = -1, double hi = 1) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(lo, hi);
    std::vector<T> v(m * n);
    for (auto& x : v) x = T(u(gen));
    return dense<T>(m, n, v);
}

inline Owned scalar(double x) { return zvhost::scalar(x); }
inline Owned single(float x) { return Owned(ndCreateSingleScalar(x)); }
inline Owned text(const std::string& s) { return zvhost::text(s); }
inline Owned logical(bool b) { return zvhost::logicalScalar(b); }
inline Owned empty() { return zvhost::matrixOf<double>(0, 0); }
Owned logicals(std::initializer_list<bool> values, bool column = true);
Owned cell(std::vector<Owned> elements);
// An m-by-n sparse double from column-major values; zeros are not stored.
Owned sparse(size_t m, size_t n, const std::vector<double>& values);

}  // namespace zvfuzz

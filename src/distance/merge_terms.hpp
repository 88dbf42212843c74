// What each sparse metric takes from one row of a merge, and how it turns
// the accumulated sum into a distance. A merge visits the rows that either
// column stores in ascending order: shared() for a row both store, with a
// and b the values of the first and second column, lone() for a row only one
// stores, with its value x. No lone term depends on the sign of x, so it does
// not matter which column x came from.
#pragma once

#include <cmath>
#include <cstddef>

namespace zv::distance {

struct SquaredEuclideanTerms {
    using Sum = double;
    void lone(Sum& s, size_t, double x) const { s += x * x; }
    void shared(Sum& s, size_t, double a, double b) const {
        const double d = a - b;
        s += d * d;
    }
    double finish(Sum s) const { return s; }
};

struct EuclideanTerms : SquaredEuclideanTerms {
    double finish(Sum s) const { return std::sqrt(s); }
};

struct SEuclideanTerms {
    using Sum = double;
    const double* weights;  // p values
    void lone(Sum& s, size_t row, double x) const { s += weights[row] * x * x; }
    void shared(Sum& s, size_t row, double a, double b) const {
        const double d = a - b;
        s += d * (weights[row] * d);
    }
    double finish(Sum s) const { return std::sqrt(s); }
};

struct CityBlockTerms {
    using Sum = double;
    void lone(Sum& s, size_t, double x) const { s += std::abs(x); }
    void shared(Sum& s, size_t, double a, double b) const { s += std::abs(a - b); }
    double finish(Sum s) const { return s; }
};

struct MinkowskiTerms {
    using Sum = double;
    double exponent;
    double inverse;  // 1 / exponent, once per call
    void lone(Sum& s, size_t, double x) const { s += std::pow(std::abs(x), exponent); }
    void shared(Sum& s, size_t, double a, double b) const { s += std::pow(std::abs(a - b), exponent); }
    double finish(Sum s) const { return std::pow(s, inverse); }
};

// The largest term, taken by `term > largest`: a NaN term never passes the
// test, so it is passed over.
struct ChebychevTerms {
    using Sum = double;
    static void take(Sum& s, double term) { s = term > s ? term : s; }
    void lone(Sum& s, size_t, double x) const { take(s, std::abs(x)); }
    void shared(Sum& s, size_t, double a, double b) const { take(s, std::abs(a - b)); }
    double finish(Sum s) const { return s; }
};

// "cos", "cor", "spe": the caller has scaled the columns so that the sum of
// products over the shared rows is the similarity.
struct SimilarityTerms {
    using Sum = double;
    void lone(Sum&, size_t, double) const {}
    void shared(Sum& s, size_t, double a, double b) const { s += a * b; }
    double finish(Sum s) const { return s > 1.0 ? 0.0 : 1.0 - s; }
};

// A lone value always counts, a stored 0 too; a shared row counts unless its
// difference is 0, so a NaN counts.
struct HammingTerms {
    using Sum = size_t;
    double p;
    void lone(Sum& s, size_t, double) const { ++s; }
    void shared(Sum& s, size_t, double a, double b) const { s += !(a - b == 0.0); }
    double finish(Sum s) const { return double(s) / p; }
};

struct JaccardTerms {
    struct Sum {
        size_t equal = 0;
        size_t unequal = 0;
    };
    void lone(Sum& s, size_t, double) const { ++s.unequal; }
    void shared(Sum& s, size_t, double a, double b) const {
        const bool same = a - b == 0.0;
        s.equal += same;
        s.unequal += !same;
    }
    // In double, so two columns without stored values give 0/0 = NaN.
    double finish(const Sum& s) const { return double(s.unequal) / double(s.equal + s.unequal); }
};

}  // namespace zv::distance

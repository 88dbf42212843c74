// A plain reference for the linkage tests: the same slot rules on a full
// square matrix of doubles, with none of the condensed index arithmetic,
// column walks or parallel searches of the library.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <algorithm>
#include <vector>

namespace zvtest {

struct ReferenceLinkage {
    size_t n;
    std::string method;
    std::vector<double> d;  // n-by-n
    std::vector<uint64_t> label, size;
    std::vector<double> z;  // (n-1)-by-3, column-major

    static constexpr double inf = std::numeric_limits<double>::infinity();
    static constexpr double nan = std::numeric_limits<double>::quiet_NaN();

    ReferenceLinkage(const std::vector<double>& condensed, size_t n_, std::string m) : n(n_), method(std::move(m)) {
        d.assign(n * n, 0.0);
        size_t at = 0;
        const bool square = squares();
        for (size_t i = 0; i < n; ++i)
            for (size_t j = i + 1; j < n; ++j, ++at) d[i * n + j] = d[j * n + i] = square ? condensed[at] * condensed[at] : condensed[at];
        for (size_t i = 0; i < n; ++i) label.push_back(i), size.push_back(1);
        z.assign(3 * (n - 1), 0.0);
    }
    bool squares() const { return method == "ce" || method == "me" || method == "wa"; }
    double& D(size_t a, size_t b) { return d[a * n + b]; }

    void row(size_t k, uint64_t a, uint64_t b, double h) {
        z[k] = double(std::min(a, b) + 1);
        z[k + n - 1] = double(std::max(a, b) + 1);
        z[k + 2 * (n - 1)] = h;
    }
    double update(double da, double db, double x, double na, double nb, double ns) const {
        if (method == "si") return (db > da || std::isnan(db)) ? da : db;
        if (method == "co") return (da > db || std::isnan(db)) ? da : db;
        if (method == "av") return (na / (na + nb)) * da + (nb / (na + nb)) * db;
        if (method == "we") return (da + db) * 0.5;
        if (method == "ce") return (na / (na + nb)) * da + (nb / (na + nb)) * db - x * (na * nb) / ((na + nb) * (na + nb));
        if (method == "me") return (da + db) * 0.5 - x * 0.25;
        return ((na + ns) * da + (nb + ns) * db - ns * x) / (na + nb + ns);
    }
    // Nearest of c among from..n-1 in ascending order, last of equals.
    std::pair<uint64_t, double> nearest(size_t c, size_t from) {
        double best = inf;
        uint64_t at = n + 1;
        for (size_t s = from; s < n; ++s)
            if (s != c && best >= D(c, s)) best = D(c, s), at = s;
        return {at, at == n + 1 ? nan : best};
    }
    // Merge of lo < hi at step k: Z, labels, sizes, the hi row, the move of k.
    std::pair<uint64_t, double> merge(size_t k, size_t lo, size_t hi, double x) {
        row(k, label[lo], label[hi], squares() ? std::sqrt(x) : x);
        const double na = double(size[lo]), nb = double(size[hi]);
        label[lo] = label[k], label[hi] = n + k;
        size[lo] = size[k], size[hi] = size_t(na + nb);
        double best = inf;
        uint64_t at = n + 1;
        for (size_t s = k; s < n; ++s) {
            if (s == lo || s == hi) continue;
            const double v = update(D(lo, s), D(hi, s), x, na, nb, double(size[s]));
            D(hi, s) = D(s, hi) = v;
            if (best >= v) best = v, at = s;
        }
        if (lo != k)
            for (size_t s = k + 1; s < n; ++s)
                if (s != lo) D(lo, s) = D(s, lo) = D(k, s);
        return {at, at == n + 1 ? nan : best};
    }

    std::vector<double> list() {
        std::vector<uint64_t> nn(n);
        std::vector<double> nd(n);
        for (size_t r = 0; r < n; ++r) std::tie(nn[r], nd[r]) = nearest(r, 0);
        for (size_t k = 0; k + 1 < n; ++k) {
            double x = inf;
            size_t i = n;
            for (size_t s = k; s < n; ++s)
                if (x >= nd[s]) x = nd[s], i = s;
            if (i == n) {
                uint64_t run = label[k];
                for (size_t m = 0; k + 1 + m < n; ++m) row(k + m, run, label[k + 1 + m], nan), run = n + k + m;
                break;
            }
            const size_t j = nn[i], lo = std::min(i, j), hi = std::max(i, j);
            std::tie(nn[hi], nd[hi]) = merge(k, lo, hi, x);
            nn[lo] = nn[k], nd[lo] = nd[k];
            for (size_t r = k + 1; r < n; ++r) {
                if (method == "si") {
                    if (nn[r] == lo) nn[r] = hi;
                    else if (nn[r] == k) nn[r] = lo;
                    continue;
                }
                if (nn[r] == lo || nn[r] == hi) {
                    std::tie(nn[r], nd[r]) = nearest(r, k + 1);
                    continue;
                }
                if (r != hi && nd[r] > D(r, hi)) nd[r] = D(r, hi), nn[r] = hi;
                if (nn[r] == k) nn[r] = lo;
            }
        }
        return z;
    }

    std::vector<double> chain() {
        std::vector<uint64_t> S(2 * n, n + 1);
        std::vector<double> T(2 * n);
        long L = 0;
        S[0] = 0;
        for (size_t k = 0; k + 1 < n; ++k) {
            for (;;) {
                const size_t c = S[L];
                auto [next, v] = nearest(c, k);
                if (next == n + 1) next = c <= k ? k + 1 : k;
                S[L + 1] = next, T[L] = v;
                if (L >= 1 && next == S[L - 1]) break;
                ++L;
            }
            const size_t lo = std::min(S[L], S[L + 1]), hi = std::max(S[L], S[L + 1]);
            merge(k, lo, hi, T[L]);
            const long len = L + 1;
            if (len < 3) S[0] = k + 1, L = 0;
            else if (len == 3) L = 0;
            else {
                L -= 2;
                long found = -1;
                for (long i = L;; --i) {
                    if (S[i] == lo || S[i] == hi) found = i;
                    if (i == 0 || T[i] > T[i + 1]) break;
                }
                if (found == 0) S[0] = k + 1, L = 0;
                else if (found > 0) L = found - 1;
            }
            if (lo != k)
                for (long i = 0; i <= L; ++i)
                    if (S[i] == k) { S[i] = lo; break; }
        }
        return z;
    }

    std::vector<double> run() {
        if (n < 2) return {};
        return (method == "si" || method == "ce" || method == "me") ? list() : chain();
    }
};

}  // namespace zvtest

// Cox risk-set sums in O(n (p + 1) log n) for sorted, finite data. The
// walk's risk set at an event row i with time t is {j >= i : start[j] < t}.
// As t only grows, rows enter a tree of suffix sums in order of start and
// never leave it, so the sums of the risk set are sums of a few tree nodes
// and never differences, which would cancel when risks span many orders of
// magnitude. A row j is at risk at the events whose row is at most j and
// whose time lies past start[j]: a contiguous run of events, whose terms a
// second tree sums, compensated, so that X*sum(G) - sum(C) keeps the
// accuracy of summing (X*G - C) event by event.
#include <algorithm>
#include <cmath>
#include <vector>

#include "diagnostics/compensated.hpp"
#include "diagnostics/cox_residuals.hpp"

namespace zv::diagnostics {

namespace {

bool allFinite(const double* v, size_t count) {
    for (size_t i = 0; i < count; ++i)
        if (!std::isfinite(v[i])) return false;
    return true;
}

bool sweepApplies(const CoxProblem& pr) {
    const size_t n = pr.n;
    if (!std::isfinite(pr.tie)) return false;
    for (size_t j = 0; j < n; ++j)
        if (!std::isfinite(pr.stop[j]) || (j > 0 && !(pr.stop[j - 1] <= pr.stop[j]))) return false;
    if (!allFinite(pr.risk, n) || !allFinite(pr.freq, n)) return false;
    return pr.kind != CoxSums::Score || allFinite(pr.x, pr.p * n);
}

// Sums over the rows from a given index on, of rows that only ever join: a
// Fenwick tree over reversed indices, so that a suffix is a prefix. Each
// row carries `width` values and counts once.
class SuffixSums {
public:
    SuffixSums(size_t n, size_t width) : n_(n), width_(width), node_((n + 1) * width, 0.0), count_(n + 1, 0) {}

    void insert(size_t row, const double* values) {
        for (size_t k = n_ - row; k <= n_; k += k & (~k + 1)) {
            ++count_[k];
            double* node = node_.data() + k * width_;
            for (size_t c = 0; c < width_; ++c) node[c] += values[c];
        }
    }
    // Writes the sums over rows row..n-1 to `out`; returns how many joined.
    size_t sumFrom(size_t row, double* out) const {
        std::fill(out, out + width_, 0.0);
        size_t count = 0;
        for (size_t k = n_ - row; k > 0; k -= k & (~k + 1)) {
            count += count_[k];
            const double* node = node_.data() + k * width_;
            for (size_t c = 0; c < width_; ++c) out[c] += node[c];
        }
        return count;
    }

private:
    size_t n_, width_;
    std::vector<double> node_;
    std::vector<size_t> count_;
};

// The terms of the events, in event order, with compensated sums over any
// run of events. Each event holds (G1, C[0..p)) for untied rows and
// (G2, D[0..p)) for tied ones; where a rule does not tell the two apart they
// are equal.
class EventTerms {
public:
    explicit EventTerms(size_t p) : half_(p + 1) {}

    size_t events() const { return time.size(); }
    size_t half() const { return half_; }
    void add(double t, size_t row, const Compensated* untied, const Compensated* tied) {
        time.push_back(t);
        this->row.push_back(row);
        leaves_.insert(leaves_.end(), untied, untied + half_);
        leaves_.insert(leaves_.end(), tied, tied + half_);
    }
    // A bottom-up segment tree: leaves at [E, 2E), node k sums 2k and 2k+1.
    void build() {
        const size_t E = events(), w = 2 * half_;
        tree_.assign(2 * E * w, Compensated{});
        std::copy(leaves_.begin(), leaves_.end(), tree_.begin() + E * w);
        for (size_t k = E; k-- > 1;)
            for (size_t c = 0; c < w; ++c) {
                tree_[k * w + c] = tree_[2 * k * w + c];
                tree_[k * w + c].add(tree_[(2 * k + 1) * w + c]);
            }
    }
    // Adds the untied (tied = false) or tied half of events lo..hi-1 to acc.
    void sumRun(size_t lo, size_t hi, bool tied, Compensated* acc) const {
        const size_t E = events(), w = 2 * half_, offset = tied ? half_ : 0;
        auto take = [&](size_t k) {
            const Compensated* node = tree_.data() + k * w + offset;
            for (size_t c = 0; c < half_; ++c) acc[c].add(node[c]);
        };
        for (size_t l = lo + E, r = hi + E; l < r; l >>= 1, r >>= 1) {
            if (l & 1) take(l++);
            if (r & 1) take(--r);
        }
    }

    std::vector<double> time;
    std::vector<size_t> row;

private:
    size_t half_;
    std::vector<Compensated> leaves_, tree_;
};

// Phase one: the walk over the events, with the risk-set sums from the tree.
bool collectEvents(const CoxProblem& pr, const CoxScoreWork& work, EventTerms& ev) {
    const bool score = pr.kind == CoxSums::Score;
    const bool efron = efronRows(pr);
    const size_t n = pr.n, p = score ? pr.p : 0;

    std::vector<size_t> groupEnd(n);
    for (size_t j = n; j-- > 0;)
        groupEnd[j] = j + 1 < n && pr.stop[j + 1] == pr.stop[j] ? groupEnd[j + 1] : j + 1;
    std::vector<size_t> byStart;
    byStart.reserve(n);
    for (size_t j = 0; j < n; ++j)
        if (!std::isnan(pr.start[j])) byStart.push_back(j);
    std::stable_sort(byStart.begin(), byStart.end(),
                     [&](size_t u, size_t v) { return pr.start[u] < pr.start[v]; });

    // Per row: risk*freq, then the predictors times it.
    SuffixSums joined(n, p + 1);
    std::vector<double> rowValues(p + 1), sums(p + 1);
    std::vector<Compensated> untied(p + 1), tied(p + 1);
    size_t entered = 0;
    size_t i = 0;
    while (i < n) {
        if (!pr.status[i]) {
            ++i;
            continue;
        }
        const double t = pr.stop[i];
        for (; entered < byStart.size() && pr.start[byStart[entered]] < t; ++entered) {
            const size_t j = byStart[entered];
            const double r = pr.risk[j] * pr.freq[j];
            rowValues[0] = r;
            for (size_t c = 0; c < p; ++c) rowValues[c + 1] = pr.x[j * p + c] * r;
            joined.insert(j, rowValues.data());
        }
        const size_t atRisk = joined.sumFrom(i, sums.data());

        // The tied rows lie in the event's stop group; summed in index order
        // as the walk sums them.
        RiskSetSums s;
        s.R = sums[0];
        for (size_t c = 0; c < p; ++c) {
            work.a[c] = sums[c + 1];
            work.b[c] = 0;
        }
        for (size_t j = i; j < groupEnd[i]; ++j) {
            if (!pr.status[j] || !(pr.start[j] < t)) continue;
            const double r = pr.risk[j] * pr.freq[j];
            s.M += pr.tie;
            s.E += r * pr.tie;
            s.W += pr.freq[j];
            for (size_t c = 0; c < p; ++c) work.b[c] += pr.x[j * p + c] * r * pr.tie;
        }
        const HazardFactors h = hazardFactors(pr, s, score ? &work : nullptr);

        std::fill(untied.begin(), untied.end(), Compensated{});
        std::fill(tied.begin(), tied.end(), Compensated{});
        untied[0].add(efron ? h.G1 : h.G);
        tied[0].add(efron ? h.G2 : h.G);
        for (size_t c = 0; c < p; ++c) {
            if (efron) {
                untied[c + 1].add(work.c[c]);
                tied[c + 1].add(work.d[c]);
            } else {
                untied[c + 1].addProduct(work.a[c], h.G);  // the risk-set mean, times G
                tied[c + 1] = untied[c + 1];
            }
        }
        for (size_t c = 0; c <= p; ++c)
            if (!std::isfinite(untied[c].hi) || !std::isfinite(tied[c].hi)) return false;
        ev.add(t, i, untied.data(), tied.data());

        const size_t end = groupEnd[i];
        const size_t cursor = score ? std::min(i + atRisk, end) : end;
        i = std::max(cursor, i + 1);
    }
    ev.build();
    return true;
}

// Phase two: each row sums the run of events it is at risk at.
bool sumRows(const CoxProblem& pr, const EventTerms& ev) {
    const bool score = pr.kind == CoxSums::Score;
    const size_t n = pr.n, p = score ? pr.p : 0;
    const auto time0 = ev.time.begin();
    std::vector<Compensated> acc(ev.half());
    size_t hi = 0;
    for (size_t j = 0; j < n; ++j) {
        while (hi < ev.events() && ev.row[hi] <= j) ++hi;
        if (std::isnan(pr.start[j])) continue;
        const size_t lo = size_t(std::upper_bound(time0, time0 + hi, pr.start[j]) - time0);
        if (lo >= hi) continue;
        std::fill(acc.begin(), acc.end(), Compensated{});
        if (pr.status[j]) {
            // Events from `mid` on share the row's stop time: it is tied there.
            const size_t mid = size_t(std::lower_bound(time0 + lo, time0 + hi, pr.stop[j]) - time0);
            ev.sumRun(lo, mid, false, acc.data());
            ev.sumRun(mid, hi, true, acc.data());
        } else {
            ev.sumRun(lo, hi, false, acc.data());
        }
        const double risk = pr.risk[j];
        if (!score) {
            pr.out[j] = risk * acc[0].value();
            if (!std::isfinite(pr.out[j])) return false;
            continue;
        }
        const Compensated& g = acc[0];
        for (size_t c = 0; c < p; ++c) {
            const double x = pr.x[j * p + c];
            Compensated v;
            v.add(-acc[c + 1].hi);
            v.add(-acc[c + 1].lo);
            v.addProduct(x, g.hi);
            v.addProduct(x, g.lo);
            double& out = pr.out[j * p + c];
            out = v.value() * risk;
            if (!std::isfinite(out)) return false;
        }
    }
    return true;
}

}  // namespace

bool coxRiskSumsBySweep(const CoxProblem& pr, const CoxScoreWork& work) {
    if (!sweepApplies(pr)) return false;
    const bool score = pr.kind == CoxSums::Score;
    const size_t p = score ? pr.p : 0;
    if (score) {
        std::fill(work.c, work.c + p, 0.0);
        std::fill(work.d, work.d + p, 0.0);
    }
    EventTerms ev(p);
    if (collectEvents(pr, work, ev) && sumRows(pr, ev)) return true;
    std::fill(pr.out, pr.out + (score ? p : 1) * pr.n, 0.0);
    return false;
}

}  // namespace zv::diagnostics

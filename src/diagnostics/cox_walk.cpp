// Cox risk-set sums by the event walk, the hazard factors both ways share,
// and the choice between the walk and the linear sweep.
#include <algorithm>
#include <cmath>
#include <limits>

#include "diagnostics/cox_residuals.hpp"

namespace zv::diagnostics {

HazardFactors hazardFactors(const CoxProblem& pr, const RiskSetSums& s, const CoxScoreWork* work) {
    HazardFactors h;
    const size_t p = work ? pr.p : 0;
    if (pr.tie == 0) {
        h.G = s.W / s.R;
        for (size_t c = 0; c < p; ++c) work->a[c] /= s.R;
        return h;
    }
    // Martingale sums tell Efron's rows by tie = 1 only; with another tie
    // they take G, which Efron's rule does not form, so its terms go unused.
    if (!efronRows(pr) || !(s.M > 0)) return h;

    if (p > 0) {
        std::fill(work->c, work->c + p, 0.0);
        std::fill(work->d, work->d + p, 0.0);
    }
    if (pr.tie > 1) {
        // Efron's loop takes tie terms per tied row: a tie above 1 names no
        // rule, and a large one would keep the loop going for ages, with no
        // poll to stop it. The factors are NaN.
        h.G1 = h.G2 = std::numeric_limits<double>::quiet_NaN();
        std::fill(work->c, work->c + p, h.G1);
        std::fill(work->d, work->d + p, h.G1);
        return h;
    }
    // An integer count: a double k would stop growing at 2^53.
    for (uint64_t k = 0; double(k) < s.M; ++k) {
        const double f = double(k) / s.M;
        const double den = s.R - s.E * f;
        const double a = (s.W / s.M) / den;
        h.G1 += a;
        h.G2 += (1 - f) * a;
        for (size_t c = 0; c < p; ++c) {
            work->t[c] = ((work->a[c] - work->b[c] * f) / den) * a;
            work->c[c] += work->t[c];
            work->d[c] += work->t[c] * (1 - f);
        }
    }
    return h;
}

void coxRiskSumsByWalk(const CoxProblem& pr, const CoxScoreWork& work) {
    const bool score = pr.kind == CoxSums::Score;
    const bool efron = efronRows(pr);
    const size_t n = pr.n, p = score ? pr.p : 0;
    if (score) {
        // C and D are only formed at Efron events; before the first they hold zeros.
        std::fill(work.c, work.c + p, 0.0);
        std::fill(work.d, work.d + p, 0.0);
    }
    size_t i = 0;
    while (i < n) {
        if (!pr.status[i]) {
            ++i;
            continue;
        }
        const double t = pr.stop[i];
        auto tiedAt = [&](size_t j) { return pr.status[j] && pr.stop[j] == t; };

        RiskSetSums s;
        if (score) {
            std::fill(work.a, work.a + p, 0.0);
            std::fill(work.b, work.b + p, 0.0);
        }
        for (size_t j = i; j < n; ++j) {
            if (!(pr.start[j] < t)) continue;
            const double r = pr.risk[j] * pr.freq[j];
            const bool tied = tiedAt(j);
            const double e = tied ? pr.tie : 0.0;
            s.R += r;
            s.M += e;
            s.E += r * e;
            if (tied) s.W += pr.freq[j];
            const double* xj = pr.x + j * p;
            for (size_t c = 0; c < p; ++c) {
                work.a[c] += xj[c] * r;
                work.b[c] += xj[c] * r * e;
            }
        }
        const HazardFactors h = hazardFactors(pr, s, score ? &work : nullptr);

        // The score walk moves on by a cursor that only rows at risk push;
        // the martingale walk by the count of rows that share the stop time.
        size_t cursor = i, sameStop = 0;
        for (size_t j = i; j < n; ++j) {
            if (pr.stop[j] == t) ++sameStop;
            if (!(pr.start[j] < t)) continue;
            const bool tied = tiedAt(j);
            const double risk = pr.risk[j];
            if (score) {
                const double* xj = pr.x + j * p;
                double* sj = pr.out + j * p;
                if (!efron)
                    for (size_t c = 0; c < p; ++c) sj[c] += (xj[c] - work.a[c]) * risk * h.G;
                else if (tied)
                    for (size_t c = 0; c < p; ++c) sj[c] += (xj[c] * h.G2 - work.d[c]) * risk;
                else
                    for (size_t c = 0; c < p; ++c) sj[c] += (xj[c] * h.G1 - work.c[c]) * risk;
                if (pr.stop[cursor] == t) ++cursor;
            } else {
                pr.out[j] += efron ? risk * (tied ? h.G2 : h.G1) : risk * h.G;
            }
        }
        // An event row that is not itself at risk (start not before stop), or
        // a NaN stop time, would leave i where it is.
        i = std::max(score ? cursor : i + sameStop, i + 1);
    }
}

void coxRiskSums(const CoxProblem& pr, const CoxScoreWork& work) {
    if (!coxRiskSumsBySweep(pr, work)) coxRiskSumsByWalk(pr, work);
}

}  // namespace zv::diagnostics

// Risk-set sums of a Cox model, from which the caller forms score residuals
// (p-by-n sums S) and martingale residuals (1-by-n sums H).
#pragma once

#include <cstddef>
#include <cstdint>

namespace zv::diagnostics {

enum class CoxSums { Score, Martingale };

// Rows are sorted by ascending stop time; an event row at time t sees the
// rows from itself on whose start lies before t.
struct CoxProblem {
    CoxSums kind;
    const uint8_t* status;  // non-zero: the row ends in an event
    const double* x;        // p-by-n, score sums only
    size_t p;
    size_t n;
    const double* start;
    const double* stop;
    const double* freq;
    const double* risk;
    double tie;             // 0: Breslow's rule; otherwise Efron's
    double* out;            // p-by-n or 1-by-n, zero on entry
};

// The score sums' working vectors of p values: A and B sum the predictors of
// the risk set and of its tied rows, T holds one Efron term, C and D collect
// the Efron corrections of untied and tied rows.
struct CoxScoreWork {
    double* a;
    double* b;
    double* t;
    double* c;
    double* d;
};

// Efron's rows are told apart differently by the two kinds of sums.
inline bool efronRows(const CoxProblem& pr) {
    return pr.kind == CoxSums::Score ? pr.tie != 0 : pr.tie == 1;
}

// Fills pr.out: by the linear sweep where the data allow it, else by the
// event walk. Both give the same sums up to rounding.
void coxRiskSums(const CoxProblem& pr, const CoxScoreWork& work);

// The event walk: at each event, one pass over the rows from it on to sum
// the risk set and one to update them. Quadratic; any data.
void coxRiskSumsByWalk(const CoxProblem& pr, const CoxScoreWork& work);

// The same sums in O(n (p + 1) log n): the risk sets are sums of tree nodes
// over the rows that have started, and each row sums the contiguous run of
// events it is at risk at from a tree over the events. Needs stop times
// finite and ascending, and finite risks, frequencies, predictors and tie;
// returns false, with pr.out zero, where it cannot be used or meets a
// factor or a sum that is not finite.
bool coxRiskSumsBySweep(const CoxProblem& pr, const CoxScoreWork& work);

// ---- shared by both ----------------------------------------------------------

// Sums of one risk set that the hazard factors are made of.
struct RiskSetSums {
    double R = 0;  // sum of risk*freq
    double E = 0;  // the same over tied rows, times tie
    double M = 0;  // tie times the number of tied rows
    double W = 0;  // frequencies of the tied rows
};

// Hazard factors of one event: G for Breslow's rule, G1 and G2 for the untied
// and tied rows under Efron's. For score sums, A is divided by R (Breslow) or
// C and D are formed (Efron); they keep their values when M is not above 0.
struct HazardFactors {
    double G = 0;
    double G1 = 0;
    double G2 = 0;
};
HazardFactors hazardFactors(const CoxProblem& pr, const RiskSetSums& s, const CoxScoreWork* work);

}  // namespace zv::diagnostics

// coxsresbif, coxmresbif: hand-computed sums, the sweep against the walk on
// the same data, the walk's quirks (rows not at risk at their own event,
// unsorted rows, unusual tie weights), identifiers and scratch.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "diagnostics/cox_residuals.hpp"
#include "gateway_declarations.hpp"
#include "support/gateways.hpp"

namespace {

using zv::diagnostics::CoxProblem;
using zv::diagnostics::CoxScoreWork;
using zv::diagnostics::CoxSums;
using zvhost::Owned;
using zvtest::raisedId;
constexpr double kInf = std::numeric_limits<double>::infinity();

struct Survival {
    std::vector<uint8_t> status;
    std::vector<double> x;  // p-by-n
    size_t p = 0;
    std::vector<double> start, stop, freq, risk;
    size_t n() const { return stop.size(); }
};

Survival randomSurvival(size_t n, size_t p, unsigned seed, bool ties, bool startStop, bool weights) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> unit(0, 1);
    std::normal_distribution<double> normal;
    Survival d;
    d.p = p;
    for (size_t j = 0; j < n; ++j) {
        d.stop.push_back(ties ? std::floor(1 + unit(gen) * double(n) / 5) : 1 + unit(gen) * double(n));
        d.status.push_back(unit(gen) < 0.5);
        d.freq.push_back(weights ? std::floor(1 + 3 * unit(gen)) : 1.0);
        d.risk.push_back(std::exp(normal(gen)));
    }
    std::sort(d.stop.begin(), d.stop.end());
    for (size_t j = 0; j < n; ++j) d.start.push_back(startStop ? d.stop[j] - (0.5 + unit(gen) * double(n) / 4) : 0.0);
    for (size_t k = 0; k < p * n; ++k) d.x.push_back(5.0 + normal(gen));
    return d;
}

// One predictor and unit frequencies: the shape of the cases worked by hand.
Survival handCase(std::vector<uint8_t> status, std::vector<double> x, std::vector<double> start,
                  std::vector<double> stop, std::vector<double> risk) {
    Survival d{std::move(status), std::move(x), 1, std::move(start), std::move(stop), {}, std::move(risk)};
    d.freq.assign(d.n(), 1.0);
    return d;
}

CoxProblem problemOf(const Survival& d, CoxSums kind, double tie, std::vector<double>& out) {
    const size_t p = kind == CoxSums::Score ? d.p : 0;
    out.assign(std::max<size_t>(p, 1) * d.n(), 0.0);
    return CoxProblem{kind, d.status.data(), d.x.data(), p, d.n(), d.start.data(), d.stop.data(),
                      d.freq.data(), d.risk.data(), tie, out.data()};
}

struct Work {
    std::vector<double> a, b, t, c, d;
    explicit Work(size_t p) : a(p), b(p), t(p), c(p), d(p) {}
    CoxScoreWork view() { return {a.data(), b.data(), t.data(), c.data(), d.data()}; }
};

std::vector<double> byWalk(const Survival& d, CoxSums kind, double tie) {
    std::vector<double> out;
    Work w(d.p);
    zv::diagnostics::coxRiskSumsByWalk(problemOf(d, kind, tie, out), w.view());
    return out;
}

// Empty when the sweep declines.
std::vector<double> bySweep(const Survival& d, CoxSums kind, double tie) {
    std::vector<double> out;
    Work w(d.p);
    if (!zv::diagnostics::coxRiskSumsBySweep(problemOf(d, kind, tie, out), w.view())) {
        EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](double v) { return v == 0; }));
        return {};
    }
    return out;
}

void expectClose(const std::vector<double>& a, const std::vector<double>& b, double rel) {
    ASSERT_EQ(a.size(), b.size());
    double scale = 0;
    for (double v : b) scale = std::max(scale, std::abs(v));
    for (size_t i = 0; i < a.size(); ++i)
        ASSERT_NEAR(a[i], b[i], rel * (std::abs(b[i]) + 1e-3 * scale)) << "at " << i;
}

struct Inputs {
    Owned status, x, start, stop, freq, risk, tie;
    explicit Inputs(const Survival& d, double tieValue) {
        const size_t n = d.n();
        status = Owned(ndCreateLogicalMatrix(n, 1));
        std::copy(d.status.begin(), d.status.end(), static_cast<uint8_t*>(ndGetData(status.get())));
        x = zvhost::matrixOf<double>(d.p, n, std::span<const double>(d.x));
        start = zvhost::matrixOf<double>(1, n, std::span<const double>(d.start));
        stop = zvhost::matrixOf<double>(n, 1, std::span<const double>(d.stop));
        freq = zvhost::matrixOf<double>(n, 1, std::span<const double>(d.freq));
        risk = zvhost::matrixOf<double>(n, 1, std::span<const double>(d.risk));
        tie = zvhost::scalar(tieValue);
    }
    std::vector<const ndArray*> score() const {
        return {status.get(), x.get(), start.get(), stop.get(), freq.get(), risk.get(), tie.get()};
    }
    std::vector<const ndArray*> martingale() const {
        return {status.get(), start.get(), stop.get(), freq.get(), risk.get(), tie.get()};
    }
};

TEST(CoxResiduals, HandComputedEfronAndBreslowSums) {
    // Two events at t = 1 and a row at risk after them, risks 1, 1, 2; one
    // predictor x = 0, 1, 3. Risk set at t = 1: R = 4, tied E = 2, W = 2.
    Survival d = handCase(/*status*/ {1, 1, 0}, /*x*/ {0, 1, 3}, /*start*/ {0, 0, 0},
                          /*stop*/ {1, 1, 2}, /*risk*/ {1, 1, 2});
    Inputs in(d, 1.0);
    auto H = zvhost::valuesOf<double>(zvhost::call(coxmresbif, 1, in.martingale())[0].get());
    // Efron: k = 0: a = 1/4; k = 1: f = 1/2, den = 4 - 1 = 3, a = 1/3.
    const double g1 = 0.25 + 1.0 / 3, g2 = 0.25 + 0.5 / 3;
    EXPECT_DOUBLE_EQ(H[0], g2);
    EXPECT_DOUBLE_EQ(H[1], g2);
    EXPECT_DOUBLE_EQ(H[2], 2 * g1);
    auto S = zvhost::valuesOf<double>(zvhost::call(coxsresbif, 1, in.score())[0].get());
    // A = 0 + 1 + 6 = 7, B = 1; C = (7/4)/4 + ((7 - 1/2)/3)/3, D = (7/4)/4 + ((13/2)/3)/3/2.
    const double c = 7.0 / 16 + 6.5 / 9, dd = 7.0 / 16 + 6.5 / 18;
    EXPECT_DOUBLE_EQ(S[0], 0 * g2 - dd);
    EXPECT_DOUBLE_EQ(S[1], 1 * g2 - dd);
    EXPECT_DOUBLE_EQ(S[2], (3 * g1 - c) * 2);

    Inputs breslow(d, 0.0);
    H = zvhost::valuesOf<double>(zvhost::call(coxmresbif, 1, breslow.martingale())[0].get());
    EXPECT_EQ(H, (std::vector<double>{0.5, 0.5, 1.0}));  // G = W/R = 2/4
    S = zvhost::valuesOf<double>(zvhost::call(coxsresbif, 1, breslow.score())[0].get());
    EXPECT_EQ(S, (std::vector<double>{(0 - 1.75) * 0.5, (1 - 1.75) * 0.5, (3 - 1.75) * 2 * 0.5}));
}

TEST(CoxResiduals, SweepAgreesWithTheWalk) {
    unsigned seed = 1;
    for (bool ties : {false, true})
        for (bool startStop : {false, true})
            for (bool weights : {false, true}) {
                const Survival d = randomSurvival(400, 3, seed++, ties, startStop, weights);
                for (double tie : {0.0, 1.0, 0.5, -1.0})
                    for (CoxSums kind : {CoxSums::Score, CoxSums::Martingale}) {
                        const auto sweep = bySweep(d, kind, tie);
                        ASSERT_FALSE(sweep.empty());
                        expectClose(sweep, byWalk(d, kind, tie), 1e-11);
                    }
            }
}

TEST(CoxResiduals, SweepKeepsItsAccuracyWhenRisksSpanManyOrdersOfMagnitude) {
    // Rows of risk 1e14 leave the risk set before the last events, whose risk
    // sums are 1e-39: a running sum with subtractions would keep nothing of them.
    Survival d = randomSurvival(200, 2, 9, false, true, false);
    std::mt19937 gen(4);
    std::uniform_real_distribution<double> expo(-90, 32);
    for (double& r : d.risk) r = std::exp(expo(gen));
    for (CoxSums kind : {CoxSums::Score, CoxSums::Martingale})
        for (double tie : {0.0, 1.0}) {
            const auto sweep = bySweep(d, kind, tie);
            ASSERT_FALSE(sweep.empty());
            expectClose(sweep, byWalk(d, kind, tie), 1e-10);
        }
}

TEST(CoxResiduals, SweepDeclinesWhereOnlyTheWalkApplies) {
    Survival d = randomSurvival(50, 2, 3, true, false, false);
    Survival unsorted = d;
    std::swap(unsorted.stop[3], unsorted.stop[40]);
    EXPECT_TRUE(bySweep(unsorted, CoxSums::Martingale, 1).empty());
    Survival infiniteRisk = d;
    infiniteRisk.risk[7] = kInf;
    EXPECT_TRUE(bySweep(infiniteRisk, CoxSums::Score, 0).empty());
    EXPECT_TRUE(bySweep(d, CoxSums::Score, kInf).empty());
    // A zero risk sum makes a NaN factor: the sweep leaves it to the walk,
    // which puts the NaN only where the walk puts it.
    Survival zeroFreq = d;
    std::fill(zeroFreq.freq.end() - 5, zeroFreq.freq.end(), 0.0);
    zeroFreq.status.back() = 1;
    EXPECT_TRUE(bySweep(zeroFreq, CoxSums::Martingale, 0).empty());
    Inputs in(zeroFreq, 0.0);
    const auto H = zvhost::valuesOf<double>(zvhost::call(coxmresbif, 1, in.martingale())[0].get());
    const auto walk = byWalk(zeroFreq, CoxSums::Martingale, 0);
    for (size_t j = 0; j < H.size(); ++j) EXPECT_TRUE(H[j] == walk[j] || (std::isnan(H[j]) && std::isnan(walk[j])));
    EXPECT_FALSE(std::isnan(H[0]));
}

TEST(CoxResiduals, GatewayUsesTheSweepOnSortedDataAndTheWalkOtherwise) {
    Survival d = randomSurvival(300, 2, 5, true, true, true);
    Inputs in(d, 1.0);
    auto S = zvhost::valuesOf<double>(zvhost::call(coxsresbif, 1, in.score())[0].get());
    EXPECT_EQ(S, bySweep(d, CoxSums::Score, 1.0));
    std::reverse(d.stop.begin(), d.stop.end());
    Inputs reversed(d, 1.0);
    S = zvhost::valuesOf<double>(zvhost::call(coxsresbif, 1, reversed.score())[0].get());
    EXPECT_EQ(S, byWalk(d, CoxSums::Score, 1.0));
}

TEST(CoxResiduals, EventRowsNotAtRiskDoNotStallTheWalk) {
    // Every row starts at or after its stop; the event rows must still move
    // the walk on, and nobody is ever at risk.
    Survival d = handCase(/*status*/ {1, 1, 1, 0, 1}, /*x*/ {1, 2, 3, 4, 5}, /*start*/ {1, 2, 2, 4, 9},
                          /*stop*/ {1, 2, 2, 3, 5}, /*risk*/ {1, 1, 1, 1, 1});
    for (double tie : {0.0, 1.0}) {
        Inputs in(d, tie);
        EXPECT_EQ(zvhost::valuesOf<double>(zvhost::call(coxsresbif, 1, in.score())[0].get()),
                  std::vector<double>(5, 0.0));
        EXPECT_EQ(zvhost::valuesOf<double>(zvhost::call(coxmresbif, 1, in.martingale())[0].get()),
                  std::vector<double>(5, 0.0));
    }
    // A NaN stop time shares no stop with itself: the walk moves on by one.
    d.start = {0, 0, 0, 0, 0};
    d.stop = {1, std::nan(""), 2, 3, 5};
    EXPECT_EQ(byWalk(d, CoxSums::Martingale, 1).size(), 5u);
    EXPECT_EQ(byWalk(d, CoxSums::Score, 1).size(), 5u);
}

TEST(CoxResiduals, ScoreCursorMovesOnlyWithRowsAtRisk) {
    // Rows 0-2 share t = 2; row 1 starts at 2, so it is not at risk. The
    // cursor moves once for each row at risk (0, 2, 3) while stop[cursor] = 2,
    // so it still reaches row 3, past the group: one event.
    Survival d = handCase(/*status*/ {1, 0, 1, 0}, /*x*/ {1, 2, 3, 4}, /*start*/ {0, 2, 0, 0},
                          /*stop*/ {2, 2, 2, 3}, /*risk*/ {1, 1, 1, 1});
    const auto walk = byWalk(d, CoxSums::Score, 0);
    // Event at t = 2: rows 0, 2, 3 at risk, R = 3, A = 8/3, G = 2/3.
    const double g = 2.0 / 3, a = 8.0 / 3;
    EXPECT_DOUBLE_EQ(walk[0], (1 - a) * g);
    EXPECT_DOUBLE_EQ(walk[1], 0.0);
    EXPECT_DOUBLE_EQ(walk[2], (3 - a) * g);
    EXPECT_DOUBLE_EQ(walk[3], (4 - a) * g);
    expectClose(bySweep(d, CoxSums::Score, 0), walk, 1e-15);
    // Rows not at risk never push it: with rows 1 and 2 not at risk the
    // cursor stops inside the group and row 2 is walked as an event again.
    d.start = {0, 2, 2, 0};
    d.status = {1, 0, 1, 1};
    expectClose(bySweep(d, CoxSums::Score, 1), byWalk(d, CoxSums::Score, 1), 1e-15);
    expectClose(bySweep(d, CoxSums::Score, 0), byWalk(d, CoxSums::Score, 0), 1e-15);
}

TEST(CoxResiduals, EfronEventWithoutTiedRowsKeepsTheLastCorrections) {
    // Row 1's event is not at risk (start 5 after stop 2), so its event has
    // M = 0: no factor, and C, D stay those of the event before. Event 0:
    // R = 2, E = M = W = 1, A = 4: G1 = G2 = 1/2, C = D = 1.
    Survival d = handCase(/*status*/ {1, 1, 0}, /*x*/ {1, 0, 3}, /*start*/ {0, 5, 0},
                          /*stop*/ {1, 2, 3}, /*risk*/ {1, 1, 1});
    const std::vector<double> expected{1 * 0.5 - 1, 0, (3 * 0.5 - 1) + (3 * 0 - 1)};
    EXPECT_EQ(byWalk(d, CoxSums::Score, 1), expected);
    EXPECT_EQ(bySweep(d, CoxSums::Score, 1), expected);
}

TEST(CoxResiduals, UnusualTieWeights) {
    const Survival d = randomSurvival(60, 2, 12, true, false, false);
    // Martingale sums only tell Efron's rows by tie = 1; with any other
    // non-zero tie no Breslow factor is formed and the sums stay zero.
    const auto h = byWalk(d, CoxSums::Martingale, 0.5);
    EXPECT_TRUE(std::all_of(h.begin(), h.end(), [](double v) { return v == 0; }));
    // A negative tie leaves M below 0 at every event: no factor, and C and D
    // keep the zeros they start with.
    const auto s = byWalk(d, CoxSums::Score, -1);
    EXPECT_TRUE(std::all_of(s.begin(), s.end(), [](double v) { return v == 0; }));
    // An infinite tie makes M infinite: the Efron loop would never end; the
    // sums take the value it tends to, here NaN as E*f is inf*0 from k = 0.
    const auto inf = byWalk(d, CoxSums::Score, kInf);
    EXPECT_TRUE(std::any_of(inf.begin(), inf.end(), [](double v) { return std::isnan(v); }));
    const auto infH = byWalk(d, CoxSums::Martingale, kInf);
    EXPECT_TRUE(std::all_of(infH.begin(), infH.end(), [](double v) { return v == 0; }));
}

TEST(CoxResiduals, NoEventEmptyAndDegenerateShapes) {
    Survival d = randomSurvival(30, 2, 2, true, false, false);
    std::fill(d.status.begin(), d.status.end(), 0);
    Inputs in(d, 1.0);
    auto S = std::move(zvhost::call(coxsresbif, 1, in.score())[0]);
    EXPECT_EQ(ndGetM(S.get()), 2u);
    EXPECT_EQ(zvhost::valuesOf<double>(S.get()), std::vector<double>(60, 0.0));
    auto H = std::move(zvhost::call(coxmresbif, 1, in.martingale())[0]);
    EXPECT_EQ(zvhost::valuesOf<double>(H.get()), std::vector<double>(30, 0.0));

    zvtest::LeakCheck leaks;
    Owned none = zvhost::matrixOf<double>(0, 30);
    auto empty = std::move(zvhost::call(coxsresbif, 1, {in.status.get(), none.get(), in.start.get(),
                                                        in.stop.get(), in.freq.get(), in.risk.get(), in.tie.get()})[0]);
    EXPECT_EQ(ndGetM(empty.get()), 0u);
    EXPECT_EQ(ndGetN(empty.get()), 30u);
    Owned noRows = zvhost::matrixOf<double>(1, 0);
    Owned noStatus(ndCreateLogicalMatrix(0, 1));
    auto h0 = std::move(zvhost::call(coxmresbif, 0, {noStatus.get(), noRows.get(), noRows.get(), noRows.get(),
                                                     noRows.get(), in.tie.get()})[0]);
    EXPECT_EQ(ndGetM(h0.get()), 1u);
    EXPECT_EQ(ndGetN(h0.get()), 0u);
}

TEST(CoxResiduals, IdentifiersInTheirOrder) {
    const Survival d = randomSurvival(5, 2, 1, false, false, false);
    Inputs in(d, 0.0);
    Owned single = zvhost::matrixOf<float>(1, 5);
    const ndArray* nothing[7] = {};
    auto id = [](auto gateway, int nout, const std::vector<const ndArray*>& inputs) {
        return raisedId([&] { zvhost::call(gateway, nout, inputs); });
    };
    // Counts are tested before any input is read.
    EXPECT_EQ(raisedId([&] { coxsresbif(2, nullptr, 6, nothing); }), "stats:coxsresbif:TooFewInputs");
    EXPECT_EQ(raisedId([&] { coxmresbif(2, nullptr, 5, nothing); }), "stats:coxmresbif:TooFewInputs");
    EXPECT_EQ(raisedId([&] { coxsresbif(2, nullptr, 7, nothing); }), "stats:coxsresbif:TooManyOutputs");
    EXPECT_EQ(raisedId([&] { coxmresbif(2, nullptr, 6, nothing); }), "stats:coxmresbif:TooManyOutputs");

    auto s = in.score();
    s[0] = in.freq.get();
    s[3] = single.get();
    EXPECT_EQ(id(coxsresbif, 1, s), "stats:coxsresbif:BadInputTypeLogical");
    for (int k = 1; k <= 4; ++k) {
        s = in.score();
        s[k] = single.get();
        EXPECT_EQ(id(coxsresbif, 1, s), "stats:coxsresbif:BadInputTypeDouble") << k;
    }
    s = in.score();
    s[5] = in.risk.get();  // risk is not tested
    EXPECT_EQ(id(coxsresbif, 1, s), "");
    auto m = in.martingale();
    m[0] = in.tie.get();
    EXPECT_EQ(id(coxmresbif, 1, m), "stats:coxmresbif:BadInputTypeLogical");
    for (int k = 1; k <= 3; ++k) {
        m = in.martingale();
        m[k] = single.get();
        EXPECT_EQ(id(coxmresbif, 1, m), "stats:coxmresbif:BadInputTypeDouble") << k;
    }
    // Extra inputs are ignored; numOutputs = 0 still fills slot 0.
    m = in.martingale();
    m.push_back(in.x.get());
    EXPECT_TRUE(zvhost::call(coxmresbif, 0, m)[0]);
}

TEST(CoxResiduals, ScratchIsFreedAndAFailedAllocationLeaksNothing) {
    const Survival d = randomSurvival(40, 3, 6, true, true, false);
    Inputs in(d, 1.0);
    zvtest::LeakCheck leaks;
    zvhost::call(coxsresbif, 1, in.score());
    for (long n = 1; n <= 5; ++n) {
        zvhost::failAllocationAt(n, zvhost::kScratch);
        EXPECT_THROW(zvhost::call(coxsresbif, 1, in.score()), std::bad_alloc) << n;
    }
    zvhost::failAllocationAt(0);
}

}  // namespace

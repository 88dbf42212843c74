// coxsresbif, coxmresbif: hand-computed sums, the sweep against the walk on
// the same data, the walk's quirks (rows not at risk at their own event,
// unsorted rows, unusual tie weights), inputs that hold fewer values than
// rows, identifiers and scratch.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "diagnostics/cox_residuals.hpp"
#include "support/gateways.hpp"

namespace {

using zv::diagnostics::CoxProblem;
using zv::diagnostics::CoxScoreWork;
using zv::diagnostics::CoxSums;
using zvhost::Owned;
using zvtest::raisedId;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr auto kScore = CoxSums::Score;
constexpr auto kMartingale = CoxSums::Martingale;

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

// The sums by the walk, or by the sweep (empty when it declines, which
// leaves them zero).
std::vector<double> sums(const Survival& d, CoxSums kind, double tie, bool bySweep) {
    const size_t p = kind == kScore ? d.p : 0;
    std::vector<double> out(std::max<size_t>(p, 1) * d.n(), 0.0), a(p), b(p), t(p), c(p), dd(p);
    const CoxProblem pr{kind, d.status.data(), d.x.data(), p, d.n(), d.start.data(), d.stop.data(),
                        d.freq.data(), d.risk.data(), tie, out.data()};
    const CoxScoreWork work{a.data(), b.data(), t.data(), c.data(), dd.data()};
    if (!bySweep) zv::diagnostics::coxRiskSumsByWalk(pr, work);
    else if (!zv::diagnostics::coxRiskSumsBySweep(pr, work)) {
        EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](double v) { return v == 0; }));
        return {};
    }
    return out;
}
std::vector<double> byWalk(const Survival& d, CoxSums kind, double tie) { return sums(d, kind, tie, false); }
std::vector<double> bySweep(const Survival& d, CoxSums kind, double tie) { return sums(d, kind, tie, true); }

void expectClose(const std::vector<double>& a, const std::vector<double>& b, double rel) {
    ASSERT_EQ(a.size(), b.size());
    double scale = 0;
    for (double v : b) scale = std::max(scale, std::abs(v));
    for (size_t i = 0; i < a.size(); ++i) ASSERT_NEAR(a[i], b[i], rel * (std::abs(b[i]) + 1e-3 * scale)) << "at " << i;
}

struct Inputs {
    Owned status, x, start, stop, freq, risk, tie;
    Inputs(const Survival& d, double tieValue) {
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

std::vector<double> scoreSums(const std::vector<const ndArray*>& in) {
    return zvhost::valuesOf<double>(zvhost::call(coxsresbif, 1, in)[0].get());
}
std::vector<double> martingaleSums(const std::vector<const ndArray*>& in) {
    return zvhost::valuesOf<double>(zvhost::call(coxmresbif, 1, in)[0].get());
}

TEST(CoxResiduals, HandComputedEfronAndBreslowSums) {
    // Two events at t = 1 and a row at risk after them, risks 1, 1, 2; one
    // predictor x = 0, 1, 3. Risk set at t = 1: R = 4, tied E = 2, W = 2.
    Survival d = handCase(/*status*/ {1, 1, 0}, /*x*/ {0, 1, 3}, /*start*/ {0, 0, 0},
                          /*stop*/ {1, 1, 2}, /*risk*/ {1, 1, 2});
    Inputs in(d, 1.0);
    // Efron: k = 0: a = 1/4; k = 1: f = 1/2, den = 4 - 1 = 3, a = 1/3.
    const double g1 = 0.25 + 1.0 / 3, g2 = 0.25 + 0.5 / 3;
    auto H = martingaleSums(in.martingale());
    EXPECT_DOUBLE_EQ(H[0], g2);
    EXPECT_DOUBLE_EQ(H[1], g2);
    EXPECT_DOUBLE_EQ(H[2], 2 * g1);
    // A = 0 + 1 + 6 = 7, B = 1; C = (7/4)/4 + ((7 - 1/2)/3)/3, D = (7/4)/4 + ((13/2)/3)/3/2.
    const double c = 7.0 / 16 + 6.5 / 9, dd = 7.0 / 16 + 6.5 / 18;
    auto S = scoreSums(in.score());
    EXPECT_DOUBLE_EQ(S[0], 0 * g2 - dd);
    EXPECT_DOUBLE_EQ(S[1], 1 * g2 - dd);
    EXPECT_DOUBLE_EQ(S[2], (3 * g1 - c) * 2);
    Inputs breslow(d, 0.0);  // G = W/R = 2/4, A = 7/4
    EXPECT_EQ(martingaleSums(breslow.martingale()), (std::vector<double>{0.5, 0.5, 1.0}));
    EXPECT_EQ(scoreSums(breslow.score()), (std::vector<double>{(0 - 1.75) * 0.5, (1 - 1.75) * 0.5, (3 - 1.75) * 2 * 0.5}));
}

TEST(CoxResiduals, SweepAgreesWithTheWalk) {
    unsigned seed = 1;
    for (bool ties : {false, true})
        for (bool startStop : {false, true})
            for (bool weights : {false, true}) {
                const Survival d = randomSurvival(400, 3, seed++, ties, startStop, weights);
                for (double tie : {0.0, 1.0, 0.5, -1.0})
                    for (CoxSums kind : {kScore, kMartingale}) {
                        const auto sweep = bySweep(d, kind, tie);
                        ASSERT_FALSE(sweep.empty());
                        expectClose(sweep, byWalk(d, kind, tie), 1e-11);
                    }
                // Under Breslow's rule the sums give out what the events bring
                // in: sum of freq (status - H) is zero.
                const auto H = bySweep(d, kMartingale, 0);
                double balance = 0;
                for (size_t j = 0; j < d.n(); ++j) balance += d.freq[j] * (d.status[j] - H[j]);
                EXPECT_NEAR(balance, 0, 1e-9);
            }
    // Rows of risk 1e14 leave the risk set before the last events, whose risk
    // sums are 1e-39: a running sum with subtractions would keep nothing of them.
    Survival d = randomSurvival(200, 2, 9, false, true, false);
    std::mt19937 gen(4);
    std::uniform_real_distribution<double> expo(-90, 32);
    for (double& r : d.risk) r = std::exp(expo(gen));
    for (CoxSums kind : {kScore, kMartingale})
        for (double tie : {0.0, 1.0}) expectClose(bySweep(d, kind, tie), byWalk(d, kind, tie), 1e-10);
}

TEST(CoxResiduals, GatewayTakesTheWalkWhereTheSweepDeclines) {
    // Unsorted stops, an infinite risk or tie, or a zero risk sum (a NaN
    // factor, which the walk puts only where it belongs): the sweep declines
    // and the gateway gives the walk's sums, bit for bit.
    const Survival d = randomSurvival(50, 2, 3, true, false, false);
    Survival unsorted = d, infiniteRisk = d, zeroFreq = d;
    std::swap(unsorted.stop[3], unsorted.stop[40]);
    infiniteRisk.risk[7] = kInf;
    std::fill(zeroFreq.freq.end() - 5, zeroFreq.freq.end(), 0.0);
    zeroFreq.status.back() = 1;
    for (const auto& [e, tie] : {std::pair{unsorted, 1.0}, {infiniteRisk, 0.0}, {d, kInf}, {zeroFreq, 0.0}}) {
        EXPECT_TRUE(bySweep(e, kMartingale, tie).empty() && bySweep(e, kScore, tie).empty());
        zvtest::expectBitEqual(martingaleSums(Inputs(e, tie).martingale()), byWalk(e, kMartingale, tie));
        zvtest::expectBitEqual(scoreSums(Inputs(e, tie).score()), byWalk(e, kScore, tie));
    }
    EXPECT_FALSE(std::isnan(martingaleSums(Inputs(zeroFreq, 0.0).martingale())[0]));
    EXPECT_EQ(scoreSums(Inputs(d, 1.0).score()), bySweep(d, kScore, 1.0));  // sorted: the sweep
}

TEST(CoxResiduals, EventRowsNotAtRiskDoNotStallTheWalk) {
    // Every row starts at or after its stop; the event rows must still move
    // the walk on, and nobody is ever at risk.
    Survival d = handCase(/*status*/ {1, 1, 1, 0, 1}, /*x*/ {1, 2, 3, 4, 5}, /*start*/ {1, 2, 2, 4, 9},
                          /*stop*/ {1, 2, 2, 3, 5}, /*risk*/ {1, 1, 1, 1, 1});
    for (double tie : {0.0, 1.0}) {
        Inputs in(d, tie);
        EXPECT_EQ(scoreSums(in.score()), std::vector<double>(5, 0.0));
        EXPECT_EQ(martingaleSums(in.martingale()), std::vector<double>(5, 0.0));
    }
    // A NaN stop time shares no stop with itself: the walk moves on by one.
    d.start = {0, 0, 0, 0, 0};
    d.stop = {1, std::nan(""), 2, 3, 5};
    EXPECT_EQ(byWalk(d, kMartingale, 1).size(), 5u);
    EXPECT_EQ(byWalk(d, kScore, 1).size(), 5u);
}

TEST(CoxResiduals, ScoreCursorMovesOnlyWithRowsAtRisk) {
    // Rows 0-2 share t = 2; row 1 starts at 2, so it is not at risk. The
    // cursor moves once for each row at risk (0, 2, 3) while stop[cursor] = 2,
    // so it still reaches row 3, past the group: one event.
    Survival d = handCase(/*status*/ {1, 0, 1, 0}, /*x*/ {1, 2, 3, 4}, /*start*/ {0, 2, 0, 0},
                          /*stop*/ {2, 2, 2, 3}, /*risk*/ {1, 1, 1, 1});
    const auto walk = byWalk(d, kScore, 0);
    // Event at t = 2: rows 0, 2, 3 at risk, R = 3, A = 8/3, G = 2/3.
    const double g = 2.0 / 3, a = 8.0 / 3;
    EXPECT_DOUBLE_EQ(walk[0], (1 - a) * g);
    EXPECT_DOUBLE_EQ(walk[1], 0.0);
    EXPECT_DOUBLE_EQ(walk[2], (3 - a) * g);
    EXPECT_DOUBLE_EQ(walk[3], (4 - a) * g);
    expectClose(bySweep(d, kScore, 0), walk, 1e-15);
    // Rows not at risk never push it: with rows 1 and 2 not at risk the
    // cursor stops inside the group and row 2 is walked as an event again.
    d.start = {0, 2, 2, 0};
    d.status = {1, 0, 1, 1};
    for (double tie : {0.0, 1.0}) expectClose(bySweep(d, kScore, tie), byWalk(d, kScore, tie), 1e-15);
}

TEST(CoxResiduals, EfronEventWithoutTiedRowsKeepsTheLastCorrections) {
    // Row 1's event is not at risk (start 5 after stop 2), so its event has
    // M = 0: no factor, and C, D stay those of the event before. Event 0:
    // R = 2, E = M = W = 1, A = 4: G1 = G2 = 1/2, C = D = 1.
    Survival d = handCase(/*status*/ {1, 1, 0}, /*x*/ {1, 0, 3}, /*start*/ {0, 5, 0},
                          /*stop*/ {1, 2, 3}, /*risk*/ {1, 1, 1});
    const std::vector<double> expected{1 * 0.5 - 1, 0, (3 * 0.5 - 1) + (3 * 0 - 1)};
    EXPECT_EQ(byWalk(d, kScore, 1), expected);
    EXPECT_EQ(bySweep(d, kScore, 1), expected);
}

TEST(CoxResiduals, UnusualTieWeights) {
    const Survival d = randomSurvival(60, 2, 12, true, false, false);
    auto allAre = [](const std::vector<double>& v, auto test) { return std::all_of(v.begin(), v.end(), test); };
    auto zero = [](double v) { return v == 0; };
    // A tie above 1 names no rule, and Efron's loop would take tie terms per
    // tied row: every row at risk at an event with tied rows gets NaN, at once.
    for (double tie : {2.0, 2147483648.0, 1e300, kInf}) {
        const auto S = scoreSums(Inputs(d, tie).score());
        ASSERT_TRUE(std::isnan(S.back())) << tie;
        EXPECT_TRUE(allAre(S, [](double v) { return v == 0 || std::isnan(v); })) << tie;
    }
    // Martingale sums tell Efron's rows only by tie = 1; with any other
    // non-zero tie no Breslow factor is formed and the sums stay zero.
    for (double tie : {0.5, 2.0, 1e300, kInf}) EXPECT_TRUE(allAre(martingaleSums(Inputs(d, tie).martingale()), zero));
    // A negative tie leaves M below 0 at every event: no factor, and C and D
    // keep the zeros they start with.
    EXPECT_TRUE(allAre(byWalk(d, kScore, -1), zero));
}

TEST(CoxResiduals, InputsHoldingFewerValuesThanRowsAreReadAsFarAsTheyGo) {
    zvtest::LeakCheck leaks;
    const Survival d = randomSurvival(8, 2, 7, false, false, false);
    auto withStatusOf = [&](size_t count) {
        Survival e = d;
        std::fill(e.status.begin() + long(count), e.status.end(), 0);
        return e;
    };
    // Rows past a short status have no event; a missing stop is NaN, which
    // no time equals.
    Inputs in(d, 1.0);
    Owned shortStatus(ndCreateLogicalMatrix(5, 1));
    std::copy_n(d.status.begin(), 5, static_cast<uint8_t*>(ndGetData(shortStatus.get())));
    Inputs fewerEvents(withStatusOf(5), 1.0);
    auto m = in.martingale();
    auto s = in.score();
    m[0] = s[0] = shortStatus.get();
    EXPECT_EQ(martingaleSums(m), martingaleSums(fewerEvents.martingale()));
    EXPECT_EQ(scoreSums(s), scoreSums(fewerEvents.score()));
    Survival late = d;
    late.stop.back() = std::nan("");
    Owned shortStop = zvhost::matrixOf<double>(7, 1, std::span<const double>(d.stop.data(), 7));
    m = in.martingale();
    m[2] = shortStop.get();
    EXPECT_EQ(martingaleSums(m), martingaleSums(Inputs(late, 1.0).martingale()));
    // Empty, foreign or sparse inputs in every position: no read past them.
    Owned empty = zvhost::matrixOf<double>(0, 0), handle(zvhost::createFunctionHandle("pdist"));
    Owned sparseStop(zvhost::createSparse(8, 1, 1));
    static_cast<double*>(ndGetData(sparseStop.get()))[0] = 3;
    ndGetColumnStarts(sparseStop.get())[1] = 1;
    for (const ndArray* bad : {empty.get(), handle.get(), sparseStop.get()})
        for (size_t k = 0; k < 6; ++k) {
            s = in.score();
            m = in.martingale();
            s[k] = m[k] = bad;
            raisedId([&] { zvhost::call(coxsresbif, 1, s); });
            raisedId([&] { zvhost::call(coxmresbif, 1, m); });
        }
    // The risk is not tested: a function handle holds no risks, all NaN.
    m = in.martingale();
    m[4] = handle.get();
    const auto H = martingaleSums(m);
    EXPECT_TRUE(std::any_of(H.begin(), H.end(), [](double v) { return std::isnan(v); }));
}

TEST(CoxResiduals, NoEventEmptyAndDegenerateShapes) {
    zvtest::LeakCheck leaks;
    Survival d = randomSurvival(30, 2, 2, true, false, false);
    std::fill(d.status.begin(), d.status.end(), 0);
    Inputs in(d, 1.0);
    EXPECT_EQ(scoreSums(in.score()), std::vector<double>(60, 0.0));
    EXPECT_EQ(martingaleSums(in.martingale()), std::vector<double>(30, 0.0));
    // p = 0 gives 0-by-n; n = 0 gives 1-by-0, also with no output asked for.
    Owned none = zvhost::matrixOf<double>(0, 30), noRows = zvhost::matrixOf<double>(1, 0);
    Owned noStatus(ndCreateLogicalMatrix(0, 1));
    auto s = in.score();
    s[1] = none.get();
    const auto empty = std::move(zvhost::call(coxsresbif, 1, s)[0]);
    const auto h0 = std::move(zvhost::call(coxmresbif, 0, {noStatus.get(), noRows.get(), noRows.get(), noRows.get(),
                                                           noRows.get(), in.tie.get()})[0]);
    EXPECT_TRUE(ndGetM(empty.get()) == 0 && ndGetN(empty.get()) == 30);
    EXPECT_TRUE(ndGetM(h0.get()) == 1 && ndGetN(h0.get()) == 0);
}

TEST(CoxResiduals, IdentifiersInTheirOrder) {
    Inputs in(randomSurvival(5, 2, 1, false, false, false), 0.0);
    Owned single = zvhost::matrixOf<float>(1, 5);
    const ndArray* nothing[7] = {};
    // Counts are tested before any input is read.
    EXPECT_EQ(raisedId([&] { coxsresbif(2, nullptr, 6, nothing); }), "stats:coxsresbif:TooFewInputs");
    EXPECT_EQ(raisedId([&] { coxmresbif(2, nullptr, 5, nothing); }), "stats:coxmresbif:TooFewInputs");
    EXPECT_EQ(raisedId([&] { coxsresbif(2, nullptr, 7, nothing); }), "stats:coxsresbif:TooManyOutputs");
    EXPECT_EQ(raisedId([&] { coxmresbif(2, nullptr, 6, nothing); }), "stats:coxmresbif:TooManyOutputs");
    // Status first, then the data inputs; the risk is not tested.
    for (bool score : {true, false}) {
        const std::string base = score ? "stats:coxsresbif:" : "stats:coxmresbif:";
        for (size_t k = 0; k < 6; ++k) {
            auto list = score ? in.score() : in.martingale();
            list[k] = single.get();
            if (k == 0) list[3] = single.get();
            const bool risk = k == (score ? 5u : 4u);
            EXPECT_EQ(raisedId([&] { zvhost::call(score ? coxsresbif : coxmresbif, 1, list); }),
                      k == 0 ? base + "BadInputTypeLogical" : risk || (!score && k == 5) ? "" : base + "BadInputTypeDouble")
                << base << k;
        }
    }
    // Extra inputs are ignored; numOutputs = 0 still fills slot 0.
    auto m = in.martingale();
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

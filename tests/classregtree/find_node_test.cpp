// classregtree::findNode: exact nodes on hand-built records (cut points,
// NaN and surrogates, flips, bins with a gap, unseen categories, prune
// levels), the five class pairings, counts, probes, debug text, thread
// counts, and records that no tree could produce.
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "support/gateways.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Surrogate {
    double predictor, flip = 1, cut = kNaN;
    std::vector<double> bins{}, left{}, right{};  // 1-based bins; categories
};

struct Node {
    double left = 0, right = 0, var = 0, cut = kNaN;
    std::vector<double> bins{}, catLeft{}, catRight{};  // 1-based bins; categories
    double prune = 0;
    std::vector<Surrogate> surrogates{};
};

struct Record {
    std::vector<Node> nodes;
    std::vector<bool> categorical;
    bool binned = false;
};

// Values as T; NaN is 0 in an integer class.
template <class T>
std::vector<T> as(const std::vector<double>& v) {
    std::vector<T> t;
    for (double d : v) t.push_back(std::is_integral_v<T> && std::isnan(d) ? T(0) : T(d));
    return t;
}

template <class T>
Owned row(const std::vector<double>& v) {
    return zvhost::matrixOf<T>(1, v.size(), std::span<const T>(as<T>(v)));
}

Owned cellOf(size_t m, size_t n, std::vector<Owned> elements) {
    Owned c(ndCreateCellMatrix(m, n));
    for (size_t k = 0; k < elements.size(); ++k)
        if (elements[k]) ndSetCell(c.get(), k, elements[k].release());
    return c;
}

// The 15 inputs for predictors x (N by P, column-major) of class X, the
// record's cut points, bins and categories of class C.
template <class X, class C>
std::vector<Owned> inputsOf(const Record& r, size_t N, const std::vector<double>& x, const std::vector<double>& levels,
                            bool prune = false, double verbose = 0) {
    const size_t n = r.nodes.size(), P = r.categorical.size();
    std::vector<double> children, cutVar, cut, bins(2 * n), pruneList;
    std::vector<Owned> cats(2 * n), flips, vars, sBins, sCuts, sCats;
    bool anySurrogate = false;
    for (size_t u = 0; u < n; ++u) {
        const Node& d = r.nodes[u];
        children.insert(children.end(), {d.left, d.right});
        cutVar.push_back(d.var), cut.push_back(d.cut), pruneList.push_back(d.prune);
        if (!d.bins.empty()) bins[u] = d.bins[0], bins[n + u] = d.bins[1];
        if (!d.catLeft.empty()) cats[u] = row<C>(d.catLeft), cats[n + u] = row<C>(d.catRight);
        std::vector<double> f, v, c;
        std::vector<Owned> b, k;
        for (const Surrogate& s : d.surrogates) {
            anySurrogate = true;
            f.push_back(s.flip), v.push_back(s.predictor), c.push_back(s.cut);
            b.push_back(s.bins.empty() ? zvhost::matrixOf<double>(0, 0) : row<double>(s.bins));
            std::vector<Owned> pair;
            pair.push_back(row<C>(s.left)), pair.push_back(row<C>(s.right));
            k.push_back(s.left.empty() ? zvhost::text("") : cellOf(1, 2, std::move(pair)));
        }
        const size_t count = d.surrogates.size();
        flips.push_back(row<double>(f)), vars.push_back(row<double>(v)), sCuts.push_back(row<C>(c));
        sBins.push_back(cellOf(1, count, std::move(b))), sCats.push_back(cellOf(1, count, std::move(k)));
    }
    std::vector<Owned> in;
    in.push_back(zvhost::matrixOf<X>(N, P, std::span<const X>(as<X>(x))));
    in.push_back(row<double>(levels));
    in.push_back(prune ? row<double>(pruneList) : zvhost::matrixOf<double>(0, 0));
    in.push_back(zvhost::matrixOf<double>(2, n, std::span<const double>(children)));
    Owned isCat = zvhost::matrixOf<bool>(P, 1);
    for (size_t p = 0; p < P; ++p) ndGetLogicals(isCat.get())[p] = r.categorical[p];
    in.push_back(std::move(isCat));
    in.push_back(row<double>(cutVar));
    in.push_back(r.binned ? zvhost::matrixOf<C>(n, 2, std::span<const C>(as<C>(bins)))
                          : zvhost::matrixOf<C>(0, 0));
    in.push_back(row<C>(cut));
    in.push_back(cellOf(n, 2, std::move(cats)));
    for (auto* cells : {&flips, &vars, &sBins, &sCuts, &sCats})
        in.push_back(anySurrogate ? cellOf(n, 1, std::move(*cells)) : cellOf(0, 0, {}));
    in.push_back(zvhost::scalar(verbose));
    return in;
}

std::vector<const ndArray*> view(const std::vector<Owned>& in) {
    std::vector<const ndArray*> v;
    for (const auto& a : in) v.push_back(a.get());
    return v;
}

std::vector<double> run(const std::vector<Owned>& in) {
    auto out = zvhost::call(classregtree::findNode, 1, view(in));
    return zvhost::valuesOf<double>(out[0].get());
}

template <class X = double, class C = double>
std::vector<double> run(const Record& r, size_t N, const std::vector<double>& x, const std::vector<double>& levels,
                        bool prune = false) {
    return run(inputsOf<X, C>(r, N, x, levels, prune));
}

// Node 1 cuts predictor 1 at 0.5, node 3 predictor 2 at 0; nodes 2, 4, 5
// are leaves. Prune levels: 2 at the root, 1 at node 3.
Record numericTree() {
    Record r{{}, {false, false}};
    r.nodes = {{2, 3, 1, 0.5}, {}, {4, 5, 2, 0}, {}, {}};
    r.nodes[0].prune = 2, r.nodes[2].prune = 1;
    return r;
}

// Rows: left at node 1; equal to both cuts (right twice); right then left;
// NaN at node 1; NaN at node 3.
const std::vector<double> kRows = {0.2, 0.5, 0.9, kNaN, 0.7, /**/ 7, 0, -1, 1, kNaN};

TEST(FindNode, CutPointsMissingValuesAndPruneLevels) {
    zvtest::LeakCheck leaks;
    const Record r = numericTree();
    // Columns: levels 0 (the whole tree), 1 (node 3 pruned), 2 and 9 (at or above the root's level), NaN (never prunes).
    EXPECT_EQ(run(r, 5, kRows, {0, 1, 2, 9, kNaN}, true),
              (std::vector<double>{2, 5, 4, 1, 3, /**/ 2, 3, 3, 1, 3, /**/ 1, 1, 1, 1, 1, /**/ 1, 1, 1, 1, 1,
                                   /**/ 2, 5, 4, 1, 3}));
    // Without prune levels every column is the whole tree.
    EXPECT_EQ(run(r, 5, kRows, {0, 2}), (std::vector<double>{2, 5, 4, 1, 3, 2, 5, 4, 1, 3}));
    // No level: N by 0.
    auto out = zvhost::call(classregtree::findNode, 1, view(inputsOf<double, double>(r, 5, kRows, {})));
    EXPECT_EQ(ndGetM(out[0].get()), 5u);
    EXPECT_EQ(ndGetN(out[0].get()), 0u);

    // Surrogates: node 1 tries predictor 2 at 0 with flip -1 (x2 = 1 > 0 goes
    // left), node 3 first a surrogate that cannot place the row, then
    // predictor 1 at 0.8.
    Record s = r;
    s.nodes[0].surrogates = {{2, -1, 0}};
    s.nodes[2].surrogates = {{2, 1, 0.3}, {1, 1, 0.8}};
    EXPECT_EQ(run(s, 5, kRows, {0}), (std::vector<double>{2, 5, 4, 2, 4}));
}

TEST(FindNode, TheFivePairingsAgreeAndOthersLeaveTheOutputUnset) {
    zvtest::LeakCheck leaks;
    const Record r = numericTree();
    EXPECT_EQ((run<double, float>(r, 5, kRows, {0})), (run<float, double>(r, 5, kRows, {0})));
    EXPECT_EQ((run<float, float>(r, 5, kRows, {0})), (std::vector<double>{2, 5, 4, 1, 3}));
    Record ints = r;
    ints.nodes[0].cut = 1;  // x < 1 goes left
    EXPECT_EQ((run<int32_t, int32_t>(ints, 3, {0, 1, 2, 0, 0, 0}, {0})), (std::vector<double>{2, 5, 5}));
    auto in = inputsOf<double, int32_t>(r, 5, kRows, {0});
    EXPECT_EQ(zvhost::call(classregtree::findNode, 1, view(in))[0], nullptr);
    in[0] = zvhost::matrixOf<bool>(5, 2);
    EXPECT_EQ(zvhost::call(classregtree::findNode, 1, view(in))[0], nullptr);
}

TEST(FindNode, BinsWithAGapAndCategoriesNeverSeen) {
    zvtest::LeakCheck leaks;
    // Bins 1..2 go left, 4.. go right: code 2 (0-based) lies in the gap and
    // stays, unless the surrogate (bins 1 | 2, flip -1) places it.
    Record b{{{2, 3, 1}, {}, {}}, {false, false}, true};
    b.nodes[0].bins = {2, 4};
    const std::vector<double> codes = {0, 1, 2, 3, 4, 2, /**/ 0, 0, 0, 0, 0, 1};
    EXPECT_EQ((run<int32_t, int32_t>(b, 6, codes, {0})), (std::vector<double>{2, 2, 1, 3, 3, 1}));
    EXPECT_EQ((run<double, double>(b, 6, codes, {0})), (std::vector<double>{2, 2, 1, 3, 3, 1}));
    b.nodes[0].surrogates = {{2, -1, kNaN, {1, 2}}};
    EXPECT_EQ((run<int32_t, int32_t>(b, 6, codes, {0})), (std::vector<double>{2, 2, 3, 3, 3, 2}));

    // Categories {1, 3} go left and {2} right; 4 and NaN stay at node 1.
    Record c{{{2, 3, 1}, {}, {}}, {true}};
    c.nodes[0].catLeft = {1, 3}, c.nodes[0].catRight = {2};
    EXPECT_EQ((run<double, double>(c, 5, {1, 2, 3, 4, kNaN}, {0})), (std::vector<double>{2, 3, 2, 1, 1}));
    EXPECT_EQ((run<float, float>(c, 5, {1, 2, 3, 4, kNaN}, {0})), (std::vector<double>{2, 3, 2, 1, 1}));
}

TEST(FindNode, CountsAreCheckedAndNoOutputComputesNothing) {
    zvtest::LeakCheck leaks;
    auto in = inputsOf<double, double>(numericTree(), 5, kRows, {0});
    auto args = view(in);
    auto idArgs = [&](int numOutputs, std::vector<const ndArray*> list, const char* id, long count) {
        try {
            zvhost::call(classregtree::findNode, numOutputs, list);
            ADD_FAILURE() << "no error";
        } catch (const bedrock::core::except::IMsgIDException& e) {
            EXPECT_EQ(e.GetID(), id);
            EXPECT_EQ(std::get<long>(e.GetBaseMsgIDObj().args.at(0)), count);
        }
    };
    auto fourteen = args;
    fourteen.pop_back();
    idArgs(2, fourteen, "stats:classreg:learning:treeutils:findNode:BadNumberOfInputArgs", 15);
    idArgs(2, args, "stats:classreg:learning:treeutils:findNode:BadNumberOfOutputArgs", 1);
    zvhost::resetPollCount();
    EXPECT_EQ(zvhost::call(classregtree::findNode, 0, args)[0], nullptr);
    EXPECT_EQ(zvhost::pollCount(), 0);
}

TEST(FindNode, ProbesInterruptAndTheNextCallWorks) {
    zvtest::LeakCheck leaks;
    const auto in = inputsOf<double, double>(numericTree(), 5, kRows, {0});
    for (const char* probe : {"classregtree_findNode_inside_layer", "classregtree_findNode_after_layer_completed"}) {
        zvhost::armProbe(probe);
        EXPECT_EQ(raisedId([&] { run(in); }), "zvhost:Interrupted") << probe;
        zvhost::disarmProbes();
        EXPECT_EQ(run(in), (std::vector<double>{2, 5, 4, 1, 3}));
    }
    zvhost::probeServiceCalls();
    run(in);
    EXPECT_EQ(zvhost::probeServiceCalls(), 0);  // no tester active: the sites touch nothing
}

TEST(FindNode, DebugTextTellsCutsAndRoutes) {
    zvtest::LeakCheck leaks;
    Record r{{{2, 3, 1, 0.5}, {}, {}}, {false, true}};
    r.nodes[0].surrogates = {{2, 1, kNaN, {}, {1}, {2, 3}}};
    const std::string cuts =
        "Node 0 will impose following cuts:\n"
        "   Predictor: 0  Numeric/Nominal (0/1): 0    Binned (0/1): 0\n"
        "      CutPoint=0.5   Flip=1\n"
        "   Predictor: 1  Numeric/Nominal (0/1): 1    Binned (0/1): 0\n"
        "      Left: 1   Right: 2 3\n";
    const std::string routes =
        "           --> Observation 0 sent left by predictor 0 at subtree 0\n"
        "           --> Observation 0 sent left by predictor 0 at subtree 1\n"
        "           --> Observation 1 sent right by predictor 1 at subtree 0\n"
        "           --> Observation 1 sent right by predictor 1 at subtree 1\n";
    for (double verbose : {1.0, 2.0}) {
        zvhost::ConsoleCapture console;
        EXPECT_EQ(run(inputsOf<double, double>(r, 3, {0.2, kNaN, kNaN, 1, 3, 5}, {0, 1}, false, verbose)),
                  (std::vector<double>{2, 3, 1, 2, 3, 1}));
        EXPECT_EQ(console.text(), verbose == 1 ? cuts : cuts + routes);
    }
}

// A random tree of about `leaves` leaves over P predictors on [0, 1),
// with surrogates and prune levels that fall with depth.
Record randomTree(size_t leaves, size_t P, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(0, 1);
    Record r{{Node{}}, std::vector<bool>(P, false)};
    for (size_t next = 0; r.nodes.size() < 2 * leaves - 1; ++next) {
        const size_t k = r.nodes.size();
        Node& d = r.nodes[next];
        d.left = double(k + 1), d.right = double(k + 2), d.var = double(1 + gen() % P), d.cut = u(gen);
        d.surrogates = {{double(1 + gen() % P), gen() % 2 ? 1.0 : -1.0, u(gen)}};
        r.nodes.resize(k + 2);
    }
    for (size_t u = r.nodes.size(); u-- > 0;)
        if (r.nodes[u].var != 0)
            r.nodes[u].prune = 1 + std::max(r.nodes[size_t(r.nodes[u].left) - 1].prune,
                                            r.nodes[size_t(r.nodes[u].right) - 1].prune);
    return r;
}

TEST(FindNode, ThreadCountsAndDebugLevelsGiveOneResult) {
    zvtest::LeakCheck leaks;
    const size_t N = 2000, P = 4;
    const Record r = randomTree(300, P, 7);
    std::vector<double> x(N * P);
    std::mt19937 gen(8);
    for (auto& v : x) v = gen() % 17 == 0 ? kNaN : std::uniform_real_distribution<double>(0, 1)(gen);
    const std::vector<double> levels = {0, 1, 3, 5, 8, 100};
    const auto one = zvtest::withThreads(1, [&] { return run(r, N, x, levels, true); });
    EXPECT_EQ(zvtest::withThreads(2, [&] { return run(r, N, x, levels, true); }), one);
    zvhost::ConsoleCapture console;
    EXPECT_EQ(run(inputsOf<double, double>(r, N, x, levels, true, 2)), one);
    // Every prune level stops some rows earlier than the whole tree.
    for (size_t s = 1; s < levels.size(); ++s)
        EXPECT_NE(std::vector<double>(one.begin() + s * N, one.begin() + (s + 1) * N),
                  std::vector<double>(one.begin(), one.begin() + N));
}

TEST(FindNode, RecordsNoTreeCouldProduceStopRowsSafely) {
    zvtest::LeakCheck leaks;
    const std::vector<double> x = {0.2, 0.9, /**/ 1, 1};
    // Node 1 with these cut variables and children; only the first routes its rows.
    const struct {
        const char* what;
        double var, left, right;
    } cases[] = {{"a valid root", 1, 2, 3},          {"child beyond n", 1, 2, 9},
                 {"child 0", 1, 0, 3},               {"child back to the root", 1, 1, 3},
                 {"both children one node", 1, 3, 3}, {"child not an integer", 1, 2.5, 3},
                 {"cut variable beyond P", 3, 2, 3}, {"cut variable NaN", kNaN, 2, 3}};
    for (const auto& c : cases) {
        Record r{{{c.left, c.right, c.var, 0.5}, {}, {}}, {false, false}};
        EXPECT_EQ(run(r, 2, x, {0}), (&c == cases ? std::vector<double>{2, 3} : std::vector<double>{1, 1})) << c.what;
    }
    // Node 3 points back at node 2, which node 1 already reached: it keeps its rows.
    Record cycle{{{2, 3, 1, 0.5}, {}, {2, 1, 2, 0}}, {false, false}};
    EXPECT_EQ(run(cycle, 2, x, {0}), (std::vector<double>{2, 3}));
    // An empty record has no node to stop at.
    EXPECT_EQ(run(Record{{}, {false, false}}, 2, x, {0}), (std::vector<double>{0, 0}));

    // Short arrays and cells of the wrong class read as leaves, no pruning, no surrogates.
    Record s = numericTree();
    s.nodes[0].surrogates = {{2, -1, 0}};
    auto in = inputsOf<double, double>(s, 5, kRows, {0, 1}, true);
    in[5] = row<double>({1});                       // cut variables of node 1 only
    in[2] = row<double>({5});                       // a prune level for node 1 only
    in[10] = zvhost::matrixOf<double>(1, 5);        // surrogate predictors not in a cell
    EXPECT_EQ(run(in), (std::vector<double>{2, 3, 3, 1, 3, 2, 3, 3, 1, 3}));
    in[10] = cellOf(5, 1, {});                      // surrogate predictors in empty elements
    in[7] = zvhost::matrixOf<double>(0, 0);         // no cut points: NaN sends every row right
    EXPECT_EQ(run(in), (std::vector<double>{3, 3, 3, 1, 3, 3, 3, 3, 1, 3}));
}

}  // namespace

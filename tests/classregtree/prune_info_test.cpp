// classregtree::computePruneInfo: prune levels and alphas of small records
// worked out by hand, the criterion path, precision, the verbose lines,
// records whose children do not form a tree, identifiers, and the
// incremental engine against a whole-tree pass level by level on random trees.
#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

#include "support/gateways.hpp"
#include "zvhost/control.hpp"

namespace {

using zvhost::Owned;
using zvtest::raisedId;
using V = std::vector<double>;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
const std::string kIds = "stats:classreg:learning:treeutils:computePruneInfo:";

// A record as the gateway reads it; `prob` and `unrouted` default to 1 and false.
struct Record {
    V children;  // 2 by n, 1-based, 0 for none
    V risk;
    V prob = {};
    std::vector<bool> unrouted = {};
};
using Pruned = std::pair<V, V>;  // prune levels, alphas

template <class T>
Owned matrix(size_t m, size_t n, const V& values) {
    std::vector<T> t(values.begin(), values.end());
    return zvhost::matrixOf<T>(m, n, std::span<const T>(t));
}
template <class T>
Owned row(const V& values) {
    return matrix<T>(1, values.size(), values);
}

// The eight inputs; class probabilities are all of one class unless given.
template <class T = double>
std::vector<Owned> inputsOf(const Record& r, const std::string& name = "", size_t K = 1, V classProb = {}) {
    const size_t n = r.risk.size();
    Owned unrouted(ndCreateLogicalMatrix(n, 1));
    std::copy(r.unrouted.begin(), r.unrouted.end(), static_cast<unsigned char*>(ndGetData(unrouted.get())));
    std::vector<Owned> in;
    in.push_back(matrix<T>(K, n, classProb.empty() ? V(K * n, 1.0) : classProb));
    in.push_back(zvhost::matrixOf<double>(0, 0));
    in.push_back(row<T>(r.prob.empty() ? V(n, 1.0) : r.prob));
    in.push_back(row<T>(r.risk));
    in.push_back(std::move(unrouted));
    in.push_back(zvhost::matrixOf<double>(2, n, std::span<const double>(r.children)));
    in.push_back(zvhost::text(name));
    in.push_back(zvhost::scalar(0));
    return in;
}

std::vector<const ndArray*> pointers(const std::vector<Owned>& in) {
    std::vector<const ndArray*> raw;
    for (const auto& a : in) raw.push_back(a.get());
    return raw;
}

// Levels and alphas, the alphas checked to be of the class the class
// probabilities chose.
Pruned call(const std::vector<Owned>& in) {
    auto out = zvhost::call(&classregtree::computePruneInfo, 2, pointers(in));
    const bool single = ndGetClassID(in[0].get()) != ndDOUBLE_CLASS;
    EXPECT_EQ(ndGetClassID(out[1].get()), single ? ndSINGLE_CLASS : ndDOUBLE_CLASS);
    V alphas;
    if (single) for (float a : zvhost::valuesOf<float>(out[1].get())) alphas.push_back(a);
    else alphas = zvhost::valuesOf<double>(out[1].get());
    return {zvhost::valuesOf<double>(out[0].get()), alphas};
}

template <class T = double>
Pruned prune(const Record& r) {
    return call(inputsOf<T>(r));
}

// Root 0 with children 1 and 2; node 1 with children 3 and 4.
const V kTwoDeep = {2, 3, 4, 5, 0, 0, 0, 0, 0, 0};
// Root 0 with branches 1 and 2, each with two leaves.
const V kTwoBranches = {2, 3, 4, 5, 6, 7, 0, 0, 0, 0, 0, 0, 0, 0};
const double kEps = std::numeric_limits<double>::epsilon();

struct ByHand {
    const char* what;
    Record record;
    Pruned expected;
};

TEST(PruneInfo, RecordsWorkedOutByHand) {
    const ByHand cases[] = {
        {"stump without reduction: level 0 takes the root",
         {{2, 3, 0, 0, 0, 0}, {1, 0.5, 0.5}}, {{0, 0, 0}, {0}}},
        {"stump with reduction 0.5: level 0 records 0, level 1 takes the root",
         {{2, 3, 0, 0, 0, 0}, {1, 0.25, 0.25}}, {{1, 0, 0}, {0, 0.5}}},
        {"alphas 0.5 and 0.5(1 + 10 eps) go at one level",
         {kTwoBranches, {10, 1, 1 + 10 * kEps, 0.25, 0.25, 0.25, 0.25}},
         {{2, 1, 1, 0, 0, 0, 0}, {0, 0.5, 10 - (2 + 10 * kEps)}}},
        {"alphas 0.5 and 0.5(1 + 1000 eps) go at two levels",
         {kTwoBranches, {10, 1, 1 + 1000 * kEps, 0.25, 0.25, 0.25, 0.25}},
         {{3, 1, 2, 0, 0, 0, 0}, {0, 0.5, 0.5 + 1000 * kEps, 10 - (2 + 1000 * kEps)}}},
        {"a pruned branch takes its branch descendants along, though their alpha is larger",
         {{2, 3, 4, 5, 0, 0, 6, 7, 0, 0, 0, 0, 0, 0}, {5, 1, 1, 1, 0, 0, 0}}, {{2, 1, 0, 1, 0, 0, 0}, {0, 0.5, 3}}},
        {"alphas stand as computed: the root's d falls within tolerance once its branch goes",
         {kTwoDeep, {1e15 + 70, 30, 1e15, 0, 0}}, {{2, 1, 0, 0, 0}, {0, 30, 0}}},
        {"a flagged node whose children hold all of it is as if unflagged",
         {{2, 3, 0, 0, 0, 0}, {1, 0.25, 0.25}, {1, 0.5, 0.5}, {true}}, {{1, 0, 0}, {0, 0.5}}},
        {"a flagged node whose children hold more than it loses nothing",
         {{2, 3, 0, 0, 0, 0}, {1, 0.25, 0.25}, {1, 0.75, 0.5}, {true}}, {{1, 0, 0}, {0, 0.5}}},
        {"a flagged node whose children hold half adds half its risk to the branch",
         {{2, 3, 0, 0, 0, 0}, {2, 0.25, 0.25}, {1, 0.25, 0.25}, {true}}, {{1, 0, 0}, {0, 0.5}}},
        {"a flag on a leaf changes nothing",
         {{2, 3, 0, 0, 0, 0}, {1, 0.25, 0.25}, {1, 0.25, 0.25}, {false, true, true}}, {{1, 0, 0}, {0, 0.5}}},
        {"one node: one level of alpha 0", {{0, 0}, {3}}, {{0}, {0}}},
        {"no node: nothing", {{}, {}}, {{}, {}}},
        {"two stumps side by side are pruned as one forest",
         {{3, 4, 5, 6, 0, 0, 0, 0, 0, 0, 0, 0}, {1, 2, 0.25, 0.25, 0.5, 0.5}}, {{1, 2, 0, 0, 0, 0}, {0, 0.5, 1}}},
    };
    zvtest::LeakCheck leaks;
    for (const auto& c : cases) EXPECT_EQ(prune(c.record), c.expected) << c.what;
}

TEST(PruneInfo, ChildrenThatDoNotFormATreeMakeTheirParentALeaf) {
    // Each bad child entry of node 1 of kTwoDeep gives the record where node 1 is a leaf.
    const Pruned asLeaf = prune({{2, 3, 0, 0, 0, 0, 0, 0, 0, 0}, {4, 2, 1, 0.5, 0.5}});
    const std::pair<double, double> bad[] = {
        {4, 9}, {4, -1}, {0, 4}, {kNaN, 4}, {2, 4}, {4, 4}, {3, 4} /* node 2 has a parent already */};
    zvtest::LeakCheck leaks;
    for (auto [l, r] : bad) {
        V children = kTwoDeep;
        children[2] = l, children[3] = r;
        EXPECT_EQ(prune({children, {4, 2, 1, 0.5, 0.5}}), asLeaf) << l << ' ' << r;
    }
    // A cycle through the root leaves no node a root can reach: all are leaves.
    V cycle = kTwoDeep;
    cycle[2] = 1;  // node 1's left child is the root
    EXPECT_EQ(prune({cycle, {4, 2, 1, 0.5, 0.5}}), (Pruned{{0, 0, 0, 0, 0}, {0}}));
    // A leaf naming nodes that have parents already stays a leaf.
    const V twice = {2, 3, 4, 5, 0, 0, 2, 3, 0, 0};
    EXPECT_EQ(prune({twice, {4, 2, 1, 0.5, 0.5}}), prune({kTwoDeep, {4, 2, 1, 0.5, 0.5}}));
    const V loop = {0, 0, 3, 4, 5, 2, 0, 0, 0, 0};  // 1 -> 2 -> 1 below no root
    EXPECT_EQ(prune({loop, {4, 2, 1, 0.5, 0.5}}), (Pruned{{0, 0, 0, 0, 0}, {0}}));
}

TEST(PruneInfo, CriterionRecomputesProbabilityAndRisk) {
    // Stump of two classes: the root is half and half, the children pure.
    const Record stump{{2, 3, 0, 0, 0, 0}, {kNaN, kNaN, kNaN}, {1, 0.5, 0.5}};
    const V classProb = {0.5, 0.5, 1, 0, 0, 1};
    zvtest::LeakCheck leaks;
    EXPECT_EQ(call(inputsOf(stump, "gini", 2, classProb)), (Pruned{{1, 0, 0}, {0, 0.5}}));
    // C(0,1) = 1, C(1,0) = 3: gini sees the root's classes scaled by 0.5 and
    // 1.5, [0.25 0.75], so 1 - 0.0625 - 0.5625; "error" takes the cheaper
    // prediction, 0.5.
    for (auto [name, alpha] : {std::pair{"gini", 0.375}, std::pair{"gdi", 0.375}, std::pair{"error", 0.5}}) {
        auto in = inputsOf(stump, name, 2, classProb);
        in[1] = zvhost::matrixOf<double>(2, 2, {0, 3, 1, 0});
        EXPECT_EQ(call(in), (Pruned{{1, 0, 0}, {0, alpha}})) << name;
    }
    // A cost matrix smaller than K leaves the classes past it as they are.
    auto small = inputsOf(stump, "gini", 2, classProb);
    small[1] = zvhost::matrixOf<double>(1, 1, {5});
    EXPECT_EQ(call(small), (Pruned{{1, 0, 0}, {0, 0.5}}));
    // Probabilities from the class columns decide what a flagged node lost:
    // its children hold 0.25 + 0.25 of its 1, though the node probabilities say 0.5 + 0.5.
    Record flagged = stump;
    flagged.unrouted = {true};
    auto lossy = inputsOf(flagged, "gini", 2, {0.5, 0.5, 0.5, 0, 0, 0.5});
    lossy[1] = zvhost::matrixOf<double>(2, 2, {0, 1, 1, 0});
    EXPECT_EQ(call(lossy), (Pruned{{1, 0, 0}, {0, 0.25}}));  // gini 0.5 minus (0 + 0.25 + 0)
    // No classes: every risk is 0 and level 0 takes every branch.
    EXPECT_EQ(call(inputsOf(stump, "deviance", 0)), (Pruned{{0, 0, 0}, {0}}));
}

TEST(PruneInfo, SinglePrecisionComputesInSingle) {
    // 0.1f + 0.2f rounds to 0.3f in single, so the stump brings nothing; in
    // double the same values leave a d of 7.45e-9.
    const Record stump{{2, 3, 0, 0, 0, 0}, {0.3f, 0.1f, 0.2f}};
    EXPECT_EQ(prune<float>(stump), (Pruned{{0, 0, 0}, {0}}));
    EXPECT_EQ(prune<double>(stump).second.size(), 2u);
}

TEST(PruneInfo, VerboseLines) {
    auto in = inputsOf({{2, 3, 0, 0, 0, 0}, {1, 0.25, 0.25}});
    in[7] = zvhost::scalar(1.5);
    zvhost::ConsoleCapture console;
    call(in);  // verbose 1.5 counts as 1
    const std::string nodes0 =
        " node=0  leafcount=2   isleaf=0  risk=1  riskbranch=0.5\n"
        " node=1  leafcount=1   isleaf=1  risk=0.25  riskbranch=0.25\n"
        " node=2  leafcount=1   isleaf=1  risk=0.25  riskbranch=0.25\n";
    EXPECT_EQ(console.text(), nodes0 + " ===> Prune level 0 ===\n  nbranches=1   minAlpha=0   nToPrune=0\n" + nodes0 +
                                  " ===> Prune level 1 ===\n  nbranches=1   minAlpha=0.5   nToPrune=1\n");
}

TEST(PruneInfo, CountsNamesAndShortInputs) {
    zvtest::LeakCheck leaks;
    auto in = inputsOf({{2, 3, 0, 0, 0, 0}, {1, 0.25, 0.25}});
    // Identifier and count argument of what a call raises.
    auto raised = [&](int numOutputs, size_t numInputs) {
        auto raw = pointers(in);
        raw.resize(numInputs, raw[0]);
        try {
            zvhost::call(&classregtree::computePruneInfo, numOutputs, raw);
        } catch (const bedrock::core::except::IMsgIDException& e) {
            const auto& args = e.GetBaseMsgIDObj().args;
            return std::pair(e.GetID(), args.empty() ? -1L : std::get<long>(args[0]));
        }
        return std::pair(std::string(), -1L);
    };
    EXPECT_EQ(raised(1, 7), std::pair(kIds + "BadNumberOfInputArgs", 8L));
    EXPECT_EQ(raised(3, 9), std::pair(kIds + "BadNumberOfInputArgs", 8L));  // inputs first
    EXPECT_EQ(raised(3, 8), std::pair(kIds + "BadNumberOfOutputArgs", 2L));
    EXPECT_EQ(zvhost::call(&classregtree::computePruneInfo, 1, pointers(in)).size(), 1u);  // the levels only
    // No output asked for: nothing is computed, not even the criterion.
    in[6] = zvhost::text("mse");
    const auto none = zvhost::call(&classregtree::computePruneInfo, 0, pointers(in));
    EXPECT_TRUE(none.empty() || none[0] == nullptr);
    EXPECT_EQ(raised(1, 8).first, kIds + "BadClassificationCrit");
    const std::string badCriterion = "stats:classreg:learning:treeutils:SplitCriteriaFactory:make:BadCriterion";
    in[6] = zvhost::text("Gini");
    EXPECT_EQ(raised(1, 8).first, badCriterion);
    in[6] = zvhost::scalar(1);  // not text
    EXPECT_EQ(raised(1, 8).first, badCriterion);
    // An empty array of any class names no criterion: the risks are read as given.
    in[6] = zvhost::matrixOf<double>(0, 0);
    EXPECT_EQ(call(in), (Pruned{{1, 0, 0}, {0, 0.5}}));
    // Other classes are read as numbers; a risk one short reads NaN past its
    // end, which no alpha test keeps out, so the root goes at level 0.
    in[5] = zvhost::matrixOf<int32_t>(2, 3, {2, 3, 0, 0, 0, 0});
    EXPECT_EQ(call(in), (Pruned{{1, 0, 0}, {0, 0.5}}));
    in[3] = row<double>({1, 0.25});
    EXPECT_EQ(call(in), (Pruned{{0, 0, 0}, {0}}));
}

// ---- the engine against a whole-tree pass per level ---------------------------

// The bottom-up pass as a sweep over the whole tree each level (children have
// higher indices here, so one backward sweep finishes every node).
template <class T>
Pruned wholeTreePasses(const Record& r) {
    const size_t n = r.risk.size();
    std::vector<T> risk(r.risk.begin(), r.risk.end()), prob(r.prob.begin(), r.prob.end()), lost(n, 0), branch(n);
    std::vector<uint64_t> leaves(n);
    std::vector<char> leaf(n);
    auto child = [&](size_t i, int side) { return size_t(r.children[2 * i + side]) - 1; };
    for (size_t i = 0; i < n; ++i) {
        leaf[i] = r.children[2 * i] == 0;
        T share = 0;
        if (!leaf[i] && r.unrouted[i] && prob[i] > 0)
            share = std::max(T(0), T(1) - (prob[child(i, 0)] + prob[child(i, 1)]) / prob[i]);
        lost[i] = risk[i] * share;
    }
    const T tol = T(100) * T(kEps);
    Pruned p{V(n, 0), {}};
    auto& [levels, alphaList] = p;
    for (size_t level = 0; std::count(leaf.begin(), leaf.end(), 0) > 0; ++level) {
        std::vector<std::pair<size_t, T>> alphas;
        for (size_t i = n; i-- > 0;) {
            branch[i] = leaf[i] ? risk[i] : branch[child(i, 0)] + lost[i] + branch[child(i, 1)];
            leaves[i] = leaf[i] ? 1 : leaves[child(i, 0)] + leaves[child(i, 1)];
            const T d = risk[i] - branch[i];
            if (!leaf[i]) alphas.push_back({i, d <= std::abs(risk[i] + branch[i]) * tol ? T(0) : d / T(leaves[i] - 1)});
        }
        T minAlpha = 0;
        if (level > 0)
            minAlpha = std::min_element(alphas.begin(), alphas.end(), [](auto a, auto b) { return a.second < b.second; })->second;
        alphaList.push_back(minAlpha);
        std::vector<size_t> cut;
        for (auto [i, a] : alphas)
            if (!(a - minAlpha > std::abs(a + minAlpha) * tol)) cut.push_back(i);
        for (size_t k = 0; k < cut.size(); ++k)
            for (int side : {0, 1})
                if (!leaf[child(cut[k], side)]) cut.push_back(child(cut[k], side));
        for (size_t i : cut) levels[i] = double(level), leaf[i] = 1;
    }
    if (n > 0 && alphaList.empty()) alphaList.push_back(0);
    return p;
}

// A random tree grown by splitting random leaves; each split gives its
// children risks summing to at most the parent's, on a grid of 1/64 when
// `grid` so that alphas tie; `chain` splits only the newest node, which
// makes the tree as deep as it can be.
Record randomTree(size_t splits, unsigned seed, bool grid, bool chain) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<double> u(0, 1);
    Record r{{0, 0}, {grid ? 64.0 : 1.0}, {1.0}, {false}};
    std::vector<size_t> open = {0};
    for (size_t s = 0; s < splits; ++s) {
        const size_t pick = chain ? open.size() - 1 : size_t(u(gen) * double(open.size()));
        const size_t i = open[pick];
        open.erase(open.begin() + long(pick));
        r.children[2 * i] = double(r.risk.size() + 1), r.children[2 * i + 1] = double(r.risk.size() + 2);
        const double keep = u(gen), lost = u(gen) < 0.1 ? 0.2 : 0.0, split = u(gen);
        r.unrouted[i] = lost > 0;
        for (double share : {split, 1 - split}) {
            const double risk = r.risk[i] * keep * share;
            r.children.insert(r.children.end(), {0, 0});
            r.risk.push_back(grid ? std::floor(risk) : risk);
            r.prob.push_back(r.prob[i] * (1 - lost) * share);
            r.unrouted.push_back(false);
            open.push_back(r.risk.size() - 1);
        }
    }
    return r;
}

TEST(PruneInfo, AgreesWithWholeTreePassesOnRandomTrees) {
    zvtest::LeakCheck leaks;
    for (unsigned seed = 1; seed <= 12; ++seed) {
        const bool grid = seed % 2 == 0, chain = seed % 3 == 0;
        const Record r = randomTree(chain ? 60 : 300, seed, grid, chain);
        EXPECT_EQ(prune<double>(r), wholeTreePasses<double>(r)) << "seed " << seed;
        EXPECT_EQ(prune<float>(r), wholeTreePasses<float>(r)) << "seed " << seed;
    }
}

}  // namespace

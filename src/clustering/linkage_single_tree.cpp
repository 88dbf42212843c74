// Single linkage from a minimum spanning tree.
//
// When the merge heights are all distinct, single linkage has exactly one
// merge sequence: the tree's edges in ascending order. Any exact algorithm
// then writes the same rows, labels included, and the heights are input
// values copied unchanged. The tree comes from two passes over the caller's
// vector in storage order, with no private copy and no column walks:
//   1. every row's nearest neighbour (one round of Boruvka's algorithm); these
//      edges join the rows into components and all belong to the tree;
//   2. the least distance between every two components, into a small square
//      matrix on which Prim's algorithm adds the remaining edges.
// Anything that could make the choice among equal values matter (tied
// heights, NaN, infinities, negative values or -0) is reported back and left
// to the list algorithm.
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "clustering/linkage.hpp"
#include "clustering/linkage_updates.hpp"
#include "frame/scratch.hpp"

namespace zv::clustering {

namespace {

struct Edge {
    uint32_t a, b;
};

// Union-find over the rows with path halving.
struct Forest {
    std::vector<uint32_t> parent;
    explicit Forest(size_t n) : parent(n) { std::iota(parent.begin(), parent.end(), 0u); }
    uint32_t root(uint32_t v) {
        while (parent[v] != v) v = parent[v] = parent[parent[v]];
        return v;
    }
};

// A value the tie-free argument does not cover.
template <class T>
inline bool unusual(T v) {
    return std::signbit(v) | !(v <= std::numeric_limits<T>::max());
}

// The least distance from each component to each other, C-by-C and
// symmetric, from one pass over the rows grouped by component: a component's
// rows write only its own row of the matrix. Returns false on an unusual
// value anywhere in the vector.
template <class T>
bool componentDistances(const T* y, size_t n, const uint32_t* comp, const uint32_t* members,
                        const size_t* memberStart, size_t C, T* m) {
    std::vector<char> bad(C, 0);
    const T inf = std::numeric_limits<T>::infinity();
    tbb::parallel_for(tbb::blocked_range<size_t>(0, C, 1), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t a = r.begin(); a != r.end(); ++a) {
            T* to = m + a * C;
            std::fill(to, to + C, inf);
            bool seen = false;
            for (size_t at = memberStart[a]; at < memberStart[a + 1]; ++at) {
                const size_t i = members[at];
                const T* row = y + distance::condensedRowStart(i, n) - i - 1;
                for (size_t j = i + 1; j < n; ++j) {
                    const T v = row[j];
                    seen |= unusual(v);
                    T& cell = to[comp[j]];
                    cell = v < cell ? v : cell;
                }
            }
            bad[a] = seen;
        }
    });
    if (std::find(bad.begin(), bad.end(), 1) != bad.end()) return false;
    // Pairs stored in the other component's rows: keep the lesser of the two.
    constexpr size_t kTile = 64;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, (C + kTile - 1) / kTile, 1), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t ta = r.begin(); ta != r.end(); ++ta)
            for (size_t b0 = ta * kTile; b0 < C; b0 += kTile)
                for (size_t a = ta * kTile; a < std::min(C, (ta + 1) * kTile); ++a)
                    for (size_t b = std::max(b0, a + 1); b < std::min(C, b0 + kTile); ++b) {
                        const T v = std::min(m[a * C + b], m[b * C + a]);
                        m[a * C + b] = m[b * C + a] = v;
                    }
    });
    return true;
}

// Prim's algorithm on the dense C-by-C matrix; appends C - 1 edges between
// components, as pairs of component numbers.
template <class T>
void primOnComponents(const T* m, size_t C, std::vector<Edge>& edges, std::vector<T>& weights) {
    std::vector<T> best(m, m + C);
    std::vector<uint32_t> from(C, 0);
    std::vector<char> joined(C, 0);
    joined[0] = 1;
    for (size_t step = 1; step < C; ++step) {
        size_t c = C;
        for (size_t b = 0; b < C; ++b)
            if (!joined[b] && (c == C || best[b] < best[c])) c = b;
        joined[c] = 1;
        edges.push_back(Edge{from[c], uint32_t(c)});
        weights.push_back(best[c]);
        const T* row = m + c * C;
        for (size_t b = 0; b < C; ++b)
            if (!joined[b] && row[b] < best[b]) best[b] = row[b], from[b] = uint32_t(c);
    }
}

}  // namespace

template <class T>
bool singleLinkageByTree(const T* y, size_t n, const MergeTable<T>& out) {
    if (n < 2) return true;
    // Rows are kept as 32-bit numbers; such a vector would not fit in memory.
    if (n > std::numeric_limits<uint32_t>::max()) return false;

    // Each row's nearest neighbour, the last of equal values, is the least
    // edge at that row under one strict order of all edges (by value, then
    // by the larger end, descending); so these edges all lie in the tree of
    // that order, whatever the ties.
    Scratch<uint64_t> nnidx(n);
    Scratch<T> nndist(n);
    initialNeighbours(y, n, nnidx.get(), nndist.get());
    Forest forest(n);
    std::vector<Edge> edges;
    std::vector<T> weights;
    edges.reserve(n - 1);
    weights.reserve(n - 1);
    for (size_t v = 0; v < n; ++v) {
        if (nnidx[v] >= n) return false;  // a row of NaNs
        const uint32_t a = forest.root(uint32_t(v)), b = forest.root(uint32_t(nnidx[v]));
        if (a == b) continue;  // the same edge seen from its other end
        forest.parent[a] = b;
        edges.push_back(Edge{uint32_t(v), uint32_t(nnidx[v])});
        weights.push_back(nndist[v]);
    }

    // Components numbered in order of their first row, rows grouped by them.
    std::vector<uint32_t> comp(n);
    size_t C = 0;
    {
        std::vector<uint32_t> number(n, UINT32_MAX);
        for (size_t v = 0; v < n; ++v) {
            uint32_t& c = number[forest.root(uint32_t(v))];
            if (c == UINT32_MAX) c = uint32_t(C++);
            comp[v] = c;
        }
    }
    std::vector<size_t> memberStart(C + 1, 0);
    for (size_t v = 0; v < n; ++v) ++memberStart[comp[v] + 1];
    std::partial_sum(memberStart.begin(), memberStart.end(), memberStart.begin());
    std::vector<uint32_t> members(n);
    {
        std::vector<size_t> next(memberStart.begin(), memberStart.end() - 1);
        for (size_t v = 0; v < n; ++v) members[next[comp[v]]++] = uint32_t(v);
    }

    Scratch<T> between(C * C);
    if (!componentDistances(y, n, comp.data(), members.data(), memberStart.data(), C, between.get())) return false;
    const size_t own = edges.size();
    primOnComponents(between.get(), C, edges, weights);
    // Each edge between components needs its own two rows: the labels are
    // those of the clusters the rows are in when the edge's turn comes. They
    // are a pair of rows, one from each component, at exactly that distance;
    // components are small, and each pair of them is searched at most once.
    auto rowsAt = [&](uint32_t A, uint32_t B, T w) {
        for (size_t p = memberStart[A]; p < memberStart[A + 1]; ++p)
            for (size_t q = memberStart[B]; q < memberStart[B + 1]; ++q) {
                const size_t i = members[p], j = members[q];
                if (y[distance::condensedPairIndex(i, j, n)] == w)
                    return Edge{uint32_t(i), uint32_t(j)};
            }
        return Edge{members[memberStart[A]], members[memberStart[B]]};  // not reached: w is such a distance
    };
    for (size_t e = own; e < edges.size(); ++e) edges[e] = rowsAt(edges[e].a, edges[e].b, weights[e]);

    // Merges in ascending height; two equal heights leave the order to the
    // list algorithm's tie rule.
    std::vector<uint32_t> order(n - 1);
    std::iota(order.begin(), order.end(), 0u);
    std::sort(order.begin(), order.end(), [&](uint32_t x, uint32_t z) { return weights[x] < weights[z]; });
    for (size_t k = 1; k + 1 < n; ++k)
        if (!(weights[order[k - 1]] < weights[order[k]])) return false;

    // Each root carries its cluster's label.
    Forest clusters(n);
    std::vector<uint64_t> label(n);
    std::iota(label.begin(), label.end(), uint64_t(0));
    for (size_t k = 0; k + 1 < n; ++k) {
        const Edge& ed = edges[order[k]];
        const uint32_t ra = clusters.root(ed.a), rb = clusters.root(ed.b);
        out.write(k, label[ra], label[rb], weights[order[k]]);
        clusters.parent[ra] = rb;
        label[rb] = uint64_t(n + k);
    }
    return true;
}

template bool singleLinkageByTree<double>(const double*, size_t, const MergeTable<double>&);
template bool singleLinkageByTree<float>(const float*, size_t, const MergeTable<float>&);

}  // namespace zv::clustering

// The tree as it leaves the library: 24 parallel arrays, one row (or column)
// per node, indices 1-based with 0 for none. Only the fields asked for are made.
#pragma once

#include <cmath>
#include <cstring>

#include "classregtree/tree.hpp"
#include "frame/gateway.hpp"
#include "host/matrix.hpp"

namespace zv::classregtree {

inline constexpr int kTreeRecordFields = 24;

namespace record_detail {

using Owned = matrix::unique_nd_ptr;

template <class T>
Owned row(const std::vector<T>& values) {
    Owned a = createMatrix<T>(1, values.size());
    if (!values.empty()) std::memcpy(ndGetData(a.get()), values.data(), values.size() * sizeof(T));
    return a;
}

// rows by n: a column of `rows` values per node.
template <class T, class S, class F>
Owned perNode(size_t n, size_t rows, F&& value) {
    Owned a = createMatrix<T>(rows, n);
    T* d = dataOf<T>(a.get());
    for (size_t i = 0; i < n; ++i)
        for (size_t r = 0; r < rows; ++r) d[i * rows + r] = T(S(value(i, r)));
    return a;
}

// n by 1: one value per node.
template <class T, class S, class F>
Owned nodeColumn(size_t n, F&& value) {
    Owned a = createMatrix<T>(n, 1);
    T* d = dataOf<T>(a.get());
    for (size_t i = 0; i < n; ++i) d[i] = T(S(value(i)));
    return a;
}

inline Owned cell(size_t m, size_t n) { return Owned(ndCreateCellMatrix(m, n)); }

}  // namespace record_detail

// Field k of the record in made[k], for k below `fields`.
template <class X, class Y, class W>
void exportTreeRecord(const Tree<X, Y, W>& tree, int fields, bool doubleOutput, bool withBins,
                      matrix::unique_nd_ptr* made) {
    using namespace record_detail;
    using XOut = std::conditional_t<std::is_integral_v<X>, int32_t, X>;
    const auto& data = tree.data();
    const size_t n = tree.numNodes(), K = data.numClassesOut;
    const auto node = [&](size_t i) -> const Node<X, Y, W>& { return tree.node(i); };
    const bool regression = data.isRegression();
    const bool singleOut = regression && !doubleOutput;
    // Value, risk and gain: double for classification, and for regression
    // when response and weights are double.
    const auto valueField = [&](auto member) {
        return singleOut ? nodeColumn<float, W>(n, [&](size_t i) { return node(i).*member; })
                         : nodeColumn<double, W>(n, [&](size_t i) { return node(i).*member; });
    };
    const auto surrogateCells = [&](auto&& perNodeValue) {
        if (data.options.numSurrogates == 0) return cell(0, 0);
        Owned c = cell(n, 1);
        for (size_t i = 0; i < n; ++i) ndSetCell(c.get(), i, perNodeValue(node(i)).release());
        return c;
    };
    for (int k = 0; k < fields && k < kTreeRecordFields; ++k) {
        Owned& out = made[k];
        switch (k) {
        case 0:
            out = perNode<double, double>(n, 2, [&](size_t i, size_t r) {
                const uint64_t child = r == 0 ? node(i).left_ : node(i).right_;
                return child == 0 ? 0.0 : double(child + 1);
            });
            break;
        case 1:
            out = createMatrix<double>(K, n);  // created zero: only the classes with rows are written
            for (size_t i = 0; i < n; ++i)
                for (size_t c = 0; c < data.numClasses; ++c)
                    dataOf<double>(out.get())[i * K + data.classOut(c)] = double(node(i).classCount_[c]);
            break;
        case 2:
            out = createMatrix<W>(K, n);
            for (size_t i = 0; i < n; ++i) {
                W* column = dataOf<W>(out.get()) + i * K;
                const W absent = W(0) / node(i).weight_;  // 0, or NaN without weight
                if (!regression && data.numClasses < K && !(absent == 0 && !std::signbit(absent)))
                    std::fill(column, column + K, absent);
                for (size_t c = 0; c < data.numClasses; ++c) column[data.classOut(c)] = node(i).classProb_[c];
            }
            break;
        case 3:
            if (!data.options.curvature) {
                out = cell(0, 0);
                break;
            }
            out = cell(n, 1);
            for (size_t i = 0; i < n; ++i) {
                const auto& tests = node(i).curvaturePValues_;
                if (tests.empty()) continue;
                Owned m = createMatrix<double>(tests.size(), 2);
                double* d = dataOf<double>(m.get());
                for (size_t t = 0; t < tests.size(); ++t) {
                    d[t] = double(tests[t].first + 1);
                    d[t + tests.size()] = tests[t].second;
                }
                ndSetCell(out.get(), i, m.release());
            }
            break;
        case 4:
            out = cell(n, 2);
            for (size_t i = 0; i < n; ++i) {
                const auto& l = node(i).cutCategoriesLeft_;
                const auto& r = node(i).cutCategoriesRight_;
                if (l.empty() && r.empty()) continue;
                ndSetCell(out.get(), i, row(std::vector<XOut>(l.begin(), l.end())).release());
                ndSetCell(out.get(), n + i, row(std::vector<XOut>(r.begin(), r.end())).release());
            }
            break;
        case 5: out = nodeColumn<XOut, X>(n, [&](size_t i) { return node(i).cutPoint_; }); break;
        case 6:
            // n by 2: the left bins, then the right bins; n by 0 without binned predictors.
            out = createMatrix<double>(n, withBins ? 2 : 0);
            if (withBins) {
                double* d = dataOf<double>(out.get());
                for (size_t i = 0; i < n; ++i) {
                    d[i] = double(node(i).cutBinLeft_ + 1);
                    d[n + i] = double(node(i).cutBinRight_ + 1);
                }
            }
            break;
        case 7: out = nodeColumn<double, double>(n, [&](size_t i) { return double(node(i).cutVar_ + 1); }); break;
        case 8: out = nodeColumn<bool, bool>(n, [&](size_t i) { return node(i).hasUnroutedRows_; }); break;
        case 9:
            if (!data.options.interaction) {
                out = cell(0, 0);
                break;
            }
            out = cell(n, 1);
            for (size_t i = 0; i < n; ++i) {
                const auto& tests = node(i).interactionPValues_;
                if (tests.empty()) continue;
                const size_t m = tests.size();
                Owned a = createMatrix<double>(m, 3);
                double* d = dataOf<double>(a.get());
                for (size_t t = 0; t < m; ++t) {
                    d[t] = double(std::get<0>(tests[t]) + 1);
                    d[t + m] = double(std::get<1>(tests[t]) + 1);
                    d[t + 2 * m] = std::get<2>(tests[t]);
                }
                ndSetCell(out.get(), i, a.release());
            }
            break;
        case 10: out = nodeColumn<bool, bool>(n, [&](size_t i) { return node(i).isBranch(); }); break;
        case 11: out = valueField(&Node<X, Y, W>::value_); break;
        case 12: out = nodeColumn<W, W>(n, [&](size_t i) { return node(i).weight_; }); break;
        case 13: out = nodeColumn<double, double>(n, [&](size_t i) { return double(node(i).size_); }); break;
        case 14: out = nodeColumn<double, double>(n, [&](size_t i) { return double(node(i).parent_ + 1); }); break;
        case 15: out = valueField(&Node<X, Y, W>::risk_); break;
        case 16: out = valueField(&Node<X, Y, W>::gain_); break;
        case 17:
            out = surrogateCells([&](const Node<X, Y, W>& nd) {
                const size_t s = nd.surrogateVars_.size();
                Owned c = cell(1, s);
                for (size_t j = 0; j < s; ++j) {
                    const auto& [l, r] = nd.surrogateCategories_[j];
                    if (!data.isCategorical[nd.surrogateVars_[j]]) {
                        const size_t dims[2] = {0, 0};
                        ndSetCell(c.get(), j, ndCreateCharArray(2, dims));
                        continue;
                    }
                    Owned pair = cell(1, 2);
                    ndSetCell(pair.get(), 0, row(std::vector<XOut>(l.begin(), l.end())).release());
                    ndSetCell(pair.get(), 1, row(std::vector<XOut>(r.begin(), r.end())).release());
                    ndSetCell(c.get(), j, pair.release());
                }
                return c;
            });
            break;
        case 18:
            out = surrogateCells([](const Node<X, Y, W>& nd) {
                return row(std::vector<double>(nd.surrogateFlips_.begin(), nd.surrogateFlips_.end()));
            });
            break;
        case 19:
            out = surrogateCells([](const Node<X, Y, W>& nd) {
                return row(std::vector<XOut>(nd.surrogateCutPoints_.begin(), nd.surrogateCutPoints_.end()));
            });
            break;
        case 20:
            out = surrogateCells([](const Node<X, Y, W>& nd) {
                const size_t s = nd.surrogateBins_.size();
                Owned c = cell(1, s);
                for (size_t j = 0; j < s; ++j) {
                    const auto& b = nd.surrogateBins_[j];
                    const bool none = b[0] < 0 || b[1] < 0;
                    Owned pair = createMatrix<double>(none ? 0 : 1, none ? 0 : 2);
                    if (!none) {
                        dataOf<double>(pair.get())[0] = double(b[0] + 1);
                        dataOf<double>(pair.get())[1] = double(b[1] + 1);
                    }
                    ndSetCell(c.get(), j, pair.release());
                }
                return c;
            });
            break;
        case 21:
            out = surrogateCells([](const Node<X, Y, W>& nd) {
                std::vector<double> vars;
                for (int64_t v : nd.surrogateVars_) vars.push_back(double(v + 1));
                return row(vars);
            });
            break;
        case 22: out = surrogateCells([](const Node<X, Y, W>& nd) { return row(nd.surrogateGains_); }); break;
        case 23: out = surrogateCells([](const Node<X, Y, W>& nd) { return row(nd.surrogateAssociations_); }); break;
        }
    }
}

}  // namespace zv::classregtree

// What the distance suites share: the condensed gateway on plain vectors,
// sparse columns by their stored entries, and the checks every gateway of the
// family passes (NaN results, thread-count independence, interruption).
#pragma once

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "support/gateways.hpp"

namespace zvtest::distance {

using zvhost::Owned;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// pdistbif on p-by-n data, column-major; checks the shape and class.
template <class T>
std::vector<T> pdist(const std::vector<T>& x, size_t p, size_t n, const std::string& code,
                     const ndArray* extra = nullptr) {
    Owned xa = zvhost::matrixOf<T>(p, n, std::span<const T>(x));
    Owned ca = zvhost::text(code);
    auto out = extra ? zvhost::call(pdistbif, 1, {xa.get(), ca.get(), extra})
                     : zvhost::call(pdistbif, 1, {xa.get(), ca.get()});
    EXPECT_EQ(ndGetM(out[0].get()), 1u);
    EXPECT_EQ(ndGetClassID(out[0].get()), zvhost::hostClassOf<T>());
    return zvhost::valuesOf<T>(out[0].get());
}

// One column of a sparse matrix by its stored entries, rows ascending.
struct Column {
    std::vector<size_t> rows;
    std::vector<double> values;
};

inline Owned sparseOf(size_t p, const std::vector<Column>& columns) {
    size_t nnz = 0;
    for (const Column& c : columns) nnz += c.rows.size();
    Owned a(zvhost::createSparse(p, columns.size(), nnz));
    auto* values = static_cast<double*>(ndGetData(a.get()));
    size_t* rows = ndGetRowIndices(a.get());
    size_t* starts = ndGetColumnStarts(a.get());
    size_t k = 0;
    for (size_t j = 0; j < columns.size(); ++j) {
        starts[j] = k;
        for (size_t e = 0; e < columns[j].rows.size(); ++e, ++k) {
            rows[k] = columns[j].rows[e];
            values[k] = columns[j].values[e];
        }
    }
    starts[columns.size()] = k;
    return a;
}

template <class T>
void expectAllNaN(const std::vector<T>& v, const std::string& what = "") {
    for (size_t i = 0; i < v.size(); ++i) ASSERT_TRUE(std::isnan(v[i])) << what << " at " << i;
}

// f() gives the same values, bit for bit, on one thread and on two.
template <class F>
void expectThreadCountFree(F&& f, const std::string& what = "") {
    SCOPED_TRACE(what);
    auto one = withThreads(1, f);
    auto two = withThreads(2, f);
    expectBitEqual(one, two);
}

// An interruption at the third poll of call() reaches the caller, with
// nothing left behind, and the next call runs as if it had never been made.
template <class F>
void expectInterruptible(F&& call, const std::string& what = "") {
    {
        LeakCheck leaks;
        zvhost::interruptAfterPolls(3);
        EXPECT_EQ(raisedId([&] { withThreads(2, call); }), "zvhost:Interrupted") << what;
    }
    EXPECT_FALSE(call().empty()) << what;
}

}  // namespace zvtest::distance

// What the sampling suites share: a scope that lends the default stream to a
// scripted or seeded one, the identifier of a call, and small array builders.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "support/gateways.hpp"

namespace zvtest {

// Replaces the default stream for the life of the scope.
class DefaultStreamScope {
public:
    explicit DefaultStreamScope(std::shared_ptr<RandStream> stream) : saved_(zvhost::defaultStream()) {
        zvhost::setDefaultStream(std::move(stream));
    }
    ~DefaultStreamScope() { zvhost::setDefaultStream(saved_); }

private:
    std::shared_ptr<RandStream> saved_;
};

using Requests = std::vector<std::pair<char, size_t>>;

// The requests of a scripted stream as (kind, count) pairs.
inline Requests requestsOf(const zvhost::ScriptedStream& s) {
    Requests out;
    for (const auto& r : s.requests()) out.emplace_back(r.kind, r.count);
    return out;
}

// The identifier that a call raises, or "" if it returns.
inline std::string idOf(zvhost::Gateway gateway, int numOutputs, const std::vector<const ndArray*>& inputs) {
    return raisedId([&] { zvhost::call(gateway, numOutputs, inputs); });
}

inline std::vector<size_t> dimsOf(const ndArray* a) {
    return std::vector<size_t>(ndGetDimensions(a), ndGetDimensions(a) + ndGetNumberOfDimensions(a));
}

template <class T>
zvhost::Owned row(const std::vector<T>& v) {
    return zvhost::matrixOf<T>(1, v.size(), std::span<const T>(v));
}

// A 1-by-k cell of double rows; a true entry of `empty` leaves its slot empty.
inline zvhost::Owned cellOfRows(const std::vector<std::vector<double>>& rows, const std::vector<bool>& empty = {}) {
    zvhost::Owned cell(ndCreateCellMatrix(1, rows.size()));
    for (size_t i = 0; i < rows.size(); ++i)
        if (i >= empty.size() || !empty[i]) ndSetCell(cell.get(), i, row(rows[i]).release());
    return cell;
}

}  // namespace zvtest

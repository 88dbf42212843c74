// The random-number gateways the sampling tests call, and a scope that lends
// the host's default stream to a scripted or seeded stream.
#pragma once

#include <memory>
#include <vector>

#include "support/gateways.hpp"
#include "gateway_declarations.hpp"

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

// The requests of a scripted stream as (kind, count) pairs.
inline std::vector<std::pair<char, size_t>> requestsOf(const zvhost::ScriptedStream& s) {
    std::vector<std::pair<char, size_t>> out;
    for (const auto& r : s.requests()) out.emplace_back(r.kind, r.count);
    return out;
}

}  // namespace zvtest

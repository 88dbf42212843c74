// For test programs that link the library's objects: lets the host's own
// "pdist" and "pdist2" reach the linked gateways, as BuiltinsLibrary does for
// the loaded library.
#pragma once

#include <string_view>

#include "support/gateways.hpp"

namespace zvtest {

inline void useLinkedGateways() {
    static const int owner = 0;
    zvhost::setGatewayResolver([](std::string_view name) { return zv::generated::linkedGateway(name); }, &owner);
}

}  // namespace zvtest

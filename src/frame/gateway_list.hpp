// The gateway list as a table, for the programs that load the library and
// need to know which gateways it should export.
#pragma once

namespace zv::frame {

struct GatewayEntry {
    const char* name;  // the C++ name, namespaces included
    bool implemented;
};

inline constexpr GatewayEntry kGateways[] = {
#define ZV_GATEWAY(NAME, IMPLEMENTED) {NAME, IMPLEMENTED != 0},
#include "frame/gateways.def"
#undef ZV_GATEWAY
};

}  // namespace zv::frame

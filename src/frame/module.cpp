// Module life cycle, load-time constants and the host's fault-injection call.
#include <bit>
#include <cstdint>
#include <vector>

#include "frame/constants.hpp"
#include "frame/gateway.hpp"

namespace zv::constants {
// Set by load-time initialisers; the host array interface is usable by then.
const double nan = std::bit_cast<double>(uint64_t{0xFFF8000000000000ull});
const double inf = std::bit_cast<double>(uint64_t{0x7FF0000000000000ull});
const double eps = ndGetEps();
}  // namespace zv::constants

extern "C" ZV_EXPORT void ModInitialize_libzvstatsbuiltins() {}
extern "C" ZV_EXPORT void ModTerminate_libzvstatsbuiltins() {}

// Evaluates a host-language function under the host's fault injection:
// inputs[0] names it, the rest are its inputs.
ZV_DEFINE_GATEWAY(probeCallFunction) {
    if (numInputs <= 0) return;
    std::vector<const ndArray*> copy(inputs, inputs + numInputs);
    std::string name = hostUstringToString(hostGetUStringFromArray(copy[0], 0, HostStringMode{}), 0);
    HostDiagnostic diag = hostFunctionCall(numOutputs, outputs, numInputs - 1, copy.data() + 1,
                                           name.c_str(), 1);
    if (!diag) return;
    copy.clear();
    copy.shrink_to_fit();
    hostThrowFromDiagnostic(&diag, nullptr);
}

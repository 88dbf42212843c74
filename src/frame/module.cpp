// Module life cycle, load-time constants and the host's fault-injection call.
#include <algorithm>
#include <bit>
#include <cstdint>

#include "frame/constants.hpp"
#include "frame/gateway.hpp"
#include "frame/scratch.hpp"

namespace zv::constants {
// Set by load-time initialisers; the host array interface is usable by then.
const double nan = std::bit_cast<double>(uint64_t{0xFFF8000000000000ull});
const double inf = std::bit_cast<double>(uint64_t{0x7FF0000000000000ull});
const double eps = ndGetEps();
}  // namespace zv::constants

extern "C" ZV_EXPORT void ModInitialize_libzvstatsbuiltins() {}
extern "C" ZV_EXPORT void ModTerminate_libzvstatsbuiltins() {}

// Evaluates a host-language function under the host's fault injection:
// inputs[0] names it, the rest are its inputs. The private copy of the handles
// is gone before a failure of the function is thrown.
ZV_DEFINE_GATEWAY(probeCallFunction) {
    if (numInputs <= 0) return;
    HostDiagnostic diag;
    {
        const zv::Scratch<const ndArray*> copy{size_t(numInputs)};
        std::copy(inputs, inputs + numInputs, copy.get());
        const std::string name = hostUstringToString(hostGetUStringFromArray(copy[0], 0, HostStringMode{}), 0);
        diag = hostFunctionCall(numOutputs, outputs, numInputs - 1, copy.get() + 1, name.c_str(), 1);
    }
    if (diag) hostThrowFromDiagnostic(&diag, nullptr);
}

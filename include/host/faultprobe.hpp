// Named fault probes of the host's test support.
#pragma once

#include <cstdint>
#include <memory>

#include "host/interrupt.hpp"
#include "host/ndarray.hpp"

namespace faultprobe {

// How the tree engines hand the interrupt handle down to each column.
struct InterruptState {
    std::shared_ptr<InterruptStateData> state;
};

class ZV_HOST_API ProbeExceptionTester {
public:
    // 0xFFFFFFFF: no tester is active.
    static uint32_t staticTesterMode;
    static constexpr uint32_t kInactive = 0xFFFFFFFFu;

    virtual ~ProbeExceptionTester();
    // Acts as if the user asked for an interruption: the next poll throws.
    virtual void emulateCtrlC(InterruptState& state);
    virtual void emulateCtrlC();
};

ZV_HOST_API void CreateTesterByName(void* reserved1, void* reserved2, const char* name);
ZV_HOST_API ProbeExceptionTester* GetTesterByName(void* reserved1, void* reserved2,
                                                  const char* name);

}  // namespace faultprobe

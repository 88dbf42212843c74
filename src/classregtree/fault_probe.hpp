// Named fault-probe sites of the tree engines: with no tester active (the
// usual case) a site costs one load and one comparison.
#pragma once

#include "host/faultprobe.hpp"

namespace zv::classregtree {

inline void probeSite(const char* name, faultprobe::InterruptState* state = nullptr) {
    using Tester = faultprobe::ProbeExceptionTester;
    if (Tester::staticTesterMode == Tester::kInactive) return;
    faultprobe::CreateTesterByName(nullptr, nullptr, name);
    if (Tester* tester = faultprobe::GetTesterByName(nullptr, nullptr, name)) {
        if (state) tester->emulateCtrlC(*state);
        else tester->emulateCtrlC();
    }
}

// Polls for interruption when the host handed a state.
inline void pollInterrupt(const faultprobe::InterruptState* state) {
    if (state && state->state) InterruptState::ThrowIfInterruptPending(state->state);
}

}  // namespace zv::classregtree

// Host interruption: the per-thread handle engines copy into their bodies.
#pragma once

#include <memory>

#include "host/ndarray.hpp"

struct InterruptStateData;  // host record, opaque to the library

// The calling host thread's handle. Host thread only.
ZV_HOST_API const std::shared_ptr<InterruptStateData>& hostGetInterruptStateData();

class ZV_HOST_API InterruptState {
public:
    // Returns when nothing is pending on `state` (or it is null), throws the
    // host's interruption otherwise. Any thread; cheap when nothing is pending.
    static void ThrowIfInterruptPending(const std::shared_ptr<InterruptStateData>& state);
    // The same for the calling host thread's own state. Host thread only.
    static void ThrowIfInterruptPending();
};

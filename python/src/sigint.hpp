// Ctrl-C during a gateway call. The call runs with the GIL released, so
// Python's own SIGINT handling cannot stop it; while it runs, SIGINT instead
// marks the host's interruption pending on the calling thread's handle, and
// the gateway's next poll throws, as under the real host.
#pragma once

#include <csignal>

namespace zvpy {

// Lives around one call, constructed and destroyed with the GIL held. Only
// the outermost call on Python's main thread takes SIGINT over, and only
// while Python's handler is the default one that raises KeyboardInterrupt.
class SigintRelay {
public:
    SigintRelay();
    ~SigintRelay();
    SigintRelay(const SigintRelay&) = delete;
    SigintRelay& operator=(const SigintRelay&) = delete;
    // True when SIGINT arrived while this relay was in place.
    bool signalled() const;

private:
    bool installed_ = false;
    struct sigaction previous_ {};
};

}  // namespace zvpy

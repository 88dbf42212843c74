// SIGINT relay: from the signal to the interrupt handle of the calling thread.
#include "sigint.hpp"

#include <atomic>

#include <pybind11/pybind11.h>

#include "host/faultprobe.hpp"
#include "zvhost/control.hpp"

namespace zvpy {

namespace py = pybind11;

namespace {

std::atomic<bool> sigintSeen{false};
std::atomic<bool> handleReady{false};
// The calling thread's handle, taken before the call: the signal may be
// delivered on any thread, a TBB worker included, and the host's own
// per-thread state is not to be touched from a signal handler.
faultprobe::InterruptState callHandle;
// emulateCtrlC marks a given handle pending exactly as a user's Ctrl-C does
// (one atomic store), which is all a signal handler may do.
faultprobe::ProbeExceptionTester ctrlC;

thread_local int callDepth = 0;

extern "C" void onSigint(int) {
    sigintSeen.store(true);
    if (handleReady.load()) ctrlC.emulateCtrlC(callHandle);
}

bool pythonWouldRaiseKeyboardInterrupt() {
    py::module_ threading = py::module_::import("threading");
    if (!threading.attr("current_thread")().is(threading.attr("main_thread")())) return false;
    py::module_ signal = py::module_::import("signal");
    return signal.attr("getsignal")(signal.attr("SIGINT")).is(signal.attr("default_int_handler"));
}

}  // namespace

SigintRelay::SigintRelay() {
    if (++callDepth != 1 || !pythonWouldRaiseKeyboardInterrupt()) return;
    callHandle.state = hostGetInterruptStateData();
    sigintSeen.store(false);
    handleReady.store(true);
    struct sigaction relay {};
    relay.sa_handler = onSigint;
    sigemptyset(&relay.sa_mask);
    relay.sa_flags = SA_ONSTACK | SA_RESTART;
    installed_ = sigaction(SIGINT, &relay, &previous_) == 0;
    if (!installed_) handleReady.store(false);
}

SigintRelay::~SigintRelay() {
    --callDepth;
    if (!installed_) return;
    handleReady.store(false);
    sigaction(SIGINT, &previous_, nullptr);
    // A signal that came after the call ended must not reach the next one.
    zvhost::clearInterrupt();
}

bool SigintRelay::signalled() const { return installed_ && sigintSeen.load(); }

}  // namespace zvpy

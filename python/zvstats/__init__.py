"""zvstats: the statistics builtins, called from Python through the reference host.

Importing the package loads ``libzvstatsbuiltins.so`` with dlopen (from the
build tree the package sits in, or from ``$ZVSTATS_LIBRARY``) and runs its
module initialiser once.

Calling a gateway
-----------------
``call(name, nout, *inputs)`` calls the exported gateway ``name`` by its C++
name (``"pdistbif"``, ``"classregtree::growTree"``) with ``nout`` as the number
of outputs asked for, and returns the outputs that the gateway set, in slot
order, as a list. A name that the library does not export raises
``HostError`` with identifier ``"zvhost:UndefinedGateway"``.

Inputs become host arrays (always copies)::

    numpy float64 / float32          double / single, same shape
    numpy int8..int64, uint8..uint64 the integer class of that width
    numpy bool                       logical
    numpy complex128 / complex64     complex double / single
    numpy object or str array        cell of the same shape
    1-D array of n                   1-by-n row; N-D shapes are kept, with
                                     trailing singleton dimensions dropped
    0-D array, numpy scalar          1-by-1 of its dtype's class
    Python float or int              1-by-1 double
    Python bool                      1-by-1 logical
    Python complex                   1-by-1 complex double
    None                             0-by-0 double
    str                              char row (UTF-16)
    list or tuple of n values        1-by-n cell
    scipy.sparse matrix              sparse double (compressed columns)
    RandStream(seed)                 a random-stream object sharing the stream
    Array(cls, shape, data)          any host class by name, e.g. "int8",
                                     "gpuArray", "string" (data: the text),
                                     "function_handle" (data: the name),
                                     "complex", "char", "cell", "sparse"

Outputs come back as numpy arrays of the matching dtype with the host's
shape (at least 2-D: a 1-by-n row has shape ``(1, n)``), char rows as
``str`` (a char matrix as a numpy array of one-letter strings), cells as
numpy object arrays, sparse arrays as ``scipy.sparse.csc_matrix``, and any
other object (a "gpuArray", "string", stream, function handle) as an
``Array`` whose ``cls``, ``shape`` and ``value`` describe it. Complex host
arrays hold all real parts first, then all imaginary parts, so a gateway
that reads one as real sees its real part.

Errors
------
A gateway's error raises ``HostError`` with ``.identifier`` (such as
``"stats:pdistbif:TooFewInputs"``, or the host's own ``"zvhost:TooFewInputs"``
for its fixed messages) and ``.args``, the message arguments (int or str).
The host's interruption raises ``KeyboardInterrupt``; its allocation failure
``MemoryError``.

The call runs with the GIL released. While a call made on the main thread
runs, Ctrl-C (SIGINT) marks the host's interruption pending, so the
gateway's next poll stops it and ``KeyboardInterrupt`` is raised; a SIGINT
that arrives after the last poll still raises ``KeyboardInterrupt`` and
discards the result. Python's handler is back in place when the call
returns. Calls may come from several Python threads, but the host is meant to
be driven from one.

Host-language functions
-----------------------
``register(name, fn)`` serves the host function ``name`` (as called by a
gateway through hostCallFunction) with a Python callable ``fn(nout,
*inputs)``; inputs are converted like outputs above, and ``fn`` returns a list
(or tuple) of outputs, a single value, or None for no output. An exception
that ``fn`` raises travels through the gateway as a host error
(``"zvhost:python:<ExceptionClass>"``; a ``HostError`` keeps its identifier)
and comes back out of ``call`` as the very same exception;
``KeyboardInterrupt`` becomes the host's interruption.
``unregister(name)`` removes it. The gateway ``probeCallFunction`` calls a
registered function by name: ``call("probeCallFunction", nout, "fn", *args)``.

Control and accounting
----------------------
``seed(n)``, ``randu(n)``, ``randn(n)``: the host's default stream.
``capture()``: a context manager whose ``.text`` and ``.flushes`` hold the
console text that the host printed inside it; readable after exit.
``interrupt_after(n)``: the n-th interrupt poll of the next call raises the
host's interruption (``KeyboardInterrupt``); call it on the calling thread.
``fail_allocation_at(n, kinds="any")``: the n-th host allocation of the given
kinds ("scratch", "worker", "arrays", "any", a list of them, or a bit mask)
made by the next call, counted after its inputs are converted, fails; the
arming ends with that call.
``usage()``: live host arrays and scratch blocks, for leak tests.
``list()``: (name, implemented) for every gateway of the library.
``call_log()``, ``reset_call_log()``: the host functions called so far.
``warnings()``: the warnings the host received since the last look, as
(identifier, args) pairs.
"""

from . import _zvstats as _core


class HostError(Exception):
    """An error raised by a gateway or by the host under a message identifier.

    ``identifier`` is "component:id" (e.g. "stats:pdistbif:TooFewInputs");
    ``args`` holds the message arguments, int for numbers and str for text.
    """

    def __init__(self, identifier, *args, message=None):
        super().__init__(*args)
        self.identifier = identifier
        self.message = message if message is not None else identifier

    def __str__(self):
        return self.message

    def __repr__(self):
        return "HostError(" + ", ".join(repr(a) for a in (self.identifier,) + self.args) + ")"


_core._set_host_error_class(HostError)

Array = _core.Array
RandStream = _core.RandStream
call = _core.call
register = _core.register
unregister = _core.unregister
is_registered = _core.is_registered
is_exported = _core.is_exported
call_log = _core.call_log
reset_call_log = _core.reset_call_log
list = _core.list
seed = _core.seed
randu = _core.randu
randn = _core.randn
interrupt_after = _core.interrupt_after
poll_count = _core.poll_count
reset_poll_count = _core.reset_poll_count
usage = _core.usage
fail_allocation_at = _core.fail_allocation_at
warnings = _core.warnings
host_print = _core.host_print
library_path = _core.library_path


def capture():
    """Collects the host's console text: ``with zvstats.capture() as c: ...``."""
    return _core.Capture()


__all__ = [
    "Array", "HostError", "RandStream", "call", "call_log", "capture", "fail_allocation_at",
    "host_print", "interrupt_after", "is_exported", "is_registered", "list", "library_path",
    "poll_count", "randn", "randu", "register", "reset_call_log", "reset_poll_count", "seed",
    "unregister", "usage", "warnings",
]

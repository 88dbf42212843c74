# The binding itself: value conversions both ways, errors and their
# identifiers, host functions served by Python, interruption (by poll count
# and by a real SIGINT), console capture, random streams, fault injection.
import os
import signal
import threading
import time

import numpy as np
import pytest
import scipy.sparse as sparse

import zvstats


@pytest.fixture
def echo(registered):
    """Round trip: Python -> host array -> Python (the registered function's
    inputs) -> host array -> Python (the gateway's outputs)."""
    seen = []

    def fn(nout, *inputs):
        seen.append(inputs)
        return list(inputs)

    registered("echo", fn)

    def round_trip(*values):
        out = zvstats.call("probeCallFunction", max(len(values), 1), "echo", *values)
        (inputs,) = seen
        seen.clear()  # the fixture outlives the test's own check for leaks
        assert len(inputs) == len(values)
        return out, list(inputs)

    return round_trip


# ---- conversions ----------------------------------------------------------------------------

NUMERIC_DTYPES = [np.float64, np.float32, np.int8, np.uint8, np.int16, np.uint16, np.int32,
                  np.uint32, np.int64, np.uint64, np.bool_, np.complex128, np.complex64]


@pytest.mark.parametrize("dtype", NUMERIC_DTYPES)
@pytest.mark.parametrize("shape, host_shape", [
    ((2, 3), (2, 3)), ((4,), (1, 4)), ((), (1, 1)), ((2, 3, 4), (2, 3, 4)),
    ((2, 3, 1), (2, 3)), ((3, 1, 2, 1, 1), (3, 1, 2)), ((0, 3), (0, 3)), ((0,), (1, 0)),
])
def test_numeric_arrays_keep_dtype_values_and_shape(echo, dtype, shape, host_shape):
    value = (np.arange(int(np.prod(shape))) % 7).astype(dtype).reshape(shape)
    if np.issubdtype(dtype, np.complexfloating):
        value = value + 1j * value[::-1] if value.ndim else value + 1j
    (out,), (seen,) = echo(value)
    for got in (out, seen):
        assert got.dtype == value.dtype and got.shape == host_shape
        np.testing.assert_array_equal(got, value.reshape(host_shape))


def test_non_contiguous_and_foreign_layouts(echo):
    base = np.arange(24.0).reshape(4, 6)
    values = [base[:, ::2], base.T, np.asfortranarray(base), base.astype(">f8")]
    out, _ = echo(*values)
    for got, value in zip(out, values):
        np.testing.assert_array_equal(got, value)
        assert got.dtype == np.float64


@pytest.mark.parametrize("value, expected", [
    (2.5, np.array([[2.5]])),
    (7, np.array([[7.0]])),
    (-(2**53), np.array([[-(2.0**53)]])),
    (True, np.array([[True]])),
    (False, np.array([[False]])),
    (None, np.zeros((0, 0))),
    (1 - 2j, np.array([[1 - 2j]])),
    (np.float32(1.5), np.array([[1.5]], np.float32)),
    (np.int16(-3), np.array([[-3]], np.int16)),
    (np.bool_(True), np.array([[True]])),
    (np.array(4.0), np.array([[4.0]])),
])
def test_scalars(echo, value, expected):
    (out,), _ = echo(value)
    assert out.dtype == expected.dtype
    np.testing.assert_array_equal(out, expected)


@pytest.mark.parametrize("text", ["", "euclidean", "héllo wörld", "日本語", "emoji \U0001F600 outside the BMP"])
def test_text(echo, text):
    (out,), (seen,) = echo(text)
    assert out == text and seen == text


def test_char_matrix_is_an_array_of_letters(echo):
    letters = np.array([["a", "b", "c"], ["d", "e", "f"]])
    (out,), _ = echo(letters)
    assert out.dtype == np.dtype("<U1")
    np.testing.assert_array_equal(out, letters)
    # The host holds the letters column-major, like any array.
    assert zvstats.Array("char", (2, 3), "adbecf").value.tolist() == letters.tolist()


def test_cells(echo):
    nested = [1.5, "x", [np.int8(3), None], np.zeros((2, 0))]
    (out,), (seen,) = echo(nested)
    for got in (out, seen):
        assert got.dtype == object and got.shape == (1, 4)
        assert got[0, 0].tolist() == [[1.5]] and got[0, 1] == "x"
        assert got[0, 2].shape == (1, 2) and got[0, 2][0, 0].dtype == np.int8
        assert got[0, 2][0, 1].shape == (0, 0) and got[0, 3].shape == (2, 0)
    grid = np.empty((2, 3), dtype=object)
    for i in range(2):
        for j in range(3):
            grid[i, j] = f"{i}{j}"
    (out,), _ = echo(grid)
    assert out.shape == (2, 3) and out.tolist() == grid.tolist()
    (out,), _ = echo(np.array(["one", "three"]))  # strings of several letters: a cell
    assert out.dtype == object and out.tolist() == [["one", "three"]]
    (out,), _ = echo(())
    assert out.shape == (1, 0) and out.dtype == object


def test_sparse(echo):
    # Duplicates are summed and row order within a column does not matter.
    coo = sparse.coo_matrix(([1.0, 2.0, 3.0, -4.0, 5.0], ([3, 0, 3, 1, 0], [0, 0, 0, 2, 4])), shape=(5, 6))
    expected = coo.toarray()
    (out,), (seen,) = echo(coo)
    for got in (out, seen):
        assert sparse.isspmatrix_csc(got) and got.shape == (5, 6)
        np.testing.assert_array_equal(got.toarray(), expected)
        assert got.has_sorted_indices
    assert coo.nnz == 5  # the caller's matrix is left as it was
    (out,), _ = echo(sparse.csr_matrix(np.eye(3, dtype=np.int32)))
    assert out.dtype == np.float64 and out.nnz == 3
    (out,), _ = echo(zvstats.Array("sparse", (4, 2)))
    assert out.shape == (4, 2) and out.nnz == 0
    with pytest.raises(TypeError):
        zvstats.call("pdistbif", 1, sparse.eye(3, dtype=complex), "euc")


@pytest.mark.parametrize("cls, shape, data, value", [
    ("gpuArray", None, None, None),
    ("table", (1, 1), None, None),
    ("string", None, "héllo", "héllo"),
    ("function_handle", None, "sin", "sin"),
    ("RandStream", None, 5, None),
])
def test_host_objects_come_back_as_arrays(echo, cls, shape, data, value):
    obj = zvstats.Array(cls, shape, data)
    (out,), (seen,) = echo(obj)
    for got in (out, seen):
        assert isinstance(got, zvstats.Array)
        assert (got.cls, got.shape, got.value) == (cls, (1, 1), value)
        assert cls in repr(got)


@pytest.mark.parametrize("cls, shape, data, expected", [
    ("int8", (2, 2), [1, 2, 3, 4], np.array([[1, 3], [2, 4]], np.int8)),  # column-major fill
    ("uint16", (1, 3), 7, np.full((1, 3), 7, np.uint16)),
    ("logical", (2, 1), None, np.zeros((2, 1), bool)),
    ("double", None, [[1.0, 2.0]], np.array([[1.0, 2.0]])),
    ("single", (2, 3, 1), None, np.zeros((2, 3), np.float32)),
    ("complex", (1, 2), [1j, 2], np.array([[1j, 2]])),
    ("cell", (1, 2), ["a", 1.0], None),
])
def test_arrays_by_class_name(echo, cls, shape, data, expected):
    arr = zvstats.Array(cls, shape, data)
    (out,), _ = echo(arr)
    if expected is None:
        assert out.dtype == object and out[0, 0] == "a" and out[0, 1].tolist() == [[1.0]]
        return
    assert out.dtype == expected.dtype
    np.testing.assert_array_equal(out, expected)
    np.testing.assert_array_equal(arr.value, expected)


def test_random_stream_passes_as_a_stream_object(echo):
    stream = zvstats.RandStream(11)
    (out,), _ = echo(stream)
    assert isinstance(out, zvstats.Array) and out.cls == "RandStream"


@pytest.mark.parametrize("value", [object(), b"bytes", {"a": 1}, np.array([1], np.float16),
                                   np.array(["x"], dtype="S1")])
def test_values_without_a_host_class_are_refused(value):
    with pytest.raises(TypeError):
        zvstats.call("pdistbif", 1, value, "euc")


def test_host_shapes_seen_by_a_gateway():
    # statsizechkBIF reports the dimensions as the host holds them, an
    # observer independent of the conversion back to Python.
    for value, dims in [(np.zeros((2, 3, 4)), [2, 3, 4]), (np.zeros((2, 3, 1, 1)), [2, 3]),
                        (np.zeros(5), [1, 5]), (np.zeros((5, 1)), [5, 1]), ("abcd", [1, 4]),
                        (np.zeros((0, 0)), [0, 0]), (np.zeros((1, 1, 2)), [1, 1, 2])]:
        assert zvstats.call("statsizechkBIF", 2, 1, value)[1].tolist() == [dims]


# ---- errors -------------------------------------------------------------------------------

def test_host_error_carries_identifier_and_arguments():
    with pytest.raises(zvstats.HostError) as err:
        zvstats.call("pdistbif", 1)
    assert err.value.identifier == "stats:pdistbif:TooFewInputs" and err.value.args == ()
    assert "stats:pdistbif:TooFewInputs" in str(err.value)
    assert isinstance(err.value, Exception)


# Names that are not exported: made up, or listed but not built yet.
NOT_EXPORTED = ["noSuchGateway", "pdistbif::inner", ""] + [n for n, built in zvstats.list() if not built][:2]


@pytest.mark.parametrize("name", NOT_EXPORTED)
def test_unexported_gateway(name):
    with pytest.raises(zvstats.HostError) as err:
        zvstats.call(name, 1, 1.0)
    assert (err.value.identifier, err.value.args) == ("zvhost:UndefinedGateway", (name,))


def test_gateway_list_agrees_with_the_exports():
    gateways = zvstats.list()
    assert ("pdistbif", True) in gateways and ("statsizechkBIF", True) in gateways
    assert len({name for name, _ in gateways}) == len(gateways)
    for name, implemented in gateways:
        assert zvstats.is_exported(name) == implemented, name


# ---- host functions served by Python ---------------------------------------------------------

def test_outputs_of_a_registered_function(registered):
    registered("three", lambda nout, *a: (1.0, "two", [3]))
    registered("single", lambda nout, *a: np.eye(2))
    registered("nothing", lambda nout, *a: None)
    out = zvstats.call("probeCallFunction", 3, "three")
    assert out[0].tolist() == [[1.0]] and out[1] == "two" and out[2].dtype == object
    assert [o.tolist() for o in zvstats.call("probeCallFunction", 1, "single")] == [[[1.0, 0.0], [0.0, 1.0]]]
    assert zvstats.call("probeCallFunction", 1, "nothing") == []
    with pytest.raises(ValueError):
        zvstats.call("probeCallFunction", 2, "three")  # more outputs than slots


def test_nout_reaches_the_function(registered):
    registered("count", lambda nout, *a: [float(nout)] + [None] * (max(nout, 1) - 1))
    for nout in [0, 1, 4]:
        assert zvstats.call("probeCallFunction", nout, "count")[0].tolist() == [[float(nout)]]


def test_python_exception_comes_back_as_itself(registered):
    class Refusal(Exception):
        pass

    raised = Refusal("no")

    def refuse(nout, *a):
        raise raised

    registered("refuse", refuse)
    with pytest.raises(Refusal) as err:
        zvstats.call("probeCallFunction", 1, "refuse", 1.0)
    assert err.value is raised
    # Also where the gateway calls the host function without a trap.
    registered("internal.stats.statsizechkM", refuse)
    with pytest.raises(Refusal) as err:
        zvstats.call("statsizechkBIF", 1, 1, [1.0])
    assert err.value is raised


def test_host_error_raised_in_python_keeps_its_identifier(registered):
    def nested(nout, *a):
        # A gateway's error inside a host function, left to propagate.
        zvstats.call("pdistbif", 2, np.eye(2), "euc")

    registered("nested", nested)
    with pytest.raises(zvstats.HostError) as err:
        zvstats.call("probeCallFunction", 1, "nested")
    assert err.value.identifier == "stats:pdistbif:TooManyOutputs"


def test_nested_gateway_calls(registered):
    registered("distances", lambda nout, x: zvstats.call("pdistbif", 1, x, "cit"))
    (y,) = zvstats.call("probeCallFunction", 1, "distances", np.array([[0.0, 1.0, 3.0]]))
    assert y.tolist() == [[1.0, 3.0, 2.0]]


def test_unregister(registered):
    registered("gone", lambda nout: 1.0)
    assert zvstats.is_registered("gone")
    zvstats.unregister("gone")
    assert not zvstats.is_registered("gone")
    with pytest.raises(zvstats.HostError) as err:
        zvstats.call("probeCallFunction", 1, "gone")
    assert (err.value.identifier, err.value.args) == ("zvhost:UndefinedFunction", ("gone",))
    with pytest.raises(TypeError):
        zvstats.register("bad", 42)


def test_replaced_and_removed_functions_release_what_they_hold(registered):
    big = zvstats.Array("gpuArray")
    before = zvstats.usage()["arrays"]
    registered("holder", lambda nout, keep=big: keep)
    del big
    assert zvstats.usage()["arrays"] == before
    registered("holder", lambda nout: 1.0)  # replacing drops the first callable and its array
    assert zvstats.usage()["arrays"] == before - 1


def test_call_log_names_the_host_functions_called(registered):
    registered("a", lambda nout: 1.0)
    zvstats.reset_call_log()
    zvstats.call("probeCallFunction", 1, "a")
    with pytest.raises(zvstats.HostError):
        zvstats.call("probeCallFunction", 1, "b")
    assert zvstats.call_log() == ["a", "b"]


# ---- interruption -------------------------------------------------------------------------------

BIG = np.random.default_rng(3).standard_normal((20, 3000))


@pytest.mark.parametrize("code, polls", [("euclidean", 1), ("euclidean", 3), ("cosine", 1), ("cosine", 100)])
def test_interrupt_after_polls_raises_keyboard_interrupt(code, polls):
    before = zvstats.usage()
    zvstats.interrupt_after(polls)
    with pytest.raises(KeyboardInterrupt):
        zvstats.call("pdistbif", 1, BIG, code)
    assert zvstats.usage() == before
    # Nothing stays pending: the next call runs to the end.
    (y,) = zvstats.call("pdistbif", 1, BIG[:, :50], code)
    assert y.shape == (1, 50 * 49 // 2)


def test_interrupt_after_more_polls_than_the_call_makes():
    zvstats.interrupt_after(10**9)
    (y,) = zvstats.call("pdistbif", 1, BIG[:, :40], "euclidean")
    assert y.shape == (1, 40 * 39 // 2)
    zvstats.call("pdistbif", 1, BIG, "euclidean")  # disarmed when that call ended


def test_keyboard_interrupt_in_python_is_the_hosts_interruption(registered):
    def stop(nout, *a):
        raise KeyboardInterrupt

    registered("stop", stop)
    with pytest.raises(KeyboardInterrupt):
        zvstats.call("probeCallFunction", 1, "stop")


def long_mahalanobis():
    # Tens of seconds of work on a few cores; the gateway polls at the start
    # of each chunk of rows, and few pairs per row keep the chunks short.
    x = np.random.default_rng(5).standard_normal((500, 600))
    return x, np.triu(np.ones((500, 500)))


@pytest.mark.parametrize("deliver", ["process", "main thread"])
def test_ctrl_c_stops_a_long_call(deliver):
    x, r = long_mahalanobis()
    main = threading.main_thread().ident
    send = (lambda: os.kill(os.getpid(), signal.SIGINT)) if deliver == "process" else \
        (lambda: signal.pthread_kill(main, signal.SIGINT))
    timer = threading.Timer(0.3, send)
    start = time.monotonic()
    timer.start()
    try:
        with pytest.raises(KeyboardInterrupt):
            zvstats.call("pdistbif", 1, x, "mahalanobis", r)
    finally:
        timer.cancel()
    # Generous: a loaded machine delays both the signal and the next chunk.
    assert time.monotonic() - start < 30.0
    # Python's own handler is back.
    assert signal.getsignal(signal.SIGINT) is signal.default_int_handler
    with pytest.raises(KeyboardInterrupt):
        os.kill(os.getpid(), signal.SIGINT)
        time.sleep(1.0)


def signal_this_thread(nout):
    signal.pthread_kill(threading.get_ident(), signal.SIGINT)
    return 1.0


def test_ctrl_c_after_the_last_poll_still_interrupts(registered):
    # probeCallFunction polls nothing: the signal comes while the call is in
    # the host function, and the finished result is discarded.
    registered("signal_self", signal_this_thread)
    with pytest.raises(KeyboardInterrupt):
        zvstats.call("probeCallFunction", 1, "signal_self")
    registered("quiet", lambda nout: 2.0)
    assert zvstats.call("probeCallFunction", 1, "quiet")[0].tolist() == [[2.0]]


def test_sigint_stops_the_gateway_at_its_next_poll(registered):
    # The signal comes before a nested gateway call starts: that call must
    # end at its first poll, not run to completion.
    stopped = []

    def signal_then_compute(nout):
        signal.pthread_kill(threading.get_ident(), signal.SIGINT)
        try:
            zvstats.call("pdistbif", 1, BIG, "euclidean")
        except KeyboardInterrupt:
            stopped.append(True)
            raise
        return 1.0

    registered("signal_then_compute", signal_then_compute)
    with pytest.raises(KeyboardInterrupt):
        zvstats.call("probeCallFunction", 1, "signal_then_compute")
    assert stopped == [True]


def test_a_custom_sigint_handler_stays_in_charge(registered):
    received = []
    previous = signal.signal(signal.SIGINT, lambda signum, frame: received.append(signum))
    try:
        registered("signal_self", signal_this_thread)
        out = zvstats.call("probeCallFunction", 1, "signal_self")
        time.sleep(0.05)
    finally:
        signal.signal(signal.SIGINT, previous)
    assert out[0].tolist() == [[1.0]]
    assert received == [signal.SIGINT]


# ---- console, random streams, accounting ----------------------------------------------------------

def test_capture_collects_console_text_and_flushes():
    with zvstats.capture() as outer:
        zvstats.host_print("one ")
        with zvstats.capture() as inner:
            zvstats.host_print("two", flush=True)
        assert outer.text == "one "  # readable while still capturing
        zvstats.host_print("three", flush=True)
    assert (outer.text, outer.flushes) == ("one three", 1)
    assert (inner.text, inner.flushes) == ("two", 1)


def test_capture_ends_on_an_exception():
    with pytest.raises(RuntimeError):
        with zvstats.capture() as c:
            zvstats.host_print("before")
            raise RuntimeError
    with zvstats.capture() as after:
        zvstats.host_print("after")
    assert (c.text, after.text) == ("before", "after")


def test_random_streams_are_mt19937_as_numpy_legacy():
    # 53-bit uniforms from two 32-bit draws, seeded by init_genrand: numpy's
    # legacy RandomState makes the very same numbers.
    expected = np.random.RandomState(2024).random_sample(1000)
    np.testing.assert_array_equal(zvstats.RandStream(2024).uniform(1000), expected)
    zvstats.seed(2024)
    np.testing.assert_array_equal(np.concatenate([zvstats.randu(300), zvstats.randu(700)]), expected)
    zvstats.seed(2024)
    first = zvstats.randn(10)
    zvstats.seed(2024)
    np.testing.assert_array_equal(zvstats.randn(10), first)
    assert np.all(np.isfinite(first)) and len(set(first)) == 10


def test_fail_allocation_counts_only_the_gateways_allocations():
    x = np.eye(3)
    before = zvstats.usage()
    zvstats.fail_allocation_at(1, "arrays")  # the output, not the converted inputs
    with pytest.raises(MemoryError):
        zvstats.call("pdistbif", 1, x, "euclidean")
    assert zvstats.usage() == before
    assert zvstats.call("pdistbif", 1, x, "euclidean")[0].shape == (1, 3)  # disarmed
    # Counted from the gateway's first allocation: the two converted inputs
    # do not count, so the third array is never made.
    zvstats.fail_allocation_at(3, ["arrays", "scratch"])
    assert zvstats.call("pdistbif", 1, x, "euclidean")[0].shape == (1, 3)
    with pytest.raises(ValueError):
        zvstats.fail_allocation_at(1, "everything")


def test_usage_counts_held_host_values():
    before = zvstats.usage()
    held = [zvstats.Array("gpuArray"), zvstats.Array("int8", (3, 3))]
    assert zvstats.usage()["arrays"] == before["arrays"] + 2
    del held
    assert zvstats.usage() == before


def test_calls_from_another_thread():
    results = []
    worker = threading.Thread(target=lambda: results.extend(zvstats.call("pdistbif", 1, np.eye(4), "cit")))
    worker.start()
    worker.join()
    np.testing.assert_array_equal(results[0], np.full((1, 6), 2.0))

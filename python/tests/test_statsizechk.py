# statsizechkBIF: the common size of parameter arrays and size arguments,
# and the hand-over of everything else to the host function
# "internal.stats.statsizechkM".
import numpy as np
import pytest

import zvstats

HANDOVER = "internal.stats.statsizechkM"


def sizechk(nout, *args):
    return zvstats.call("statsizechkBIF", nout, *args)


def unpack(outputs):
    flag, size, total = outputs
    return float(flag[0, 0]), size, float(total[0, 0])


@pytest.mark.parametrize("args, size, total", [
    ((2, np.zeros((2, 3)), 5.0), [[2, 3]], 6),
    ((2, 5.0, np.zeros((2, 3))), [[2, 3]], 6),
    ((1, np.zeros((2, 3)), 2, 3, 1), [[2, 3]], 6),        # trailing 1 dropped
    ((1, np.zeros((2, 3)), np.array([2, 3])), [[2, 3]], 6),  # one vector of sizes
    ((1, np.zeros((3, 4)), 3, 4, 1, 1), [[3, 4]], 12),
    ((1, 7.0, 1, 1, 1), [[1, 1]], 1),
    ((2, np.zeros((0, 0)), 5.0), [[0, 0]], 0),            # empty is not scalar
    ((2, 1.0, 2.0), [[1, 1]], 1),                         # all scalars, no sizes
    ((0, 4, 2), [[4, 2]], 8),
    ((0, 3), [[3, 3]], 9),                                # one scalar size: square
    ((1, np.zeros((2, 3, 4)), 2, 3, 4), [[2, 3, 4]], 24),
    ((1, np.zeros((2, 3, 1))), [[2, 3]], 6),              # N-D parameter, trailing 1
    ((1, np.zeros((2, 1, 3)), 2, 1, 3, 1), [[2, 1, 3]], 6),
    ((2, np.zeros((2, 3)), np.zeros((2, 3, 1, 1))), [[2, 3]], 6),
    ((1, np.arange(5.0)), [[1, 5]], 5),                   # a 1-D array is a row
    ((2.7, np.zeros((2, 3)), np.zeros((2, 3))), [[2, 3]], 6),  # 2.7 counts as 2, not 3
    ((np.int32(1), np.zeros((4, 1), np.int8)), [[4, 1]], 4),
    ((np.float32(1), np.array([[True, False]])), [[1, 2]], 2),
    ((1, "abc"), [[1, 3]], 3),
])
def test_sizes_that_agree(args, size, total):
    flag, got_size, got_total = unpack(sizechk(3, *args))
    assert flag == 0.0
    assert got_size.dtype == np.float64
    np.testing.assert_array_equal(got_size, size)
    assert got_total == total


@pytest.mark.parametrize("args", [
    (2, np.zeros((2, 3)), np.zeros((3, 2))),
    (1, np.zeros((2, 3)), 3, 2),
    (1, np.zeros((2, 3)), np.array([2, 3, 2])),
    (2, np.zeros((2, 3)), np.zeros((2, 3, 2))),
    (2, np.zeros((0, 3)), np.zeros((0, 2))),
    (1, np.zeros((0, 0)), 5.0),                           # 0-by-0 against a 5-by-5 size
])
def test_sizes_that_disagree_are_a_result_not_an_error(args):
    flag, size, total = unpack(sizechk(3, *args))
    assert (flag, total) == (1.0, 0.0)
    assert size.shape == (0, 0) and size.dtype == np.float64


@pytest.mark.parametrize("nout", [0, 1])
def test_one_output_fills_slot_zero_only(nout):
    assert [o.tolist() for o in sizechk(nout, 2, np.zeros((2, 3)), 1.0)] == [[[0.0]]]
    assert [o.tolist() for o in sizechk(nout, 2, np.zeros((2, 3)), np.zeros((3, 2)))] == [[[1.0]]]


def test_two_outputs():
    flag, size = sizechk(2, 1, np.zeros((4, 5)))
    assert flag.tolist() == [[0.0]] and size.tolist() == [[4.0, 5.0]]


def test_size_list_past_ten_entries_takes_host_scratch():
    sizes = [1] * 10
    # Ten sizes fit the gateway's own buffer: no scratch, so nothing can fail.
    zvstats.fail_allocation_at(1, "scratch")
    assert sizechk(3, 0, *sizes)[2].tolist() == [[1.0]]
    zvstats.fail_allocation_at(1, "scratch")
    with pytest.raises(MemoryError):
        sizechk(3, 0, *(sizes + [1]))
    assert sizechk(3, 0, *(sizes + [2]))[1].tolist() == [[1.0] * 10 + [2.0]]


@pytest.mark.parametrize("nout, args, identifier, message_args", [
    (1, (), "stats:statsizechk:TooFewInputs", ()),
    (1, (1,), "stats:statsizechk:TooFewInputs", ()),
    (4, (1, 2.0), "stats:statsizechk:TooManyOutputs", ()),
    (1, (True, 2.0), "stats:statsizechk:BadNParams", ()),
    (1, ("1", 2.0), "stats:statsizechk:BadNParams", ()),
    (1, (np.array([1.0, 1.0]), 2.0), "stats:statsizechk:BadNParams", ()),
    (1, (np.zeros((0, 0)), 2.0), "stats:statsizechk:BadNParams", ()),
    (1, (-1.0, 2.0), "stats:statsizechk:BadNParams", ()),
    (1, (np.nan, 2.0), "stats:statsizechk:BadNParams", ()),
    (1, (2, 2.0), "stats:statsizechk:WrongNumInputs", ()),
    (1, (3.5, 1.0, 2.0), "stats:statsizechk:WrongNumInputs", ()),
    (1, (1, 2.0, 2.5), "zvhost:NonIntegerSize", ()),
])
def test_bad_input_identifiers(registered, nout, args, identifier, message_args):
    calls = []
    registered(HANDOVER, lambda *a: calls.append(a))
    with pytest.raises(zvstats.HostError) as err:
        sizechk(nout, *args)
    assert (err.value.identifier, err.value.args) == (identifier, message_args)
    assert calls == []


# ---- the hand-over to the host's language ---------------------------------------------

@pytest.mark.parametrize("args", [
    ([1.0], 2.0),                                         # a cell as inputs[0]
    (1, np.zeros((2, 3)), ["x", 2.0]),
    (1, np.zeros((2, 3)), 2, 3, zvstats.Array("gpuArray")),
    (True, zvstats.Array("function_handle", data="sin")),  # not BadNParams first
    ("np", zvstats.Array("string", data="text")),
])
@pytest.mark.parametrize("nout", [0, 1, 3])
def test_other_classes_go_to_the_host_function_unchanged(registered, args, nout):
    seen = []

    def statsizechkM(n, *inputs):
        seen.append((n, inputs))
        return ["first", 2.5, None][: max(n, 1)]

    registered(HANDOVER, statsizechkM)
    zvstats.reset_call_log()
    outputs = sizechk(nout, *args)
    assert zvstats.call_log() == [HANDOVER]
    assert outputs[0] == "first"
    assert [o.tolist() for o in outputs[1:]] == [[[2.5]], []][: max(nout, 1) - 1]
    ((n, inputs),) = seen
    assert n == nout
    assert len(inputs) == len(args)
    for got, sent in zip(inputs, args):
        if isinstance(sent, zvstats.Array):
            assert (got.cls, got.value) == (sent.cls, sent.value)
        elif isinstance(sent, list):
            assert got.shape == (1, len(sent))
        else:
            np.testing.assert_array_equal(np.asarray(got).reshape(-1), np.asarray(sent).reshape(-1))


def test_plain_classes_never_reach_the_host_function(registered):
    registered(HANDOVER, lambda n, *a: pytest.fail("handed over"))
    zvstats.reset_call_log()
    plain = [np.zeros((2, 3), np.int8), np.zeros((2, 3), np.uint64), np.zeros((2, 3), bool),
             np.zeros((2, 3), np.float32), np.full((2, 3), "c"), 1.0]
    assert unpack(sizechk(3, len(plain), *plain))[0] == 0.0
    assert zvstats.call_log() == []


def test_host_function_errors_pass_through(registered):
    def failing(n, *inputs):
        raise zvstats.HostError("stats:test:Refused", 7, "why")

    registered(HANDOVER, failing)
    with pytest.raises(zvstats.HostError) as err:
        sizechk(1, 1, [1.0])
    assert (err.value.identifier, err.value.args) == ("stats:test:Refused", (7, "why"))


def test_missing_host_function_is_the_hosts_error():
    assert not zvstats.is_registered(HANDOVER)
    with pytest.raises(zvstats.HostError) as err:
        sizechk(1, 1, [1.0])
    assert (err.value.identifier, err.value.args) == ("zvhost:UndefinedFunction", (HANDOVER,))

# statsizechkBIF through the binding: numpy arrays of several classes and
# shapes as parameters and sizes, and the hand-over of other classes to a
# host function served from Python, with its outputs and errors.
import numpy as np
import pytest

import zvstats

HANDOVER = "internal.stats.statsizechkM"


@pytest.mark.parametrize("args, size, total", [
    ((2, np.zeros((2, 3), np.int8), np.float32(5)), [[2, 3]], 6),
    ((1, np.zeros((2, 3, 4), bool), np.array([2, 3, 4], np.uint64)), [[2, 3, 4]], 24),
    ((1, np.arange(5.0)), [[1, 5]], 5),                   # a 1-D array is a row
    ((np.int32(1), "abc"), [[1, 3]], 3),
])
def test_numpy_parameters_and_sizes(args, size, total):
    flag, got, count = zvstats.call("statsizechkBIF", 3, *args)
    assert flag.tolist() == [[0.0]] and got.dtype == np.float64
    np.testing.assert_array_equal(got, size)
    assert count.tolist() == [[float(total)]]


def test_other_classes_go_to_a_python_host_function(registered):
    seen = []

    def statsizechkM(nout, *inputs):
        seen.append((nout, inputs))
        if isinstance(inputs[1], zvstats.Array):
            raise zvstats.HostError("stats:test:Refused", 7, "why")
        return ["first", 2.5, None][:nout]

    registered(HANDOVER, statsizechkM)
    flag, size, total = zvstats.call("statsizechkBIF", 3, 1, ["x", 2.0], np.zeros((2, 3)))
    assert flag == "first" and size.tolist() == [[2.5]] and total.size == 0  # None: an empty array
    ((nout, inputs),) = seen
    assert nout == 3 and inputs[0].tolist() == [[1.0]] and inputs[1].shape == (1, 2) and inputs[2].shape == (2, 3)
    with pytest.raises(zvstats.HostError) as err:
        zvstats.call("statsizechkBIF", 1, 1, zvstats.Array("gpuArray"))
    assert (err.value.identifier, err.value.args) == ("stats:test:Refused", (7, "why"))

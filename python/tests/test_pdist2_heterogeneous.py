# pdist2HeterogeneousBIF through the binding. No open library has Lin's,
# Goodall's or the occurrence-frequency distance in this form: the measures
# themselves, their edges and identifiers are the C++ suite's. Here numpy
# data of either precision, with a uint64 list of categorical coordinates,
# reach the gateway, and the measures without categorical coordinates are
# numpy's mean absolute gap of the frequencies.
import numpy as np
import pytest

import zvstats

rng = np.random.default_rng(20240612)


@pytest.mark.parametrize("dtype, rtol", [(np.float64, 1e-15), (np.float32, 1e-6)])
def test_without_categories_goodall_and_occurrence_frequency_are_the_mean_gap(dtype, rtol):
    x, f = rng.standard_normal((5, 8)).astype(dtype), rng.uniform(size=(5, 8)).astype(dtype)
    y, g = rng.standard_normal((5, 4)).astype(dtype), rng.uniform(size=(5, 4)).astype(dtype)
    expected = np.abs(f[:, :, None].astype(np.float64) - g[:, None, :]).mean(axis=0)
    for code in ["goo", "ofd"]:
        (d,) = zvstats.call("pdist2HeterogeneousBIF", 1, x, y, code, f, g, np.empty(0, np.uint64))
        assert d.shape == (8, 4) and d.dtype == dtype
        np.testing.assert_allclose(d, expected, rtol=rtol)


def test_a_categorical_match_costs_nothing_under_the_occurrence_frequency():
    # One categorical coordinate, equal in both observations; the continuous
    # coordinate 2 adds its gap of 0.5, and the mean is over p = 2.
    x, f = np.array([[3.0], [0.1]]), np.array([[2.0], [0.25]])
    y, g = np.array([[3.0], [0.7]]), np.array([[2.0], [0.75]])
    (d,) = zvstats.call("pdist2HeterogeneousBIF", 1, x, y, "ofd", f, g, np.array([1], np.uint64))
    np.testing.assert_array_equal(d, [[0.25]])

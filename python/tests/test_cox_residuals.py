# coxsresbif and coxmresbif through the binding: numpy arrays of the usual
# kinds in, arrays of the stated shapes and class out, identifiers as HostError.
# (No open peer computes these risk-set sums; their values are the C++ suite's.)
import numpy as np
import pytest

import zvstats


def survival(n=40, p=3, seed=0):
    rng = np.random.default_rng(seed)
    stop = np.sort(rng.integers(1, 12, n)).astype(np.float64)
    start = np.zeros(n)
    return rng.random(n) < 0.5, rng.standard_normal((p, n)), start, stop, np.ones(n), np.exp(rng.standard_normal(n))


@pytest.mark.parametrize("tie", [0, 1])
def test_numpy_arrays_in_and_out(tie):
    status, X, start, stop, freq, risk = survival()
    (S,) = zvstats.call("coxsresbif", 1, status, X, start, stop, freq, risk, tie)
    (H,) = zvstats.call("coxmresbif", 1, status, start[None, :], stop, freq, risk, float(tie))
    assert S.shape == X.shape and S.dtype == np.float64
    assert H.shape == (1, len(stop)) and H.dtype == np.float64


def test_identifiers_cross_the_binding():
    status, X, start, stop, freq, risk = survival()
    with pytest.raises(zvstats.HostError) as e:
        zvstats.call("coxmresbif", 1, status.astype(np.float64), start[None, :], stop, freq, risk, 0.0)
    assert e.value.identifier == "stats:coxmresbif:BadInputTypeLogical"
    with pytest.raises(zvstats.HostError) as e:
        zvstats.call("coxsresbif", 1, status, X.astype(np.float32), start, stop, freq, risk, 0.0)
    assert e.value.identifier == "stats:coxsresbif:BadInputTypeDouble"

# randg against scipy.stats.gamma (Kolmogorov-Smirnov, fixed seeds), and
# against a replay of its draw in Python on the host's own default stream:
# same requests in the same order give the very same numbers.
import math

import numpy as np
import pytest
from scipy import stats

import zvstats

SEED = 20240611


def randg(*args, nout=1):
    return zvstats.call("randg", nout, *args)[0]


def replay(shapes):
    """The draw of randg, request by request, on zvstats.randu / randn."""
    out = []
    for a in shapes:
        if a == 0:
            out.append(0.0)
            continue
        if not a > 0:
            out.append(math.nan)
            continue
        if math.isinf(a):
            out.append(a)
            continue
        boosted = a < 1
        u = list(zvstats.randu(2 if boosted else 1))
        d = (a + 1 if boosted else a) - 0.3333333333333333
        c = 1 / math.sqrt(d * 9 + 0)
        while True:
            while True:
                x = zvstats.randn(1)[0]
                v = c * x + 1
                if v > 0:
                    break
            v = v * v * v
            if u[0] < 1 - x * x * 0.0331 * x * x or math.log(u[0]) < ((1 - v) + math.log(v)) * d + x * 0.5 * x:
                out.append(d * v * math.pow(u[1], 1 / a) if boosted else d * v)
                break
            u[0] = zvstats.randu(1)[0]
    return np.array(out)


def test_replay_on_the_default_stream_is_bit_exact():
    shapes = np.concatenate([np.geomspace(0.01, 100, 300), [0, -1, np.inf, 0.999, 1.0, 1e-300]])
    np.random.default_rng(1).shuffle(shapes)
    zvstats.seed(SEED)
    ours = randg(shapes.reshape(1, -1)).ravel()
    zvstats.seed(SEED)
    theirs = replay(shapes)
    assert np.array_equal(ours, theirs, equal_nan=True)
    # and the stream stands at the same place afterwards
    zvstats.seed(SEED)
    randg(shapes.reshape(1, -1))
    after_ours = zvstats.randu(3)
    zvstats.seed(SEED)
    replay(shapes)
    assert np.array_equal(after_ours, zvstats.randu(3))


@pytest.mark.parametrize("a", [0.05, 0.3, 0.5, 0.999, 1.0, 2.5, 5.0, 50.0, 1e4])
@pytest.mark.parametrize("cls", ["double", "single"])
def test_kolmogorov_smirnov_against_scipy_gamma(a, cls):
    zvstats.seed(SEED + int(a * 1000))
    x = randg(a, 20000, 1, cls).ravel()
    assert x.dtype == (np.float64 if cls == "double" else np.float32)
    assert np.all(x >= 0)
    result = stats.kstest(x.astype(np.float64), stats.gamma(a).cdf)
    assert result.pvalue > 1e-3, (a, result)


def test_elementwise_shapes_follow_their_own_distribution():
    # Alternating shapes in one call: each half matches its own gamma.
    zvstats.seed(SEED)
    shapes = np.tile([0.7, 3.0], 10000).reshape(100, 200)
    x = randg(shapes)
    assert x.shape == shapes.shape
    for a in (0.7, 3.0):
        assert stats.kstest(x[shapes == a], stats.gamma(a).cdf).pvalue > 1e-3


def test_sample_moments():
    zvstats.seed(SEED)
    for a in (0.5, 5.0):
        x = randg(a, 200000, 1)
        assert abs(x.mean() - a) < 5 * math.sqrt(a / x.size)
        assert abs(x.var() / a - 1) < 0.03

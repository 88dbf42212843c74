# randg against scipy.stats.gamma: Kolmogorov-Smirnov tests from fixed seeds,
# for a shared shape with size arguments and class names, and for shapes
# element by element.
import numpy as np
import pytest
from scipy import stats

import zvstats

SEED = 20240611


def randg(*args):
    return zvstats.call("randg", 1, *args)[0]


@pytest.mark.parametrize("a", [0.05, 0.3, 0.999, 1.0, 2.5, 50.0, 1e4])
@pytest.mark.parametrize("cls", ["double", "single"])
def test_kolmogorov_smirnov_against_scipy_gamma(a, cls):
    zvstats.seed(SEED + int(a * 1000))
    x = randg(a, 20000, 1, cls)
    assert x.shape == (20000, 1) and x.dtype == (np.float64 if cls == "double" else np.float32)
    assert stats.kstest(x.ravel().astype(np.float64), stats.gamma(a).cdf).pvalue > 1e-3


def test_elementwise_shapes_follow_their_own_distribution():
    zvstats.seed(SEED)
    shapes = np.tile(np.float32([0.7, 3.0]), 10000).reshape(100, 200)
    x = randg(shapes)
    assert x.shape == shapes.shape and x.dtype == np.float32
    for a in (0.7, 3.0):
        assert stats.kstest(x[shapes == np.float32(a)], stats.gamma(np.float32(a)).cdf).pvalue > 1e-3

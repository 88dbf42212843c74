# silhouette against scikit-learn's silhouette_samples: the caller's last
# step, (b - a) / max(a, b) with b the least mean to another cluster and 0 for
# a cluster of one, made from our two outputs.
import numpy as np
import pytest
from sklearn.metrics import silhouette_samples

import zvstats

rng = np.random.default_rng(5)


def data_set(n, p, K, singletons=False):
    member = rng.integers(0, K, n)
    if singletons:
        member[:2] = K  # two clusters of one point
        member[1] = K + 1
        K += 2
    x = rng.standard_normal((n, p)) + 2.0 * rng.standard_normal((K, p))[member]
    return x, member, K


def means(x, member, K, code="euclidean", dtype=np.float64):
    mask = member[:, None] == np.arange(K)[None, :]
    counts = mask.sum(axis=0).astype(dtype)
    within, between = zvstats.call("silhouette", 2, np.ascontiguousarray(x.T.astype(dtype)), mask, counts,
                                   float(K), (member + 1).astype(np.float64), code)
    return within.ravel(), between, counts


def values(within, between, counts, member):
    b = between.min(axis=1)
    s = (b - within) / np.maximum(within, b)
    return np.where(counts[member] > 1, s, 0.0)


@pytest.mark.parametrize("n, p, K", [(300, 2, 3), (500, 10, 10), (200, 5, 7)])
@pytest.mark.parametrize("code, metric", [("euclidean", "euclidean"), ("cityblock", "cityblock"),
                                          ("chebychev", "chebyshev")])
def test_against_silhouette_samples(n, p, K, code, metric):
    x, member, K = data_set(n, p, K, singletons=True)
    within, between, counts = means(x, member, K, code)
    assert between.shape == (n, K)
    assert np.all(np.isinf(between[np.arange(n), member]))
    ref = silhouette_samples(x, member, metric=metric)
    np.testing.assert_allclose(values(within, between, counts, member), ref, rtol=1e-12, atol=1e-14)


def test_single_precision_against_silhouette_samples():
    x, member, K = data_set(300, 4, 5)
    within, between, counts = means(x.astype(np.float32), member, K, dtype=np.float32)
    assert within.dtype == np.float32 and between.dtype == np.float32
    ref = silhouette_samples(x.astype(np.float32).astype(np.float64), member)
    np.testing.assert_allclose(values(within.astype(np.float64), between.astype(np.float64),
                                      counts.astype(np.float64), member), ref, rtol=1e-4, atol=1e-5)

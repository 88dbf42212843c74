# silhouette against scikit-learn's silhouette_samples: the caller's last
# step, (b - a) / max(a, b) with b the least mean to another cluster and 0 for
# a cluster of one, made from our two outputs. The one-point form against the
# rows of the data form, and against means computed with numpy.
import numpy as np
import pytest
from scipy.spatial.distance import cdist
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


def test_means_against_numpy():
    x, member, K = data_set(150, 3, 4)
    within, between, counts = means(x, member, K)
    d = cdist(x, x)
    for r in range(len(x)):
        own = member[r]
        assert within[r] == pytest.approx(d[r, member == own].sum() / max(counts[own] - 1, 1), rel=1e-13)
        for k in range(K):
            expected = np.inf if k == own else d[r, member == k].sum() / counts[k]
            assert between[r, k] == pytest.approx(expected, rel=1e-13)


# The data form computes several points' distances at once; each point's
# means are still those of the one-point form on its column of distances,
# bit for bit, for every metric, both classes and a count of points that
# leaves a partial tile.
@pytest.mark.parametrize("code", ["euclidean", "sqeuclidean", "cityblock", "chebychev"])
@pytest.mark.parametrize("dtype", [np.float64, np.float32])
@pytest.mark.parametrize("n", [1, 37, 203])
def test_every_row_of_the_data_form_equals_the_one_point_form(code, dtype, n):
    x, member, K = data_set(n, 5, 4)
    if n > 1:
        member[0] = K  # an own cluster outside 1 .. K
    x = x.astype(dtype)
    within, between, counts = means(x, member, K, code, dtype)
    mask = member[:, None] == np.arange(K)[None, :]
    (d,) = zvstats.call("pdist2bif", 1, np.ascontiguousarray(x.T), np.ascontiguousarray(x.T), code,
                        None, None, None, None)
    for r in range(n):
        w, b = zvstats.call("silhouette", 2, d[:, r:r + 1].copy(), mask, counts, float(K), float(member[r] + 1))
        assert w.dtype == dtype
        np.testing.assert_array_equal(w[0, 0], within[r])
        np.testing.assert_array_equal(b[0], between[r])


# A mask need not be a partition: a point in several clusters or in none, and
# counts that are not the mask's, still give each row the one-point form's bits.
@pytest.mark.parametrize("dtype", [np.float64, np.float32])
def test_data_form_with_an_overlapping_mask_equals_the_one_point_form(dtype):
    n, K = 75, 4
    x = rng.standard_normal((n, 3)).astype(dtype)
    mask = rng.random((n, K)) < 0.4
    counts = np.array([0.0, 1.0, 7.0, 30.0], dtype=dtype)
    own = rng.integers(0, K + 2, n).astype(np.float64)  # 0 and K + 1 are outside 1 .. K
    within, between = zvstats.call("silhouette", 2, np.ascontiguousarray(x.T), mask, counts, float(K), own,
                                   "euclidean")
    (d,) = zvstats.call("pdist2bif", 1, np.ascontiguousarray(x.T), np.ascontiguousarray(x.T), "euclidean",
                        None, None, None, None)
    for r in range(n):
        w, b = zvstats.call("silhouette", 2, d[:, r:r + 1].copy(), mask, counts, float(K), own[r])
        np.testing.assert_array_equal(w[0, 0], within[r, 0])
        np.testing.assert_array_equal(b[0], between[r])


# Sparse or complex data reaches the nested distance call, which refuses it.
def test_sparse_or_complex_data_is_refused_by_the_distance_call():
    import scipy.sparse

    x, member, K = data_set(20, 3, 2)
    mask = member[:, None] == np.arange(K)[None, :]
    counts = mask.sum(axis=0).astype(np.float64)
    own = (member + 1).astype(np.float64)
    for data in (scipy.sparse.csc_matrix(np.ascontiguousarray(x.T)), np.ascontiguousarray(x.T) + 1j):
        with pytest.raises(Exception) as raised:
            zvstats.call("silhouette", 2, data, mask, counts, float(K), own, "euclidean")
        assert "stats:pdist2bif:SparseOrComplexInput" in str(raised.value)

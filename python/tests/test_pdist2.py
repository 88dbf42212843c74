# pdist2bif against scipy.spatial.distance.cdist: the full matrix for every
# metric, the K nearest and farthest against a stable argsort, and the radius
# search against cdist <= r. Data go in with one observation per column.
# Edges and identifiers are the C++ suite's.
import numpy as np
import pytest
from scipy.spatial.distance import cdist

import zvstats

rng = np.random.default_rng(7)
X = rng.standard_normal((37, 6)) * 10.0 ** rng.uniform(-2, 2, 6)
Y = rng.standard_normal((19, 6)) * 10.0 ** rng.uniform(-2, 2, 6)
XI = rng.integers(0, 4, (40, 6)).astype(np.float64)  # integer data: exact ties and boundaries
YI = rng.integers(0, 4, (15, 6)).astype(np.float64)


def upper_factor(vi):
    lower = np.linalg.cholesky(vi[::-1, ::-1])
    return np.ascontiguousarray(lower[::-1, ::-1])


def call(x, y, code, param=None, count=None, radius=None, sort=None, nout=1):
    return zvstats.call("pdist2bif", nout, np.ascontiguousarray(x.T), np.ascontiguousarray(y.T),
                        code, param, count, radius, sort)


VI = np.linalg.inv(np.cov(np.vstack([X, Y]).T))
W = 1.0 / np.vstack([X, Y]).var(axis=0, ddof=1)
# (code, scipy metric, scipy kwargs, gateway parameter, bit-exact)
METRICS = [
    ("euclidean", "euclidean", {}, None, True),
    ("sqeuclidean", "sqeuclidean", {}, None, True),
    ("cityblock", "cityblock", {}, None, True),
    ("chebychev", "chebyshev", {}, None, True),
    ("hamming", "hamming", {}, None, True),
    ("jaccard", "jaccard", {}, None, True),
    ("minkowski", "minkowski", {"p": 3.0}, 3.0, True),
    # scipy's weighted euclidean multiplies by the weight as the gateway does.
    ("seuclidean", "euclidean", {"w": W}, W, True),
    # A different summation order (scipy forms VI (u - v) first): rounding only.
    ("mahalanobis", "mahalanobis", {"VI": VI}, upper_factor(VI), False),
]


@pytest.mark.parametrize("code, metric, kwargs, param, exact", METRICS)
@pytest.mark.parametrize("data", ["gaussian", "integer"])
def test_full_matrix_against_cdist(code, metric, kwargs, param, exact, data):
    x, y = (X, Y) if data == "gaussian" else (XI, YI)
    if code == "mahalanobis" and data == "integer":
        pytest.skip("the factor belongs to the gaussian data")
    (d,) = call(x, y, code, param)
    ref = cdist(x, y, metric, **kwargs)
    assert d.shape == (x.shape[0], y.shape[0])
    if exact:
        assert np.array_equal(d, ref, equal_nan=True)
    else:
        np.testing.assert_allclose(d, ref, rtol=1e-12)


def test_cosine_family_on_prepared_data():
    xn = X / np.linalg.norm(X, axis=1, keepdims=True)
    yn = Y / np.linalg.norm(Y, axis=1, keepdims=True)
    ref = cdist(X, Y, "cosine")
    for code in ("cosine", "correlation", "spearman"):
        for count, radius in [(None, None), (5, None), (None, 0.5)]:
            out = call(xn, yn, code, None, count, radius, None, nout=2)
            if count is None and radius is None:
                np.testing.assert_allclose(out[0], ref, atol=1e-14)
            elif count is not None:
                np.testing.assert_allclose(out[0], np.sort(ref, axis=0)[:5], atol=1e-14)
            else:
                # Away from the boundary, rounding cannot move a point in or out.
                for j in range(Y.shape[0]):
                    found = set(out[1][0, j].ravel().astype(int) - 1)
                    assert set(np.flatnonzero(ref[:, j] < 0.5 - 1e-12)) <= found
                    assert found <= set(np.flatnonzero(ref[:, j] <= 0.5 + 1e-12))


def stable_order(ref, largest):
    # Ties by index, NaN last, for the smallest and the largest alike.
    key = np.where(np.isnan(ref), np.inf, -ref if largest else ref)
    nan_last = np.isnan(ref).astype(int)
    return np.lexsort((np.arange(ref.shape[0])[:, None].repeat(ref.shape[1], 1), key, nan_last), axis=0)


@pytest.mark.parametrize("code, metric, kwargs, param, exact", METRICS)
@pytest.mark.parametrize("count", [1, 4, -4, 3.7, -2.2, 500])
def test_nearest_against_a_stable_argsort(code, metric, kwargs, param, exact, count):
    x, y = (XI, YI) if exact else (X, Y)  # integer data: many ties
    d, i = call(x, y, code, param, count, nout=2)
    ref = cdist(x, y, metric, **kwargs)
    k = min(x.shape[0], int(abs(count)))
    order = stable_order(ref, count < 0)[:k]
    assert d.shape == i.shape == (k, y.shape[0])
    if exact:
        assert np.array_equal(i - 1, order)
        assert np.array_equal(d, np.take_along_axis(ref, order, 0))
    else:
        np.testing.assert_allclose(d, np.take_along_axis(ref, order, 0), rtol=1e-12)


def test_nan_distances_come_last_and_only_when_needed():
    x = XI.copy()
    x[[2, 5], 0] = np.nan
    for code, metric in [("euclidean", "euclidean"), ("hamming", "hamming"), ("chebychev", "chebyshev")]:
        ref = cdist(x, YI, metric)
        if code != "euclidean":
            ref[[2, 5], :] = np.nan  # compared coordinates: the whole observation is missing
        for count in (3, -3, 40):
            d, i = call(x, YI, code, None, count, nout=2)
            order = stable_order(ref, count < 0)[: min(40, abs(count))]
            assert np.array_equal(i - 1, order), code
            assert np.array_equal(d, np.take_along_axis(ref, order, 0), equal_nan=True)


@pytest.mark.parametrize("code, metric, kwargs, param, exact", METRICS[:7])
@pytest.mark.parametrize("radius", [0.0, 1.0, 2.0, 3.0])
def test_radius_against_cdist_with_exact_boundaries(code, metric, kwargs, param, exact, radius):
    dist_cells, index_cells = call(XI, YI, code, param, None, radius, None, nout=2)
    ref = cdist(XI, YI, metric, **kwargs)
    found = ref <= radius
    if code == "sqeuclidean":  # the radius is a euclidean distance; squares come back
        found = np.sqrt(ref) <= radius
    assert dist_cells.shape == (1, YI.shape[0])
    for j in range(YI.shape[0]):
        idx = index_cells[0, j].ravel().astype(int) - 1
        dist = dist_cells[0, j].ravel()
        assert sorted(idx) == list(np.flatnonzero(found[:, j]))
        order = stable_order(ref[idx, j][:, None], False)[:, 0]
        assert np.array_equal(idx, idx[order]), "sorted by distance, ties by index"
        assert np.array_equal(dist, ref[idx, j])


def test_single_precision_within_rounding():
    xs, ys = X.astype(np.float32), Y.astype(np.float32)
    (d,) = call(xs, ys, "euclidean")
    assert d.dtype == np.float32
    np.testing.assert_allclose(d, cdist(xs.astype(np.float64), ys.astype(np.float64)), rtol=2e-6)
    d, i = call(xs, ys, "cityblock", None, 3, nout=2)
    assert d.dtype == np.float32 and i.dtype == np.float64

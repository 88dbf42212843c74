# dbscan against scikit-learn's DBSCAN on scipy's cdist (metric="precomputed"):
# labels (ours are sklearn's + 1, noise -1) and core flags, for several data
# sets, metrics, epsilons (with points exactly at epsilon) and minpts down to
# 1; the three neighbour sources and both routes against each other; the
# one-column cross distances that the queries use against cdist.
import numpy as np
import pytest
from scipy.spatial.distance import cdist, squareform
from sklearn.cluster import DBSCAN

import zvstats

rng = np.random.default_rng(31)


def blobs(n, p=2):
    centres = rng.uniform(-5, 5, (4, p))
    x = centres[rng.integers(0, 4, n)] + 0.5 * rng.standard_normal((n, p))
    x[::9] = rng.uniform(-7, 7, (len(x[::9]), p))  # scattered noise
    x[5::17] = x[4::17][: len(x[5::17])]  # duplicates
    return x


GAUSSIAN = blobs(400)
GAUSSIAN3 = blobs(300, 3)
GRID = rng.integers(0, 12, (350, 2)).astype(np.float64)  # many pairs exactly at epsilon
METRICS = [("euclidean", "euclidean"), ("cityblock", "cityblock"), ("chebychev", "chebyshev")]


def ours(x, epsilon, minpts, code="euclidean", host_route=False, nout=2):
    n, p = x.shape
    data = x if host_route else x.T
    out = zvstats.call("dbscan", nout, np.ascontiguousarray(data), float(epsilon), float(minpts), code, 2.0,
                       np.zeros((0, 0), dtype=bool), float(n), float(p), None, host_route)
    return [o.ravel() for o in out]


def from_adjacency(adjacency, mode, minpts, serial=False):
    n = adjacency.shape[0]
    a = adjacency if mode == 0 else squareform(adjacency, checks=False)
    out = zvstats.call("dbscan", 2, np.zeros((0, 0)), 0.0, float(minpts), "euc", float(mode), a,
                       float(n), 1.0, None, serial)
    return [o.ravel() for o in out]


def reference(x, epsilon, minpts, metric="euclidean"):
    model = DBSCAN(eps=epsilon, min_samples=minpts, metric="precomputed").fit(cdist(x, x, metric))
    labels = np.where(model.labels_ >= 0, model.labels_ + 1, -1).astype(np.float64)
    core = np.zeros(len(x), dtype=bool)
    core[model.core_sample_indices_] = True
    return labels, core


@pytest.fixture
def host_pdist2(registered):
    """The host's "pdist2": distances from each row of the first input to the
    single row of the second, by pdist2bif."""

    def pdist2(nout, x, y, code):
        (d,) = zvstats.call("pdist2bif", 1, np.ascontiguousarray(x.T), np.ascontiguousarray(y.T), code,
                            None, None, None, None)
        return [d]

    registered("pdist2", pdist2)


@pytest.mark.parametrize("code, metric", METRICS)
@pytest.mark.parametrize("data, epsilon", [("gaussian", 0.4), ("gaussian3", 0.7), ("grid", 1.0), ("grid", 2.0)])
@pytest.mark.parametrize("minpts", [1, 2, 5, 12])
def test_against_sklearn(code, metric, data, epsilon, minpts):
    x = {"gaussian": GAUSSIAN, "gaussian3": GAUSSIAN3, "grid": GRID}[data]
    labels, core = ours(x, epsilon, minpts, code)
    ref_labels, ref_core = reference(x, epsilon, minpts, metric)
    assert np.array_equal(labels, ref_labels)
    assert np.array_equal(core, ref_core)
    if minpts == 1:
        assert np.all(labels >= 1)


@pytest.mark.parametrize("data, epsilon", [("gaussian", 0.4), ("grid", 1.0)])
@pytest.mark.parametrize("minpts", [1, 4])
def test_host_route_agrees(host_pdist2, data, epsilon, minpts):
    x = {"gaussian": GAUSSIAN, "grid": GRID}[data]
    nested = ours(x, epsilon, minpts)
    hosted = ours(x, epsilon, minpts, host_route=True)
    assert zvstats.call_log().count("pdist2") >= len(x)
    for a, b in zip(nested, hosted):
        assert np.array_equal(a, b)
    ref_labels, ref_core = reference(x, epsilon, minpts)
    assert np.array_equal(hosted[0], ref_labels)
    assert np.array_equal(hosted[1], ref_core)


@pytest.mark.parametrize("data, epsilon", [("gaussian", 0.4), ("grid", 1.0)])
@pytest.mark.parametrize("minpts", [1, 3, 8])
@pytest.mark.parametrize("serial", [False, True])
def test_three_sources_agree(data, epsilon, minpts, serial):
    x = {"gaussian": GAUSSIAN, "grid": GRID}[data]
    adjacency = cdist(x, x) <= epsilon
    np.fill_diagonal(adjacency, False)
    labels, core = ours(x, epsilon, minpts)
    for mode in (0, 1):
        a_labels, a_core = from_adjacency(adjacency, mode, minpts, serial)
        assert np.array_equal(a_labels, labels)
        assert np.array_equal(a_core, core)


def test_single_data_runs_the_float_engine():
    x = GRID.astype(np.float32)  # integer distances are exact in single too
    labels, core = ours(x, 1.0, 4)
    ref_labels, ref_core = reference(GRID, 1.0, 4)
    assert labels.dtype == np.float64
    assert np.array_equal(labels, ref_labels)
    assert np.array_equal(core, ref_core)


# The queries take one column of the full cross-distance matrix at a time.
@pytest.mark.parametrize("code, metric", METRICS + [("sqeuclidean", "sqeuclidean"), ("hamming", "hamming")])
@pytest.mark.parametrize("p", [1, 2, 7, 64, 65])
@pytest.mark.parametrize("dtype", [np.float64, np.float32])
def test_one_column_cross_distances_equal_cdist(code, metric, p, dtype):
    x = rng.standard_normal((53, p)).astype(dtype)
    if code == "hamming":
        x = np.round(x)
    for ny in (1, 3, 5):
        y = x[:ny]
        (d,) = zvstats.call("pdist2bif", 1, np.ascontiguousarray(x.T), np.ascontiguousarray(y.T), code,
                            None, None, None, None)
        ref = cdist(x.astype(np.float64), y.astype(np.float64), metric)
        if dtype == np.float64:
            assert np.array_equal(d, ref)
        else:
            np.testing.assert_allclose(d, ref, rtol=1e-5, atol=1e-6)


def epsilons_at_distances(d, count, dtype):
    """Distances that occur in d, and the values one ulp either side of them."""
    values = np.unique(d[np.isfinite(d) & (d > 0)])
    picked = values[np.linspace(0, len(values) - 1, count).astype(int)].astype(dtype)
    return [e for v in picked for e in (np.nextafter(v, dtype(-np.inf)), v, np.nextafter(v, dtype(np.inf)))]


# The raw-data route tests epsilon on the values before the root; its result
# must be the test "distance <= epsilon" on the nested call's own distances,
# bit for bit, also exactly at epsilon and one ulp away.
@pytest.mark.parametrize("code", ["euclidean", "sqeuclidean", "cityblock"])
@pytest.mark.parametrize("dtype", [np.float64, np.float32])
@pytest.mark.parametrize("data", ["gaussian", "grid", "nan"])
def test_data_route_equals_the_test_on_its_distances(code, dtype, data):
    x = {"gaussian": GAUSSIAN[:203], "grid": GRID[:203], "nan": GAUSSIAN[:203].copy()}[data].astype(dtype)
    if data == "nan":
        x[[3, 50, 51], 1] = np.nan
    if data == "grid" and code == "euclidean":
        x = x * dtype(0.1)  # roots that round
    (d,) = zvstats.call("pdist2bif", 1, np.ascontiguousarray(x.T), np.ascontiguousarray(x.T), code,
                        None, None, None, None)
    for epsilon in epsilons_at_distances(d, 5, dtype):
        adjacency = d <= epsilon
        np.fill_diagonal(adjacency, False)
        for minpts in (1, 3, 6):
            labels, core = ours(x, epsilon, minpts, code)
            a_labels, a_core = from_adjacency(adjacency, 0, minpts)
            assert np.array_equal(labels, a_labels), (epsilon, minpts)
            assert np.array_equal(core, a_core), (epsilon, minpts)


@pytest.mark.parametrize("epsilon", [0.0, -0.0, -1.0, np.inf, np.nan, 1e300])
def test_data_route_at_extreme_epsilons(epsilon):
    x = np.vstack([GAUSSIAN[:40], [[1e200, 0.0], [np.nan, 0.0]]])
    d = cdist(x, x)
    adjacency = d <= epsilon
    np.fill_diagonal(adjacency, False)
    labels, core = ours(x, epsilon, 2)
    a_labels, a_core = from_adjacency(adjacency, 0, 2)
    assert np.array_equal(labels, a_labels)
    assert np.array_equal(core, a_core)


# Enough points for many groups of panels, in two and three dimensions, with
# duplicates and points far out: every skipped panel held no neighbour.
@pytest.mark.parametrize("p", [2, 3])
@pytest.mark.parametrize("code", ["euclidean", "cityblock"])
def test_data_route_on_many_panels_equals_the_test_on_its_distances(p, code):
    x = blobs(3000, p)
    x[::250] *= 40.0
    (d,) = zvstats.call("pdist2bif", 1, np.ascontiguousarray(x.T), np.ascontiguousarray(x.T), code,
                        None, None, None, None)
    for epsilon in epsilons_at_distances(np.where(d < 0.5, d, 0), 2, np.float64):
        adjacency = d <= epsilon
        np.fill_diagonal(adjacency, False)
        labels, core = ours(x, epsilon, 5, code)
        a_labels, a_core = from_adjacency(adjacency, 0, 5)
        assert np.array_equal(labels, a_labels), epsilon
        assert np.array_equal(core, a_core), epsilon

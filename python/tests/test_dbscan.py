# dbscan against scikit-learn's DBSCAN on scipy's cdist (metric="precomputed"):
# labels (ours are sklearn's + 1, noise -1) and core flags, for several data
# sets, metrics, epsilons (with points exactly at epsilon) and minpts down to
# 1, by the nested route, the host's route and in single precision.
import numpy as np
import pytest
from scipy.spatial.distance import cdist
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


def ours(x, epsilon, minpts, code="euclidean", host_route=False):
    n, p = x.shape
    data = x if host_route else x.T
    out = zvstats.call("dbscan", 2, np.ascontiguousarray(data), float(epsilon), float(minpts), code, 2.0,
                       np.zeros((0, 0), dtype=bool), float(n), float(p), None, host_route)
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
def test_host_route_against_sklearn(host_pdist2, data, epsilon, minpts):
    x = {"gaussian": GAUSSIAN, "grid": GRID}[data]
    labels, core = ours(x, epsilon, minpts, host_route=True)
    assert zvstats.call_log().count("pdist2") >= len(x)
    ref_labels, ref_core = reference(x, epsilon, minpts)
    assert np.array_equal(labels, ref_labels)
    assert np.array_equal(core, ref_core)


def test_single_data_runs_the_float_engine():
    x = GRID.astype(np.float32)  # integer distances are exact in single too
    labels, core = ours(x, 1.0, 4)
    ref_labels, ref_core = reference(GRID, 1.0, 4)
    assert labels.dtype == np.float64
    assert np.array_equal(labels, ref_labels)
    assert np.array_equal(core, ref_core)

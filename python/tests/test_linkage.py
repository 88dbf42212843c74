# linkagebif against scipy and fastcluster: every method in double and single,
# rows in order for the nearest-neighbour list methods and after scipy's own
# stable sort by height and relabelling for the chain methods, cophenetic
# distances, the memory-saving mode against fastcluster.linkage_vector, and
# data through the host's own pdist.
import numpy as np
import pytest
import scipy.cluster.hierarchy as sch
from scipy.spatial.distance import pdist, squareform

import zvstats

fastcluster = pytest.importorskip("fastcluster")

METHODS = ["single", "complete", "average", "weighted", "centroid", "median", "ward"]
LIST_METHODS = {"single", "centroid", "median"}
rng = np.random.default_rng(11)
X = rng.standard_normal((120, 4)) * [1.0, 3.0, 0.5, 2.0]


def ours(y, method, dtype=np.float64):
    (z,) = zvstats.call("linkagebif", 1, np.asarray(y, dtype)[None, :], method)
    assert z.dtype == dtype and z.shape == (len(squareform(np.asarray(y, np.float64))) - 1, 3)
    return z


def to_scipy(z):
    """1-based three-column Z to scipy's 0-based four-column form."""
    z = np.asarray(z, np.float64)
    n = z.shape[0] + 1
    out = np.zeros((n - 1, 4))
    out[:, :3] = z
    out[:, :2] -= 1
    size = np.ones(2 * n - 1)
    for k in range(n - 1):
        size[n + k] = size[int(out[k, 0])] + size[int(out[k, 1])]
        out[k, 3] = size[n + k]
    return out


def sorted_and_relabelled(z):
    """What scipy does after its chain: a stable sort by height, then labels
    from a union-find in the new order, smaller first."""
    z = np.asarray(z, np.float64)
    n = z.shape[0] + 1
    leaf = np.zeros(2 * n - 1, dtype=np.int64)  # a leaf of each cluster
    leaf[:n] = np.arange(n)
    for k in range(n - 1):
        leaf[n + k] = leaf[int(z[k, 0])]
    order = np.argsort(z[:, 2], kind="stable")
    parent = np.arange(2 * n - 1)

    def find(a):
        while parent[a] != a:
            parent[a] = parent[parent[a]]
            a = parent[a]
        return a

    out = np.zeros_like(z)
    for new, k in enumerate(order):
        a, b = find(leaf[int(z[k, 0])]), find(leaf[int(z[k, 1])])
        parent[a] = parent[b] = n + new
        out[new, :3] = [min(a, b), max(a, b), z[k, 2]]
    out[:, 3] = to_scipy(np.c_[out[:, :2] + 1, out[:, 2]])[:, 3]
    return out


@pytest.mark.parametrize("method", METHODS)
def test_double_against_scipy_and_fastcluster(method):
    y = pdist(X)
    z = to_scipy(ours(y, method))
    reference = sch.linkage(y, method)
    fc = fastcluster.linkage(y, method)
    mine = z if method in LIST_METHODS else sorted_and_relabelled(z)
    for peer in (reference, fc):
        np.testing.assert_array_equal(mine[:, :2], peer[:, :2])
        np.testing.assert_allclose(mine[:, 2:], peer[:, 2:], rtol=1e-12, atol=1e-12)
    np.testing.assert_allclose(sch.cophenet(z), sch.cophenet(reference), rtol=1e-12)


@pytest.mark.parametrize("method", METHODS)
def test_single_precision(method):
    y = pdist(X)
    z = to_scipy(ours(y, method, np.float32))
    reference = sch.linkage(y.astype(np.float32).astype(np.float64), method)
    np.testing.assert_allclose(np.sort(z[:, 2]), np.sort(reference[:, 2]), rtol=2e-5)
    np.testing.assert_allclose(sch.cophenet(z), sch.cophenet(reference), rtol=2e-5)
    if method in LIST_METHODS:
        np.testing.assert_array_equal(z[:, :2], reference[:, :2])


@pytest.mark.parametrize("method", ["ward", "centroid", "median"])
@pytest.mark.parametrize("dtype", [np.float64, np.float32])
def test_memory_saving_against_linkage_vector(method, dtype):
    data = X[:90].astype(dtype)
    (z,) = zvstats.call("linkagebif", 1, np.ascontiguousarray(data.T), method, [], True)
    assert z.dtype == dtype
    z = to_scipy(z)
    peer = fastcluster.linkage_vector(data.astype(np.float64), method)
    rtol = 1e-10 if dtype == np.float64 else 2e-5
    mine = z if method in LIST_METHODS else sorted_and_relabelled(z)
    if dtype == np.float64:
        np.testing.assert_array_equal(mine[:, :2], peer[:, :2])
    np.testing.assert_allclose(mine[:, 2], peer[:, 2], rtol=rtol)
    np.testing.assert_allclose(sch.cophenet(z), sch.cophenet(peer), rtol=rtol)


def test_ties_keep_the_single_linkage_cophenetic_distances():
    y = pdist(rng.integers(0, 4, (60, 3)).astype(np.float64), "cityblock")
    z = to_scipy(ours(y, "single"))
    np.testing.assert_array_equal(sch.cophenet(z), sch.cophenet(sch.linkage(y, "single")))


@pytest.mark.parametrize("metric,extra", [("euclidean", []), ("minkowski", [3.0]), ("cosine", []),
                                          ("chebychev", []), ("seuclidean", [])])
def test_data_through_the_hosts_pdist(metric, extra):
    scipy_metric = {"chebychev": "chebyshev"}.get(metric, metric)
    kwargs = {"p": 3.0} if metric == "minkowski" else {}
    (z,) = zvstats.call("linkagebif", 1, X, "average", [metric, *extra], None)
    reference = sch.linkage(pdist(X, scipy_metric, **kwargs), "average")
    np.testing.assert_allclose(sch.cophenet(to_scipy(z)), sch.cophenet(reference), rtol=1e-10)

# pdistSparseBIF and pdist2SparseBIF against scipy's pdist and cdist on the
# densified data. The gateways take one
# observation per column, so scipy's n-by-p data goes in transposed. Edges,
# missing data and identifiers are the C++ suite's.
import itertools

import numpy as np
import pytest
import scipy.sparse as sp
from scipy.spatial.distance import cdist, pdist

import zvstats


def sparse_pdist(data, code, *extra):
    """Condensed distances between the rows of the sparse n-by-p `data`."""
    (y,) = zvstats.call("pdistSparseBIF", 1, sp.csc_matrix(data.T), code, *extra)
    n = data.shape[0]
    assert y.shape == (1, n * (n - 1) // 2) and y.dtype == np.float64
    return y[0]


def sparse_cdist(xa, xb, code):
    (d,) = zvstats.call("pdist2SparseBIF", 1, sp.csc_matrix(xa.T), sp.csc_matrix(xb.T), code)
    assert d.shape == (xa.shape[0], xb.shape[0]) and not sp.issparse(d)
    return d


def random_sparse(n, p, density, seed, scale_spread=0.0):
    rng = np.random.default_rng(seed)
    x = sp.random(n, p, density=density, format="csr", random_state=rng, data_rvs=rng.standard_normal)
    # Coordinates on scales from 1e-s to 1e+s, so that rounding differences show.
    return sp.csr_matrix(x @ sp.diags(10.0 ** rng.uniform(-scale_spread, scale_spread, p)))


DATASETS = {
    "scaled": random_sparse(31, 40, 0.15, 1, scale_spread=3.0),
    "sparser": random_sparse(40, 300, 0.02, 2),   # many empty rows and disjoint pairs
    "denser": random_sparse(12, 9, 0.7, 3),
    # Small integers: many exact ties and shared rows of equal value.
    "ties": sp.csr_matrix(np.random.default_rng(4).integers(0, 3, (21, 12)).astype(np.float64)),
}


def pair_index(n):
    return list(itertools.combinations(range(n), 2))


# ---- bit for bit: the same terms summed in the same ascending order ------------------
# Rows that neither observation stores add +0 in scipy's loop, which leaves
# the sum unchanged, so the results agree to the bit.
EXACT = [
    ("euclidean", "euclidean", {}, ()),
    ("sqeuclidean", "sqeuclidean", {}, ()),
    ("cityblock", "cityblock", {}, ()),
    ("chebychev", "chebyshev", {}, ()),
    ("hamming", "hamming", {}, ()),
    ("minkowski", "minkowski", {"p": 3.0}, (3.0,)),
    ("minkowski", "minkowski", {"p": 1.5}, (1.5,)),
]


@pytest.mark.parametrize("name", DATASETS)
@pytest.mark.parametrize("code, metric, kwargs, extra", EXACT)
def test_exact_metrics_equal_scipy_bit_for_bit(name, code, metric, kwargs, extra):
    data = DATASETS[name]
    np.testing.assert_array_equal(sparse_pdist(data, code, *extra), pdist(data.toarray(), metric, **kwargs))


@pytest.mark.parametrize("name", DATASETS)
def test_jaccard_equals_scipy_except_that_no_stored_value_is_nan(name):
    data = DATASETS[name].toarray()
    ours = sparse_pdist(DATASETS[name], "jaccard")
    expected = pdist(data, "jaccard")
    # scipy calls 0/0 a distance of 0; here it stays NaN, as in the dense gateway.
    empty = np.array([not (data[i].any() or data[j].any()) for i, j in pair_index(len(data))])
    expected[empty] = np.nan
    np.testing.assert_array_equal(ours, expected)


# ---- other arithmetic: tight tolerances ---------------------------------------------------

@pytest.mark.parametrize("name", DATASETS)
def test_seuclidean_within_rounding_of_weighted_euclidean(name):
    data = DATASETS[name]
    w = 1.0 / (1.0 + np.arange(data.shape[1]) % 7)
    # Lone terms are w*a*a, shared ones d*(w*d); scipy forms w*(d*d).
    np.testing.assert_allclose(sparse_pdist(data, "seuclidean", w), pdist(data.toarray(), "euclidean", w=w),
                               rtol=1e-14)


def upper_factor(vi):
    """Upper-triangular R with R R^T = vi."""
    lower = np.linalg.cholesky(vi[::-1, ::-1])
    return np.ascontiguousarray(lower[::-1, ::-1])


@pytest.mark.parametrize("name", ["scaled", "denser", "ties"])
def test_mahalanobis_with_upper_factor(name):
    data = DATASETS[name]
    p = data.shape[1]
    rng = np.random.default_rng(5)
    a = rng.standard_normal((p, p))
    vi = a @ a.T + p * np.eye(p)
    # scipy forms u^T VI u with dot products; here R^T d column by column.
    np.testing.assert_allclose(sparse_pdist(data, "mahalanobis", upper_factor(vi)),
                               pdist(data.toarray(), "mahalanobis", VI=vi), rtol=1e-11)


def unit_rows(x):
    norms = np.sqrt(np.asarray(x.multiply(x).sum(axis=1))).ravel()
    norms[norms == 0] = 1.0
    return sp.csr_matrix(sp.diags(1.0 / norms) @ x)


@pytest.mark.parametrize("name", DATASETS)
@pytest.mark.parametrize("code", ["cosine", "correlation", "spearman"])
def test_cosine_family_on_prepared_observations(name, code):
    data = DATASETS[name]
    empty = np.asarray(data.getnnz(axis=1) == 0)
    prepared = unit_rows(data)
    ours = sparse_pdist(prepared, code)
    # scipy divides by the norms itself; an empty row has none.
    with np.errstate(invalid="ignore", divide="ignore"):
        expected = pdist(data.toarray(), "cosine")
    for k, (i, j) in enumerate(pair_index(data.shape[0])):
        if empty[i] or empty[j]:
            assert ours[k] == 1.0  # no shared row: similarity 0
        else:
            assert ours[k] == pytest.approx(expected[k], rel=1e-12, abs=1e-14)


# ---- what the binding hands over --------------------------------------------------------

def test_stored_zeros_reach_the_gateway_and_count_under_hamming():
    # Observations u = (4, [0]) and v = (4, -): [0] is a stored zero, which
    # hamming counts as a row u stores and v does not.
    x = sp.csc_matrix((np.array([4.0, 0.0, 4.0]), np.array([0, 1, 0]), [0, 2, 3]), shape=(2, 2))
    assert x.nnz == 3
    (ham,) = zvstats.call("pdistSparseBIF", 1, x, "hamming")
    np.testing.assert_array_equal(ham, [[0.5]])


# ---- pdist2SparseBIF ------------------------------------------------------------------------

@pytest.mark.parametrize("code, metric", [("euclidean", "euclidean"), ("sqeuclidean", "sqeuclidean")])
def test_cross_distances_equal_scipy_bit_for_bit(code, metric):
    xa, xb = random_sparse(17, 50, 0.1, 6, 2.0), random_sparse(23, 50, 0.1, 7, 2.0)
    np.testing.assert_array_equal(sparse_cdist(xa, xb, code), cdist(xa.toarray(), xb.toarray(), metric))

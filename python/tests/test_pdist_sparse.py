# pdistSparseBIF and pdist2SparseBIF against scipy's pdist and cdist on the
# densified data, and against the dense gateway. The gateways take one
# observation per column, so scipy's n-by-p data goes in transposed.
import itertools

import numpy as np
import pytest
import scipy.sparse as sp
from scipy.spatial.distance import cdist, pdist

import zvstats


def sparse_pdist(data, code, *extra, nout=1):
    """Condensed distances between the rows of the sparse n-by-p `data`."""
    (y,) = zvstats.call("pdistSparseBIF", nout, sp.csc_matrix(data.T), code, *extra)
    n = data.shape[0]
    assert y.shape == (1, n * (n - 1) // 2) and y.dtype == np.float64
    return y[0]


def sparse_cdist(xa, xb, code, nout=1):
    outputs = zvstats.call("pdist2SparseBIF", nout, sp.csc_matrix(xa.T), sp.csc_matrix(xb.T), code)
    assert len(outputs) == 1  # only the first slot is ever filled
    (d,) = outputs
    assert d.shape == (xa.shape[0], xb.shape[0]) and not sp.issparse(d)
    return d


def dense_pdist(data, code, *extra):
    (y,) = zvstats.call("pdistbif", 1, np.ascontiguousarray(data.T), code, *extra)
    return y[0]


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
def test_exact_metrics_equal_scipy_and_the_dense_gateway_bit_for_bit(name, code, metric, kwargs, extra):
    data = DATASETS[name]
    ours = sparse_pdist(data, code, *extra)
    np.testing.assert_array_equal(ours, pdist(data.toarray(), metric, **kwargs))
    np.testing.assert_array_equal(ours, dense_pdist(data.toarray(), code, *extra))


@pytest.mark.parametrize("name", DATASETS)
def test_jaccard_equals_scipy_except_that_no_stored_value_is_nan(name):
    data = DATASETS[name].toarray()
    ours = sparse_pdist(DATASETS[name], "jaccard")
    expected = pdist(data, "jaccard")
    # scipy calls 0/0 a distance of 0; here it stays NaN, as in the dense gateway.
    empty = np.array([not (data[i].any() or data[j].any()) for i, j in pair_index(len(data))])
    expected[empty] = np.nan
    np.testing.assert_array_equal(ours, expected)
    np.testing.assert_array_equal(ours, dense_pdist(data, "jaccard"))


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


# ---- what sparse storage changes ------------------------------------------------------------

def with_stored_zeros():
    """Columns (observations) u = (4, [0], -, -), v = (4, [0], [0], -),
    w = (-, -, -, [0]), z = nothing stored; [0] is a stored zero."""
    data = np.array([4.0, 0.0, 4.0, 0.0, 0.0, 0.0])
    rows = np.array([0, 1, 0, 1, 2, 3])
    return sp.csc_matrix((data, rows, [0, 2, 5, 6, 6]), shape=(4, 4))


def test_stored_zeros_count_under_hamming_and_jaccard():
    x = with_stored_zeros()
    assert x.nnz == 6  # the binding keeps stored zeros
    (ham,) = zvstats.call("pdistSparseBIF", 1, x, "hamming")
    (jac,) = zvstats.call("pdistSparseBIF", 1, x, "jaccard")
    # Pairs (u,v) (u,w) (u,z) (v,w) (v,z) (w,z), p = 4.
    np.testing.assert_array_equal(ham[0], [1, 3, 2, 4, 3, 1] / np.float64(4))
    np.testing.assert_array_equal(jac[0], [1 / 3, 1, 1, 1, 1, 1])
    # Sums and products do not notice them.
    for code in ["euclidean", "cityblock", "chebychev", "cosine"]:
        (y,) = zvstats.call("pdistSparseBIF", 1, x, code)
        (plain,) = zvstats.call("pdistSparseBIF", 1, sp.csc_matrix(x.toarray()), code)
        np.testing.assert_array_equal(y, plain)


def test_nan_runs_through_without_marking_whole_observations():
    data = sp.csr_matrix(np.array([[1.0, np.nan, 0.0], [4.0, 0.0, 2.0], [1.0, 0.0, 2.0]]))
    che = sparse_pdist(data, "chebychev")
    np.testing.assert_array_equal(che, [3.0, 2.0, 3.0])  # the NaN term is passed over
    # A lone NaN counts as a difference like any lone value.
    np.testing.assert_array_equal(sparse_pdist(data, "hamming"), [1.0, 2 / 3, 1 / 3])
    np.testing.assert_array_equal(sparse_pdist(data, "jaccard"), [1.0, 2 / 3, 1 / 2])
    euc = sparse_pdist(data, "euclidean")
    assert np.isnan(euc[0]) and np.isnan(euc[1]) and euc[2] == 3.0
    # The dense gateway marks both pairs of observation 0 as NaN instead.
    assert np.isnan(dense_pdist(data.toarray(), "chebychev")[:2]).all()


# ---- edge cases -----------------------------------------------------------------------------

ALL_CODES = ["euclidean", "sqeuclidean", "seuclidean", "cityblock", "minkowski", "cosine", "correlation",
             "spearman", "hamming", "jaccard", "chebychev", "mahalanobis"]
EXTRA = {"seuclidean": (np.ones(3),), "mahalanobis": (np.eye(3),), "minkowski": (3.0,)}


@pytest.mark.parametrize("n", [0, 1])
@pytest.mark.parametrize("code", ALL_CODES)
def test_fewer_than_two_observations_give_an_empty_row(code, n):
    (y,) = zvstats.call("pdistSparseBIF", 1, sp.csc_matrix((3, n)), code, *EXTRA.get(code, ()))
    assert y.shape == (1, 0) and y.dtype == np.float64


@pytest.mark.parametrize("code, expected", [
    ("euclidean", 0.0), ("sqeuclidean", 0.0), ("seuclidean", 0.0), ("cityblock", 0.0), ("minkowski", 0.0),
    ("chebychev", 0.0), ("hamming", 0.0), ("mahalanobis", 0.0), ("cosine", 1.0), ("correlation", 1.0),
    ("spearman", 1.0), ("jaccard", np.nan),
])
def test_two_observations_without_stored_values(code, expected):
    (y,) = zvstats.call("pdistSparseBIF", 1, sp.csc_matrix((3, 2)), code, *EXTRA.get(code, ()))
    np.testing.assert_array_equal(y, [[expected]])


def test_an_empty_observation_is_at_the_norm_of_the_other():
    data = sp.csr_matrix(np.array([[0.0, 0.0, 0.0], [0.0, 3.0, 4.0]]))
    assert sparse_pdist(data, "euclidean")[0] == 5.0


@pytest.mark.parametrize("code", ["xyz", "Euclidean", "eu", ""])
def test_unknown_code_returns_zeros(code):
    np.testing.assert_array_equal(sparse_pdist(DATASETS["scaled"], code), np.zeros(31 * 30 // 2))


def test_only_the_first_three_letters_select_the_metric():
    data = DATASETS["ties"]
    np.testing.assert_array_equal(sparse_pdist(data, "hamster"), pdist(data.toarray(), "hamming"))
    np.testing.assert_array_equal(sparse_pdist(data, "cityblocks"), pdist(data.toarray(), "cityblock"))


def test_minkowski_defaults_to_two_and_takes_any_numeric_class():
    data = DATASETS["scaled"]
    np.testing.assert_array_equal(sparse_pdist(data, "minkowski"), sparse_pdist(data, "minkowski", 2.0))
    reference = sparse_pdist(data, "minkowski", 3.0)
    for exponent in [np.int32(3), np.array([[3]], dtype=np.uint8), np.float32(3.0)]:
        np.testing.assert_array_equal(sparse_pdist(data, "minkowski", exponent), reference)


def test_missing_weights_or_factor_give_nan():
    data = DATASETS["denser"]
    assert np.isnan(sparse_pdist(data, "seuclidean")).all()
    assert np.isnan(sparse_pdist(data, "mahalanobis", np.eye(2))).all()


# ---- pdist2SparseBIF ------------------------------------------------------------------------

@pytest.mark.parametrize("code, metric", [("euclidean", "euclidean"), ("sqeuclidean", "sqeuclidean")])
@pytest.mark.parametrize("nout", [0, 1, 2])
def test_cross_distances_equal_scipy_bit_for_bit(code, metric, nout):
    xa, xb = random_sparse(17, 50, 0.1, 6, 2.0), random_sparse(23, 50, 0.1, 7, 2.0)
    np.testing.assert_array_equal(sparse_cdist(xa, xb, code, nout), cdist(xa.toarray(), xb.toarray(), metric))


def test_cross_distances_do_not_compare_row_counts():
    xa = sp.csr_matrix(np.array([[3.0, 0.0], [0.0, 0.0]]))
    xb = sp.csr_matrix(np.array([[0.0, 0.0, 0.0, 4.0]]))
    np.testing.assert_array_equal(sparse_cdist(xa, xb, "euclidean"), [[5.0], [4.0]])


@pytest.mark.parametrize("code", ["cityblock", "chebychev", "mahalanobis", "xyz"])
def test_cross_distances_only_know_euclidean_and_squared(code):
    xa, xb = random_sparse(4, 6, 0.5, 8), random_sparse(5, 6, 0.5, 9)
    np.testing.assert_array_equal(sparse_cdist(xa, xb, code), np.zeros((4, 5)))


def test_cross_distances_with_an_empty_side():
    xa = random_sparse(4, 6, 0.5, 8)
    assert sparse_cdist(xa, sp.csr_matrix((0, 6)), "euclidean").shape == (4, 0)
    assert sparse_cdist(sp.csr_matrix((0, 6)), xa, "euclidean").shape == (0, 4)


# ---- identifiers ----------------------------------------------------------------------------

S = sp.csc_matrix(DATASETS["denser"].T)
D = S.toarray()


@pytest.mark.parametrize("nout, args, identifier", [
    (1, (), "stats:pdistbif:TooFewInputs"),
    (1, (S,), "stats:pdistbif:TooFewInputs"),
    (2, (S,), "stats:pdistbif:TooFewInputs"),
    (2, (S, "euclidean"), "stats:pdistbif:TooManyOutputs"),
    (1, (D, "euclidean"), "stats:pdistbif:BadInputType"),
    (1, (D.astype(np.float32), "euclidean"), "stats:pdistbif:BadInputType"),
    (1, (S, "seuclidean", np.ones(9, np.float32)), "stats:pdistbif:MixedInputTypes"),
    (1, (S, "euclidean", np.ones(9, np.int32)), "stats:pdistbif:MixedInputTypes"),
    (1, (S, "euclidean", np.empty((0, 0), np.float32)), None),
    (0, (S, "euclidean"), None),
])
def test_pdist_identifiers(nout, args, identifier):
    if identifier is None:
        assert zvstats.call("pdistSparseBIF", nout, *args)[0].shape == (1, 12 * 11 // 2)
        return
    with pytest.raises(zvstats.HostError) as e:
        zvstats.call("pdistSparseBIF", nout, *args)
    assert e.value.identifier == identifier


@pytest.mark.parametrize("nout, args, identifier", [
    (1, (S, S), "stats:pdist2bif:TooFewInputs"),
    (3, (S, S), "stats:pdist2bif:TooFewInputs"),
    (3, (S, S, "euclidean"), "stats:pdist2bif:TooManyOutputs"),
    (1, (D, S, "euclidean"), "stats:pdist2bif:BadInputType"),
    (1, (S, D, "euclidean"), "stats:pdist2bif:BadInputType"),
])
def test_pdist2_identifiers(nout, args, identifier):
    with pytest.raises(zvstats.HostError) as e:
        zvstats.call("pdist2SparseBIF", nout, *args)
    assert e.value.identifier == identifier

# pdistbif against scipy.spatial.distance.pdist. The gateway takes X with
# one observation per column, so scipy's n-by-p data goes in transposed, and
# what pdist prepares itself (weights, the Cholesky factor, normalised
# observations) is prepared here.
import itertools

import numpy as np
import pytest
from scipy.spatial.distance import pdist, squareform
from scipy.stats import rankdata, spearmanr

import zvstats


def gateway_pdist(data, code, *extra, nout=1):
    """Condensed distances between the rows of `data` (n-by-p)."""
    (y,) = zvstats.call("pdistbif", nout, np.ascontiguousarray(data.T), code, *extra)
    n = data.shape[0]
    assert y.shape == (1, n * (n - 1) // 2)
    assert y.dtype == data.dtype
    return y[0]


def pair_index(n):
    return list(itertools.combinations(range(n), 2))


rng = np.random.default_rng(20240611)
# Coordinates on scales from 1e-3 to 1e3, so that rounding differences show.
GAUSSIAN = rng.standard_normal((23, 9)) * 10.0 ** rng.uniform(-3, 3, 9)
# Small integers: many exact ties and zero coordinates.
TIES = rng.integers(0, 3, (21, 12)).astype(np.float64)
WIDE = rng.standard_normal((7, 301))
DATASETS = {"gaussian": GAUSSIAN, "ties": TIES, "wide": WIDE}


def inverse_weights(data):
    return 1.0 / data.var(axis=0, ddof=1)


def upper_factor(vi):
    """Upper-triangular R with R R^T = vi: the Cholesky factor of vi with its
    coordinates taken in reverse order, then flipped back."""
    lower = np.linalg.cholesky(vi[::-1, ::-1])
    return np.ascontiguousarray(lower[::-1, ::-1])


# ---- the metrics whose arithmetic equals scipy's: bit for bit -----------------------
# scipy sums the same terms in the same ascending order for these, so any
# difference is a fault. seuclidean is compared with scipy's weighted
# euclidean, which multiplies by 1/V as the gateway does (scipy's seuclidean
# divides by V instead, see below).
EXACT = [
    ("euclidean", "euclidean", {}, ()),
    ("sqeuclidean", "sqeuclidean", {}, ()),
    ("cityblock", "cityblock", {}, ()),
    ("chebychev", "chebyshev", {}, ()),
    ("hamming", "hamming", {}, ()),
    ("jaccard", "jaccard", {}, ()),
    ("minkowski", "minkowski", {"p": 3.0}, (3.0,)),
    ("minkowski", "minkowski", {"p": 1.5}, (1.5,)),
]


@pytest.mark.parametrize("name", DATASETS)
@pytest.mark.parametrize("code, metric, kwargs, extra", EXACT)
def test_exact_metrics_equal_scipy_bit_for_bit(name, code, metric, kwargs, extra):
    data = DATASETS[name]
    np.testing.assert_array_equal(gateway_pdist(data, code, *extra), pdist(data, metric, **kwargs))


@pytest.mark.parametrize("name", DATASETS)
def test_seuclidean_equals_weighted_euclidean_bit_for_bit(name):
    data = DATASETS[name]
    w = inverse_weights(data)
    np.testing.assert_array_equal(gateway_pdist(data, "seuclidean", w), pdist(data, "euclidean", w=w))
    # scipy's own seuclidean divides by the variances: the same value up to
    # the rounding of 1/V.
    np.testing.assert_allclose(gateway_pdist(data, "seuclidean", w),
                               pdist(data, "seuclidean", V=1.0 / w), rtol=1e-14)


# ---- metrics whose reference uses other arithmetic: tight tolerances ------------------

@pytest.mark.parametrize("name", DATASETS)
def test_mahalanobis_with_upper_factor(name):
    data = DATASETS[name]
    vi = np.linalg.inv(np.cov(data.T)) if data.shape[0] > data.shape[1] else np.diag(inverse_weights(data))
    r = upper_factor(vi)
    assert np.array_equal(r, np.triu(r))
    np.testing.assert_allclose(r @ r.T, vi, rtol=1e-12, atol=1e-12 * np.abs(vi).max())
    # scipy forms u^T VI u with dot products; the gateway a triangular product.
    np.testing.assert_allclose(gateway_pdist(data, "mahalanobis", r), pdist(data, "mahalanobis", VI=vi),
                               rtol=1e-11)


def normalised(rows):
    return rows / np.linalg.norm(rows, axis=1, keepdims=True)


def centred(rows):
    return rows - rows.mean(axis=1, keepdims=True)


@pytest.mark.parametrize("name", DATASETS)
def test_cosine_family_on_prepared_observations(name):
    data = DATASETS[name]
    # The dot products come from BLAS, whose summation order is its own.
    tol = dict(rtol=1e-12, atol=1e-14)
    np.testing.assert_allclose(gateway_pdist(normalised(data), "cosine"), pdist(data, "cosine"), **tol)
    np.testing.assert_allclose(gateway_pdist(normalised(centred(data)), "correlation"),
                               pdist(data, "correlation"), **tol)
    ranks = rankdata(data, axis=1)  # ties get their average rank
    rho = spearmanr(data, axis=1).correlation
    np.testing.assert_allclose(gateway_pdist(normalised(centred(ranks)), "spearman"),
                               squareform(1.0 - rho, checks=False), **tol)


@pytest.mark.parametrize("code, metric, kwargs, extra", EXACT + [
    ("seuclidean", "euclidean", {"w": inverse_weights(GAUSSIAN)}, (inverse_weights(GAUSSIAN),)),
])
def test_single_precision_within_rounding(code, metric, kwargs, extra):
    data = GAUSSIAN.astype(np.float32)
    extra = tuple(np.float32(e) if np.isscalar(e) else np.asarray(e, np.float32) for e in extra)
    kwargs = {k: (v.astype(np.float32).astype(np.float64) if isinstance(v, np.ndarray) else v)
              for k, v in kwargs.items()}
    expected = pdist(data.astype(np.float64), metric, **kwargs)
    np.testing.assert_allclose(gateway_pdist(data, code, *extra), expected, rtol=2e-5)


def test_single_precision_mahalanobis_and_cosine():
    data = GAUSSIAN / GAUSSIAN.std(axis=0)
    vi = np.linalg.inv(np.cov(data.T))
    r = upper_factor(vi).astype(np.float32)
    np.testing.assert_allclose(gateway_pdist(data.astype(np.float32), "mahalanobis", r),
                               pdist(data, "mahalanobis", VI=vi), rtol=1e-4)
    np.testing.assert_allclose(gateway_pdist(normalised(data).astype(np.float32), "cosine"),
                               pdist(data, "cosine"), atol=1e-5)


# ---- missing data ----------------------------------------------------------------------

@pytest.mark.parametrize("dtype", [np.float64, np.float32])
@pytest.mark.parametrize("code, metric", [("hamming", "hamming"), ("jaccard", "jaccard"),
                                          ("chebychev", "chebyshev"), ("euclidean", "euclidean")])
def test_nan_observation_poisons_all_its_pairs(code, metric, dtype):
    data = TIES.copy()
    data[3, 5] = np.nan
    data[8, 0] = np.nan
    # Row 11 differs from row 3 only where row 3 holds the NaN: the pair
    # would compare as unequal there, yet it too must be NaN.
    data[11] = data[3]
    data[11, 5] = 7.0
    y = gateway_pdist(data.astype(dtype), code)
    clean = pdist(np.nan_to_num(data), metric)
    for k, (i, j) in enumerate(pair_index(len(data))):
        if {i, j} & {3, 8}:
            assert np.isnan(y[k]), (i, j)
        elif dtype == np.float64:
            assert y[k] == clean[k]
        else:
            assert y[k] == pytest.approx(clean[k], rel=1e-6)


# ---- edge cases ---------------------------------------------------------------------------

ALL_CODES = ["euclidean", "sqeuclidean", "seuclidean", "cityblock", "minkowski", "cosine", "correlation",
             "spearman", "hamming", "jaccard", "chebychev", "mahalanobis"]


@pytest.mark.parametrize("n", [0, 1])
@pytest.mark.parametrize("code", ALL_CODES)
def test_fewer_than_two_observations_give_an_empty_row(code, n):
    x = np.ones((3, n))
    extra = {"seuclidean": (np.ones(3),), "mahalanobis": (np.eye(3),), "minkowski": (3.0,)}.get(code, ())
    (y,) = zvstats.call("pdistbif", 1, x, code, *extra)
    assert y.shape == (1, 0) and y.dtype == np.float64


@pytest.mark.parametrize("code, expected", [
    ("euclidean", 0.0), ("sqeuclidean", 0.0), ("cityblock", 0.0), ("chebychev", 0.0),
    ("hamming", np.nan), ("jaccard", np.nan),
])
def test_no_coordinates(code, expected):
    (y,) = zvstats.call("pdistbif", 1, np.empty((0, 4)), code)
    np.testing.assert_array_equal(y, np.full((1, 6), expected))


def test_no_coordinates_minkowski_is_pow_of_zero():
    (y,) = zvstats.call("pdistbif", 1, np.empty((0, 3)), "minkowski", 3.0)
    np.testing.assert_array_equal(y, np.zeros((1, 3)))


def test_jaccard_of_two_all_zero_observations_is_nan():
    data = np.array([[0.0, 0.0, 0.0], [0.0, 0.0, 0.0], [1.0, 0.0, 2.0], [0.0, 0.0, 2.0]])
    y = gateway_pdist(data, "jaccard")
    # Pairs (0,1) (0,2) (0,3) (1,2) (1,3) (2,3): only (0,1) has no non-zero.
    np.testing.assert_array_equal(y, [np.nan, 1.0, 1.0, 1.0, 1.0, 0.5])


def test_cosine_of_a_dot_product_above_one_is_exactly_zero():
    eps = np.finfo(np.float64).eps
    values = [1.0 + eps, 1.0, 1.0 - eps / 2, -1.0, 0.5]
    y = gateway_pdist(np.array(values)[:, None], "cosine")
    expected = [0.0 if u * v > 1.0 else 1.0 - u * v for u, v in itertools.combinations(values, 2)]
    np.testing.assert_array_equal(y, expected)
    assert y[0] == 0.0 and not np.signbit(y[0])  # 1 + eps: no negative distance
    assert y[1] == 0.0                           # (1+eps)(1-eps/2) rounds to 1
    assert y[4] == eps / 2                       # just below 1 keeps its difference


@pytest.mark.parametrize("code", ["xyz", "Euclidean", "eu", ""])
def test_unknown_code_returns_zeros(code):
    np.testing.assert_array_equal(gateway_pdist(GAUSSIAN, code), np.zeros(23 * 22 // 2))


def test_only_the_first_three_letters_select_the_metric():
    np.testing.assert_array_equal(gateway_pdist(GAUSSIAN, "euclideanXYZ"), pdist(GAUSSIAN))
    np.testing.assert_array_equal(gateway_pdist(TIES, "hamster"), pdist(TIES, "hamming"))
    np.testing.assert_array_equal(gateway_pdist(GAUSSIAN, "sqe"), pdist(GAUSSIAN, "sqeuclidean"))


def test_layout_is_one_observation_per_column():
    # Columns (0, 3) and (0, 4) are 1 apart; the rows would be 5 apart.
    (y,) = zvstats.call("pdistbif", 1, np.array([[0.0, 0.0], [3.0, 4.0]]), "euclidean")
    np.testing.assert_array_equal(y, [[1.0]])


# ---- the third input ---------------------------------------------------------------------

def test_minkowski_exponent_may_be_any_numeric_class():
    reference = gateway_pdist(GAUSSIAN, "minkowski", 3.0)
    for exponent in [np.int32(3), np.array([[3]], dtype=np.uint8), np.float32(3.0), zvstats.Array("int64", (1, 1), 3)]:
        np.testing.assert_array_equal(gateway_pdist(GAUSSIAN, "minkowski", exponent), reference)


def test_empty_or_extra_inputs_are_ignored():
    reference = pdist(GAUSSIAN)
    np.testing.assert_array_equal(gateway_pdist(GAUSSIAN, "euclidean", np.empty((0, 0), np.float32)), reference)
    np.testing.assert_array_equal(gateway_pdist(GAUSSIAN, "euclidean", None, "ignored", [1, 2]), reference)


# ---- identifiers on bad input -------------------------------------------------------------

X = np.ascontiguousarray(GAUSSIAN.T)
W = inverse_weights(GAUSSIAN)


@pytest.mark.parametrize("nout, args, identifier", [
    (1, (), "TooFewInputs"),
    (1, (X,), "TooFewInputs"),
    (2, (X,), "TooFewInputs"),            # inputs are counted before outputs
    (2, (X, "euclidean"), "TooManyOutputs"),
    (1, (X.astype(np.int32), "euclidean"), "BadInputType"),
    (1, (X > 0, "euclidean"), "BadInputType"),
    (1, ("text", "euclidean"), "BadInputType"),
    (1, ([X], "euclidean"), "BadInputType"),
    (1, (X.astype(np.complex128), "xyz"), None),  # complex double is double to the class test
    (1, (X.astype(np.float32), "seuclidean", W), "MixedInputTypes"),
    (1, (X, "seuclidean", W.astype(np.float32)), "MixedInputTypes"),
    (1, (X, "mahalanobis", np.eye(9, dtype=np.float32)), "MixedInputTypes"),
    (1, (X, "euclidean", np.ones(3, np.float32)), "MixedInputTypes"),
    (1, (np.empty((0, 2**25)), "euclidean"), "OutputTooLarge"),
], ids=lambda v: v if isinstance(v, str) else None)
def test_bad_input_identifiers(nout, args, identifier):
    if identifier is None:
        zvstats.call("pdistbif", nout, *args)
        return
    with pytest.raises(zvstats.HostError) as err:
        zvstats.call("pdistbif", nout, *args)
    assert err.value.identifier == "stats:pdistbif:" + identifier
    assert err.value.args == ()

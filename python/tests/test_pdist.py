# pdistbif against scipy.spatial.distance.pdist. The gateway takes X with
# one observation per column, so scipy's n-by-p data goes in transposed, and
# what pdist prepares itself (weights, the Cholesky factor, normalised
# observations) is prepared here. Edge cases, missing data and identifiers
# are the C++ suite's.
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

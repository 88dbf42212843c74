# Lasso and GLM-lasso sweeps against scikit-learn's coordinate descent.
#
# One sweep of sklearn's cd_fast (cyclic, n_samples-scaled penalties) for
# ElasticNet(alpha, l1_ratio) is the gateway's sweep under this mapping:
#   weightedX = X, xx[j] = ||X_j||^2, divisor = n,
#   threshold = alpha * l1_ratio, shrink[j] = ||X_j||^2 / n + alpha * (1 - l1_ratio).
# sklearn adds the coefficient back into the residual and takes it out again;
# the gateway subtracts the difference: the same values up to rounding.
import warnings

import numpy as np
import pytest
from sklearn.exceptions import ConvergenceWarning
from sklearn.linear_model import ElasticNet, enet_path

import zvstats

rng = np.random.default_rng(20261123)


def problem(n=120, p=15, k=4, noise=0.3, seed=0):
    g = np.random.default_rng(seed)
    X = g.standard_normal((n, p))
    truth = np.zeros(p)
    truth[g.choice(p, k, replace=False)] = g.uniform(1, 3, k) * g.choice([-1, 1], k)
    y = X @ truth + noise * g.standard_normal(n)
    return X, y


def mapping(X, alpha, l1_ratio):
    n = X.shape[0]
    xx = (X * X).sum(axis=0)
    return float(n), xx / n + alpha * (1 - l1_ratio), alpha * l1_ratio, xx


def sweep(X, y, b, active, alpha, l1_ratio, r=None):
    divisor, shrink, threshold, xx = mapping(X, alpha, l1_ratio)
    if r is None:
        r = y - X @ b
    b1, a1, r1 = zvstats.call("lassoCoordDescentCycle", 3, X, X, y, b, active, divisor, shrink, threshold, r, xx)
    return b1.ravel(), a1.ravel(), r1.ravel()


def sklearn_one_sweep(X, y, b0, alpha, l1_ratio, **kw):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", ConvergenceWarning)
        _, coefs, _ = enet_path(X, y, l1_ratio=l1_ratio, alphas=[alpha], coef_init=b0.copy(),
                                max_iter=1, tol=0, **kw)
    return coefs[:, 0]


CASES = [(0.05, 1.0), (0.2, 1.0), (0.1, 0.5), (0.01, 0.9), (5.0, 1.0)]


@pytest.mark.parametrize("alpha, l1_ratio", CASES)
@pytest.mark.parametrize("start", ["zero", "random"])
def test_one_sweep_matches_enet_path_single_iteration(alpha, l1_ratio, start):
    X, y = problem(seed=1)
    p = X.shape[1]
    b0 = np.zeros(p) if start == "zero" else rng.standard_normal(p) * (rng.random(p) < 0.6)
    b, active, r = sweep(X, y, b0, np.ones(p, bool), alpha, l1_ratio)
    ref = sklearn_one_sweep(X, y, b0, alpha, l1_ratio, precompute=False)
    np.testing.assert_allclose(b, ref, rtol=1e-11, atol=1e-13)
    np.testing.assert_array_equal(active, b != 0)
    np.testing.assert_allclose(r, y - X @ b, rtol=1e-11, atol=1e-12)


@pytest.mark.parametrize("alpha, l1_ratio", CASES)
def test_gram_sweep_matches_enet_path_with_precomputed_gram(alpha, l1_ratio):
    X, y = problem(seed=2)
    p = X.shape[1]
    n = float(X.shape[0])
    G, c = X.T @ X, X.T @ y
    b0 = rng.standard_normal(p) * (rng.random(p) < 0.5)
    # Without the 1/n scaling: divisor 1, threshold and ridge times n.
    shrink = np.diag(G) + alpha * (1 - l1_ratio) * n
    b, active = zvstats.call("lassoCoordDescentCycleWithCov", 2, X, None, None, b0, np.ones(p, bool), 1.0,
                             shrink, alpha * l1_ratio * n, c, G)
    ref = sklearn_one_sweep(X, y, b0, alpha, l1_ratio, precompute=G, Xy=c)
    np.testing.assert_allclose(b.ravel(), ref, rtol=1e-11, atol=1e-13)
    np.testing.assert_array_equal(active.ravel(), b.ravel() != 0)


def lasso_path_point(X, y, alpha, l1_ratio, gram=False, max_sweeps=20000):
    """The host's outer loop: sweep with every predictor admitted, carry the
    residual, stop when no coefficient moves."""
    p = X.shape[1]
    b = np.zeros(p)
    r = y.copy()
    n = float(X.shape[0])
    G, c = X.T @ X, X.T @ y
    for _ in range(max_sweeps):
        if gram:
            b1, _ = zvstats.call("lassoCoordDescentCycleWithCov", 2, X, None, None, b, np.ones(p, bool), 1.0,
                                 np.diag(G) + alpha * (1 - l1_ratio) * n, alpha * l1_ratio * n, c, G)
            b1 = b1.ravel()
        else:
            b1, _, r = sweep(X, y, b, np.ones(p, bool), alpha, l1_ratio, r)
        moved = np.max(np.abs(b1 - b))
        b = b1
        if moved < 1e-14:
            return b
    raise AssertionError("no convergence")


@pytest.mark.parametrize("alpha, l1_ratio", CASES)
@pytest.mark.parametrize("gram", [False, True])
def test_looped_sweeps_converge_to_elastic_net(alpha, l1_ratio, gram):
    X, y = problem(n=200, p=25, seed=3)
    b = lasso_path_point(X, y, alpha, l1_ratio, gram)
    model = ElasticNet(alpha=alpha, l1_ratio=l1_ratio, fit_intercept=False, tol=1e-14, max_iter=200000)
    model.fit(X, y)
    np.testing.assert_allclose(b, model.coef_, rtol=1e-8, atol=1e-10)
    np.testing.assert_array_equal(b != 0, model.coef_ != 0)


def test_single_precision_sweep_tracks_double():
    X, y = problem(seed=4)
    p = X.shape[1]
    b0 = rng.standard_normal(p)
    divisor, shrink, threshold, xx = mapping(X, 0.1, 1.0)
    f = np.float32
    out = zvstats.call("lassoCoordDescentCycle", 3, X.astype(f), X.astype(f), y.astype(f), b0.astype(f),
                       np.ones(p, bool), np.float32(divisor), shrink.astype(f), np.float32(threshold),
                       (y - X @ b0).astype(f), xx.astype(f))
    assert all(o.dtype == np.float32 for o in (out[0], out[2]))
    ref, _, _ = sweep(X, y, b0, np.ones(p, bool), 0.1, 1.0)
    np.testing.assert_allclose(out[0].ravel(), ref, rtol=1e-4, atol=1e-4)


# ---- GLM-lasso -------------------------------------------------------------
# With weights w normalised to sum to n, the weighted sweep with
#   weightedX = w * X, xx = lassoglmWtimesX2, threshold = n * alpha * l1_ratio,
#   shrink = xx + n * alpha * (1 - l1_ratio)
# is coordinate descent on sklearn's weighted ElasticNet objective times n.


def glm_problem(seed=6):
    X, z = problem(n=150, p=12, seed=seed)
    w = np.random.default_rng(seed + 100).uniform(0.1, 2.0, X.shape[0])
    w[::17] = 0.0  # a few rows with no weight
    return X, z, w * X.shape[0] / w.sum()


def glm_sweep_reference(X, wX, xx, z, b, active, shrink, threshold):
    b, active = b.copy(), active.copy()
    r = z - X @ b
    for j in range(X.shape[1]):
        if not active[j]:
            continue
        old = b[j]
        d = wX[:, j] @ r + xx[j] * old
        if d > threshold:
            b[j] = (d - threshold) / shrink[j]
        elif d < -threshold:
            b[j] = (d + threshold) / shrink[j]
        else:
            b[j], active[j] = 0.0, False
        r -= X[:, j] * (b[j] - old)
    return b, active


@pytest.mark.parametrize("threshold", [0.0, 20.0, 80.0])
def test_glm_sweep_against_transcription(threshold):
    X, z, w = glm_problem()
    p = X.shape[1]
    wX = w[:, None] * X
    (xx,) = zvstats.call("lassoglmWtimesX2", 1, X, w, None, np.ones(p, bool))
    xx = xx.ravel()
    b0 = rng.standard_normal(p) * 0.5
    active0 = rng.random(p) < 0.8
    shrink = xx + 3.0
    b, active = zvstats.call("lassoglmCoordDescentCycleNoRecalc", 2, X, wX, xx, z, b0, active0, shrink, threshold)
    rb, ractive = glm_sweep_reference(X, wX, xx, z, b0, active0, shrink, threshold)
    np.testing.assert_allclose(b.ravel(), rb, rtol=1e-11, atol=1e-13)
    np.testing.assert_array_equal(active.ravel(), ractive)


@pytest.mark.parametrize("alpha, l1_ratio", [(0.05, 1.0), (0.1, 0.5), (0.3, 0.8)])
def test_glm_sweeps_converge_to_weighted_elastic_net(alpha, l1_ratio):
    X, z, w = glm_problem(seed=7)
    n, p = X.shape
    wX = w[:, None] * X
    (xx,) = zvstats.call("lassoglmWtimesX2", 1, X, w, None, np.ones(p, bool))
    xx = xx.ravel()
    shrink = xx + n * alpha * (1 - l1_ratio)
    b = np.zeros(p)
    for _ in range(20000):
        b1, _ = zvstats.call("lassoglmCoordDescentCycleNoRecalc", 2, X, wX, xx, z, b, np.ones(p, bool), shrink,
                             n * alpha * l1_ratio)
        b1 = b1.ravel()
        moved = np.max(np.abs(b1 - b))
        b = b1
        if moved < 1e-14:
            break
    model = ElasticNet(alpha=alpha, l1_ratio=l1_ratio, fit_intercept=False, tol=1e-14, max_iter=200000)
    model.fit(X, z, sample_weight=w)
    np.testing.assert_allclose(b, model.coef_, rtol=1e-8, atol=1e-10)

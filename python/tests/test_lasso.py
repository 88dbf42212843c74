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


def gram_sweep(X, y, b, alpha, l1_ratio):
    # Without the 1/n scaling: divisor 1, threshold and ridge times n.
    n = float(X.shape[0])
    G, c = X.T @ X, X.T @ y
    b1, a1 = zvstats.call("lassoCoordDescentCycleWithCov", 2, X, None, None, b, np.ones(len(b), bool), 1.0,
                          np.diag(G) + alpha * (1 - l1_ratio) * n, alpha * l1_ratio * n, c, G)
    return b1.ravel(), a1.ravel()


@pytest.mark.parametrize("alpha, l1_ratio", CASES)
def test_gram_sweep_matches_enet_path_with_precomputed_gram(alpha, l1_ratio):
    X, y = problem(seed=2)
    b0 = rng.standard_normal(X.shape[1]) * (rng.random(X.shape[1]) < 0.5)
    b, active = gram_sweep(X, y, b0, alpha, l1_ratio)
    ref = sklearn_one_sweep(X, y, b0, alpha, l1_ratio, precompute=X.T @ X, Xy=X.T @ y)
    np.testing.assert_allclose(b, ref, rtol=1e-11, atol=1e-13)
    np.testing.assert_array_equal(active, b != 0)


def converge(step, p, max_sweeps=20000):
    """The host's outer loop: sweep with every predictor admitted until no
    coefficient moves."""
    b = np.zeros(p)
    for _ in range(max_sweeps):
        b1 = step(b)
        if np.max(np.abs(b1 - b)) < 1e-14:
            return b1
        b = b1
    raise AssertionError("no convergence")


@pytest.mark.parametrize("alpha, l1_ratio", CASES)
@pytest.mark.parametrize("gram", [False, True])
def test_looped_sweeps_converge_to_elastic_net(alpha, l1_ratio, gram):
    X, y = problem(n=200, p=25, seed=3)
    carried = {"r": y.copy()}  # the dense form carries its residual between sweeps

    def dense_step(b):
        b1, _, carried["r"] = sweep(X, y, b, np.ones(len(b), bool), alpha, l1_ratio, carried["r"])
        return b1

    b = converge((lambda b: gram_sweep(X, y, b, alpha, l1_ratio)[0]) if gram else dense_step, X.shape[1])
    model = ElasticNet(alpha=alpha, l1_ratio=l1_ratio, fit_intercept=False, tol=1e-14, max_iter=200000)
    model.fit(X, y)
    np.testing.assert_allclose(b, model.coef_, rtol=1e-8, atol=1e-10)
    np.testing.assert_array_equal(b != 0, model.coef_ != 0)


# ---- GLM-lasso -------------------------------------------------------------
# With weights w normalised to sum to n, the weighted sweep with
#   weightedX = w * X, xx = lassoglmWtimesX2, threshold = n * alpha * l1_ratio,
#   shrink = xx + n * alpha * (1 - l1_ratio)
# is coordinate descent on sklearn's weighted ElasticNet objective times n.


@pytest.mark.parametrize("alpha, l1_ratio", [(0.05, 1.0), (0.1, 0.5), (0.3, 0.8)])
def test_glm_sweeps_converge_to_weighted_elastic_net(alpha, l1_ratio):
    X, z = problem(n=150, p=12, seed=7)
    n, p = X.shape
    w = np.random.default_rng(107).uniform(0.1, 2.0, n)
    w[::17] = 0.0  # a few rows with no weight
    w *= n / w.sum()
    (xx,) = zvstats.call("lassoglmWtimesX2", 1, X, w, None, np.ones(p, bool))
    xx = xx.ravel()
    shrink = xx + n * alpha * (1 - l1_ratio)
    b = converge(lambda b: zvstats.call("lassoglmCoordDescentCycleNoRecalc", 2, X, w[:, None] * X, xx, z, b,
                                        np.ones(p, bool), shrink, n * alpha * l1_ratio)[0].ravel(), p)
    model = ElasticNet(alpha=alpha, l1_ratio=l1_ratio, fit_intercept=False, tol=1e-14, max_iter=200000)
    model.fit(X, z, sample_weight=w)
    np.testing.assert_allclose(b, model.coef_, rtol=1e-8, atol=1e-10)

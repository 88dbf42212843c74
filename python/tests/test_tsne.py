# tsnebhbif and tsnelossbif against scikit-learn's Barnes-Hut gradient and
# its error. The exact gradient, the loss by hand, identifiers and empty
# inputs are pinned by the C++ suite.
#
# scikit-learn's _barnes_hut_tsne.gradient(val_P, Y, neighbors, indptr, forces,
# angle, ...) writes forces = attractive - repulsive / sum_Q (the caller then
# multiplies by 4) and returns the error sum p log(max(p, tiny) / max(q, tiny))
# with q = 1 / ((1 + d^2) sum_Q). Our gateway gives attractive and repulsive
# already divided by Z, so forces = A - R; and its loss, sum p log(q p Z) with
# q = 1 + d^2, is that error when Z = sum_Q. Its cells open unless
# full width / distance < angle; ours unless theta > half-width / distance,
# so theta corresponds to angle = 2 theta.
import numpy as np
import pytest

import zvstats

bh = pytest.importorskip("sklearn.manifold._barnes_hut_tsne")


def problem(n, d, k, seed, dtype=np.float64):
    rng = np.random.default_rng(seed)
    y = (rng.standard_normal((n, d)) * 3).astype(dtype)
    nb = np.array([rng.choice(np.delete(np.arange(n), i), k, replace=False) for i in range(n)])
    p = rng.uniform(0.1, 1, (n, k))
    p /= p.sum()
    return y, nb, p.astype(dtype)


def box(y):
    lo, hi = y.min(0), y.max(0)
    return (lo + hi) / 2, (hi - lo) / 2 + 0.5


def gradient(theta, y, nb, p, center=None, half=None, counts=None, starts=None):
    n, k = nb.shape
    if center is None:
        center, half = box(y)
    counts = np.full(n, float(k)) if counts is None else counts
    starts = np.arange(n) * float(k) if starts is None else starts
    a, r, z = zvstats.call("tsnebhbif", 3, theta, np.ascontiguousarray(y.T),
                           np.asarray(center, y.dtype), np.asarray(half, y.dtype),
                           (nb.ravel() + 1).astype(float), counts, p.ravel(), starts)
    return a.T, r.T, z[0, 0]


def loss(y, nb_flat, counts, p_flat, z):
    (l,) = zvstats.call("tsnelossbif", 1, np.ascontiguousarray(y.T), nb_flat, counts, p_flat, z)
    return l[0, 0]


def exact(y, nb, p):
    y = y.astype(np.float64)
    diff = y[:, None, :] - y[None, :, :]
    q = 1 / (1 + (diff ** 2).sum(-1))
    np.fill_diagonal(q, 0)
    z = q.sum()
    rep = ((q ** 2)[:, :, None] * diff).sum(1) / z
    dn = y[:, None, :] - y[nb]
    att = (p.astype(np.float64)[:, :, None] * dn / (1 + (dn ** 2).sum(-1))[:, :, None]).sum(1)
    return att, rep, z


def sklearn_gradient(angle, y, nb, p):
    n, k = nb.shape
    forces = np.zeros((n, y.shape[1]), np.float32)
    err = bh.gradient(p.ravel().astype(np.float32), y.astype(np.float32), nb.ravel().astype(np.int64),
                      np.arange(0, n * k + 1, k, dtype=np.int64), forces, angle, y.shape[1], 0,
                      compute_error=1, num_threads=1)
    return forces, err


@pytest.mark.parametrize("d", [2, 3])
def test_against_sklearn_at_angle_zero(d):
    y, nb, p = problem(400, d, 10, 10 + d)
    a, r, z = gradient(0.0, y, nb, p)
    forces, err = sklearn_gradient(0.0, y, nb, p)
    np.testing.assert_allclose(a - r, forces, rtol=0, atol=2e-5 * np.abs(forces).max())
    # The error is our loss with our Z as sklearn's sum_Q.
    counts = np.full(len(y), float(nb.shape[1]))
    assert loss(y, (nb.ravel() + 1).astype(float), counts, p.ravel(), z) == pytest.approx(err, rel=2e-5)


def sklearn_root_box(y):
    # The root cell scikit-learn builds over the data, as centre and half-width.
    y = y.astype(np.float32)
    lo, hi = y.min(0), y.max(0)
    hi = np.maximum(hi * (1.0 + 1e-3 * np.sign(hi)), hi + 1e-3)
    return (lo + hi) / 2, (hi - lo) / 2


@pytest.mark.parametrize("d", [2, 3])
def test_theta_half_matches_sklearn_angle_one(d):
    y, nb, p = problem(2000, d, 5, 20 + d, np.float32)
    c, w = sklearn_root_box(y)
    a, r, z = gradient(0.5, y, nb, p, center=c, half=w)
    forces, _ = sklearn_gradient(1.0, y, nb, p)
    _, er, _ = exact(y, nb, p)
    # Both approximate alike: ten times closer to each other than to exact
    # (the rest is sklearn's single-precision cells and opening test).
    scale = np.abs(forces).max()
    approx_error = np.abs(a - forces - er).max()
    assert approx_error > 1e-2 * scale
    np.testing.assert_allclose(a - r, forces, rtol=0, atol=3e-3 * scale)

# rkeutils::fwhtbif against a dense reference: each block is
# sign(R) H perm(G/scale * H (D x)) with H from scipy.linalg.hadamard, then
# cosines and sines, times the gain, cut to q columns.
import numpy as np
import pytest
from scipy.linalg import hadamard

import zvstats


def draw(rng, m, k, L, S, dtype=np.float64, integer=False):
    X = rng.integers(-3, 4, (m, k)) if integer else rng.standard_normal((m, k))
    G = rng.integers(-4, 5, (L, S)) if integer else rng.standard_normal((L, S))
    D = rng.choice([-1.0, 1.0], (L, S))
    R = rng.choice([-1.0, 0.0, 1.0], (L, S))
    P = np.stack([rng.permutation(L) + 1 for _ in range(S)], axis=1).astype(np.int64)
    return X.astype(dtype), D.astype(dtype), G.astype(dtype), R.astype(dtype), P


def reference(X, D, G, R, P, sigma, q):
    """The transform with dense Hadamard matrices, in float64."""
    m, k = X.shape
    L, S = D.shape
    scale = np.sqrt(L) * sigma / 1.4142135623730951
    H = hadamard(L).astype(np.float64) if L > 1 else np.ones((1, 1))
    total = 2 * S * L
    gain = np.sqrt(q / total) if total > q else 1.0
    blocks = []
    for b in range(S):
        v = np.zeros((m, L))
        v[:, :k] = X * D[:k, b]
        if L == 1:
            z = np.zeros((m, 1))
        else:
            w = y = v @ H
            if L >= 4:
                w = np.zeros_like(y)
                w[:, P[:, b] - 1] = y * (G[:, b] / scale)
            z = (w @ H) * np.where(R[:, b] > 0, 1.0, -1.0)
        blocks += [np.cos(z) * gain, np.sin(z) * gain]
    return np.hstack(blocks)[:, : min(q, total)]


def call(X, D, G, R, P, sigma, q):
    return zvstats.call("rkeutils::fwhtbif", 1, X, D, G, R, P, float(sigma), float(q))[0]


@pytest.mark.parametrize("L", [1, 2, 4, 16, 64, 256])
def test_exact_data_matches_dense_reference(L):
    # Integer data and a power-of-two scale (L an even power of two) keep
    # every sum exact, so only the cosines and sines round.
    rng = np.random.default_rng(L)
    k = max(1, L - 1 - (L > 4))  # odd k where possible: a pair cut by k
    X, D, G, R, P = draw(rng, 37, k, L, 3, integer=True)
    sigma = 1.4142135623730951 * 4  # scale = 4 sqrt(L)
    out, ref = call(X, D, G, R, P, sigma, 10**9), reference(X, D, G, R, P, sigma, 10**9)
    assert out.shape == ref.shape == (37, 6 * L)
    np.testing.assert_allclose(out, ref, rtol=1e-14, atol=1e-300)


@pytest.mark.parametrize("L, k, m", [(8, 5, 50), (32, 32, 19), (128, 100, 300), (1024, 1000, 40)])
def test_gaussian_data_matches_dense_reference(L, k, m):
    rng = np.random.default_rng(k)
    X, D, G, R, P = draw(rng, m, k, L, 2)
    np.testing.assert_allclose(call(X, D, G, R, P, 3.0, 4 * L), reference(X, D, G, R, P, 3.0, 4 * L),
                               rtol=1e-12, atol=1e-12)


def test_single_precision_matches_double_reference_to_float_rounding():
    rng = np.random.default_rng(5)
    X, D, G, R, P = draw(rng, 64, 30, 32, 2, dtype=np.float32)
    out = call(X, D, G, R, P, 6.0, 128)
    assert out.dtype == np.float32
    ref = reference(*(a.astype(np.float64) for a in (X, D, G, R)), P, 6.0, 128)
    np.testing.assert_allclose(out, ref, atol=2e-5)


@pytest.mark.parametrize("q", [0, 5, 32, 33, 95, 96, 1000])
def test_truncation_and_gain(q):
    rng = np.random.default_rng(q)
    X, D, G, R, P = draw(rng, 11, 13, 16, 3, integer=True)
    sigma = 1.4142135623730951 * 2
    out = call(X, D, G, R, P, sigma, q)
    assert out.shape == (11, min(q, 96))
    np.testing.assert_allclose(out, reference(X, D, G, R, P, sigma, q), rtol=1e-14, atol=1e-300)

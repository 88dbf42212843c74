# rkeutils::fwhtbif against a dense reference: each block is
# sign(R) H perm(G/scale * H (D x)) with H from scipy.linalg.hadamard, then
# cosines and sines, times the gain, cut to q columns.
import numpy as np
import pytest
from scipy.linalg import hadamard

import zvstats

GATEWAY = "rkeutils::fwhtbif"


def draw(rng, m, k, L, S, dtype=np.float64, integer=False):
    if integer:
        X = rng.integers(-3, 4, (m, k)).astype(dtype)
        D = rng.choice([-1.0, 1.0], (L, S)).astype(dtype)
        G = rng.integers(-4, 5, (L, S)).astype(dtype)
    else:
        X = rng.standard_normal((m, k)).astype(dtype)
        D = rng.choice([-1.0, 1.0], (L, S)).astype(dtype)
        G = rng.standard_normal((L, S)).astype(dtype)
    R = rng.choice([-1.0, 0.0, 1.0], (L, S)).astype(dtype)
    P = np.stack([rng.permutation(L) + 1 for _ in range(S)], axis=1).astype(np.int64)
    return X, D, G, R, P


def reference(X, D, G, R, P, sigma, q):
    """The transform with dense Hadamard matrices, in float64."""
    m, k = X.shape
    L, S = D.shape
    logL = L.bit_length() - 1
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
            y = v @ H
            if logL >= 2:
                w = np.zeros_like(y)
                w[:, P[:, b] - 1] = y * (G[:, b] / scale)
            else:
                w = y
            z = (w @ H) * np.where(R[:, b] > 0, 1.0, -1.0)
        c, s = np.cos(z), np.sin(z)
        if gain != 1.0:
            c, s = c * gain, s * gain
        blocks += [c, s]
    out = np.hstack(blocks) if blocks else np.zeros((m, 0))
    return out[:, : min(q, total)]


def call(X, D, G, R, P, sigma, q):
    return zvstats.call(GATEWAY, 1, X, D, G, R, P, float(sigma), float(q))


@pytest.mark.parametrize("L", [1, 2, 4, 16, 64, 256])
def test_exact_data_matches_dense_reference(L):
    # Integer data and a power-of-two scale (L an even power of two) keep
    # every sum exact, so only the cosines and sines round.
    rng = np.random.default_rng(L)
    k = max(1, L - 1 - (L > 4))  # odd k where possible: a pair cut by k
    X, D, G, R, P = draw(rng, 37, k, L, 3, integer=True)
    sigma = 1.4142135623730951 * 4  # scale = 4 sqrt(L)
    (out,) = call(X, D, G, R, P, sigma, 10**9)
    ref = reference(X, D, G, R, P, sigma, 10**9)
    assert out.shape == ref.shape == (37, 6 * L)
    np.testing.assert_allclose(out, ref, rtol=1e-14, atol=1e-300)


@pytest.mark.parametrize("L, k, m", [(8, 5, 50), (32, 32, 19), (128, 100, 300), (1024, 1000, 40)])
def test_gaussian_data_matches_dense_reference(L, k, m):
    rng = np.random.default_rng(k)
    X, D, G, R, P = draw(rng, m, k, L, 2)
    sigma = 3.0
    (out,) = call(X, D, G, R, P, sigma, 2 * 2 * L)
    ref = reference(X, D, G, R, P, sigma, 2 * 2 * L)
    # Compare the angles: their rounding differs only by the order of the
    # Hadamard sums.
    ang = np.arctan2(out[:, L:2 * L], out[:, :L])
    ref_ang = np.arctan2(ref[:, L:2 * L], ref[:, :L])
    err = np.abs(np.angle(np.exp(1j * (ang - ref_ang))))
    assert err.max() <= 1e-14 * max(1.0, np.abs(ref_ang).max()) * L
    np.testing.assert_allclose(out, ref, rtol=1e-12, atol=1e-12)


def test_single_precision_matches_double_reference_to_float_rounding():
    rng = np.random.default_rng(5)
    X, D, G, R, P = draw(rng, 64, 30, 32, 2, dtype=np.float32)
    (out,) = call(X, D, G, R, P, 6.0, 128)
    assert out.dtype == np.float32
    ref = reference(X.astype(np.float64), D.astype(np.float64), G.astype(np.float64),
                    R.astype(np.float64), P, 6.0, 128)
    np.testing.assert_allclose(out, ref, atol=2e-5)


@pytest.mark.parametrize("q", [0, 1, 5, 32, 33, 80, 95, 96, 1000])
def test_truncation_and_gain(q):
    rng = np.random.default_rng(q)
    X, D, G, R, P = draw(rng, 11, 13, 16, 3, integer=True)
    sigma = 1.4142135623730951 * 2
    (out,) = call(X, D, G, R, P, sigma, q)
    ref = reference(X, D, G, R, P, sigma, q)
    assert out.shape == (11, min(q, 96))
    np.testing.assert_allclose(out, ref, rtol=1e-14, atol=1e-300)


def test_zero_blocks_and_empty_rows():
    X = np.ones((4, 2))
    (out,) = call(X, np.zeros((4, 0)), np.zeros(0), np.zeros(0), np.zeros(0, np.int64), 1.0, 10)
    assert out.shape == (4, 0)
    rng = np.random.default_rng(0)
    _, D, G, R, P = draw(rng, 1, 2, 4, 2)
    (out,) = call(np.zeros((0, 2)), D, G, R, P, 1.0, 100)
    assert out.shape == (0, 16)

# ompBatchImpl and ompCholImpl against scikit-learn's orthogonal_mp_gram and
# orthogonal_mp on unit-norm dictionaries: coefficients, supports and their
# order of selection, the residual tolerance, serial and parallel runs.
import numpy as np
import pytest
from sklearn.linear_model import orthogonal_mp, orthogonal_mp_gram

import zvstats

GATEWAYS = ["ompBatchImpl", "ompCholImpl"]


def dictionary(rng, rows, atoms):
    x = rng.standard_normal((rows, atoms))
    return x / np.linalg.norm(x, axis=0)


def sparse_responses(rng, x, count, nonzeros, noise=0.0):
    codes = np.zeros((x.shape[1], count))
    for j in range(count):
        codes[rng.choice(x.shape[1], nonzeros, replace=False), j] = rng.standard_normal(nonzeros) + np.sign(
            rng.standard_normal(nonzeros))
    return x @ codes + noise * rng.standard_normal((x.shape[0], count)), codes


def omp(name, x, y, max_atoms, tolerance=0.0, parallel=1.0):
    p = x.shape[1]
    return zvstats.call(name, 2, x, y, float(max_atoms), np.arange(p, dtype=x.dtype), float(p), float(tolerance),
                        0.0, parallel)


@pytest.mark.parametrize("name", GATEWAYS)
@pytest.mark.parametrize("rows,atoms,nonzeros,seed", [(20, 50, 1, 1), (30, 80, 4, 2), (64, 256, 10, 3), (40, 40, 6, 4)])
@pytest.mark.parametrize("parallel", [0.0, 1.0])
def test_matches_sklearn_with_a_fixed_number_of_atoms(name, rows, atoms, nonzeros, seed, parallel):
    rng = np.random.default_rng(seed)
    x = dictionary(rng, rows, atoms)
    y, _ = sparse_responses(rng, x, 60, nonzeros, noise=0.05)
    coef, support = omp(name, x, y, nonzeros, parallel=parallel)
    gram = orthogonal_mp_gram(x.T @ x, x.T @ y, n_nonzero_coefs=nonzeros)
    chol = orthogonal_mp(x, y, n_nonzero_coefs=nonzeros)
    np.testing.assert_allclose(coef, gram, rtol=1e-9, atol=1e-10)
    np.testing.assert_allclose(coef, chol, rtol=1e-9, atol=1e-10)
    assert support.shape == (nonzeros, 60)
    for j in range(60):
        assert set(support[:, j].astype(int) - 1) == set(np.flatnonzero(gram[:, j]))


@pytest.mark.parametrize("name", GATEWAYS)
def test_support_comes_in_order_of_selection(name):
    rng = np.random.default_rng(5)
    x = dictionary(rng, 30, 70)
    y, _ = sparse_responses(rng, x, 12, 5, noise=0.1)
    _, support = omp(name, x, y, 5)
    for j in range(12):
        path = orthogonal_mp(x, y[:, j], n_nonzero_coefs=5, return_path=True)
        order = []
        for k in range(path.shape[1]):
            order += [i for i in np.flatnonzero(path[:, k]) if i not in order]
        assert list(support[:, j].astype(int) - 1) == order


@pytest.mark.parametrize("name", GATEWAYS)
def test_relative_tolerance_matches_sklearns_squared_residual_bound(name):
    rng = np.random.default_rng(6)
    x = dictionary(rng, 25, 60)
    y, _ = sparse_responses(rng, x, 20, 6, noise=0.02)
    tolerance = 0.2
    coef, support = omp(name, x, y, 25, tolerance=tolerance)
    for j in range(20):
        bound = (tolerance * np.linalg.norm(y[:, j])) ** 2
        ref = orthogonal_mp(x, y[:, j], tol=bound)
        ref_gram = orthogonal_mp_gram(x.T @ x, x.T @ y[:, [j]], tol=bound, norms_squared=[y[:, j] @ y[:, j]]).ravel()
        np.testing.assert_allclose(coef[:, j], ref, rtol=1e-9, atol=1e-10)
        np.testing.assert_allclose(coef[:, j], ref_gram, rtol=1e-9, atol=1e-10)
        assert np.count_nonzero(support[:, j] > 0) == np.count_nonzero(ref)

# ompBatchImpl and ompCholImpl against scikit-learn's orthogonal_mp_gram and
# orthogonal_mp on unit-norm dictionaries: coefficients, supports and their
# order of selection, the residual tolerance, both precisions, both runs.
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


def omp(name, x, y, max_atoms, tolerance=0.0, parallel=1.0, groups=None, max_groups=None):
    p = x.shape[1]
    groups = np.arange(p, dtype=x.dtype) if groups is None else groups
    max_groups = float(p) if max_groups is None else max_groups
    dtype = x.dtype
    coef, support = zvstats.call(name, 2, x, y.astype(dtype), float(max_atoms), groups.astype(dtype),
                                 float(max_groups), float(tolerance), 0.0, parallel)
    return coef, support


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


@pytest.mark.parametrize("name", GATEWAYS)
def test_exact_sparse_codes_are_recovered(name):
    rng = np.random.default_rng(7)
    x = dictionary(rng, 60, 120)
    y, codes = sparse_responses(rng, x, 40, 3)
    coef, support = omp(name, x, y, 8, tolerance=1e-6)
    np.testing.assert_allclose(coef, codes, atol=1e-8)
    assert np.all(support[3:] == -1)


def test_single_precision_follows_double():
    rng = np.random.default_rng(8)
    x = dictionary(rng, 32, 64)
    y, _ = sparse_responses(rng, x, 30, 4, noise=0.01)
    for name in GATEWAYS:
        coef32, support32 = omp(name, x.astype(np.float32), y, 4)
        assert coef32.dtype == np.float32 and support32.dtype == np.float32
        coef64, support64 = omp(name, x, y, 4)
        np.testing.assert_array_equal(support32, support64)
        np.testing.assert_allclose(coef32, coef64, rtol=1e-3, atol=1e-4)


@pytest.mark.parametrize("name", GATEWAYS)
def test_group_limit_keeps_to_the_first_groups(name):
    rng = np.random.default_rng(10)
    x = dictionary(rng, 20, 30)
    y, _ = sparse_responses(rng, x, 25, 5, noise=0.05)
    groups = np.repeat(np.arange(10.0), 3)
    _, support = omp(name, x, y, 8, groups=groups, max_groups=2)
    for j in range(25):
        chosen = support[:, j][support[:, j] > 0].astype(int) - 1
        assert len(set(groups[chosen])) <= 2
    # Without the limit the same pursuit goes further.
    _, free = omp(name, x, y, 8, groups=groups)
    assert np.count_nonzero(free > 0) > np.count_nonzero(support > 0)

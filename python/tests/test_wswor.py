# wswor in distribution: chi-square tests of the order of draws against the
# exact probabilities of successive weighted sampling, and of inclusion
# frequencies against numpy's Generator.choice(replace=False, p=...), all
# from fixed seeds.
import itertools

import numpy as np
import pytest
from scipy import stats

import zvstats

SEED = 20240611


def wswor(*args):
    return zvstats.call("wswor", 1, *args)[0]


def ordered_probability(w, seq):
    """Probability that successive weighted draws give `seq` in this order."""
    left, p = w.sum(), 1.0
    for i in seq:
        p *= w[i] / left
        left -= w[i]
    return p


@pytest.mark.parametrize("w, k, samples", [
    (np.array([1.0, 2, 3, 4, 5]), 2, 20000),
    (np.array([0.5, 0, 3, 1, 1, 0, 2.5, 8]), 3, 30000),   # zeros never come
])
def test_ordered_draws_chi_square(w, k, samples):
    stream = zvstats.RandStream(SEED + k)
    counts = {}
    for _ in range(samples):
        key = tuple(int(v) - 1 for v in wswor(stream, w, k).ravel())
        counts[key] = counts.get(key, 0) + 1
    cells = list(itertools.permutations(np.flatnonzero(w > 0), k))
    assert set(counts) <= set(cells)
    observed = np.array([counts.get(c, 0) for c in cells])
    expected = np.array([ordered_probability(w, c) for c in cells]) * samples
    assert stats.chisquare(observed, expected).pvalue > 1e-3


def test_inclusion_frequencies_against_numpy_choice():
    rng = np.random.default_rng(SEED)
    n, k, samples = 40, 15, 4000
    w = rng.gamma(0.7, size=n)
    zvstats.seed(SEED)
    ours, theirs = np.zeros(n), np.zeros(n)
    for _ in range(samples):
        ours[wswor(w, k).astype(int).ravel() - 1] += 1
        theirs[rng.choice(n, k, replace=False, p=w / w.sum())] += 1
    # Inclusions within a sample are negatively correlated, which only makes
    # this test conservative.
    assert stats.chi2_contingency(np.vstack([ours, theirs])).pvalue > 1e-3

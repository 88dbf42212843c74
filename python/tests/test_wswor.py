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
    positive = np.flatnonzero(w > 0)
    cells = list(itertools.permutations(positive, k))
    assert set(counts) <= set(cells)
    observed = np.array([counts.get(c, 0) for c in cells])
    expected = np.array([ordered_probability(w, c) for c in cells]) * samples
    assert np.isclose(expected.sum(), samples)
    assert stats.chisquare(observed, expected).pvalue > 1e-3


def test_inclusion_frequencies_against_numpy_choice():
    rng = np.random.default_rng(SEED)
    n, k, samples = 40, 15, 4000
    w = rng.gamma(0.7, size=n)
    stream = zvstats.RandStream(SEED)
    ours = np.zeros(n)
    theirs = np.zeros(n)
    for _ in range(samples):
        ours[wswor(stream, w, k).astype(int).ravel() - 1] += 1
        theirs[rng.choice(n, k, replace=False, p=w / w.sum())] += 1
    assert ours.sum() == theirs.sum() == k * samples
    # Inclusions within a sample are negatively correlated, which only makes
    # this test conservative.
    assert stats.chi2_contingency(np.vstack([ours, theirs])).pvalue > 1e-3


def test_one_large_call_is_a_sample_without_replacement():
    rng = np.random.default_rng(1)
    w = rng.random(100000)
    w[::7] = 0
    zvstats.seed(SEED)
    out = wswor(w, 50000).ravel()
    assert out.shape == (50000,)
    idx = out.astype(int) - 1
    assert np.unique(idx).size == idx.size
    assert np.all(w[idx] > 0)
    # the first draws follow the weights: heavier halves come first
    first = idx[:5000]
    assert w[first].mean() > w[w > 0].mean()


def test_default_stream_and_stream_object_agree():
    w = np.arange(1.0, 201.0)
    zvstats.seed(SEED)
    a = wswor(w, 150)
    b = wswor(zvstats.RandStream(SEED), w, 150)
    assert np.array_equal(a, b)


def test_documented_ends():
    inf, nan = np.inf, np.nan
    zvstats.seed(SEED)
    out = wswor(np.array([1.0, inf, 2, inf, 3]), 5).ravel()
    assert list(out[:2]) == [2, 4]                     # infinite weights first, in order
    assert sorted(out[2:]) == [1, 3, 5]
    with pytest.raises(zvstats.HostError) as e:
        wswor(np.array([1.0, nan, 2]), 1)
    assert e.value.identifier == "stats:datasample:NegativeWeight"
    assert wswor(np.array([-3.0]), 1).tolist() == [[1.0]]  # one item: its weight is not read
    assert wswor(np.array([1.0, 2]), 0).shape == (1, 0)
    for args, ident in [
        ((np.ones((2, 2)), 1), "InputWType"),
        ((np.ones(3), 1.5), "InputKType"),
        ((np.ones(3), 2.0**48), "OutputSize"),
        ((np.ones(3), 4), "KTooLarge"),
        ((np.array([1.0, 0, 0]), 2), "PosWeights"),
    ]:
        with pytest.raises(zvstats.HostError) as e:
            wswor(*args)
        assert e.value.identifier == "stats:datasample:" + ident

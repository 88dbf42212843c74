# haltonset::computeRR2Perm against a plain bit-string reversal, and picking a
# base's permutation out of a table of power-of-two permutations.
import numpy as np

import zvstats


def reference(b):
    if b <= 1:
        return list(range(b))
    bits = (b - 1).bit_length()
    order = [int(format(i, f"0{bits}b")[::-1], 2) for i in range(2**bits)]
    return [r for r in order if r < b]


def test_computed_permutations_for_many_bases():
    bases = [0, 1, 2, 3, 5, 7, 8, 13, 64, 97, 1000, 1031]
    (cells,) = zvstats.call("haltonset::computeRR2Perm", 1, np.array(bases, dtype=np.float64))
    assert cells.shape == (1, len(bases))
    for b, perm in zip(bases, cells.ravel()):
        assert perm.shape == (1, b) and perm.dtype == np.float64
        assert perm.ravel().tolist() == reference(b)


def test_table_selection_matches_the_computed_permutation():
    # A shuffled table shows that the table's own order is kept.
    rng = np.random.default_rng(0)
    table = np.empty(11, dtype=object)
    table[:] = [rng.permutation(2 ** (e + 1)).astype(np.float64) for e in range(11)]
    for b in (2, 3, 5, 17, 1024, 2000):
        (perm,) = zvstats.call("haltonset::computeRR2Perm", 1, float(b), table)
        e = (b - 1).bit_length() - 1
        assert perm.ravel().tolist() == [v for v in table[e] if v < b]
    table[:] = [np.array(reference(2 ** (e + 1)), dtype=np.float64) for e in range(11)]
    for b in (3, 11, 1500):
        (perm,) = zvstats.call("haltonset::computeRR2Perm", 1, float(b), table)
        assert perm.ravel().tolist() == reference(b)

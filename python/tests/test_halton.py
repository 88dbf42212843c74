# haltonset::computeRR2Perm through the binding: a list of bases gives a cell
# of permutation rows, and a table comes in as an object array of rows.
import numpy as np

import zvstats


def test_cells_in_and_out():
    (cells,) = zvstats.call("haltonset::computeRR2Perm", 1, np.array([2.0, 5.0, 0.0]))
    assert cells.shape == (1, 3) and cells.dtype == object
    assert [c.tolist() for c in cells.ravel()] == [[[0.0, 1.0]], [[0.0, 4.0, 2.0, 1.0, 3.0]], [[]]]
    table = np.empty(3, dtype=object)
    table[:] = [np.array([1.0, 0.0]), np.array([3.0, 0, 2, 1]), np.arange(8.0)[::-1].copy()]
    (perm,) = zvstats.call("haltonset::computeRR2Perm", 1, 5.0, table)
    assert perm.dtype == np.float64 and perm.tolist() == [[4.0, 3.0, 2.0, 1.0, 0.0]]

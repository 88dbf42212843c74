# sobolset gateways against scipy.stats.qmc.Sobol(bits=53): scipy's own
# polynomial and initial-value tables go through computeDN, and the points
# (plain, continued, fast-forwarded, leapt, indexed, nets, scrambled) must
# match scipy's bit for bit once converted to double.
import numpy as np
import pytest
from scipy.stats import _sobol, qmc

import zvstats

BITS = 53
POLY = _sobol.get_poly_vinit("poly", np.uint64)
VINIT = _sobol.get_poly_vinit("vinit", np.uint64)


def table_inputs(d):
    """computeDN's inputs for scipy's first d dimensions. scipy's dimension 0
    (every direction number 1) is the recurrence of x with m = [1]."""
    polys = [2.0] + [float(p) for p in POLY[1:d]]
    ms = [np.array([1.0])] + [VINIT[j, : int(POLY[j]).bit_length() - 1].astype(np.float64) for j in range(1, d)]
    cells = np.empty(d, dtype=object)
    cells[:] = ms
    return cells, np.array(polys)


def direction_numbers(d):
    """V as the generators take it: d-by-53."""
    (dn,) = zvstats.call("sobolset::computeDN", 1, *table_inputs(d))
    return np.ascontiguousarray(dn.T)


def sequence(v, first, leap, n, gray, last=None):
    args = [v, float(first), float(leap), float(n), gray] + ([] if last is None else [last])
    (x,) = zvstats.call("sobolset::sobolSequenceBIF", 1, *args)
    return x


def to_double(x):
    (y,) = zvstats.call("sobolset::convertToDouble", 1, x)
    return y


def scipy_points(d, n, **kw):
    with np.testing.suppress_warnings() as sup:
        sup.filter(UserWarning)
        return qmc.Sobol(d, scramble=False, bits=BITS, **kw).random(n)


def inverse_gray(i):
    i = np.asarray(i, dtype=np.uint64).copy()
    shift = i >> np.uint64(1)
    while shift.any():
        i ^= shift
        shift >>= np.uint64(1)
    return i


def assert_bits_equal(a, b):
    assert a.shape == b.shape
    assert a.dtype == b.dtype
    np.testing.assert_array_equal(a.view(np.uint64), b.view(np.uint64))


@pytest.mark.parametrize("d", [1, 2, 50, 1111])
def test_direction_numbers_are_scipys(d):
    v = direction_numbers(d)
    sv = np.zeros((d, BITS), dtype=np.uint64)
    _sobol._initialize_v(sv, dim=d, bits=BITS)
    np.testing.assert_array_equal(v, sv)


@pytest.mark.parametrize("d,n", [(1, 64), (7, 1000), (50, 4096)])
def test_quick_path_is_scipys_sequence(d, n):
    v = direction_numbers(d)
    x = sequence(v, 0, 0, n, True)
    assert x.dtype == np.uint64 and x.shape == (n, d)
    assert_bits_equal(to_double(x), scipy_points(d, n))


def test_continuing_from_the_last_point_is_scipys_next_draw():
    d = 12
    v = direction_numbers(d)
    engine = qmc.Sobol(d, scramble=False, bits=BITS)
    first = sequence(v, 0, 0, 256, True)
    assert_bits_equal(to_double(first), engine.random(256))
    for last in (first[-1:, :], first[-1, :]):  # a row or a flat vector of d words
        again = sequence(v, 256, 0, 300, True, last)
        assert_bits_equal(again, sequence(v, 256, 0, 300, True))
    assert_bits_equal(to_double(again), engine.random(300))


@pytest.mark.parametrize("start", [1, 5, 1000, 2**20 + 3])
def test_first_index_continues_scipys_engine(start):
    # scipy's fast_forward takes only 32-bit tables, so the engine draws its way there.
    d = 9
    engine = qmc.Sobol(d, scramble=False, bits=BITS)
    with np.testing.suppress_warnings() as sup:
        sup.filter(UserWarning)
        engine.random(start)
    assert_bits_equal(to_double(sequence(direction_numbers(d), start, 0, 200, True)), engine.random(200))


@pytest.mark.parametrize("first,leap", [(0, 1), (3, 2), (10, 6), (7, 0.0)])
def test_leaps_pick_every_step_of_scipys_points(first, leap):
    d = 6
    v = direction_numbers(d)
    n = 60
    full = scipy_points(d, first + n * (int(leap) + 1))
    gray = to_double(sequence(v, first, leap, n, True))
    assert_bits_equal(gray, full[first :: int(leap) + 1][:n])


@pytest.mark.parametrize("first,leap", [(0, 0), (5, 0), (2, 3)])
def test_natural_order_reorders_scipys_points(first, leap):
    # Without Gray codes point i is scipy's point at the inverse Gray code of i.
    d = 5
    n = 70
    index = first + np.arange(n, dtype=np.uint64) * np.uint64(leap + 1)
    full = scipy_points(d, 1024)
    x = sequence(direction_numbers(d), first, leap, n, False)
    assert_bits_equal(to_double(x), full[inverse_gray(index).astype(np.int64)])


def test_indexed_and_single_points():
    d = 8
    v = direction_numbers(d)
    full = scipy_points(d, 4096)
    index = np.random.default_rng(3).integers(0, 4096, 300).astype(np.float64)
    (x,) = zvstats.call("sobolset::sobolIndexedBIF", 1, v, index, True)
    assert_bits_equal(to_double(x), full[index.astype(np.int64)])
    (x,) = zvstats.call("sobolset::sobolIndexedBIF", 1, v, index, False)
    assert_bits_equal(to_double(x), full[inverse_gray(index.astype(np.uint64)).astype(np.int64)])
    for i in (0, 1, 77, 4095):
        (p,) = zvstats.call("sobolset::sobolPoint", 1, v, float(i), True)
        assert p.shape == (1, d)
        assert_bits_equal(to_double(p), full[i : i + 1])


@pytest.mark.parametrize("n", [0, 1, 2, 5, 64, 1000])
def test_nets_are_the_first_points(n):
    d = 7
    v = direction_numbers(d)
    full = scipy_points(d, 1024)
    (x,) = zvstats.call("sobolset::sobolNetBIF", 1, v, float(n), True)
    assert x.shape == (n, d)
    assert_bits_equal(to_double(x), full[:n])
    (x,) = zvstats.call("sobolset::sobolNetBIF", 1, v, float(n), False)
    assert_bits_equal(to_double(x), full[inverse_gray(np.arange(n)).astype(np.int64)])


@pytest.mark.parametrize("seed", [1, 2024])
def test_scrambling_built_from_the_bit_gateways_is_scipys(seed):
    # scipy draws the digital shift, then one lower-triangular matrix per
    # dimension (unit diagonal) that multiplies the direction-number bits.
    d = 10
    v = direction_numbers(d)
    rng = np.random.default_rng(seed)
    shift = rng.integers(0, 2, size=(d, BITS), dtype=np.uint64) @ (2 ** np.arange(BITS, dtype=np.uint64))
    ltm = np.tril(rng.integers(0, 2, size=(d, BITS, BITS), dtype=np.uint64)).astype(np.float64)
    scrambled = np.empty_like(v)
    for j in range(d):
        (bits,) = zvstats.call("sobolset::DNToMatrix", 1, v[j, :].copy())
        np.fill_diagonal(ltm[j], 1)
        (words,) = zvstats.call("sobolset::MatrixToDN", 1, (ltm[j] @ bits) % 2)
        scrambled[j, :] = words.ravel()
    engine = qmc.Sobol(d, scramble=True, bits=BITS, seed=seed)
    np.testing.assert_array_equal(scrambled, engine._sv)
    x = sequence(scrambled, 0, 0, 512, True)
    (shifted,) = zvstats.call("sobolset::matrixBitXorBIF", 1, x, shift)
    assert_bits_equal(to_double(shifted), engine.random(512))


def test_bit_matrix_round_trip():
    words = np.random.default_rng(5).integers(0, 2**53, 53, dtype=np.uint64)
    (bits,) = zvstats.call("sobolset::DNToMatrix", 1, words)
    expected = (words[None, :] >> np.arange(52, -1, -1, dtype=np.uint64)[:, None]) & np.uint64(1)
    np.testing.assert_array_equal(bits, expected.astype(np.float64))
    (back,) = zvstats.call("sobolset::MatrixToDN", 1, bits)
    np.testing.assert_array_equal(back.ravel(), words)

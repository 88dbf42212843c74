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


def call(name, *args):
    return zvstats.call("sobolset::" + name, 1, *args)[0]


def direction_numbers(d):
    """V as the generators take it, d-by-53, from scipy's tables. scipy's
    dimension 0 (every direction number 1) is the recurrence of x with m = [1]."""
    cells = np.empty(d, dtype=object)
    cells[:] = [np.array([1.0])] + [VINIT[j, : int(POLY[j]).bit_length() - 1].astype(np.float64) for j in range(1, d)]
    polys = np.array([2.0] + [float(p) for p in POLY[1:d]])
    return np.ascontiguousarray(call("computeDN", cells, polys).T)


def sequence(v, first, leap, n, gray, *last):
    return call("sobolSequenceBIF", v, float(first), float(leap), float(n), gray, *last)


def to_double(x):
    return call("convertToDouble", x)


def scipy_points(d, n):
    with np.testing.suppress_warnings() as sup:
        sup.filter(UserWarning)
        return qmc.Sobol(d, scramble=False, bits=BITS).random(n)


def inverse_gray(i):
    i = np.asarray(i, dtype=np.uint64).copy()
    shift = i >> np.uint64(1)
    while shift.any():
        i ^= shift
        shift >>= np.uint64(1)
    return i.astype(np.int64)


def assert_bits_equal(a, b):
    assert a.shape == b.shape and a.dtype == b.dtype
    np.testing.assert_array_equal(a.view(np.uint64), b.view(np.uint64))


@pytest.mark.parametrize("d", [1, 2, 50, 1111])
def test_direction_numbers_are_scipys(d):
    sv = np.zeros((d, BITS), dtype=np.uint64)
    _sobol._initialize_v(sv, dim=d, bits=BITS)
    np.testing.assert_array_equal(direction_numbers(d), sv)


@pytest.mark.parametrize("d,n", [(1, 64), (7, 1000), (50, 4096)])
def test_quick_path_is_scipys_sequence(d, n):
    x = sequence(direction_numbers(d), 0, 0, n, True)
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


@pytest.mark.parametrize("first,leap", [(0, 0), (0, 1), (3, 2), (5, 0), (10, 6), (2, 3)])
@pytest.mark.parametrize("gray", [True, False])
def test_leaps_pick_scipys_points(first, leap, gray):
    # Without Gray codes point i is scipy's point at the inverse Gray code of i.
    d, n = 6, 60
    index = first + np.arange(n, dtype=np.uint64) * np.uint64(leap + 1)
    full = scipy_points(d, 1024)
    x = to_double(sequence(direction_numbers(d), first, leap, n, gray))
    assert_bits_equal(x, full[index.astype(np.int64) if gray else inverse_gray(index)])


def test_indexed_points_single_points_and_nets():
    d = 8
    v = direction_numbers(d)
    full = scipy_points(d, 4096)
    index = np.random.default_rng(3).integers(0, 4096, 300).astype(np.float64)
    assert_bits_equal(to_double(call("sobolIndexedBIF", v, index, True)), full[index.astype(np.int64)])
    assert_bits_equal(to_double(call("sobolIndexedBIF", v, index, False)), full[inverse_gray(index)])
    for i in (0, 1, 77, 4095):
        assert_bits_equal(to_double(call("sobolPoint", v, float(i), True)), full[i : i + 1])
    for n in (0, 1, 2, 5, 64, 1000):
        assert_bits_equal(to_double(call("sobolNetBIF", v, float(n), True)), full[:n])
        assert_bits_equal(to_double(call("sobolNetBIF", v, float(n), False)), full[inverse_gray(np.arange(n))])


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
        bits = call("DNToMatrix", v[j, :].copy())
        np.fill_diagonal(ltm[j], 1)
        scrambled[j, :] = call("MatrixToDN", (ltm[j] @ bits) % 2).ravel()
    engine = qmc.Sobol(d, scramble=True, bits=BITS, seed=seed)
    np.testing.assert_array_equal(scrambled, engine._sv)
    shifted = call("matrixBitXorBIF", sequence(scrambled, 0, 0, 512, True), shift)
    assert_bits_equal(to_double(shifted), engine.random(512))

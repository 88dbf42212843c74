# pdist2HeterogeneousBIF against a numpy transcription of the three measures.
# No open library has Lin's, Goodall's or the occurrence-frequency distance in
# this form, so the oracle is the formulas themselves, summed over the
# coordinates in order; in double precision it takes its logarithms from the C
# library (math.log), as the gateway does, and must agree bit for bit.
import math

import numpy as np
import pytest
import scipy.sparse

import zvstats

rng = np.random.default_rng(20240612)


def mixed_data(p, n, categorical, dtype=np.float64, levels=3):
    """Raw values and frequencies (p-by-n) as a caller prepares them: a
    categorical coordinate holds levels 1..levels and its frequency is the
    count of the value among the n observations; a continuous one holds
    normals and its frequency is the value scaled to [0, 1] by its range."""
    values = rng.standard_normal((p, n))
    freq = np.empty((p, n))
    for k in range(p):
        if k + 1 in categorical:
            values[k] = rng.integers(1, levels + 1, n)
            freq[k] = (values[k][:, None] == values[k][None, :]).sum(axis=1)
        elif n:
            span = np.ptp(values[k]) or 1.0
            freq[k] = (values[k] - values[k].min()) / span
    return values.astype(dtype), freq.astype(dtype)


def libm_log(a):
    """The C library's natural logarithm, element by element."""
    def one(v):
        if v > 0 or math.isnan(v):
            return math.log(v)
        return -math.inf if v == 0 else math.nan
    return np.vectorize(one, otypes=[np.float64])(a)


def transcription(code, x, y, f, g, categorical):
    """D (nx-by-ny) by the definitions, every pair at once, k ascending."""
    t = x.dtype.type
    log = libm_log if x.dtype == np.float64 else np.log
    (p, nx), ny, c = x.shape, y.shape[1], len(categorical)
    a = np.zeros(nx, x.dtype)
    b = np.zeros(ny, x.dtype)
    for e in categorical:  # log sums over nx + ny
        a += log(f[e - 1] / t(nx + ny)).astype(x.dtype)
        b += log(g[e - 1] / t(nx + ny)).astype(x.dtype)
    s = np.zeros((nx, ny), x.dtype)
    for k in range(p):
        u, v = x[k][:, None], y[k][None, :]
        fk, gk = f[k][:, None], g[k][None, :]
        equal = u == v  # a NaN is unequal to everything
        if k + 1 not in categorical:
            term = np.abs(fk - gk)
            s += term / t(p - c) if code == "lin" else term
        elif code == "lin":
            r = np.where(equal, fk, fk + gk) / t(nx + 1)
            s += t(1) / t(c) - t(2) * log(r).astype(x.dtype) / (a[:, None] + b[None, :])
        elif code == "goo":
            s += np.where(equal, (fk - t(1)) * fk / t(nx * (nx + 1)), t(1))
        else:
            lf = log(fk / t(nx + 1)).astype(x.dtype)
            lg = log(gk / t(nx + 1)).astype(x.dtype)
            s += np.where(equal, t(0), t(1) - t(1) / (t(1) + lf * lg))
    return s if code == "lin" else s / t(p)


def gateway(code, x, y, f, g, categorical, nout=1):
    """D through the gateway; a list of categorical coordinates goes in as
    uint64, anything else as it is."""
    if isinstance(categorical, list):
        categorical = np.array(categorical, dtype=np.uint64)
    out = zvstats.call("pdist2HeterogeneousBIF", nout, x, y, code, f, g, categorical)
    assert len(out) == 1
    (d,) = out
    assert d.shape == (x.shape[1], y.shape[1]) and d.dtype == x.dtype
    return d


MEASURES = ["lin", "goo", "ofd"]
LAYOUTS = {
    "continuous": [],
    "categorical": [1, 2, 3, 4, 5, 6, 7],
    "mixed": [2, 3, 5, 7],
    "last only": [7],
}


def check(d, expected, dtype):
    if dtype == np.float64:
        np.testing.assert_array_equal(d, expected)
    else:  # numpy's float32 logarithm is its own; the sums are the same
        np.testing.assert_allclose(d, expected, rtol=2e-5, atol=1e-6)


@pytest.mark.parametrize("dtype", [np.float64, np.float32])
@pytest.mark.parametrize("layout", LAYOUTS)
@pytest.mark.parametrize("code", MEASURES)
def test_measures_follow_their_definitions(code, layout, dtype):
    categorical = LAYOUTS[layout]
    x, f = mixed_data(7, 15, categorical, dtype)
    y, g = mixed_data(7, 11, categorical, dtype)
    check(gateway(code, x, y, f, g, categorical), transcription(code, x, y, f, g, categorical), dtype)


@pytest.mark.parametrize("dtype", [np.float64, np.float32])
@pytest.mark.parametrize("code", MEASURES)
def test_nan_values_are_unequal_categories(code, dtype):
    categorical = [1, 3]
    x, f = mixed_data(4, 6, categorical, dtype)
    y, g = mixed_data(4, 5, categorical, dtype)
    y[:, 0] = x[:, 0]                 # pair (0, 0) equal everywhere ...
    x[0, 0] = y[0, 0] = np.nan        # ... but for a NaN on both sides
    x[2, 3] = np.nan
    y[1, 2] = np.nan                  # a continuous value is never read
    d = gateway(code, x, y, f, g, categorical)
    check(d, transcription(code, x, y, f, g, categorical), dtype)
    assert not np.isnan(d).any()
    # The NaN pair pays exactly what a mismatch of numbers would.
    x2, y2 = x.copy(), y.copy()
    x2[0, 0], y2[0, 0] = 1, 2
    assert d[0, 0] == gateway(code, x2, y2, f, g, categorical)[0, 0]


def test_goodall_and_occurrence_frequency_without_categories_are_the_mean_gap():
    x, f = mixed_data(5, 8, [])
    y, g = mixed_data(5, 4, [])
    expected = np.abs(f[:, :, None] - g[:, None, :]).mean(axis=0)
    np.testing.assert_allclose(gateway("goo", x, y, f, g, []), expected, rtol=1e-15)
    np.testing.assert_array_equal(gateway("goo", x, y, f, g, []), gateway("ofd", x, y, f, g, []))


# ---- edge cases ---------------------------------------------------------------------------

@pytest.mark.parametrize("code", MEASURES)
@pytest.mark.parametrize("nx, ny", [(0, 3), (4, 0), (0, 0)])
def test_an_empty_set_gives_an_empty_matrix(code, nx, ny):
    x, f = mixed_data(3, nx, [2])
    y, g = mixed_data(3, ny, [2])
    assert gateway(code, x, y, f, g, [2]).shape == (nx, ny)


@pytest.mark.parametrize("code, expected", [("lin", 0.0), ("goo", np.nan), ("ofd", np.nan)])
def test_no_coordinates(code, expected):
    none = np.empty((0, 3))
    np.testing.assert_array_equal(gateway(code, none, none[:, :2], none, none[:, :2], []), np.full((3, 2), expected))


@pytest.mark.parametrize("code", ["xyz", "LIN", "li", ""])
def test_unknown_code_returns_zeros(code):
    x, f = mixed_data(3, 4, [1])
    np.testing.assert_array_equal(gateway(code, x, x, f, f, [1]), np.zeros((4, 4)))


@pytest.mark.parametrize("code", MEASURES)
def test_only_the_first_three_letters_select_the_measure(code):
    x, f = mixed_data(3, 4, [1])
    np.testing.assert_array_equal(gateway(code + "_measure", x, x, f, f, [1]), gateway(code, x, x, f, f, [1]))


def test_two_outputs_set_only_the_first():
    x, f = mixed_data(3, 4, [1])
    np.testing.assert_array_equal(gateway("goo", x, x, f, f, [1], nout=2), gateway("goo", x, x, f, f, [1]))


def test_categorical_list_may_be_empty_or_none():
    x, f = mixed_data(3, 4, [])
    reference = gateway("lin", x, x, f, f, [])
    np.testing.assert_array_equal(gateway("lin", x, x, f, f, None), reference)
    np.testing.assert_array_equal(gateway("lin", x, x, f, f, np.empty((0, 0), np.int8)), reference)


# ---- lists and inputs that cannot be read as given ----------------------------------------

def test_stray_categorical_entries_name_no_coordinate():
    x, f = mixed_data(3, 5, [2])
    y, g = mixed_data(3, 4, [2])
    # Entry 9 lies past p: the scan never reaches a coordinate for it, and
    # "lin", whose log sums would read there, gives NaN.
    for code in ["goo", "ofd"]:
        np.testing.assert_array_equal(gateway(code, x, y, f, g, [2, 9]), transcription(code, x, y, f, g, [2]))
    assert np.isnan(gateway("lin", x, y, f, g, [2, 9])).all()
    # Entry 0 stops the scan at once: nothing is categorical.
    np.testing.assert_array_equal(gateway("goo", x, y, f, g, [0, 2]), transcription("goo", x, y, f, g, []))


@pytest.mark.parametrize("code", MEASURES)
def test_inputs_too_short_to_read_give_nan(code):
    x, f = mixed_data(3, 5, [1])
    y, g = mixed_data(3, 4, [1])
    short = [
        (x, y[:2], f, g, np.array([1], np.uint64)),              # Y has fewer rows than X
        (x, y, f[:, :3], g, np.array([1], np.uint64)),           # F has fewer observations
        (x, y, f, g.astype(np.float32), np.array([1], np.uint64)),  # G's storage is half as long
        (x, y, f, g, np.array([1], np.int32)),                   # 4 bytes for an 8-byte entry
        (x, y, f, g, scipy.sparse.csc_matrix((1, 2))),           # two entries, none stored
    ]
    for args in short:
        (d,) = zvstats.call("pdist2HeterogeneousBIF", 1, args[0], args[1], code, *args[2:])
        assert d.shape == (5, 4) and np.isnan(d).all()


# ---- identifiers ----------------------------------------------------------------------------

X = np.ones((3, 4))
C = np.array([1], np.uint64)


@pytest.mark.parametrize("nout, args, identifier", [
    (1, (X, X, "lin", X, X), "TooFewInputs"),
    (3, (X,), "TooFewInputs"),                       # inputs are counted first
    (3, (X, X, "lin", X, X, C), "TooManyOutputs"),
    (1, (scipy.sparse.csc_matrix(X), X, "lin", X, X, C), "SparseOrComplexInput"),
    (1, (X, scipy.sparse.csc_matrix(X), "lin", X, X, C), "SparseOrComplexInput"),
    (1, (X.astype(np.complex128), X, "lin", X, X, C), "SparseOrComplexInput"),
    (1, (X.astype(np.float32), X.astype(np.complex64), "lin", X, X, C), "SparseOrComplexInput"),
    (1, (X, X.astype(np.float32), "lin", X, X, C), "BadInputType"),
    (1, (X.astype(np.float32), X, "lin", X, X, C), "BadInputType"),
    (1, (X.astype(np.int32), X.astype(np.int32), "lin", X, X, C), "BadInputType"),
    (1, ("text", "text", "lin", X, X, C), "BadInputType"),
    (2, (X, X, "lin", X, X, C, "ignored"), None),
], ids=lambda v: v if isinstance(v, str) else None)
def test_identifiers(nout, args, identifier):
    if identifier is None:
        zvstats.call("pdist2HeterogeneousBIF", nout, *args)
        return
    with pytest.raises(zvstats.HostError) as err:
        zvstats.call("pdist2HeterogeneousBIF", nout, *args)
    assert err.value.identifier == "stats:pdist2bif:" + identifier
    assert err.value.args == ()


@pytest.mark.parametrize("code", MEASURES)
def test_interrupt_stops_the_call_and_leaves_nothing(code):
    x, f = mixed_data(6, 1500, [1, 4])
    zvstats.interrupt_after(3)
    with pytest.raises(KeyboardInterrupt):
        zvstats.call("pdist2HeterogeneousBIF", 1, x, x, code, f, f, np.array([1, 4], np.uint64))
    assert gateway(code, x[:, :20], x[:, :20], f[:, :20], f[:, :20], [1, 4]).shape == (20, 20)

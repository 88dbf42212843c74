# coxsresbif and coxmresbif against a plain numpy transcription of the event
# walk, on data with and without ties, start-stop rows and frequencies.

import numpy as np
import pytest

import zvstats


def walk(kind, status, X, start, stop, freq, risk, tie):
    """The event walk, one row at a time. kind: 's' score sums, 'm' martingale."""
    with np.errstate(all="ignore"):
        return _walk(kind, status, X, start, stop, freq, risk, np.float64(tie))


def _walk(kind, status, X, start, stop, freq, risk, tie):
    n = len(stop)
    p = X.shape[0] if kind == "s" else 0
    out = np.zeros((p, n)) if kind == "s" else np.zeros(n)
    efron = tie != 0 if kind == "s" else tie == 1
    C, D = np.zeros(p), np.zeros(p)
    i = 0
    while i < n:
        if not status[i]:
            i += 1
            continue
        t = stop[i]
        R = E = M = W = np.float64(0.0)
        A, B = np.zeros(p), np.zeros(p)
        for j in range(i, n):
            if not start[j] < t:
                continue
            r = risk[j] * freq[j]
            tied = status[j] and stop[j] == t
            e = tie if tied else 0.0
            R += r
            M += e
            E += r * e
            if tied:
                W += freq[j]
            if p:
                A += X[:, j] * r
                B += X[:, j] * r * e
        G = G1 = G2 = np.float64(0.0)
        if tie == 0:
            G = W / R
            A = A / R
        elif M > 0:
            C, D = np.zeros(p), np.zeros(p)
            k = 0
            while k < M:
                f = k / M
                den = R - E * f
                a = (W / M) / den
                G1 += a
                G2 += (1 - f) * a
                T = ((A - B * f) / den) * a
                C = C + T
                D = D + T * (1 - f)
                k += 1
        cursor, same = i, 0
        for j in range(i, n):
            if stop[j] == t:
                same += 1
            if not start[j] < t:
                continue
            tied = status[j] and stop[j] == t
            if kind == "s":
                if not efron:
                    out[:, j] += (X[:, j] - A) * risk[j] * G
                elif tied:
                    out[:, j] += (X[:, j] * G2 - D) * risk[j]
                else:
                    out[:, j] += (X[:, j] * G1 - C) * risk[j]
                if stop[cursor] == t:
                    cursor += 1
            else:
                out[j] += risk[j] * (G2 if tied else G1) if efron else risk[j] * G
        i = max(cursor if kind == "s" else i + same, i + 1)
    return out


def survival_data(rng, n, p, ties, start_stop=False, freq=False):
    if ties:
        stop = np.sort(rng.integers(1, max(2, n // 4), n)).astype(np.float64)
    else:
        stop = np.sort(rng.permutation(n) + rng.uniform(0.1, 0.9, n))
    status = rng.random(n) < 0.5
    start = np.zeros(n)
    if start_stop:
        start = stop - rng.uniform(0.5, n / 3, n)
        if ties:
            start = np.floor(start)
    X = rng.standard_normal((p, n)) * np.array([1.0, 10.0, 0.1, 100.0, 1.0][:p])[:, None] + 3.0
    w = rng.integers(1, 4, n).astype(np.float64) if freq else np.ones(n)
    beta = rng.standard_normal(p) * 0.3
    risk = np.exp(beta @ X - (beta @ X).mean())
    return status, X, start, stop, w, risk


def score(status, X, start, stop, freq, risk, tie):
    return zvstats.call("coxsresbif", 1, status, X, start, stop, freq, risk, float(tie))[0]


def martingale(status, start, stop, freq, risk, tie):
    return zvstats.call("coxmresbif", 1, status, start[None, :], stop, freq, risk, float(tie))[0]


def scale_of(a):
    return max(1.0, float(np.abs(a).max()))


CASES = [(ties, ss, fr) for ties in (False, True) for ss in (False, True) for fr in (False, True)]


@pytest.mark.parametrize("ties, start_stop, freq", CASES)
@pytest.mark.parametrize("tie", [0.0, 1.0])
def test_against_walk(ties, start_stop, freq, tie):
    rng = np.random.default_rng(int(ties) * 4 + int(start_stop) * 2 + int(freq))
    status, X, start, stop, w, risk = survival_data(rng, 150, 4, ties, start_stop, freq)
    ref_s = walk("s", status, X, start, stop, w, risk, tie)
    ref_m = walk("m", status, X, start, stop, w, risk, tie)
    S = score(status, X, start, stop, w, risk, tie)
    H = martingale(status, start, stop, w, risk, tie)
    assert S.shape == X.shape and H.shape == (1, len(stop))
    np.testing.assert_allclose(S, ref_s, rtol=1e-11, atol=1e-12 * scale_of(ref_s))
    np.testing.assert_allclose(H[0], ref_m, rtol=1e-12, atol=1e-14)


def test_breslow_equals_efron_without_ties():
    rng = np.random.default_rng(11)
    status, X, start, stop, w, risk = survival_data(rng, 200, 3, ties=False, start_stop=True)
    np.testing.assert_allclose(martingale(status, start, stop, w, risk, 1),
                               martingale(status, start, stop, w, risk, 0), rtol=1e-13, atol=1e-15)
    np.testing.assert_allclose(score(status, X, start, stop, w, risk, 1),
                               score(status, X, start, stop, w, risk, 0), rtol=1e-11, atol=1e-12)


@pytest.mark.parametrize("tie", [0.0, 1.0])
def test_rescaled_risks(tie):
    # Every hazard factor is a ratio of frequencies to risk sums, so H is
    # unchanged when all risks are multiplied by one constant; S too, as the
    # risk-set means are.
    rng = np.random.default_rng(3)
    status, X, start, stop, w, risk = survival_data(rng, 120, 3, ties=True, start_stop=True, freq=True)
    for c in (1e-3, 7.0, 2.0**40):
        np.testing.assert_allclose(martingale(status, start, stop, w, risk * c, tie),
                                   martingale(status, start, stop, w, risk, tie), rtol=1e-12)
        np.testing.assert_allclose(score(status, X, start, stop, w, risk * c, tie),
                                   score(status, X, start, stop, w, risk, tie), rtol=1e-10, atol=1e-11)


def test_quirks_of_the_walk_against_the_transcription():
    # Unsorted rows, rows whose start is not before their stop (also event
    # rows, which must not stall the walk), zero frequencies, ties with no
    # event at the group's head, and a tie weight other than 0 or 1.
    rng = np.random.default_rng(8)
    n = 60
    stop = np.sort(rng.integers(1, 12, n)).astype(np.float64)
    start = stop - rng.integers(-1, 6, n)  # some start >= stop
    status = rng.random(n) < 0.6
    X = rng.standard_normal((2, n))
    w = rng.integers(0, 3, n).astype(np.float64)
    risk = np.exp(rng.standard_normal(n))
    for tie in (0.0, 1.0, 0.5, 2.0, -1.0):
        for order in (np.arange(n), rng.permutation(n)):
            args = (status[order], X[:, order], start[order], stop[order], w[order], risk[order])
            ref_s = walk("s", *args, tie)
            ref_m = walk("m", args[0], None, *args[2:], tie)
            np.testing.assert_allclose(score(*args, tie), ref_s, rtol=1e-11, atol=1e-11, equal_nan=True)
            np.testing.assert_allclose(martingale(args[0], *args[2:], tie)[0], ref_m, rtol=1e-11,
                                       atol=1e-13, equal_nan=True)

"""Times the diagnostics gateways against numpy implementations of the same
computations, on the same data, in one run:

* coxsresbif / coxmresbif against the event walk written with numpy vector
  operations (one pass over the rows from each event on, as the walk does),
  n = 5,000 and 20,000, p = 10, half of the rows events, with ties; ours also
  with the walk forced (an infinite risk in the last row makes the sweep
  decline), to show how each grows with n;
* rkeutils::fwhtbif against its floor, measured by fwht_bench in the same
  run: the standard sine and cosine of every angle written once into a fresh
  output (the goal: within 1.5 times the floor); and against numpy
  reshape-based butterflies, m = 20,000, L = 1,024, 4 blocks, k = 1,000, in
  two layouts: "cols", each feature a
  contiguous row of m values as ours has it, so that every butterfly is a
  contiguous add, run over 4,096 observations at a time (the buffers stay
  small and warm; this is the faster numpy and the one the ratio is taken
  against), and "rows", m-by-L blocks whose butterflies read every other
  value, over all observations at once.

    /usr/bin/python3 bench/peers/diagnostics_vs_numpy.py [--build build] [--repeats 3] [--rows 20000]
                                                        [--only cox|fwht] [--peers cols,rows|none]
                                                        [--peer-repeats 1]

Set ZVSTATS_LIBRARY to time another build of ours.
"""
import argparse
import gc
import os
import sys
import time

import numpy as np

from peer_timing import benchmark_best


def best_of(repeats, fn, cpu=None):
    """Best wall time of `repeats` runs; `cpu`, a list, receives the best
    process CPU time (all threads), which a loaded machine disturbs less, and
    the kernel's part of it (in a virtual machine mostly the zeroing of newly
    touched pages)."""
    best, best_cpu, best_sys, out = float("inf"), float("inf"), float("inf"), None
    for _ in range(repeats):
        out = None
        gc.collect()
        before = os.times()
        t = time.perf_counter()
        out = fn()
        best = min(best, time.perf_counter() - t)
        after = os.times()
        used = (after.user - before.user) + (after.system - before.system)
        if used < best_cpu:
            best_cpu, best_sys = used, after.system - before.system
    if cpu is not None:
        cpu += [best_cpu, best_sys]
    return best, out


# ---- Cox ---------------------------------------------------------------------------

def cox_numpy(kind, status, X, start, stop, freq, risk, tie):
    """The event walk with numpy vector operations over the rows at risk."""
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
        js = i + np.flatnonzero(start[i:] < t)
        r = risk[js] * freq[js]
        tied = status[js] & (stop[js] == t)
        e = np.where(tied, tie, 0.0)
        R, M, E, W = r.sum(), e.sum(), (r * e).sum(), freq[js][tied].sum()
        if p:
            Xr = X[:, js] * r
            A, B = Xr.sum(axis=1), (Xr * e).sum(axis=1)
        G = G1 = G2 = 0.0
        if tie == 0:
            G = W / R
            if p:
                A = A / R
        elif M > 0:
            k = np.arange(int(np.ceil(M)))
            f = k / M
            den = R - E * f
            a = (W / M) / den
            G1, G2 = a.sum(), ((1 - f) * a).sum()
            if p:
                T = (A[:, None] - B[:, None] * f) / den * a
                C, D = T.sum(axis=1), (T * (1 - f)).sum(axis=1)
        if kind == "s":
            xj = X[:, js]
            if not efron:
                out[:, js] += (xj - A[:, None]) * risk[js] * G
            else:
                out[:, js] += np.where(tied, xj * G2 - D[:, None], xj * G1 - C[:, None]) * risk[js]
            i = max(i + min(len(js), int(np.count_nonzero(stop[i:] == t))), i + 1)
        else:
            out[js] += risk[js] * (np.where(tied, G2, G1) if efron else G)
            i += max(int(np.count_nonzero(stop[i:] == t)), 1)
    return out


def cox_data(rng, n, p):
    stop = np.sort(rng.integers(1, n // 10, n)).astype(np.float64)  # about 10 rows per time
    status = rng.random(n) < 0.5
    X = rng.standard_normal((p, n))
    beta = rng.standard_normal(p) * 0.2
    risk = np.exp(beta @ X)
    return status, X, np.zeros(n), stop, np.ones(n), risk


# ---- Walsh-Hadamard ----------------------------------------------------------------

def fwht_numpy_rows(X, D, G, R, P, sigma, q):
    """The expansion with reshape-based butterflies on m-by-L blocks, all rows at once."""
    m, k = X.shape
    L, S = D.shape
    logL = L.bit_length() - 1
    scale = np.sqrt(L) * sigma / 1.4142135623730951
    total = 2 * S * L
    gain = np.sqrt(q / total) if total > q else 1.0
    out = np.empty((m, total))
    c, w = np.empty((m, L)), np.empty((m, L))

    def stage(src, dst):
        v = src.reshape(m, L // 2, 2)
        np.add(v[:, :, 0], v[:, :, 1], out=dst[:, : L // 2])
        np.subtract(v[:, :, 0], v[:, :, 1], out=dst[:, L // 2:])

    for b in range(S):
        np.multiply(X, D[:k, b], out=c[:, :k])
        c[:, k:] = 0
        for s in range(logL):
            stage(c, w)
            if s == logL - 1 and logL >= 2:
                np.multiply(w, G[:, b] / scale, out=w)
                c[:, P[:, b] - 1] = w
            else:
                c, w = w, c
        for u in range(logL):
            stage(c, w)
            c, w = w, c
        c *= np.where(R[:, b] > 0, 1.0, -1.0)
        np.cos(c, out=out[:, 2 * b * L: 2 * b * L + L])
        np.sin(c, out=out[:, 2 * b * L + L: 2 * (b + 1) * L])
    if gain != 1.0:
        out *= gain
    return out[:, :q]


def fwht_numpy_cols(XT, D, G, R, P, sigma, q, chunk=4096):
    """The expansion with reshape-based butterflies on L-by-n blocks, whose
    rows (features) are contiguous, `chunk` observations at a time. XT is
    k-by-m; the result is m-by-q, a transposed view as our output is laid out."""
    k, m = XT.shape
    L, S = D.shape
    logL = L.bit_length() - 1
    scale = np.sqrt(L) * sigma / 1.4142135623730951
    total = 2 * S * L
    gain = np.sqrt(q / total) if total > q else 1.0
    outT = np.empty((total, m))
    h = L // 2
    c0, w0 = np.empty((L, min(chunk, m))), np.empty((L, min(chunk, m)))
    for r0 in range(0, m, chunk):
        n = min(chunk, m - r0)
        for b in range(S):
            c, w = c0[:, :n], w0[:, :n]
            np.multiply(XT[:, r0:r0 + n], D[:k, b, None], out=c[:k])
            c[k:] = 0
            for s in range(2 * logL):
                v = c.reshape(h, 2, n)
                np.add(v[:, 0], v[:, 1], out=w[:h])
                np.subtract(v[:, 0], v[:, 1], out=w[h:])
                if s == logL - 1 and logL >= 2:
                    np.multiply(w, (G[:, b] / scale)[:, None], out=w)
                    c[P[:, b] - 1] = w
                else:
                    c, w = w, c
            c *= np.where(R[:, b] > 0, 1.0, -1.0)[:, None]
            np.cos(c, out=outT[2 * b * L: 2 * b * L + L, r0:r0 + n])
            np.sin(c, out=outT[2 * b * L + L: 2 * (b + 1) * L, r0:r0 + n])
    if gain != 1.0:
        outT *= gain
    return outT[:q].T


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "..", "build"))
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--rows", type=int, default=20000, help="rows of the Walsh-Hadamard case")
    parser.add_argument("--only", choices=["cox", "fwht"], help="run one of the two families")
    parser.add_argument("--peers", default="cols,rows", help="numpy layouts for the Walsh-Hadamard case, or none")
    parser.add_argument("--peer-repeats", type=int, default=1, help="runs of each numpy Walsh-Hadamard peer")
    args = parser.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import zvstats

    rng = np.random.default_rng(20261123)
    rows = []

    for n in (5000, 20000) if args.only != "fwht" else ():
        status, X, start, stop, w, risk = cox_data(rng, n, 10)
        forced = risk.copy()
        forced[-1] = np.inf  # the sweep declines; the walk does the same work
        for kind, tie, name in (("s", 1.0, "coxsresbif"), ("m", 1.0, "coxmresbif"), ("s", 0.0, "coxsresbif")):
            if kind == "s":
                call = lambda rk: zvstats.call(name, 1, status, X, start, stop, w, rk, tie)[0]
            else:
                call = lambda rk: zvstats.call(name, 1, status, start[None, :], stop, w, rk, tie)[0]
            t_ours, ours = best_of(args.repeats, lambda: call(risk))
            t_walk, _ = best_of(1, lambda: call(forced))
            t_peer, ref = best_of(1, lambda: cox_numpy(kind, status, X, start, stop, w, risk, tie))
            err = np.abs(ours.reshape(ref.shape) - ref).max() / np.abs(ref).max()
            rule = "Efron" if tie else "Breslow"
            rows.append((f"{name} {rule} n={n} p=10", t_peer, t_ours,
                         f"numpy walk; our walk {t_walk:.3f} s; max rel diff {err:.1e}"))

    if args.only != "cox":
        rows += fwht_case(zvstats, rng, args)

    print(f"# {os.cpu_count()} cores, best of {args.repeats} for ours, 1 run of the Cox peers, "
          f"best of {args.peer_repeats} for the Walsh-Hadamard peers, seconds")
    print(f"{'case':38s} {'numpy':>8s} {'ours':>8s} {'ratio':>8s}  notes")
    for name, tp, to, note in rows:
        if tp != tp:  # no peer on this line
            print(f"{name:38s} {'':8s} {to:8.3f} {'':8s}  {note}")
        else:
            print(f"{name:38s} {tp:8.3f} {to:8.3f} {tp / to:7.1f}x  {note}")


def fwht_case(zvstats, rng, args):
    """One line per numpy layout; CPU times (all threads) next to wall times,
    and the bytes that cannot be avoided: X read once per block, the output
    written once."""
    m, k, L, S = args.rows, 1000, 1024, 4
    Xf = np.asfortranarray(rng.standard_normal((m, k)))
    D = rng.choice([-1.0, 1.0], (L, S))
    G = rng.standard_normal((L, S))
    R = rng.choice([-1.0, 1.0], (L, S))
    P = np.stack([rng.permutation(L) + 1 for _ in range(S)], axis=1).astype(np.int64)
    q = 2 * L * S
    cpu = []
    t_ours, ours = best_of(args.repeats, lambda: zvstats.call("rkeutils::fwhtbif", 1, Xf, D, G, R, P, 3.0, float(q))[0],
                           cpu)
    c_ours, s_ours = cpu[0], cpu[1]
    check_rows = slice(0, min(m, 2000))
    sample = np.array(ours[check_rows])
    del ours
    gc.collect()
    gb = (S * m * k + m * q) * 8 / 1e9
    name = f"fwhtbif m={m} L={L} S={S} k={k}"
    lines = [(name, float("nan"), t_ours, f"ours: CPU {c_ours:.2f} s, kernel {s_ours:.2f} of it; {gb:.2f} GB moved at least, {gb / t_ours:.2f} GB/s")]
    if m == 20000:
        bench = os.path.join(args.build, "bin", "fwht_bench")
        best = benchmark_best(bench, "BM_(Floor|Expansion)Double_m20k_L1024_S4", args.repeats)
        floor, gateway = best["BM_FloorDouble_m20k_L1024_S4"], best["BM_ExpansionDouble_m20k_L1024_S4"]
        lines.append(("  floor (fwht_bench, same run)", float("nan"), floor,
                      f"every angle through sin and cos, one write of the output; "
                      f"the gateway there {gateway:.3f} s = {gateway / floor:.2f}x the floor (goal <= 1.5x)"))
    for layout in [p for p in args.peers.split(",") if p in ("cols", "rows")]:
        cpu = []
        if layout == "cols":
            t_peer, ref = best_of(args.peer_repeats, lambda: fwht_numpy_cols(Xf.T, D, G, R, P, 3.0, q), cpu)
        else:
            X = np.ascontiguousarray(Xf)  # numpy's own order, outside the timing
            t_peer, ref = best_of(args.peer_repeats, lambda: fwht_numpy_rows(X, D, G, R, P, 3.0, q), cpu)
            del X
        err = np.abs(sample - ref[check_rows]).max()
        del ref
        gc.collect()
        lines.append((f"  numpy {layout}", t_peer, t_ours,
                      f"CPU s numpy {cpu[0]:.2f} (kernel {cpu[1]:.2f}) ours {c_ours:.2f} ({cpu[0] / c_ours:.1f}x); "
                      f"max abs diff {err:.1e}"))
    return lines


if __name__ == "__main__":
    main()

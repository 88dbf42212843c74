#!/usr/bin/python3
"""sobolset gateways against scipy.stats.qmc.Sobol(bits=53), timed in one run.

    /usr/bin/python3 bench/peers/sobol_vs_scipy.py [--build build] [--repeats 7]

Both sides start from scipy's direction-number tables (computeDN is given
scipy's polynomials and initial values), and every case checks that our
points, as doubles, equal scipy's bit for bit.

Our side is timed two ways:
  * binding: the gateway called from Python on the same inputs as scipy; large
    outputs reach numpy without a copy, but an input array is copied into a
    host array, so chains of gateways (words -> doubles) are timed only
  * gateway: <build>/bin/sobol_bench, where a chain passes host arrays along
    without copies (its direction numbers are its own; the work per point
    does not depend on their values).
Timings are best of N wall-clock runs; ours and scipy's are taken in turn.
scipy's engine construction (and scrambling) is outside its timing, as
computeDN and our scrambling are outside ours. Both sides make their output
arrays inside the timing. scipy runs on one thread, ours on TBB's default.
A shared or virtual machine can make the first touch of a fresh output
array dominate both sides; the floor line shows what that costs here.
"""

import argparse
import os
import sys
import time
import warnings

import numpy as np
import scipy
from scipy.stats import _sobol, qmc

from peer_timing import benchmark_best

BITS = 53
SEED = 7


def best_in_turn(fns, repeats, budget):
    """Best wall time of each of `fns` (each returns (seconds, result)), called
    in turn; returns the best times and the last results."""
    best, results, spent = [float("inf")] * len(fns), [None] * len(fns), 0.0
    for _ in range(repeats):
        for i, fn in enumerate(fns):
            results[i] = None  # free the previous output first
            dt, results[i] = fn()
            best[i] = min(best[i], dt)
            spent += dt
        if spent > budget:
            break
    return best, results


def timed(fn, *args):
    t0 = time.perf_counter()
    out = fn(*args)
    return time.perf_counter() - t0, out


def bench_times(bench, names, repeats):
    return benchmark_best(bench, "^(" + "|".join(names) + ")/", repeats)


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", default="build")
    ap.add_argument("--repeats", type=int, default=7)
    ap.add_argument("--budget", type=float, default=90.0, help="seconds per case before fewer repeats")
    ap.add_argument("--table-d", type=int, default=21201, help="dimensions of the table case")
    args = ap.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import zvstats

    warnings.simplefilter("ignore", UserWarning)  # scipy's note on n not a power of 2
    n, d = 2**20, 50  # the sizes of sobol_bench
    poly = _sobol.get_poly_vinit("poly", np.uint64)
    vinit = _sobol.get_poly_vinit("vinit", np.uint64)

    def table_inputs(dims):
        # scipy's dimension 0 (all direction numbers 1) is the recurrence of x with m = [1].
        cells = np.empty(dims, dtype=object)
        cells[:] = [np.array([1.0])] + [vinit[j, : int(poly[j]).bit_length() - 1].astype(np.float64)
                                         for j in range(1, dims)]
        return cells, np.array([2.0] + [float(p) for p in poly[1:dims]])

    v = np.ascontiguousarray(zvstats.call("sobolset::computeDN", 1, *table_inputs(d))[0].T)

    def seq(vv, first, last=None):
        extra = [] if last is None else [last]
        return zvstats.call("sobolset::sobolSequenceBIF", 1, vv, float(first), 0.0, float(n), True, *extra)[0]

    def to_double(x):
        return zvstats.call("sobolset::convertToDouble", 1, x)[0]

    def same(ours_words, theirs, shift=None):
        if shift is not None:
            ours_words = zvstats.call("sobolset::matrixBitXorBIF", 1, ours_words, shift)[0]
        y = to_double(ours_words)
        return y.shape == theirs.shape and np.array_equal(y.view(np.uint64), theirs.view(np.uint64))

    def scipy_draw(skip=0, scramble=False):
        def run():
            engine = qmc.Sobol(d, scramble=scramble, bits=BITS, seed=SEED)
            if skip:
                engine.random(skip)
            return timed(engine.random, n)
        return run

    print(f"# n = {n} points, d = {d}; scipy {scipy.__version__}, numpy {np.__version__}; "
          f"best of {args.repeats}; {os.cpu_count()} cpus")
    lines = []

    def line(case, t_scipy, t_ours, how, ok):
        lines.append(f"{case:22s} {how:8s} scipy {t_scipy * 1e3:8.1f} ms  ours {t_ours * 1e3:8.1f} ms  "
                     f"scipy/ours {t_scipy / t_ours:5.2f}  {ok}")
        print(lines[-1], flush=True)

    # The generator: scipy's doubles against our words. The third column is
    # what any new n-by-d array of 8-byte words costs to fill once (first
    # touch of its pages), a floor under both sides.
    (t_scipy, t_ours, t_floor), (ref, ours, _) = best_in_turn(
        [scipy_draw(), lambda: timed(seq, v, 0), lambda: timed(np.full, (n, d), 1.0)], args.repeats, args.budget)
    line("sequence", t_scipy, t_ours, "binding", "bits equal" if same(ours, ref) else "MISMATCH")
    print(f"{'(floor: np.full n-by-d)':22s} {'':8s} {t_floor * 1e3:8.1f} ms", flush=True)
    last = np.ascontiguousarray(ours[-1, :])
    ref = ours = None

    (t_cont, t_ours), (ref, ours) = best_in_turn(
        [scipy_draw(skip=n), lambda: timed(seq, v, n, last)], args.repeats, args.budget)
    line("continued", t_cont, t_ours, "binding", "bits equal" if same(ours, ref) else "MISMATCH")
    ref = ours = None

    engine = qmc.Sobol(d, scramble=True, bits=BITS, seed=SEED)
    sv, shift = np.ascontiguousarray(engine._sv), engine._shift.copy()
    (t_scr, t_ours), (ref, ours) = best_in_turn(
        [scipy_draw(scramble=True), lambda: timed(seq, sv, 0)], args.repeats, args.budget)
    line("scrambled (no shift)", t_scr, t_ours, "binding", "bits equal" if same(ours, ref, shift) else "MISMATCH")
    ref = ours = None

    tables = table_inputs(args.table_d)

    def scipy_tables():
        out = np.zeros((args.table_d, BITS), dtype=np.uint64)
        return timed(_sobol._initialize_v, out, args.table_d, BITS)[0], out

    (t_tab, t_ours), (ref, ours) = best_in_turn(
        [scipy_tables, lambda: timed(lambda: zvstats.call("sobolset::computeDN", 1, *tables)[0])],
        args.repeats, args.budget)
    line(f"tables d={args.table_d}", t_tab, t_ours, "binding",
         "equal" if np.array_equal(ours.T, ref) else "MISMATCH")

    bench = os.path.join(args.build, "bin", "sobol_bench")
    if os.access(bench, os.X_OK):
        best = bench_times(bench, ["BM_SequenceGray", "BM_SequenceToDouble", "BM_ScrambledToDouble",
                                   "BM_SequenceContinued", "BM_ComputeDN"], args.repeats)
        line("sequence", t_scipy, best["BM_SequenceGray"], "gateway", "")
        line("sequence -> double", t_scipy, best["BM_SequenceToDouble"], "gateway", "")
        line("continued", t_cont, best["BM_SequenceContinued"], "gateway", "")
        line("scrambled -> double", t_scr, best["BM_ScrambledToDouble"], "gateway", "")
        if args.table_d == 21201:  # the bench's table: degrees 1 to 12 where scipy's reach 18
            line("tables d=21201", t_tab, best["BM_ComputeDN"], "gateway", "(its own polynomials)")
    else:
        print(f"# {bench} not built: gateway-alone times skipped")


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""randg and wswor against numpy's Generator, timed in one run.

    /usr/bin/python3 bench/peers/random_vs_numpy.py [--build build] [--repeats 5]

Cases:
  * randg: 10^7 gamma draws with unit scale at shapes 0.5 and 5, against
    Generator.standard_gamma (PCG64) with the same count;
  * wswor: K = 5*10^5 of N = 10^6 positions without replacement with uniform
    random weights, against Generator.choice(N, K, replace=False, p=w/sum(w)).

Ours is called through the Python binding, so its time includes the host's
call boundary and the copy of the output into numpy. Both run on one
thread. Timings are best of N runs, ours and numpy's taken in turn; the wall
clock (time.perf_counter) and the process CPU time (time.process_time) are
both shown, the latter being steadier on a shared machine.
"""

import argparse
import os
import sys
import time

import numpy as np

SEED = 20240611
DRAWS = 10**7
N, K = 10**6, 5 * 10**5


def timed(fn):
    w0, c0 = time.perf_counter(), time.process_time()
    result = fn()
    return time.perf_counter() - w0, time.process_time() - c0, result


def best_in_turn(fns, repeats):
    wall = [float("inf")] * len(fns)
    cpu = [float("inf")] * len(fns)
    results = [None] * len(fns)
    for _ in range(repeats):
        for i, fn in enumerate(fns):
            results[i] = None
            w, c, results[i] = timed(fn)
            wall[i], cpu[i] = min(wall[i], w), min(cpu[i], c)
    return wall, cpu, results


def report(name, wall, cpu):
    print(f"{name:<34} ours {wall[0]*1e3:8.1f} ms ({cpu[0]*1e3:8.1f} cpu)   "
          f"numpy {wall[1]*1e3:8.1f} ms ({cpu[1]*1e3:8.1f} cpu)   "
          f"ratio {wall[0]/wall[1]:5.2f} ({cpu[0]/cpu[1]:5.2f} cpu)")


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build", default="build")
    ap.add_argument("--repeats", type=int, default=5)
    args = ap.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import zvstats

    print(f"# numpy {np.__version__}; ratio = ours / numpy (below 1: ours is faster)")
    zvstats.seed(SEED)
    rng = np.random.default_rng(SEED)
    for a in (0.5, 5.0):
        wall, cpu, (ours, theirs) = best_in_turn(
            [lambda: zvstats.call("randg", 1, a, DRAWS, 1)[0], lambda: rng.standard_gamma(a, DRAWS)],
            args.repeats)
        report(f"randg a={a} ({DRAWS:.0e} draws)", wall, cpu)
        print(f"{'':<34} means {ours.mean():.4f} / {theirs.mean():.4f}, "
              f"variances {ours.var():.4f} / {theirs.var():.4f} (both should be {a})")

    w = np.random.default_rng(SEED).random(N)
    p = w / w.sum()
    wall, cpu, (ours, theirs) = best_in_turn(
        [lambda: zvstats.call("wswor", 1, w, K)[0], lambda: rng.choice(N, K, replace=False, p=p)],
        args.repeats)
    report(f"wswor N={N:.0e} K={K:.0e}", wall, cpu)
    assert np.unique(ours).size == K and np.unique(theirs).size == K


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""pdistbif against scipy.spatial.distance.pdist, timed in one run on one data set.

    /usr/bin/python3 bench/peers/pdist_vs_scipy.py [--build build] [--repeats 5]

Our gateway is timed two ways, each where it is available:
  * through the Python binding (<build>/python): the same numpy arrays that
    scipy gets, end to end, so the time includes copying X into a host array
    and copying the condensed result back into numpy;
  * through <build>/bin/pdist_bench: the gateway alone at the host's call
    boundary (frame, output allocation, computation), best of repetitions.
The data are the benchmark binary's own (written with --zv_dump) when the
binary exists, so that every column sees the very same numbers; otherwise
numpy draws them. The output says which ways were taken.

Timings are best of N wall-clock runs (time.perf_counter), ours and scipy's
taken in turn. scipy's pdist runs on one thread; ours runs on every core
through TBB, as in the host.
"""

import argparse
import os
import platform
import subprocess
import sys
import tempfile
import time

import numpy as np
import scipy
import scipy.spatial.distance as ssd

from peer_timing import benchmark_best

N = 10000
SEED = 20240611

# (our metric name, p, element type); ours reads the first three letters.
CASES = [
    ("euclidean", 64, "double"),
    ("euclidean", 64, "single"),
    ("euclidean", 3, "double"),
    ("euclidean", 3, "single"),
    ("cityblock", 64, "double"),
    ("sqeuclidean", 64, "double"),
    ("chebychev", 64, "double"),
]
SCIPY_METRIC = {"chebychev": "chebyshev"}
DTYPE = {"double": np.float64, "single": np.float32}


def timed(fn):
    t0 = time.perf_counter()
    result = fn()
    return time.perf_counter() - t0, result


def best_of_in_turn(fns, repeats, budget):
    """Calls each of `fns` in turn, `repeats` rounds (fewer once `budget`
    seconds are spent, at least one); returns the best time of each and the
    last result of each."""
    best = [float("inf")] * len(fns)
    results = [None] * len(fns)
    spent = 0.0
    for _ in range(repeats):
        for i, fn in enumerate(fns):
            results[i] = None  # free the previous output before the next run
            dt, results[i] = timed(fn)
            best[i] = min(best[i], dt)
            spent += dt
        if spent > budget:
            break
    return best, results


def bits_differing(a, b):
    """Entries whose bit patterns differ (NaNs compare by pattern too)."""
    a, b = np.ascontiguousarray(a).ravel(), np.ascontiguousarray(b).ravel()
    if a.shape != b.shape or a.dtype != b.dtype:
        return None
    view = np.uint64 if a.dtype == np.float64 else np.uint32
    return int(np.count_nonzero(a.view(view) != b.view(view)))


def row_start(i, n):
    return i * n - i * (i + 1) // 2


def check_plain_sum(X, ours):
    """Differing entries between ours and sqrt of the plain ascending sum of
    squared differences in double, coordinate by coordinate, on 25 rows of
    the triangle spread over all of it."""
    n, p = X.shape
    differing = checked = 0
    for i in sorted(set(int(r) for r in np.linspace(0, n - 2, 25))):
        d = X[i + 1:] - X[i]
        s = np.zeros(n - i - 1)
        for k in range(p):
            s += d[:, k] * d[:, k]
        got = ours[row_start(i, n):row_start(i, n) + (n - i - 1)]
        differing += bits_differing(got, np.sqrt(s))
        checked += s.size
    return differing, checked


def load_binding(build):
    sys.path.insert(0, os.path.join(build, "python"))
    try:
        import zvstats
        return zvstats
    except ImportError as e:
        print(f"# Python binding not importable from {build}/python ({e})")
        return None


def bench_dump(bench, n, ps):
    """The binary's inputs (n-by-p, one observation per row) and its double
    euclidean results, by p."""
    with tempfile.TemporaryDirectory() as tmp:
        subprocess.run([bench, f"--zv_dump={tmp}"], check=True)
        data = {p: np.fromfile(os.path.join(tmp, f"x_p{p}_n{n}.f64")).reshape(n, p) for p in ps}
        euclid = {p: np.fromfile(os.path.join(tmp, f"euclidean_p{p}_n{n}.f64")) for p in ps}
    return data, euclid


def bench_times(bench, n, repeats):
    """Best of `repeats` repetitions of each case, in seconds per call."""
    names = {case: f"pdist/{case[0]}/{case[2]}/n:{n}/p:{case[1]}" for case in CASES}
    best = benchmark_best(bench, "^(" + "|".join(names.values()) + ")/", repeats)
    return {case: best.get(name) for case, name in names.items()}


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", default="build", help="build directory (default: build)")
    ap.add_argument("--bench", help="pdist_bench binary (default: <build>/bin/pdist_bench)")
    ap.add_argument("--method", choices=["auto", "binding", "bench"], default="auto",
                    help="our side: both ways where available (auto), or only one")
    ap.add_argument("--repeats", type=int, default=5, help="best of this many runs (default 5)")
    ap.add_argument("--budget", type=float, default=60.0,
                    help="stop repeating a case after this many seconds (default 60)")
    ap.add_argument("--n", type=int, default=N,
                    help=f"observations (default {N}); the benchmark binary has n = {N} only")
    args = ap.parse_args()

    zvstats = None if args.method == "bench" else load_binding(args.build)
    if zvstats is None and args.method == "binding":
        sys.exit("the binding was asked for but cannot be imported")
    bench = args.bench or os.path.join(args.build, "bin", "pdist_bench")
    if args.method == "binding" or args.n != N or not os.access(bench, os.X_OK):
        if args.method == "bench":
            sys.exit(f"{bench} is not available (or --n is not {N})")
        bench = None
    if zvstats is None and bench is None:
        sys.exit("neither the binding nor the benchmark binary is available; build first")

    n, ps = args.n, sorted({c[1] for c in CASES})
    dumped = {}
    if bench:
        data, dumped = bench_dump(bench, n, ps)
        source = "pdist_bench --zv_dump (std::mt19937 normals; single = double rounded, as astype)"
    else:
        rng = np.random.default_rng(SEED)
        data = {p: rng.standard_normal((n, p)) for p in ps}
        source = "numpy default_rng normals; single = double rounded"
    gateway = bench_times(bench, n, args.repeats) if bench else {}

    rows = []
    for case in CASES:
        metric, p, kind = case
        X = data[p].astype(DTYPE[kind])
        # Our gateway takes observations as columns: pass the p-by-n view;
        # the binding copies it into a column-major host array of that shape.
        Xt = X.T
        fns = [lambda: ssd.pdist(X, SCIPY_METRIC.get(metric, metric))]
        if zvstats:
            fns.append(lambda: zvstats.call("pdistbif", 1, Xt, metric)[0].ravel())
        times, results = best_of_in_turn(fns, args.repeats, args.budget)
        y_scipy = results[0]
        y_ours = results[1] if zvstats else (dumped.get(p) if (metric, kind) == ("euclidean", "double") else None)
        row = {"case": case, "scipy": times[0], "binding": times[1] if zvstats else None,
               "gateway": gateway.get(case), "vs_scipy": "-", "vs_plain": "-"}
        if y_ours is not None and kind == "double":
            diff = bits_differing(y_ours, y_scipy)
            row["vs_scipy"] = "shape/type differs" if diff is None else f"{diff} differ"
            if metric == "euclidean":
                d, checked = check_plain_sum(X, y_ours)
                row["vs_plain"] = f"{d} of {checked} differ"
        elif y_ours is not None:
            # scipy computes single input in double; show how far ours is from it.
            rel = np.max(np.abs(y_ours.astype(np.float64) - y_scipy) / np.maximum(np.abs(y_scipy), 1e-300))
            row["vs_scipy"] = f"max rel {rel:.1e}"
        rows.append(row)
        del results, y_scipy, y_ours

    ways = []
    if zvstats:
        ways.append(f"Python binding ({os.path.dirname(zvstats.__file__)}), end to end")
    if bench:
        ways.append(f"{bench}, gateway alone")
    print("# our gateway timed through: " + "; ".join(ways))
    print(f"# data: {source}")
    print(f"# {os.cpu_count()} cores ({platform.machine()}), numpy {np.__version__}, "
          f"scipy {scipy.__version__}, best of {args.repeats}, times in seconds")
    print("# scipy accepts float32 but converts it to float64 and returns float64, so its")
    print("# 'single' rows are double arithmetic on the rounded data.")
    print("# bits vs scipy: entries of ours whose bit pattern differs from scipy's result.")
    print("# bits vs plain sum: ours against sqrt of the ascending sum of squared differences")
    print("# in double, on 25 rows of the triangle spread over it.")
    if not zvstats:
        print("# without the binding only the euclidean double results are compared.")
    fmt = "{:<12} {:>3} {:<6} {:>6} {:>8} {:>8} {:>8} {:>9} {:>9}  {:<17} {}"
    head = fmt.format("metric", "p", "type", "n", "scipy", "binding", "gateway",
                      "sc/bind", "sc/gate", "bits vs scipy", "bits vs plain sum")
    print(head)
    print("-" * len(head))

    def sec(t):
        return "-" if t is None else f"{t:.3f}"

    def ratio(a, b):
        return "-" if a is None or b is None else f"{a / b:.2f}x"

    for r in rows:
        metric, p, kind = r["case"]
        print(fmt.format(metric, p, kind, n, sec(r["scipy"]), sec(r["binding"]), sec(r["gateway"]),
                         ratio(r["scipy"], r["binding"]), ratio(r["scipy"], r["gateway"]),
                         r["vs_scipy"], r["vs_plain"]))


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""pdistSparseBIF against scikit-learn's pairwise_distances on sparse data, timed in one run.

    /usr/bin/python3 bench/peers/pdist_sparse_vs_sklearn.py [--build build] [--repeats 3]

Each case is an n-by-p scipy.sparse matrix whose entries are stored with the
given density. The rivals:
  * sklearn.metrics.pairwise_distances(X, metric=...), which fills the whole
    n-by-n matrix with its own merge over compressed rows (its cityblock
    runs on every core through OpenMP);
  * ours through the Python binding (<build>/python), end to end: the binding
    copies X into a host sparse array (observations as columns) and the
    condensed result back into numpy. TBB runs it on every core.
  * ours at the gateway alone, from <build>/bin/pdist_sparse_bench, where the
    binary has the case (same sizes and density; its own draws).
Results are checked against sklearn's on the pairs of the condensed vector.

Timings are best of N wall-clock runs (time.perf_counter), the rivals taken
in turn, so that a busy machine slows both alike.
"""

import argparse
import os
import platform
import sys
import time

import numpy as np
import scipy
import scipy.sparse as sp
import sklearn
from sklearn.metrics import pairwise_distances

from peer_timing import benchmark_best

SEED = 20240611

# (our metric name, sklearn's, n, p, density)
CASES = [
    ("cityblock", "cityblock", 3000, 10000, 0.01),
    ("euclidean", "euclidean", 3000, 10000, 0.01),
    ("cityblock", "cityblock", 3000, 1000, 0.1),
    ("cityblock", "cityblock", 3000, 100000, 0.001),
]


def random_sparse(n, p, density, seed):
    rng = np.random.default_rng(seed)
    return sp.random(n, p, density=density, format="csr", random_state=rng, data_rvs=rng.standard_normal)


def condensed(square):
    return square[np.triu_indices(square.shape[0], k=1)]


def best_of_in_turn(fns, repeats, budget):
    best = [float("inf")] * len(fns)
    results = [None] * len(fns)
    spent = 0.0
    for _ in range(repeats):
        for i, fn in enumerate(fns):
            results[i] = None
            t0 = time.perf_counter()
            results[i] = fn()
            dt = time.perf_counter() - t0
            best[i] = min(best[i], dt)
            spent += dt
        if spent > budget:
            break
    return best, results


def bench_times(bench, repeats):
    """Best real time of each case the benchmark binary has, in seconds."""
    if not bench or not os.access(bench, os.X_OK):
        return {}
    names = {case: f"pdistSparse/{case[0]}/n:{case[2]}/p:{case[3]}/percent:{100 * case[4]:g}" for case in CASES}
    pattern = "^(" + "|".join(n.replace(".", "[.]") for n in names.values()) + ")/"
    best = benchmark_best(bench, pattern, repeats)
    return {case: best.get(name) for case, name in names.items()}


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--build", default="build", help="build directory (default: build)")
    ap.add_argument("--repeats", type=int, default=3, help="best of this many runs (default 3)")
    ap.add_argument("--budget", type=float, default=120.0,
                    help="stop repeating a case after this many seconds (default 120)")
    ap.add_argument("--headline", action="store_true", help="only the first case")
    args = ap.parse_args()

    sys.path.insert(0, os.path.join(args.build, "python"))
    try:
        import zvstats
    except ImportError as e:
        sys.exit(f"the binding cannot be imported from {args.build}/python ({e}); build first")
    cases = CASES[:1] if args.headline else CASES
    gateway = bench_times(os.path.join(args.build, "bin", "pdist_sparse_bench"), args.repeats)

    rows = []
    for case in cases:
        ours_name, theirs_name, n, p, density = case
        X = random_sparse(n, p, density, SEED)
        Xt = sp.csc_matrix(X.T)  # observations as columns, as the gateway takes them
        fns = [lambda: pairwise_distances(X, metric=theirs_name),
               lambda: zvstats.call("pdistSparseBIF", 1, Xt, ours_name)[0].ravel()]
        times, results = best_of_in_turn(fns, args.repeats, args.budget)
        theirs, ours = condensed(results[0]), results[1]
        # sklearn's euclidean expands |x|^2 - 2 x.y + |y|^2, so it is near ours
        # only up to cancellation; its cityblock sums the same terms in the
        # same order as ours.
        rel = np.max(np.abs(ours - theirs) / np.maximum(np.abs(theirs), 1e-300))
        differ = int(np.count_nonzero(ours != theirs))
        rows.append((case, X.nnz, times[0], times[1], gateway.get(case), differ, rel))
        del results, theirs, ours

    print(f"# {os.cpu_count()} cores ({platform.machine()}), numpy {np.__version__}, scipy {scipy.__version__}, "
          f"scikit-learn {sklearn.__version__}, best of {args.repeats}, times in seconds")
    print("# sklearn fills the n-by-n matrix (each pair twice); ours the condensed n(n-1)/2.")
    print("# binding: ours end to end from Python; gateway: pdist_sparse_bench alone, its own draws.")
    fmt = "{:<10} {:>5} {:>7} {:>6} {:>8} {:>8} {:>8} {:>8} {:>9} {:>9}  {}"
    head = fmt.format("metric", "n", "p", "dens", "nnz", "sklearn", "binding", "gateway", "sk/bind", "sk/gate",
                      "results vs sklearn")
    print(head)
    print("-" * len(head))
    for (name, _, n, p, density), nnz, t_sk, t_bind, t_gate, differ, rel in rows:
        ratio = lambda t: "-" if t is None else f"{t_sk / t:.1f}x"
        print(fmt.format(name, n, p, density, nnz, f"{t_sk:.3f}", f"{t_bind:.3f}",
                         "-" if t_gate is None else f"{t_gate:.3f}", ratio(t_bind), ratio(t_gate),
                         f"{differ} differ, max rel {rel:.1e}"))


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""One lasso sweep on 200,000 x 100 against scikit-learn's coordinate descent
and against three plain passes over X, timed in one run.

    /usr/bin/python3 bench/peers/lasso_vs_sklearn.py [--build build] [--repeats 3]

The rivals, all on one thread (BLAS is held to one thread here, as the host
holds it for the library):
  * ours through the Python binding (<build>/python), end to end: the binding
    copies X twice (as X and as weightedX) into host arrays on every call;
  * ours at the gateway alone, from <build>/bin/lasso_bench (same sizes, its
    own draws), beside that binary's three dgemv passes over X;
  * sklearn's cd_fast.enet_coordinate_descent with max_iter=1: one sweep, plus
    its residual y - X w at the start and its duality gap at the end (about
    two passes more than ours, which carries its residual);
  * numpy: three products X @ b, the cost the sweep is held against.
Timings are best of N wall-clock runs, the rivals taken in turn.
"""
import argparse
import os
import sys
import warnings

os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")
import numpy as np  # noqa: E402

from peer_timing import benchmark_best, best_of


def bench_times(bench, repeats):
    """Best real time of the sweep and of three dgemv passes in the benchmark binary."""
    if not os.access(bench, os.X_OK):
        return {}
    return benchmark_best(bench, "^(BM_SweepSameMatrix|BM_Gemv/3)", repeats)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "..", "build"))
    parser.add_argument("--repeats", type=int, default=3)
    args = parser.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import zvstats
    from sklearn.exceptions import ConvergenceWarning
    from sklearn.linear_model import _cd_fast

    warnings.simplefilter("ignore", ConvergenceWarning)  # one iteration is all we ask of it

    n, p, alpha = 200000, 100, 0.01
    rng = np.random.default_rng(20261123)
    X = np.asfortranarray(rng.standard_normal((n, p)))
    truth = np.where(rng.random(p) < 0.2, rng.standard_normal(p), 0.0)
    y = X @ truth + 0.5 * rng.standard_normal(n)
    b0 = 0.1 * rng.standard_normal(p)
    r0 = y - X @ b0
    xx = (X * X).sum(axis=0)
    active = np.ones(p, bool)

    def ours():
        return zvstats.call("lassoCoordDescentCycle", 3, X, X, y, b0, active, float(n), xx / n, alpha, r0, xx)

    def sklearn_sweep():
        w = b0.copy()
        _cd_fast.enet_coordinate_descent(w, alpha * n, 0.0, X, y, 1, 0.0, np.random.RandomState(0), 0, 0)
        return w

    def three_passes():
        for _ in range(3):
            out = X @ b0
        return out

    rows = []
    t_ours, (b, _, _) = best_of(args.repeats, ours)
    t_sk, w = best_of(args.repeats, sklearn_sweep)
    t_passes, _ = best_of(args.repeats, three_passes)
    agree = np.max(np.abs(b.ravel() - w))
    rows.append(("sweep vs sklearn cd (1 iteration)", t_ours, t_sk, f"max |b - sklearn| = {agree:.1e}"))
    rows.append(("sweep vs numpy 3 x (X @ b)", t_ours, t_passes, "binding copies 2 x 160 MB per call"))
    bench = bench_times(os.path.join(args.build, "bin", "lasso_bench"), args.repeats)
    if "BM_SweepSameMatrix" in bench:
        rows.append(("gateway sweep vs numpy 3 x (X @ b)", bench["BM_SweepSameMatrix"], t_passes, "lasso_bench"))
        rows.append(("gateway sweep vs sklearn cd", bench["BM_SweepSameMatrix"], t_sk, "lasso_bench"))
    if "BM_Gemv/3" in bench:
        rows.append(("gateway sweep vs 3 dgemv (same binary)", bench["BM_SweepSameMatrix"], bench["BM_Gemv/3"],
                     "lasso_bench"))

    print(f"{'case':42s} {'ours s':>9s} {'peer s':>9s} {'ours/peer':>9s}  note")
    for name, mine, theirs, note in rows:
        print(f"{name:42s} {mine:9.4f} {theirs:9.4f} {mine / theirs:9.2f}  {note}")


if __name__ == "__main__":
    main()

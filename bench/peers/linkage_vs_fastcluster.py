#!/usr/bin/python3
"""linkagebif against fastcluster and scipy, timed in one run on one data set.

    /usr/bin/python3 bench/peers/linkage_vs_fastcluster.py [--build build] [--n 10000]
        [--vector-n 20000] [--repeats 3] [--methods single,average]

Condensed part: the same condensed Euclidean distances of n Gaussian points
in 10 dimensions go to linkagebif (through the Python binding, so the time
includes copying the vector into a host array), fastcluster.linkage and
scipy.cluster.hierarchy.linkage. Memory-saving part: 20,000 x 10 points to
linkagebif's memory-saving mode and fastcluster.linkage_vector. Times are
best of N wall-clock runs, taken in turn; the ratio is peer time / our time
(above 1: we are faster). Every peer runs on one thread; ours uses the
cores where its engines have parallel loops (the list algorithm's neighbour
searches, single linkage's two passes over the vector, the memory-saving
distance sweeps).
"""

import argparse
import os
import sys

import numpy as np

from peer_timing import best_of as timed


def best_of(fn, repeats):
    return timed(repeats, fn)[0]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build", default="build")
    ap.add_argument("--n", type=int, default=10000)
    ap.add_argument("--vector-n", type=int, default=20000)
    ap.add_argument("--repeats", type=int, default=3)
    ap.add_argument("--methods", default="single,complete,average,weighted,ward,centroid,median")
    ap.add_argument("--no-scipy", action="store_true")
    ap.add_argument("--skip-vector", action="store_true")
    args = ap.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import fastcluster
    import scipy.cluster.hierarchy as sch
    import scipy.spatial.distance as ssd
    import zvstats

    rng = np.random.default_rng(20240611)
    x = rng.standard_normal((args.n, 10))
    d = ssd.pdist(x)
    row = d[None, :]
    print(f"condensed linkage, n = {args.n} ({d.size} distances), best of {args.repeats}")
    print(f"{'method':10s} {'ours s':>9s} {'fastcluster s':>14s} {'ratio':>7s} {'scipy s':>9s} {'ratio':>7s}")
    for method in args.methods.split(","):
        ours = best_of(lambda: zvstats.call("linkagebif", 1, row, method), args.repeats)
        fc = best_of(lambda: fastcluster.linkage(d, method), args.repeats)
        line = f"{method:10s} {ours:9.3f} {fc:14.3f} {fc / ours:7.2f}"
        if not args.no_scipy:
            sp = best_of(lambda: sch.linkage(d, method), 1)
            line += f" {sp:9.3f} {sp / ours:7.2f}"
        print(line, flush=True)
    del d, row

    if args.skip_vector:
        return
    xv = rng.standard_normal((args.vector_n, 10))
    print(f"\nmemory-saving linkage, {args.vector_n} x 10, best of {args.repeats}")
    print(f"{'method':10s} {'ours s':>9s} {'linkage_vector s':>17s} {'ratio':>7s}")
    for method in ("ward", "centroid", "median"):
        ours = best_of(lambda: zvstats.call("linkagebif", 1, xv.T, method, [], True), args.repeats)
        fc = best_of(lambda: fastcluster.linkage_vector(xv, method), args.repeats)
        print(f"{method:10s} {ours:9.3f} {fc:17.3f} {fc / ours:7.2f}", flush=True)


if __name__ == "__main__":
    main()

"""Times dbscan and silhouette against scikit-learn on the same data, in one
run: dbscan on 20,000 points in 2 dimensions against DBSCAN with the
brute-force and the kd-tree neighbour search; silhouette on 10,000 points,
p = 10, K = 10, against silhouette_samples (the silhouette value is formed
from our two outputs as the caller forms it).

    /usr/bin/python3 bench/peers/clustering_vs_sklearn.py [--build build] [--repeats 3]
"""
import os

import numpy as np

from peer_timing import best_wall_and_cpu as best_of, binding_args


def blobs(rng, n, p, k, spread):
    centres = rng.uniform(-10, 10, (k, p))
    member = rng.integers(0, k, n)
    return centres[member] + spread * rng.standard_normal((n, p)), member


def main():
    args, zvstats = binding_args()
    from sklearn.cluster import DBSCAN
    from sklearn.metrics import silhouette_samples

    rng = np.random.default_rng(20240611)
    rows = []

    # DBSCAN: 20,000 points in 2-d, 8 blobs and 5% uniform noise.
    x, _ = blobs(rng, 19000, 2, 8, 0.6)
    x = np.vstack([x, rng.uniform(-12, 12, (1000, 2))])
    eps, minpts = 0.15, 10
    empty = np.zeros((0, 0), dtype=bool)

    def ours():
        return zvstats.call("dbscan", 2, np.ascontiguousarray(x.T), eps, float(minpts), "euc", 2.0, empty,
                            float(x.shape[0]), 2.0, None, False)

    t_ours, (labels, core) = best_of(args.repeats, ours)
    for algorithm in ("brute", "kd_tree"):
        model = DBSCAN(eps=eps, min_samples=minpts, algorithm=algorithm)
        t_peer, fitted = best_of(args.repeats, lambda: model.fit(x))
        same = np.array_equal(labels.ravel(), np.where(fitted.labels_ >= 0, fitted.labels_ + 1, -1))
        rows.append((f"dbscan 20000 p2 eps{eps} minpts{minpts}", t_peer, t_ours, f"DBSCAN {algorithm}",
                     f"labels {'equal' if same else 'DIFFER'}, {int(labels.max())} clusters"))

    # Silhouette: 10,000 points, p = 10, K = 10.
    x, member = blobs(rng, 10000, 10, 10, 2.0)
    K = 10
    mask = member[:, None] == np.arange(K)[None, :]
    counts = mask.sum(axis=0).astype(np.float64)

    def ours_silhouette():
        within, between = zvstats.call("silhouette", 2, np.ascontiguousarray(x.T), mask, counts, float(K),
                                       (member + 1).astype(np.float64), "euc")
        b = between.min(axis=1)
        a = within.ravel()
        return np.where(counts[member] > 1, (b - a) / np.maximum(a, b), 0.0)

    t_ours, s = best_of(args.repeats, ours_silhouette)
    t_peer, ref = best_of(args.repeats, lambda: silhouette_samples(x, member))
    rows.append(("silhouette 10000 p10 K10", t_peer, t_ours, "silhouette_samples",
                 f"max |diff| {np.max(np.abs(s - ref)):.1e}"))

    # On a loaded machine wall time swings; CPU time (all threads) is steadier.
    print(f"# {os.cpu_count()} cores, best of {args.repeats}, seconds: wall (cpu)")
    print(f"{'case':38s} {'peer':>15s} {'ours':>15s} {'ratio':>13s}  peer / check")
    for name, tp, to, peer_name, check in rows:
        print(f"{name:38s} {tp[0]:6.3f} ({tp[1]:6.3f}) {to[0]:6.3f} ({to[1]:6.3f}) "
              f"{tp[0] / to[0]:5.1f}x ({tp[1] / to[1]:4.1f}x)  {peer_name}; {check}")


if __name__ == "__main__":
    main()

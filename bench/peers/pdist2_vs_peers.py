"""Times pdist2bif against its open peers on the same data, in one run:
the full matrix against scipy's cdist, the K nearest against scikit-learn's
brute-force NearestNeighbors, a radius search against cdist <= r.

    /usr/bin/python3 bench/peers/pdist2_vs_peers.py [--build build] [--repeats 3]
"""
import os

import numpy as np

from peer_timing import best_of, binding_args


def main():
    args, zvstats = binding_args()
    from scipy.spatial.distance import cdist
    from sklearn.neighbors import NearestNeighbors

    rng = np.random.default_rng(20240611)
    rows = []

    def ours(x, y, code, count=None, radius=None, nout=1):
        return zvstats.call("pdist2bif", nout, x.T, y.T, code, None, count, radius, None)

    # Full matrix, 5,000 x 5,000, p = 64.
    x, y = rng.standard_normal((5000, 64)), rng.standard_normal((5000, 64))
    t_ours, (d,) = best_of(args.repeats, lambda: ours(x, y, "euclidean"))
    t_peer, ref = best_of(args.repeats, lambda: cdist(x, y))
    rows.append(("full euclidean 5000x5000 p64", t_peer, t_ours, "cdist",
                 f"{np.count_nonzero(d != ref)} entries differ"))
    t_ours, (d,) = best_of(args.repeats, lambda: ours(x, y, "cityblock"))
    t_peer, ref = best_of(args.repeats, lambda: cdist(x, y, "cityblock"))
    rows.append(("full cityblock 5000x5000 p64", t_peer, t_ours, "cdist",
                 f"{np.count_nonzero(d != ref)} entries differ"))
    del d, ref

    # K nearest: 100,000 reference points, 10,000 queries, p = 10, K = 10.
    ref_pts, queries = rng.standard_normal((100000, 10)), rng.standard_normal((10000, 10))
    t_ours, (d, i) = best_of(args.repeats, lambda: ours(ref_pts, queries, "euclidean", 10.0, nout=2))
    nn = NearestNeighbors(n_neighbors=10, algorithm="brute")

    def peer():
        nn.fit(ref_pts)
        return nn.kneighbors(queries)

    t_peer, (pd, pi) = best_of(args.repeats, peer)
    rows.append(("knn euclidean 100k x 10k p10 K10", t_peer, t_ours, "sklearn brute",
                 f"{np.mean(pi == i.T - 1):.4%} same neighbours"))

    # Radius search: 100,000 reference points, 2,000 queries.
    q2 = queries[:2000]
    t_ours, _ = best_of(args.repeats, lambda: ours(ref_pts, q2, "euclidean", None, 1.5, nout=2))
    t_peer, _ = best_of(args.repeats, lambda: [np.flatnonzero(c <= 1.5) for c in cdist(ref_pts, q2).T])
    rows.append(("radius euclidean 100k x 2k p10 r1.5", t_peer, t_ours, "cdist <= r", ""))

    print(f"# {os.cpu_count()} cores, best of {args.repeats}, seconds")
    print(f"{'case':38s} {'peer':>8s} {'ours':>8s} {'ratio':>7s}  peer / check")
    for name, tp, to, peer_name, check in rows:
        print(f"{name:38s} {tp:8.3f} {to:8.3f} {tp / to:6.1f}x  {peer_name}; {check}")


if __name__ == "__main__":
    main()

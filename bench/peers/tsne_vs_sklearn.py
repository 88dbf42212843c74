"""Times tsnebhbif against scikit-learn's Barnes-Hut gradient on the same
embedding and affinities, in one run, both on two threads.

Our theta opens a cell unless theta > half-width / distance; scikit-learn's
angle unless full width / distance < angle: theta 0.5 is angle 1.0. Our root
box is scikit-learn's, so that both trees have the same cells; the column
"differ" is the largest difference of the forces relative to their largest.

    /usr/bin/python3 bench/peers/tsne_vs_sklearn.py [--build build] [--repeats 3]
"""
import argparse
import os
import sys
import time

import numpy as np


def best_of(repeats, fn):
    best, out = float("inf"), None
    for _ in range(repeats):
        t = time.perf_counter()
        out = fn()
        best = min(best, time.perf_counter() - t)
    return best, out


def blobs(n, d, rng):
    centres = rng.standard_normal((10, d)) * 20
    return (centres[np.arange(n) % 10] + rng.standard_normal((n, d))).astype(np.float32)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "..", "build"))
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--threads", type=int, default=2)
    args = parser.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import zvstats
    from sklearn.manifold import _barnes_hut_tsne as bh
    from sklearn.neighbors import NearestNeighbors

    rng = np.random.default_rng(20240611)
    theta, k = 0.5, 90
    print(f"{'case':<28} {'sklearn s':>10} {'ours s':>10} {'ratio':>7}  differ")
    for n, d in [(100000, 2), (10000, 2), (100000, 3), (10000, 3)]:
        y = blobs(n, d, rng)
        nb = NearestNeighbors(n_neighbors=k + 1).fit(y).kneighbors(y, return_distance=False)[:, 1:]
        p = rng.uniform(0.5, 1.0, (n, k)).astype(np.float32)
        p /= p.sum()
        lo, hi = y.min(0), y.max(0)
        hi = np.maximum(hi * (1.0 + 1e-3 * np.sign(hi)), hi + 1e-3)
        for dtype in (np.float64, np.float32):
            yt = np.ascontiguousarray(y.T).astype(dtype)
            inputs = (theta, yt, ((lo + hi) / 2).astype(dtype), ((hi - lo) / 2).astype(dtype),
                      (nb.ravel() + 1).astype(float), np.full(n, float(k)), p.ravel().astype(dtype),
                      np.arange(n) * float(k))
            t_ours, (a, r, _) = best_of(args.repeats, lambda: zvstats.call("tsnebhbif", 3, *inputs))
            forces = np.zeros((n, d), np.float32)
            pf, nbi, indptr = p.ravel(), nb.ravel().astype(np.int64), np.arange(0, n * k + 1, k, dtype=np.int64)
            t_peer, _ = best_of(args.repeats, lambda: bh.gradient(pf, y, nbi, indptr, forces, 2 * theta, d, 0,
                                                                  compute_error=0, num_threads=args.threads))
            differ = np.abs((a - r).T - forces).max() / np.abs(forces).max()
            name = f"N={n} d={d} {'double' if dtype == np.float64 else 'single'}"
            print(f"{name:<28} {t_peer:10.3f} {t_ours:10.3f} {t_peer / t_ours:6.2f}x  {differ:.1e}", flush=True)


if __name__ == "__main__":
    main()

"""Times ompBatchImpl and ompCholImpl against scikit-learn's orthogonal_mp_gram
and orthogonal_mp on the same data, in one run: a unit-norm dictionary and
responses that are sparse combinations of its atoms plus a little noise, a
fixed number of atoms per response.

    /usr/bin/python3 bench/peers/omp_vs_sklearn.py [--build build] [--repeats 3] [--peer-repeats 1]
"""
import argparse
import os
import sys

import numpy as np

from peer_timing import best_of


def problem(rng, rows, atoms, responses, nonzeros):
    x = rng.standard_normal((rows, atoms))
    x /= np.linalg.norm(x, axis=0)
    codes = np.zeros((atoms, responses))
    for j in range(responses):
        codes[rng.choice(atoms, nonzeros, replace=False), j] = rng.standard_normal(nonzeros)
    return x, x @ codes + 0.01 * rng.standard_normal((rows, responses))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "..", "build"))
    parser.add_argument("--repeats", type=int, default=3)
    parser.add_argument("--peer-repeats", type=int, default=1)
    args = parser.parse_args()
    sys.path.insert(0, os.path.join(args.build, "python"))
    import zvstats
    from sklearn.linear_model import orthogonal_mp, orthogonal_mp_gram
    from threadpoolctl import threadpool_limits

    rng = np.random.default_rng(20240611)

    def ours(name, x, y, k, parallel):
        # The host limits BLAS to one thread when it loads the library, but
        # under Python the BLAS that numpy loaded first is not found that way;
        # BLAS threads inside the pursuit's own parallel loop only get in its way.
        with threadpool_limits(1, user_api="blas"):
            return zvstats.call(name, 2, x, y, float(k), np.arange(x.shape[1], dtype=float),
                                float(x.shape[1]), 0.0, 0.0, parallel)

    rows = []
    # The peer loops over responses in Python: fewer of them for the larger
    # dictionary and for its residual form keep the run short; ratios are per call.
    for (r, p, m, k, m_chol) in [(64, 256, 10000, 10, 2000), (256, 1024, 2000, 10, 500)]:
        x, y = problem(rng, r, p, m, k)
        size = f"{r}x{p} dictionary, {m} responses, {k} atoms"
        # The peer's own batch form: it is given the Gram matrix and X'Y, as the gateway forms them itself.
        t_peer, ref = best_of(args.peer_repeats, lambda: orthogonal_mp_gram(x.T @ x, x.T @ y, n_nonzero_coefs=k))
        for name, parallel in (("ompBatchImpl", 1.0), ("ompBatchImpl", 0.0)):
            t_ours, (coef, _) = best_of(args.repeats, lambda: ours(name, x, y, k, parallel))
            rows.append((f"{name}{'' if parallel else ' serial'} vs orthogonal_mp_gram, {size}", t_peer, t_ours,
                         f"max |diff| {np.abs(coef - ref).max():.1e}"))
        xc, yc = x, y[:, :m_chol]
        t_peer, ref = best_of(args.peer_repeats, lambda: orthogonal_mp(xc, yc, n_nonzero_coefs=k, precompute=False))
        t_ours, (coef, _) = best_of(args.repeats, lambda: ours("ompCholImpl", xc, yc, k, 1.0))
        rows.append((f"ompCholImpl vs orthogonal_mp, {r}x{p} dictionary, {m_chol} responses, {k} atoms",
                     t_peer, t_ours, f"max |diff| {np.abs(coef - ref).max():.1e}"))

    print(f"{'case':90s} {'peer s':>9s} {'ours s':>9s} {'ratio':>7s}  check")
    for case, t_peer, t_ours, check in rows:
        print(f"{case:90s} {t_peer:9.3f} {t_ours:9.3f} {t_peer / t_ours:7.1f}  {check}")


if __name__ == "__main__":
    main()

"""Times classregtree::findNode against scikit-learn's tree_.apply on the same
tree and data, in one run: a regression tree of 20,000 leaves (39,999 nodes)
fitted to 200,000 rows of 10 predictors, and the 1,000,000 rows made of those
rows five times over, so that both send every row to the same leaf. The peer
answers one level; ours answers one and ten prune levels (node heights). Our
time includes the binding's copy of the inputs into host arrays.

    /usr/bin/python3 bench/peers/find_node_vs_sklearn.py [--build build] [--repeats 3]
"""
import os

import numpy as np

from peer_timing import best_wall_and_cpu as best_of, binding_args


def heights(tree):
    h = np.zeros(tree.node_count)
    for u in range(tree.node_count - 1, -1, -1):  # children come after their parents
        if tree.children_left[u] >= 0:
            h[u] = 1 + max(h[tree.children_left[u]], h[tree.children_right[u]])
    return h


def main():
    args, zvstats = binding_args()
    from sklearn.tree import DecisionTreeRegressor

    rng = np.random.default_rng(20240611)
    # A grid exact in single: the peer works in single, we in double.
    fit_x = rng.integers(0, 1 << 20, (200000, 10)) / float(1 << 20)
    fit_y = np.sin(6 * fit_x[:, 0]) + fit_x[:, 1] * fit_x[:, 2] + 0.1 * rng.standard_normal(len(fit_x))
    model = DecisionTreeRegressor(max_leaf_nodes=20000, random_state=0).fit(fit_x, fit_y)
    tree = model.tree_
    x = np.asfortranarray(np.tile(fit_x, (5, 1)))
    x32 = np.ascontiguousarray(x, dtype=np.float32)

    n = tree.node_count
    branch = tree.children_left >= 0
    children = (np.vstack([tree.children_left + 1, tree.children_right + 1]) * branch).astype(np.float64)
    cut_var = np.where(branch, tree.feature + 1, 0).astype(np.float64).reshape(-1, 1)
    cut = tree.threshold.reshape(-1, 1)
    prune_list = heights(tree).reshape(-1, 1)
    empty = zvstats.Array("cell", (0, 0))
    categories = zvstats.Array("cell", (n, 2))
    flags = np.zeros((x.shape[1], 1), dtype=bool)

    def ours(levels):
        return zvstats.call("classregtree::findNode", 1, x, np.arange(levels, dtype=np.float64), prune_list, children,
                            flags, cut_var, np.zeros((0, 0)), cut, categories, empty, empty, empty, empty, empty, 0.0)

    t_peer, leaves = best_of(args.repeats, lambda: tree.apply(x32))
    rows = []
    for levels in (1, 10):
        t_ours, (nodes,) = best_of(args.repeats, lambda: ours(levels))
        same = np.array_equal(nodes[:, 0], leaves + 1)
        rows.append((f"findNode 1e6 rows, {n} nodes, {levels} level{'s' if levels > 1 else ''}", t_peer, t_ours,
                     f"leaves {'equal' if same else 'DIFFER'}, depth {int(prune_list[0, 0])}"))

    print(f"# {os.cpu_count()} cores, best of {args.repeats}, seconds: wall (cpu); peer: tree_.apply, one level")
    print(f"{'case':44s} {'peer':>15s} {'ours':>15s} {'ratio':>13s}  check")
    for name, tp, to, check in rows:
        print(f"{name:44s} {tp[0]:6.3f} ({tp[1]:6.3f}) {to[0]:6.3f} ({to[1]:6.3f}) "
              f"{tp[0] / to[0]:5.1f}x ({tp[1] / to[1]:4.1f}x)  {check}")


if __name__ == "__main__":
    main()

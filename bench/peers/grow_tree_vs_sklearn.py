"""Times classregtree::growTree against scikit-learn's DecisionTreeClassifier
and DecisionTreeRegressor (splitter "best", all predictors) on the same data
in one run: two noisy classes from three of 20 predictors, distinct values on
a grid single precision holds exactly, full trees; then 10 categorical
predictors of 20 levels (one-hot for the peer), 3 and 5 classes. Prints both
times, the ratio and both node counts.

    /usr/bin/python3 bench/peers/grow_tree_vs_sklearn.py [--build build] [--repeats 3] [--rows 200000]
"""
import numpy as np

from peer_timing import best_of, binding_args


def tree_data(rows, predictors, rng, regression=False):
    x = np.empty((rows, predictors), np.float32)
    for p in range(predictors):
        x[:, p] = rng.permutation(rows).astype(np.float32) * np.float32(0.125)
    s = x[:, 0] - x[:, 1] + 0.5 * x[:, 2]
    if regression:
        return x, (np.round(s * 4) / 4 + np.round(rng.random(rows) * 64)).astype(np.float32)
    y = (s > np.median(s)).astype(np.float32)
    flip = rng.random(rows) < 0.06
    y[flip] = 1 - y[flip]
    return x, y


def categorical_data(rows, predictors, levels, classes, rng):
    x = rng.integers(1, levels + 1, (rows, predictors)).astype(float)
    effect = rng.integers(0, classes, (predictors, levels + 1))
    y = (effect[0, x[:, 0].astype(int)] + effect[1, x[:, 1].astype(int)] + rng.integers(0, 2, rows)) % classes
    onehot = np.zeros((rows, predictors * levels), np.float32)
    for j in range(predictors):
        onehot[np.arange(rows), j * levels + x[:, j].astype(int) - 1] = 1
    return x, y.astype(float), onehot


def grow_inputs(zvstats, x, y, criterion, min_leaf=1, max_splits=1e9, quartile=False, categorical=False):
    n, p = x.shape
    return [x, y.reshape(-1, 1), np.ones((n, 1), y.dtype), np.arange(n, dtype=float), bool(quartile),
            np.full(p, categorical), np.zeros((0, 0)), criterion, float(min_leaf), 2.0, float(max_splits), float(p),
            0.0, 10.0, 0.0, np.zeros((0, 0)), 0.0, False, False, False, zvstats.RandStream(1), False, 0.0]


def main():
    args, zvstats = binding_args(add=lambda p: p.add_argument("--rows", type=int, default=200_000))
    from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor

    rng = np.random.default_rng(7)
    print(f"# best of {args.repeats}, seconds; node counts in brackets")
    print(f"{'case':44s} {'sklearn':>16s} {'ours':>16s} {'ratio':>7s}")
    cases = [("classification, full tree", False, 1, 1e9), ("classification, 255 splits", False, 1, 255),
             ("regression, min leaf 5", True, 5, 1e9)]
    for name, regression, min_leaf, max_splits in cases:
        x, y = tree_data(args.rows, 20, rng, regression)
        peer = (DecisionTreeRegressor if regression else DecisionTreeClassifier)(
            min_samples_leaf=min_leaf, max_leaf_nodes=None if max_splits > 1e8 else None, random_state=0)
        if max_splits < 1e8:
            peer.set_params(max_depth=8)  # 255 splits = 8 full layers
        t_peer, model = best_of(args.repeats, lambda: peer.fit(x, y))
        inputs = grow_inputs(zvstats, x, y, "mse" if regression else "gini", min_leaf, max_splits)
        t_ours, out = best_of(args.repeats, lambda: zvstats.call("classregtree::growTree", 1, *inputs))
        print(f"{name + f' {args.rows} x 20 single':44s} {t_peer:8.3f} [{model.tree_.node_count:5d}] "
              f"{t_ours:8.3f} [{out[0].shape[1]:5d}] {t_peer / t_ours:6.2f}x")
    # Categorical predictors, taken as they are by us and one-hot by the peer.
    for classes in (3, 5):
        x, y, onehot = categorical_data(args.rows // 2, 10, 20, classes, rng)
        t_peer, model = best_of(args.repeats, lambda: DecisionTreeClassifier(random_state=0).fit(onehot, y))
        inputs = grow_inputs(zvstats, x, y, "gini", categorical=True)
        t_ours, out = best_of(args.repeats, lambda: zvstats.call("classregtree::growTree", 1, *inputs))
        name = f"{classes} classes, 10 categorical of 20 levels, {args.rows // 2} rows (peer: one-hot)"
        print(f"{name:44s} {t_peer:8.3f} [{model.tree_.node_count:5d}] "
              f"{t_ours:8.3f} [{out[0].shape[1]:5d}] {t_peer / t_ours:6.2f}x")


if __name__ == "__main__":
    main()

# classregtree::findNode against scikit-learn's fitted trees: the record made
# from model.tree_ sends every row to the leaf that model.apply gives, in
# double and single, and prune levels that cut the tree at a depth stop each
# row at the node of that depth on its decision path.
import numpy as np
import pytest
from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor

import zvstats

rng = np.random.default_rng(11)
# The peer sends x <= t left and we send x < t left; its thresholds lie
# halfway between the values of the rows it fitted in the node, so rows of
# the fitted data (on a grid, exact in single) never sit on one.
X = rng.integers(0, 400, (3000, 5)) / 8.0
Y = X[:, 0] - 2 * X[:, 1] * (X[:, 2] > 20) + rng.standard_normal(len(X))
MODELS = {
    "regressor": DecisionTreeRegressor(min_samples_leaf=3, random_state=0).fit(X, Y),
    "classifier": DecisionTreeClassifier(min_samples_leaf=2, random_state=0).fit(X, (Y > 0) + (Y > 5)),
}


def record(tree):
    """The record fields findNode reads, from a fitted tree: 1-based children
    and cut variables, 0 at leaves, in the peer's own node numbering."""
    branch = tree.children_left >= 0
    children = np.vstack([tree.children_left + 1, tree.children_right + 1]) * branch
    cut_var = np.where(branch, tree.feature + 1, 0).astype(np.float64)
    return children.astype(np.float64), cut_var.reshape(-1, 1), tree.threshold.reshape(-1, 1)


def depths(tree):
    d = np.zeros(tree.node_count, dtype=int)
    for u in range(tree.node_count):  # parents come before their children
        if tree.children_left[u] >= 0:
            d[tree.children_left[u]] = d[tree.children_right[u]] = d[u] + 1
    return d


def find_node(x, tree, levels, prune_list=None, dtype=np.float64):
    children, cut_var, cut = record(tree)
    n, p = tree.node_count, x.shape[1]
    empty = zvstats.Array("cell", (0, 0))
    (nodes,) = zvstats.call("classregtree::findNode", 1, x.astype(dtype), np.asarray(levels, dtype=np.float64),
                            np.zeros((0, 0)) if prune_list is None else prune_list, children, np.zeros((p, 1), bool),
                            cut_var, np.zeros((0, 0), dtype), cut.astype(dtype), zvstats.Array("cell", (n, 2)),
                            empty, empty, empty, empty, empty, 0.0)
    return nodes


@pytest.mark.parametrize("name", sorted(MODELS))
@pytest.mark.parametrize("dtype", [np.float64, np.float32])
def test_rows_reach_the_leaves_of_apply(name, dtype):
    model = MODELS[name]
    nodes = find_node(X, model.tree_, [0.0], dtype=dtype)
    np.testing.assert_array_equal(nodes[:, 0], model.apply(X) + 1)


@pytest.mark.parametrize("name", sorted(MODELS))
def test_prune_levels_cut_the_tree_at_a_depth(name):
    model = MODELS[name]
    tree = model.tree_
    depth = depths(tree)
    deepest = depth.max()
    # A node of depth d is a leaf of every subtree of level deepest - d and above.
    cuts = [0, 1, 3, deepest // 2, deepest]
    nodes = find_node(X, tree, [deepest - d for d in cuts], (deepest - depth).astype(np.float64))
    path = model.decision_path(X).toarray().astype(bool)
    for s, d in enumerate(cuts):
        # The peer's path node of depth d, or its leaf where the path ends above d.
        expected = np.array([np.flatnonzero(row & (depth <= d))[np.argmax(depth[row & (depth <= d)])] for row in path])
        np.testing.assert_array_equal(nodes[:, s], expected + 1, err_msg=f"depth {d}")

# classregtree::computePruneInfo on trees fitted by scikit-learn: the alphas
# against cost_complexity_pruning_path (times the root weight), and the leaves
# of every prune level against sklearn's refit at that alpha.
import numpy as np
import pytest
from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor

import zvstats

SEED = 20240611


def data(regression):
    rng = np.random.default_rng(SEED + regression)
    X = rng.standard_normal((300, 4))
    y = X[:, 0] + rng.standard_normal(300) if regression else (X[:, 0] > 0) + rng.integers(0, 2, 300)
    w = rng.integers(1, 8, 300) / 4.0  # dyadic: sums are exact in any order
    return X, y, w


def prune_info(tree, criterion=""):
    """Calls the gateway on the record of a fitted sklearn tree."""
    n = tree.node_count
    weight = tree.weighted_n_node_samples
    class_prob = tree.value[:, 0, :].T / tree.value[:, 0, :].sum(axis=1)
    children = np.vstack([tree.children_left, tree.children_right]).astype(float) + 1
    levels, alphas = zvstats.call("classregtree::computePruneInfo", 2, class_prob, np.zeros((0, 0)), weight,
                                  tree.impurity * weight, np.zeros(n, dtype=bool), children, criterion, 0.0)
    return levels.ravel(), alphas.ravel()


def merged(alphas):
    """sklearn prunes one branch per step: equal consecutive steps are one level."""
    out = [alphas[0]]
    for a in alphas[1:]:
        if not np.isclose(a, out[-1], rtol=1e-9, atol=1e-12):
            out.append(a)
    return np.array(out)


def leaf_partition(leaf_of_row):
    """Rows grouped by leaf, named by the first row of each group."""
    first = {}
    return np.array([first.setdefault(leaf, row) for row, leaf in enumerate(leaf_of_row)])


@pytest.mark.parametrize("regression", [False, True])
def test_alphas_and_levels_match_sklearn(regression):
    X, y, w = data(regression)
    Model = DecisionTreeRegressor if regression else DecisionTreeClassifier
    model = Model(random_state=0).fit(X, y, sample_weight=w)
    root_weight = model.tree_.weighted_n_node_samples[0]
    levels, alphas = prune_info(model.tree_)
    theirs = merged(model.cost_complexity_pruning_path(X, y, sample_weight=w).ccp_alphas * root_weight)
    assert alphas[0] == 0 and len(alphas) > 20
    np.testing.assert_allclose(alphas, theirs, rtol=1e-9, atol=1e-12)

    # Each row's leaf at level s is the first node on its path that level s
    # has made a leaf; sklearn refit just above the level's alpha agrees.
    paths = model.decision_path(X).tocsr()
    for s in range(len(alphas)):
        if s + 1 < len(alphas) and np.isclose(alphas[s + 1], alphas[s], rtol=1e-9):
            continue
        ours = [min(n for n in paths.indices[paths.indptr[r]:paths.indptr[r + 1]] if levels[n] <= s)
                for r in range(len(X))]
        pruned = Model(random_state=0, ccp_alpha=alphas[s] * (1 + 1e-9) / root_weight).fit(X, y, sample_weight=w)
        np.testing.assert_array_equal(leaf_partition(ours), leaf_partition(pruned.apply(X)), err_msg=f"level {s}")


def test_gini_by_name_matches_the_risks_given():
    X, y, w = data(False)
    tree = DecisionTreeClassifier(random_state=0).fit(X, y, sample_weight=w).tree_
    levels, alphas = prune_info(tree)
    by_name_levels, by_name_alphas = prune_info(tree, "gini")
    np.testing.assert_array_equal(by_name_levels, levels)
    np.testing.assert_allclose(by_name_alphas, alphas, rtol=1e-12, atol=1e-14)

# classregtree::growTree against scikit-learn's DecisionTreeClassifier and
# DecisionTreeRegressor (splitter "best", all predictors): distinct predictor
# values on a grid single precision holds exactly and dyadic weights, so that
# both see the same sums. Both trees are walked together: rows, weights,
# risks, gains and cut points per node; another split of equal gain is a tie.
import numpy as np
import pytest
from sklearn.tree import DecisionTreeClassifier, DecisionTreeRegressor

import zvstats


def grow(x, y, w, criterion, min_leaf, min_parent=2, nout=17):
    n, p = x.shape
    return zvstats.call("classregtree::growTree", nout, x, y.reshape(-1, 1), w.reshape(-1, 1),
                        np.arange(n, dtype=float), False, np.zeros(p, bool), np.zeros((0, 0)), criterion,
                        float(min_leaf), float(min_parent), 1e9, float(p), 0.0, 10.0, 0.0, np.zeros((0, 0)), 0.0,
                        False, False, False, zvstats.RandStream(1), False, 0.0)


def data(rng, n, p, regression):
    x = np.stack([rng.permutation(n) * 0.25 for _ in range(p)], 1)
    if regression:
        y = np.round(x[:, 0] * 0.01 + rng.normal(0, 3, n) * 4) / 4
    else:
        y = ((x[:, 0] + rng.normal(0, 200, n) > n * 0.12).astype(float) + (x[:, 1] > n * 0.2)
             + (x[:, 2] > n * 0.22))
    return x, y, rng.integers(1, 5, n) / 4.0


def walk(record, tree, risk_scale=1.0):
    """Counts the nodes compared and the ties met; asserts on any other difference."""
    children, cut, var, weight, size, risk, gain = (record[0], record[5].ravel(), record[7].ravel(),
                                                    record[12].ravel(), record[13].ravel(), record[15].ravel(),
                                                    record[16].ravel())
    stack, compared, ties = [(0, 0)], 0, 0
    while stack:
        a, b = stack.pop()
        compared += 1
        sk_weight = tree.weighted_n_node_samples[b]
        sk_risk = tree.impurity[b] * sk_weight * risk_scale
        assert size[a] == tree.n_node_samples[b]
        assert weight[a] == sk_weight
        assert risk[a] == pytest.approx(sk_risk, rel=1e-9, abs=1e-9)
        left, right = tree.children_left[b], tree.children_right[b]
        if left == -1 or var[a] == 0:
            assert left == -1 and var[a] == 0, f"node {a}: one tree splits, the other does not"
            continue
        sk_gain = sk_risk - (tree.impurity[left] * tree.weighted_n_node_samples[left]
                             + tree.impurity[right] * tree.weighted_n_node_samples[right]) * risk_scale
        assert gain[a] == pytest.approx(sk_gain, rel=1e-9, abs=1e-9)
        if var[a] - 1 != tree.feature[b] or cut[a] != tree.threshold[b]:
            ties += 1
            continue
        stack += [(int(children[0, a]) - 1, left), (int(children[1, a]) - 1, right)]
    return compared, ties


@pytest.mark.parametrize("min_leaf", [1, 3, 120])
@pytest.mark.parametrize("criterion, peer, scale", [("gini", "gini", 1.0), ("deviance", "entropy", 0.5),
                                                     ("mse", "squared_error", 1.0)])
def test_same_tree_as_scikit_learn(criterion, peer, scale, min_leaf):
    rng = np.random.default_rng(min_leaf)
    regression = criterion == "mse"
    x, y, w = data(rng, 2000, 4, regression)
    model = (DecisionTreeRegressor if regression else DecisionTreeClassifier)(
        criterion=peer, min_samples_leaf=min_leaf, random_state=0).fit(x.astype(np.float32), y, sample_weight=w)
    record = grow(x, y, w, criterion, min_leaf)
    compared, ties = walk(record, model.tree_, scale)
    assert compared > model.tree_.node_count * 0.5 and ties < compared * 0.3
    if regression:
        return  # sums of squares outgrow single precision; the class weights here do not
    # Single precision throughout grows the tree of double precision.
    single = grow(x.astype(np.float32), y.astype(np.float32), w.astype(np.float32), criterion, min_leaf)
    for k in (0, 7, 13):
        np.testing.assert_array_equal(single[k], record[k])


def test_binding_returns_the_record():
    rng = np.random.default_rng(0)
    x, y, w = data(rng, 100, 3, False)
    record = grow(x, y, w, "gini", 1, nout=24)
    assert len(record) == 24
    n = record[0].shape[1]
    assert record[4].shape == (n, 2) and record[4].dtype == object
    assert record[6].shape == (n, 0)
    with pytest.raises(zvstats.HostError) as e:
        zvstats.call("classregtree::growTree", 1, x)
    assert e.value.identifier == "stats:classreg:learning:treeutils:growTree:BadNumberOfInputArgs"


@pytest.mark.parametrize("surrogates", [0, 3])
@pytest.mark.parametrize("classes", [0, 2, 3])
def test_lookup_of_the_training_rows_fills_each_leaf_with_its_rows(classes, surrogates):
    # Numeric and categorical predictors, some values missing; findNode walks
    # the grown record back, through the surrogates when there are some.
    rng = np.random.default_rng(classes)
    n = 600
    x = np.column_stack([rng.permutation(n) * 0.5, rng.integers(1, 9, n), rng.integers(1, 5, n),
                         rng.permutation(n) * 0.25]).astype(float)
    x[:, 3] = x[:, 0] * 0.5 + rng.normal(0, 20, n)
    y = (x[:, 1] % 3 + (x[:, 0] > 100) + rng.integers(0, 2, n)) % max(classes, 2) if classes else x[:, 1] * 0.5 + x[:, 0] * 0.01
    x[rng.random((n, 4)) < 0.05] = np.nan
    cat = np.array([False, True, True, False])
    rec = zvstats.call("classregtree::growTree", 24, x, y.reshape(-1, 1), np.ones((n, 1)), np.arange(n, dtype=float),
                       False, cat, np.zeros((0, 0)), "gini" if classes else "mse", 3.0, 6.0, 1e9, 4.0,
                       float(surrogates), 10.0, 0.0, np.zeros((0, 0)), 0.0, False, False, False, zvstats.RandStream(1),
                       False, 0.0)
    assert any(c is not None and np.size(c) for c in rec[4].ravel()), "no categorical split was made"
    empty = np.empty((0, 0), object)
    cells = [rec[18], rec[21], rec[20], rec[19], rec[17]] if surrogates else [empty] * 5
    (node,) = zvstats.call("classregtree::findNode", 1, x, np.zeros(1), np.zeros((0, 0)), rec[0], cat, rec[7],
                           np.zeros((0, 0)), rec[5], rec[4], *cells, 0.0)
    leaves = np.flatnonzero(rec[7].ravel() == 0)
    counts = np.bincount(node.ravel().astype(int) - 1, minlength=rec[0].shape[1])
    np.testing.assert_array_equal(counts[leaves], rec[13].ravel()[leaves])
    # Rows that no split could place stop at their branch.
    assert counts.sum() == n
    assert (counts[rec[7].ravel() != 0] > 0).any() == bool(rec[8].any())

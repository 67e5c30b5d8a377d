"""What predict and predict_proba give: the class distribution of the
descent, unknown values spread over branches, the tie rule, and inputs in
every layout."""

import pickle

import numpy as np
import pandas as pd
import pytest

from arbor import C45Classifier
from conftest import run_arbor, scores, write_frame


def test_ties_go_to_the_first_text_and_argmax_agrees(tmp_path):
    # One leaf, 2 and 10 equally weighted: "10" comes first byte-wise, so
    # 10 is predicted although classes_ lists 2 first.
    X = pd.DataFrame({"x": [1.0, 1.0, 1.0, 1.0]})
    y = np.array([2, 10, 2, 10])
    model = C45Classifier().fit(X, y)
    assert model.classes_.tolist() == [2, 10]
    assert model.predict(X).tolist() == [10] * 4
    proba = model.predict_proba(X)
    assert (proba.argmax(axis=1) == 1).all()
    assert proba[0, 0] == 0.5 and proba[0, 1] == np.nextafter(0.5, 1)
    base = write_frame(tmp_path, X, y, {"x": "float"})
    run_arbor("-f", base, "-fs", base.with_suffix(".data"), "-s", tmp_path / "s")
    assert scores(tmp_path / "s")[0] == ["10"] * 4


def test_unknown_values_spread_over_every_branch():
    # Pure leaves: a row unknown everywhere gets the training class shares.
    rng = np.random.default_rng(3)
    x = rng.uniform(0, 10, 300)
    s = rng.choice(["p", "q", "r"], 300)
    y = np.where(x < 4, "lo", np.where(s == "p", "mid", "hi"))
    X = pd.DataFrame({"x": x, "s": s})
    model = C45Classifier(pruning="none").fit(X, y)
    shares = np.array([(y == c).mean() for c in model.classes_])
    unknown = pd.DataFrame({"x": [np.nan, np.nan], "s": [None, "never seen"]})
    np.testing.assert_allclose(model.predict_proba(unknown), [shares, shares], rtol=1e-6)
    # Unknown x only: the split on s still decides among the x > 4 leaves.
    half = model.predict_proba(pd.DataFrame({"x": [np.nan], "s": ["p"]}))[0]
    lo = (y == "lo").mean()
    expected = {"lo": lo, "mid": 1 - lo, "hi": 0.0}
    np.testing.assert_allclose(half, [expected[c] for c in model.classes_], rtol=1e-6, atol=1e-7)


def test_a_leaf_without_training_weight_gives_its_class_all_the_weight(tmp_path):
    X = pd.DataFrame({"s": ["p", "p", "p", "q", "q", "z", "p", "q"]})
    y = np.array(["a", "a", "a", "b", "b", "b", "a", "b"])
    w = np.array([1, 1, 1, 1, 1, 0, 1, 1.0])
    model = C45Classifier(pruning="none").fit(X, y, sample_weight=w)
    assert model.export_text().count("(0.0)") == 1, model.export_text()
    # The empty leaf takes its father's majority class, a, with weight 1.
    assert model.predict(pd.DataFrame({"s": ["z"]})).tolist() == ["a"]
    assert model.predict_proba(pd.DataFrame({"s": ["z"]})).tolist() == [[1.0, 0.0]]
    base = write_frame(tmp_path, X, y, {"s": "string"}, weights=w)
    run_arbor("-f", base, "-np", "-fs", base.with_suffix(".data"), "-s", tmp_path / "s")
    assert scores(tmp_path / "s")[0] == model.predict(X).tolist()


@pytest.fixture(scope="module")
def grown():
    rng = np.random.default_rng(11)
    X = rng.normal(size=(20000, 4))
    X[rng.random(X.shape) < 0.05] = np.nan
    y = (np.nan_to_num(X[:, 0]) + np.nan_to_num(X[:, 1]) * np.nan_to_num(X[:, 2]) > 0.3).astype(int)
    y[rng.random(len(y)) < 0.1] ^= 1
    return X, y, C45Classifier().fit(X, y)


def test_inputs_in_every_layout_predict_alike(grown):
    X, _, model = grown
    expected = model.predict_proba(X)
    assert model.tree_size_ > 50
    for layout in (np.asfortranarray(X), X.astype(np.float32).astype(np.float64), X.tolist(),
                   np.hstack([X, X])[:, :4], pd.DataFrame(X)):
        np.testing.assert_array_equal(model.predict_proba(layout), expected)
    np.testing.assert_array_equal(model.predict_proba(X[::-1])[::-1], expected)


def test_threads_predict_as_one(grown):
    X, y, model = grown
    threaded = pickle.loads(pickle.dumps(model)).set_params(n_jobs=2)
    np.testing.assert_array_equal(threaded.predict_proba(X), model.predict_proba(X))
    assert model.score(X, y) > 0.8
    rows = model.predict_proba(X)
    np.testing.assert_allclose(rows.sum(axis=1), 1.0, rtol=1e-6)
    np.testing.assert_array_equal(model.classes_[rows.argmax(axis=1)], model.predict(X))

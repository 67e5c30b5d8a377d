"""The same tree as the command line: for a table written as .names/.data and
the same values given as a DataFrame, the text, DOT and PMML renderings are
equal, and so are the classes and scores of scoring a file."""

import numpy as np
import pandas as pd
import pytest

from arbor import C45Classifier
from arbor._classifier import _predict_input
from conftest import dataset, read_frame, run_arbor, scores, tree_part, write_frame

PRUNING_FLAGS = {"default": [], "c4.5": ["-c4.5"], "none": ["-np"]}


def scored_texts(model, X):
    """(classes, scores as `arbor -s` prints them) for the rows of X: the
    mixed weight of the predicted class, a float."""
    inputs = [None] * len(model._model.columns())
    for (kind, attribute, datatype, name), column in zip(model._features, [X.iloc[:, j] for j in range(X.shape[1])]):
        inputs[attribute] = _predict_input(model._model, column, name, kind, attribute, datatype)
    every_code = list(range(len(model._model.values(model._model.class_index)) + 1))
    best, weights = model._model.predict(inputs, len(X), 1, every_code, False)
    chosen = weights[np.arange(len(best)), best].astype(np.float32)
    return [str(c) for c in model.classes_[model._class_of_code[best]]], [format(float(w), "g") for w in chosen]


def expect_same_as_cli(model, base, X_score, score_file, tmp_path, flags=(), weights_base=None):
    text = tmp_path / "tree.txt"
    xml = tmp_path / "tree.xml"
    dot = tmp_path / "tree.dot"
    out = tmp_path / "scores.txt"
    run_arbor("-f", base, *flags, "-t", text, "-x", xml, "-d", dot, "-fs", score_file, "-s", out)
    assert model.export_text() == tree_part(text.read_text())
    assert model.export_graphviz() == dot.read_text()
    assert model.export_pmml() == xml.read_text()
    classes, printed = scores(out)
    assert scored_texts(model, X_score) == (classes, printed)
    assert list(model.predict(X_score).astype(str)) == classes


@pytest.mark.parametrize(
    "name, prunings",
    [("golf", ["default", "c4.5", "none"]), ("iris", ["default"]), ("crx", ["default", "c4.5", "none"]),
     ("adult", ["default"])],
)
def test_public_data_sets(name, prunings, tmp_path):
    base = dataset(name)
    X, y = read_frame(base.with_suffix(".names"), base.with_suffix(".data"))
    test_file = base.with_suffix(".test")
    score_file = test_file if test_file.exists() else base.with_suffix(".data")
    X_score, _ = read_frame(base.with_suffix(".names"), score_file)
    for pruning in prunings:
        model = C45Classifier(pruning=pruning).fit(X, y)
        expect_same_as_cli(model, base, X_score, score_file, tmp_path, PRUNING_FLAGS[pruning])


def test_discrete_columns_as_categories_give_the_same_tree():
    base = dataset("crx")
    X, y = read_frame(base.with_suffix(".names"), base.with_suffix(".data"))
    Xc, _ = read_frame(base.with_suffix(".names"), base.with_suffix(".data"), discrete_as="category")
    # Categories nobody uses are no values of the domain.
    Xc["A1"] = Xc["A1"].cat.add_categories(["never"])
    assert C45Classifier().fit(Xc, y).export_text() == C45Classifier().fit(X, y).export_text()


def mixed_frame(rows=600, seed=5):
    """Every mapped column type, unknown values in each that can hold them,
    labels whose text order (10 < 2) differs from their numeric order."""
    rng = np.random.default_rng(seed)
    f = np.array([round(v, d) for v, d in zip(rng.normal(10, 5, rows), rng.integers(0, 4, rows))])
    f[rng.random(rows) < 0.1] = np.nan
    i = pd.array(rng.integers(-50, 50, rows), dtype="Int64")
    i[rng.random(rows) < 0.1] = pd.NA
    b = rng.random(rows) < 0.4
    c = pd.Categorical(rng.choice(["low", "mid", "high", None], rows), categories=["low", "mid", "high", "unused"])
    o = np.array(rng.choice(["north side", "south", "east", "west"], rows), dtype=object)
    o[rng.random(rows) < 0.1] = None
    k = rng.integers(0, 4, rows)
    X = pd.DataFrame({"f": f, "i": i, "b": b, "c": c, "o": o, "k": k})
    score = (np.nan_to_num(f) > 10) + 2 * b + (k == 2) + (o == "south")
    y = np.where(score >= 3, 10, np.where(score == 2, 2, 1))
    flip = rng.random(rows) < 0.15
    y[flip] = rng.choice([1, 2, 10], flip.sum())
    return X, y, rng.uniform(0.2, 3.0, rows)


KINDS = {"f": "float", "i": "integer", "b": "string", "c": "string", "o": "string", "k": "string"}


@pytest.mark.parametrize("pruning", ["default", "c4.5", "none"])
def test_every_column_type_with_unknowns(pruning, tmp_path):
    X, y, _ = mixed_frame()
    model = C45Classifier(pruning=pruning, categorical_features=["k"]).fit(X, y)
    assert model.tree_size_ > 10
    base = write_frame(tmp_path, X, y, KINDS)
    expect_same_as_cli(model, base, X, base.with_suffix(".data"), tmp_path, PRUNING_FLAGS[pruning])


def test_sample_weight_is_the_weights_column(tmp_path):
    X, y, w = mixed_frame(seed=9)
    model = C45Classifier(categorical_features=[5]).fit(X, y, sample_weight=w)
    unweighted = C45Classifier(categorical_features=[5]).fit(X, y)
    assert model.export_text() != unweighted.export_text()
    base = write_frame(tmp_path, X, y, KINDS, weights=w)
    text = run_arbor("-f", base, "-tstd")
    assert model.export_text() == tree_part(text)


def test_float_values_are_narrowed_as_the_command_line_narrows_them(tmp_path):
    # 0.1 + 2**-30 and 0.1 are one float, and so are 0, -0 and -1e-50.
    rng = np.random.default_rng(1)
    x = rng.choice([0.1, 0.1 + 2.0**-30, 0.30000000000000004, 3e38, -1e-50, 0.0, 7.25], 200)
    X = pd.DataFrame({"x": x})
    y = np.where(x > 0.2, "big", "small")
    y[::7] = "small"
    model = C45Classifier(pruning="none").fit(X, y)
    assert model.tree_size_ > 3
    base = write_frame(tmp_path, X, y, {"x": "float"})
    expect_same_as_cli(model, base, X, base.with_suffix(".data"), tmp_path, ["-np"])


def test_parallel_build_grows_the_sequential_tree_without_unknowns():
    base = dataset("golf")
    X, y = read_frame(base.with_suffix(".names"), base.with_suffix(".data"))
    assert C45Classifier(n_jobs=2).fit(X, y).export_text() == C45Classifier().fit(X, y).export_text()
    assert C45Classifier(n_jobs=-1).fit(X, y).export_text() == C45Classifier().fit(X, y).export_text()

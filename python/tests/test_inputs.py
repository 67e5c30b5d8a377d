"""How inputs map to columns, and bad input: a ValueError (TypeError for
sparse matrices) that names the problem, never a crash."""

import numpy as np
import pandas as pd
import pytest
from scipy import sparse
from sklearn.exceptions import NotFittedError

from arbor import C45Classifier

X4 = np.array([[1.0, 5.0], [2.0, 6.0], [3.0, 7.0], [4.0, 8.0]])
Y4 = np.array(["a", "a", "b", "b"])


def fitted():
    return C45Classifier().fit(X4, Y4)


@pytest.mark.parametrize(
    "y, message",
    [
        (np.array([0.0, np.nan, 1.0, 1.0]), "Input y contains NaN"),
        (np.array([0.0, np.inf, 1.0, 1.0]), "Input y contains infinity"),
        (np.array(["a", None, "b", "b"], dtype=object), "Input y contains missing values"),
        (pd.Series(["a", pd.NA, "b", "b"], dtype="string"), "Input y contains missing values"),
        (np.array([0.5, 1.5, 2.25, 3.0]), "Unknown label type"),
        (np.array(["a", "b", "a"]), "inconsistent numbers of samples"),
        (np.ones((4, 2)), "y should be a 1d array"),
        (None, "requires y to be passed"),
        (np.array(["1", 1, "1", 1], dtype=object), "cannot be ordered"),
    ],
    ids=["nan", "inf", "None", "NA", "continuous", "length", "2d", "none", "mixed types"],
)
def test_bad_labels(y, message):
    with pytest.raises(ValueError, match=message):
        C45Classifier().fit(X4, y)


@pytest.mark.parametrize(
    "weights, message",
    [
        ([1, -1, 1, 1], "negative"),
        ([1, np.nan, 1, 1], "NaN or infinite"),
        ([1, np.inf, 1, 1], "NaN or infinite"),
        ([1, 1e39, 1, 1], "32-bit float"),
        ([1, 1, 1], r"sample_weight.shape == \(3,\), expected \(4,\)"),
        (np.ones((4, 2)), r"sample_weight.shape == \(4, 2\)"),
        ([0, 0, 1e-46, 0], "weight of 0"),
        (["a", "b", "c", "d"], "must hold numbers"),
    ],
    ids=["negative", "nan", "inf", "too large", "short", "2d", "all zero", "text"],
)
def test_bad_weights(weights, message):
    with pytest.raises(ValueError, match=message):
        C45Classifier().fit(X4, Y4, sample_weight=weights)


@pytest.mark.parametrize(
    "X, message",
    [
        (np.arange(4.0), "Expected 2D array, got 1D array"),
        (np.ones((4, 2, 1)), "Found array with dim 3"),
        (np.ones((0, 2)), r"0 sample\(s\) \(shape=\(0, 2\)\)"),
        (np.ones((4, 0)), r"0 feature\(s\) \(shape=\(4, 0\)\)"),
        (pd.DataFrame(index=range(4)), r"0 feature\(s\)"),
        (np.ones((4, 2)) + 1j, "Complex data not supported"),
        (pd.DataFrame({"t": pd.date_range("2020", periods=4)}), "dtype datetime64.*not supported"),
        (pd.DataFrame({"n": np.array([1, 2, 2**31, 3], dtype=np.int64)}), "'n': 2147483648 does not fit"),
        (pd.DataFrame({"n": np.array([1, 2, 2**63, 3], dtype=np.uint64)}), "'n': 9223372036854775808 does not fit"),
        (pd.DataFrame({"n": pd.array([1, None, -(2**31) - 1, 3], dtype="Int64")}), "'n': -2147483649 does not fit"),
        (pd.DataFrame({"f": [1.0, np.inf, 2.0, 3.0]}), "'f': inf is not a finite 32-bit float"),
        (pd.DataFrame({"f": [1.0, 1e300, 2.0, 3.0]}), "'f': 1e\\+300 is not a finite 32-bit float"),
    ],
    ids=["1d", "3d", "no rows", "no columns", "empty frame", "complex", "datetime", "int32 range", "uint64",
         "Int64", "inf", "beyond float"],
)
def test_bad_training_data(X, message):
    with pytest.raises(ValueError, match=message):
        C45Classifier().fit(X, Y4)


def test_sparse_data_is_refused_by_name():
    with pytest.raises(TypeError, match="Sparse data is not supported"):
        C45Classifier().fit(sparse.csr_matrix(X4), Y4)


@pytest.mark.parametrize(
    "settings, message",
    [
        (dict(confidence=0), "confidence"),
        (dict(confidence=1.5), "confidence"),
        (dict(min_cases=0), "min_cases"),
        (dict(min_cases=np.nan), "min_cases"),
        (dict(pruning="pessimistic"), "pruning"),
        (dict(n_jobs=0), "n_jobs"),
        (dict(n_jobs=1.5), "n_jobs"),
        (dict(categorical_features=["nope"]), "no column named 'nope'"),
        (dict(categorical_features=[7]), "no column 7"),
        (dict(categorical_features=[True]), "mask needs 2 entries"),
        (dict(categorical_features="all"), "categorical_features must be"),
    ],
)
def test_bad_settings(settings, message):
    with pytest.raises(ValueError, match=message):
        C45Classifier(**settings).fit(X4, Y4)


def test_bad_data_at_prediction():
    model = fitted()
    with pytest.raises(NotFittedError):
        C45Classifier().predict(X4)
    with pytest.raises(ValueError, match="X has 3 features, but C45Classifier is expecting 2"):
        model.predict(np.ones((2, 3)))
    with pytest.raises(ValueError, match="Expected 2D array"):
        model.predict_proba(np.ones(2))
    with pytest.raises(ValueError, match=r"0 sample\(s\)"):
        model.predict(np.ones((0, 2)))
    with pytest.raises(ValueError, match="'x0' holds values that are not numbers"):
        model.predict(np.array([["high", 1.0]], dtype=object))
    frame = C45Classifier().fit(pd.DataFrame({"n": [1, 2, 3, 4], "s": list("pqpq")}), Y4)
    with pytest.raises(ValueError, match="'n' holds integers; 2.5 is not one"):
        frame.predict(pd.DataFrame({"n": [2.5], "s": ["p"]}))
    with pytest.raises(ValueError, match="feature names should match"):
        frame.predict(pd.DataFrame({"s": ["p"], "n": [1]}))


def column_of(model, name):
    """(kind, data type) of a column of the model's table."""
    return {n: (k, t) for n, k, t in model._model.columns()}[name]


def test_column_types_by_dtype():
    X = pd.DataFrame(
        {
            "f32": np.float32([1, 2, 3, 4]),
            "i8": np.int8([1, 2, 3, 4]),
            "u16": np.uint16([1, 2, 3, 4]),
            "Int64": pd.array([1, None, 3, 4], dtype="Int64"),
            "Float64": pd.array([1.5, None, 3, 4], dtype="Float64"),
            "bool": [True, False, True, False],
            "boolean": pd.array([True, None, True, False], dtype="boolean"),
            "cat": pd.Categorical(["x", "y", None, "x"]),
            "obj": ["p", None, "q", "p"],
            "str": pd.array(["p", "q", None, "p"], dtype="string"),
            "objnum": pd.Series([1, 2, None, 4], dtype=object),
            "objreal": pd.Series([1.5, 2, None, 4], dtype=object),
            "forced": [10, 20, 10, 20],
        }
    )
    model = C45Classifier(categorical_features=["forced"]).fit(X, Y4)
    expect = {
        "f32": ("continuous", "float"), "i8": ("continuous", "integer"), "u16": ("continuous", "integer"),
        "Int64": ("continuous", "integer"), "Float64": ("continuous", "float"), "bool": ("discrete", "string"),
        "boolean": ("discrete", "string"), "cat": ("discrete", "string"), "obj": ("discrete", "string"),
        "str": ("discrete", "string"), "objnum": ("continuous", "integer"), "objreal": ("continuous", "float"),
        "forced": ("discrete", "string"),
    }
    assert {c: column_of(model, c) for c in expect} == expect
    assert model.feature_names_in_.tolist() == list(X.columns)
    columns = model._model.columns()
    assert columns[-1] == ("class", "class", "string")
    values = {n: model._model.values(i) for i, (n, _, _) in enumerate(columns)}
    assert values["bool"] == ["False", "True"] and values["boolean"] == ["False", "True"]
    assert values["forced"] == ["10", "20"]
    assert values["cat"] == ["x", "y"] and values["obj"] == ["p", "q"]


def test_arrays_name_their_columns_and_a_named_series_its_class():
    model = C45Classifier().fit(X4, pd.Series(Y4, name="label"), sample_weight=[1, 2, 1, 1])
    assert [c[:2] for c in model._model.columns()] == [
        ("x0", "continuous"), ("x1", "continuous"), ("label", "class"), ("weight", "weights")]
    assert not hasattr(model, "feature_names_in_")


def test_object_arrays_take_numbers_as_numbers_and_anything_else_as_text():
    X = np.array([[1.5, "a"], [2.5, {"k": 1}], [None, "b"], [4.0, "a"]], dtype=object)
    model = C45Classifier().fit(X, Y4)
    assert column_of(model, "x0") == ("continuous", "float")
    assert column_of(model, "x1") == ("discrete", "string")
    assert model._model.values(1) == ["a", "b", "{'k': 1}"]


def test_the_unknown_token_is_unknown_among_texts():
    X = pd.DataFrame({"s": ["?", "p", "q", "p"]})
    model = C45Classifier().fit(X, Y4)
    assert model._model.values(0) == ["p", "q"]

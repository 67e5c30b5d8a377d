"""The scikit-learn estimator over the library's trees."""

import numbers
import os
import warnings

import numpy as np
import pandas as pd
from sklearn.base import BaseEstimator, ClassifierMixin
from sklearn.exceptions import DataConversionWarning
from sklearn.utils.multiclass import check_classification_targets
from sklearn.utils.validation import check_is_fitted

from . import _arbor
from ._data import (
    FLOAT,
    IGNORE,
    INTEGER,
    STRING,
    UINTEGER,
    auto_kind,
    discrete_columns,
    factorized,
    float_values,
    integer_values,
    spelled,
    split_columns,
)

# The name the command line gives its training table, and so its trees.
_TABLE_NAME = "training_set"
_PRUNING = ("default", "c4.5", "none")
_MAX_WORKERS = 64  # what the parallel build's task farm takes


class C45Classifier(ClassifierMixin, BaseEstimator):
    """A classification tree of the C4.5 family.

    Grown by gain ratio with binary thresholds on continuous attributes,
    cases of unknown value propagated down every branch with fractional
    weights, and pruned by pessimistic error estimates: the tree the
    ``arbor`` command grows on the same data.

    Parameters
    ----------
    confidence : float, default=0.25
        Confidence level of the pruning error estimates, in (0, 1]; smaller
        values prune more.
    min_cases : float, default=2
        A node is split only when at least two of its branches would get
        this much weight; above 0.
    pruning : {"default", "c4.5", "none"}, default="default"
        "default" prunes subtrees by their error estimates, "c4.5" also
        raises subtrees (slower), "none" keeps the grown tree.
    n_jobs : int or None, default=None
        Worker threads of the build (and of prediction): None grows the tree
        sequentially, -1 on all online processors, -2 on all but one, and so
        on; at most the online processors and 64.
    categorical_features : "auto" or list of names or positions or bool mask
        "auto" makes bool, category, object and string columns discrete;
        the columns listed are discrete too, whatever their dtype.

    Attributes
    ----------
    classes_ : ndarray, the class labels (``np.unique(y)``).
    n_features_in_ : int
    feature_names_in_ : ndarray of str, for DataFrames with string names.
    tree_size_ : int, the number of nodes, leaves included.
    tree_depth_ : int, the number of levels; a single leaf has depth 1.
    """

    def __init__(self, confidence=0.25, min_cases=2, pruning="default", n_jobs=None, categorical_features="auto"):
        self.confidence = confidence
        self.min_cases = min_cases
        self.pruning = pruning
        self.n_jobs = n_jobs
        self.categorical_features = categorical_features

    # ---------------------------------------------------------------- fit

    def fit(self, X, y, sample_weight=None):
        """Grows and prunes the tree; returns self."""
        self._check_settings()
        name = type(self).__name__
        if y is None:
            raise ValueError(f"{name} requires y to be passed, but the target y is None.")
        frame, columns, rows, names = split_columns(X, name)
        self._check_feature_names(frame, reset=True)
        self._check_n_features(frame, reset=True)
        codes, classes, texts = _labels(y, rows)
        weights = _weights(sample_weight, rows)
        names = names or [f"x{j}" for j in range(len(columns))]
        forced = discrete_columns(self.categorical_features, names)
        column_defs, features = [], []
        for j, (column, column_name) in enumerate(zip(columns, names)):
            kind = STRING if j in forced else auto_kind(column, column_name)
            column_defs.append(_fit_column_def(column, column_name, kind))
            features.append((kind, j, kind, column_name))
        class_name = y.name if isinstance(y, pd.Series) and isinstance(y.name, str) else "class"
        column_defs.append((class_name, "class", STRING, codes, texts))
        if weights is not None:
            column_defs.append(("weight", "weights", FLOAT, weights))
        model = _arbor.fit(
            column_defs, rows, float(self.confidence), float(self.min_cases), self.pruning, self._workers(), _TABLE_NAME
        )
        self._adopt(model, features, classes)
        return self

    def _check_settings(self):
        c = self.confidence
        if not isinstance(c, numbers.Real) or isinstance(c, bool) or not 0 < c <= 1:
            raise ValueError(f"confidence must be a number in (0, 1], not {c!r}")
        m = self.min_cases
        if not isinstance(m, numbers.Real) or isinstance(m, bool) or not m > 0 or not np.isfinite(m):
            raise ValueError(f"min_cases must be a number above 0, not {m!r}")
        if self.pruning not in _PRUNING:
            raise ValueError(f"pruning must be one of {_PRUNING}, not {self.pruning!r}")
        self._workers()

    def _workers(self):
        """The build's cores argument: 0 grows sequentially."""
        n = self.n_jobs
        if n is None:
            return 0
        if not isinstance(n, numbers.Integral) or isinstance(n, bool) or n == 0:
            raise ValueError(f"n_jobs must be None or a non-zero integer, not {n!r}")
        online = os.sysconf("SC_NPROCESSORS_ONLN")
        wanted = n if n > 0 else max(1, online + 1 + n)
        return int(min(wanted, online, _MAX_WORKERS))

    def _adopt(self, model, features, classes):
        """Takes a grown or loaded model: features are (kind, attribute,
        domain type, name) in X's column order; classes the labels in
        np.unique order."""
        texts = model.values(model.class_index)
        position = {t: code for code, t in enumerate(texts, start=1)}
        label_texts = [str(c) for c in classes]
        self._model = model
        self._features = features
        self._code_of_class = np.array([position[t] for t in label_texts], dtype=np.intp)
        # Code 0, the unknown class, is only predicted by a tree grown on
        # no weight at all; it reads as the first class.
        self._class_of_code = np.zeros(len(texts) + 1, dtype=np.intp)
        self._class_of_code[self._code_of_class] = np.arange(len(classes))
        self.classes_ = classes
        self.tree_size_ = model.size
        self.tree_depth_ = model.depth

    # ------------------------------------------------------------ predict

    def _descend(self, X, probabilities):
        """(class positions in classes_, probabilities in classes_ order or None)."""
        check_is_fitted(self)
        frame, columns, rows, _ = split_columns(X, type(self).__name__)
        self._check_feature_names(frame, reset=False)
        self._check_n_features(frame, reset=False)
        inputs = [None] * len(self._model.columns())
        tested = set(self._model.tested())
        for (kind, attribute, datatype, name), column in zip(self._features, columns):
            # Columns no split tests are never read, so never converted.
            if attribute in tested:
                inputs[attribute] = _predict_input(self._model, column, name, kind, attribute, datatype)
        order = self._code_of_class.tolist() if probabilities else None
        best, proba = self._model.predict(inputs, rows, max(1, self._workers()), order)
        return self._class_of_code[best], proba

    def predict(self, X):
        """The class of every row: the one with the largest mixed weight,
        ties going to the class whose text comes first byte-wise."""
        predicted, _ = self._descend(X, False)
        return self.classes_[predicted]

    def predict_proba(self, X):
        """The mixed class weights that prediction computes for a row of
        weight 1 (the leaves' class distributions, spread over every branch
        where a value is unknown), normalised to sum 1, in classes_ order.

        A row that reaches only leaves without training weight gets
        probability 1 for their class. Where classes tie for the largest
        weight, the predicted one (see predict) is raised by one unit in the
        last place so that argmax agrees with predict."""
        return self._descend(X, True)[1]

    # ------------------------------------------------------------- export

    def export_text(self):
        """The tree as indented text, as `arbor -t` prints it after "Decision Tree"."""
        check_is_fitted(self)
        return self._model.text()

    def export_graphviz(self):
        """The tree as a Graphviz DOT graph, as `arbor -d` writes it."""
        check_is_fitted(self)
        return self._model.dot()

    def export_pmml(self):
        """The model as a PMML TreeModel document, as `arbor -x` writes it
        without test data."""
        check_is_fitted(self)
        return self._model.pmml()

    def save(self, path):
        """Writes the model in the binary model format (`arbor -bt` reads it)."""
        check_is_fitted(self)
        with open(path, "wb") as f:
            f.write(self._model.to_bytes())

    @classmethod
    def load(cls, path):
        """A fitted classifier from a binary model file (one written by
        save() or by `arbor -tb`). Its classes are the model's class texts;
        its features are the model's columns but the class and weights
        ones, in the model's order and named as there."""
        with open(path, "rb") as f:
            model = _arbor.Model.from_bytes(f.read())
        columns = model.columns()
        features = []
        for attribute, (name, kind, datatype) in enumerate(columns):
            if kind in ("class", "weights"):
                continue
            value_kind = STRING if kind == "discrete" else IGNORE if kind == "ignore" else datatype
            features.append((value_kind, attribute, datatype, name))
        discrete = [name for kind, _, _, name in features if kind == STRING]
        estimator = cls(
            confidence=float(model.confidence),
            min_cases=float(model.min_cases),
            pruning=model.pruning,
            categorical_features=discrete,
        )
        classes = np.array(model.values(model.class_index))
        if classes.size == 0:
            raise ValueError(f"{path}: the model knows no class")
        estimator._adopt(model, features, classes)
        estimator.n_features_in_ = len(features)
        estimator.feature_names_in_ = np.array([f[3] for f in features], dtype=object)
        return estimator

    def _more_tags(self):
        # Unknown values are part of the model; strings are category labels.
        return {"allow_nan": True, "X_types": ["2darray", "string"], "requires_y": True}


# ---------------------------------------------------------------- helpers


def _fit_column_def(column, name, kind):
    if kind == FLOAT:
        return (name, "continuous", FLOAT, float_values(column, name))
    if kind == INTEGER:
        values, unknown = integer_values(column, name)
        return (name, "continuous", INTEGER, values, unknown)
    codes, uniques = factorized(column)
    return (name, "discrete", STRING, codes, [spelled(u) for u in uniques])


def _predict_input(model, column, name, kind, attribute, datatype):
    if kind == FLOAT:
        return ("real", float_values(column, name))
    if kind in (INTEGER, UINTEGER):
        return ("integer",) + integer_values(column, name, kind)
    if kind == IGNORE:
        return None
    # Each distinct value is looked up once; -1 (unknown) picks the 0 appended.
    codes, uniques = factorized(column)
    lookup = np.append(model.codes(attribute, [spelled(u, datatype) for u in uniques]), np.int32(0))
    return ("codes", lookup[codes])


def _labels(y, rows):
    """(codes into the class texts, classes_, the texts of the classes)."""
    labels = np.asarray(y)
    if labels.ndim == 2 and labels.shape[1] == 1:
        warnings.warn(
            "A column-vector y was passed when a 1d array was expected. Please change the shape of y "
            "to (n_samples, ), for example using ravel().",
            DataConversionWarning,
            stacklevel=3,
        )
        labels = labels.ravel()
    if labels.ndim != 1:
        raise ValueError(f"y should be a 1d array, got an array of shape {labels.shape} instead.")
    if labels.shape[0] != rows:
        raise ValueError(f"Found input variables with inconsistent numbers of samples: [{rows}, {labels.shape[0]}]")
    if labels.dtype.kind == "f":
        if np.isnan(labels).any():
            raise ValueError("Input y contains NaN.")
        if np.isinf(labels).any():
            raise ValueError("Input y contains infinity or a value too large for dtype('float64').")
    elif labels.dtype.kind == "O" and pd.isna(labels).any():
        raise ValueError("Input y contains missing values (None, NaN or NA).")
    # Distinct labels by hashing first: sorting only those is far cheaper
    # than sorting every label, and gives np.unique(y) all the same.
    first, distinct = pd.factorize(labels)
    distinct = np.asarray(distinct).astype(labels.dtype)
    try:
        check_classification_targets(distinct)
        classes, position = np.unique(distinct, return_inverse=True)
    except TypeError as e:
        raise ValueError(f"y holds labels that cannot be ordered: {e}") from None
    return position[first].astype(np.int64), classes, [str(c) for c in classes]


def _weights(sample_weight, rows):
    if sample_weight is None:
        return None
    try:
        w = np.asarray(sample_weight, dtype=np.float64)
    except (TypeError, ValueError) as e:
        raise ValueError(f"sample_weight must hold numbers: {e}") from None
    if w.ndim == 0:
        w = np.full(rows, float(w))
    if w.shape != (rows,):
        raise ValueError(f"sample_weight.shape == {w.shape}, expected {(rows,)}!")
    if not np.isfinite(w).all():
        raise ValueError("sample_weight contains NaN or infinite values")
    if (w < 0).any():
        raise ValueError("sample_weight contains negative values")
    if (w > np.finfo(np.float32).max).any():
        raise ValueError("sample_weight values must fit a 32-bit float")
    if not (w.astype(np.float32) > 0).any():
        raise ValueError("sample_weight gives every row a weight of 0")
    return w

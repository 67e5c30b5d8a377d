"""How arrays and DataFrames become the library's columns.

Each feature becomes one column of the table the tree is grown on:

* float columns: continuous ``float`` columns; values are narrowed to 32-bit
  floats, as the command line narrows the same numbers written as text;
* integer columns (NumPy, and pandas' nullable ``Int64`` and the like):
  continuous ``integer`` (32-bit) columns;
* bool, category, object and string columns, and the columns named in
  ``categorical_features``: discrete ``string`` columns whose values are the
  texts ``str(value)`` (so ``True``/``False`` for booleans and the category's
  own ``str()`` for categories);
* object columns holding only numbers: continuous, as ``integer`` when all
  are integers and ``float`` otherwise.

NaN, None, pandas NA and NaT are unknown values, and so is the text ``"?"``,
the command line's unknown token.
"""

import numbers

import numpy as np
import pandas as pd

FLOAT = "float"
INTEGER = "integer"
UINTEGER = "uinteger"
STRING = "string"
IGNORE = "ignore"

_INT32 = (np.iinfo(np.int32).min, np.iinfo(np.int32).max)
_UINT32 = (0, np.iinfo(np.uint32).max)


def split_columns(X, estimator_name):
    """X as (X as a DataFrame or a 2-D array, list of 1-D columns, number of
    rows, column names or None).

    Columns of a DataFrame are Series, those of anything else NumPy arrays
    (views, not copies, of a 2-D array)."""
    if hasattr(X, "toarray") or hasattr(X, "tocsr"):
        raise TypeError(
            "Sparse data is not supported: "
            f"{estimator_name} needs dense data, e.g. X.toarray()"
        )
    if isinstance(X, pd.DataFrame):
        columns = [X.iloc[:, j] for j in range(X.shape[1])]
        names = [str(c) for c in X.columns]
        _check_shape(X.shape)
        return X, columns, X.shape[0], names
    arr = np.asarray(X)
    if arr.dtype.kind == "c":
        raise ValueError("Complex data not supported")
    if arr.ndim == 0:
        raise ValueError(f"Expected 2D array, got scalar array instead: array={X!r}.")
    if arr.ndim == 1:
        raise ValueError(
            f"Expected 2D array, got 1D array instead:\narray={arr!r}.\n"
            "Reshape your data either using array.reshape(-1, 1) if your data has a "
            "single feature or array.reshape(1, -1) if it contains a single sample."
        )
    if arr.ndim > 2:
        raise ValueError(f"Found array with dim {arr.ndim}. {estimator_name} expected <= 2.")
    _check_shape(arr.shape)
    return arr, [arr[:, j] for j in range(arr.shape[1])], arr.shape[0], None


def _check_shape(shape):
    if shape[0] < 1:
        raise ValueError(
            f"Found array with 0 sample(s) (shape={tuple(shape)}) while a minimum of 1 is required."
        )
    if shape[1] < 1:
        raise ValueError(
            f"Found array with 0 feature(s) (shape={tuple(shape)}) while a minimum of 1 is required."
        )


def auto_kind(column, name):
    """The column's value type by its dtype (object columns by their values)."""
    dtype = column.dtype
    if isinstance(dtype, pd.CategoricalDtype) or pd.api.types.is_bool_dtype(dtype):
        return STRING
    if pd.api.types.is_complex_dtype(dtype):
        raise ValueError("Complex data not supported")
    if pd.api.types.is_float_dtype(dtype):
        return FLOAT
    if pd.api.types.is_integer_dtype(dtype):
        return INTEGER
    if pd.api.types.is_object_dtype(dtype):
        inferred = pd.api.types.infer_dtype(column, skipna=True)
        if inferred == "integer":
            return INTEGER
        if inferred in ("floating", "mixed-integer-float"):
            return FLOAT
        return STRING
    if pd.api.types.is_string_dtype(dtype):
        return STRING
    raise ValueError(
        f"column {name!r} has dtype {dtype}, which is not supported: "
        "convert it to numbers, or name it in categorical_features"
    )


def discrete_columns(categorical_features, names):
    """Positions of the columns that categorical_features makes discrete."""
    n = len(names)
    if isinstance(categorical_features, str) and categorical_features == "auto":
        return set()
    if categorical_features is None:
        return set()
    if isinstance(categorical_features, str):
        raise ValueError(
            "categorical_features must be 'auto', or column names, positions or a boolean mask, "
            f"not {categorical_features!r}"
        )
    wanted = np.asarray(categorical_features)
    if wanted.dtype.kind == "b":
        if wanted.shape != (n,):
            raise ValueError(f"categorical_features as a mask needs {n} entries, not {wanted.size}")
        return set(np.flatnonzero(wanted).tolist())
    chosen = set()
    for item in wanted.ravel().tolist():
        if isinstance(item, numbers.Integral) and not isinstance(item, bool):
            if not 0 <= item < n:
                raise ValueError(f"categorical_features: no column {item} among {n}")
            chosen.add(int(item))
        elif isinstance(item, str):
            if item not in names:
                raise ValueError(f"categorical_features: no column named {item!r}")
            chosen.add(names.index(item))
        else:
            raise ValueError(f"categorical_features: {item!r} is neither a column name nor a position")
    return chosen


# ------------------------------------------------------------- conversion


def _is_extension(column):
    return isinstance(column, pd.Series) and pd.api.types.is_extension_array_dtype(column.dtype)


def float_values(column, name):
    """float64 values, NaN where unknown."""
    if _is_extension(column) and not isinstance(column.dtype, pd.CategoricalDtype):
        try:
            return column.to_numpy(dtype=np.float64, na_value=np.nan)
        except (TypeError, ValueError) as e:
            raise ValueError(f"column {name!r} holds values that are not numbers: {e}") from None
    values = np.asarray(column)
    if values.dtype.kind in "fiub":
        return values.astype(np.float64, copy=False)
    values = values.astype(object)
    unknown = pd.isna(values)
    out = np.full(values.shape, np.nan)
    try:
        out[~unknown] = values[~unknown].astype(np.float64)
    except (TypeError, ValueError) as e:
        raise ValueError(f"column {name!r} holds values that are not numbers: {e}") from None
    return out


def integer_values(column, name, kind=INTEGER):
    """(int64 values, uint8 mask of unknowns or None)."""
    low, high = _UINT32 if kind == UINTEGER else _INT32
    values = np.asarray(column) if not _is_extension(column) else None
    if values is not None and values.dtype.kind in "iu":
        if values.size and (values.min() < low or values.max() > high):
            bad = values.min() if values.min() < low else values.max()
            raise ValueError(f"column {name!r}: {bad} does not fit a 32-bit {_type_word(kind)}")
        return values.astype(np.int64, copy=False), None
    real = float_values(column, name)
    unknown = np.isnan(real)
    known = real[~unknown]
    if known.size:
        fraction = known != np.floor(known)
        if fraction.any():
            raise ValueError(f"column {name!r} holds integers; {known[fraction][0]!r} is not one")
        if known.min() < low or known.max() > high:
            bad = known.min() if known.min() < low else known.max()
            raise ValueError(f"column {name!r}: {bad:.0f} does not fit a 32-bit {_type_word(kind)}")
    out = np.where(unknown, 0.0, real).astype(np.int64)
    return out, (unknown.view(np.uint8) if unknown.any() else None)


def _type_word(kind):
    return "unsigned integer" if kind == UINTEGER else "integer"


def factorized(column):
    """(int64 codes, distinct values): -1 codes for unknown values."""
    if isinstance(column, pd.Series) and isinstance(column.dtype, pd.CategoricalDtype):
        return column.cat.codes.to_numpy().astype(np.int64), list(column.cat.categories)
    try:
        codes, uniques = pd.factorize(column)
    except TypeError:
        # Unhashable values (lists, dicts) are taken by their text.
        values = np.asarray(column, dtype=object)
        unknown = pd.isna(values)
        texts = np.array([None if u else str(v) for v, u in zip(values, unknown)], dtype=object)
        codes, uniques = pd.factorize(texts)
    return codes.astype(np.int64, copy=False), list(uniques)


def spelled(value, datatype=STRING):
    """The text of a discrete value; integral reals read as integers by a
    domain of integers (as pandas turns integer columns with NA to floats)."""
    if datatype in (INTEGER, UINTEGER) and isinstance(value, (float, np.floating)) and float(value).is_integer():
        return str(int(value))
    return str(value)

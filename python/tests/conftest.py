"""Shared helpers: the arbor command, the public data sets as DataFrames, and
DataFrames written as .names/.data files the way the package maps them."""

import csv
import os
import subprocess
from pathlib import Path

import numpy as np
import pandas as pd
import pytest

HERE = Path(__file__).resolve().parent
ARBOR = Path(os.environ.get("ARBOR_EXE", HERE.parents[1] / "build" / "arbor"))
DATA = Path(os.environ.get("ARBOR_DATA_DIR", HERE.parents[2] / "shared" / "data"))


def run_arbor(*args):
    """Standard output of the arbor command; it exits 0 even after an error,
    so an error text on standard output fails the test instead."""
    if not ARBOR.exists():
        pytest.skip(f"{ARBOR} not built")
    done = subprocess.run([str(ARBOR), *map(str, args)], capture_output=True, text=True, check=True)
    return done.stdout


def tree_part(text_output):
    """The tree of `arbor -tstd`: what follows the "Decision Tree" heading."""
    head = "\nDecision Tree\n\n"
    assert head in text_output, text_output
    return text_output.split(head, 1)[1]


def scores(path):
    """(classes, scores as printed) of an `arbor -s` score file."""
    rows = [line.rsplit(",", 1) for line in Path(path).read_text().splitlines()]
    return [r[0] for r in rows], [r[1] for r in rows]


def dataset(name):
    """The base path of a public data set (skips when it is absent)."""
    base = DATA / name / name
    if not base.with_suffix(".names").exists():
        pytest.skip(f"data set {name} not found under {DATA}")
    return base


def read_frame(names_file, data_file, discrete_as="object"):
    """A data file as the command line reads it: integer columns as Int64,
    float columns as float64 (values parsed exactly, "?" as NaN), string
    columns as objects (or categories) with None for "?", the class as
    text. Returns (X, y)."""
    meta = [line.split(",")[:3] for line in Path(names_file).read_text().splitlines() if line]
    raw = pd.read_csv(
        data_file, header=None, names=[m[0] for m in meta], dtype=str, keep_default_na=False,
        na_filter=False, quoting=csv.QUOTE_NONE,
    )
    X = {}
    y = None
    for name, datatype, kind in meta:
        texts = raw[name].tolist()
        if kind == "class":
            y = pd.Series(texts, name=name)
        elif datatype == "integer":
            X[name] = pd.array([None if t == "?" else int(t) for t in texts], dtype="Int64")
        elif datatype == "float":
            X[name] = np.array([np.nan if t == "?" else float(t) for t in texts])
        else:
            X[name] = pd.Series([None if t == "?" else t for t in texts], dtype=discrete_as)
    return pd.DataFrame(X), y


def text_of(value):
    """A value as the package spells it, "?" when unknown."""
    if value is None or value is pd.NA or (isinstance(value, float) and np.isnan(value)):
        return "?"
    if isinstance(value, (float, np.floating)):
        return repr(float(value))
    return str(value)


def write_frame(directory, X, y, kinds, weights=None):
    """X (columns of the given kinds: "float", "integer", "string") and y
    written as .names/.data, the weights as a last "float" weights column.
    Returns the base path."""
    base = Path(directory) / "frame"
    lines = [f"{c},{kinds[c]},{'discrete' if kinds[c] == 'string' else 'continuous'}" for c in X.columns]
    lines.append("class,string,class")
    if weights is not None:
        lines.append("weight,float,weights")
    base.with_suffix(".names").write_text("\n".join(lines) + "\n")
    with open(base.with_suffix(".data"), "w") as f:
        for r in range(len(X)):
            fields = [text_of(X.iloc[r, j]) for j in range(X.shape[1])] + [str(y[r])]
            if weights is not None:
                fields.append(repr(float(weights[r])))
            f.write(",".join(fields) + "\n")
    return base

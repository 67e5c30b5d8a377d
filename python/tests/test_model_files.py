"""Binary model files exchanged with the command line both ways, and
pickling through the same bytes."""

import gzip
import pickle

import numpy as np
import pandas as pd
import pytest

from arbor import C45Classifier
from conftest import dataset, read_frame, run_arbor, scores, tree_part


@pytest.fixture(scope="module")
def crx():
    """crx (unknown values, float, integer and discrete columns) as frames."""
    base = dataset("crx")
    X, y = read_frame(base.with_suffix(".names"), base.with_suffix(".data"))
    return base, X, y


def test_a_saved_model_is_read_by_the_command_line(crx, tmp_path):
    base, X, y = crx
    model = C45Classifier(pruning="c4.5").fit(X, y)
    path = tmp_path / "model.bin"
    model.save(path)
    assert path.read_bytes()[:2] == b"\x1f\x8b", "model files are gzip-compressed"
    assert tree_part(run_arbor("-bt", path, "-tstd")) == model.export_text()
    out = tmp_path / "scores"
    run_arbor("-bt", path, "-fs", base.with_suffix(".data"), "-s", out)
    assert scores(out)[0] == list(model.predict(X))


def test_a_command_line_model_predicts_without_its_training_data(crx, tmp_path):
    base, X, y = crx
    path = tmp_path / "cli.bin"
    run_arbor("-f", base, "-tb", path)
    loaded = C45Classifier.load(path)
    assert loaded.export_text() == tree_part(run_arbor("-f", base, "-tstd"))
    assert list(loaded.feature_names_in_) == list(X.columns)
    assert loaded.n_features_in_ == 15
    assert list(loaded.classes_) == ["+", "-"]
    assert loaded.get_params()["categorical_features"] == ["A1", "A4", "A5", "A6", "A7", "A9", "A10", "A12", "A13"]
    out = tmp_path / "scores"
    run_arbor("-bt", path, "-fs", base.with_suffix(".data"), "-s", out)
    assert scores(out)[0] == list(loaded.predict(X))
    # The loaded tree predicts as the one grown here on the same data.
    grown = C45Classifier().fit(X, y)
    np.testing.assert_array_equal(loaded.predict_proba(X), grown.predict_proba(X))
    # Integers that pandas turned into floats (NA in an int column) still read.
    assert list(loaded.predict(X.astype({"A11": "float64"}))) == scores(out)[0]


def test_reload_keeps_settings_and_the_tree(crx, tmp_path):
    _, X, y = crx
    model = C45Classifier(confidence=0.1, min_cases=5, pruning="none").fit(X, y)
    model.save(tmp_path / "m.bin")
    again = C45Classifier.load(tmp_path / "m.bin")
    assert (again.confidence, again.min_cases, again.pruning) == (np.float32(0.1), 5.0, "none")
    assert again.export_text() == model.export_text()
    assert again.export_pmml() == model.export_pmml()
    assert (again.tree_size_, again.tree_depth_) == (model.tree_size_, model.tree_depth_)
    np.testing.assert_array_equal(again.predict(X), model.predict(X))
    # A plain (uncompressed) model file reads too, as the library reads it.
    (tmp_path / "plain.bin").write_bytes(gzip.decompress((tmp_path / "m.bin").read_bytes()))
    assert C45Classifier.load(tmp_path / "plain.bin").export_text() == model.export_text()


def test_pickling_carries_the_model_file_bytes(crx, tmp_path):
    _, X, y = crx
    model = C45Classifier().fit(X, y)
    model.save(tmp_path / "m.bin")
    assert model._model.__getstate__() == (tmp_path / "m.bin").read_bytes()
    copy = pickle.loads(pickle.dumps(model))
    assert copy.export_text() == model.export_text()
    np.testing.assert_array_equal(copy.predict_proba(X), model.predict_proba(X))
    np.testing.assert_array_equal(copy.classes_, model.classes_)
    assert copy.get_params() == model.get_params()


def test_numeric_labels_survive_pickling_but_load_as_their_texts(tmp_path):
    X = np.array([[0.0], [1.0], [2.0], [3.0]] * 5)
    y = np.array([2, 10, 2, 10] * 5)
    model = C45Classifier().fit(X, y)
    assert pickle.loads(pickle.dumps(model)).classes_.tolist() == [2, 10]
    model.save(tmp_path / "m.bin")
    loaded = C45Classifier.load(tmp_path / "m.bin")
    assert loaded.classes_.tolist() == ["10", "2"]
    assert loaded.feature_names_in_.tolist() == ["x0"], "the names the model file holds"
    frame = pd.DataFrame(X, columns=["x0"])
    np.testing.assert_array_equal(loaded.predict(frame).astype(int), model.predict(X))


@pytest.mark.parametrize(
    "content",
    [b"", b"\x00", b"\x01\x02\x03 not a model", b"\x1f\x8b\x08\x00 truncated gzip"],
    ids=["empty", "no model", "garbage", "broken gzip"],
)
def test_files_that_are_no_model_are_refused(content, tmp_path):
    path = tmp_path / "bad.bin"
    path.write_bytes(content)
    with pytest.raises(ValueError, match="not a binary tree model"):
        C45Classifier.load(path)


def test_a_truncated_model_file_is_refused(crx, tmp_path):
    _, X, y = crx
    C45Classifier().fit(X, y).save(tmp_path / "m.bin")
    raw = gzip.decompress((tmp_path / "m.bin").read_bytes())
    for cut in (len(raw) // 3, len(raw) - 1):
        (tmp_path / "cut.bin").write_bytes(raw[:cut])
        with pytest.raises(ValueError, match="not a binary tree model"):
            C45Classifier.load(tmp_path / "cut.bin")
    (tmp_path / "long.bin").write_bytes(raw + b"\x00")
    with pytest.raises(ValueError, match="not a binary tree model"):
        C45Classifier.load(tmp_path / "long.bin")

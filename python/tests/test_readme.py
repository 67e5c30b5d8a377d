"""The README's example runs and prints what its comments say."""

import contextlib
import io
import os
import re
import shutil
from pathlib import Path

from conftest import run_arbor, tree_part

ROOT = Path(__file__).resolve().parents[2]


def test_the_readme_example(tmp_path):
    readme = (ROOT / "README.md").read_text()
    section = readme.split("\n## Python\n", 1)[1]
    code = re.search(r"```python\n(.*?)```", section, re.S).group(1)
    assert len(code.strip().splitlines()) <= 10
    (tmp_path / "examples").mkdir()
    shutil.copy(ROOT / "examples" / "golf.data", tmp_path / "examples")
    printed = io.StringIO()
    here = os.getcwd()
    os.chdir(tmp_path)
    try:
        with contextlib.redirect_stdout(printed):
            exec(compile(code, "README.md", "exec"), {})
    finally:
        os.chdir(here)
    tree = tree_part(run_arbor("-f", ROOT / "examples" / "golf", "-tstd"))
    assert printed.getvalue().startswith(tree)
    assert printed.getvalue()[len(tree):].lstrip("\n").startswith("[\"Don't Play\"] [[0.6")
    assert tree_part(run_arbor("-bt", tmp_path / "golf.tree", "-tstd")) == tree

"""`cmake --install` puts a working package where the interpreter looks."""

import os
import subprocess
import sys
from pathlib import Path

import pytest

BUILD = os.environ.get("ARBOR_BUILD_DIR")
INSTALL_DIR = os.environ.get("ARBOR_PYTHON_INSTALL_DIR")


@pytest.mark.skipif(not BUILD or not INSTALL_DIR, reason="run by CTest, which names the build")
def test_the_installed_package_imports_and_fits(tmp_path):
    prefix = tmp_path / "prefix"
    cmake = os.environ.get("CMAKE_COMMAND", "cmake")
    subprocess.run([cmake, "--install", BUILD, "--prefix", prefix, "--component", "python"], check=True,
                   capture_output=True)
    site = prefix / INSTALL_DIR
    assert sorted(p.name for p in (site / "arbor").glob("*.py")) == ["__init__.py", "_classifier.py", "_data.py"]
    script = (
        "import arbor, numpy as np\n"
        "m = arbor.C45Classifier().fit(np.array([[1.0], [2.0], [3.0], [4.0]]), ['a', 'a', 'b', 'b'])\n"
        "print(arbor.__file__, arbor.__version__, m.predict([[0.5]])[0])\n"
    )
    env = {k: v for k, v in os.environ.items() if k != "PYTHONPATH"}
    env["PYTHONPATH"] = str(site)
    out = subprocess.run([sys.executable, "-c", script], check=True, capture_output=True, text=True, env=env,
                         cwd=tmp_path).stdout.split()
    assert Path(out[0]).is_relative_to(site)
    assert out[1:] == ["1.2.5", "a"]

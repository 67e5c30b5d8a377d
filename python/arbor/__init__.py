"""Classification trees of the C4.5 family for Python.

Trees are grown by gain ratio, with binary thresholds on continuous
attributes, fractional propagation of unknown values and pessimistic
pruning, by the same library as the ``arbor`` command, on NumPy arrays and
pandas DataFrames. :class:`C45Classifier` is a scikit-learn estimator.
"""

from . import _arbor
from ._classifier import C45Classifier

__version__ = _arbor.version
__all__ = ["C45Classifier"]

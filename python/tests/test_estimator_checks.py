"""scikit-learn's own contract checks, for the default settings and for each
other build: parallel growth, the full pruning strategy and no pruning."""

from sklearn.utils import estimator_checks
from sklearn.utils.estimator_checks import parametrize_with_checks

from arbor import C45Classifier

SETTINGS = [
    C45Classifier(),
    C45Classifier(n_jobs=2),
    C45Classifier(pruning="c4.5"),
    C45Classifier(pruning="none", min_cases=1),
]


@parametrize_with_checks(SETTINGS)
def test_scikit_learn_contract(estimator, check):
    check(estimator)


# Checks scikit-learn runs on its own estimators but check_estimator leaves
# out in this version: feature names at predict time, and the feature count
# message after fitting.
def test_feature_names_must_match_those_of_fit():
    estimator_checks.check_dataframe_column_names_consistency("C45Classifier", C45Classifier())


def test_feature_count_must_match_that_of_fit():
    estimator_checks.check_n_features_in_after_fitting("C45Classifier", C45Classifier())

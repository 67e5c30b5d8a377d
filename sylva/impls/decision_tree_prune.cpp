// Pruning by pessimistic error estimates: each node's leaf error is raised to
// the upper limit of a binomial confidence interval, and a subtree gives way
// to a leaf (or, in the full strategy, to its largest branch) when that does
// not raise the estimate by more than 0.1.

#include <cmath>
#include <memory>
#include <stdexcept>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

namespace {
const float CF_Val[9] = {0, 0.001f, 0.005f, 0.01f, 0.05f, 0.10f, 0.20f, 0.40f, 1.00f};
const float CF_Dev[9] = {4.0f, 3.09f, 2.58f, 2.33f, 1.65f, 1.28f, 0.84f, 0.25f, 0.00f};
}  // namespace

float _decision_tree::CFCoefficient(float CF) {
  if (CF < 0 || CF > 1) throw std::runtime_error("Confidence level required between 0.00 and 1.00");
  unsigned i = 1;
  while (CF_Val[i] < CF) ++i;
  const float dev = CF_Dev[i - 1] + (CF_Dev[i] - CF_Dev[i - 1]) * (CF - CF_Val[i - 1]) / (CF_Val[i] - CF_Val[i - 1]);
  return dev * dev;
}

float _decision_tree::add_errs(float CF, float coeff, float N, float e) {
  if (e < 1e-6) return static_cast<float>(N * (1 - std::exp(std::log(static_cast<double>(CF)) / N)));
  if (e < 0.9999) {
    const float z = static_cast<float>(N * (1 - std::exp(std::log(static_cast<double>(CF)) / N)));
    return z + e * (add_errs(CF, coeff, N, 1.0f) - z);
  }
  if (e + 0.5f < N) {
    const float h = e + 0.5f;
    const float under = coeff * (h * (1 - h / N) + coeff * 0.25f);
    const float pr = static_cast<float>((h + coeff / 2 + std::sqrt(static_cast<double>(under))) / (N + coeff));
    return N * pr - e;
  }
  return static_cast<float>(0.67 * (N - e));
}

float _decision_tree::prune_dt(const table* t, float CF) { return prune_dt(t, CF, CFCoefficient(CF)); }

float _decision_tree::prune_dt(const table* t, float CF, float coeff) {
  _decision_node* n = node_;
  if (n->get_known_fract_over_father() == 0) return 0;
  const float e = n->get_leaf_error();
  const float estimate = e + add_errs(CF, coeff, n->get_cases_weight(), e);
  n->set_error(estimate);
  if (n->get_node_status() == LEAF_NODE) return estimate;
  float sum = 0;
  for (_decision_tree* c : children_) sum += c->prune_dt(t, CF, coeff);
  if (sum + 0.1 >= estimate) {
    n->collapse(estimate);
    delete_childs();
    return estimate;
  }
  n->set_error(sum);
  return sum;
}

std::pair<float, float> _decision_tree::prune_c45(const table* t, float CF) {
  return prune_c45(t, CF, CFCoefficient(CF), true, false);
}

std::pair<float, float> _decision_tree::prune_c45(const table* t, float CF, float coeff, bool update,
                                                  bool substitute) {
  // Without update the call only estimates: it works on a copy of the node.
  std::unique_ptr<_decision_node> copy;
  _decision_node* work = node_;
  if (!update) {
    copy = std::make_unique<_decision_node>(node_->get_father(), 0);
    copy->clone(node_);
    work = copy.get();
  }
  if (substitute)
    work->activate_substitute_father(t);
  else
    work->activate(t);
  const float kf = work->get_known_fract_over_father();
  if (kf == 0) {
    work->disactivate();
    return {0.0f, 0.0f};
  }
  const float e = work->get_leaf_error();
  const float leaf_estimate = e + add_errs(CF, coeff, work->get_cases_weight(), e);
  if (work->get_node_status() == LEAF_NODE) {
    work->disactivate();
    if (update) work->set_error(leaf_estimate);
    return {kf, leaf_estimate};
  }

  float subtree = 0, largest_kf = 0;
  unsigned largest = 0;
  for (unsigned i = 0; i < children_.size(); ++i) {
    _decision_node* child = children_[i]->node_;
    const _decision_node* own_father = child->get_father();
    if (!update) child->set_father(work);
    const auto r = children_[i]->prune_c45(t, CF, coeff, update, false);
    if (!update) child->set_father(own_father);
    subtree += r.second;
    // The largest branch: on equal known fractions the later child wins.
    if (i == 0 || r.first >= largest_kf) {
      largest_kf = r.first;
      largest = i;
    }
  }
  if (!update) {
    work->disactivate();
    return {kf, subtree};
  }

  const float branch = children_[largest]->prune_c45(t, CF, coeff, false, true).second;
  if (leaf_estimate <= branch + 0.1 && leaf_estimate <= subtree + 0.1) {
    work->disactivate();
    work->collapse(leaf_estimate);
    delete_childs();
    return {kf, leaf_estimate};
  }
  if (subtree + 0.1 < branch) {
    work->disactivate();
    work->set_error(subtree);
    return {kf, subtree};
  }
  // Subtree raising: the largest branch is pruned on all of this node's
  // cases and takes this node's place.
  const auto raised = children_[largest]->prune_c45(t, CF, coeff, true, true);
  work->disactivate();
  replace_with_son(largest);
  return raised;
}

}  // namespace sylva::impls

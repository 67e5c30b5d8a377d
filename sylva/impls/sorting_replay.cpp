#include "sylva/impls/sorting_replay.h"

#include <stdexcept>

#include "sylva/impls/table.h"

namespace sylva::impls {

std::vector<column::splitting_desc> sorting_replay::measures(const _decision_node& n, step& at) const {
  std::vector<column::splitting_desc> descs(table_->get_no_attributes());
  for (unsigned a = 0; a < descs.size(); ++a)
    table_->get_attribute(a)->quality_measure(table_->get_class(), n.get_cases_weight(), at.cases.get(), at.ranges[a],
                                              settings_.min_obj, settings_.opts, descs[a], at.attribute_wise);
  return descs;
}

sorting_replay::step sorting_replay::carve(const _decision_node& n, const step& at, unsigned branch) const {
  const unsigned split = n.get_split_attribute_index();
  column::branch_lists lists;
  const w_sequence& cases = *at.cases;
  table_->get_attribute(split)->partition_all(cases.data(), cases.data() + cases.size(), n.get_no_of_splits(),
                                              n.get_cases_weight(), n.get_threshold(), lists);
  step child;
  for (unsigned b = 0; b < lists.cases.size(); ++b) {
    std::unique_ptr<w_sequence> list(lists.cases[b]);
    if (b + 1 == branch) child.cases = std::move(list);
  }
  if (!child.cases) throw std::logic_error("a replayed node has no such branch");
  child.ranges = at.ranges;
  child.ranges[split] = lists.ranges[branch - 1];
  unsigned tasks = 0;
  for (const index_range& r : at.ranges) tasks += r.second - r.first >= 2;
  child.attribute_wise =
      settings_.threads >= 1 &&
      split_rules::attribute_wise_child(at.attribute_wise, table_->get_no_rows(), tasks, child.cases->size());
  return child;
}

sorting_replay::step sorting_replay::first() const {
  step s;
  // The case-by-case build sorts the caller's list in place: a copy here.
  s.cases.reset(cases_ ? new w_sequence(*cases_) : table_->get_wsubset_all());
  for (unsigned a = 0; a < table_->get_no_attributes(); ++a) s.ranges.push_back(table_->get_attribute(a)->get_range());
  // The parallel build measures the root attribute-wise, on copies.
  s.attribute_wise = settings_.threads >= 1;
  return s;
}

std::vector<column::splitting_desc> sorting_replay::measure(const _decision_node* x) {
  std::vector<const _decision_node*> path;
  for (const _decision_node* n = x; n; n = n->get_father()) path.push_back(n);
  std::lock_guard<std::mutex> lock(mutex_);
  const _decision_node& top = *path.back();
  if (path.size() == 1) {
    step s = first();
    return measures(top, s);
  }
  if (!root_) {
    root_ = std::make_unique<step>(first());
    if (!root_->attribute_wise) measures(top, *root_);
  }
  step at = carve(top, *root_, path[path.size() - 2]->get_branch());
  for (size_t k = path.size() - 2; k > 0; --k) {
    const _decision_node& n = *path[k];
    if (at.cases->size() != n.get_cases_count())
      throw std::logic_error("a replayed node's cases differ from its whole-weight cases");
    if (!at.attribute_wise) measures(n, at);
    at = carve(n, at, path[k - 1]->get_branch());
  }
  if (at.cases->size() != x->get_cases_count())
    throw std::logic_error("a replayed node's cases differ from its whole-weight cases");
  return measures(*x, at);
}

}  // namespace sylva::impls

#include "sylva/impls/sorting_replay.h"

#include <algorithm>
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
  std::vector<const _decision_node*> path;  // from the root down to x
  for (const _decision_node* n = x; n; n = n->get_father()) path.push_back(n);
  std::reverse(path.begin(), path.end());
  std::lock_guard<std::mutex> lock(mutex_);
  size_t kept = 0;
  while (kept + 1 < path.size() && kept < kept_path_.size() && kept_path_[kept] == path[kept]) ++kept;
  kept_path_.resize(kept);
  kept_steps_.resize(kept);
  size_t held = 0;
  for (const step& s : kept_steps_) held += s.cases->size();
  step local;
  const step* above = kept ? &kept_steps_.back() : nullptr;
  // The lists on the way down are kept for the next node, which often shares
  // its first ancestors (growth goes depth first), within a budget of cases.
  auto keep = [&](size_t k, step&& at) -> const step* {
    held += at.cases->size();
    if (held > keep_budget * static_cast<size_t>(table_->get_no_rows()) || kept_steps_.size() != k) {
      local = std::move(at);
      return &local;
    }
    kept_path_.push_back(path[k]);
    kept_steps_.push_back(std::move(at));
    return &kept_steps_.back();
  };
  for (size_t k = kept;; ++k) {
    const _decision_node& n = *path[k];
    step at = k == 0 ? first() : carve(*path[k - 1], *above, n.get_branch());
    if (at.cases->size() != n.get_cases_count())
      throw std::logic_error("a replayed node's cases differ from its whole-weight cases");
    if (k + 1 == path.size()) {
      // The node's measures leave its list in the order its children get:
      // the node is kept too, as the next replay is often below it.
      std::vector<column::splitting_desc> descs = measures(n, at);
      keep(k, std::move(at));
      return descs;
    }
    // Only the order the ancestor's measures leave matters, not their results.
    if (!at.attribute_wise)
      for (unsigned a = 0; a < table_->get_no_attributes(); ++a)
        table_->get_attribute(a)->sort_as_measure(table_->get_class(), at.cases.get(), at.ranges[a]);
    above = keep(k, std::move(at));
  }
}

}  // namespace sylva::impls

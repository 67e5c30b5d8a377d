// Nodes the whole-weight growth could not decide (see run_scan.h) are grown
// by sorting. Growth by sorting reads a node's cases in the order that every
// sort and partition above it left them in, so that order is made again:
// from the root's list down to each such node, every ancestor's measures
// reorder the list as they did in the case-by-case build, and the ancestor's
// split (the same one, decided by the whole-weight growth) carves the child
// on the way down. Only the ancestors of such nodes are visited, and the
// sorted lists of the whole-weight growth are gone by then.

#include <memory>
#include <stdexcept>
#include <unordered_set>

#include "sylva/impls/grow_whole.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

namespace {

class replay {
public:
  replay(const table* t, const std::vector<_decision_tree*>& deferred, const growth_settings& s)
      : table_(t), settings_(s), deferred_(deferred.begin(), deferred.end()) {}

  // Marks the subtrees that hold a deferred node; true when `x`'s does.
  bool mark(const _decision_tree* x) {
    bool holds = deferred_.count(x) > 0;
    for (unsigned i = 0; i < x->get_no_childs(); ++i) holds = mark(x->get_child(i)) || holds;
    if (holds) on_path_.insert(x);
    return holds;
  }

  // `x` over its cases in the order the case-by-case build gave them; the
  // parallel build measured it attribute-wise or whole.
  void visit(_decision_tree* x, std::unique_ptr<w_sequence> cases, std::vector<index_range> ranges,
             bool attribute_wise) {
    _decision_node* n = x->get_node();
    if (deferred_.count(x)) return grow(x, cases.release(), std::move(ranges), attribute_wise);
    // Each measure on one thread sorts the node's own list in turn; the
    // parallel build's attribute tasks sort private copies.
    if (!attribute_wise) reorder(*n, *cases, ranges);
    const unsigned split = n->get_split_attribute_index();
    column::branch_lists lists;
    table_->get_attribute(split)->partition_all(cases->data(), cases->data() + cases->size(), n->get_no_of_splits(),
                                                n->get_cases_weight(), n->get_threshold(), lists);
    cases.reset();
    std::vector<std::unique_ptr<w_sequence>> children;
    for (w_sequence* c : lists.cases) children.emplace_back(c);
    unsigned tasks = 0;
    for (const index_range& r : ranges) tasks += r.second - r.first >= 2;
    for (unsigned b = 0; b < x->get_no_childs(); ++b) {
      _decision_tree* child = x->get_child(b);
      if (!on_path_.count(child)) continue;
      if (children[b]->size() != child->get_node()->get_cases_count())
        throw std::logic_error("the cases of a node grown by sorting differ from its whole-weight cases");
      std::vector<index_range> below = ranges;
      below[split] = lists.ranges[b];
      const bool wise = settings_.threads >= 1 &&
                        split_rules::attribute_wise_child(attribute_wise, table_->get_no_rows(), tasks,
                                                          children[b]->size());
      visit(child, std::move(children[b]), std::move(below), wise);
    }
  }

private:
  void reorder(const _decision_node& n, w_sequence& cases, std::vector<index_range>& ranges) const {
    column::splitting_desc unused;
    for (unsigned a = 0; a < table_->get_no_attributes(); ++a)
      table_->get_attribute(a)->quality_measure(table_->get_class(), n.get_cases_weight(), &cases, ranges[a],
                                                settings_.min_obj, settings_.opts, unused, false);
  }

  void grow(_decision_tree* x, w_sequence* cases, std::vector<index_range> ranges, bool attribute_wise) const {
    x->get_node()->activate_with(table_, cases, std::move(ranges));
    if (settings_.threads < 1)
      x->grow_breadth(table_, settings_.split_type, settings_.min_obj, settings_.opts);
    else
      x->grow_ff(table_, settings_.split_type, settings_.min_obj, settings_.opts, settings_.threads, attribute_wise);
  }

  const table* table_;
  const growth_settings& settings_;
  std::unordered_set<const _decision_tree*> deferred_, on_path_;
};

}  // namespace

void grow_deferred(_decision_tree* root, const table* t, const w_sequence* cases,
                   const std::vector<_decision_tree*>& deferred, const growth_settings& s) {
  replay r(t, deferred, s);
  r.mark(root);
  // The case-by-case build sorts the caller's list in place: a copy here.
  std::unique_ptr<w_sequence> all(cases ? new w_sequence(*cases) : t->get_wsubset_all());
  std::vector<index_range> ranges;
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) ranges.push_back(t->get_attribute(a)->get_range());
  r.visit(root, std::move(all), std::move(ranges), s.threads >= 1);
}

}  // namespace sylva::impls

// The tree as a Graphviz DOT graph: splits as boxes, leaves as ellipses with
// their cover and error, edges labelled with the branch condition.

#include <ostream>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

namespace {
// x truncated to two decimals, toward zero; figures are 32-bit floats.
double two_decimals(float x) { return static_cast<double>(static_cast<long long>(x * 100)) / 100; }
}  // namespace

void decision_tree::toDOT(std::ostream& os) const {
  os << "digraph Sylva {" << std::endl;
  if (tree_) {
    const unsigned total = tree_->get_node() ? tree_->get_node()->get_cases_count() : 0;
    tree_->toDOT(table_, os, total, 0);
  }
  os << "}" << std::endl;
}

// Identifiers grow in pre-order; a split returns one past the last
// identifier of its subtree and its father adds one more, so one number is
// skipped after every child that is a split.
unsigned _decision_tree::toDOT(const table* t, std::ostream& os, unsigned total, unsigned id) const {
  if (!node_) return id;
  if (children_.empty()) {
    const double cover = two_decimals(static_cast<float>(node_->get_cases_count()) / static_cast<float>(total));
    const double error = two_decimals(node_->get_error());
    os << "n" << id << " [ shape=ellipse, label=\"" << t->get_class()->get_value(node_->get_leaf()) << " [" << cover
       << "%," << error << "%]\"]" << std::endl;
    return id;
  }
  const column* a = t->get_attribute(node_->get_split_attribute_index());
  os << "n" << id << " [ shape=box, label=\"" << a->get_name() << "\\n\"]" << std::endl;
  unsigned next = id + 1;
  for (unsigned i = 0; i < children_.size(); ++i) {
    os << "n" << id << " -> n" << next << " [label=\"";
    if (a->is_discrete())
      os << a->get_value(i + 1);
    else
      os << (i == 0 ? "<=" : ">") << node_->get_threshold().value;
    os << "\"]" << std::endl;
    next = children_[i]->toDOT(t, os, total, next) + 1;
  }
  return next;
}

}  // namespace sylva::impls

// The tree as a Graphviz DOT graph: splits as boxes, leaves as ellipses with
// their cover and error, edges labelled with the branch condition.

#include <cmath>
#include <limits>
#include <ostream>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

namespace {
// x truncated toward zero to two decimals. The product is taken in 32-bit
// floats, as the figures are; truncating it in double gives the value an
// integer conversion would for every product that fits one, and stays
// defined beyond: a product too large for a float is taken in double, an
// infinity stays infinite, and a figure that is not a number (the cover of
// a tree grown on no rows, 0/0) prints as "nan" whatever its sign bit.
double two_decimals(float x) {
  if (std::isnan(x)) return std::numeric_limits<double>::quiet_NaN();
  const float scaled = x * 100;
  const double wide = std::isinf(scaled) ? static_cast<double>(x) * 100 : static_cast<double>(scaled);
  // Adding 0 turns the -0 of a small negative figure into the 0 printed so far.
  return std::trunc(wide) / 100 + 0.0;
}
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

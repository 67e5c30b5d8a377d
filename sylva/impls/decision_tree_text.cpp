// The tree as indented text, one line per branch, and two diagnostic dumps
// of a single node.

#include <iomanip>
#include <ostream>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

void decision_tree::toTEXT(std::ostream& os, unsigned depth) const {
  if (tree_) tree_->toTEXT(table_, os, depth);
  os << std::endl;
}

void _decision_tree::toTEXT(const table* t, std::ostream& os, unsigned depth) const {
  if (!node_) return;
  if (children_.empty()) return node_->toTEXT(t, os, 0);
  for (unsigned i = 0; i < children_.size(); ++i) {
    os << std::endl;
    for (unsigned d = 0; d < depth; ++d) os << "|   ";
    node_->toTEXT(t, os, i);
    children_[i]->toTEXT(t, os, depth + 1);
  }
}

void _decision_node::toTEXT(const table* t, std::ostream& os, unsigned branch) const {
  os << std::fixed << std::setprecision(1);
  if (status_ == LEAF_NODE) {
    os << " " << t->get_class()->get_value(leaf_) << " (" << cases_weight_;
    if (error_ > 0) os << "/" << error_;
    os << ")";
    return;
  }
  const column* a = t->get_attribute(leaf_);
  const unsigned k = branch + 1;
  if (a->is_continuous())
    os << a->get_name() << (k == 1 ? " <= " : k == 2 ? " > " : " unknown ") << threshold_.value << " :";
  else if (a->is_discrete())
    os << a->get_name() << " = " << a->get_value(k) << ":";
  else
    os << a->get_name() << " # unhandled type " << a->get_type();
}

void _decision_node::print_attribute_distribution(const table* t, unsigned att, std::ostream& os) const {
  if (!activated_ || !ranges_) return;
  const column* a = t->get_attribute(att);
  const column* cls = t->get_class();
  const index_range r = (*ranges_)[att];
  const unsigned rows = r.second > r.first ? r.second - r.first + 1 : 1, classes = cls->get_distinct();
  std::vector<std::vector<float>> cell(rows, std::vector<float>(classes, 0.0f));
  if (cases_) {
    for (const w_pair& p : *cases_) {
      const unsigned v = a->get_row_index(p.first);
      const unsigned row = v == 0 ? 0 : v - (r.first - 1);
      if (row < rows) cell[row][cls->get_row_index(p.first)] += p.second;
    }
  }
  os << "Attribute: " << a->get_name() << std::endl;
  os << std::setw(10) << "[Att\\Cl]" << " ";
  for (unsigned c = 1; c < classes; ++c) os << std::setw(6) << cls->get_value(c) << " ";
  os << std::endl << std::fixed << std::setprecision(3);
  for (unsigned row = 0; row < rows; ++row) {
    os << std::setw(10) << a->get_value(row == 0 ? 0 : r.first - 1 + row) << " ";
    for (unsigned c = 1; c < classes; ++c) os << std::setw(6) << cell[row][c] / cases_weight_ * 100 << " ";
    os << std::endl;
  }
}

void _decision_node::print_att_gain(const table* t, std::ostream& os) const {
  if (!activated_) return;
  os << std::fixed << std::setprecision(3);
  os << (cases_ ? cases_->size() : 0) << " items, total weight " << cases_weight_ << std::endl;
  os << std::setw(10) << "[Attribute]" << " ";
  if (cases_) {
    for (const char* h : {"[gain]", "[split]", "[first]", "[second]", "[OneOnAlpha]"})
      os << std::setw(10) << h << " ";
  }
  os << std::setw(10) << "[thres]" << std::endl << std::endl;
  for (unsigned i = 0; i < split_descs_.size(); ++i) {
    os << std::setw(10) << t->get_attribute(i)->get_name() << " ";
    if (cases_ && ranges_) {
      const column::splitting_desc& d = split_descs_[i];
      const unsigned first = (*ranges_)[i].first, last = (*ranges_)[i].second - 1;
      os << std::setw(10) << d.gain << " " << std::setw(10) << d.split_info << " ";
      os << std::setw(10) << first << " " << std::setw(10) << last << " ";
      // A single-value range has no spread to divide by.
      os << std::setw(10) << (last > first ? cases_->size() / (last - first) : 0) << " ";
    }
    os << std::endl;
  }
  if (status_ != SPLIT_NODE)
    os << "leaf node, class " << std::setw(10) << t->get_class()->get_value(majority_) << ", error "
       << std::setw(10) << error_ << std::endl;
  else
    os << "split node, best att: " << std::setw(15) << t->get_attribute(leaf_)->get_name() << std::endl;
}

}  // namespace sylva::impls

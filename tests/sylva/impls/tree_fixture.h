#pragma once

// Trees built by hand on a table: a node is forced to split on a chosen
// attribute, or made a leaf, through the node's two-phase split interface.

#include <memory>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace tree_fixture {

using namespace sylva::impls;

// Activated node `n` splits on attribute `a`.
inline void force_split(_decision_node* n, const table* t, unsigned a) {
  n->split_pre(t, decision_tree::GAIN_RATIO, 1.0f);
  auto& descs = n->get_split_descs();
  for (unsigned i = 0; i < descs.size(); ++i) {
    descs[i].col = t->get_attribute(i);
    descs[i].fail();
  }
  descs[a].branches = t->get_attribute(a)->get_o_set()->size_of_known();
  descs[a].gain = 1;
  descs[a].split_info = 1;
  n->split_post(t);
}

// A child subtree of `parent` for branch b, activated.
inline _decision_tree* add_child(_decision_tree* parent, const table* t, unsigned b) {
  auto* sub = new _decision_tree();
  sub->set_node(new _decision_node(parent->get_node(), b));
  parent->push_back_child(sub);
  sub->get_node()->activate(t);
  return sub;
}

}  // namespace tree_fixture

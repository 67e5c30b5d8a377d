// Growing a tree: the build driver, breadth-first growth, the collapse pass
// that follows every build, depth-first growth with the same rule, copying.

#include <algorithm>
#include <chrono>
#include <deque>
#include <stdexcept>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/grow_whole.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

void _decision_tree::build(const table* t, w_sequence* cases, unsigned int split_type, const options* opts,
                           float min_obj, int cores) {
  clear_childs();
  set_node(new _decision_node(cases));
  // Domains finish themselves on their first query; from here on they are
  // only read, by several threads at once in a parallel build.
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) t->get_attribute(a)->get_o_set()->size_of_known();
  const growth_settings settings{split_type, min_obj, opts, cores, progress_, profile_};
  if (cases && whole_weight_build(t, cases)) {
    grow_whole_weights(this, t, cases, settings);
  } else {
    if (cores < 1)
      build_breadth(t, split_type, min_obj, opts);
    else
      build_ff(t, split_type, min_obj, opts, cores);
  }
  preprune(1.0f);
}

bool _decision_tree::grow_whole(const table* t, const w_sequence* cases, unsigned int split_type, const options* opts,
                                float min_obj, int cores) {
  clear_childs();
  set_node(new _decision_node(const_cast<w_sequence*>(cases)));
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) t->get_attribute(a)->get_o_set()->size_of_known();
  if (!whole_weight_build(t, cases)) return false;
  grow_whole_weights(this, t, cases, {split_type, min_obj, opts, cores, progress_, profile_});
  preprune(1.0f);
  return true;
}

void _decision_tree::build_breadth(const table* t, unsigned int split_type, float min_obj, const options* opts) {
  tarn::util::progress_scope report(progress_, tarn::util::progress::GROWING);
  node_->activate(t);
  std::deque<std::pair<_decision_tree*, unsigned>> queue{{this, 0}};
  std::uint64_t grown = 0;
  double open_cases = node_->get_cases_weight();
  while (!queue.empty()) {
    const auto [sub, depth] = queue.front();
    queue.pop_front();
    _decision_node* n = sub->node_;
    const auto started = std::chrono::steady_clock::now();
    const unsigned cases = n->get_cases_count();
    open_cases -= n->get_cases_weight();
    if (n->split(t, split_type, min_obj, opts) != LEAF_NODE) {
      // All children are carved from the father's cases before they go.
      sub->grow_children(t);
      for (_decision_tree* child : sub->children_) {
        queue.emplace_back(child, depth + 1);
        open_cases += child->node_->get_cases_weight();
      }
    }
    n->disactivate();
    if (profile_)
      profile_->add(depth, std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(), cases);
    if (++grown % 64 == 0 || cases >= 4096) report.growing(grown, queue.size(), open_cases);
  }
}

void _decision_tree::grow_children(const table* t) {
  std::vector<_decision_node*> nodes;
  for (unsigned b = 1; b <= node_->get_no_of_splits(); ++b) {
    auto* child = new _decision_tree();
    child->set_node(new _decision_node(node_, b));
    push_back_child(child);
    nodes.push_back(child->node_);
  }
  node_->activate_children(t, nodes);
}

// A split whose subtree does not make fewer errors than the node would make
// as a leaf, less 0.001, becomes that leaf; otherwise it keeps the sum.
float _decision_tree::settle(float leaf_error, float subtree_error) {
  if (subtree_error >= leaf_error - split_rules::collapse_margin) {
    node_->collapse(leaf_error);
    delete_childs();
    return leaf_error;
  }
  node_->set_error(subtree_error);
  return subtree_error;
}

namespace {

// The bound a node's collapse pass passes on to its children.
float collapse_bound(float bound, float leaf_error) {
  return std::min(bound, static_cast<float>(leaf_error - split_rules::collapse_margin));
}

}  // namespace

float _decision_tree::preprune(float bound, const settled_subtrees* settled) {
  _decision_node* n = node_;
  if (settled) {
    const auto at = settled->find(n);
    if (at != settled->end()) return at->second;
  }
  if (n->get_node_status() == LEAF_NODE) return n->get_error();
  if (n->get_node_status() == NEW_NODE) throw std::runtime_error("prepruning on an incomplete tree");
  const float e = n->get_leaf_error();
  bound = collapse_bound(bound, e);
  float sum = 0;
  for (_decision_tree* c : children_) {
    sum += c->preprune(bound, settled);
    if (sum >= bound) break;
  }
  return settle(e, sum);
}

namespace {

// The settled subtrees inside a finished subtree, found before its pruning
// may delete them.
void settled_inside(const _decision_tree* t, const _decision_tree::settled_subtrees& settled,
                    std::vector<const _decision_node*>& out) {
  for (unsigned i = 0; i < t->get_no_childs(); ++i) {
    const _decision_tree* c = t->get_child(i);
    if (settled.count(c->get_node()))
      out.push_back(c->get_node());
    else
      settled_inside(c, settled, out);
  }
}

}  // namespace

bool _decision_tree::prune_finished(float bound, float CF, float coeff, settled_subtrees& settled) {
  const _decision_node* n = node_;
  if (n->get_node_status() == NEW_NODE) return false;
  if (n->get_node_status() == LEAF_NODE || settled.count(n)) return true;
  bound = collapse_bound(bound, n->get_leaf_error());
  std::vector<char> finished(children_.size());
  bool all = true;
  for (size_t i = 0; i < children_.size(); ++i) {
    finished[i] = children_[i]->prune_finished(bound, CF, coeff, settled);
    all = all && finished[i];
  }
  if (all) return true;
  for (size_t i = 0; i < children_.size(); ++i) {
    _decision_tree* c = children_[i];
    const _decision_node* cn = c->get_node();
    if (!finished[i] || cn->get_node_status() == LEAF_NODE || settled.count(cn)) continue;
    // Entries inside go (their nodes may be deleted, and an address may
    // come back as a new node's): the entry of `c` stands for them.
    std::vector<const _decision_node*> inside;
    settled_inside(c, settled, inside);
    const float value = c->preprune(bound, &settled);
    c->prune_dt(nullptr, CF, coeff);
    for (const _decision_node* d : inside) settled.erase(d);
    settled[cn] = value;
  }
  return false;
}

float _decision_tree::build_depth_preprune(float bound, const table* t, unsigned int split_type, float min_obj,
                                           const options* opts) {
  _decision_node* n = node_;
  n->activate(t);
  if (n->split(t, split_type, min_obj, opts) == LEAF_NODE) {
    n->disactivate();
    return n->get_error();
  }
  const float e = n->get_leaf_error();
  bound = collapse_bound(bound, e);
  float sum = 0;
  for (unsigned b = 1; b <= n->get_no_of_splits() && !(sum > bound); ++b) {
    auto* child = new _decision_tree();
    child->set_node(new _decision_node(n, b));
    push_back_child(child);
    sum += child->build_depth_preprune(bound, t, split_type, min_obj, opts);
  }
  n->disactivate();
  return settle(e, sum);
}

void _decision_tree::replace_with_son(unsigned i) {
  // The raised node takes its father's place in the tree, father included.
  const _decision_node* grandfather = node_ ? node_->get_father() : nullptr;
  basic_tree::replace_with_son(i);
  if (node_) node_->set_father_unchecked(grandfather);
}

void _decision_tree::forget_threshold_codes() {
  if (node_) node_->forget_threshold_codes();
  for (_decision_tree* c : children_) c->forget_threshold_codes();
}

_decision_tree* _decision_tree::_clone(const _decision_node* father) const {
  auto* copy = new _decision_tree();
  if (node_) {
    auto* n = new _decision_node(father, 0);
    n->clone(node_);
    n->set_father_unchecked(father);
    copy->set_node(n);
  }
  for (const _decision_tree* c : children_) copy->children_.push_back(c->_clone(copy->node_));
  return copy;
}

}  // namespace sylva::impls

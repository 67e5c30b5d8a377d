#pragma once

#include <vector>

#include "tarn/util/nocopy.h"

namespace tarn::adt {

// A recursive tree container: a payload node and an ordered list of owned
// child subtrees. S is the subtree type itself (it derives from this class).
template <class N, class S>
class basic_tree : private tarn::util::nocopy {
public:
  basic_tree() = default;
  virtual ~basic_tree() {
    delete node_;
    for (S* c : children_) delete c;
  }

  // Replaces the payload; the old one is deleted.
  virtual void set_node(N* n) {
    if (n != node_) delete node_;
    node_ = n;
  }
  // Forgets the payload without deleting it.
  virtual void clear_node() { node_ = nullptr; }
  virtual void push_back_child(S* c) {
    if (c) children_.push_back(c);
  }
  virtual void delete_childs() {
    for (S* c : children_) delete c;
    children_.clear();
  }
  virtual void delete_child(unsigned i) {
    delete children_[i];
    children_.erase(children_.begin() + i);
  }
  virtual void clear_child(unsigned i) { children_.erase(children_.begin() + i); }
  virtual void clear_childs() { children_.clear(); }
  // Number of nodes, leaves included.
  virtual unsigned size() const {
    unsigned n = 1;
    for (const S* c : children_) n += c->size();
    return n;
  }
  // Number of levels; a single node has depth 1.
  virtual unsigned depth() const {
    unsigned d = 0;
    for (const S* c : children_) {
      const unsigned cd = c->depth();
      if (cd > d) d = cd;
    }
    return d + 1;
  }
  virtual unsigned get_no_childs() const { return static_cast<unsigned>(children_.size()); }
  virtual N* get_node() const { return node_; }
  virtual S* get_child(unsigned i) const { return children_[i]; }
  // This subtree takes child i's place: the other children are destroyed,
  // child i's payload and children move up, the emptied child is destroyed.
  virtual void replace_with_son(unsigned i) {
    S* son = children_[i];
    for (unsigned k = 0; k < children_.size(); ++k)
      if (k != i) delete children_[k];
    children_.clear();
    set_node(son->node_);
    son->node_ = nullptr;
    children_ = std::move(son->children_);
    son->children_.clear();
    delete son;
  }

protected:
  N* node_ = nullptr;
  std::vector<S*> children_;
};

}  // namespace tarn::adt

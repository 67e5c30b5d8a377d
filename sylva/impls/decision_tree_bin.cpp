// Binary records of nodes, subtrees, confusion matrices and whole models.

#include <memory>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/binstream.h"

namespace sylva::impls {

using tarn::inpout::binary_format_error;

obinstream& operator<<(obinstream& out, const _decision_node& n) {
  out << n.branch_ << n.status_ << n.activated_ << n.cases_weight_ << n.cases_count_;
  out << static_cast<unsigned int>(n.distribution_.size());
  for (float x : n.distribution_) out << x;
  out << n.known_fract_ << n.majority_;
  if (n.activated_) {
    if (!n.ranges_) {
      out << static_cast<unsigned char>(0);
    } else {
      out << static_cast<unsigned char>(1) << static_cast<unsigned int>(n.ranges_->size());
      for (const index_range& r : *n.ranges_) out << r.first << r.second;
    }
  }
  if (!n.cases_) {
    out << static_cast<unsigned char>(0);
  } else {
    out << static_cast<unsigned char>(1) << static_cast<unsigned int>(n.cases_->size());
    for (const w_pair& p : *n.cases_) out << p.first << p.second;
  }
  out << n.split_status_;
  if (n.status_ == _decision_node::LEAF_NODE) out << n.error_ << n.leaf_;
  if (n.status_ == _decision_node::SPLIT_NODE) out << n.error_ << n.leaf_ << n.threshold_;
  return out;
}

ibinstream& operator>>(ibinstream& in, _decision_node& n) {
  in >> n.branch_ >> n.status_ >> n.activated_ >> n.cases_weight_ >> n.cases_count_;
  if (n.status_ > _decision_node::SPLIT_NODE) throw binary_format_error("bad node status");
  const unsigned classes = in.read_count();
  n.distribution_.clear();
  for (unsigned c = 0; c < classes; ++c) {
    float x;
    in >> x;
    n.distribution_.push_back(x);
  }
  in >> n.known_fract_ >> n.majority_;
  if (n.majority_ >= n.distribution_.size() && !n.distribution_.empty()) throw binary_format_error("bad majority");
  if (n.activated_ && in.read_presence()) {
    auto ranges = std::make_unique<std::vector<index_range>>();
    const unsigned count = in.read_count();
    for (unsigned i = 0; i < count; ++i) {
      index_range r;
      in >> r.first >> r.second;
      ranges->push_back(r);
    }
    n.ranges_ = ranges.release();
  }
  // A model never keeps nodes active: the ranges were only read to skip them.
  n.activated_ = false;
  delete n.ranges_;
  n.ranges_ = nullptr;
  if (in.read_presence()) {
    auto cases = std::make_unique<w_sequence>();
    const unsigned count = in.read_count();
    for (unsigned i = 0; i < count; ++i) {
      w_pair p;
      in >> p.first >> p.second;
      cases->push_back(p);
    }
    n.free_cases();
    n.cases_ = cases.release();
    n.owns_cases_ = true;
  }
  in >> n.split_status_;
  if (n.status_ == _decision_node::LEAF_NODE) in >> n.error_ >> n.leaf_;
  if (n.status_ == _decision_node::SPLIT_NODE) in >> n.error_ >> n.leaf_ >> n.threshold_;
  return in;
}

obinstream& operator<<(obinstream& out, const _decision_tree& s) {
  out << *s.node_ << static_cast<unsigned int>(s.children_.size());
  for (const _decision_tree* c : s.children_) {
    if (!c || !c->get_node())
      out << static_cast<unsigned char>(0);
    else
      out << static_cast<unsigned char>(1) << *c;
  }
  return out;
}

namespace {
// Far deeper than any tree grown from data, shallow enough for the stack.
constexpr unsigned max_depth = 10000;
}  // namespace

void _decision_tree::load_bin(ibinstream& in, const _decision_node* father) { load_bin(in, father, 1); }

void _decision_tree::load_bin(ibinstream& in, const _decision_node* father, unsigned depth) {
  if (depth > max_depth) throw binary_format_error("tree nested too deeply");
  auto* n = new _decision_node(father, 0);
  set_node(n);
  in >> *n;
  const unsigned slots = in.read_count();
  for (unsigned i = 0; i < slots; ++i) {
    auto* child = new _decision_tree();
    children_.push_back(child);
    // An empty slot stays a container without payload, so positions hold.
    if (in.read_presence()) child->load_bin(in, n, depth + 1);
  }
}

namespace {

obinstream& write_matrix(obinstream& out, const conf_matrix* m) {
  if (!m) return out << static_cast<unsigned char>(0);
  out << static_cast<unsigned char>(1) << static_cast<unsigned int>(m->get_matrix().size());
  for (const auto& row : m->get_matrix()) {
    out << static_cast<unsigned int>(row.size());
    for (float x : row) out << x;
  }
  out << static_cast<unsigned int>(m->get_names().size());
  for (const std::string& name : m->get_names()) out << name;
  return out;
}

conf_matrix* read_matrix(ibinstream& in) {
  if (!in.read_presence()) return nullptr;
  std::vector<std::vector<float>> rows(in.read_count(65536));
  for (auto& row : rows) {
    const unsigned cells = in.read_count(65536);
    for (unsigned c = 0; c < cells; ++c) {
      float x;
      in >> x;
      row.push_back(x);
    }
    if (row.size() != rows.size()) throw binary_format_error("confusion matrix is not square");
  }
  std::vector<std::string> names(in.read_count(65536));
  if (names.size() != rows.size()) throw binary_format_error("confusion matrix names differ");
  for (std::string& name : names) in.read_text(name);
  return new conf_matrix(std::move(rows), std::move(names));
}

// Every split must name an attribute of the model's table, and the table must
// have its class column, or renderers and prediction would read outside it.
void check_tree(const _decision_tree* s, const table* t) {
  const _decision_node* n = s->get_node();
  if (!n) return;
  if (n->get_node_status() == _decision_node::SPLIT_NODE && n->get_split_attribute_index() >= t->get_no_attributes())
    throw binary_format_error("split on a missing attribute");
  for (unsigned i = 0; i < s->get_no_childs(); ++i) check_tree(s->get_child(i), t);
}

}  // namespace

obinstream& operator<<(obinstream& out, const decision_tree& d) {
  if (!d.tree_ || !d.tree_->get_node()) {
    out << static_cast<unsigned char>(0);
  } else {
    out << static_cast<unsigned char>(1) << *d.tree_;
  }
  out << static_cast<const table*>(d.table_);
  write_matrix(out, d.matrix_);
  out << d.elapsed_ << d.conf_level_ << d.min_obj_ << static_cast<int>(d.split_type_) << d.name_
      << static_cast<int>(d.pruning_);
  return out;
}

ibinstream& operator>>(ibinstream& in, decision_tree& d) {
  delete d.tree_;
  d.tree_ = nullptr;
  delete d.table_;
  d.table_ = nullptr;
  std::unique_ptr<_decision_tree> tree;
  if (in.read_presence()) {
    tree = std::make_unique<_decision_tree>();
    tree->load_bin(in, nullptr);
  }
  table* raw = nullptr;
  in >> raw;
  std::unique_ptr<table> meta(raw);
  std::unique_ptr<conf_matrix> matrix(read_matrix(in));
  double elapsed = 0;
  float conf = 0, min_obj = 0;
  int split_type = 0, pruning = 0;
  std::string name;
  in >> elapsed >> conf >> min_obj >> split_type;
  in.read_text(name);
  in >> pruning;
  if (tree && (!meta || !meta->get_class())) throw binary_format_error("model without its table");
  if (tree) check_tree(tree.get(), meta.get());
  if (split_type != decision_tree::GAIN && split_type != decision_tree::GAIN_RATIO)
    throw binary_format_error("bad split type");

  d.tree_ = tree.release();
  d.table_ = meta.release();
  delete d.matrix_;
  d.matrix_ = matrix.release();
  d.elapsed_ = elapsed;
  d.conf_level_ = conf;
  d.min_obj_ = min_obj;
  d.name_ = name;
  d.split_type_ = static_cast<decision_tree::SplitType>(split_type);
  d.pruning_ = static_cast<decision_tree::PruningStrategy>(pruning);
  return in;
}

}  // namespace sylva::impls

// Binary records of nodes, subtrees, confusion matrices and whole models.

#include <memory>
#include <stdexcept>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/binstream.h"
#include "tarn/inpout/iomem.h"

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
  // A saved model is complete: every node is a leaf or a split.
  if (n.status_ != _decision_node::LEAF_NODE && n.status_ != _decision_node::SPLIT_NODE)
    throw binary_format_error("bad node status");
  const unsigned classes = in.read_count(4);
  n.distribution_.clear();
  for (unsigned c = 0; c < classes; ++c) {
    float x;
    in >> x;
    n.distribution_.push_back(x);
  }
  in >> n.known_fract_ >> n.majority_;
  if (n.majority_ >= n.distribution_.size() && !n.distribution_.empty()) throw binary_format_error("bad majority");
  if (n.activated_ && in.read_presence()) {
    // A model never keeps nodes active: the ranges are only read to skip them.
    const unsigned count = in.read_count(8);
    for (unsigned i = 0; i < count; ++i) {
      index_range r;
      in >> r.first >> r.second;
    }
  }
  n.activated_ = false;
  n.ranges_.reset();
  if (in.read_presence()) {
    auto cases = std::make_unique<w_sequence>();
    const unsigned count = in.read_count(8);
    for (unsigned i = 0; i < count; ++i) {
      w_pair p;
      in >> p.first >> p.second;
      cases->push_back(p);
    }
    n.own_cases(cases.release());
  }
  in >> n.split_status_;
  if (n.split_status_ != decision_tree::GAIN && n.split_status_ != decision_tree::GAIN_RATIO)
    throw binary_format_error("bad split status");
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
  in.account(sizeof(_decision_node) + n->get_class_distribution().size() * sizeof(float));
  // A split has one slot per branch, a leaf none: the count is bounded by
  // the node before any slot is made, and every slot is accounted for.
  const unsigned slots = in.read_count(1);
  const unsigned expected = n->get_node_status() == SPLIT_NODE ? n->get_no_of_splits() : 0;
  if (slots != expected) throw binary_format_error("child slots differ from the branches");
  for (unsigned i = 0; i < slots; ++i) {
    in.account(sizeof(_decision_tree) + sizeof(_decision_tree*));
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
  // Square: as many rows as cells in each row, as many names as rows.
  const unsigned n = in.read_count(4, 65536);
  std::vector<std::vector<float>> rows;
  for (unsigned r = 0; r < n; ++r) {
    if (in.read_count(4) != n) throw binary_format_error("confusion matrix is not square");
    rows.emplace_back();
    for (unsigned c = 0; c < n; ++c) {
      float x;
      in >> x;
      rows.back().push_back(x);
    }
  }
  if (in.read_count(1) != n) throw binary_format_error("confusion matrix names differ");
  std::vector<std::string> names(n);
  for (std::string& name : names) in.read_text(name);
  return new conf_matrix(std::move(rows), std::move(names));
}

// A model is checked against its table as a whole before it is used, so
// that renderers and prediction can trust it: every node's class figures
// fit the class column, a leaf names one of its classes, and a split names
// a discrete or continuous attribute, with one branch per value of a
// discrete one or two around a threshold of the continuous one's data type.
void check_split(const _decision_node& n, const table& t) {
  const unsigned a = n.get_split_attribute_index();
  if (a >= t.get_no_attributes() || a == t.get_class_index()) throw binary_format_error("split on a missing attribute");
  const column& c = *t.get_attribute(a);
  if (c.is_discrete()) {
    if (n.get_no_of_splits() != c.get_o_set()->size_of_known()) throw binary_format_error("split branches differ");
    return;
  }
  if (!c.is_continuous() || n.get_no_of_splits() != 2) throw binary_format_error("split on an unusable attribute");
  const std::string& v = n.get_threshold().value;
  int order = -1;
  try {
    order = c.get_o_set()->leq(v, v);
  } catch (const std::exception&) {
  }
  if (order < 0) throw binary_format_error("threshold is not a value of its attribute");
}

void check_tree(const _decision_tree* s, const table& t, unsigned branch) {
  const _decision_node* n = s->get_node();
  if (!n) return;
  const unsigned classes = t.get_class()->get_distinct();
  if (n->get_branch() != branch) throw binary_format_error("branch out of place");
  if (n->get_class_distribution().size() != classes) throw binary_format_error("class distribution differs");
  if (n->get_node_status() == _decision_node::LEAF_NODE && n->get_leaf() >= classes)
    throw binary_format_error("leaf class out of range");
  if (n->get_node_status() == _decision_node::SPLIT_NODE) check_split(*n, t);
  for (unsigned i = 0; i < s->get_no_childs(); ++i) check_tree(s->get_child(i), t, i + 1);
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
  if (tree) check_tree(tree.get(), *meta, 0);
  if (split_type != decision_tree::GAIN && split_type != decision_tree::GAIN_RATIO)
    throw binary_format_error("bad split type");
  if (pruning != decision_tree::NO_PRUNING && pruning != decision_tree::C45_PRUNING &&
      pruning != decision_tree::ERROR_BASED_PRUNING)
    throw binary_format_error("bad pruning strategy");

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

std::string decision_tree::to_bytes() const {
  tarn::inpout::iomem block;
  block.open(1u << 16);
  {
    tarn::inpout::obinstream out(&block, false);
    out << static_cast<unsigned char>(1) << *this;
    if (!out.good()) throw std::runtime_error("model bytes: write failed");
  }
  return std::string(block.data(), static_cast<size_t>(block.size()));
}

void decision_tree::from_bytes(const char* bytes, std::size_t size) {
  if (size >= 0xFFFFFFFFull) throw std::runtime_error("too large");
  tarn::inpout::iomem block;
  block.open(const_cast<char*>(bytes), static_cast<unsigned>(size), static_cast<unsigned>(size));
  tarn::inpout::ibinstream in(&block, false);
  if (!in.read_presence()) throw std::runtime_error("it holds no model");
  in >> *this;
  in.expect_end();
}

}  // namespace sylva::impls

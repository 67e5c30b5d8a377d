// The tree front: settings, the build-prune-evaluate sequence, class queries.

#include <memory>
#include <stdexcept>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"
#include "tarn/util/cronos.h"

namespace sylva::impls {

decision_tree::decision_tree(const std::string& name) : options_(new options()), name_(name) {}

decision_tree::~decision_tree() {
  delete tree_;
  delete table_;
  delete matrix_;
  delete options_;
}

bool decision_tree::set_split_type(SplitType st) {
  if (st != GAIN && st != GAIN_RATIO) return false;
  split_type_ = st;
  return true;
}

bool decision_tree::set_pruning_strategy(PruningStrategy ps) {
  pruning_ = ps;
  return true;
}

bool decision_tree::set_min_obj(float m) {
  if (!(m > 0)) return false;
  min_obj_ = m;
  return true;
}

bool decision_tree::set_conf_level(float cf) {
  if (!(cf >= 0 && cf <= 1)) return false;
  conf_level_ = cf;
  return true;
}

bool decision_tree::set_option(Options o) {
  if (o == PENALTY_ON_CASES) options_->penalty_on_cases = true;
  if (o == PENALTY_ON_WEIGHTS) options_->penalty_on_cases = false;
  return true;
}

void decision_tree::make_consistent(table* t) {
  std::string message;
  if (!t->set_consistency_for_tree(true, message)) throw std::runtime_error(message);
}

void decision_tree::build_pruned(table* t, w_sequence* cases, bool evaluate, int cores) {
  build(t, cases, evaluate, cores, true);
}

void decision_tree::build_unpruned(table* t, w_sequence* cases, bool evaluate) {
  build(t, cases, evaluate, 0, false);
}

void decision_tree::build(table* t, w_sequence* cases, bool evaluate, int cores, bool pruned) {
  tarn::util::cronos timer;
  timer.start();
  if (!t) throw std::runtime_error("no table provided to prune_dt");
  make_consistent(t);
  delete tree_;
  tree_ = nullptr;
  delete table_;
  table_ = t->clone(35);
  tree_ = new _decision_tree();
  tree_->observe(progress_, nullptr);
  // Without a case list all rows train the tree; the whole-weight growth
  // needs no list, so it is made only where a step needs one.
  std::unique_ptr<w_sequence> all;
  if (cases || !tree_->grow_whole(t, nullptr, split_type_, options_, min_obj_, cores)) {
    if (!cases) {
      all.reset(t->get_wsubset_all());
      cases = all.get();
    }
    tree_->build(t, cases, split_type_, options_, min_obj_, cores);
  }
  if (pruned) prune(t);
  if (!cases && (evaluate || !matrix_)) {
    all.reset(t->get_wsubset_all());
    cases = all.get();
  }
  if (evaluate) {
    delete matrix_;
    matrix_ = nullptr;
    matrix_ = tree_->predict(t, cases);
  } else if (!matrix_) {
    matrix_ = new conf_matrix(t);
  }
  // The case list and the table stay the caller's: the model must not point
  // into them.
  tree_->get_node()->forget_cases();
  tree_->forget_threshold_codes();
  timer.stop();
  elapsed_ = timer.get_elapsed();
}

void decision_tree::adopt(_decision_tree* tree, table* metadata, conf_matrix* training, double elapsed) {
  delete tree_;
  tree_ = tree;
  delete table_;
  table_ = metadata;
  delete matrix_;
  matrix_ = training;
  tree_->get_node()->forget_cases();
  tree_->forget_threshold_codes();
  elapsed_ = elapsed;
}

void decision_tree::prune(table* t) {
  if (!t) throw std::runtime_error("no table provided to prune_dt");
  make_consistent(t);
  if (!tree_ || !tree_->get_node()) throw std::runtime_error("no unpruned tree");
  tarn::util::cronos timer;
  timer.start();
  _decision_node* root = tree_->get_node();
  std::unique_ptr<w_sequence> all;
  if (pruning_ == C45_PRUNING && !root->get_all_cases()) {
    // A reloaded or already evaluated tree no longer holds its cases.
    all.reset(t->get_wsubset_all());
    root->lend_cases(all.get());
  }
  const float coeff = _decision_tree::CFCoefficient(conf_level_);
  if (pruning_ == C45_PRUNING)
    tree_->prune_c45(t, conf_level_, coeff, true, false);
  else if (pruning_ == ERROR_BASED_PRUNING)
    tree_->prune_dt(t, conf_level_, coeff);
  if (all) tree_->get_node()->forget_cases();
  timer.stop();
  pruning_time_ = timer.get_elapsed();
  elapsed_ = pruning_time_;
}

decision_tree* decision_tree::clone() const {
  auto* d = new decision_tree(name_);
  if (tree_) d->tree_ = tree_->clone();
  if (table_) d->table_ = table_->clone(1 | 2 | 4 | 8 | 32);
  if (matrix_) d->matrix_ = matrix_->clone();
  d->split_type_ = split_type_;
  d->pruning_ = pruning_;
  d->min_obj_ = min_obj_;
  d->conf_level_ = conf_level_;
  *d->options_ = *options_;
  d->elapsed_ = elapsed_;
  d->pruning_time_ = pruning_time_;
  return d;
}

unsigned decision_tree::get_n_classes() const {
  return table_ && table_->get_class() ? table_->get_class()->get_distinct() : 0;
}

std::string decision_tree::get_class_value(unsigned i) const {
  return table_ && table_->get_class() ? table_->get_class()->get_value(i) : std::string();
}

unsigned decision_tree::size() const { return tree_ ? tree_->size() : 0; }
unsigned decision_tree::depth() const { return tree_ ? tree_->depth() : 0; }
unsigned decision_tree::training_n_rows() const { return table_ ? table_->get_no_rows() : 0; }

}  // namespace sylva::impls

#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sylva/impls/column.h"
#include "sylva/impls/conf_matrix.h"
#include "sylva/impls/growth_profile.h"
#include "tarn/util/progress.h"
#include "tarn/adt/basic_tree.h"

namespace tarn::inpout {
class stream;
}

namespace sylva::impls {

class table;

// Enumerations of the tree front, usable before the front is complete.
struct decision_tree_types {
  enum SplitType { GAIN = 0, GAIN_RATIO = 1 };
  enum PruningStrategy { NO_PRUNING = 0, C45_PRUNING = 1, ERROR_BASED_PRUNING = 2 };
  enum Options { PENALTY_ON_CASES = 0, PENALTY_ON_WEIGHTS = 1 };
  enum NodeStatus { NEW_NODE = 0, LEAF_NODE = 1, SPLIT_NODE = 2 };
};

// The payload of one tree node: its case subset while it is grown, its class
// statistics, and once decided its leaf class or its split. A node is
// activated (cases carved from its father's), split or made a leaf, then
// deactivated (cases released).
class _decision_node : public decision_tree_types {
public:
  explicit _decision_node(w_sequence* cases);                       // a root
  _decision_node(const _decision_node* father, unsigned int branch);  // a child
  ~_decision_node();
  _decision_node(const _decision_node&) = delete;
  _decision_node& operator=(const _decision_node&) = delete;

  void clone(const _decision_node* other);

  void activate(const table* t);
  void activate_root(const table* t);
  void activate_node(const table* t);
  void activate_substitute_father(const table* t);
  void disactivate();
  // Activates this split node's children, one per branch in order, carving
  // all their case lists in one partition of this node's cases.
  void activate_children(const table* t, const std::vector<_decision_node*>& children) const;
  void set_father(const _decision_node* father);
  // For a node that moves up to its father's place or is copied under a
  // new father.
  void set_father_unchecked(const _decision_node* father) { father_ = father; }
  void compute_statistics(const table* t);
  // For builders that keep a node's cases elsewhere: its class weights as
  // summing its cases gives them, its number of cases and its known fraction.
  void set_statistics(std::vector<float> distribution, unsigned count, float known_fract);
  // The two halves of a split decision on measures made elsewhere: the leaf
  // prelude (true when the node stays a leaf), then the choice among the
  // measured descriptions; returns the node status.
  bool begin_split(unsigned int split_type, float min_obj);
  unsigned int finish_split(std::vector<column::splitting_desc>& descs);

  unsigned int split(const table* t, unsigned int split_type, float min_obj, const options* opts);
  unsigned int split2(const table* t, unsigned int split_type, float min_obj, const options* opts);
  bool split_pre(const table* t, unsigned int split_type, float min_obj);
  void split_att(const table* t, float min_obj, const options* opts, unsigned int attribute, bool copy);
  bool split_att_worth(unsigned int attribute);
  unsigned int split_post(const table* t);
  void split_gain(const table* t, bool gain_ratio, float min_obj, const options* opts);
  void set_as_leaf();
  // Leaf of the majority class, children to be dropped by the caller.
  void collapse(float error);

  unsigned int get_node_status() const { return status_; }
  bool is_activated() const { return activated_; }
  const _decision_node* get_father() const { return father_; }
  unsigned int get_branch() const { return branch_; }
  float get_cases_weight() const { return cases_weight_; }
  unsigned int get_cases_count() const { return cases_count_; }
  const std::vector<float>& get_class_distribution() const { return distribution_; }
  float get_known_fract_over_father() const { return known_fract_; }
  unsigned int get_majority() const { return majority_; }
  w_sequence* get_all_cases() const { return cases_; }
  // Drops the reference to a case list owned by somebody else.
  void forget_cases();
  // Drops the threshold's codes: they belong to the table the node was
  // grown on, which the model must not point into once built.
  void forget_threshold_codes() { threshold_.domain = nullptr; }
  // Lends a case list to a root (it stays the caller's).
  void lend_cases(w_sequence* cases);
  const std::vector<index_range>* get_ranges() const { return ranges_.get(); }
  std::vector<column::splitting_desc>& get_split_descs() { return split_descs_; }
  const std::vector<column::splitting_desc>& get_split_descs() const { return split_descs_; }
  unsigned int get_split_status() const { return split_status_; }
  float get_error() const { return error_; }
  void set_error(float e) { error_ = e; }
  float get_leaf_error() const { return cases_weight_ - distribution_[majority_]; }
  unsigned int get_leaf() const { return leaf_; }
  unsigned int get_split_attribute_index() const { return leaf_; }
  const column::partition_desc& get_threshold() const { return threshold_; }
  unsigned int get_no_of_splits() const { return threshold_.branches; }

  // Renderings of this node's part (text, XML) and the diagnostic dumps.
  void toTEXT(const table* t, std::ostream& os, unsigned branch) const;
  void toXML(const table* t, std::ostream& os) const;
  void toXML_class_distribution(const table* t, std::ostream& os) const;
  void print_attribute_distribution(const table* t, unsigned att, std::ostream& os) const;
  void print_att_gain(const table* t, std::ostream& os) const;

  friend obinstream& operator<<(obinstream& out, const _decision_node& n);
  friend ibinstream& operator>>(ibinstream& in, _decision_node& n);

private:
  // The start of every split decision: a leaf of the majority class; true
  // when the node stays a leaf without measuring anything.
  bool leaf_prelude(float min_obj);
  void check_father_ready() const;
  // Cases weight and majority class from the class distribution.
  void summarize();
  // Picks the winning attribute among measured descriptions, -1 for none.
  static int choose(const std::vector<column::splitting_desc>& descs, bool gain_ratio);
  void free_cases();
  // Takes `cases` (or null) as the node's own list.
  void own_cases(w_sequence* cases);

  unsigned int status_ = NEW_NODE;
  bool activated_ = false;
  const _decision_node* father_ = nullptr;
  unsigned int branch_ = 0;
  float cases_weight_ = 0;
  unsigned int cases_count_ = 0;
  std::vector<float> distribution_;
  float known_fract_ = 1.0f;
  unsigned int majority_ = 0;
  // The node's case list: its own (owned_cases_) or, at a root, the
  // caller's, borrowed.
  w_sequence* cases_ = nullptr;
  std::unique_ptr<w_sequence> owned_cases_;
  std::unique_ptr<std::vector<index_range>> ranges_;
  std::vector<column::splitting_desc> split_descs_;
  unsigned int split_status_ = 0;
  float error_ = 0;
  unsigned int leaf_ = 0;  // leaf class, or split attribute
  column::partition_desc threshold_;
};

// A subtree: one payload node and its ordered children (child i holds
// branch i + 1 of its node).
class _decision_tree : public tarn::adt::basic_tree<_decision_node, _decision_tree>, public decision_tree_types {
public:
  void build(const table* t, w_sequence* cases, unsigned int split_type, const options* opts, float min_obj,
             int cores);
  void build_breadth(const table* t, unsigned int split_type, float min_obj, const options* opts);
  // Grows (and collapses) the tree when every case weight stays whole, on
  // the cases or, when null, on all rows without a case list in memory;
  // false, with a bare root, when some case weight may become fractional,
  // where the build needs the sorting growth.
  bool grow_whole(const table* t, const w_sequence* cases, unsigned int split_type, const options* opts,
                  float min_obj, int cores);
  float build_depth_preprune(float bound, const table* t, unsigned int split_type, float min_obj,
                             const options* opts);
  void build_ff(const table* t, unsigned int split_type, float min_obj, const options* opts, int nworkers);
  // The collapse pass below this node, given the bound its ancestors set.
  // Subtrees in `settled` are not visited: the pass returns the value
  // recorded for them.
  using settled_subtrees = std::unordered_map<const _decision_node*, float>;
  float preprune(float bound, const settled_subtrees* settled = nullptr);
  // Prunes each finished subtree (no node left to grow) whose father is
  // not finished: its collapse pass, with the bound its ancestors set, then
  // the error-based pruning; `settled` records what the collapse pass
  // returned for it, which the final collapse pass takes instead of
  // visiting it again (its nodes' errors are pruning estimates by then).
  // The final passes over the whole tree then give the tree they give
  // without this: the error-based pruning reads only a subtree, and run
  // again over its own result changes nothing. True when this subtree is
  // finished.
  bool prune_finished(float bound, float CF, float coeff, settled_subtrees& settled);
  float settle(float leaf_error, float subtree_error);
  // One child subtree per branch of this split node, all activated.
  void grow_children(const table* t);
  void replace_with_son(unsigned i) override;

  static float CFCoefficient(float CF);
  static float add_errs(float CF, float coeff, float N, float e);
  float prune_dt(const table* t, float CF, float coeff);
  float prune_dt(const table* t, float CF);
  std::pair<float, float> prune_c45(const table* t, float CF, float coeff, bool update, bool substitute);
  std::pair<float, float> prune_c45(const table* t, float CF);

  // Adds the case's weighted leaf distributions into `dist`; values are one
  // code (unsigned) or one text (string) per attribute of `t`.
  template <class V>
  void predict(const std::vector<V>& values, std::vector<float>& dist, const table* t, float w) const;
  conf_matrix* predict(const table* t, const w_sequence* cases) const;

  _decision_tree* clone() const { return _clone(nullptr); }
  // forget_threshold_codes() on every node.
  void forget_threshold_codes();
  _decision_tree* _clone(const _decision_node* father) const;

  void toTEXT(const table* t, std::ostream& os, unsigned depth) const;
  void toXML(const table* t, std::ostream& os) const;
  unsigned toDOT(const table* t, std::ostream& os, unsigned total, unsigned id) const;
  void load_bin(ibinstream& in, const _decision_node* father);
  void load_bin(ibinstream& in, const _decision_node* father, unsigned depth);
  friend obinstream& operator<<(obinstream& out, const _decision_tree& s);

  template <class Branch>
  void descend(const Branch& branch, std::vector<float>& dist, float w) const;

  // Attribute tasks sent for this node by the parallel build, and those
  // still outstanding.
  unsigned int ff_sent = 0;
  unsigned int ff_outstanding = 0;

  // Observers of a build grown from this root: a progress report and a
  // profile of time by depth, both optional.
  void observe(tarn::util::progress* progress, growth_profile* profile) {
    progress_ = progress;
    profile_ = profile;
  }

private:
  tarn::util::progress* progress_ = nullptr;
  growth_profile* profile_ = nullptr;
};

extern template void _decision_tree::predict<unsigned int>(const std::vector<unsigned int>&, std::vector<float>&,
                                                           const table*, float) const;
extern template void _decision_tree::predict<std::string>(const std::vector<std::string>&, std::vector<float>&,
                                                          const table*, float) const;

// The model: induction settings, a row-less copy of the training table
// (class and discrete domains), the grown and pruned tree, its confusion
// matrix on the training cases, the build time and the model's name.
class decision_tree : public decision_tree_types {
public:
  explicit decision_tree(const std::string& name);
  ~decision_tree();
  decision_tree(const decision_tree&) = delete;
  decision_tree& operator=(const decision_tree&) = delete;

  bool set_split_type(SplitType st);
  bool set_pruning_strategy(PruningStrategy ps);
  bool set_min_obj(float m);
  bool set_conf_level(float cf);
  bool set_option(Options o);
  // Reports the progress of growth to `p` (not owned; null: none).
  void set_progress(tarn::util::progress* p) { progress_ = p; }

  void build_unpruned(table* t, w_sequence* cases, bool evaluate);
  void build_pruned(table* t, w_sequence* cases, bool evaluate, int cores);
  // For trees grown, pruned and evaluated elsewhere (a distributed build,
  // which needs every rank for each step): takes over the tree, the
  // row-less copy of its table (clone(35)), the training matrix and the
  // build's time, as build_pruned leaves them.
  void adopt(_decision_tree* tree, table* metadata, conf_matrix* training, double elapsed);
  void prune(table* t);
  decision_tree* clone() const;

  unsigned get_n_classes() const;
  std::string get_class_value(unsigned i) const;
  const conf_matrix* get_prediction() const { return matrix_; }
  unsigned size() const;
  unsigned depth() const;
  double get_elapsed() const { return elapsed_; }
  double get_pruning_time() const { return pruning_time_; }
  unsigned training_n_rows() const;
  const std::string& get_name() const { return name_; }
  void set_name(const std::string& n) { name_ = n; }
  const _decision_tree* get_tree() const { return tree_; }
  const table* get_table() const { return table_; }
  float get_conf_level() const { return conf_level_; }
  float get_min_obj() const { return min_obj_; }
  SplitType get_split_type() const { return split_type_; }
  PruningStrategy get_pruning_strategy() const { return pruning_; }

  // (class code, mixed weight) and (class text, mixed weight).
  std::pair<unsigned, float> predict(const std::vector<std::string>& values, float weight) const;
  std::pair<std::string, float> prediction(const std::vector<std::string>& values, float weight) const;
  std::pair<std::string, float> prediction(const table* t, unsigned row, float weight) const;
  conf_matrix* predict(const table* t, const w_sequence* cases) const;
  conf_matrix* predict(tarn::inpout::stream* s, bool destroy) const;
  void evaluate(tarn::inpout::stream* s, std::ostream& out, char separator, bool destroy) const;

  void toTEXT(std::ostream& os, unsigned depth) const;
  void toXML(std::ostream& os, const conf_matrix* test) const;
  void toDOT(std::ostream& os) const;

  friend obinstream& operator<<(obinstream& out, const decision_tree& d);
  friend ibinstream& operator>>(ibinstream& in, decision_tree& d);

  // The model's binary form in memory, as a model file holds it before
  // compression; and reading such a block back into this model (throws
  // what reading a model file throws, or "it holds no model").
  std::string to_bytes() const;
  void from_bytes(const char* bytes, std::size_t size);

private:
  void build(table* t, w_sequence* cases, bool evaluate, int cores, bool pruned);
  tarn::util::progress* progress_ = nullptr;
  static void make_consistent(table* t);

  _decision_tree* tree_ = nullptr;
  table* table_ = nullptr;
  conf_matrix* matrix_ = nullptr;
  SplitType split_type_ = GAIN_RATIO;
  PruningStrategy pruning_ = ERROR_BASED_PRUNING;
  float min_obj_ = 2.0f;
  float conf_level_ = 0.25f;
  options* options_;
  double elapsed_ = 0.0;
  std::string name_;
  double pruning_time_ = 0.0;
};

}  // namespace sylva::impls

#include <iostream>
#include <stdexcept>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

_decision_node::_decision_node(w_sequence* cases) : cases_(cases) {}

_decision_node::_decision_node(const _decision_node* father, unsigned int branch) : father_(father), branch_(branch) {}

_decision_node::~_decision_node() = default;

void _decision_node::free_cases() {
  owned_cases_.reset();
  cases_ = nullptr;
}

void _decision_node::own_cases(w_sequence* cases) {
  owned_cases_.reset(cases);
  cases_ = cases;
}

void _decision_node::forget_cases() {
  if (!owned_cases_) cases_ = nullptr;
}

void _decision_node::lend_cases(w_sequence* cases) {
  free_cases();
  cases_ = cases;
}

void _decision_node::clone(const _decision_node* other) {
  status_ = other->status_;
  activated_ = other->activated_;
  father_ = other->father_;
  branch_ = other->branch_;
  cases_weight_ = other->cases_weight_;
  cases_count_ = other->cases_count_;
  distribution_ = other->distribution_;
  known_fract_ = other->known_fract_;
  majority_ = other->majority_;
  own_cases(other->cases_ ? new w_sequence(*other->cases_) : nullptr);
  ranges_.reset(other->ranges_ ? new std::vector<index_range>(*other->ranges_) : nullptr);
  split_descs_ = other->split_descs_;
  split_status_ = other->split_status_;
  error_ = other->error_;
  leaf_ = other->leaf_;
  threshold_ = other->threshold_;
}

// ------------------------------------------------------------- activation

void _decision_node::activate(const table* t) {
  if (!t) throw std::runtime_error("[_decision_node::activate()]: called with a NULL table.");
  if (activated_) disactivate();
  if (!father_)
    activate_root(t);
  else
    activate_node(t);
  compute_statistics(t);
  activated_ = true;
}

void _decision_node::activate_root(const table* t) {
  known_fract_ = 1.0f;
  ranges_ = std::make_unique<std::vector<index_range>>();
  ranges_->reserve(t->get_no_attributes());
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) ranges_->push_back(t->get_attribute(a)->get_range());
}

void _decision_node::check_father_ready() const {
  if (father_->status_ != SPLIT_NODE)
    throw std::runtime_error("[_decision_node::activated()]: father node status not a decision_tree::SPLIT_NODE.");
  if (!father_->activated_)
    throw std::runtime_error("[_decision_node::activated()]: father node status not activated.");
}

void _decision_node::activate_node(const table* t) {
  check_father_ready();
  ranges_ = std::make_unique<std::vector<index_range>>(*father_->ranges_);
  const unsigned a = father_->leaf_;
  const w_sequence& fc = *father_->cases_;
  free_cases();
  own_cases(t->get_attribute(a)->partition(fc.data(), fc.data() + fc.size(), branch_, father_->cases_weight_,
                                           known_fract_, (*ranges_)[a], father_->threshold_));
}

void _decision_node::activate_children(const table* t, const std::vector<_decision_node*>& children) const {
  if (!t) throw std::runtime_error("[_decision_node::activate()]: called with a NULL table.");
  for (const _decision_node* c : children) c->check_father_ready();
  column::branch_lists lists;
  const column* a = t->get_attribute(leaf_);
  a->partition_all(cases_->data(), cases_->data() + cases_->size(), static_cast<unsigned>(children.size()),
                   cases_weight_, threshold_, lists);
  for (unsigned i = 0; i < children.size(); ++i) {
    _decision_node* c = children[i];
    if (c->activated_) c->disactivate();
    c->ranges_ = std::make_unique<std::vector<index_range>>(*ranges_);
    (*c->ranges_)[leaf_] = lists.ranges[i];
    c->own_cases(lists.cases[i]);
    lists.cases[i] = nullptr;
    c->known_fract_ = lists.ratios[i];
    c->compute_statistics(t);
    c->activated_ = true;
  }
}

void _decision_node::activate_substitute_father(const table* t) {
  if (!father_) throw std::runtime_error("[_decision_node::activate_substitute_father()]: father node is NULL.");
  if (!father_->activated_)
    throw std::runtime_error("[_decision_node::activate_substitute_father()]: father node status not activated.");
  if (activated_) throw std::runtime_error("[_decision_node::activate_substitute_father()]: node is activated.");
  branch_ = father_->branch_;
  own_cases(new w_sequence(*father_->cases_));
  ranges_ = std::make_unique<std::vector<index_range>>(*father_->ranges_);
  compute_statistics(t);
  activated_ = true;
}

void _decision_node::disactivate() {
  if (!activated_) return;
  // The root's case list belongs to the caller of the build.
  if (father_) free_cases();
  ranges_.reset();
  activated_ = false;
}

void _decision_node::set_father(const _decision_node* father) {
  if (!father_) throw std::runtime_error("[_decision_node::activate_substitute_father()]: father node is NULL.");
  if (activated_) throw std::runtime_error("[_decision_node::activate_substitute_father()]: node is activated.");
  father_ = father;
}

void _decision_node::compute_statistics(const table* t) {
  const column* cls = t->get_class();
  distribution_.assign(cls->get_distinct(), 0.0f);
  cases_count_ = cases_ ? static_cast<unsigned>(cases_->size()) : 0;
  if (cases_) {
    visit_codes(*cls, [&](auto codes) {
      for (const w_pair& p : *cases_) distribution_[codes[p.first]] += p.second;
    });
  }
  summarize();
}

void _decision_node::summarize() {
  cases_weight_ = 0;
  for (float w : distribution_) cases_weight_ += w;
  majority_ = 0;
  for (unsigned c = 1; c < distribution_.size(); ++c)
    if (distribution_[c] > distribution_[majority_]) majority_ = c;
}

void _decision_node::set_statistics(std::vector<float> distribution, unsigned count, float known_fract) {
  distribution_ = std::move(distribution);
  cases_count_ = count;
  known_fract_ = known_fract;
  summarize();
}

// ---------------------------------------------------------------- splitting

bool _decision_node::leaf_prelude(float min_obj) {
  status_ = LEAF_NODE;
  leaf_ = majority_;
  error_ = cases_weight_ - distribution_[majority_];
  threshold_.reset();
  if (cases_weight_ == 0) {
    leaf_ = father_ ? father_->majority_ : 0;
    return true;
  }
  return cases_weight_ == distribution_[majority_] || cases_weight_ < 2 * min_obj;
}

void _decision_node::set_as_leaf() { leaf_prelude(0); }

void _decision_node::collapse(float error) {
  status_ = LEAF_NODE;
  leaf_ = majority_;
  error_ = error;
  threshold_.reset();
}

int _decision_node::choose(const std::vector<column::splitting_desc>& descs, bool gain_ratio) {
  float sum = 0;
  unsigned usable = 0;
  for (const auto& d : descs) {
    if (d.gain > split_rules::no_split_gain) {
      sum += d.gain;
      ++usable;
    }
  }
  const float average = usable ? sum / static_cast<float>(usable) : split_rules::no_usable_average;
  float best = split_rules::no_split_gain;
  int winner = -1;
  for (unsigned a = 0; a < descs.size(); ++a) {
    const auto& d = descs[a];
    if (!(d.gain > split_rules::no_split_gain)) continue;
    if (gain_ratio) {
      if (d.gain >= average - split_rules::average_gain_margin && d.split_info > split_rules::split_info_floor) {
        const float ratio = d.gain / d.split_info;
        if (ratio > best) best = ratio, winner = static_cast<int>(a);
      }
    } else if (d.split_info > 0 && d.gain > best) {
      best = d.gain, winner = static_cast<int>(a);
    }
  }
  return winner;
}

void _decision_node::split_gain(const table* t, bool gain_ratio, float min_obj, const options* opts) {
  if (leaf_prelude(min_obj)) return;
  const unsigned n = t->get_no_attributes();
  std::vector<column::splitting_desc> descs(n);
  const column* cls = t->get_class();
  for (unsigned a = 0; a < n; ++a)
    t->get_attribute(a)->quality_measure(cls, cases_weight_, cases_, (*ranges_)[a], min_obj, opts, descs[a], false);
  const int winner = choose(descs, gain_ratio);
  if (winner < 0) return;
  descs[winner].set_partition_desc(threshold_);
  status_ = SPLIT_NODE;
  leaf_ = static_cast<unsigned>(winner);
}

bool _decision_node::begin_split(unsigned int split_type, float min_obj) {
  split_status_ = split_type;
  return leaf_prelude(min_obj);
}

unsigned int _decision_node::finish_split(std::vector<column::splitting_desc>& descs) {
  const int winner = choose(descs, split_status_ == GAIN_RATIO);
  if (winner < 0) return status_;
  descs[winner].set_partition_desc(threshold_);
  status_ = SPLIT_NODE;
  leaf_ = static_cast<unsigned>(winner);
  return status_;
}

unsigned int _decision_node::split(const table* t, unsigned int split_type, float min_obj, const options* opts) {
  if (!activated_) throw std::runtime_error("[_decision_node::split] called on an unactivated node.");
  if (split_type > GAIN_RATIO) throw std::runtime_error("[_decision_node::split] called on an unsupported split type.");
  split_gain(t, split_type == GAIN_RATIO, min_obj, opts);
  split_status_ = split_type;
  return status_;
}

bool _decision_node::split_pre(const table* t, unsigned int split_type, float min_obj) {
  split_status_ = split_type;
  split_descs_.assign(t->get_no_attributes(), column::splitting_desc());
  return leaf_prelude(min_obj);
}

void _decision_node::split_att(const table* t, float min_obj, const options* opts, unsigned int a, bool copy) {
  t->get_attribute(a)->quality_measure(t->get_class(), cases_weight_, cases_, (*ranges_)[a], min_obj, opts,
                                       split_descs_[a], copy);
}

bool _decision_node::split_att_worth(unsigned int a) {
  const index_range& r = (*ranges_)[a];
  if (r.second - r.first >= 2) return true;
  split_descs_[a].branches = 0;
  split_descs_[a].fail();
  return false;
}

unsigned int _decision_node::split_post(const table* t) {
  const int winner = choose(split_descs_, split_status_ == GAIN_RATIO);
  if (winner < 0) return status_;
  try {
    split_descs_[winner].set_partition_desc(threshold_);
  } catch (const std::exception& e) {
    std::cerr << "exception " << e.what() << std::endl;
    print_att_gain(t, std::cerr);
    threshold_.reset();
    return status_;
  }
  status_ = SPLIT_NODE;
  leaf_ = static_cast<unsigned>(winner);
  return status_;
}

unsigned int _decision_node::split2(const table* t, unsigned int split_type, float min_obj, const options* opts) {
  if (!activated_) throw std::runtime_error("[_decision_node::split] called on an unactivated node.");
  if (split_pre(t, split_type, min_obj)) return status_;
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) split_att(t, min_obj, opts, a, false);
  return split_post(t);
}

}  // namespace sylva::impls

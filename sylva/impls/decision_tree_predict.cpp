// Classifying cases: a case descends from the root; where its value of the
// split attribute is unknown it goes down every branch with a share of its
// weight, and the class distributions of the leaves it reaches are mixed.

#include <ostream>
#include <stdexcept>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/cronos.h"

namespace sylva::impls {

namespace {

// Branch index (1-based) of a case at a split node, 0 when unknown.
unsigned branch_of(const column& c, unsigned code, const std::string& threshold) {
  if (c.is_discrete()) return code;
  if (c.is_continuous()) {
    const int r = c.get_o_set()->leq(code, threshold);
    return r == 0 ? 1 : r == 1 ? 2 : 0;
  }
  throw std::runtime_error("Unknown column type");
}

unsigned branch_of(const column& c, const std::string& text, const std::string& threshold) {
  if (c.is_discrete()) return c.get_index(text.c_str());
  if (c.is_continuous()) {
    const int r = c.get_o_set()->leq(text, threshold);
    return r == 0 ? 1 : r == 1 ? 2 : 0;
  }
  throw std::runtime_error("Unknown column type");
}

// The slot of the largest weight; ties go to the lowest class code.
unsigned best_class(const std::vector<float>& dist) {
  unsigned best = 0;
  for (unsigned c = 1; c < dist.size(); ++c)
    if (dist[c] > dist[best]) best = c;
  return best;
}

}  // namespace

// The descent shared by every way of reading a case: `branch(node)` gives the
// branch (1-based) the case takes at a split node, 0 when its value there is
// unknown.
template <class Branch>
void _decision_tree::descend(const Branch& branch, std::vector<float>& dist, float w) const {
  const _decision_node* n = node_;
  if (!n) throw std::runtime_error("Found a null node");
  if (n->get_node_status() == LEAF_NODE) {
    const float total = n->get_cases_weight();
    if (total > 0) {
      const auto& d = n->get_class_distribution();
      for (unsigned c = 0; c < d.size() && c < dist.size(); ++c) dist[c] += w * d[c] / total;
    } else if (n->get_leaf() < dist.size()) {
      dist[n->get_leaf()] += w;
    }
    return;
  }
  const unsigned b = branch(*n);
  if (b > 0 && b <= children_.size()) return children_[b - 1]->descend(branch, dist, w);
  // An unknown value goes down every branch with its share of the weight.
  const float total = n->get_cases_weight();
  for (const _decision_tree* c : children_) {
    const float share = c->node_ ? c->node_->get_cases_weight() : 0.0f;
    c->descend(branch, dist, w * share / total);
  }
}

template <class V>
void _decision_tree::predict(const std::vector<V>& values, std::vector<float>& dist, const table* t, float w) const {
  descend(
      [&](const _decision_node& n) {
        const unsigned a = n.get_split_attribute_index();
        return branch_of(*t->get_attribute(a), values[a], n.get_threshold().value);
      },
      dist, w);
}

template void _decision_tree::predict<unsigned int>(const std::vector<unsigned int>&, std::vector<float>&,
                                                    const table*, float) const;
template void _decision_tree::predict<std::string>(const std::vector<std::string>&, std::vector<float>&,
                                                   const table*, float) const;

namespace {

// Rows of the training table descend by their codes: "value <= threshold"
// is "code <= the number of values not above the threshold", which the split
// keeps beside its text. A tree reloaded or copied without its table falls
// back to comparing texts.
struct code_descent {
  const table* t;

  unsigned branch(const _decision_node& n, unsigned row) const {
    const column& c = *t->get_attribute(n.get_split_attribute_index());
    const unsigned code = c.get_row_index(row);
    const column::partition_desc& pd = n.get_threshold();
    if (!c.is_continuous() || pd.domain != c.get_o_set()) return branch_of(c, code, pd.value);
    return code == 0 ? 0 : code <= pd.below ? 1 : 2;
  }
};

}  // namespace

conf_matrix* _decision_tree::predict(const table* t, const w_sequence* cases) const {
  auto* m = new conf_matrix(t);
  const column* cls = t->get_class();
  std::vector<float> dist(cls->get_distinct());
  const code_descent descent{t};
  for (const w_pair& p : *cases) {
    std::fill(dist.begin(), dist.end(), 0.0f);
    descend([&](const _decision_node& n) { return descent.branch(n, p.first); }, dist, p.second);
    m->add(best_class(dist), cls->get_row_index(p.first), p.second);
  }
  return m;
}

// ------------------------------------------------------------ the front

std::pair<unsigned, float> decision_tree::predict(const std::vector<std::string>& values, float weight) const {
  if (!tree_) throw std::runtime_error("Found a null node");
  std::vector<float> dist(get_n_classes(), 0.0f);
  tree_->predict(values, dist, table_, weight);
  const unsigned c = best_class(dist);
  return {c, dist[c]};
}

std::pair<std::string, float> decision_tree::prediction(const std::vector<std::string>& values, float weight) const {
  const auto p = predict(values, weight);
  return {get_class_value(p.first), p.second};
}

std::pair<std::string, float> decision_tree::prediction(const table* t, unsigned row, float weight) const {
  std::vector<std::string> values(t->get_no_attributes());
  for (unsigned a = 0; a < values.size(); ++a) values[a] = t->get_attribute(a)->get_row_value(row);
  return prediction(values, weight);
}

conf_matrix* decision_tree::predict(const table* t, const w_sequence* cases) const {
  if (!t) throw std::runtime_error("no data provided");
  tarn::util::cronos timer;
  timer.start();
  std::unique_ptr<w_sequence> all;
  if (!cases) {
    all.reset(t->get_wsubset_all());
    cases = all.get();
  }
  auto* m = new conf_matrix(table_);
  const column* cls = table_->get_class();
  const unsigned class_index = table_->get_class_index();
  std::vector<std::string> values(t->get_no_attributes());
  for (const w_pair& p : *cases) {
    for (unsigned a = 0; a < values.size(); ++a) values[a] = t->get_attribute(a)->get_row_value(p.first);
    const unsigned predicted = predict(values, p.second).first;
    m->add(predicted, cls->get_index(values[class_index].c_str()), p.second);
  }
  timer.stop();
  m->set_elapsed(timer.get_elapsed());
  return m;
}

conf_matrix* decision_tree::predict(tarn::inpout::stream* s, bool destroy) const {
  if (!s) throw std::runtime_error("no tarn::inpout::stream");
  std::unique_ptr<tarn::inpout::stream> owned(destroy ? s : nullptr);
  tarn::util::cronos timer;
  timer.start();
  std::unique_ptr<conf_matrix> m(new conf_matrix(table_));
  const column* cls = table_->get_class();
  const unsigned class_index = table_->get_class_index();
  std::vector<std::string> values;
  for (unsigned row = 1; table_->load_row(*s, values, row); ++row) {
    const unsigned predicted = predict(values, 1.0f).first;
    m->add(predicted, cls->get_index(values[class_index].c_str()), 1.0f);
  }
  owned.reset();
  timer.stop();
  m->set_elapsed(timer.get_elapsed());
  return m.release();
}

void decision_tree::evaluate(tarn::inpout::stream* s, std::ostream& out, char separator, bool destroy) const {
  if (!s) throw std::runtime_error("no tarn::inpout::stream");
  std::unique_ptr<tarn::inpout::stream> owned(destroy ? s : nullptr);
  const unsigned k = table_->get_no_attributes();
  std::vector<std::string> values(k);
  for (unsigned row = 1; s->read_line(); ++row) {
    const unsigned fields = tarn::util::count_fields(s->get_line(), s->get_delim());
    if (fields < k)
      throw std::runtime_error("bad row format (row " + std::to_string(row) + "): " + s->get_line());
    for (unsigned a = 0; a < k; ++a) values[a] = s->next_field();
    const auto p = prediction(values, 1.0f);
    if (fields > k) out << s->next_field() << separator;
    out << p.first << separator << p.second << std::endl;
  }
  s->check_complete();
}

}  // namespace sylva::impls

#include "sylva/impls/array_predict.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <exception>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

using tarn::data_types::datatype;

flat_tree::flat_tree(const decision_tree& model) {
  const _decision_tree* root = model.get_tree();
  const table* t = model.get_table();
  if (!root || !t) throw std::runtime_error("the model holds no tree");
  classes_ = model.get_n_classes();
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) {
    const column* c = t->get_attribute(a);
    const std::string word = c->get_o_set()->get_datatype();
    kind_t k = OTHER;
    if (c->is_discrete()) k = DISCRETE;
    else if (c->is_continuous() && word == "float") k = REAL;
    else if (c->is_continuous() && word == "integer") k = INTEGER;
    else if (c->is_continuous() && word == "uinteger") k = UINTEGER;
    attribute_kinds_.push_back(k);
    names_.push_back(c->get_name());
  }
  // Breadth first, so that the children of a split lie side by side.
  nodes_.emplace_back();
  std::deque<std::pair<const _decision_tree*, std::uint32_t>> queue{{root, 0u}};
  while (!queue.empty()) {
    const auto [sub, at] = queue.front();
    queue.pop_front();
    const _decision_node* n = sub->get_node();
    if (!n) continue;  // stays EMPTY, of weight 0
    node flat;
    flat.weight = n->get_cases_weight();
    if (n->get_node_status() == decision_tree::LEAF_NODE) {
      const auto& d = n->get_class_distribution();
      flat.kind = LEAF;
      flat.attribute = n->get_leaf();
      flat.first = static_cast<std::uint32_t>(dists_.size());
      flat.count = static_cast<std::uint32_t>(std::min<std::size_t>(d.size(), classes_));
      dists_.insert(dists_.end(), d.begin(), d.begin() + flat.count);
      nodes_[at] = flat;
      continue;
    }
    set_test(flat, *t, n->get_split_attribute_index(), n->get_threshold().value);
    flat.first = static_cast<std::uint32_t>(nodes_.size());
    flat.count = sub->get_no_childs();
    nodes_[at] = flat;
    nodes_.resize(nodes_.size() + flat.count);
    for (std::uint32_t k = 0; k < flat.count; ++k) queue.emplace_back(sub->get_child(k), flat.first + k);
  }
}

// The test of a split on attribute a: its kind, and the threshold of a
// continuous one read once by the column's type, as the model reads it for
// every case it is given as text.
void flat_tree::set_test(node& flat, const table& t, std::uint32_t a, const std::string& threshold) {
  flat.attribute = a;
  flat.kind = a < attribute_kinds_.size() ? attribute_kinds_[a] : OTHER;
  if (flat.kind == OTHER) return;
  if (flat.kind != DISCRETE && t.get_attribute(a)->get_o_set()->is_null(threshold.c_str())) {
    flat.kind = UNKNOWN;
    return;
  }
  if (flat.kind == REAL) flat.threshold.real = o_set_typed<datatype<float>>::parse(threshold.c_str());
  if (flat.kind == INTEGER) flat.threshold.integer = o_set_typed<datatype<int>>::parse(threshold.c_str());
  if (flat.kind == UINTEGER) flat.threshold.uinteger = o_set_typed<datatype<unsigned int>>::parse(threshold.c_str());
  if (std::find(tested_.begin(), tested_.end(), a) == tested_.end()) tested_.push_back(a);
}

namespace {

// Values outside the column's type are what the column could not read.
template <class V>
void check_range(const attribute_input& in, std::size_t rows, const std::string& name) {
  const auto* x = static_cast<const std::int64_t*>(in.data);
  for (std::size_t r = 0; r < rows; ++r) {
    if (in.unknown && in.unknown[r]) continue;
    const std::int64_t v = x[r * in.stride];
    if (v < std::numeric_limits<V>::min() || v > static_cast<std::int64_t>(std::numeric_limits<V>::max()))
      throw std::invalid_argument("column '" + name + "': " + std::to_string(v) + " does not fit its " +
                                  (std::is_signed_v<V> ? "32-bit integer" : "32-bit unsigned integer") + " type");
  }
}

}  // namespace

void flat_tree::check_inputs(const std::vector<attribute_input>& inputs, std::size_t rows) const {
  for (std::uint32_t a : tested_) {
    const attribute_input::kind_t want = attribute_kinds_[a] == DISCRETE ? attribute_input::CODES
                                         : attribute_kinds_[a] == REAL   ? attribute_input::REAL
                                                                         : attribute_input::INTEGER;
    if (a >= inputs.size() || inputs[a].kind != want || (rows > 0 && !inputs[a].data))
      throw std::invalid_argument("column '" + names_[a] + "' is tested by the tree and needs " +
                                  (want == attribute_input::CODES  ? "domain codes"
                                   : want == attribute_input::REAL ? "real values"
                                                                   : "integer values"));
    if (attribute_kinds_[a] == INTEGER) check_range<std::int32_t>(inputs[a], rows, names_[a]);
    if (attribute_kinds_[a] == UINTEGER) check_range<std::uint32_t>(inputs[a], rows, names_[a]);
  }
}

void flat_tree::predict(const std::vector<attribute_input>& inputs, std::size_t rows, float* dist,
                        std::uint32_t* best, unsigned threads) const {
  check_inputs(inputs, rows);
  std::vector<column_ref> cols(attribute_kinds_.size(), column_ref{nullptr, 0, nullptr});
  for (std::uint32_t a : tested_) {
    const std::size_t width = inputs[a].kind == attribute_input::REAL      ? sizeof(double)
                              : inputs[a].kind == attribute_input::INTEGER ? sizeof(std::int64_t)
                                                                           : sizeof(std::int32_t);
    cols[a] = column_ref{static_cast<const char*>(inputs[a].data), inputs[a].stride * width, inputs[a].unknown};
  }
  threads = static_cast<unsigned>(std::min<std::size_t>(std::max(threads, 1u), rows / 4096 + 1));
  if (threads == 1) return predict_range(cols, 0, rows, dist, best);
  // Each thread writes its own rows; a failure is rethrown here.
  std::vector<std::exception_ptr> failed(threads);
  std::vector<std::thread> pool;
  for (unsigned i = 0; i < threads; ++i) {
    const std::size_t begin = rows * i / threads, end = rows * (i + 1) / threads;
    pool.emplace_back([&, i, begin, end] {
      try {
        predict_range(cols, begin, end, dist, best);
      } catch (...) {
        failed[i] = std::current_exception();
      }
    });
  }
  for (std::thread& th : pool) th.join();
  for (const std::exception_ptr& e : failed)
    if (e) std::rethrow_exception(e);
}

void flat_tree::predict_range(const std::vector<column_ref>& cols, std::size_t begin, std::size_t end, float* dist,
                              std::uint32_t* best) const {
  std::vector<float> scratch(dist ? 0 : classes_);
  for (std::size_t r = begin; r < end; ++r) {
    float* d = dist ? dist + r * classes_ : scratch.data();
    std::fill(d, d + classes_, 0.0f);
    descend(0, cols, r, 1.0f, d);
    std::uint32_t b = 0;
    for (std::uint32_t c = 1; c < classes_; ++c)
      if (d[c] > d[b]) b = c;
    best[r] = b;
  }
}

// Branch (1-based) of a row at a split, 0 when its value is unknown.
unsigned flat_tree::branch(const node& n, const column_ref& c, std::size_t row) const {
  const char* at = c.data + row * c.stride;
  switch (n.kind) {
    case DISCRETE: {
      std::int32_t code;
      std::memcpy(&code, at, sizeof code);
      return code > 0 ? static_cast<unsigned>(code) : 0u;
    }
    case REAL: {
      double x;
      std::memcpy(&x, at, sizeof x);
      if (x != x) return 0;
      return static_cast<float>(x) <= n.threshold.real ? 1 : 2;
    }
    case INTEGER:
    case UINTEGER: {
      if (c.unknown && c.unknown[row]) return 0;
      std::int64_t x;
      std::memcpy(&x, at, sizeof x);
      if (n.kind == INTEGER) return static_cast<std::int32_t>(x) <= n.threshold.integer ? 1 : 2;
      return static_cast<std::uint32_t>(x) <= n.threshold.uinteger ? 1 : 2;
    }
    default:
      return 0;
  }
}

// The arithmetic is _decision_tree::descend's, operation for operation.
void flat_tree::descend(std::uint32_t at, const std::vector<column_ref>& cols, std::size_t row, float w,
                        float* dist) const {
  for (;;) {
    const node& n = nodes_[at];
    if (n.kind == LEAF) {
      if (n.weight > 0) {
        const float* d = dists_.data() + n.first;
        for (std::uint32_t c = 0; c < n.count; ++c) dist[c] += w * d[c] / n.weight;
      } else if (n.attribute < classes_) {
        dist[n.attribute] += w;
      }
      return;
    }
    if (n.kind == EMPTY) throw std::runtime_error("Found a null node");
    if (n.kind == OTHER) throw std::runtime_error("Unknown column type");
    const unsigned b = n.kind == UNKNOWN ? 0u : branch(n, cols[n.attribute], row);
    if (b > 0 && b <= n.count) {
      at = n.first + b - 1;
      continue;
    }
    // An unknown value goes down every branch with its share of the weight.
    for (std::uint32_t k = 0; k < n.count; ++k) descend(n.first + k, cols, row, w * nodes_[n.first + k].weight / n.weight, dist);
    return;
  }
}

}  // namespace sylva::impls

// Whole-weight growth: which builds qualify, the sorted lists, and the order
// of work. Near the root a node's attributes and lists are spread over the
// threads; below, whole nodes are, each thread growing subtrees depth first
// and handing work to idle threads. Nothing decided depends on which thread
// did what, or when: the result is the same for any number of threads.

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <mutex>

#include "sylva/impls/grow_whole_engine.h"
#include "sylva/impls/run_scan.h"
#include "sylva/impls/table.h"

namespace sylva::impls {

namespace {

// Nodes with at least this many cases spread their work over the threads.
constexpr std::size_t wide_cases = 1 << 15;
// Continuous attributes with so few values that a node sorting them is small
// get no sorted list: their runs come from a table of the node's cases.
constexpr unsigned few_values = 341;

bool distinct_rows(const table* t, const w_sequence& cases) {
  bool ascending = true;
  for (size_t i = 1; i < cases.size() && ascending; ++i) ascending = cases[i - 1].first < cases[i].first;
  if (ascending) return true;
  std::vector<bool> seen(t->get_no_rows(), false);
  for (const w_pair& p : cases) {
    if (p.first >= seen.size() || seen[p.first]) return false;
    seen[p.first] = true;
  }
  return true;
}

}  // namespace

namespace {

// All rows with the table's weights: whole, and below 2^24 in all unless
// every weight is 1.
bool whole_table_weights(const table* t) {
  const std::vector<float> by_code = t->weights_by_code();
  if (by_code.empty()) return true;
  std::vector<std::uint64_t> rows(by_code.size(), 0);
  whole::with_codes(whole::code_source::of(*t->get_weights()), [&](auto codes) {
    for (unsigned r = 0; r < t->get_no_rows(); ++r) ++rows[codes[r]];
  });
  bool unit = true;
  double total = 0;
  for (size_t code = 0; code < by_code.size(); ++code) {
    if (rows[code] == 0) continue;
    const float w = by_code[code];
    if (!(w >= 0) || w != std::floor(w) || w > 4294967295.0f) return false;
    unit = unit && w == 1.0f;
    total += static_cast<double>(w) * static_cast<double>(rows[code]);
  }
  return unit || total < static_cast<double>(whole_sums::limit);
}

}  // namespace

bool whole_weight_build(const table* t, const w_sequence* list) {
  const column* cls = t->get_class();
  if (!cls || (list ? list->empty() : t->get_no_rows() == 0)) return false;
  if (t->get_weights() && whole::code_source::of(*t->get_weights()).kind == whole::code_source::none) return false;
  const whole::code_source k = whole::code_source::of(*cls);
  if (k.kind != whole::code_source::u8 && k.kind != whole::code_source::u16) return false;
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) {
    const column* c = t->get_attribute(a);
    if (c->is_discrete() && c->get_o_set()->size_of_known() > 65536) return false;
  }
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) {
    const column* c = t->get_attribute(a);
    if ((c->is_discrete() || c->is_continuous()) && c->get_o_set()->contains_null()) return false;
  }
  if (!list) return whole_table_weights(t);
  bool unit = true;
  double total = 0;
  for (const w_pair& p : *list) {
    const float w = p.second;
    if (!(w >= 0) || w != std::floor(w) || w > 4294967295.0f) return false;
    unit = unit && w == 1.0f;
    total += w;
  }
  if (!unit && total >= static_cast<double>(whole_sums::limit)) return false;
  return distinct_rows(t, *list);
}

namespace whole {

template <class Klass>
engine<Klass>::engine(const table* t, const w_sequence* cases, const growth_settings& s, const Klass* classes)
    : table_(t), settings_(s), classes_(classes), width_(t->get_class()->get_distinct()),
      attributes_(t->get_no_attributes()), pool_(s.threads > 1 ? static_cast<unsigned>(s.threads) : 1),
      scratch_(pool_.size()), replay_(t, cases, s) {
  if (cases) {
    rows_.reserve(cases->size());
    bool unit = true;
    for (const w_pair& p : *cases) {
      rows_.push_back(p.first);
      unit = unit && p.second == 1.0f;
    }
    if (!unit) {
      weights_.assign(t->get_no_rows(), 0);
      for (const w_pair& p : *cases) weights_[p.first] = static_cast<std::uint32_t>(p.second);
    }
  } else {
    rows_.resize(t->get_no_rows());
    for (std::uint32_t r = 0; r < rows_.size(); ++r) rows_[r] = r;
    const std::vector<float> by_code = t->weights_by_code();
    bool unit = true;
    for (float w : by_code) unit = unit && w == 1.0f;
    if (!unit) {
      weights_.resize(t->get_no_rows());
      with_codes(code_source::of(*t->get_weights()), [&](auto codes) {
        for (std::uint32_t r = 0; r < rows_.size(); ++r) weights_[r] = static_cast<std::uint32_t>(by_code[codes[r]]);
      });
    }
  }
  for (unsigned a = 0; a < attributes_; ++a) codes_.push_back(code_source::of(*t->get_attribute(a)));
  unsigned branches = 2;
  for (unsigned a = 0; a < attributes_; ++a)
    if (t->get_attribute(a)->is_discrete())
      branches = std::max(branches, t->get_attribute(a)->get_o_set()->size_of_known());
  if (branches <= 256)
    child_of_.resize(t->get_no_rows());
  else
    wide_child_of_.resize(t->get_no_rows());
  // Each kept list is sorted once, by counting its codes; cases of one value
  // keep the order of rows_ (any order would do).
  lists_.resize(attributes_);
  pool_.for_each_index(attributes_, [&](size_t a) {
    const column* c = t->get_attribute(static_cast<unsigned>(a));
    const unsigned values = c->get_o_set()->size_of_known();
    if (!c->is_continuous() || values <= few_values || codes_[a].kind == code_source::none) return;
    std::vector<std::size_t> at(static_cast<size_t>(values) + 2, 0);
    with_codes(codes_[a], [&](auto codes) {
      for (std::uint32_t row : rows_) ++at[codes[row] + 1];
      for (size_t v = 1; v < at.size(); ++v) at[v] += at[v - 1];
      std::vector<std::uint32_t>& list = lists_[a];
      list.resize(rows_.size());
      for (std::uint32_t row : rows_) list[at[codes[row]]++] = row;
    });
  });
}

template <class Klass>
void engine<Klass>::grow(_decision_tree* root) {
  tarn::util::progress_scope report(settings_.progress, tarn::util::progress::GROWING);
  report_ = &report;
  open_cases_ = rows_.size();
  open_node r;
  r.subtree = root;
  r.end = rows_.size();
  for (unsigned a = 0; a < attributes_; ++a) r.ranges.push_back(table_->get_attribute(a)->get_range());
  std::vector<open_node> frontier, narrow;
  frontier.push_back(std::move(r));
  while (!frontier.empty()) {
    std::vector<open_node> wide, next;
    for (open_node& x : frontier) {
      if (pool_.size() > 1 && x.end - x.begin >= wide_cases)
        wide.push_back(std::move(x));
      else
        narrow.push_back(std::move(x));
    }
    if (!wide.empty()) split_level(wide, next);
    frontier = std::move(next);
  }
  grow_narrow(std::move(narrow));
}

// Subtrees depth first, one thread each; a thread whose stack holds more
// than one node gives the oldest away while another thread waits for work.
template <class Klass>
void engine<Klass>::grow_narrow(std::vector<open_node> nodes) {
  std::mutex mutex;
  std::condition_variable wake;
  std::vector<open_node> shared = std::move(nodes);
  unsigned waiting = 0;
  std::atomic<unsigned> hungry{0};
  bool done = false;
  const unsigned threads = pool_.size();
  pool_.run([&](unsigned thread) {
    std::vector<open_node> mine;
    try {
      for (;;) {
        if (mine.empty()) {
          std::unique_lock<std::mutex> lock(mutex);
          ++waiting;
          ++hungry;
          while (shared.empty() && !done) {
            if (waiting == threads) {
              done = true;
              wake.notify_all();
              break;
            }
            wake.wait(lock);
          }
          --waiting;
          --hungry;
          if (shared.empty()) return;
          mine.push_back(std::move(shared.back()));
          shared.pop_back();
        }
        open_node x = std::move(mine.back());
        mine.pop_back();
        split_node(x, mine, scratch_[thread]);
        if (hungry > 0 && mine.size() > 1) {
          std::lock_guard<std::mutex> lock(mutex);
          shared.push_back(std::move(mine.front()));
          mine.erase(mine.begin());
          wake.notify_one();
        }
      }
    } catch (...) {
      std::lock_guard<std::mutex> lock(mutex);
      done = true;
      shared.clear();
      wake.notify_all();
      throw;
    }
  });
}

}  // namespace whole

void grow_whole_weights(_decision_tree* root, const table* t, const w_sequence* cases, const growth_settings& s) {
  const whole::code_source k = whole::code_source::of(*t->get_class());
  if (k.kind == whole::code_source::u8)
    return whole::engine<std::uint8_t>(t, cases, s, static_cast<const std::uint8_t*>(k.data)).grow(root);
  whole::engine<std::uint16_t>(t, cases, s, static_cast<const std::uint16_t*>(k.data)).grow(root);
}

}  // namespace sylva::impls

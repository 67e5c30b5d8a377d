// Whole-weight growth, one node: statistics, the measure of each attribute,
// the decision, and the stable split of the node's segments into its
// children's. The measures produce the very descriptions the case-by-case
// measures produce (the same tables, formulas and float sums).

#include <algorithm>
#include <chrono>
#include <mutex>
#include <limits>
#include <memory>

#include "sylva/impls/grow_whole_engine.h"
#include "sylva/impls/run_scan.h"
#include "sylva/impls/table.h"

namespace sylva::impls::whole {

code_source code_source::of(const column& c) {
  if (auto* p = dynamic_cast<const column_typed<unsigned char>*>(&c)) return {u8, p->data()};
  if (auto* p = dynamic_cast<const column_typed<unsigned short>*>(&c)) return {u16, p->data()};
  if (auto* p = dynamic_cast<const column_typed<unsigned int>*>(&c)) return {u32, p->data()};
  if (auto* p = dynamic_cast<const column_typed<unsigned long long>*>(&c)) return {u64, p->data()};
  if (auto* p = dynamic_cast<const column_bool*>(&c)) return {bits, p->bits().data()};
  return {};
}

namespace {

constexpr size_t gather_block = 256;

// A table built by any sum order holds what summing case by case gives.
void to_floats(const std::vector<std::int64_t>& weights, std::vector<float>& table) {
  table.resize(weights.size());
  for (size_t k = 0; k < weights.size(); ++k) table[k] = whole_sums::add(0.0f, weights[k]);
}

}  // namespace

template <class Klass>
std::vector<float> engine<Klass>::statistics(const open_node& x) const {
  std::vector<std::int64_t> by_class(width_, 0);
  for (size_t i = x.begin; i < x.end; ++i) by_class[classes_[rows_[i]]] += weight(rows_[i]);
  std::vector<float> distribution;
  to_floats(by_class, distribution);
  return distribution;
}

template <class Klass>
bool engine<Klass>::measure(const open_node& x, unsigned a, const std::vector<float>& distribution, float total,
                            column::splitting_desc& out, scratch& sc) const {
  const column* c = table_->get_attribute(a);
  out = column::splitting_desc();
  out.col = c;
  const index_range& r = x.ranges[a];
  if (r.second - r.first <= 1 || codes_[a].kind == code_source::none) {
    out.fail();
  } else if (c->is_discrete()) {
    out.branches = c->get_o_set()->size_of_known();
    by_table(x, a, distribution, total, out, sc);
  } else if (!c->is_continuous() || codes_[a].kind == code_source::bits) {
    out.fail();
  } else {
    out.branches = 2;
    if (!split_rules::by_value_counts(x.end - x.begin, r.second - r.first))
      return by_runs(x, a, distribution, total, out, sc);
    by_table(x, a, distribution, total, out, sc);
  }
  return true;
}

// The class table of the discrete and the value-count measures: weights per
// value slot and class.
template <class Klass>
void engine<Klass>::by_table(const open_node& x, unsigned a, const std::vector<float>& distribution, float total,
                             column::splitting_desc& out, scratch& sc) const {
  const index_range& r = x.ranges[a];
  const unsigned slots = r.second - r.first + 1, base = r.first - 1;
  sc.weights.assign(static_cast<size_t>(slots) * width_, 0);
  with_codes(codes_[a], [&](auto codes) {
    for (size_t i = x.begin; i < x.end; ++i) {
      const std::uint32_t row = rows_[i];
      sc.weights[(codes[row] - base) * width_ + classes_[row]] += weight(row);
    }
  });
  to_floats(sc.weights, sc.table);
  const float min_obj = settings_.min_obj;
  if (table_->get_attribute(a)->is_discrete())
    return discrete_from_table(sc.table.data(), distribution.data(), 0.0f, total, slots, width_, min_obj, out);
  std::vector<float> right = distribution;
  value_count_walk(sc.table.data(), right, 0.0f, total, slots, width_, r.first, x.end - x.begin, min_obj,
                   settings_.opts, out);
}

// The sorting measure over the node's values in ascending order: from the
// attribute's sorted list, or for a narrow range from a table of cases per
// value and class.
template <class Klass>
bool engine<Klass>::by_runs(const open_node& x, unsigned a, const std::vector<float>& distribution, float total,
                            column::splitting_desc& out, scratch& sc) const {
  const size_t n = x.end - x.begin;
  const index_range& r = x.ranges[a];
  const unsigned slots = r.second - r.first + 1, base = r.first - 1;
  run_scanner scan(distribution, total, settings_.min_obj);
  value_run run;

  if (!keeps_list(a) || static_cast<size_t>(slots) * width_ <= 4 * n + 64) {
    sc.weights.assign(static_cast<size_t>(slots) * width_, 0);
    sc.cases.assign(static_cast<size_t>(slots) * width_, 0);
    with_codes(codes_[a], [&](auto codes) {
      for (size_t i = x.begin; i < x.end; ++i) {
        const std::uint32_t row = rows_[i];
        const size_t k = (codes[row] - base) * width_ + classes_[row];
        sc.weights[k] += weight(row);
        ++sc.cases[k];
      }
    });
    for (unsigned s = 1; s < slots; ++s) {
      const std::int64_t* w = &sc.weights[static_cast<size_t>(s) * width_];
      const std::uint32_t* c = &sc.cases[static_cast<size_t>(s) * width_];
      if (value_run::of_classes(run, s + base, w, c, width_) == 0) continue;
      if (!scan.push(run)) break;
    }
  } else {
    const std::vector<std::uint32_t>& list = lists_[a];
    // The sorted list visits rows in no useful order: codes, classes and
    // weights are gathered a block at a time, so that the loads overlap; a
    // block ends where a value ends.
    std::vector<unsigned>& code_of = sc.block_codes;
    std::vector<unsigned>& class_of = sc.block_classes;
    std::vector<std::uint32_t>& weight_of = sc.block_weights;
    with_codes(codes_[a], [&](auto codes) {
      for (size_t i = x.begin; i < x.end;) {
        size_t end = std::min(x.end - i, gather_block);
        code_of.resize(end);
        for (size_t k = 0; k < end; ++k) code_of[k] = codes[list[i + k]];
        if (i + end < x.end) {
          size_t cut = end;
          while (cut > 0 && code_of[cut - 1] == codes[list[i + cut]]) --cut;
          if (cut == 0) {  // one value fills the block: take its run to its end
            while (i + end < x.end && codes[list[i + end]] == code_of[0]) ++end;
            code_of.resize(end, code_of[0]);
          } else {
            end = cut;
          }
        }
        class_of.resize(end);
        for (size_t k = 0; k < end; ++k) class_of[k] = classes_[list[i + k]];
        if (!weights_.empty()) {
          weight_of.resize(end);
          for (size_t k = 0; k < end; ++k) weight_of[k] = weights_[list[i + k]];
        }
        if (!scan.push_block(code_of.data(), class_of.data(), weights_.empty() ? nullptr : weight_of.data(), end))
          break;
        i += end;
      }
    });
  }
  return scan.finish(n, settings_.opts, out);
}

template <class Klass>
void engine<Klass>::account(const open_node& x, const std::vector<open_node>& next, std::size_t before,
                            double seconds) {
  if (settings_.profile) settings_.profile->add(x.depth, seconds, x.end - x.begin);
  std::uint64_t carved = 0;
  for (size_t i = before; i < next.size(); ++i) carved += next[i].end - next[i].begin;
  open_ += next.size() - before;
  open_cases_ += carved;
  const std::uint64_t open = --open_, open_cases = open_cases_ -= x.end - x.begin, grown = ++grown_;
  // A report costs the observer a clock read and a lock: one per 64 nodes,
  // and one for each large node, are plenty for a line redrawn ten times a
  // second.
  if (report_ && (grown % 64 == 0 || x.end - x.begin >= 4096))
    report_->growing(grown, open, static_cast<double>(open_cases));
}

template <class Klass>
void engine<Klass>::split_node(open_node& x, std::vector<open_node>& next, scratch& sc) {
  const auto started = std::chrono::steady_clock::now();
  const std::size_t before = next.size();
  std::vector<float> distribution;
  if (open(x, distribution)) {
    std::vector<column::splitting_desc> descs(attributes_);
    const float total = x.subtree->get_node()->get_cases_weight();
    bool decided = !replayed(x);
    for (unsigned a = 0; a < attributes_ && decided; ++a) decided = measure(x, a, distribution, total, descs[a], sc);
    if (!decided) descs = replay_.measure(x.subtree->get_node());
    carving plan;
    if (decide(x, descs, plan)) {
      for (unsigned l : plan.lists) move_list(l == attributes_ ? rows_ : lists_[l], x, plan.starts, sc.moved);
      carve(x, plan, next);
    }
  }
  account(x, next, before, std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
}

template <class Klass>
bool engine<Klass>::open(const open_node& x, std::vector<float>& distribution) {
  _decision_node* node = x.subtree->get_node();
  distribution = statistics(x);
  node->set_statistics(distribution, static_cast<unsigned>(x.end - x.begin), x.known_fract);
  return !node->begin_split(settings_.split_type, settings_.min_obj);
}

// The decision among the measured attributes; for a split, the branch of
// every row (in child_of_), the children's sizes, weights and code ranges,
// and the lists to carve.
template <class Klass>
bool engine<Klass>::decide(const open_node& x, std::vector<column::splitting_desc>& descs, carving& plan) {
  _decision_node* node = x.subtree->get_node();
  if (node->finish_split(descs) != decision_tree_types::SPLIT_NODE) return false;
  const unsigned s = node->get_split_attribute_index(), branches = node->get_no_of_splits();
  const column* col = table_->get_attribute(s);
  const bool discrete = col->is_discrete();
  const unsigned t = discrete ? 0 : node->get_threshold().index_in(*col);
  plan.attribute = s;
  plan.discrete = discrete;
  plan.counts.assign(branches, 0);
  plan.weights.assign(branches, 0);
  plan.low.assign(branches, t);
  plan.high.assign(branches, t);
  with_codes(codes_[s], [&](auto codes) {
    for (size_t i = x.begin; i < x.end; ++i) {
      const std::uint32_t row = rows_[i];
      const unsigned code = codes[row];
      const unsigned b = discrete ? code - 1 : (code <= t ? 0 : 1);
      set_child(row, b);
      ++plan.counts[b];
      plan.weights[b] += weight(row);
      plan.low[b] = std::min(plan.low[b], code);
      plan.high[b] = std::max(plan.high[b], code);
    }
  });
  plan.starts.resize(branches);
  for (unsigned b = 0, at = 0; b < branches; at += static_cast<unsigned>(plan.counts[b]), ++b)
    plan.starts[b] = x.begin + at;
  // rows_ (named by the attribute count), and the sorted lists but for the
  // split attribute's own, which is in the children's order already.
  plan.lists.assign(1, attributes_);
  for (unsigned a = 0; a < attributes_; ++a)
    if (keeps_list(a) && !(a == s && !discrete)) plan.lists.push_back(a);
  return true;
}

template <class Klass>
void engine<Klass>::carve(open_node& x, const carving& plan, std::vector<open_node>& next) {
  _decision_node* node = x.subtree->get_node();
  const float total = node->get_cases_weight();
  for (unsigned b = 0; b < plan.counts.size(); ++b) {
    auto* child = new _decision_tree();
    child->set_node(new _decision_node(node, b + 1));
    x.subtree->push_back_child(child);
    open_node c;
    c.subtree = child;
    c.begin = plan.starts[b];
    c.end = plan.starts[b] + plan.counts[b];
    c.depth = x.depth + 1;
    c.known_fract = whole_sums::add(0.0f, plan.weights[b]) / (total - 0.0f);
    c.ranges = x.ranges;
    c.ranges[plan.attribute] = plan.discrete ? index_range(b + 1, b + 2) : index_range(plan.low[b], plan.high[b] + 1);
    next.push_back(std::move(c));
  }
}

// A level of large nodes at once: their statistics, their measures, their
// carving, each stage spread over the threads as (node, attribute) and
// (node, list) tasks, largest first.
template <class Klass>
void engine<Klass>::split_level(std::vector<open_node>& level, std::vector<open_node>& next) {
  const size_t nodes = level.size();
  std::vector<std::vector<float>> distribution(nodes);
  std::vector<char> splitting(nodes);
  std::vector<double> seconds(nodes, 0.0);
  std::vector<std::mutex> held(nodes);
  auto timed = [&](size_t i, auto&& f) {
    const auto started = std::chrono::steady_clock::now();
    f();
    const double d = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::lock_guard<std::mutex> lock(held[i]);
    seconds[i] += d;
  };
  pool_.for_each_index(nodes, [&](size_t i) { timed(i, [&] { splitting[i] = open(level[i], distribution[i]); }); });
  // Undecided nodes are measured as growth by sorting measures them; their
  // other measures are skipped.
  std::unique_ptr<std::atomic<bool>[]> undecided(new std::atomic<bool>[nodes]);
  for (size_t i = 0; i < nodes; ++i) undecided[i] = splitting[i] && replayed(level[i]);

  std::vector<std::vector<column::splitting_desc>> descs(nodes, std::vector<column::splitting_desc>(attributes_));
  std::vector<std::pair<size_t, unsigned>> tasks;
  for (size_t i = 0; i < nodes; ++i)
    for (unsigned a = 0; splitting[i] && a < attributes_; ++a) tasks.emplace_back(i, a);
  // Sorting measures and larger nodes first, so that no thread is left with
  // a long task at the end.
  auto cost = [&](const std::pair<size_t, unsigned>& t) {
    return (level[t.first].end - level[t.first].begin) * (keeps_list(t.second) ? 4 : 1);
  };
  std::stable_sort(tasks.begin(), tasks.end(), [&](const auto& p, const auto& q) { return cost(p) > cost(q); });
  std::atomic<size_t> next_task{0};
  pool_.run([&](unsigned thread) {
    for (size_t k = next_task++; k < tasks.size(); k = next_task++) {
      const size_t i = tasks[k].first;
      const unsigned a = tasks[k].second;
      if (undecided[i]) continue;
      timed(i, [&] {
        if (!measure(level[i], a, distribution[i], level[i].subtree->get_node()->get_cases_weight(), descs[i][a],
                     scratch_[thread]))
          undecided[i] = true;
      });
    }
  });
  for (size_t i = 0; i < nodes; ++i)
    if (undecided[i]) timed(i, [&] { descs[i] = replay_.measure(level[i].subtree->get_node()); });

  std::vector<carving> plans(nodes);
  std::vector<char> carved(nodes, 0);
  pool_.for_each_index(nodes, [&](size_t i) {
    if (splitting[i]) timed(i, [&] { carved[i] = decide(level[i], descs[i], plans[i]); });
  });
  std::vector<std::pair<size_t, unsigned>> moves;
  for (size_t i = 0; i < nodes; ++i)
    for (unsigned l : plans[i].lists)
      if (carved[i]) moves.emplace_back(i, l);
  std::stable_sort(moves.begin(), moves.end(), [&](const auto& p, const auto& q) {
    return level[p.first].end - level[p.first].begin > level[q.first].end - level[q.first].begin;
  });
  next_task = 0;
  pool_.run([&](unsigned thread) {
    for (size_t k = next_task++; k < moves.size(); k = next_task++) {
      const size_t i = moves[k].first;
      const unsigned l = moves[k].second;
      timed(i, [&] { move_list(l == attributes_ ? rows_ : lists_[l], level[i], plans[i].starts, scratch_[thread].moved); });
    }
  });
  for (size_t i = 0; i < nodes; ++i) {
    const size_t before = next.size();
    if (carved[i]) carve(level[i], plans[i], next);
    account(level[i], next, before, seconds[i]);
  }
}

// The larger of the first and the last child stays in place: the list is
// walked from that end, its entries close up towards that end (never
// overtaking an entry still to be read), and only the other children's
// entries pass through the scratch space.
template <class Klass>
void engine<Klass>::move_list(std::vector<std::uint32_t>& list, const open_node& x,
                              const std::vector<std::size_t>& starts, std::vector<std::uint32_t>& moved) const {
  const unsigned last = static_cast<unsigned>(starts.size()) - 1;
  const size_t first_size = (last > 0 ? starts[1] : x.end) - x.begin, last_size = x.end - starts[last];
  std::uint32_t* at = list.data();
  if (first_size >= last_size) {
    // Forward: child 0 stays; the others go to moved[0 .. n - first_size).
    const size_t rest = starts.size() > 1 ? starts[1] : x.end;
    moved.resize(x.end - rest);
    std::vector<std::size_t> put(starts);
    size_t keep = x.begin;
    for (size_t i = x.begin; i < x.end; ++i) {
      const std::uint32_t row = at[i];
      const unsigned b = child(row);
      if (b == 0)
        at[keep++] = row;
      else
        moved[put[b]++ - rest] = row;
    }
    std::copy(moved.begin(), moved.end(), list.begin() + static_cast<std::ptrdiff_t>(rest));
  } else {
    // Backward: the last child stays; the others fill moved from their ends.
    const size_t front = starts[last];
    moved.resize(front - x.begin);
    std::vector<std::size_t> put(starts.size());
    for (unsigned b = 0; b < last; ++b) put[b] = starts[b + 1];
    size_t keep = x.end;
    for (size_t i = x.end; i-- > x.begin;) {
      const std::uint32_t row = at[i];
      const unsigned b = child(row);
      if (b == last)
        at[--keep] = row;
      else
        moved[--put[b] - x.begin] = row;
    }
    std::copy(moved.begin(), moved.end(), list.begin() + static_cast<std::ptrdiff_t>(x.begin));
  }
}

// The members defined here, for both widths of class codes.
#define ARBOR_WHOLE_NODE(K)                                                                                      \
  template std::vector<float> engine<K>::statistics(const open_node&) const;                                    \
  template void engine<K>::split_node(open_node&, std::vector<open_node>&, scratch&);                          \
  template void engine<K>::split_level(std::vector<open_node>&, std::vector<open_node>&);
ARBOR_WHOLE_NODE(std::uint8_t)
ARBOR_WHOLE_NODE(std::uint16_t)
#undef ARBOR_WHOLE_NODE

}  // namespace sylva::impls::whole

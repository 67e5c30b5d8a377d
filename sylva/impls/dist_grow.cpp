// Distributed whole-weight growth: which builds qualify, the engine's set-up
// and the level loop, the count tables, and the carving of rows.

#include <algorithm>
#include <cmath>

#include "sylva/impls/dist_grow_engine.h"
#include "sylva/impls/quality_measure.h"
#include "sylva/impls/run_scan.h"
#include "sylva/impls/table.h"

namespace sylva::impls::dist {

namespace {

// Continuous attributes with so few values get no sorted list: a node's
// runs come from a table of its cases per value and class.
constexpr unsigned few_values = 341;
// Owners' ranges are cut from a histogram of at most this many buckets.
constexpr unsigned histogram_buckets = 1u << 16;

}  // namespace

bool whole_weight_build(communicator& comm, const shard& s, const w_sequence* cases) {
  const table* t = s.rows.get();
  const column* cls = t->get_class();
  if (!cls) return false;
  const whole::code_source k = whole::code_source::of(*cls);
  bool ok = (k.kind == whole::code_source::u8 || k.kind == whole::code_source::u16) &&
            !(t->get_weights() && whole::code_source::of(*t->get_weights()).kind == whole::code_source::none);
  for (unsigned a = 0; a < t->get_no_attributes() && ok; ++a) {
    const column* c = t->get_attribute(a);
    if (c->is_discrete() && c->get_o_set()->size_of_known() > 65536) ok = false;
    if ((c->is_discrete() || c->is_continuous()) && c->get_o_set()->contains_null()) ok = false;
  }
  // The weights: whole, and below 2^24 in all unless every weight is 1.
  bool unit = true;
  double total = 0;
  std::uint64_t count = 0;
  auto take = [&](float w) {
    if (!(w >= 0) || w != std::floor(w) || w > 4294967295.0f) ok = false;
    unit = unit && w == 1.0f;
    total += w;
  };
  if (ok && cases) {
    for (const w_pair& p : *cases) take(p.second);
    count = cases->size();
  } else if (ok) {
    const std::vector<float> by_code = t->weights_by_code();
    count = t->get_no_rows();
    if (!by_code.empty())
      whole::with_codes(whole::code_source::of(*t->get_weights()), [&](auto codes) {
        for (unsigned r = 0; r < t->get_no_rows(); ++r) take(by_code[codes[r]]);
      });
  }
  ok = comm.all(ok);
  unit = comm.all(unit);
  std::vector<std::int64_t> sums{static_cast<std::int64_t>(std::llround(total)), static_cast<std::int64_t>(count)};
  comm.sum(sums);
  return ok && (unit || sums[0] < whole_sums::limit);
}

whole_engine::whole_engine(communicator& comm, const shard& s, const w_sequence* cases,
                           const grow_settings& settings)
    : comm_(comm), table_(s.rows.get()), settings_(settings),
      width_(s.rows->get_class()->get_distinct()), attributes_(s.rows->get_no_attributes()),
      pool_(std::max(1u, settings.threads)) {
  const table* t = table_;
  const unsigned n = t->get_no_rows();
  classes_.resize(n);
  whole::with_codes(code_source::of(*t->get_class()), [&](auto codes) {
    for (unsigned r = 0; r < n; ++r) classes_[r] = static_cast<std::uint16_t>(codes[r]);
  });
  if (cases) {
    for (const w_pair& p : *cases) {
      rows_.push_back(p.first);
      unit_ = unit_ && p.second == 1.0f;
    }
    if (!comm_.all(unit_)) {
      unit_ = false;
      weights_.assign(n, 0);
      for (const w_pair& p : *cases) weights_[p.first] = static_cast<std::uint32_t>(p.second);
    }
  } else {
    rows_.resize(n);
    for (std::uint32_t r = 0; r < n; ++r) rows_[r] = r;
    const std::vector<float> by_code = t->weights_by_code();
    for (float w : by_code) unit_ = unit_ && w == 1.0f;
    if (!unit_) {
      weights_.resize(n);
      whole::with_codes(code_source::of(*t->get_weights()), [&](auto codes) {
        for (std::uint32_t r = 0; r < n; ++r) weights_[r] = static_cast<std::uint32_t>(by_code[codes[r]]);
      });
    }
  }
  for (unsigned a = 0; a < attributes_; ++a) codes_.push_back(code_source::of(*t->get_attribute(a)));
  child_of_.resize(n);
  lists_.resize(attributes_);
  listed_.assign(attributes_, 0);
  for (unsigned a = 0; a < attributes_; ++a) {
    const column* c = t->get_attribute(a);
    const unsigned values = c->get_o_set()->size_of_known();
    if (!c->is_continuous() || values <= few_values || codes_[a].kind == code_source::none ||
        codes_[a].kind == code_source::bits)
      continue;
    listed_[a] = 1;
    std::vector<std::size_t> at(static_cast<size_t>(values) + 2, 0);
    whole::with_codes(codes_[a], [&](auto codes) {
      for (std::uint32_t row : rows_) ++at[codes[row] + 1];
      for (size_t v = 1; v < at.size(); ++v) at[v] += at[v - 1];
      std::vector<std::uint32_t>& list = lists_[a];
      list.resize(rows_.size());
      for (std::uint32_t row : rows_) list[at[codes[row]]++] = row;
    });
  }
  choose_owners();
}

// Each rank scans a range of every continuous attribute's codes; the ranges
// hold about equal numbers of the training cases.
void whole_engine::choose_owners() {
  const unsigned k = static_cast<unsigned>(comm_.size());
  bounds_.assign(attributes_, {});
  std::vector<unsigned> measured;
  std::vector<std::int64_t> histogram;
  for (unsigned a = 0; a < attributes_; ++a) {
    const column* c = table_->get_attribute(a);
    if (!c->is_continuous() || codes_[a].kind == code_source::none || codes_[a].kind == code_source::bits) continue;
    measured.push_back(a);
  }
  auto buckets = [&](unsigned a) {
    return std::min(table_->get_attribute(a)->get_o_set()->size_of_known() + 1, histogram_buckets);
  };
  auto bucket_of = [&](unsigned a, unsigned code) {
    const std::uint64_t values = table_->get_attribute(a)->get_o_set()->size_of_known() + 1;
    return static_cast<unsigned>(static_cast<std::uint64_t>(code) * buckets(a) / values);
  };
  std::vector<std::size_t> offset;
  for (unsigned a : measured) {
    offset.push_back(histogram.size());
    histogram.resize(histogram.size() + buckets(a), 0);
  }
  for (size_t i = 0; i < measured.size(); ++i) {
    const unsigned a = measured[i];
    whole::with_codes(codes_[a], [&](auto codes) {
      for (std::uint32_t row : rows_) ++histogram[offset[i] + bucket_of(a, codes[row])];
    });
  }
  comm_.sum(histogram);
  for (size_t i = 0; i < measured.size(); ++i) {
    const unsigned a = measured[i], b = buckets(a);
    const std::uint64_t values = table_->get_attribute(a)->get_o_set()->size_of_known() + 1;
    std::int64_t total = 0;
    for (unsigned j = 0; j < b; ++j) total += histogram[offset[i] + j];
    std::vector<unsigned>& bounds = bounds_[a];
    bounds.assign(k + 1, 0);
    bounds[k] = static_cast<unsigned>(values);
    std::int64_t seen = 0;
    unsigned r = 1;
    for (unsigned j = 0; j < b && r < k; ++j) {
      seen += histogram[offset[i] + j];
      // Bucket j ends before the first code of bucket j + 1.
      while (r < k && seen * static_cast<std::int64_t>(k) >= total * static_cast<std::int64_t>(r)) {
        const std::uint64_t next = ((static_cast<std::uint64_t>(j) + 1) * values + b - 1) / b;
        bounds[r++] = static_cast<unsigned>(std::min<std::uint64_t>(next, values));
      }
    }
    while (r < k) bounds[r++] = static_cast<unsigned>(values);
  }
}

unsigned whole_engine::owner_of(unsigned a, unsigned code) const {
  const std::vector<unsigned>& b = bounds_[a];
  return static_cast<unsigned>(std::upper_bound(b.begin() + 1, b.end() - 1, code) - (b.begin() + 1));
}

std::vector<float> whole_engine::to_floats(const std::int64_t* w, std::size_t n) const {
  std::vector<float> out(n);
  for (size_t i = 0; i < n; ++i) out[i] = whole_sums::add(0.0f, w[i]);
  return out;
}

void whole_engine::grow(_decision_tree* root, level_traffic* traffic) {
  level_node r;
  r.subtree = root;
  r.end = rows_.size();
  r.by_class.assign(width_, 0);
  for (std::uint32_t row : rows_) r.by_class[classes_[row]] += weight(row);
  std::vector<std::int64_t> global = r.by_class;
  global.push_back(static_cast<std::int64_t>(rows_.size()));
  comm_.sum(global);
  r.count = static_cast<std::uint64_t>(global.back());
  global.pop_back();
  r.by_class = global;
  for (unsigned a = 0; a < attributes_; ++a) r.ranges.push_back(table_->get_attribute(a)->get_range());
  std::vector<level_node> level;
  level.push_back(std::move(r));
  while (!level.empty()) {
    const std::uint64_t before = comm_.bytes_sent();
    const unsigned depth = level.front().depth;
    const size_t open = level.size();
    std::vector<int> split;
    decide(level, split);
    level = partition(level, split);
    if (settings_.after_level) settings_.after_level();
    if (traffic) {
      if (traffic->bytes.size() <= depth) {
        traffic->bytes.resize(depth + 1, 0);
        traffic->nodes.resize(depth + 1, 0);
      }
      traffic->bytes[depth] += comm_.bytes_sent() - before;
      traffic->nodes[depth] += open;
    }
  }
}

void whole_engine::decide(std::vector<level_node>& level, std::vector<int>& split) {
  split.assign(level.size(), 0);
  std::vector<job> jobs;
  std::vector<std::vector<column::splitting_desc>> descs(level.size());
  size_t table_size = 0;
  for (unsigned i = 0; i < level.size(); ++i) {
    level_node& x = level[i];
    _decision_node* node = x.subtree->get_node();
    node->set_statistics(to_floats(x.by_class.data(), width_), static_cast<unsigned>(x.count), x.known_fract);
    if (node->begin_split(settings_.split_type, settings_.min_obj)) continue;
    split[i] = 1;
    descs[i].resize(attributes_);
    for (unsigned a = 0; a < attributes_; ++a) {
      const column* c = table_->get_attribute(a);
      column::splitting_desc& out = descs[i][a];
      out.col = c;
      const index_range& r = x.ranges[a];
      if (r.second - r.first <= 1 || codes_[a].kind == code_source::none) {
        out.fail();
        continue;
      }
      job j;
      j.node = i;
      j.attr = a;
      if (c->is_discrete()) {
        out.branches = c->get_o_set()->size_of_known();
        j.kind = job::counts;
      } else if (c->is_continuous() && codes_[a].kind != code_source::bits) {
        out.branches = 2;
        j.kind = split_rules::by_value_counts(x.count, r.second - r.first) ? job::counts : job::runs;
      } else {
        out.fail();
        continue;
      }
      if (j.kind == job::counts) {
        j.offset = table_size;
        table_size += static_cast<size_t>(r.second - r.first + 1) * width_;
      }
      jobs.push_back(j);
    }
  }
  std::vector<job> counted, scanned;
  for (const job& j : jobs) (j.kind == job::counts ? counted : scanned).push_back(j);
  measure_counts(level, counted, descs);
  measure_runs(level, scanned, descs);
  for (unsigned i = 0; i < level.size(); ++i) {
    if (!split[i]) continue;
    _decision_node* node = level[i].subtree->get_node();
    split[i] = node->finish_split(descs[i]) == decision_tree_types::SPLIT_NODE;
  }
}

// The discrete and value-count measures: every node's class table per value
// slot, summed over the ranks in one reduction.
void whole_engine::measure_counts(const std::vector<level_node>& level, const std::vector<job>& jobs,
                                  std::vector<std::vector<column::splitting_desc>>& descs) {
  size_t size = 0;
  for (const job& j : jobs) {
    const index_range& r = level[j.node].ranges[j.attr];
    size = std::max(size, j.offset + static_cast<size_t>(r.second - r.first + 1) * width_);
  }
  // Every rank has the same jobs: they follow from global counts alone.
  if (size > 0) {
    std::vector<std::int64_t> counts(size, 0);
    // Each job counts into its own part of the table.
    pool_.for_each_index(jobs.size(), [&](size_t k) {
      const job& j = jobs[k];
      const level_node& x = level[j.node];
      const unsigned base = x.ranges[j.attr].first - 1;
      std::int64_t* f = counts.data() + j.offset;
      whole::with_codes(codes_[j.attr], [&](auto codes) {
        for (size_t i = x.begin; i < x.end; ++i) {
          const std::uint32_t row = rows_[i];
          f[(codes[row] - base) * width_ + classes_[row]] += weight(row);
        }
      });
    });
    comm_.sum(counts);
    for (const job& j : jobs) {
      const level_node& x = level[j.node];
      const index_range& r = x.ranges[j.attr];
      const unsigned slots = r.second - r.first + 1;
      const std::vector<float> f = to_floats(counts.data() + j.offset, static_cast<size_t>(slots) * width_);
      _decision_node* node = x.subtree->get_node();
      const std::vector<float>& distribution = node->get_class_distribution();
      const float total = node->get_cases_weight();
      column::splitting_desc& out = descs[j.node][j.attr];
      if (table_->get_attribute(j.attr)->is_discrete()) {
        discrete_from_table(f.data(), distribution.data(), 0.0f, total, slots, width_, settings_.min_obj, out);
      } else {
        std::vector<float> right = distribution;
        value_count_walk(f.data(), right, 0.0f, total, slots, width_, r.first, x.count, settings_.min_obj,
                         settings_.opts, out);
      }
    }
  }
}

void whole_engine::move_list(std::vector<std::uint32_t>& list, const level_node& x,
                             const std::vector<std::size_t>& starts) {
  std::vector<std::size_t> at(starts);
  scratch_moved_.resize(x.end - x.begin);
  for (size_t i = x.begin; i < x.end; ++i) scratch_moved_[at[child_of_[list[i]]]++ - x.begin] = list[i];
  std::copy(scratch_moved_.begin(), scratch_moved_.end(), list.begin() + static_cast<std::ptrdiff_t>(x.begin));
}

std::vector<level_node> whole_engine::partition(std::vector<level_node>& level, const std::vector<int>& split) {
  // Per branch of every split node: cases and whole weights per class (sum),
  // and the smallest and largest code (min of code and of -code).
  std::vector<std::int64_t> sums, extremes;
  std::vector<std::size_t> first_branch(level.size(), 0);
  std::vector<std::vector<std::size_t>> starts(level.size());
  const size_t stride = width_ + 1;
  for (unsigned i = 0; i < level.size(); ++i) {
    if (!split[i]) continue;
    level_node& x = level[i];
    _decision_node* node = x.subtree->get_node();
    const unsigned s = node->get_split_attribute_index(), branches = node->get_no_of_splits();
    const column* col = table_->get_attribute(s);
    const bool discrete = col->is_discrete();
    const unsigned t = discrete ? 0 : node->get_threshold().index_in(*col);
    first_branch[i] = sums.size() / stride;
    const size_t base = sums.size(), ext = extremes.size();
    sums.resize(base + branches * stride, 0);
    extremes.resize(ext + 2 * branches, 0);
    for (unsigned b = 0; b < branches; ++b) {
      extremes[ext + 2 * b] = t;
      extremes[ext + 2 * b + 1] = -static_cast<std::int64_t>(t);
    }
    std::vector<std::size_t> counts(branches, 0);
    whole::with_codes(codes_[s], [&](auto codes) {
      for (size_t k = x.begin; k < x.end; ++k) {
        const std::uint32_t row = rows_[k];
        const unsigned code = codes[row];
        const unsigned b = discrete ? code - 1 : (code <= t ? 0 : 1);
        child_of_[row] = static_cast<std::uint16_t>(b);
        ++counts[b];
        std::int64_t* branch = &sums[base + b * stride];
        ++branch[0];
        branch[1 + classes_[row]] += weight(row);
        extremes[ext + 2 * b] = std::min<std::int64_t>(extremes[ext + 2 * b], code);
        extremes[ext + 2 * b + 1] = std::min<std::int64_t>(extremes[ext + 2 * b + 1], -static_cast<std::int64_t>(code));
      }
    });
    starts[i].resize(branches);
    for (unsigned b = 0, at = 0; b < branches; at += static_cast<unsigned>(counts[b]), ++b)
      starts[i][b] = x.begin + at;
    move_list(rows_, x, starts[i]);
    for (unsigned a = 0; a < attributes_; ++a)
      if (listed_[a] && !(a == s && !discrete)) move_list(lists_[a], x, starts[i]);
  }
  comm_.sum(sums);
  comm_.min(extremes);

  std::vector<level_node> next;
  for (unsigned i = 0; i < level.size(); ++i) {
    if (!split[i]) continue;
    level_node& x = level[i];
    _decision_node* node = x.subtree->get_node();
    const unsigned s = node->get_split_attribute_index(), branches = node->get_no_of_splits();
    const bool discrete = table_->get_attribute(s)->is_discrete();
    const float total = node->get_cases_weight();
    for (unsigned b = 0; b < branches; ++b) {
      const std::int64_t* branch = &sums[(first_branch[i] + b) * stride];
      const std::int64_t* ext = &extremes[2 * (first_branch[i] + b)];
      auto* child = new _decision_tree();
      child->set_node(new _decision_node(node, b + 1));
      x.subtree->push_back_child(child);
      level_node c;
      c.subtree = child;
      c.begin = starts[i][b];
      c.end = b + 1 < branches ? starts[i][b + 1] : x.end;
      c.count = static_cast<std::uint64_t>(branch[0]);
      c.by_class.assign(branch + 1, branch + 1 + width_);
      std::int64_t weight = 0;
      for (unsigned y = 0; y < width_; ++y) weight += c.by_class[y];
      c.known_fract = whole_sums::add(0.0f, weight) / (total - 0.0f);
      c.depth = x.depth + 1;
      c.ranges = x.ranges;
      c.ranges[s] = discrete ? index_range(b + 1, b + 2)
                             : index_range(static_cast<unsigned>(ext[0]), static_cast<unsigned>(-ext[1]) + 1);
      next.push_back(std::move(c));
    }
  }
  return next;
}

void grow_whole(communicator& comm, _decision_tree* root, const shard& s, const w_sequence* cases,
                const grow_settings& settings, level_traffic* traffic) {
  whole_engine(comm, s, cases, settings).grow(root, traffic);
}

}  // namespace sylva::impls::dist

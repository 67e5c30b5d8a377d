#pragma once

// Internals of the whole-weight growth (grow_whole.h): the node segments,
// the sorted lists and the per-thread scratch space.

#include <atomic>
#include <cstdint>
#include <vector>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/grow_whole.h"
#include "sylva/impls/sorting_replay.h"
#include "tarn/util/task_pool.h"

namespace sylva::impls::whole {

// A column's codes, reached without a virtual call: the storage kind is
// looked up once, and each hot loop is instantiated per kind.
struct code_source {
  enum kind_t { none, u8, u16, u32, u64, bits } kind = none;
  const void* data = nullptr;
  static code_source of(const column& c);
};

template <class F>
void with_codes(const code_source& s, F&& f) {
  switch (s.kind) {
    case code_source::u8: return f(array_codes<unsigned char>{static_cast<const unsigned char*>(s.data)});
    case code_source::u16: return f(array_codes<unsigned short>{static_cast<const unsigned short*>(s.data)});
    case code_source::u32: return f(array_codes<unsigned int>{static_cast<const unsigned int*>(s.data)});
    case code_source::u64: return f(array_codes<unsigned long long>{static_cast<const unsigned long long*>(s.data)});
    case code_source::bits: return f(bit_codes{static_cast<const std::uint32_t*>(s.data)});
    case code_source::none: return;
  }
}

// A node waiting to be split: its cases are [begin, end) of every list.
struct open_node {
  _decision_tree* subtree = nullptr;
  std::size_t begin = 0, end = 0;
  unsigned depth = 0;
  float known_fract = 1.0f;
  std::vector<index_range> ranges;
};

// Working space of one thread, reused from node to node.
struct scratch {
  std::vector<std::int64_t> weights;
  std::vector<std::uint32_t> cases;
  std::vector<float> table;
  std::vector<std::uint32_t> moved;
  std::vector<unsigned> block_codes, block_classes;
  std::vector<std::uint32_t> block_weights;
};

template <class Klass>
class engine {
public:
  engine(const table* t, const w_sequence* cases, const growth_settings& s, const Klass* classes);
  void grow(_decision_tree* root);

private:
  // How a split node's cases go to its children: the branch of every row is
  // in child_of_; sizes, weights, code ranges and first positions per
  // branch; the lists to carve.
  struct carving {
    unsigned attribute = 0;
    bool discrete = false;
    std::vector<std::size_t> counts, starts;
    std::vector<std::int64_t> weights;
    std::vector<unsigned> low, high, lists;
  };

  // One node on the calling thread, with `sc`: statistics, measures,
  // decision; the children to grow next are appended to `next`.
  void split_node(open_node& x, std::vector<open_node>& next, scratch& sc);
  // A level of large nodes, each stage spread over the pool.
  void split_level(std::vector<open_node>& level, std::vector<open_node>& next);
  // The stages: statistics (false when the node stays a leaf), the
  // decision with its carving plan (false for a leaf), the children.
  bool open(const open_node& x, std::vector<float>& distribution);
  bool decide(const open_node& x, std::vector<column::splitting_desc>& descs, carving& plan);
  void carve(open_node& x, const carving& plan, std::vector<open_node>& next);
  std::vector<float> statistics(const open_node& x) const;
  // False when the measure cannot be decided from runs of values.
  bool measure(const open_node& x, unsigned a, const std::vector<float>& distribution, float total,
               column::splitting_desc& out, scratch& sc) const;
  void by_table(const open_node& x, unsigned a, const std::vector<float>& distribution, float total,
                column::splitting_desc& out, scratch& sc) const;
  bool by_runs(const open_node& x, unsigned a, const std::vector<float>& distribution, float total,
               column::splitting_desc& out, scratch& sc) const;
  // Whether a node is measured as growth by sorting measures it, from the
  // start (settings) or once a measure cannot be decided.
  bool replayed(const open_node& x) const { return x.depth >= settings_.replay_from_depth; }
  // Moves a list's part of the node into the children's parts, keeping the
  // order within each child; the children of the rows are in child_of_.
  void move_list(std::vector<std::uint32_t>& list, const open_node& x, const std::vector<std::size_t>& starts,
                 std::vector<std::uint32_t>& moved) const;
  void grow_narrow(std::vector<open_node> nodes);

  std::int64_t weight(std::uint32_t row) const { return weights_.empty() ? 1 : weights_[row]; }
  bool keeps_list(unsigned a) const { return !lists_[a].empty(); }

  const table* table_;
  growth_settings settings_;
  const Klass* classes_;
  unsigned width_, attributes_;
  std::vector<code_source> codes_;
  std::vector<std::uint32_t> rows_;                // every node's cases
  // Per attribute, the rows sorted by code; empty when not kept. Only rows
  // are kept (codes are gathered as a list is read): a row's code beside it
  // would double the lists, which hold most of the growth's memory.
  std::vector<std::vector<std::uint32_t>> lists_;
  // By row: the branch its node sends it to; two bytes when a discrete
  // attribute has more values than one byte counts.
  std::vector<std::uint8_t> child_of_;
  std::vector<std::uint16_t> wide_child_of_;
  unsigned child(std::uint32_t row) const { return child_of_.empty() ? wide_child_of_[row] : child_of_[row]; }
  void set_child(std::uint32_t row, unsigned b) {
    if (child_of_.empty())
      wide_child_of_[row] = static_cast<std::uint16_t>(b);
    else
      child_of_[row] = static_cast<std::uint8_t>(b);
  }
  std::vector<std::uint32_t> weights_;             // by row; empty for unit weights
  tarn::util::task_pool pool_;
  std::vector<scratch> scratch_;                   // one per pool thread
  sorting_replay replay_;
  // What progress reports: nodes decided, nodes open and their cases.
  std::atomic<std::uint64_t> grown_{0}, open_{1}, open_cases_{0};
  tarn::util::progress_scope* report_ = nullptr;
  void account(const open_node& x, const std::vector<open_node>& next, std::size_t before, double seconds);
};

}  // namespace sylva::impls::whole

#pragma once

// The measures of a node as growth by sorting makes them, for the nodes whose
// whole-weight measures cannot be decided (see run_scan.h). Growth by sorting
// reads a node's cases in the order every sort and partition above it left
// them in, so that order is made again: from the root's list down to the
// node, each ancestor's measures reorder the list as they did in the
// case-by-case build, and the ancestor's split (the same one, decided by the
// whole-weight growth) carves the next list on the way down. The lists of the
// last way down are kept for the next node, which shares its first part.

#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/grow_whole.h"

namespace sylva::impls {

class sorting_replay {
public:
  // For a build on `cases` (null: all rows with the table's weights) grown
  // on one thread when s.threads is below 1, else as the parallel build.
  sorting_replay(const table* t, const w_sequence* cases, const growth_settings& s)
      : table_(t), cases_(cases), settings_(s) {}

  // The descriptions, one per attribute, that growth by sorting computes for
  // `x`, a node with its statistics set under decided ancestors. Safe to
  // call from several threads (one replay runs at a time).
  std::vector<column::splitting_desc> measure(const _decision_node* x);

private:
  // One node on the way down: its cases in order, its code ranges, and
  // whether the parallel build measured it attribute by attribute.
  struct step {
    std::unique_ptr<w_sequence> cases;
    std::vector<index_range> ranges;
    bool attribute_wise = false;
  };
  // The measures at a node over `at`; without attribute-wise copies they
  // reorder its list, one attribute after the other.
  std::vector<column::splitting_desc> measures(const _decision_node& n, step& at) const;
  // The child on `branch` (from 1) of the decided node `n` over `at`.
  step carve(const _decision_node& n, const step& at, unsigned branch) const;
  // The root's cases in their first order.
  step first() const;

  // Kept lists hold at most this many times the table's rows in all.
  static constexpr size_t keep_budget = 3;

  const table* table_;
  const w_sequence* cases_;
  growth_settings settings_;
  std::mutex mutex_;
  // The nodes of the last replay from the root down, and their cases as
  // their measures left them.
  std::vector<const _decision_node*> kept_path_;
  std::deque<step> kept_steps_;
};

}  // namespace sylva::impls

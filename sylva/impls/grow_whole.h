#pragma once

// Growth for builds in which every case weight stays whole: no attribute has
// an unknown value (so no case is ever split into fractions), each row is a
// case once, and the weights are all 1 or whole numbers that sum below 2^24.
// There the float sums of the split measures and statistics are functions of
// the weights per node, value and class alone, whatever order the cases come
// in (with unit weights even beyond 2^24, where the sums stop growing the
// same way in any order). So nothing needs to be sorted again in any node:
// every continuous attribute is sorted once, and each node's cases stay
// grouped in one contiguous segment of every sorted list, split stably into
// its children's segments. The tree is the one the case-by-case build grows,
// bit for bit; where a measure cannot be proved so for a node (see
// run_scan.h), the node is measured as the case-by-case build measures it,
// on the case order that build would have given it (sorting_replay.h).

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/growth_profile.h"
#include "tarn/util/progress.h"

namespace sylva::impls {

class table;

struct growth_settings {
  unsigned split_type = decision_tree_types::GAIN_RATIO;
  float min_obj = 2.0f;
  const options* opts = nullptr;
  int threads = 0;  // below 1: the calling thread alone
  tarn::util::progress* progress = nullptr;
  growth_profile* profile = nullptr;
  // Nodes this deep or deeper are measured on the replayed case order, as
  // undecided nodes are: a way for tests to reach that path on any data.
  unsigned replay_from_depth = ~0u;
};

// Whether every case weight of a build on these cases stays whole. Null
// cases stand for all rows with the table's weights, which the growth then
// reads from the table without a case list.
bool whole_weight_build(const table* t, const w_sequence* cases);

// Grows the tree below `root`, whose payload is a root node over `cases`.
void grow_whole_weights(_decision_tree* root, const table* t, const w_sequence* cases, const growth_settings& s);

}  // namespace sylva::impls

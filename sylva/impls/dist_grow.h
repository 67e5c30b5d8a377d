#pragma once

#include <functional>

// Growing one tree over the rows of several ranks (MPI), level by level.
// Each rank holds a share of the training rows (a shard); per level the
// ranks count what their rows contribute to every open node and attribute,
// combine the counts with collectives whose number does not grow with the
// number of nodes, take the same decisions with the single-machine split
// routines, and carve their own rows into the children.

#include <cstdint>
#include <memory>
#include <vector>

#include "sylva/impls/decision_tree.h"

namespace sylva::impls::dist {

class communicator;

// This rank's share of a training table: a table of its rows, whose
// domains hold every rank's values (so codes, widths and value order are
// the single-machine load's). Local row r is row `first` + r of the file.
struct shard {
  std::unique_ptr<table> rows;
  std::uint64_t first = 0;
  std::uint64_t total = 0;
};

struct grow_settings {
  unsigned split_type = decision_tree_types::GAIN_RATIO;
  float min_obj = 2.0f;
  const options* opts = nullptr;
  unsigned threads = 1;  // per rank, for the passes over its own rows
  // Called after each level has been decided and its rows carved.
  std::function<void()> after_level;
};

// Bytes and collectives per tree level, for the benchmark.
struct level_traffic {
  std::vector<std::uint64_t> bytes;  // sent by this rank, by depth
  std::vector<std::uint64_t> nodes;  // open nodes, by depth
};

// Whether every case weight of a build on these cases stays whole on all
// ranks (see grow_whole.h). Null cases: all rows with the table's weights.
bool whole_weight_build(communicator& comm, const shard& s, const w_sequence* cases);

// Grows the tree below `root`, whose payload is a root node, on the cases
// of all ranks (local rows with their weights; null: all rows with the
// table's weights). Every rank grows the same tree: for whole-weight builds
// the single-machine tree, bit for bit.
void grow_whole(communicator& comm, _decision_tree* root, const shard& s, const w_sequence* cases,
                const grow_settings& settings, level_traffic* traffic);

}  // namespace sylva::impls::dist

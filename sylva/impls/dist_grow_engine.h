#pragma once

// Internals of the distributed whole-weight growth (dist_grow.h): the open
// nodes of a level, the measuring jobs, and the engine.

#include <cstdint>
#include <vector>

#include "sylva/impls/dist_comm.h"
#include "sylva/impls/dist_grow.h"
#include "sylva/impls/dist_scan.h"
#include "sylva/impls/grow_whole_engine.h"
#include "tarn/util/task_pool.h"

namespace sylva::impls::dist {

// A node of the current level: its rows here are [begin, end) of rows_ and
// of every sorted list; the rest is global.
struct level_node {
  _decision_tree* subtree = nullptr;
  std::size_t begin = 0, end = 0;
  std::vector<std::int64_t> by_class;  // whole weights per class, all ranks
  std::uint64_t count = 0;             // cases, all ranks
  float known_fract = 1.0f;
  std::vector<index_range> ranges;
  unsigned depth = 0;
};

// One attribute of one node to measure.
struct job {
  enum kind_t { none, counts, runs } kind = none;
  unsigned node = 0, attr = 0;
  std::size_t offset = 0;  // counts: into the level's count table
};

// A node's runs of one value on this rank: code, the class of its last row,
// and per class the cases and their whole weights.
struct owned_runs {
  std::vector<std::uint32_t> codes;
  std::vector<std::int64_t> weights;   // width per run; none for unit weights
  std::vector<std::uint32_t> cases;    // width per run
  std::vector<std::uint16_t> last_class;
  std::size_t size() const { return codes.size(); }
  // Empties the runs and keeps the room they took.
  void clear() {
    codes.clear();
    weights.clear();
    cases.clear();
    last_class.clear();
  }
};

// One rank's packed runs of one job: `count` records of a fixed size, in
// ascending codes.
struct run_records {
  const char* at = nullptr;
  std::uint32_t count = 0;
};

class whole_engine {
public:
  whole_engine(communicator& comm, const shard& s, const w_sequence* cases, const grow_settings& settings);
  void grow(_decision_tree* root, level_traffic* traffic);

private:
  using code_source = whole::code_source;

  // The level's decisions: statistics, measures, the split routines.
  void decide(std::vector<level_node>& level, std::vector<int>& split);
  void measure_counts(const std::vector<level_node>& level, const std::vector<job>& jobs,
                      std::vector<std::vector<column::splitting_desc>>& descs);
  void measure_runs(const std::vector<level_node>& level, const std::vector<job>& jobs,
                    std::vector<std::vector<column::splitting_desc>>& descs);
  // This rank's runs of a node's values of attribute a, in value order
  // (any thread).
  void local_runs(const level_node& x, unsigned a, owned_runs& out) const;
  // A job's runs appended to the blocks for their owners.
  void pack_runs(const job& j, const owned_runs& local, std::vector<packer>& to) const;
  // The owners' part: `received` holds, per job, each rank's runs of the
  // values this rank owns, as packed.
  void owner_scans(const std::vector<level_node>& level, const std::vector<job>& jobs,
                   const std::vector<std::vector<run_records>>& received,
                   std::vector<std::vector<range_scan>>& reports);
  // The children of the level's split nodes, carved from the rows here.
  std::vector<level_node> partition(std::vector<level_node>& level, const std::vector<int>& split);
  void move_list(std::vector<std::uint32_t>& list, const level_node& x, const std::vector<std::size_t>& starts);
  // Code boundaries of the value ranges each rank scans, per attribute.
  void choose_owners();
  unsigned owner_of(unsigned a, unsigned code) const;

  std::vector<float> to_floats(const std::int64_t* w, std::size_t n) const;
  std::int64_t weight(std::uint32_t row) const { return weights_.empty() ? 1 : weights_[row]; }
  bool keeps_list(unsigned a) const { return !lists_[a].empty() || listed_[a]; }

  communicator& comm_;
  const table* table_;
  grow_settings settings_;
  unsigned width_, attributes_;
  std::vector<code_source> codes_;
  std::vector<std::uint16_t> classes_;   // by local row
  std::vector<std::uint32_t> weights_;   // by local row; empty for unit weights
  bool unit_ = true;
  std::vector<std::uint32_t> rows_;      // every node's rows here
  std::vector<std::vector<std::uint32_t>> lists_;  // per attribute, rows by code
  std::vector<char> listed_;             // attribute keeps a (maybe empty) list
  std::vector<std::uint16_t> child_of_;  // by local row
  std::vector<std::vector<unsigned>> bounds_;  // per attribute: first code of each rank's range
  std::vector<std::uint32_t> scratch_moved_;
  tarn::util::task_pool pool_;
};

}  // namespace sylva::impls::dist

#pragma once

// One sorting measure from scans of value ranges made apart. A distributed
// build gives each rank a range of every continuous attribute's values; a
// node's runs of equal values are scanned by the ranks that own them, each
// from the exact left weights at the start of its range but without knowing
// the class-change flag there (it depends on the cuts evaluated before the
// range). Only the first cut of a range that depends on it is left open
// (run_scanner::deferred); what each range reports, combined in range order,
// gives the best cut and the candidate count of one scan over all the runs.

#include <cstdint>
#include <vector>

#include "sylva/impls/run_scan.h"

namespace sylva::impls::dist {

// What the scan of one range reports, as plain values to send.
struct range_scan {
  std::uint32_t has_runs = 0;
  std::uint32_t synced = 0;  // a cut was evaluated: the end state is known
  std::uint32_t candidates = 0;
  std::uint32_t closed = 0;  // runs closed (cuts passed) in the range
  // The best evaluated cut of the range (after any deferred one).
  float best_gain = 0, best_split_info = 0;
  std::uint32_t best_lower = 0, best_upper = 0;
  // The deferred cut, and the state at the range's end.
  std::uint32_t deferred = 0;
  std::int32_t deferred_class = 0;
  std::uint32_t deferred_closed = 0;
  float deferred_gain = 0, deferred_split_info = 0;
  std::uint32_t deferred_lower = 0, deferred_upper = 0;
  std::int32_t epoch_class = run_scanner::no_class;
  std::uint32_t after_cut = 0;
  std::int32_t before_class = value_run::mixed;
};

// The report of a finished range scan (resumed without flags).
range_scan report(const run_scanner& scan, bool has_runs);

// The best cut and candidate count of the scan over all ranges, given
// their reports in value order.
struct composed_scan {
  best_cut best;
  unsigned candidates = 0;
};
composed_scan compose(const range_scan* ranges, std::size_t count);

// The classes of two stretches of runs joined: no_class is neutral, two
// different classes (or a mixed one) make `mixed`.
int join_classes(int a, int b);

}  // namespace sylva::impls::dist

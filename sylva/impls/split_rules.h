#pragma once

// The switches of split search and growth, each named once. Every driver
// (sequential, parallel, whole-weight) and every cost model reads them from
// here: a threshold copied as a literal into a second place breaks silently
// when the first one changes. Types matter: the margins compared in double
// precision are double constants, as the arithmetic of the results requires.

#include <cstddef>
#include <cstdint>
#include <limits>

namespace sylva::impls::split_rules {

// The gain of a split that does not exist; any usable split gains more.
inline constexpr float no_split_gain = -0.001f;

// The average gain when no attribute is usable: no attribute can reach it.
inline constexpr float no_usable_average = 1000000.0f;

// An attribute takes part in the gain-ratio choice when its gain is at least
// the average less this margin and its split information exceeds the floor.
inline constexpr double average_gain_margin = 0.001;
inline constexpr double split_info_floor = 0.001;

// A split is collapsed after growth when its subtree does not make fewer
// training errors than its node as a leaf, less this margin.
inline constexpr double collapse_margin = 0.001;

// A continuous attribute is measured by value counts when its node holds more
// than this many cases per value of the attribute's range, by sorting the
// cases otherwise.
inline constexpr std::size_t cases_per_value = 2;
inline bool by_value_counts(std::size_t cases, unsigned values) { return cases / values > cases_per_value; }

// Sorting by value uses a counting sort when the range has at most this many
// slots per case, a comparison sort otherwise.
inline constexpr unsigned slots_per_case = 16;
inline bool by_counting_sort(unsigned slots, std::size_t cases) { return slots / cases <= slots_per_case; }

// The parallel build measures the root attribute by attribute, a task each,
// and so each child of a node measured that way whose cases, squared, reach
// the table's rows over the father's number of tasks; any other node is
// split whole by one task.
inline bool attribute_wise_child(bool father_attribute_wise, std::uint64_t rows, unsigned father_tasks,
                                 std::uint64_t cases) {
  const std::uint64_t threshold =
      father_attribute_wise ? rows / father_tasks : std::numeric_limits<std::uint64_t>::max();
  return threshold <= cases * cases;
}

}  // namespace sylva::impls::split_rules

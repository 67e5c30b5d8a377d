#pragma once

// Where a build spends its time, by depth in the tree, for benchmarks: the
// seconds spent deciding and carving the nodes of each level (summed over
// threads), their number and their cases.

#include <cstdint>
#include <mutex>
#include <vector>

namespace sylva::impls {

struct growth_profile {
  std::vector<double> seconds;
  std::vector<std::uint64_t> nodes, cases;

  void add(unsigned depth, double s, std::uint64_t n) {
    std::lock_guard<std::mutex> lock(mutex);
    if (seconds.size() <= depth) {
      seconds.resize(depth + 1, 0.0);
      nodes.resize(depth + 1, 0);
      cases.resize(depth + 1, 0);
    }
    seconds[depth] += s;
    ++nodes[depth];
    cases[depth] += n;
  }

  std::mutex mutex;
};

}  // namespace sylva::impls

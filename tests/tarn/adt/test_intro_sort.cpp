#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "tarn/adt/intro_sort.h"

namespace {

// Words of (key, position): after sorting, the low halves show where every
// word of a tie went, which is what the replica must reproduce.
std::vector<std::uint64_t> words(const std::vector<std::uint32_t>& keys) {
  std::vector<std::uint64_t> w(keys.size());
  for (size_t i = 0; i < keys.size(); ++i) w[i] = (std::uint64_t(keys[i]) << 32) | i;
  return w;
}

void expect_as_std_sort(const std::vector<std::uint32_t>& keys) {
  std::vector<std::uint64_t> expected = words(keys), got = expected;
  std::sort(expected.begin(), expected.end(), [](std::uint64_t a, std::uint64_t b) { return (a >> 32) < (b >> 32); });
  tarn::adt::intro_sort_by_key(got.data(), got.data() + got.size());
  ASSERT_EQ(got, expected) << keys.size() << " keys";
}

}  // namespace

// Ties are where a different partition would show: few keys, many of each,
// unknown codes (0) in bulk, and sizes on both sides of the block scans'
// reach and of the insertion sort's threshold.
TEST(IntroSort, TiesEndWhereTheStandardSortLeavesThem) {
  std::mt19937_64 rng(20261124);
  for (int round = 0; round < 3000; ++round) {
    const size_t n = rng() % (round % 10 == 0 ? 20000 : 700);
    const std::uint32_t spread = round % 3 == 0 ? 3 : round % 3 == 1 ? 200 : 5000000;
    std::vector<std::uint32_t> keys(n);
    for (auto& k : keys) k = rng() % 20 == 0 ? 0 : static_cast<std::uint32_t>(rng() % spread);
    expect_as_std_sort(keys);
  }
}

TEST(IntroSort, OrderedReversedAndConstantInputs) {
  for (size_t n : {0u, 1u, 2u, 16u, 17u, 33u, 500u, 4099u}) {
    std::vector<std::uint32_t> up(n), down(n), same(n, 7), organ(n);
    for (size_t i = 0; i < n; ++i) {
      up[i] = static_cast<std::uint32_t>(i);
      down[i] = static_cast<std::uint32_t>(n - i);
      organ[i] = static_cast<std::uint32_t>(std::min(i, n - i));
    }
    for (const auto* keys : {&up, &down, &same, &organ}) expect_as_std_sort(*keys);
  }
}

// Interleaved halves drive the standard sort past its depth limit into
// heap sort on some parts at these sizes (checked with a counting build).
TEST(IntroSort, DepthLimitFallsBackToTheSameHeapSort) {
  for (size_t n : {20000u, 60000u}) {
    std::vector<std::uint32_t> keys(n);
    for (size_t i = 0; i < n / 2; ++i) {
      keys[2 * i] = static_cast<std::uint32_t>(i + 1);
      keys[2 * i + 1] = static_cast<std::uint32_t>(n / 2 + i + 1);
    }
    expect_as_std_sort(keys);
    std::vector<std::uint32_t> saw(n);
    for (size_t i = 0; i < n; ++i) saw[i] = static_cast<std::uint32_t>((i * 2654435761u) % 5);
    std::sort(saw.begin(), saw.begin() + static_cast<long>(n / 2));
    expect_as_std_sort(saw);
  }
}

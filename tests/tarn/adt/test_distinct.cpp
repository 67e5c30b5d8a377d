#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tarn/adt/distinct.h"
#include "tarn/adt/radix_sort.h"

using namespace tarn::adt;

TEST(RadixSort, SortsAsStdSortDoes) {
  std::mt19937_64 g(3);
  for (const std::size_t n : {0u, 1u, 2u, 100u, 5000u}) {
    std::vector<std::uint32_t> wide(n), narrow(n), shared_top(n);
    std::vector<std::uint64_t> big(n);
    for (std::size_t i = 0; i < n; ++i) {
      wide[i] = static_cast<std::uint32_t>(g());
      narrow[i] = static_cast<std::uint32_t>(g() % 300);                 // passes skipped: high digits all 0
      shared_top[i] = 0xABC00000u | static_cast<std::uint32_t>(g() % 5000);  // a middle digit varies
      big[i] = g() >> (g() % 64);
    }
    for (auto* v : {&wide, &narrow, &shared_top}) {
      std::vector<std::uint32_t> want = *v, scratch;
      std::sort(want.begin(), want.end());
      radix_sort(*v, scratch);
      EXPECT_EQ(*v, want);
    }
    std::vector<std::uint64_t> want = big, scratch;
    std::sort(want.begin(), want.end());
    radix_sort(big, scratch);
    EXPECT_EQ(big, want);
  }
}

TEST(DistinctKeys, KeepsEachKeyOnceInOrder) {
  std::mt19937 g(5);
  // Few keys (absorbed by the cache), many keys (pending lists merged more
  // than once), and a cache colliding all the time.
  for (const unsigned bits : {0u, 1u, 10u}) {
    for (const std::uint32_t range : {7u, 3000000u}) {
      distinct_keys<std::uint32_t> d(bits);
      std::vector<std::uint32_t> want;
      for (int i = 0; i < 2200000; ++i) {
        const std::uint32_t k = g() % range;
        d.insert(k);
        want.push_back(k);
      }
      std::sort(want.begin(), want.end());
      want.erase(std::unique(want.begin(), want.end()), want.end());
      EXPECT_EQ(d.take(), want) << bits << " " << range;
      EXPECT_TRUE(d.take().empty()) << "emptied by take";
    }
  }
  distinct_keys<std::uint64_t> zero(4);
  zero.insert(0);  // a key equal to the caches' initial content
  zero.insert(1);
  EXPECT_EQ(zero.take(), (std::vector<std::uint64_t>{0, 1}));
}

TEST(DistinctKeys, MergeJoinsRunsWithoutRepeats) {
  EXPECT_EQ(merge_distinct<std::uint32_t>({}), std::vector<std::uint32_t>{});
  EXPECT_EQ(merge_distinct<std::uint32_t>({{1, 4, 9}, {}, {2, 4, 10}, {9, 11}, {0}}),
            (std::vector<std::uint32_t>{0, 1, 2, 4, 9, 10, 11}));
}

TEST(DistinctTexts, KeepsEachTextOnce) {
  distinct_texts t;
  std::set<std::string> want;
  std::mt19937 g(9);
  for (int i = 0; i < 20000; ++i) {
    // Lengths around the hash's word size and beyond the first block.
    const std::string s = std::string(g() % 20, 'x') + std::to_string(g() % 3000) + (i % 1000 == 0 ? std::string(70000, 'y') : "");
    t.insert(s.data(), s.size());
    want.insert(s);
  }
  t.insert("", 0);
  want.insert("");
  std::vector<std::string_view> views;
  t.views(views);
  std::vector<std::string> got(views.begin(), views.end());
  std::sort(got.begin(), got.end());
  EXPECT_EQ(got, std::vector<std::string>(want.begin(), want.end()));
  EXPECT_EQ(t.size(), want.size());
}

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tarn/adt/counting_sort.h"

using item = std::pair<char, unsigned>;  // (name, key)

namespace {
std::string names(const std::vector<item>& v) {
  std::string s;
  for (const item& i : v) s += i.first;
  return s;
}
}  // namespace

TEST(CountingSort, PermutationIsTheSwapWalkNotAStableOne) {
  std::vector<item> v{{'a', 2}, {'b', 0}, {'c', 1}, {'d', 2}, {'e', 1}};
  tarn::adt::counting_sort(v.begin(), v.end(), 0, 3, [](const item& i) { return i.second; }, 0);
  // Worked by hand: a goes to the end of block 2 (swapping e in), e to the
  // end of block 1 (c in), c to position 1 (b in); then all stay.
  EXPECT_EQ(names(v), "bceda");
}

TEST(CountingSort, UnknownKeyTakesTheGivenSlot) {
  // Keys 5..7 with 0 meaning unknown, mapped to 4 so that unknowns lead.
  std::vector<item> v{{'p', 7}, {'q', 0}, {'r', 5}, {'s', 0}, {'t', 6}, {'u', 5}};
  tarn::adt::counting_sort(v.begin(), v.end(), 4, 8, [](const item& i) { return i.second; }, 4);
  std::vector<unsigned> keys;
  for (const item& i : v) keys.push_back(i.second);
  EXPECT_EQ(keys, (std::vector<unsigned>{0, 0, 5, 5, 6, 7}));
}

TEST(CountingSort, NothingHappensForOneKeyOrNoElements) {
  std::vector<item> v{{'x', 3}, {'y', 3}};
  tarn::adt::counting_sort(v.begin(), v.end(), 3, 4, [](const item& i) { return i.second; }, 3);
  EXPECT_EQ(names(v), "xy");
  std::vector<item> none;
  tarn::adt::counting_sort(none.begin(), none.end(), 0, 5, [](const item& i) { return i.second; }, 0);
  EXPECT_TRUE(none.empty());
}

TEST(CountingSort, CompactPermutationMatchesTheSwapWalk) {
  std::mt19937 rng(11);
  for (int round = 0; round < 3000; ++round) {
    // Some rounds use a key range far wider than the keys present.
    const unsigned lo = rng() % 5, width = round % 3 ? 1 + rng() % 40 : 5000 + rng() % 20000, n = rng() % 300;
    std::vector<unsigned> keys(n);
    for (unsigned& k : keys) {
      k = lo + 1 + rng() % width;
      if (rng() % 7 == 0) k = 0;  // unknown
    }
    std::vector<std::pair<unsigned, unsigned>> v;  // (original position, key)
    for (unsigned i = 0; i < n; ++i) v.emplace_back(i, keys[i]);
    tarn::adt::counting_sort(v.begin(), v.end(), lo, lo + 1 + width, [](const auto& x) { return x.second; }, lo);
    const std::vector<unsigned> order = tarn::adt::counting_permutation(keys, lo, lo + 1 + width, lo);
    ASSERT_EQ(order.size(), v.size());
    for (unsigned i = 0; i < n; ++i) ASSERT_EQ(order[i], v[i].first) << "round " << round << " position " << i;
  }
}

// Large inputs: long chains over many blocks, with the key range dense,
// sparse (renumbered) and with unknowns.
TEST(CountingSort, CompactPermutationMatchesTheSwapWalkOnLargeInputs) {
  std::mt19937 rng(23);
  for (const unsigned width : {50u, 40000u, 900000u}) {
    const unsigned n = 200000, lo = 3;
    std::vector<unsigned> keys(n);
    for (unsigned& k : keys) k = rng() % 50 == 0 ? 0 : lo + 1 + rng() % width;
    std::vector<std::pair<unsigned, unsigned>> v;
    for (unsigned i = 0; i < n; ++i) v.emplace_back(i, keys[i]);
    tarn::adt::counting_sort(v.begin(), v.end(), lo, lo + 1 + width, [](const auto& x) { return x.second; }, lo);
    const std::vector<unsigned> order = tarn::adt::counting_permutation(keys, lo, lo + 1 + width, lo);
    ASSERT_EQ(order.size(), v.size());
    for (unsigned i = 0; i < n; ++i) ASSERT_EQ(order[i], v[i].first) << "width " << width << " position " << i;
  }
}

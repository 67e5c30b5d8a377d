#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "sylva/impls/table.h"
#include "table_fixture.h"

using namespace sylva::impls;

namespace {

std::unique_ptr<table> eight_rows() {
  return table_fixture::load("x,integer,continuous\nc,string,class\n", "0,a\n1,a\n2,b\n3,b\n4,a\n5,c\n6,a\n7,b\n");
}

std::vector<unsigned> rows_of(const w_sequence& s) {
  std::vector<unsigned> r;
  for (const w_pair& p : s) r.push_back(p.first);
  return r;
}

}  // namespace

TEST(WSubset, FirstRowsAndAll) {
  auto t = eight_rows();
  EXPECT_TRUE(std::unique_ptr<w_sequence>(t->get_wsubset_first_n(0))->empty());
  EXPECT_EQ(rows_of(*std::unique_ptr<w_sequence>(t->get_wsubset_first_n(3))), (std::vector<unsigned>{0, 1, 2}));
  std::unique_ptr<w_sequence> all(t->get_wsubset_all());
  EXPECT_EQ(all->size(), 8u);
  EXPECT_EQ((*all)[7], w_pair(7, 1.0f));
  EXPECT_EQ(std::unique_ptr<w_sequence>(t->get_wsubset_first_n(100))->size(), 8u);
}

TEST(WSubset, RandomSamples) {
  auto t = eight_rows();
  EXPECT_TRUE(std::unique_ptr<w_sequence>(t->get_wsubset_random(0))->empty());
  EXPECT_EQ(rows_of(*std::unique_ptr<w_sequence>(t->get_wsubset_random(50))),
            (std::vector<unsigned>{0, 1, 2, 3, 4, 5, 6, 7}));
  const auto five = rows_of(*std::unique_ptr<w_sequence>(t->get_wsubset_random(5)));
  ASSERT_EQ(five.size(), 5u);
  EXPECT_TRUE(std::is_sorted(five.begin(), five.end()));
  EXPECT_EQ(std::set<unsigned>(five.begin(), five.end()).size(), 5u);
  std::unique_ptr<w_sequence> repeated(t->get_wsubset_random_repeated(8));
  EXPECT_EQ(repeated->size(), 8u);
  for (const w_pair& p : *repeated) EXPECT_LT(p.first, 8u);
}

TEST(WSubset, DifferenceKeepsItsCursorQuirk) {
  auto t = eight_rows();
  w_sequence other{{5, 1}, {2, 1}, {2, 1}};
  std::unique_ptr<w_sequence> rest(t->get_wsubset_difference(&other));
  // The cursor stays on the second copy of row 2, so row 5 is not skipped.
  EXPECT_EQ(rows_of(*rest), (std::vector<unsigned>{0, 1, 3, 4, 5, 6, 7}));
  EXPECT_EQ(rows_of(other), (std::vector<unsigned>{2, 2, 5})) << "sorted in place";
  w_sequence plain{{6, 1}, {1, 1}};
  EXPECT_EQ(rows_of(*std::unique_ptr<w_sequence>(t->get_wsubset_difference(&plain))),
            (std::vector<unsigned>{0, 2, 3, 4, 5, 7}));
}

TEST(WSubset, BalancedTakesTheFirstRowsOfEveryClass) {
  std::string data;
  const char* classes[] = {"a", "b", "c"};
  const int counts[] = {9, 5, 7};
  int row = 0;
  for (int round = 0; round < 9; ++round)
    for (int c = 0; c < 3; ++c)
      if (round < counts[c]) data += std::to_string(row++) + "," + classes[c] + "\n";
  auto t = table_fixture::load("x,integer,continuous\nc,string,class\n", data);
  std::unique_ptr<w_sequence> b(t->get_wsubset_balanced());
  ASSERT_EQ(b->size(), 15u);
  int per_class[4] = {0, 0, 0, 0};
  for (const w_pair& p : *b) ++per_class[t->get_class()->get_row_index(p.first)];
  EXPECT_EQ(per_class[1], 5);
  EXPECT_EQ(per_class[2], 5);
  EXPECT_EQ(per_class[3], 5);
  // Class a's rows 0, 3, 6, 9, 12 come first in row order; row 15 is not taken.
  const auto rows = rows_of(*b);
  EXPECT_EQ(rows.front(), 0u);
  EXPECT_EQ(std::count(rows.begin(), rows.end(), 15u), 0);
}

TEST(WSubset, WeightsColumnFeedsEverySampler) {
  auto t = table_fixture::load("w,float,weights\nc,string,class\n", "1,a\n0.5,b\n3,a\n2.5,b\n");
  auto expect_weights = [&](const w_sequence& s) {
    const float w[] = {1.0f, 0.5f, 3.0f, 2.5f};
    for (const w_pair& p : s) EXPECT_EQ(p.second, w[p.first]) << "row " << p.first;
  };
  expect_weights(*std::unique_ptr<w_sequence>(t->get_wsubset_all()));
  expect_weights(*std::unique_ptr<w_sequence>(t->get_wsubset_first_n(2)));
  expect_weights(*std::unique_ptr<w_sequence>(t->get_wsubset_random(3)));
  expect_weights(*std::unique_ptr<w_sequence>(t->get_wsubset_random_repeated(4)));
  w_sequence one{{0, 1}};
  expect_weights(*std::unique_ptr<w_sequence>(t->get_wsubset_difference(&one)));
  expect_weights(*std::unique_ptr<w_sequence>(t->get_wsubset_balanced()));
}

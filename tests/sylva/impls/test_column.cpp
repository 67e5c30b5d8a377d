#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "sylva/impls/column.h"

using namespace sylva::impls;

namespace {

o_set* filled(const std::string& word, int known, bool with_unknown = false) {
  o_set* d = o_set::NEW_O_SET(word, true, "?");
  for (int v = 0; v < known; ++v) d->insert(std::to_string(v).c_str());
  if (with_unknown) d->insert("?");
  return d;
}

std::unique_ptr<column> make(o_set* d, const std::string& word, std::string* error = nullptr) {
  std::string e;
  column* c = column::NEW_COLUMN(d, "c", word, e);
  if (!c) delete d;
  if (error) *error = e;
  return std::unique_ptr<column>(c);
}

std::string refusal(o_set* d, const std::string& name, const std::string& word) {
  std::string e;
  column* c = column::NEW_COLUMN(d, name, word, e);
  delete c;
  if (!c) delete d;
  return c ? "no error" : e;
}

template <class T>
bool stored_as(const column* c) {
  return dynamic_cast<const column_typed<T>*>(c) != nullptr;
}

// A column over codes pushed as the values "v<code>" of a string domain
// whose values sort in the given order.
std::unique_ptr<column> coded(const std::string& word, std::initializer_list<const char*> rows,
                              std::initializer_list<const char*> domain_values) {
  o_set* d = o_set::NEW_O_SET(word == "continuous" ? "integer" : "string", true, "?");
  for (const char* v : domain_values) d->insert(v);
  auto c = make(d, word);
  for (const char* r : rows) c->push_back(r);
  return c;
}

}  // namespace

TEST(Column, FactoryChecksInOrder) {
  std::string e;
  EXPECT_EQ(column::NEW_COLUMN(nullptr, "x", "discrete", e), nullptr);
  EXPECT_EQ(e, "No set of values provided");
  EXPECT_EQ(refusal(filled("string", 1), "x", "nominal"), "Unknown column type: nominal");
  EXPECT_EQ(refusal(filled("double", 2), "x", "continuous"), "Continuous column 'x' requires a numeric data type");
  EXPECT_EQ(refusal(filled("null", 0), "x", "continuous"), "Continuous column 'x' requires a numeric data type");
  EXPECT_EQ(refusal(filled("string", 2), "w", "weights"), "Weights column 'w' requires a non-negative numeric data type");
  EXPECT_EQ(refusal(filled("float", 2, true), "w", "weights"), "Weights column 'w' does not admit unknown values");
  EXPECT_EQ(refusal(filled("string", 2, true), "k", "class"), "Class column 'k' does not admit unknown values");
  EXPECT_EQ(refusal(filled("null", 0), "n", "discrete"), "Null set of column values can only be used for ignore column type");
  EXPECT_EQ(refusal(filled("double", 2), "d", "discrete"), "no error");
}

TEST(Column, StorageWidthFollowsTheDomainSize) {
  EXPECT_NE(dynamic_cast<column_bool*>(make(filled("string", 2), "discrete").get()), nullptr);
  EXPECT_TRUE(stored_as<unsigned char>(make(filled("string", 2, true), "discrete").get()));
  EXPECT_TRUE(stored_as<unsigned char>(make(filled("integer", 2), "continuous").get()));
  EXPECT_TRUE(stored_as<unsigned char>(make(filled("string", 2), "class").get()));
  EXPECT_TRUE(stored_as<unsigned char>(make(filled("uinteger", 254), "discrete").get()));
  EXPECT_TRUE(stored_as<unsigned short>(make(filled("uinteger", 255), "discrete").get()));
  EXPECT_TRUE(stored_as<unsigned short>(make(filled("uinteger", 65534), "continuous").get()));
  EXPECT_TRUE(stored_as<unsigned int>(make(filled("uinteger", 65535), "continuous").get()));
  auto ignored = make(filled("null", 0), "ignore");
  EXPECT_EQ(typeid(*ignored), typeid(column));
  EXPECT_TRUE(stored_as<unsigned char>(make(filled("integer", 3), "ignore").get()));
}

TEST(Column, PushBackStoresIndicesAndRefusesUnknownTexts) {
  auto c = coded("discrete", {"b", "?", "a"}, {"a", "b", "c", "?"});
  EXPECT_EQ(c->size(), 3u);
  EXPECT_EQ(c->get_row_index(0), 2u);
  EXPECT_EQ(c->get_row_index(1), 0u);
  EXPECT_EQ(c->get_row_value(2), "a");
  EXPECT_TRUE(c->less_than(2, 0));
  try {
    c->push_back("z");
    FAIL();
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "column require a valid o_set");
  }
  auto bits = coded("discrete", {"no", "yes", "no"}, {"no", "yes"});
  EXPECT_EQ(bits->get_row_index(0), 1u);
  EXPECT_EQ(bits->get_row_index(1), 2u);
  try {
    bits->push_back("maybe");
    FAIL();
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "[column::push_back] index not found for value 'maybe'");
  }
}

TEST(Column, RangesAndQueries) {
  EXPECT_EQ(make(filled("string", 0), "discrete")->get_range(), index_range(0, 0));
  auto c = make(filled("integer", 4), "continuous");
  EXPECT_EQ(c->get_range(), index_range(1, 5));
  EXPECT_EQ(c->get_distinct(), 5u);
  EXPECT_EQ(c->get_index("3"), 4u);
  EXPECT_EQ(c->get_index("9"), 0u);
  EXPECT_EQ(c->find_threshold(1, 4), "1");
  EXPECT_EQ(make(filled("string", 3), "discrete")->find_threshold(1, 2), "?");
  EXPECT_TRUE(column::admits_null("class")) << "the class word is not refused here";
  EXPECT_FALSE(column::admits_null("weights"));
  EXPECT_EQ(column::type_word(7), "unspecified");
}

TEST(Column, DiscretePartitionScalesUnknowns) {
  // Codes b=2, a=1, ?=0.
  auto c = coded("discrete", {"a", "b", "?", "a", "?"}, {"a", "b", "?"});
  const w_sequence cases{{0, 1}, {1, 1}, {2, 1}, {3, 2}, {4, 1}};
  float ratio = 0;
  index_range range;
  std::unique_ptr<w_sequence> out(
      c->partition(cases.data(), cases.data() + cases.size(), 1, 6.0f, ratio, range, column::partition_desc()));
  EXPECT_FLOAT_EQ(ratio, 0.75f) << "3 / (6 - 2)";
  EXPECT_EQ(*out, (w_sequence{{0, 1}, {2, 0.75f}, {3, 2}, {4, 0.75f}}));
  EXPECT_EQ(range, index_range(1, 2));
}

TEST(Column, ContinuousPartitionKeepsTheLowBranchQuirk) {
  auto c = coded("continuous", {"1", "2", "3", "?"}, {"1", "2", "3", "?"});
  const w_sequence cases{{0, 1}, {1, 1}, {2, 1}, {3, 1}};
  column::partition_desc pd;
  pd.value = "2";
  pd.branches = 2;
  float ratio = 0;
  index_range range;
  std::unique_ptr<w_sequence> low(c->partition(cases.data(), cases.data() + 4, 1, 4.0f, ratio, range, pd));
  // The unknown row counts in its own branch's numerator: 3 / 4.
  EXPECT_FLOAT_EQ(ratio, 0.75f);
  EXPECT_EQ(*low, (w_sequence{{0, 1}, {1, 1}, {3, 0.75f}}));
  EXPECT_EQ(range, index_range(1, 3));
  std::unique_ptr<w_sequence> high(c->partition(cases.data(), cases.data() + 4, 2, 4.0f, ratio, range, pd));
  EXPECT_FLOAT_EQ(ratio, 1.0f / 3.0f);
  EXPECT_EQ(*high, (w_sequence{{2, 1}, {3, 1.0f / 3.0f}}));
  EXPECT_EQ(range, index_range(2, 4)) << "the tracked minimum starts at the threshold index";
}

TEST(Column, PartitionOfOtherKindsIsRefused) {
  auto w = make(filled("float", 2), "weights");
  const w_sequence cases{{0, 1}};
  float ratio;
  index_range range;
  EXPECT_THROW(w->partition(cases.data(), cases.data() + 1, 1, 1, ratio, range, column::partition_desc()),
               std::runtime_error);
}

TEST(Column, CloneCopiesRowsUnlessStructureOnly) {
  auto c = coded("discrete", {"b", "a"}, {"a", "b", "c"});
  std::unique_ptr<column> full(c->clone(false)), empty(c->clone(true));
  EXPECT_EQ(full->size(), 2u);
  EXPECT_EQ(full->get_row_value(0), "b");
  EXPECT_EQ(empty->size(), 0u);
  EXPECT_EQ(empty->get_value(3), "c");
  EXPECT_NE(empty->get_o_set(), c->get_o_set());
}

// sort_as_measure leaves a case list in the order the measure leaves it:
// sorted by code where the measure sorts (few cases per value), untouched
// where it counts by value or the attribute is discrete.
TEST(Column, SortAsMeasureLeavesTheMeasuresOrder) {
  std::mt19937 rng(5);
  unsigned sorted = 0, untouched = 0;
  for (int trial = 0; trial < 300; ++trial) {
    const unsigned values = trial % 3 == 0 ? 3 : trial % 3 == 1 ? 40 : 300, rows = 10 + rng() % 200;
    auto cont = make(filled("integer", static_cast<int>(values)), "continuous");
    auto disc = make(filled("string", static_cast<int>(values)), "discrete");
    auto cls = make(filled("string", 3), "class");
    for (unsigned r = 0; r < rows; ++r) {
      const std::string v = std::to_string(rng() % values);
      cont->push_back(v.c_str());
      disc->push_back(v.c_str());
      cls->push_back(std::to_string(rng() % 3).c_str());
    }
    w_sequence cases;
    for (unsigned r = 0; r < rows; ++r)
      if (rng() % 3) cases.emplace_back(r, 1.0f);
    std::shuffle(cases.begin(), cases.end(), rng);
    float total = 0;
    for (const w_pair& p : cases) total += p.second;
    for (const column* c : {cont.get(), disc.get()}) {
      index_range range = c->get_range();
      w_sequence measured = cases, by_sort = cases;
      column::splitting_desc out;
      c->quality_measure(cls.get(), total, &measured, range, 2.0f, nullptr, out, false);
      c->sort_as_measure(cls.get(), &by_sort, range);
      ASSERT_EQ(by_sort, measured) << "trial " << trial << (c == cont.get() ? " continuous" : " discrete");
      (by_sort == cases ? untouched : sorted) += 1;
    }
  }
  // Both kinds of outcome were met.
  EXPECT_GT(sorted, 50u);
  EXPECT_GT(untouched, 300u);
}

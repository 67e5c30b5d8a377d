#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/table_arrays.h"
#include "table_fixture.h"

using testing_support::error_of;

using namespace sylva::impls;

namespace {

// The golf table as arrays: outlook and windy as codes into texts listed in
// first-seen order, temperature and humidity as integers, play as codes.
struct golf_arrays {
  std::vector<std::int64_t> outlook{0, 0, 1, 2, 2, 2, 1, 0, 0, 2, 0, 1, 1, 2};
  std::vector<std::int64_t> temperature{85, 80, 83, 70, 68, 65, 64, 72, 69, 75, 75, 72, 81, 71};
  std::vector<std::int64_t> humidity{85, 90, 78, 96, 80, 70, 65, 95, 70, 80, 70, 90, 75, 80};
  std::vector<std::int64_t> windy{0, 1, 0, 0, 0, 1, 1, 0, 0, 0, 1, 1, 0, 1};
  std::vector<std::int64_t> play{0, 0, 1, 1, 1, 0, 1, 0, 1, 1, 1, 1, 1, 0};

  std::vector<array_column> columns() const {
    return {{"outlook", column::DISCRETE, text_values{outlook.data(), 1, {"sunny", "overcast", "rain"}}},
            {"temperature", column::CONTINUOUS, integer_values{temperature.data(), 1, nullptr}},
            {"humidity", column::CONTINUOUS, integer_values{humidity.data(), 1, nullptr}},
            {"windy", column::DISCRETE, text_values{windy.data(), 1, {"false", "true"}}},
            {"play", column::CLASS, text_values{play.data(), 1, {"Don't Play", "Play"}}}};
  }
};

std::string outputs_of(table* t) {
  decision_tree tree("golf");
  tree.build_pruned(t, nullptr, true, 0);
  std::ostringstream os;
  tree.toTEXT(os, 0);
  tree.toXML(os, nullptr);
  tree.toDOT(os);
  return os.str();
}

std::vector<std::string> domain_of(const column* c) {
  std::vector<std::string> v;
  for (unsigned i = 1; i < c->get_distinct(); ++i) v.push_back(c->get_value(i));
  return v;
}

std::vector<unsigned> codes_of(const column* c, unsigned rows) {
  std::vector<unsigned> v;
  for (unsigned r = 0; r < rows; ++r) v.push_back(c->get_row_index(r));
  return v;
}

}  // namespace

TEST(TableArrays, GolfEqualsTheTextLoad) {
  golf_arrays g;
  auto arrays = table_from_arrays("golf", g.columns(), 14);
  auto text = table_fixture::golf();
  ASSERT_EQ(arrays->get_no_rows(), 14u);
  ASSERT_EQ(arrays->get_no_attributes(), text->get_no_attributes());
  EXPECT_EQ(arrays->get_class_index(), 4u);
  EXPECT_EQ(arrays->get_weights_index(), 5u) << "no weights column";
  for (unsigned a = 0; a < 5; ++a) {
    const column *x = arrays->get_attribute(a), *y = text->get_attribute(a);
    EXPECT_EQ(x->get_type(), y->get_type()) << a;
    EXPECT_EQ(x->get_o_set()->get_datatype(), y->get_o_set()->get_datatype()) << a;
    EXPECT_EQ(domain_of(x), domain_of(y)) << a;
    EXPECT_EQ(codes_of(x, 14), codes_of(y, 14)) << a;
    EXPECT_EQ(typeid(*x), typeid(*y)) << "same storage for column " << a;
  }
  EXPECT_EQ(outputs_of(arrays.get()), outputs_of(text.get()));
}

TEST(TableArrays, RealsAreNarrowedToFloatAndNaNIsUnknown) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  // Stride 2: the first column of a two-column row-major matrix.
  std::vector<double> m{0.1, 9, nan, 9, 2.5, 9, -0.0, 9, 0.0, 9, 1e-50, 9, 0.1, 9};
  std::vector<std::int64_t> cls(7, 0);
  auto t = table_from_arrays(
      "t", {{"x", column::CONTINUOUS, real_values{m.data(), 2}}, {"c", column::CLASS, text_values{cls.data(), 1, {"a"}}}},
      7);
  const column* x = t->get_attribute(0);
  EXPECT_EQ(x->get_o_set()->get_datatype(), "float");
  EXPECT_TRUE(x->get_o_set()->contains_null());
  // 0, -0 and 1e-50 (0 as a float) are one value, spelled 0.
  EXPECT_EQ(domain_of(x), (std::vector<std::string>{"0", "0.100000001490116119384765625", "2.5"}));
  EXPECT_EQ(codes_of(x, 7), (std::vector<unsigned>{2, 0, 3, 1, 1, 1, 2}));
  for (double bad : {std::numeric_limits<double>::infinity(), -1e300}) {
    m[4] = bad;
    EXPECT_EQ(error_of([&] {
                table_from_arrays("t",
                                  {{"x", column::CONTINUOUS, real_values{m.data(), 2}},
                                   {"c", column::CLASS, text_values{cls.data(), 1, {"a"}}}},
                                  7);
              }),
              std::string("column 'x': ") + (bad > 0 ? "inf" : "-1e+300") + " is not a finite 32-bit float");
  }
}

TEST(TableArrays, IntegersWithAMaskAndTheirRange) {
  std::vector<std::int64_t> v{-5, 7, 123456, 7, -5}, cls(5, 0);
  std::vector<std::uint8_t> mask{0, 0, 1, 0, 0};
  auto columns = [&](const std::uint8_t* unknown) {
    return std::vector<array_column>{{"n", column::CONTINUOUS, integer_values{v.data(), 1, unknown}},
                                     {"c", column::CLASS, text_values{cls.data(), 1, {"a"}}}};
  };
  auto t = table_from_arrays("t", columns(mask.data()), 5);
  EXPECT_EQ(domain_of(t->get_attribute(0)), (std::vector<std::string>{"-5", "7"})) << "the masked value is unknown";
  EXPECT_EQ(codes_of(t->get_attribute(0), 5), (std::vector<unsigned>{1, 2, 0, 2, 1}));
  v[2] = 2147483647;
  v[4] = -2147483648LL;
  EXPECT_EQ(domain_of(table_from_arrays("t", columns(nullptr), 5)->get_attribute(0)).size(), 4u);
  v[2] = 2147483648LL;
  EXPECT_EQ(error_of([&] { table_from_arrays("t", columns(nullptr), 5); }),
            "column 'n': 2147483648 does not fit a 32-bit integer");
  EXPECT_EQ(error_of([&] { table_from_arrays("t", columns(mask.data()), 5); }), "no error") << "masked values are not read";
}

TEST(TableArrays, TextsKeepOnlyUsedDistinctValuesInByteOrder) {
  // "b" twice among the texts, "z" unused, "?" and negative codes unknown.
  std::vector<std::int64_t> codes{0, 1, 2, -1, 4, 1}, cls(6, 0);
  auto t = table_from_arrays("t",
                             {{"s", column::DISCRETE, text_values{codes.data(), 1, {"b", "B", "b", "z", "?"}}},
                              {"c", column::CLASS, text_values{cls.data(), 1, {"a"}}}},
                             6);
  const column* s = t->get_attribute(0);
  EXPECT_EQ(domain_of(s), (std::vector<std::string>{"B", "b"}));
  EXPECT_EQ(codes_of(s, 6), (std::vector<unsigned>{2, 1, 2, 0, 0, 1}));
  EXPECT_TRUE(s->get_o_set()->contains_null());
  codes[4] = 5;
  EXPECT_EQ(error_of([&] {
              table_from_arrays("t",
                                {{"s", column::DISCRETE, text_values{codes.data(), 1, {"b", "B", "b", "z", "?"}}},
                                 {"c", column::CLASS, text_values{cls.data(), 1, {"a"}}}},
                                6);
            }),
            "column 's': code 5 has no text");
}

TEST(TableArrays, TwoValuedDiscreteColumnsTakeBitsOnlyWithoutUnknowns) {
  std::vector<std::int64_t> full{0, 1, 1}, holed{0, -1, 1}, cls(3, 0);
  auto t = table_from_arrays("t",
                             {{"f", column::DISCRETE, text_values{full.data(), 1, {"no", "yes"}}},
                              {"h", column::DISCRETE, text_values{holed.data(), 1, {"no", "yes"}}},
                              {"c", column::CLASS, text_values{cls.data(), 1, {"a"}}}},
                             3);
  EXPECT_NE(dynamic_cast<const column_bool*>(t->get_attribute(0)), nullptr);
  EXPECT_NE(dynamic_cast<const column_typed<unsigned char>*>(t->get_attribute(1)), nullptr);
}

TEST(TableArrays, WeightsComeFromTheWeightsColumn) {
  std::vector<double> w{2.5, 0.1, 1};
  std::vector<std::int64_t> x{0, 1, 0}, cls{0, 1, 1};
  auto t = table_from_arrays("t",
                             {{"x", column::DISCRETE, text_values{x.data(), 1, {"p", "q"}}},
                              {"c", column::CLASS, text_values{cls.data(), 1, {"a", "b"}}},
                              {"w", column::WEIGHTS, real_values{w.data(), 1}}},
                             3);
  EXPECT_EQ(t->get_weights_index(), 2u);
  std::unique_ptr<w_sequence> all(t->get_wsubset_all());
  ASSERT_EQ(all->size(), 3u);
  EXPECT_EQ((*all)[0].second, 2.5f);
  EXPECT_EQ((*all)[1].second, 0.1f);
  EXPECT_EQ((*all)[2].second, 1.0f);
}

TEST(TableArrays, ColumnsTheirKindRefuses) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> w{1, nan};
  std::vector<std::int64_t> cls{0, -1}, ok{0, 0};
  EXPECT_EQ(error_of([&] { table_from_arrays("t", {{"c", column::CLASS, text_values{cls.data(), 1, {"a"}}}}, 2); }),
            "Class column 'c' does not admit unknown values");
  EXPECT_EQ(error_of([&] {
              table_from_arrays("t",
                                {{"c", column::CLASS, text_values{ok.data(), 1, {"a"}}},
                                 {"w", column::WEIGHTS, real_values{w.data(), 1}}},
                                2);
            }),
            "Weights column 'w' does not admit unknown values");
  EXPECT_EQ(error_of([&] {
              table_from_arrays("t",
                                {{"s", column::CONTINUOUS, text_values{ok.data(), 1, {"a"}}},
                                 {"c", column::CLASS, text_values{ok.data(), 1, {"a"}}}},
                                2);
            }),
            "Continuous column 's' requires a numeric data type");
  EXPECT_EQ(error_of([&] { table_from_arrays("t", {{"s", column::DISCRETE, text_values{ok.data(), 1, {"a"}}}}, 2); }),
            "there must be only one class column");
}

// The two hooks arrays rely on, each at its guard.
TEST(TableArrays, FinishedDomainsAndFilledColumnsAreChecked) {
  o_set_typed<datatype<int>> d("integer", true, "?");
  EXPECT_EQ(error_of([&] { d.assign_sorted({datatype<int>(2), datatype<int>(2)}); }),
            "[o_set::assign_sorted()] values not distinct and ascending");
  d.assign_sorted({datatype<int>(-1), datatype<int>(4)});
  EXPECT_EQ(d.get_value(2), "4");
  unsigned order = 0;
  EXPECT_TRUE(d.get_order("-1", order));
  EXPECT_EQ(order, 1u);

  std::vector<std::int64_t> three{0, 0, 0}, two{0, 0};
  auto t = table_from_arrays("t", {{"c", column::CLASS, text_values{three.data(), 1, {"a"}}}}, 3);
  auto short_column = table_from_arrays("u", {{"x", column::CLASS, text_values{two.data(), 1, {"a"}}}}, 2);
  column* x = short_column->get_class()->clone(false);
  EXPECT_EQ(error_of([&] { t->push_back_filled(x); }), "[table::push_back_filled] column 'x' holds 2 rows, the table 3");
  EXPECT_EQ(t->get_no_attributes(), 1u) << "a refused column is not appended";
}

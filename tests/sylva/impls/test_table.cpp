#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/table.h"
#include "table_fixture.h"

using namespace sylva::impls;
using table_fixture::load;
using table_fixture::load_error;

namespace {
const std::string two_cols = "x,integer,continuous\ny,string,class\n";
}

TEST(Table, LoadsGolf) {
  auto t = table_fixture::golf();
  EXPECT_EQ(t->get_no_rows(), 14u);
  EXPECT_EQ(t->get_no_attributes(), 5u);
  EXPECT_EQ(t->get_class_index(), 4u);
  EXPECT_EQ(t->get_weights_index(), 5u);
  EXPECT_EQ(t->get_class()->get_value(1), "Don't Play");
  EXPECT_EQ(t->get_attribute(1)->get_row_value(0), "85");
  EXPECT_NE(dynamic_cast<column_bool*>(t->get_attribute(3)), nullptr) << "windy has two values, no unknown";
}

TEST(Table, MetadataRowFormat) {
  EXPECT_EQ(load_error("a,string,discrete\nb,string\n", ""),
            "Reading metadata: bad row format (row 2): b,string");
  EXPECT_EQ(load_error("a,string,discrete\n\n", ""), "Reading metadata: bad row format (row 2): ");
  // A trailing separator adds no field; a fourth field is ignored.
  auto t = load("a,string,discrete,\nb,string,class,extra\n", "p,q\n");
  EXPECT_EQ(t->get_no_attributes(), 2u);
  EXPECT_EQ(t->get_attribute(1)->get_name(), "b");
}

TEST(Table, MetadataRefusals) {
  EXPECT_EQ(load_error("a,string,nominal\n", ""), "Reading metadata: Unknown column type: nominal");
  EXPECT_EQ(load_error("a,real,discrete\n", ""), "Reading metadata: invalid o_set type = real");
  EXPECT_EQ(load_error("a,double,continuous\n", ""),
            "Reading metadata: Continuous column 'a' requires a numeric data type");
  EXPECT_EQ(load_error("a,string,weights\n", ""),
            "Reading metadata: Weights column 'a' requires a non-negative numeric data type");
}

TEST(Table, ClassAndWeightsRules) {
  EXPECT_EQ(load_error("a,string,discrete\n", "x\n"), "Reading training data: there must be only one class column");
  EXPECT_EQ(load_error("a,string,class\nb,string,class\n", "x,y\n"),
            "Reading training data: there must be only one class column");
  EXPECT_EQ(load_error("w,float,weights\nv,float,weights\nc,string,class\n", "1,1,x\n"),
            "Reading training data: there must be at most one weights column");
  EXPECT_EQ(load_error(two_cols, "1,yes\n2,?\n"), "Reading training data: Class column 'y' does not admit unknown values");
  EXPECT_EQ(load_error("w,float,weights\nc,string,class\n", "1,x\n?,y\n"),
            "Reading training data: [o_set::insert()] called with unadmitted null value");
}

TEST(Table, DataRowsFailInTheFirstPass) {
  EXPECT_EQ(load_error(two_cols, "1,a\n2,b,c\n3,a\n"), "Reading training data: bad row format (row 2): 2,b,c");
  EXPECT_EQ(load_error(two_cols, "1,a\n2,b\n3\n"), "Reading training data: bad row format (row 3): 3");
  EXPECT_EQ(load_error(two_cols, "1,a\n12x,b\n"), "Reading training data: 12x: _not an int");
  EXPECT_EQ(load_error("x,float,continuous\ny,string,class\n", "abc,a\n"), "Reading training data: abc: not a float");
}

TEST(Table, FailedLoadLeavesTheTableAsItWas) {
  testing_support::scratch_dir d;
  table t("t", true);
  t.load_meta_data(table_fixture::text_stream(d, "n", two_cols).get(), true);
  EXPECT_THROW(t.load_data(table_fixture::text_stream(d, "d", "1,a\n2,b,c\n").get(), "?", true), std::runtime_error);
  EXPECT_EQ(t.get_no_rows(), 0u);
  EXPECT_EQ(t.get_no_attributes(), 2u);
  EXPECT_EQ(t.get_attribute(0)->size(), 0u);
  // The same table loads once the data are right.
  t.load_data(table_fixture::text_stream(d, "d2", "1,a\n2,b\n").get(), "?", true);
  EXPECT_EQ(t.get_no_rows(), 2u);
  EXPECT_EQ(t.get_attribute(0)->get_row_value(1), "2");
}

TEST(Table, EmptyDataLoadsNoRows) {
  auto t = load(two_cols, "");
  EXPECT_EQ(t->get_no_rows(), 0u);
  EXPECT_EQ(t->get_attribute(0)->get_range(), index_range(0, 0));
}

TEST(Table, LogAtVerbosityOne) {
  std::ostringstream log;
  load(table_fixture::golf_names, table_fixture::golf_data, &log, 1);
  EXPECT_EQ(log.str(), "Reading data   14 rows read. Indexing ...  done.\n ... 2nd pass: \n");
}

TEST(Table, LogAboveOneCountsRows) {
  std::string data;
  for (int i = 0; i < 20001; ++i) data += std::to_string(i % 7) + (i % 2 ? ",a\n" : ",b\n");
  std::ostringstream log;
  load(two_cols, data, &log, 200);
  EXPECT_EQ(log.str(),
            "Reading data \n ... 1st pass: \n  10000\r  20000\r  20001 rows read. Indexing ...  done.\n"
            " ... 2nd pass: \n  10000\r  20000\r  20001 rows read.\n");
}

TEST(Table, MetadataCopyKeepsClassAndDiscreteDomains) {
  auto t = table_fixture::golf();
  std::unique_ptr<table> m(t->clone(35));
  EXPECT_EQ(m->get_no_attributes(), 5u);
  EXPECT_EQ(m->get_class()->get_value(2), "Play");
  EXPECT_EQ(m->get_attribute(0)->get_value(2), "rain");
  EXPECT_EQ(m->get_attribute(0)->get_o_set()->size_of_known(), 3u);
  EXPECT_EQ(m->get_attribute(0)->size(), 0u);
  const column* temperature = m->get_attribute(1);
  EXPECT_TRUE(temperature->is_continuous());
  EXPECT_EQ(temperature->get_o_set()->get_datatype(), "integer");
  EXPECT_EQ(temperature->get_o_set()->size_of_known(), 0u) << "a placeholder";
  EXPECT_EQ(temperature->get_o_set()->leq("64", "70"), 0);
}

TEST(Table, ConsistencyForTree) {
  testing_support::scratch_dir d;
  table t("t", false);
  t.load_meta_data(table_fixture::text_stream(d, "n", "a,string,discrete\n").get(), true);
  std::string message;
  EXPECT_TRUE(t.consistency_check(1, message)) << "no rules when not for a tree";
  EXPECT_FALSE(t.set_consistency_for_tree(true, message));
  EXPECT_EQ(message, "there must be only one class column");
  EXPECT_FALSE(t.is_for_tree());
  EXPECT_EQ(t.get_class_index(), 1u);
}

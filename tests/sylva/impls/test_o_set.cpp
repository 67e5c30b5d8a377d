#include <gtest/gtest.h>

#include "test_support.h"

#include <algorithm>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

#include "sylva/impls/o_set.h"

using testing_support::error_of;

using sylva::impls::o_set;

namespace {

std::unique_ptr<o_set> domain(const std::string& word, std::initializer_list<const char*> values,
                              bool admits = true) {
  std::unique_ptr<o_set> d(o_set::NEW_O_SET(word, admits, "?"));
  for (const char* v : values) d->insert(v);
  return d;
}


unsigned order_of(const o_set& d, const char* s) {
  unsigned o = 999;
  return d.get_order(s, o) ? o : 999;
}

}  // namespace

TEST(OSet, FactoryWords) {
  for (const char* w : {"integer", "uinteger", "float", "double", "string", "null"})
    EXPECT_EQ(domain(w, {})->get_datatype(), w);
  EXPECT_EQ(error_of([] { o_set::NEW_O_SET("real", true, "?"); }), "invalid o_set type = real");
  EXPECT_TRUE(domain("float", {})->is_dt_numeric());
  EXPECT_TRUE(domain("uinteger", {})->is_dt_numeric());
  EXPECT_FALSE(domain("double", {})->is_dt_numeric());
  EXPECT_FALSE(domain("string", {})->is_dt_numeric());
}

TEST(OSet, IndexOrderIsValueOrder) {
  auto d = domain("integer", {"10", "-3", "2", "10", "?", "2"});
  EXPECT_EQ(d->size_of_known(), 3u);
  EXPECT_EQ(d->get_value(1), "-3");
  EXPECT_EQ(d->get_value(2), "2");
  EXPECT_EQ(d->get_value(3), "10");
  EXPECT_EQ(order_of(*d, "10"), 3u);
  EXPECT_EQ(order_of(*d, "?"), 0u);
  EXPECT_EQ(order_of(*d, "7"), 999u) << "a value never inserted is not an error";
  EXPECT_EQ(error_of([&] { order_of(*d, "7x"); }), "7x: _not an int");
  EXPECT_EQ(d->get_value(0), "?");
  EXPECT_EQ(d->get_value(4), "?");
}

TEST(OSet, UnknownsOnly) {
  auto d = domain("string", {"?", "?"});
  EXPECT_EQ(d->size_of_known(), 0u);
  EXPECT_TRUE(d->contains_null());
  EXPECT_EQ(order_of(*d, "?"), 0u);
  auto seen_none = domain("string", {"a"});
  EXPECT_EQ(order_of(*seen_none, "?"), 999u) << "0 only when an unknown occurred";
  auto refused = domain("float", {}, false);
  EXPECT_EQ(error_of([&] { refused->insert("?"); }), "[o_set::insert()] called with unadmitted null value");
  EXPECT_EQ(order_of(*refused, "?"), 999u);
}

TEST(OSet, RealsPrintExactly) {
  auto d = domain("double", {"1", "1.0", "1e0", "2.5", "-0.5"});
  EXPECT_EQ(d->size_of_known(), 3u);
  EXPECT_EQ(d->get_value(1), "-0.5");
  EXPECT_EQ(d->get_value(2), "1");
  EXPECT_EQ(d->get_value(3), "2.5");
  auto f = domain("float", {"0.1", "3"});
  EXPECT_EQ(f->get_value(1), "0.100000001490116119384765625");
  EXPECT_EQ(f->get_value(2), "3");
  // The printed form reads back as the same value.
  EXPECT_EQ(order_of(*f, "0.100000001490116119384765625"), 1u);
}

TEST(OSet, RealParsingRefusals) {
  auto d = domain("double", {});
  EXPECT_EQ(error_of([&] { d->insert("12abc"); }), "12abc: not a double");
  EXPECT_EQ(error_of([&] { d->insert(""); }), ": not a double");
  auto f = domain("float", {});
  EXPECT_EQ(error_of([&] { f->insert("1,5"); }), "1,5: not a float");
  EXPECT_NO_THROW(f->insert(" +1e3"));
  EXPECT_NO_THROW(f->insert("inf"));
  EXPECT_EQ(f->get_value(1), "1000");
}

TEST(OSet, MidpointThresholds) {
  auto d = domain("double", {"1", "2", "10"});
  EXPECT_EQ(d->find_mid(1, 3), "2") << "midpoint 5.5, largest value not above it";
  EXPECT_EQ(d->find_mid(2, 3), "2");
  EXPECT_EQ(d->find_mid(3, 3), "10");
  auto i = domain("integer", {"1", "2", "10"});
  EXPECT_EQ(i->find_mid(1, 3), "2");
  auto neg = domain("integer", {"-7", "-1", "4"});
  EXPECT_EQ(neg->find_mid(1, 3), "-1") << "(-7 + 4) / 2 truncates toward zero";
  auto wide = domain("integer", {"-2147483647", "2147483646", "2147483647"});
  EXPECT_EQ(wide->find_mid(2, 3), "2147483646");
  EXPECT_EQ(wide->find_mid(1, 3), "-2147483647");
  auto u = domain("uinteger", {"4294967290", "4294967292", "4294967295"});
  EXPECT_EQ(u->find_mid(1, 3), "4294967292");
  auto f = domain("float", {"0.25", "0.5", "0.75"});
  EXPECT_EQ(f->find_mid(1, 2), "0.25");
  EXPECT_EQ(f->find_mid(1, 3), "0.5");
  // Infinite ends: the threshold stays below hi, so the cut keeps both sides.
  auto inf = domain("double", {"-inf", "1", "2", "inf"});
  EXPECT_EQ(inf->find_mid(2, 4), "2") << "towards +inf: the last value below it";
  EXPECT_EQ(inf->find_mid(3, 4), "2");
  EXPECT_EQ(inf->find_mid(1, 2), "-inf") << "towards -inf: lo";
  EXPECT_EQ(inf->find_mid(1, 4), "-inf") << "between both: lo";
  auto finf = domain("float", {"0.5", "inf"});
  EXPECT_EQ(finf->find_mid(1, 2), "0.5");
}

TEST(OSet, MidpointRangeErrors) {
  auto d = domain("double", {"1", "2", "10"});
  const std::string prefix = "[o_set::find_threshold()] called for non-existing elements ";
  EXPECT_EQ(error_of([&] { d->find_mid(2, 1); }), prefix + "1-0");
  EXPECT_EQ(error_of([&] { d->find_mid(0, 3); }), prefix + "0-3");
  EXPECT_EQ(error_of([&] { d->find_mid(1, 4); }), prefix + "0-3");
  EXPECT_EQ(error_of([&] { domain("string", {"a", "b"})->find_mid(1, 2); }),
            "mid_value() is undefined on type datatype_string");
  EXPECT_EQ(error_of([&] { domain("null", {})->find_mid(1, 2); }),
            "[o_set::find_threshold()] called for non-existing elements");
}

TEST(OSet, Comparisons) {
  auto i = domain("integer", {"3", "10"});
  EXPECT_EQ(i->leq("3", "10"), 0) << "numeric, not text order";
  EXPECT_EQ(i->leq("10", "3"), 1);
  EXPECT_EQ(i->leq("?", "3"), -1);
  EXPECT_EQ(i->leq(1, "3"), 0);
  EXPECT_EQ(i->leq(2, "3"), 1);
  EXPECT_EQ(i->leq(0, "3"), -1);
  EXPECT_EQ(i->leq(1, "?"), -1);
  auto s = domain("string", {"b"});
  EXPECT_EQ(s->leq("b", "a"), 1);
  EXPECT_EQ(s->leq(1, "bb"), 0);
  auto n = domain("null", {"?"});
  EXPECT_EQ(n->leq("1", "2"), -1);
  EXPECT_EQ(n->size_of_known(), 0u);
}

TEST(OSet, InsertionResumesAfterQueries) {
  auto d = domain("integer", {"5", "9"});
  EXPECT_EQ(order_of(*d, "9"), 2u);
  d->insert("1");
  EXPECT_EQ(d->size_of_known(), 3u);
  EXPECT_EQ(order_of(*d, "9"), 3u) << "a smaller value shifts the ranks";
  EXPECT_EQ(d->get_value(1), "1");
}

TEST(OSet, CloneIsFinishedAndIndependent) {
  auto d = domain("string", {"x", "?", "a"});
  std::unique_ptr<o_set> c(d->clone());
  d->insert("0");
  EXPECT_EQ(c->size_of_known(), 2u);
  EXPECT_TRUE(c->contains_null());
  EXPECT_EQ(c->get_value(1), "a");
  EXPECT_EQ(d->size_of_known(), 3u);
}

TEST(OSet, ManyValuesThroughTheCacheComeOutSortedOnce) {
  std::vector<int> values;
  for (int v = 0; v < 20000; ++v) values.push_back(v * 3 - 7000);
  std::vector<int> stream = values;
  stream.insert(stream.end(), values.begin(), values.begin() + 5000);
  std::shuffle(stream.begin(), stream.end(), std::mt19937(7));
  auto d = domain("integer", {});
  for (int v : stream) d->insert(std::to_string(v).c_str());
  ASSERT_EQ(d->size_of_known(), values.size());
  for (unsigned k = 0; k < values.size(); k += 997) EXPECT_EQ(d->get_value(k + 1), std::to_string(values[k]));
  auto s = domain("string", {"", "b", "", "a"});
  EXPECT_EQ(s->size_of_known(), 3u);
  EXPECT_EQ(s->get_value(1), "");
}

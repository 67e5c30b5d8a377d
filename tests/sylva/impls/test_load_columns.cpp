#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "sylva/impls/load_columns.h"
#include "test_support.h"

using namespace sylva::impls;
using namespace sylva::impls::loading;
using testing_support::error_of;

namespace {

// Field texts as the loader hands them over: with readable bytes after them.
struct field_text {
  explicit field_text(const std::string& s) : bytes(s.size() + 32, '\0') { std::memcpy(bytes.data(), s.data(), s.size()); }
  const char* text() const { return bytes.data(); }
  std::vector<char> bytes;
};

void insert(column_intake& in, const std::string& s, std::size_t chunk) {
  const field_text f(s);
  in.insert(f.text(), s.size(), chunk);
}

std::vector<std::string> values_of(const o_set& d) {
  std::vector<std::string> v;
  for (unsigned i = 1; i <= d.size_of_known(); ++i) v.push_back(d.get_value(i));
  return v;
}

}  // namespace

TEST(LoadColumns, DomainsJoinWhatEveryThreadMet) {
  std::unique_ptr<o_set> d(o_set::NEW_O_SET("integer", true, "?"));
  const column_spec spec(d.get());
  column_intake a(spec, 256, 6), b(spec, 0, 0);
  for (const char* v : {"5", "-3", "5", "12"}) insert(a, v, 0);
  for (const char* v : {"7", "-3", "?", "0005"}) insert(b, v, 1);
  finish_domain(spec, {&a, &b});
  EXPECT_EQ(values_of(*d), (std::vector<std::string>{"-3", "5", "7", "12"}));
  EXPECT_TRUE(d->contains_null()) << "one thread met the unknown";
}

TEST(LoadColumns, TheZeroMetFirstInTheSourceIsKept) {
  // Threads take chunks in source order each, so each keeps its first zero;
  // the zero of the earliest chunk wins, whichever thread met it.
  for (const bool later_thread_first : {false, true}) {
    std::unique_ptr<o_set> d(o_set::NEW_O_SET("float", true, "?"));
    const column_spec spec(d.get());
    column_intake a(spec, 0, 0), b(spec, 0, 0);
    insert(a, "2", 1);
    insert(a, "-0.0", 5);
    insert(b, "0", 2);
    insert(b, "-0", 3);
    finish_domain(spec, later_thread_first ? std::vector<column_intake*>{&b, &a} : std::vector<column_intake*>{&a, &b});
    EXPECT_EQ(values_of(*d), (std::vector<std::string>{"0", "2"}));
  }
}

TEST(LoadColumns, NotANumberJoinsNoDomain) {
  std::unique_ptr<o_set> d(o_set::NEW_O_SET("double", true, "?"));
  const column_spec spec(d.get());
  column_intake a(spec, 16, 4);
  for (const char* v : {"1.5", "nan", "-NaN", "inf"}) insert(a, v, 0);
  finish_domain(spec, {&a});
  EXPECT_EQ(d->size_of_known(), 2u);
  EXPECT_EQ(d->get_value(1), "1.5");
}

TEST(LoadColumns, IntakeRefusesAsTheDomainDoes) {
  std::unique_ptr<o_set> w(o_set::NEW_O_SET("float", false, "?"));
  const column_spec weights(w.get());
  column_intake a(weights, 256, 6);
  EXPECT_EQ(error_of([&] { insert(a, "?", 0); }), "[o_set::insert()] called with unadmitted null value");
  EXPECT_EQ(error_of([&] { insert(a, "1,5", 0); }), "1,5: not a float");
  std::unique_ptr<o_set> u(o_set::NEW_O_SET("uinteger", true, "?"));
  const column_spec counts(u.get());
  column_intake b(counts, 256, 6);
  EXPECT_EQ(error_of([&] { insert(b, "-1", 0); }), "str2int:: a negative number provided.");
  // A null column holds no value and ignores all but the unknown token.
  std::unique_ptr<o_set> n(o_set::NEW_O_SET("null", true, "?"));
  const column_spec nothing(n.get());
  column_intake c(nothing, 256, 6);
  insert(c, "whatever", 0);
  EXPECT_FALSE(n->contains_null());
  insert(c, "?", 0);
  finish_domain(nothing, {&c});
  EXPECT_TRUE(n->contains_null());
}

namespace {

// A column over a domain of the values 0, 10, ..., 10 * (n - 1).
std::unique_ptr<column> tens(const std::string& datatype, unsigned n, const std::string& kind = "continuous") {
  o_set* d = o_set::NEW_O_SET(datatype, true, "?");
  for (unsigned i = 0; i < n; ++i) d->insert(std::to_string(10 * i).c_str());
  std::string error;
  return std::unique_ptr<column>(column::NEW_COLUMN(d, "c", kind, error));
}

}  // namespace

TEST(LoadColumns, WritersStoreEveryRowWhetherQueuedOrNot) {
  for (const unsigned n : {5u, 300u, 70000u}) {  // searched, bucketed and queued, four-byte indices
    auto col = tens("integer", n);
    const column_spec spec(col->get_o_set());
    column_coder coder(spec, col.get(), 6);
    column_writer w(coder, 256);
    const std::vector<std::string> texts = {"0", "10", std::to_string(10 * (n - 1)), "10", "00", "+20"};
    std::vector<field_text> fields;
    for (const std::string& t : texts) fields.emplace_back(t);
    for (std::size_t r = 0; r < texts.size(); ++r) w.put(r, fields[r].text(), texts[r].size());
    std::size_t missing_row = 99;
    EXPECT_EQ(w.settle(missing_row), nullptr);
    w.end_chunk();
    coder.attach();
    ASSERT_EQ(col->size(), 6u);
    EXPECT_EQ(col->get_row_index(0), 1u);
    EXPECT_EQ(col->get_row_index(1), 2u);
    EXPECT_EQ(col->get_row_index(2), n);
    EXPECT_EQ(col->get_row_index(3), 2u);
    EXPECT_EQ(col->get_row_index(4), 1u);
    EXPECT_EQ(col->get_row_index(5), 3u);
  }
}

TEST(LoadColumns, AValueMissingFromTheDomainIsRefusedAtItsFirstRow) {
  auto col = tens("float", 1000);
  const column_spec spec(col->get_o_set());
  column_coder coder(spec, col.get(), 5);
  column_writer w(coder, 256);
  const std::vector<std::string> texts = {"10", "15", "20", "25", "30"};
  std::vector<field_text> fields;
  for (const std::string& t : texts) fields.emplace_back(t);
  for (std::size_t r = 0; r < texts.size(); ++r) w.put(r, fields[r].text(), texts[r].size());
  std::size_t row = 99;
  const char* missing = w.settle(row);
  ASSERT_NE(missing, nullptr);
  EXPECT_STREQ(missing, "15");
  EXPECT_EQ(row, 1u);
  EXPECT_EQ(error_of([&] { coder.refuse(missing); }), "column require a valid o_set");
  // Not-a-number is refused at once.
  const field_text nan("nan");
  EXPECT_EQ(error_of([&] { w.put(0, nan.text(), 3); }), "column require a valid o_set");
  // A two-valued discrete column, stored as bits, refuses with its own text.
  auto bits = tens("string", 2, "discrete");
  const column_spec bit_spec(bits->get_o_set());
  column_coder bit_coder(bit_spec, bits.get(), 1);
  column_writer bw(bit_coder, 256);
  const field_text absent("7");
  EXPECT_EQ(error_of([&] { bw.put(0, absent.text(), 1); }), "[column::push_back] index not found for value '7'");
}

TEST(LoadColumns, BitsOfNeighbouringChunksShareWords) {
  auto col = tens("string", 2, "discrete");  // values 0 and 10
  const column_spec spec(col->get_o_set());
  column_coder coder(spec, col.get(), 70);
  // Two writers (two threads) fill alternating ranges that split words.
  column_writer a(coder, 0), b(coder, 0);
  const field_text zero("0"), ten("10");
  for (std::size_t r = 0; r < 70; ++r) {
    column_writer& w = (r / 7) % 2 ? b : a;
    w.put(r, r % 3 ? ten.text() : zero.text(), r % 3 ? 2 : 1);
    if (r % 7 == 6) w.end_chunk();
  }
  coder.attach();
  for (unsigned r = 0; r < 70; ++r) EXPECT_EQ(col->get_row_index(r), r % 3 ? 2u : 1u) << r;
}

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

// One column's fields as a cut chunk holds them: NUL-terminated, with
// readable bytes after them.
struct column_texts {
  std::vector<std::vector<char>> texts;
  chunk_fields fields{1};

  explicit column_texts(const std::vector<std::string>& values) {
    for (const std::string& v : values) {
      texts.emplace_back(v.size() + 32, '\0');
      std::memcpy(texts.back().data(), v.data(), v.size());
    }
    for (std::size_t r = 0; r < values.size(); ++r) {
      *fields.next_row() = tarn::util::field_span{texts[r].data(), values[r].size()};
      ++fields.rows;
    }
  }
};

// Inserts values as one chunk; the message of the failure, if any, and its
// row.
std::string insert(column_intake& in, const std::vector<std::string>& values, std::size_t chunk,
                   std::size_t* failed_row = nullptr) {
  const column_texts t(values);
  std::exception_ptr error;
  const std::size_t row = in.insert_rows(t.fields, 0, values.size(), chunk, error);
  if (failed_row) *failed_row = row;
  return error ? testing_support::error_of([&] { std::rethrow_exception(error); }) : "";
}

// Writes values as one chunk from row `first`; the refusal, if any, and its
// row in the chunk.
std::string put(column_writer& w, const std::vector<std::string>& values, std::size_t first,
                std::size_t* failed_row = nullptr) {
  const column_texts t(values);
  std::exception_ptr error, queued_error;
  w.begin_chunk(first);
  std::size_t row = w.put_rows(t.fields, 0, values.size(), 0, error);
  const std::size_t missing = w.end_chunk(queued_error);
  if (missing < row) {
    row = missing;
    error = queued_error;
  }
  if (failed_row) *failed_row = row;
  return error ? testing_support::error_of([&] { std::rethrow_exception(error); }) : "";
}

std::vector<std::string> values_of(const o_set& d) {
  std::vector<std::string> v;
  for (unsigned i = 1; i <= d.size_of_known(); ++i) v.push_back(d.get_value(i));
  return v;
}

}  // namespace

TEST(LoadColumns, DomainsJoinWhatEveryThreadMet) {
  std::unique_ptr<o_set> d(o_set::NEW_O_SET("integer", true, "?"));
  const column_plan plan(d.get());
  column_intake a(plan, 256, 6), b(plan, 0, 0);
  EXPECT_EQ(insert(a, {"5", "-3", "5", "12"}, 0), "");
  EXPECT_EQ(insert(b, {"7", "-3", "?", "0005"}, 1), "");
  finish_domain(plan, {&a, &b});
  EXPECT_EQ(values_of(*d), (std::vector<std::string>{"-3", "5", "7", "12"}));
  EXPECT_TRUE(d->contains_null()) << "one thread met the unknown";
}

TEST(LoadColumns, TheZeroMetFirstInTheSourceIsKept) {
  // Threads take chunks in source order each, so each keeps its first zero;
  // the zero of the earliest chunk wins, whichever thread met it.
  for (const bool later_thread_first : {false, true}) {
    std::unique_ptr<o_set> d(o_set::NEW_O_SET("float", true, "?"));
    const column_plan plan(d.get());
    column_intake a(plan, 0, 0), b(plan, 0, 0);
    insert(a, {"2"}, 1);
    insert(a, {"-0.0"}, 5);
    insert(b, {"0"}, 2);
    insert(b, {"-0"}, 3);
    finish_domain(plan, later_thread_first ? std::vector<column_intake*>{&b, &a} : std::vector<column_intake*>{&a, &b});
    EXPECT_EQ(values_of(*d), (std::vector<std::string>{"0", "2"}));
  }
}

TEST(LoadColumns, NotANumberJoinsNoDomain) {
  std::unique_ptr<o_set> d(o_set::NEW_O_SET("double", true, "?"));
  const column_plan plan(d.get());
  column_intake a(plan, 16, 4);
  EXPECT_EQ(insert(a, {"1.5", "nan", "-NaN", "inf"}, 0), "");
  finish_domain(plan, {&a});
  EXPECT_EQ(d->size_of_known(), 2u);
  EXPECT_EQ(d->get_value(1), "1.5");
}

TEST(LoadColumns, IntakeRefusesAsTheDomainDoes) {
  std::unique_ptr<o_set> w(o_set::NEW_O_SET("float", false, "?"));
  const column_plan weights(w.get());
  column_intake a(weights, 256, 6);
  std::size_t row = 0;
  EXPECT_EQ(insert(a, {"1", "2", "?", "x"}, 0, &row), "[o_set::insert()] called with unadmitted null value");
  EXPECT_EQ(row, 2u) << "the first failing row";
  EXPECT_EQ(insert(a, {"1", "1,5", "?"}, 1, &row), "1,5: not a float");
  EXPECT_EQ(row, 1u);
  std::unique_ptr<o_set> u(o_set::NEW_O_SET("uinteger", true, "?"));
  const column_plan counts(u.get());
  column_intake b(counts, 256, 6);
  EXPECT_EQ(insert(b, {"-1"}, 0), "str2int:: a negative number provided.");
  // A null column holds no value and ignores all but the unknown token.
  std::unique_ptr<o_set> n(o_set::NEW_O_SET("null", true, "?"));
  const column_plan nothing(n.get());
  column_intake c(nothing, 256, 6);
  EXPECT_EQ(insert(c, {"whatever"}, 0), "");
  finish_domain(nothing, {&c});
  EXPECT_FALSE(n->contains_null());
  EXPECT_EQ(insert(c, {"?"}, 0), "");
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
    const column_plan plan(col->get_o_set());
    column_coder coder(plan, col.get(), 6);
    column_writer w(coder, 256);
    EXPECT_EQ(put(w, {"0", "10", std::to_string(10 * (n - 1))}, 0), "");
    EXPECT_EQ(put(w, {"10", "00", "+20"}, 3), "");
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
  const column_plan plan(col->get_o_set());
  column_coder coder(plan, col.get(), 5);
  column_writer w(coder, 256);
  std::size_t row = 99;
  EXPECT_EQ(put(w, {"10", "15", "20", "25", "30"}, 0, &row), "column require a valid o_set");
  EXPECT_EQ(row, 1u) << "the first row the domain lacks";
  // Not-a-number is refused as it is met, before a later missing value.
  EXPECT_EQ(put(w, {"10", "nan", "15"}, 0, &row), "column require a valid o_set");
  EXPECT_EQ(row, 1u);
  EXPECT_EQ(put(w, {"10", "15", "nan"}, 0, &row), "column require a valid o_set");
  EXPECT_EQ(row, 1u);
  // A two-valued discrete column, stored as bits, refuses with its own text.
  auto bits = tens("string", 2, "discrete");
  const column_plan bit_spec(bits->get_o_set());
  column_coder bit_coder(bit_spec, bits.get(), 2);
  column_writer bw(bit_coder, 256);
  EXPECT_EQ(put(bw, {"0", "7"}, 0, &row), "[column::push_back] index not found for value '7'");
  EXPECT_EQ(row, 1u);
}

TEST(LoadColumns, BitsOfNeighbouringChunksShareWords) {
  auto col = tens("string", 2, "discrete");  // values 0 and 10
  const column_plan plan(col->get_o_set());
  column_coder coder(plan, col.get(), 70);
  // Two writers (two threads) fill chunks of 7 rows that split words.
  column_writer a(coder, 0), b(coder, 0);
  for (std::size_t first = 0; first < 70; first += 7) {
    std::vector<std::string> texts;
    for (std::size_t r = first; r < first + 7; ++r) texts.push_back(r % 3 ? "10" : "0");
    EXPECT_EQ(put((first / 7) % 2 ? b : a, texts, first), "");
  }
  coder.attach();
  for (unsigned r = 0; r < 70; ++r) EXPECT_EQ(col->get_row_index(r), r % 3 ? 2u : 1u) << r;
}

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sylva/impls/load_passes.h"
#include "test_support.h"

using namespace sylva::impls::loading;
using tarn::inpout::text_chunk;
using testing_support::error_of;

namespace {

text_chunk chunk_at(std::size_t index, long long offset, std::size_t size) {
  text_chunk c;
  c.index = index;
  c.offset = offset;
  c.size = size;
  return c;
}

chunk_outcome rows(std::size_t n) {
  chunk_outcome o;
  o.rows = n;
  return o;
}

chunk_outcome bad_row_after(std::size_t n, const std::string& line) {
  chunk_outcome o = rows(n);
  o.bad_row = true;
  o.bad_line = line;
  return o;
}

chunk_outcome error_after(std::size_t n, const std::string& message) {
  chunk_outcome o = rows(n);
  o.error = std::make_exception_ptr(std::runtime_error(message));
  return o;
}

// Chunks handed out in a set order, as threads may finish them.
class scripted_source : public tarn::inpout::chunk_source {
public:
  explicit scripted_source(std::vector<std::size_t> order) : order_(std::move(order)) {}
  bool next(text_chunk& c) override {
    const std::size_t at = next_++;
    if (at >= order_.size()) return false;
    c = chunk_at(order_[at], static_cast<long long>(100 * order_[at]), 100);
    return true;
  }
  void stop_after(std::size_t index) override { stopped_after = index; }
  std::size_t stopped_after = pass_ledger::none;

private:
  std::vector<std::size_t> order_;
  std::atomic<std::size_t> next_{0};
};

}  // namespace

TEST(LoadPasses, OutcomesCountInSourceOrder) {
  std::ostringstream log;
  pass_ledger ledger(&log);
  // Chunks finish out of order; progress is shown for the rows of the
  // chunks that precede every unfinished one.
  ledger.record(chunk_at(2, 30, 5), rows(9000));
  EXPECT_EQ(log.str(), "");
  ledger.record(chunk_at(0, 0, 10), rows(9999));
  EXPECT_EQ(log.str(), "");
  ledger.record(chunk_at(1, 10, 20), rows(2));
  EXPECT_EQ(log.str(), "  10000\r");
  ledger.record(chunk_at(3, 35, 0), rows(0));
  EXPECT_EQ(ledger.finish(), 19001u);
  EXPECT_EQ(log.str(), "  10000\r");
  EXPECT_EQ(ledger.layout(), (tarn::inpout::chunk_layout{{0, 10}, {10, 20}, {30, 5}, {35, 0}}));
  EXPECT_EQ(ledger.first_rows(), (std::vector<std::size_t>{0, 9999, 10001, 19001}));
}

TEST(LoadPasses, TheFirstFailureInSourceOrderWins) {
  std::ostringstream log;
  pass_ledger ledger(&log);
  ledger.record(chunk_at(3, 0, 0), error_after(1, "later"));
  EXPECT_FALSE(ledger.wanted(4));
  EXPECT_TRUE(ledger.wanted(3));
  ledger.record(chunk_at(1, 0, 0), bad_row_after(4, "a,b"));
  EXPECT_FALSE(ledger.wanted(2));
  // A chunk taken before the failures were known may still come in.
  ledger.record(chunk_at(4, 0, 0), error_after(1, "latest"));
  EXPECT_FALSE(ledger.wanted(2));
  ledger.record(chunk_at(0, 0, 0), rows(10000));
  // The bad row is row 10004, counted: the progress stops there.
  EXPECT_EQ(error_of([&] { ledger.finish(); }), "bad row format (row 10004): a,b");
  EXPECT_EQ(log.str(), "  10000\r");
}

TEST(LoadPasses, AFailureIsCountedWithItsRow) {
  std::ostringstream log;
  pass_ledger ledger(&log);
  ledger.record(chunk_at(0, 0, 0), rows(15000));
  ledger.record(chunk_at(1, 0, 0), error_after(5000, "broken"));
  EXPECT_EQ(error_of([&] { ledger.finish(); }), "broken");
  EXPECT_EQ(log.str(), "  10000\r  20000\r");
}

TEST(LoadPasses, PassesRecordWhateverOrderChunksComeIn) {
  scripted_source source({4, 0, 3, 1, 2});
  std::ostringstream log;
  pass_ledger ledger(&log);
  run_pass(source, ledger, 1, [](unsigned, text_chunk& c) {
    return c.index == 3 ? bad_row_after(2, "x") : c.index == 1 ? error_after(1, "early") : rows(7);
  });
  EXPECT_EQ(source.stopped_after, 1u) << "reading stops after the first failure known";
  EXPECT_EQ(error_of([&] { ledger.finish(); }), "early");
}

TEST(LoadPasses, ParallelForRethrowsTheFirstFailureByIndex) {
  std::atomic<int> done{0};
  parallel_for(100, 3, [&](std::size_t) { ++done; });
  EXPECT_EQ(done.load(), 100);
  EXPECT_EQ(error_of([] {
              parallel_for(50, 4, [](std::size_t i) {
                if (i == 40 || i == 7) throw std::runtime_error("task " + std::to_string(i));
              });
            }),
            "task 7");
}

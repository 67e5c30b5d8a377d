#pragma once

// The passes of the table loader (table_load.cpp): threads take chunks of
// the source and process them in any order; a ledger puts the outcomes back
// in source order, so that progress lines, row numbers and the failure that
// is reported are those of a reading from first line to last.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <iosfwd>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarn/inpout/chunk_source.h"

namespace sylva::impls::loading {

// What one chunk of a pass came to.
struct chunk_outcome {
  std::size_t rows = 0;  // rows counted, the failing one included
  // The first failure, after `rows` rows: an error, or a row with the wrong
  // number of fields (its message needs the row's number in the source,
  // known only once all earlier chunks are counted).
  std::exception_ptr error;
  bool bad_row = false;
  std::string bad_line;
  bool failed() const { return error || bad_row; }
};

class pass_ledger {
public:
  static constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

  // Progress lines ("  " + count + "\r" every 10,000 rows) go to `log` when
  // it is given.
  explicit pass_ledger(std::ostream* log) : log_(log) {}

  // Called with the rows and bytes counted so far, in source order, each
  // time the counted prefix grows (under the ledger's lock).
  void on_counted(std::function<void(std::size_t rows, std::uint64_t bytes)> f) { counted_ = std::move(f); }

  // Whether a chunk is still wanted: none after the first known failure.
  bool wanted(std::size_t index) const { return index <= first_failure_.load(); }
  // Records a chunk's outcome and where it lay.
  void record(const tarn::inpout::text_chunk& c, chunk_outcome&& o);
  // A failure outside any chunk (a thread that could not go on).
  void record_stray(std::exception_ptr e);

  // After the pass: the number of rows, or the first failure in source
  // order is thrown.
  std::size_t finish();
  // Where the chunks lay, and the number of the first row of each (from 0).
  const tarn::inpout::chunk_layout& layout() const { return layout_; }
  std::vector<std::size_t> first_rows() const;
  std::size_t rows_of(std::size_t index) const { return outcomes_[index].rows; }

private:
  void advance();
  void show(std::size_t from, std::size_t to) const;

  std::ostream* log_;
  std::mutex m_;
  std::vector<chunk_outcome> outcomes_;
  std::vector<char> done_;
  tarn::inpout::chunk_layout layout_;
  std::size_t prefix_ = 0;  // chunks before it are counted
  std::size_t rows_ = 0;    // rows of those chunks
  std::uint64_t bytes_ = 0;  // and their bytes
  std::function<void(std::size_t, std::uint64_t)> counted_;
  bool stopped_ = false;    // the prefix reached the first failure
  std::atomic<std::size_t> first_failure_{none};
  std::exception_ptr stray_;
};

// The error of a row with the wrong number of fields (row numbers from 1).
std::runtime_error bad_row_error(std::size_t row, const char* line);

// Runs `per_chunk(thread, chunk)` over the chunks of `source` on `threads`
// threads (the calling one among them) and records the outcomes.
void run_pass(tarn::inpout::chunk_source& source, pass_ledger& ledger, unsigned threads,
              const std::function<chunk_outcome(unsigned, tarn::inpout::text_chunk&)>& per_chunk);

// Runs `task(i)` for i in [0, n) on `threads` threads; rethrows the first
// failure (by index).
void parallel_for(std::size_t n, unsigned threads, const std::function<void(std::size_t)>& task);

}  // namespace sylva::impls::loading

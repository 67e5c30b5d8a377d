#include "sylva/impls/load_passes.h"

#include <algorithm>
#include <ostream>
#include <system_error>
#include <thread>

namespace sylva::impls::loading {

using tarn::inpout::chunk_source;
using tarn::inpout::text_chunk;

std::runtime_error bad_row_error(std::size_t row, const char* line) {
  return std::runtime_error("bad row format (row " + std::to_string(row) + "): " + line);
}

void pass_ledger::record(const text_chunk& c, chunk_outcome&& o) {
  std::lock_guard<std::mutex> lock(m_);
  const std::size_t i = c.index;
  if (i >= outcomes_.size()) {
    outcomes_.resize(i + 1);
    done_.resize(i + 1, 0);
    layout_.resize(i + 1);
  }
  if (o.failed() && i < first_failure_.load()) first_failure_.store(i);
  outcomes_[i] = std::move(o);
  done_[i] = 1;
  layout_[i] = {c.offset, c.size};
  advance();
}

void pass_ledger::record_stray(std::exception_ptr e) {
  std::lock_guard<std::mutex> lock(m_);
  if (!stray_) stray_ = std::move(e);
}

// Counts the chunks that follow the counted ones, in source order, up to
// the first failure, showing progress as a reading line by line does.
void pass_ledger::advance() {
  while (!stopped_ && prefix_ < done_.size() && done_[prefix_]) {
    const chunk_outcome& o = outcomes_[prefix_];
    show(rows_, rows_ + o.rows);
    if (o.failed()) {
      stopped_ = true;
      return;
    }
    rows_ += o.rows;
    bytes_ += layout_[prefix_].second;
    ++prefix_;
    if (counted_) counted_(rows_, bytes_);
  }
}

void pass_ledger::show(std::size_t from, std::size_t to) const {
  if (!log_) return;
  constexpr std::size_t every = 10000;
  for (std::size_t row = (from / every + 1) * every; row <= to; row += every) *log_ << "  " << row << "\r" << std::flush;
}

std::size_t pass_ledger::finish() {
  std::lock_guard<std::mutex> lock(m_);
  const std::size_t failed = first_failure_.load();
  if (failed != none && stopped_ && prefix_ == failed) {
    const chunk_outcome& o = outcomes_[failed];
    if (o.bad_row) throw bad_row_error(rows_ + o.rows, o.bad_line.c_str());
    std::rethrow_exception(o.error);
  }
  if (stray_) std::rethrow_exception(stray_);
  if (failed != none || prefix_ != done_.size()) throw std::logic_error("[table::load_data] a chunk was lost");
  return rows_;
}

std::vector<std::size_t> pass_ledger::first_rows() const {
  std::vector<std::size_t> first(outcomes_.size());
  std::size_t row = 0;
  for (std::size_t i = 0; i < outcomes_.size(); ++i) {
    first[i] = row;
    row += outcomes_[i].rows;
  }
  return first;
}

namespace {

// Runs work(t) on threads 1..n-1 and on the calling thread as 0; a thread
// that cannot be started leaves its share to the others.
template <class F>
void on_threads(unsigned n, const F& work) {
  std::vector<std::thread> pool;
  for (unsigned t = 1; t < n; ++t) {
    try {
      pool.emplace_back(work, t);
    } catch (const std::system_error&) {
      break;
    }
  }
  work(0u);
  for (std::thread& th : pool) th.join();
}

}  // namespace

void run_pass(chunk_source& source, pass_ledger& ledger, unsigned threads,
              const std::function<chunk_outcome(unsigned, text_chunk&)>& per_chunk) {
  on_threads(std::max(threads, 1u), [&](unsigned t) {
    try {
      text_chunk c;
      while (source.next(c)) {
        if (!ledger.wanted(c.index)) continue;
        chunk_outcome o = per_chunk(t, c);
        const bool failed = o.failed();
        ledger.record(c, std::move(o));
        if (failed) source.stop_after(c.index);
      }
    } catch (...) {
      ledger.record_stray(std::current_exception());
      source.stop_after(0);
    }
  });
}

void parallel_for(std::size_t n, unsigned threads, const std::function<void(std::size_t)>& task) {
  std::atomic<std::size_t> next{0};
  std::mutex m;
  std::size_t failed_at = n;
  std::exception_ptr failure;
  const auto count = static_cast<unsigned>(std::clamp<std::size_t>(n, 1, std::max(threads, 1u)));
  on_threads(count, [&](unsigned) {
    for (std::size_t i; (i = next.fetch_add(1)) < n;) {
      try {
        task(i);
      } catch (...) {
        std::lock_guard<std::mutex> lock(m);
        if (i < failed_at) {
          failed_at = i;
          failure = std::current_exception();
        }
      }
    }
  });
  if (failure) std::rethrow_exception(failure);
}

}  // namespace sylva::impls::loading

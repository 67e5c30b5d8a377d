// Loading a table's rows from text, in two passes over the source as a
// reading line by line makes them: the first pass collects every column's
// values into its domain, the second stores each row's domain indices. Both
// passes run on several threads over chunks of whole lines (load_passes.h);
// the result, the log and the failure reported do not depend on how many.

#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <algorithm>
#include <bit>
#include <memory>
#include <ostream>
#include <stdexcept>

#include "sylva/impls/load_columns.h"
#include "sylva/impls/load_passes.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/chunk_source.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/cronos.h"
#include "tarn/util/tokenizer.h"

namespace sylva::impls {

using namespace loading;
using tarn::inpout::stream;
using tarn::inpout::text_chunk;
using tarn::util::field_span;

namespace {

unsigned thread_count(int asked) {
  if (asked > 0) return static_cast<unsigned>(asked);
  const long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<unsigned>(online) : 1u;
}

// Cache sizes per column: each thread spends about `budget` bytes on one
// kind of cache over all columns, so that wide tables get small caches (or
// none: fewer than 16 slots are not worth probing).
unsigned cache_slots(std::size_t columns, std::size_t budget, std::size_t entry, unsigned most) {
  const std::size_t fit = budget / std::max<std::size_t>(columns, 1) / entry;
  const auto slots = static_cast<unsigned>(std::min<std::size_t>(std::bit_floor(std::max<std::size_t>(fit, 1)), most));
  return slots < 16 ? 0 : slots;
}

// Hands the memory the first pass freed back to the system before the
// columns are allocated: the loading threads' heaps would otherwise keep it,
// and the peak would hold both passes' memory.
void release_free_memory() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

constexpr std::size_t text_cache_budget = 2 << 20;
constexpr std::size_t key_cache_budget = 1 << 20;
constexpr std::size_t text_cache_entry = 40;

// Cuts the next lines of a chunk, up to `block`, into the rows of `f` with
// `cut(line, fields)`, which is false for a bad line: that line goes to
// `bad` and cutting stops. False once the chunk has no lines left.
template <class Cut>
bool cut_block(tarn::inpout::line_cursor& lines, chunk_fields& f, std::size_t block, Cut&& cut, char*& bad) {
  f.rows = 0;
  while (f.rows < block) {
    char* line = lines.next();
    if (!line) return false;
    if (!cut(line, f.next_row())) {
      bad = line;
      return true;
    }
    ++f.rows;
  }
  return true;
}

template <class T>
struct owned_ptrs {
  std::vector<T*> v;
  ~owned_ptrs() {
    for (T* p : v) delete p;
  }
};

// The two passes over one source for the columns of `plans`.
class loader {
public:
  loader(stream& s, const std::vector<column_plan>& plans, const table::load_options& o, std::ostream* counters)
      : s_(s),
        plans_(plans),
        threads_(thread_count(o.threads)),
        chunk_bytes_(o.chunk_bytes),
        counters_(counters),
        progress_(o.progress, tarn::util::progress::LOADING) {
    first_.on_counted([this](std::size_t rows, std::uint64_t bytes) {
      progress_.loading(rows, bytes);
      first_bytes_ = bytes;
    });
  }

  // The first pass; the domains are finished at its end. The rows read.
  std::size_t collect() {
    const std::size_t k = plans_.size();
    const unsigned text_slots = cache_slots(k, text_cache_budget, text_cache_entry, text_cache::default_slots);
    const unsigned key_slots = cache_slots(k, key_cache_budget, 8, 1024);
    const unsigned key_bits = key_slots == 0 ? 0 : static_cast<unsigned>(std::countr_zero(key_slots));
    std::vector<std::vector<column_intake>> intakes(threads_);
    for (auto& per_thread : intakes) {
      per_thread.reserve(k);
      for (const column_plan& plan : plans_) per_thread.emplace_back(plan, text_slots, key_bits);
    }
    std::vector<chunk_fields> fields(threads_, chunk_fields(k));
    auto source = tarn::inpout::read_chunks(s_, chunk_bytes_, threads_ + 2);
    run_pass(*source, first_, workers(*source),
             [&](unsigned t, text_chunk& c) { return collect_chunk(c, intakes[t], fields[t]); });
    source.reset();
    const std::size_t rows = first_.finish();
    parallel_for(k, threads_, [&](std::size_t j) {
      std::vector<column_intake*> parts;
      for (auto& per_thread : intakes) parts.push_back(&per_thread[j]);
      finish_domain(plans_[j], parts);
    });
    return rows;
  }

  // The second pass, into the columns built over the finished domains. The
  // rows read.
  std::size_t store(const std::vector<column*>& built, std::size_t rows) {
    const std::size_t k = plans_.size();
    std::vector<std::unique_ptr<column_coder>>& coders = coders_;
    coders.resize(k);
    parallel_for(k, threads_, [&](std::size_t j) { coders[j] = std::make_unique<column_coder>(plans_[j], built[j], rows); });
    const unsigned text_slots = cache_slots(k, text_cache_budget, text_cache_entry, text_cache::default_slots);
    std::vector<std::vector<column_writer>> writers(threads_);
    for (auto& per_thread : writers) {
      per_thread.reserve(k);
      for (auto& coder : coders) per_thread.emplace_back(*coder, text_slots);
    }
    std::vector<chunk_fields> fields(threads_, chunk_fields(k));
    const std::vector<std::size_t> first_rows = first_.first_rows();
    pass_ledger second(counters_);
    second.on_counted([&](std::size_t, std::uint64_t bytes) { progress_.loading(rows, first_bytes_ + bytes); });
    auto source = tarn::inpout::reread_chunks(s_, first_.layout(), threads_ + 2);
    run_pass(*source, second, workers(*source), [&](unsigned t, text_chunk& c) {
      return store_chunk(c, writers[t], fields[t], first_rows[c.index]);
    });
    source.reset();
    const std::size_t stored = second.finish();
    for (auto& coder : coders) coder->attach();
    coders.clear();
    return stored;
  }

private:
  // Threads that take chunks: a source that reads on a thread of its own
  // (gzip) counts as one of the threads asked for.
  unsigned workers(const tarn::inpout::chunk_source& source) const {
    return threads_ > source.own_threads() ? threads_ - source.own_threads() : 1;
  }

  // Rows cut at a time: a block's fields stay in the cache while each
  // column takes its turn over them.
  std::size_t block_rows() const { return std::clamp<std::size_t>(8192 / std::max<std::size_t>(plans_.size(), 1), 1, 256); }

  // The first pass over one chunk, a block of rows at a time: the block's
  // lines are cut, up to the first with a wrong number of fields, then each
  // column takes its fields. The first failure in row and column order is
  // the chunk's outcome, as a reading field by field finds it.
  chunk_outcome collect_chunk(text_chunk& c, std::vector<column_intake>& in, chunk_fields& f) {
    const auto k = static_cast<unsigned>(plans_.size());
    const char sep = s_.get_delim();
    const std::size_t block = block_rows();
    chunk_outcome o;
    tarn::inpout::line_cursor lines(c);
    std::size_t at = 0;  // rows before the block
    for (bool more = true; more && !o.bad_row;) {
      char* bad = nullptr;
      auto cut = [&](char* line, tarn::util::field_span* fields) { return tarn::util::cut_fields(line, sep, k, fields); };
      more = cut_block(lines, f, block, cut, bad);
      if (bad) {
        o.bad_row = true;
        o.bad_line = bad;
      }
      std::size_t rows = f.rows;
      for (unsigned j = 0; j < k; ++j) {
        std::exception_ptr error;
        const std::size_t failed = in[j].insert_rows(f, j, rows, c.index, error);
        if (failed < rows) {
          rows = failed;
          o.error = error;
        }
      }
      if (o.error) {
        o.bad_row = false;
        o.rows = at + rows + 1;
        return o;
      }
      at += f.rows;
    }
    o.rows = at + (o.bad_row ? 1 : 0);
    if (!o.bad_row) o.error = c.failure;
    return o;
  }

  // The second pass over one chunk, likewise: lines cut as the tokenizer
  // cuts them, then each column writes its fields; values queued for lookup
  // are written at the end of the chunk.
  chunk_outcome store_chunk(text_chunk& c, std::vector<column_writer>& out, chunk_fields& f, std::size_t first_row) {
    const auto k = static_cast<unsigned>(plans_.size());
    const char sep = s_.get_delim();
    const std::size_t block = block_rows();
    for (column_writer& w : out) w.begin_chunk(first_row);
    std::size_t failed_row = no_chunk, failed_column = 0;
    std::exception_ptr error;
    tarn::inpout::line_cursor lines(c);
    std::size_t at = 0;
    char* unused = nullptr;
    for (bool more = true; more && failed_row == no_chunk;) {
      more = cut_block(
          lines, f, block,
          [&](char* line, tarn::util::field_span* fields) {
            tarn::util::cut_leading_fields(line, sep, k, fields);
            return true;
          },
          unused);
      std::size_t rows = f.rows;
      for (unsigned j = 0; j < k; ++j) {
        std::exception_ptr e;
        const std::size_t failed = out[j].put_rows(f, j, rows, at, e);
        if (failed < at + rows) {
          rows = failed - at;
          failed_row = failed;
          failed_column = j;
          error = e;
        }
      }
      at += f.rows;
    }
    for (unsigned j = 0; j < k; ++j) {
      std::exception_ptr e;
      const std::size_t missing = out[j].end_chunk(e);
      if (missing != no_chunk && (missing < failed_row || (missing == failed_row && j < failed_column))) {
        failed_row = missing;
        failed_column = j;
        error = e;
      }
    }
    chunk_outcome o;
    if (error) {
      o.rows = failed_row + 1;
      o.error = error;
      return o;
    }
    o.rows = at;
    // The same text as in the first pass, so the same rows.
    o.error = c.failure ? c.failure
                        : at != first_.rows_of(c.index) ? std::make_exception_ptr(s_.incomplete_error()) : nullptr;
    return o;
  }

  stream& s_;
  const std::vector<column_plan>& plans_;
  unsigned threads_;
  std::size_t chunk_bytes_;
  std::ostream* counters_;
  tarn::util::progress_scope progress_;
  std::uint64_t first_bytes_ = 0;
  pass_ledger first_{counters_};
  std::vector<std::unique_ptr<column_coder>> coders_;
};

}  // namespace

void table::load_data(stream* s, const std::string& unknown, bool close, int threads) {
  load_options o;
  o.threads = threads;
  o.progress = progress_;
  load_data(s, unknown, close, o);
}

void table::load_data(stream* s, const std::string& unknown, bool close, const load_options& options) {
  tarn::util::cronos timer;
  timer.start();
  try {
    if (!s) throw std::runtime_error("no data provider detected.");
    std::string message;
    if (!consistency_check(static_cast<unsigned>(columns_.size()), message)) throw std::runtime_error(message);
    const unsigned first = loaded_columns_, k = static_cast<unsigned>(columns_.size()) - first;
    owned_ptrs<o_set> domains;
    std::vector<column_plan> plans;
    plans.reserve(k);
    for (unsigned i = first; i < columns_.size(); ++i) {
      domains.v.push_back(make_column_o_set(i, unknown.c_str()));
      plans.emplace_back(domains.v.back());
    }

    const bool talk = verbosity_ != 0 && log_;
    if (talk) *log_ << "Reading data ";
    if (talk && verbosity_ > 1) *log_ << std::endl << " ... 1st pass: " << std::endl;
    loader run(*s, plans, options, talk && verbosity_ > 1 ? log_ : nullptr);
    const std::size_t rows = run.collect();
    release_free_memory();
    if (talk) *log_ << "  " << rows << " rows read. Indexing ... ";

    // Columns are rebuilt over their complete domains, which fix the index
    // width and order; they replace the declared ones only once all rows
    // are in, so a failed load leaves the table as it was.
    owned_ptrs<column> built;
    for (unsigned j = 0; j < k; ++j) {
      column* c = make_column(first + j, domains.v[j], &message);
      if (!c) throw std::runtime_error(message);
      domains.v[j] = nullptr;
      built.v.push_back(c);
    }
    if (talk) *log_ << " done." << std::endl << " ... 2nd pass: " << std::endl;
    if (!s->rewind()) throw std::runtime_error("File: " + s->get_source() + " cannot be read a second time");
    const std::size_t stored = run.store(built.v, rows);
    release_free_memory();

    for (unsigned j = 0; j < k; ++j) {
      delete columns_[first + j];
      columns_[first + j] = built.v[j];
      built.v[j] = nullptr;
    }
    no_rows_ = std::max(no_rows_, static_cast<unsigned>(stored));
    loaded_columns_ = static_cast<unsigned>(columns_.size());
    if (talk && verbosity_ > 1) *log_ << "  " << stored << " rows read." << std::endl;
    if (close) s->close();
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(std::string("Reading training data: ") + e.what());
  }
  timer.stop();
  elapsed_ = timer.get_elapsed();
}

}  // namespace sylva::impls

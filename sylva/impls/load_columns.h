#pragma once

// Column work of the table loader (table_load.cpp). In the first pass every
// loading thread keeps, for every column, its own record of the values it
// met (column_intake); the records of all threads are merged into the
// column's finished domain. In the second pass the threads share, per
// column, an index from value to domain index and the rows' storage
// (column_coder), and keep their own caches (column_writer).
//
// A thread cuts a block of a chunk's lines, then works over the block
// column by column, each column in a loop chosen once for its value type
// and storage, so that the block's fields stay in the cache meanwhile.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

#include "sylva/impls/code_index.h"
#include "sylva/impls/column.h"
#include "sylva/impls/text_cache.h"
#include "tarn/adt/distinct.h"
#include "tarn/util/tokenizer.h"

namespace sylva::impls::loading {

// The value type of a domain; none for the datatype "null".
enum class value_kind : unsigned char { none, integer, uinteger, real32, real64, text };

// A column being loaded, over its fresh domain, which fixes the value type,
// the unknown token and whether unknown values are admitted.
struct column_plan {
  o_set* domain = nullptr;
  value_kind kind = value_kind::none;

  explicit column_plan(o_set* d);
};

constexpr std::size_t no_chunk = std::numeric_limits<std::size_t>::max();

// The fields of a block of rows, cut in place: row r's field j is at(r, j).
// The buffer is kept from block to block.
struct chunk_fields {
  std::size_t columns = 0;  // fields per row
  std::size_t rows = 0;
  std::vector<tarn::util::field_span> cells;

  explicit chunk_fields(std::size_t k) : columns(k) {}
  const tarn::util::field_span& at(std::size_t r, std::size_t j) const { return cells[r * columns + j]; }
  // Room for one more row; its fields go there.
  tarn::util::field_span* next_row() {
    const std::size_t need = (rows + 1) * columns + 1;
    if (cells.size() < need) cells.resize(std::max(need, 2 * cells.size()));
    return &cells[rows * columns];
  }
};

class column_intake;
void finish_domain(const column_plan& plan, const std::vector<column_intake*>& parts);

// First pass: what one thread met in one column. Nothing is allocated before
// the first value, so that tables of many columns stay small.
class column_intake {
public:
  column_intake(const column_plan& plan, unsigned text_slots, unsigned key_bits)
      : spec_(&plan), text_slots_(text_slots), key_bits_(key_bits) {}

  // Records the column's field (column j) of each row before `rows` of
  // chunk `chunk`. Returns the first row whose field cannot be inserted,
  // with what inserting it into the domain throws in `error`, or `rows`.
  std::size_t insert_rows(const chunk_fields& f, std::size_t j, std::size_t rows, std::size_t chunk,
                          std::exception_ptr& error);

private:
  friend struct intake_merge;
  friend void finish_domain(const column_plan& plan, const std::vector<column_intake*>& parts);

  template <class Add>
  std::size_t each_new_text(const chunk_fields& f, std::size_t j, std::size_t rows, std::exception_ptr& error,
                            Add&& add);
  void add_real(double v, bool narrow, std::size_t chunk);

  const column_plan* spec_;
  unsigned text_slots_, key_bits_;
  std::unique_ptr<text_cache> seen_;
  std::unique_ptr<tarn::adt::distinct_keys<std::uint32_t>> keys32_;
  std::unique_ptr<tarn::adt::distinct_keys<std::uint64_t>> keys64_;
  std::unique_ptr<tarn::adt::distinct_texts> texts_;
  bool saw_null_ = false;
  // The first zero this thread met (its chunks come in source order): of
  // two zeros, the domain keeps the one met first in the source.
  std::size_t zero_chunk_ = no_chunk;
  bool zero_negative_ = false;
};

// Fills the column's domain from the intakes of all threads (which are
// emptied). A not-a-number is in no domain: the second pass refuses it.
void finish_domain(const column_plan& plan, const std::vector<column_intake*>& parts);

// Second pass, shared by the threads: the domain index of each text, and the
// rows' storage until it is handed to the column.
class column_coder {
public:
  static constexpr unsigned absent = std::numeric_limits<unsigned>::max();
  enum class store : unsigned char { none, bits, u8, u16, u32, u64 };

  column_coder(const column_plan& plan, column* built, std::size_t rows);

  store kind() const { return store_; }
  void* base() const { return base_; }
  const column_plan& plan() const { return spec_; }
  // Domain index of a text, `absent` when the domain lacks it.
  unsigned code(const char* text, std::size_t length) const;
  // The key of a number text (value_keys.h), or false when the text is no
  // number a domain could hold (a not-a-number) and must be refused.
  bool key_of(const char* text, std::size_t length, std::uint64_t& key) const;
  // Whether numbers are best looked up together (large domains).
  bool queues() const { return queues_; }
  const rank_index<datatype<int>>* ints() const { return ints_.get(); }
  const rank_index<datatype<unsigned int>>* uints() const { return uints_.get(); }
  const rank_index<datatype<float>>* floats() const { return floats_.get(); }
  const rank_index<datatype<double>>* doubles() const { return doubles_.get(); }
  // Throws the column's own message for a text its domain lacks.
  [[noreturn]] void refuse(const char* text) const;
  // Gives the filled storage to the column.
  void attach();

private:
  template <class T>
  void* allocate(std::vector<T>& rows, store kind);

  const column_plan& spec_;
  column* built_;
  store store_ = store::none;
  void* base_ = nullptr;
  bool queues_ = false;
  std::unique_ptr<rank_index<datatype<int>>> ints_;
  std::unique_ptr<rank_index<datatype<unsigned int>>> uints_;
  std::unique_ptr<rank_index<datatype<float>>> floats_;
  std::unique_ptr<rank_index<datatype<double>>> doubles_;
  std::unique_ptr<text_index> texts_;
  std::vector<std::uint32_t> words_;
  std::vector<unsigned char> u8_;
  std::vector<unsigned short> u16_;
  std::vector<unsigned int> u32_;
  std::vector<unsigned long long> u64_;
  std::size_t rows_;
  mutable std::mutex refusing_;
};

// Second pass, one thread's writing into one column. Texts met before are
// answered by a cache; numbers of large domains are queued and looked up
// a few hundred at a time, so that the lookups' memory latencies overlap
// instead of adding up.
class column_writer {
public:
  column_writer(column_coder& coder, unsigned text_slots) : coder_(&coder), text_slots_(text_slots) {}

  // A chunk whose first row is `first_row` begins.
  void begin_chunk(std::size_t first_row) { first_row_ = first_row; }
  // Writes the column's field (column j) of `rows` rows of the chunk, the
  // chunk's rows [at, at + rows). Returns the first row (of the chunk)
  // whose field the column refuses, with the refusal in `error`, or
  // at + rows. Values queued for lookup are written by end_chunk().
  std::size_t put_rows(const chunk_fields& f, std::size_t j, std::size_t rows, std::size_t at,
                       std::exception_ptr& error);
  // The end of the chunk: queued values are looked up and written. The
  // first row (of the chunk) whose queued value the domain lacks, with the
  // refusal in `error`, or no_chunk.
  std::size_t end_chunk(std::exception_ptr& error);

private:
  struct queued {
    std::size_t row;  // in the chunk
    std::uint64_t key;
    const char* text;
    std::size_t length;
    rank_probe probe;
  };

  // Bits of consecutive rows, gathered into words.
  struct bit_store {
    std::uint32_t* words = nullptr;
    std::size_t word = no_chunk;
    std::uint32_t gathered = 0;
    void operator()(std::size_t row, unsigned code);
    void flush();
  };

  template <class F>
  void with_store(F&& f);
  template <class Store>
  std::size_t put_loop(const chunk_fields& f, std::size_t j, std::size_t rows, std::size_t at, Store&& store,
                       std::exception_ptr& error);
  template <class Store>
  void resolve_queue(Store& store);
  template <class Index, class Store>
  void resolve(const Index& index, Store& store);

  static constexpr std::size_t queue_limit = 256;

  column_coder* coder_;
  unsigned text_slots_;
  std::size_t first_row_ = 0;
  std::unique_ptr<text_cache> seen_;
  std::vector<queued> queue_;
  const char* missing_ = nullptr;  // the first queued text the domain lacked
  std::size_t missing_row_ = 0;
  bit_store bits_;
};

}  // namespace sylva::impls::loading

#pragma once

// Column work of the table loader (table_load.cpp). In the first pass every
// loading thread keeps, for every column, its own record of the values it
// met (column_intake); the records of all threads are merged into the
// column's finished domain. In the second pass the threads share, per
// column, an index from value to domain index and the rows' storage
// (column_coder), and keep their own caches (column_writer).

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <vector>

#include "sylva/impls/code_index.h"
#include "sylva/impls/column.h"
#include "sylva/impls/text_cache.h"
#include "tarn/adt/distinct.h"

namespace sylva::impls::loading {

enum class value_kind : unsigned char { none, integer, uinteger, real32, real64, text };

// A column being loaded, over its fresh domain, which fixes the value type,
// the unknown token and whether unknown values are admitted.
struct column_spec {
  o_set* domain = nullptr;
  value_kind kind = value_kind::none;

  explicit column_spec(o_set* d);
};

constexpr std::size_t no_chunk = std::numeric_limits<std::size_t>::max();

class column_intake;
void finish_domain(const column_spec& spec, const std::vector<column_intake*>& parts);

// First pass: what one thread met in one column. Nothing is allocated before
// the first value, so that tables of many columns stay small.
class column_intake {
public:
  column_intake(const column_spec& spec, unsigned text_slots, unsigned key_bits)
      : spec_(&spec), text_slots_(text_slots), key_bits_(key_bits) {}

  // Records a field (`length` bytes, NUL-terminated) of chunk `chunk`;
  // throws what inserting it into the domain throws.
  void insert(const char* text, std::size_t length, std::size_t chunk);
  // The end of a chunk: the cache is reviewed.
  void end_chunk();

private:
  friend struct intake_merge;
  friend void finish_domain(const column_spec& spec, const std::vector<column_intake*>& parts);

  void add_real(double v, bool narrow, std::size_t chunk);

  const column_spec* spec_;
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
void finish_domain(const column_spec& spec, const std::vector<column_intake*>& parts);

// Second pass, shared by the threads: the domain index of each text, and the
// rows' storage until it is handed to the column.
class column_coder {
public:
  static constexpr unsigned absent = std::numeric_limits<unsigned>::max();
  enum class store : unsigned char { none, bits, u8, u16, u32, u64 };

  column_coder(const column_spec& spec, column* built, std::size_t rows);

  store kind() const { return store_; }
  void* base() const { return base_; }
  const column_spec& spec() const { return spec_; }
  // Domain index of a text, `absent` when the domain lacks it.
  unsigned code(const char* text, std::size_t length) const;
  // The key of a number to look up later, or false when the text is no
  // number the domain could hold (a not-a-number) and must be refused.
  bool queue_key(const char* text, std::size_t length, std::uint64_t& key) const;
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
  const column_spec& spec_;
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
// a few thousand at a time, so that the lookups' memory latencies overlap
// instead of adding up.
class column_writer {
public:
  column_writer(column_coder& coder, unsigned text_slots) : coder_(&coder), text_slots_(text_slots) {}

  // The field of a row (rows ascend within a chunk); throws the column's
  // refusal of a text its domain lacks.
  void put(std::size_t row, const char* text, std::size_t length);
  // Looks the queued values up and writes them. The text of the first
  // queued field of the chunk that the domain lacks (its row in `row`), or
  // null.
  const char* settle(std::size_t& row);
  // The end of a chunk: pending bits are written, the cache reviewed.
  void end_chunk();

private:
  struct queued {
    std::size_t row;
    std::uint64_t key;
    const char* text;
    std::size_t length;
    rank_probe probe;
  };

  void write(std::size_t row, unsigned code) {
    switch (coder_->kind()) {
      case column_coder::store::bits: return put_bit(row, code == 2);
      case column_coder::store::u8: return void(static_cast<unsigned char*>(coder_->base())[row] = static_cast<unsigned char>(code));
      case column_coder::store::u16: return void(static_cast<unsigned short*>(coder_->base())[row] = static_cast<unsigned short>(code));
      case column_coder::store::u32: return void(static_cast<unsigned int*>(coder_->base())[row] = code);
      case column_coder::store::u64: return void(static_cast<unsigned long long*>(coder_->base())[row] = code);
      case column_coder::store::none: return;
    }
  }
  void put_bit(std::size_t row, bool set) {
    const std::size_t word = row >> 5;
    if (word != word_) {
      flush_bits();
      word_ = word;
    }
    gathered_ |= static_cast<std::uint32_t>(set) << (row & 31);
  }
  void flush_bits();
  void resolve_queue();
  template <class Index>
  void resolve(const Index& index);

  static constexpr std::size_t queue_limit = 512;

  column_coder* coder_;
  unsigned text_slots_;
  std::unique_ptr<text_cache> seen_;
  std::vector<queued> queue_;
  const char* missing_ = nullptr;  // the first queued text the domain lacked
  std::size_t missing_row_ = 0;
  std::size_t word_ = no_chunk;
  std::uint32_t gathered_ = 0;
};

}  // namespace sylva::impls::loading

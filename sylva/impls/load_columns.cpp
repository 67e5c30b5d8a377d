// Second pass of the table loader: domain indices found for each field and
// written into the rows' storage (load_columns.h).

#include <algorithm>
#include <atomic>
#include <cmath>
#include <stdexcept>

#include "sylva/impls/load_columns.h"
#include "sylva/impls/value_keys.h"

namespace sylva::impls::loading {

namespace {

template <class V>
using typed = o_set_typed<datatype<V>>;

template <class V>
const std::vector<datatype<V>>& values_of(o_set* d) {
  return static_cast<typed<V>&>(*d).values();
}

}  // namespace

column_coder::column_coder(const column_plan& plan, column* built, std::size_t rows)
    : spec_(plan), built_(built), rows_(rows) {
  if (dynamic_cast<column_bool*>(built)) {
    words_.assign((rows + 31) / 32, 0);
    store_ = store::bits;
    base_ = words_.data();
  } else if (dynamic_cast<column_typed<unsigned char>*>(built)) {
    base_ = allocate(u8_, store::u8);
  } else if (dynamic_cast<column_typed<unsigned short>*>(built)) {
    base_ = allocate(u16_, store::u16);
  } else if (dynamic_cast<column_typed<unsigned int>*>(built)) {
    base_ = allocate(u32_, store::u32);
  } else if (dynamic_cast<column_typed<unsigned long long>*>(built)) {
    base_ = allocate(u64_, store::u64);
  }
  if (store_ == store::none) return;
  switch (plan.kind) {
    case value_kind::none: break;
    case value_kind::integer: ints_ = std::make_unique<rank_index<datatype<int>>>(values_of<int>(plan.domain)); break;
    case value_kind::uinteger:
      uints_ = std::make_unique<rank_index<datatype<unsigned int>>>(values_of<unsigned int>(plan.domain));
      break;
    case value_kind::real32: floats_ = std::make_unique<rank_index<datatype<float>>>(values_of<float>(plan.domain)); break;
    case value_kind::real64: doubles_ = std::make_unique<rank_index<datatype<double>>>(values_of<double>(plan.domain)); break;
    case value_kind::text: texts_ = std::make_unique<text_index>(values_of<std::string>(plan.domain)); break;
  }
  // Bits are gathered row by row, so bit columns never wait.
  queues_ = store_ != store::bits && ((ints_ && ints_->bucketed()) || (uints_ && uints_->bucketed()) ||
                                      (floats_ && floats_->bucketed()) || (doubles_ && doubles_->bucketed()));
}

template <class T>
void* column_coder::allocate(std::vector<T>& rows, store kind) {
  rows.resize(rows_);
  store_ = kind;
  return rows.data();
}

bool column_coder::key_of(const char* text, std::size_t length, std::uint64_t& key) const {
  switch (spec_.kind) {
    case value_kind::integer: key = value_key(typed<int>::parse(text, length)); return true;
    case value_kind::uinteger: key = value_key(typed<unsigned int>::parse(text, length)); return true;
    case value_kind::real32: {
      const float v = typed<float>::parse(text, length);
      key = value_key(v);
      return !std::isnan(v);
    }
    case value_kind::real64: {
      const double v = typed<double>::parse(text, length);
      key = value_key(v);
      return !std::isnan(v);
    }
    default: return false;
  }
}

unsigned column_coder::code(const char* text, std::size_t length) const {
  const o_set& d = *spec_.domain;
  if (d.is_null(text)) return d.contains_null() ? 0 : absent;
  unsigned at = 0;
  std::uint64_t key = 0;
  if (spec_.kind == value_kind::text)
    at = texts_->find(text, length);
  else if (key_of(text, length, key))
    at = ints_      ? ints_->find(static_cast<std::uint32_t>(key))
         : uints_   ? uints_->find(static_cast<std::uint32_t>(key))
         : floats_  ? floats_->find(static_cast<std::uint32_t>(key))
         : doubles_ ? doubles_->find(key)
                    : 0;
  return at == 0 ? absent : at;
}

void column_coder::refuse(const char* text) const {
  // The column's own push_back says why; it finds nothing to append.
  std::lock_guard<std::mutex> lock(refusing_);
  built_->push_back(text);
  throw std::logic_error("[table::load_data] a value missing from its domain was found there");
}

void column_coder::attach() {
  switch (store_) {
    case store::none: break;
    case store::bits: {
      tarn::adt::bitmap bits;
      bits.assign(static_cast<std::uint32_t>(rows_), std::move(words_));
      static_cast<column_bool*>(built_)->assign(std::move(bits));
      break;
    }
    case store::u8: static_cast<column_typed<unsigned char>*>(built_)->assign(std::move(u8_)); break;
    case store::u16: static_cast<column_typed<unsigned short>*>(built_)->assign(std::move(u16_)); break;
    case store::u32: static_cast<column_typed<unsigned int>*>(built_)->assign(std::move(u32_)); break;
    case store::u64: static_cast<column_typed<unsigned long long>*>(built_)->assign(std::move(u64_)); break;
  }
  ints_.reset();
  uints_.reset();
  floats_.reset();
  doubles_.reset();
  texts_.reset();
}

namespace {

template <class T>
struct array_store {
  T* base;
  void operator()(std::size_t row, unsigned code) const { base[row] = static_cast<T>(code); }
};

}  // namespace

void column_writer::bit_store::operator()(std::size_t row, unsigned code) {
  if ((row >> 5) != word) {
    flush();
    word = row >> 5;
  }
  gathered |= static_cast<std::uint32_t>(code == 2) << (row & 31);
}

void column_writer::bit_store::flush() {
  // The words at the edges of a chunk are shared with the neighbouring
  // chunks, so bits are or-ed in.
  if (word != no_chunk && gathered != 0) std::atomic_ref<std::uint32_t>(words[word]).fetch_or(gathered);
  word = no_chunk;
  gathered = 0;
}

// Calls f with the storage's writer.
template <class F>
void column_writer::with_store(F&& f) {
  switch (coder_->kind()) {
    case column_coder::store::none: return;
    case column_coder::store::bits: bits_.words = static_cast<std::uint32_t*>(coder_->base()); return f(bits_);
    case column_coder::store::u8: return f(array_store<unsigned char>{static_cast<unsigned char*>(coder_->base())});
    case column_coder::store::u16: return f(array_store<unsigned short>{static_cast<unsigned short*>(coder_->base())});
    case column_coder::store::u32: return f(array_store<unsigned int>{static_cast<unsigned int*>(coder_->base())});
    case column_coder::store::u64:
      return f(array_store<unsigned long long>{static_cast<unsigned long long*>(coder_->base())});
  }
}

std::size_t column_writer::put_rows(const chunk_fields& f, std::size_t j, std::size_t rows, std::size_t at,
                                    std::exception_ptr& error) {
  std::size_t done = at + rows;
  with_store([&](auto&& store) { done = put_loop(f, j, rows, at, store, error); });
  return done;
}

template <class Store>
std::size_t column_writer::put_loop(const chunk_fields& f, std::size_t j, std::size_t rows, std::size_t at,
                                    Store&& store, std::exception_ptr& error) {
  if (text_slots_ != 0 && !seen_) seen_ = std::make_unique<text_cache>(text_slots_);
  text_cache* seen = seen_.get();
  const bool queues = coder_->queues();
  const o_set& d = *coder_->plan().domain;
  const std::size_t first = first_row_ + at;
  std::size_t r = 0;
  try {
    for (; r < rows; ++r) {
      const tarn::util::field_span& x = f.at(r, j);
      if (seen) {
        const long long cached = seen->find(x.text, x.length);
        if (cached >= 0) {
          store(first + r, static_cast<unsigned>(cached));
          continue;
        }
      }
      if (queues && !d.is_null(x.text)) {
        std::uint64_t key = 0;
        if (!coder_->key_of(x.text, x.length, key)) coder_->refuse(x.text);
        queue_.push_back(queued{at + r, key, x.text, x.length, rank_probe{}});
        if (queue_.size() == queue_limit) resolve_queue(store);
        continue;
      }
      const unsigned code = coder_->code(x.text, x.length);
      if (code == column_coder::absent) coder_->refuse(x.text);
      if (seen) seen->store(x.text, x.length, code);
      store(first + r, code);
    }
  } catch (...) {
    error = std::current_exception();
  }
  return at + r;
}

std::size_t column_writer::end_chunk(std::exception_ptr& error) {
  with_store([&](auto&& store) { resolve_queue(store); });
  bits_.flush();
  if (seen_) seen_->review();
  if (!missing_) return no_chunk;
  try {
    coder_->refuse(missing_);
  } catch (...) {
    error = std::current_exception();
  }
  missing_ = nullptr;
  return missing_row_;
}

template <class Index, class Store>
void column_writer::resolve(const Index& index, Store& store) {
  using K = typename Index::K;
  // Four stages, each `ahead` keys behind the previous one.
  constexpr std::size_t ahead = 8;
  const std::size_t n = queue_.size();
  for (std::size_t i = 0; i < n + 3 * ahead; ++i) {
    if (i < n) index.prefetch(static_cast<K>(queue_[i].key));
    if (i >= ahead && i - ahead < n) index.start(static_cast<K>(queue_[i - ahead].key), queue_[i - ahead].probe);
    if (i >= 2 * ahead && i - 2 * ahead < n) index.refine(queue_[i - 2 * ahead].probe);
    if (i < 3 * ahead || i - 3 * ahead >= n) continue;
    const queued& q = queue_[i - 3 * ahead];
    const unsigned code = index.finish(static_cast<K>(q.key), q.probe);
    if (code == 0) {
      if (!missing_ || q.row < missing_row_) {
        missing_ = q.text;
        missing_row_ = q.row;
      }
      continue;
    }
    store(first_row_ + q.row, code);
    if (seen_) seen_->store(q.text, q.length, code);
  }
  queue_.clear();
}

template <class Store>
void column_writer::resolve_queue(Store& store) {
  if (queue_.empty()) return;
  if (coder_->ints())
    resolve(*coder_->ints(), store);
  else if (coder_->uints())
    resolve(*coder_->uints(), store);
  else if (coder_->floats())
    resolve(*coder_->floats(), store);
  else
    resolve(*coder_->doubles(), store);
}

}  // namespace sylva::impls::loading

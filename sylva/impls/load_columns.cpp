#include "sylva/impls/load_columns.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <stdexcept>
#include <string_view>

#include "sylva/impls/value_keys.h"

namespace sylva::impls::loading {

namespace {

template <class V>
using typed = o_set_typed<datatype<V>>;

template <class V>
typed<V>& typed_domain(o_set* d) {
  return static_cast<typed<V>&>(*d);
}

}  // namespace

column_spec::column_spec(o_set* d) : domain(d) {
  if (dynamic_cast<typed<int>*>(d))
    kind = value_kind::integer;
  else if (dynamic_cast<typed<unsigned int>*>(d))
    kind = value_kind::uinteger;
  else if (dynamic_cast<typed<float>*>(d))
    kind = value_kind::real32;
  else if (dynamic_cast<typed<double>*>(d))
    kind = value_kind::real64;
  else if (dynamic_cast<typed<std::string>*>(d))
    kind = value_kind::text;
}

// ------------------------------------------------------------- first pass

// Calls add(text, length) for each field of column j (rows before `rows`)
// not met before, after the unknown token is set apart; stops at the first
// failure.
template <class Add>
std::size_t column_intake::each_new_text(const chunk_fields& f, std::size_t j, std::size_t rows,
                                         std::exception_ptr& error, Add&& add) {
  if (text_slots_ != 0 && !seen_) seen_ = std::make_unique<text_cache>(text_slots_);
  text_cache* seen = seen_.get();
  const o_set& d = *spec_->domain;
  std::size_t r = 0;
  try {
    for (; r < rows; ++r) {
      const tarn::util::field_span& x = f.at(r, j);
      if (seen && seen->find(x.text, x.length) >= 0) continue;
      if (d.is_null(x.text)) {
        d.admit_null();
        saw_null_ = true;
      } else {
        add(x.text, x.length);
      }
      if (seen) seen->store(x.text, x.length, 0);
    }
  } catch (...) {
    error = std::current_exception();
  }
  if (seen) seen->review();
  return r;
}

std::size_t column_intake::insert_rows(const chunk_fields& f, std::size_t j, std::size_t rows, std::size_t chunk,
                                       std::exception_ptr& error) {
  using tarn::adt::distinct_keys;
  const auto keys32 = [&]() -> distinct_keys<std::uint32_t>& {
    if (!keys32_) keys32_ = std::make_unique<distinct_keys<std::uint32_t>>(key_bits_);
    return *keys32_;
  };
  switch (spec_->kind) {
    case value_kind::none:  // a domain without values ignores them
      return each_new_text(f, j, rows, error, [](const char*, std::size_t) {});
    case value_kind::integer: {
      distinct_keys<std::uint32_t>& keys = keys32();
      return each_new_text(f, j, rows, error,
                           [&](const char* t, std::size_t n) { keys.insert(value_key(typed<int>::parse(t, n))); });
    }
    case value_kind::uinteger: {
      distinct_keys<std::uint32_t>& keys = keys32();
      return each_new_text(f, j, rows, error, [&](const char* t, std::size_t n) {
        keys.insert(value_key(typed<unsigned int>::parse(t, n)));
      });
    }
    case value_kind::real32:
      return each_new_text(f, j, rows, error,
                           [&](const char* t, std::size_t n) { add_real(typed<float>::parse(t, n), true, chunk); });
    case value_kind::real64:
      return each_new_text(f, j, rows, error,
                           [&](const char* t, std::size_t n) { add_real(typed<double>::parse(t, n), false, chunk); });
    case value_kind::text: {
      if (!texts_) texts_ = std::make_unique<tarn::adt::distinct_texts>();
      tarn::adt::distinct_texts& texts = *texts_;
      return each_new_text(f, j, rows, error, [&](const char* t, std::size_t n) { texts.insert(t, n); });
    }
  }
  return rows;
}

void column_intake::add_real(double v, bool narrow, std::size_t chunk) {
  if (std::isnan(v)) return;
  if (v == 0 && zero_chunk_ == no_chunk) {
    zero_chunk_ = chunk;
    zero_negative_ = std::signbit(v);
  }
  if (narrow) {
    if (!keys32_) keys32_ = std::make_unique<tarn::adt::distinct_keys<std::uint32_t>>(key_bits_);
    keys32_->insert(value_key(static_cast<float>(v)));
  } else {
    if (!keys64_) keys64_ = std::make_unique<tarn::adt::distinct_keys<std::uint64_t>>(key_bits_);
    keys64_->insert(value_key(v));
  }
}

// --------------------------------------------------------- finished domain

// Merges what the threads met into the domain's sorted values.
struct intake_merge {
  const column_spec& spec;
  const std::vector<column_intake*>& parts;

  template <class K>
  std::vector<K> keys(std::unique_ptr<tarn::adt::distinct_keys<K>> column_intake::*member) const {
    std::vector<std::vector<K>> runs;
    for (column_intake* p : parts) {
      if (!(p->*member)) continue;
      runs.push_back((p->*member)->take());
      (p->*member).reset();
    }
    return tarn::adt::merge_distinct(std::move(runs));
  }

  template <class V, class K>
  void assign_numbers(std::unique_ptr<tarn::adt::distinct_keys<K>> column_intake::*member) const {
    std::vector<datatype<V>> values;
    {
      const std::vector<K> sorted = keys(member);
      values.reserve(sorted.size());
      for (const K k : sorted) values.emplace_back(key_value<V>(k));
    }
    if constexpr (std::is_floating_point_v<V>) {
      if (first_zero_negative()) {
        auto zero = std::lower_bound(values.begin(), values.end(), datatype<V>(V(0)));
        if (zero != values.end() && zero->value == 0) zero->value = -V(0);
      }
    }
    typed_domain<V>(spec.domain).assign_sorted(std::move(values));
  }

  bool first_zero_negative() const {
    std::size_t first = no_chunk;
    bool negative = false;
    for (const column_intake* p : parts) {
      if (p->zero_chunk_ < first) {
        first = p->zero_chunk_;
        negative = p->zero_negative_;
      }
    }
    return negative;
  }

  void assign_texts() const {
    std::vector<std::string_view> views;
    for (const column_intake* p : parts)
      if (p->texts_) p->texts_->views(views);
    std::sort(views.begin(), views.end());
    views.erase(std::unique(views.begin(), views.end()), views.end());
    std::vector<datatype<std::string>> values;
    values.reserve(views.size());
    for (const std::string_view v : views) values.emplace_back(v);
    typed_domain<std::string>(spec.domain).assign_sorted(std::move(values));
    for (column_intake* p : parts) p->texts_.reset();
  }
};

void finish_domain(const column_spec& spec, const std::vector<column_intake*>& parts) {
  bool null = false;
  for (column_intake* p : parts) {
    null = null || p->saw_null_;
    p->seen_.reset();
  }
  const intake_merge merge{spec, parts};
  switch (spec.kind) {
    case value_kind::none: break;
    case value_kind::integer: merge.assign_numbers<int>(&column_intake::keys32_); break;
    case value_kind::uinteger: merge.assign_numbers<unsigned int>(&column_intake::keys32_); break;
    case value_kind::real32: merge.assign_numbers<float>(&column_intake::keys32_); break;
    case value_kind::real64: merge.assign_numbers<double>(&column_intake::keys64_); break;
    case value_kind::text: merge.assign_texts(); break;
  }
  spec.domain->set_contains_null(null);
}

// ------------------------------------------------------------ second pass

column_coder::column_coder(const column_spec& spec, column* built, std::size_t rows)
    : spec_(spec), built_(built), rows_(rows) {
  if (auto* b = dynamic_cast<column_bool*>(built)) {
    (void)b;
    words_.assign((rows + 31) / 32, 0);
    store_ = store::bits;
    base_ = words_.data();
  } else if (dynamic_cast<column_typed<unsigned char>*>(built)) {
    u8_.resize(rows);
    store_ = store::u8;
    base_ = u8_.data();
  } else if (dynamic_cast<column_typed<unsigned short>*>(built)) {
    u16_.resize(rows);
    store_ = store::u16;
    base_ = u16_.data();
  } else if (dynamic_cast<column_typed<unsigned int>*>(built)) {
    u32_.resize(rows);
    store_ = store::u32;
    base_ = u32_.data();
  } else if (dynamic_cast<column_typed<unsigned long long>*>(built)) {
    u64_.resize(rows);
    store_ = store::u64;
    base_ = u64_.data();
  }
  if (store_ == store::none) return;
  switch (spec.kind) {
    case value_kind::none: break;
    case value_kind::integer: ints_ = std::make_unique<rank_index<datatype<int>>>(typed_domain<int>(spec.domain).values()); break;
    case value_kind::uinteger:
      uints_ = std::make_unique<rank_index<datatype<unsigned int>>>(typed_domain<unsigned int>(spec.domain).values());
      break;
    case value_kind::real32: floats_ = std::make_unique<rank_index<datatype<float>>>(typed_domain<float>(spec.domain).values()); break;
    case value_kind::real64:
      doubles_ = std::make_unique<rank_index<datatype<double>>>(typed_domain<double>(spec.domain).values());
      break;
    case value_kind::text: texts_ = std::make_unique<text_index>(typed_domain<std::string>(spec.domain).values()); break;
  }
  // Bits are gathered row by row, so bit columns never wait.
  queues_ = store_ != store::bits && ((ints_ && ints_->bucketed()) || (uints_ && uints_->bucketed()) ||
                                      (floats_ && floats_->bucketed()) || (doubles_ && doubles_->bucketed()));
}

bool column_coder::queue_key(const char* text, std::size_t length, std::uint64_t& key) const {
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
  switch (spec_.kind) {
    case value_kind::none: return absent;
    case value_kind::integer: at = ints_->find(value_key(typed<int>::parse(text, length))); break;
    case value_kind::uinteger: at = uints_->find(value_key(typed<unsigned int>::parse(text, length))); break;
    case value_kind::real32: {
      const float v = typed<float>::parse(text, length);
      if (std::isnan(v)) return absent;
      at = floats_->find(value_key(v));
      break;
    }
    case value_kind::real64: {
      const double v = typed<double>::parse(text, length);
      if (std::isnan(v)) return absent;
      at = doubles_->find(value_key(v));
      break;
    }
    case value_kind::text: at = texts_->find(text, length); break;
  }
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
  const o_set& d = *coder_->spec().domain;
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
        if (!coder_->queue_key(x.text, x.length, key)) coder_->refuse(x.text);
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

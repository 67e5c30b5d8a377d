// First pass of the table loader: what each thread meets in each column,
// and the finished domains made of it (load_columns.h).

#include <algorithm>
#include <cmath>
#include <string_view>

#include "sylva/impls/load_columns.h"
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

column_plan::column_plan(o_set* d) : domain(d) {
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
  const column_plan& plan;
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
    typed_domain<V>(plan.domain).assign_sorted(std::move(values));
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
    typed_domain<std::string>(plan.domain).assign_sorted(std::move(values));
    for (column_intake* p : parts) p->texts_.reset();
  }
};

void finish_domain(const column_plan& plan, const std::vector<column_intake*>& parts) {
  bool null = false;
  for (column_intake* p : parts) {
    null = null || p->saw_null_;
    p->seen_.reset();
  }
  const intake_merge merge{plan, parts};
  switch (plan.kind) {
    case value_kind::none: break;
    case value_kind::integer: merge.assign_numbers<int>(&column_intake::keys32_); break;
    case value_kind::uinteger: merge.assign_numbers<unsigned int>(&column_intake::keys32_); break;
    case value_kind::real32: merge.assign_numbers<float>(&column_intake::keys32_); break;
    case value_kind::real64: merge.assign_numbers<double>(&column_intake::keys64_); break;
    case value_kind::text: merge.assign_texts(); break;
  }
  plan.domain->set_contains_null(null);
}

}  // namespace sylva::impls::loading

#include "sylva/impls/table_arrays.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numeric>
#include <stdexcept>

#include "sylva/impls/table.h"

namespace sylva::impls {

using tarn::data_types::datatype;

namespace {

std::invalid_argument column_error(const std::string& name, const std::string& what) {
  return std::invalid_argument("column '" + name + "': " + what);
}

// The ids of distinct 4-byte values in order of first appearance, through
// open addressing on the value's bits. Column data repeat heavily, so the
// previous value is checked first.
class first_seen {
public:
  first_seen() : slots_(1024, 0) {}

  // Id (from 0) of the value with these bits; `fresh` is set for a new one.
  std::uint32_t id(std::uint32_t bits, bool& fresh) {
    fresh = false;
    if (bits == last_bits_ && last_id_ != none) return last_id_;
    const std::size_t mask = slots_.size() - 1;
    std::size_t at = hash(bits) & mask;
    for (; slots_[at] != 0; at = (at + 1) & mask)
      if (bits_[slots_[at] - 1] == bits) return remember(bits, slots_[at] - 1);
    fresh = true;
    bits_.push_back(bits);
    slots_[at] = static_cast<std::uint32_t>(bits_.size());
    if (2 * bits_.size() > slots_.size()) grow();
    return remember(bits, static_cast<std::uint32_t>(bits_.size() - 1));
  }

private:
  static constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
  static std::size_t hash(std::uint32_t bits) {
    return static_cast<std::size_t>((static_cast<std::uint64_t>(bits) * 0x9E3779B97F4A7C15ull) >> 32);
  }
  std::uint32_t remember(std::uint32_t bits, std::uint32_t id) {
    last_bits_ = bits;
    return last_id_ = id;
  }
  void grow() {
    std::vector<std::uint32_t> slots(2 * slots_.size(), 0);
    const std::size_t mask = slots.size() - 1;
    for (std::uint32_t i = 0; i < bits_.size(); ++i) {
      std::size_t at = hash(bits_[i]) & mask;
      while (slots[at] != 0) at = (at + 1) & mask;
      slots[at] = i + 1;
    }
    slots_.swap(slots);
  }

  std::vector<std::uint32_t> slots_;  // id + 1, 0 when empty
  std::vector<std::uint32_t> bits_;   // by id
  std::uint32_t last_bits_ = 0;
  std::uint32_t last_id_ = none;
};

// A column's finished domain values and each row's index into them.
template <class V>
struct coded_column {
  std::vector<datatype<V>> values;  // ascending, distinct
  std::vector<std::uint32_t> codes;  // 0 unknown, else 1..n
  bool unknowns = false;
};

// `read(r, v)` gives row r's value in v, false when it is unknown. Ids of
// first appearance become ranks once the distinct values are sorted.
template <class V, class Read>
coded_column<V> code_values(unsigned rows, Read read) {
  static_assert(sizeof(V) == 4);
  coded_column<V> out;
  out.codes.resize(rows);
  first_seen ids;
  std::vector<V> seen;
  for (unsigned r = 0; r < rows; ++r) {
    V v;
    if (!read(r, v)) {
      out.codes[r] = 0;
      out.unknowns = true;
      continue;
    }
    std::uint32_t bits;
    std::memcpy(&bits, &v, 4);
    bool fresh;
    out.codes[r] = ids.id(bits, fresh) + 1;
    if (fresh) seen.push_back(v);
  }
  std::vector<std::uint32_t> by_value(seen.size());
  std::iota(by_value.begin(), by_value.end(), 0u);
  std::sort(by_value.begin(), by_value.end(), [&](std::uint32_t a, std::uint32_t b) { return seen[a] < seen[b]; });
  std::vector<std::uint32_t> rank(seen.size());
  out.values.reserve(seen.size());
  for (std::uint32_t i = 0; i < by_value.size(); ++i) {
    rank[by_value[i]] = i + 1;
    out.values.emplace_back(seen[by_value[i]]);
  }
  for (std::uint32_t& c : out.codes)
    if (c != 0) c = rank[c - 1];
  return out;
}

// An infinite value (or one that narrows to infinity) is refused: a
// threshold between a finite value and infinity is infinity itself, a cut
// that separates nothing.
coded_column<float> code_reals(const real_values& v, unsigned rows, const std::string& name) {
  return code_values<float>(rows, [&](unsigned r, float& out) {
    const double x = v.data[r * v.stride];
    if (x != x) return false;
    const float f = static_cast<float>(x);
    if (std::isinf(f)) {
      char text[32];
      std::snprintf(text, sizeof text, "%g", x);
      throw column_error(name, std::string(text) + " is not a finite 32-bit float");
    }
    // Zero and minus zero are one value of the domain; keep one spelling.
    out = f == 0 ? 0.0f : f;
    return true;
  });
}

coded_column<int> code_integers(const integer_values& v, unsigned rows, const std::string& name) {
  return code_values<int>(rows, [&](unsigned r, int& out) {
    if (v.unknown && v.unknown[r] != 0) return false;
    const std::int64_t x = v.data[r * v.stride];
    if (x < std::numeric_limits<int>::min() || x > std::numeric_limits<int>::max())
      throw column_error(name, std::to_string(x) + " does not fit a 32-bit integer");
    out = static_cast<int>(x);
    return true;
  });
}

// Texts are ranked byte-wise, as the string domain orders them; only texts
// some row uses enter the domain, and the unknown token is no value.
coded_column<std::string> code_texts(const text_values& v, unsigned rows, const std::string& name,
                                     const char* unknown) {
  const std::size_t k = v.texts.size();
  std::vector<char> used(k, 0);
  for (unsigned r = 0; r < rows; ++r) {
    const std::int64_t c = v.codes[r * v.stride];
    if (c >= static_cast<std::int64_t>(k)) throw column_error(name, "code " + std::to_string(c) + " has no text");
    if (c >= 0) used[c] = 1;
  }
  std::vector<std::uint32_t> order;
  for (std::uint32_t i = 0; i < k; ++i)
    if (used[i] && v.texts[i] != unknown) order.push_back(i);
  std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) { return v.texts[a] < v.texts[b]; });
  coded_column<std::string> out;
  std::vector<std::uint32_t> rank(k, 0);
  for (std::uint32_t i : order) {
    if (out.values.empty() || out.values.back().value != v.texts[i]) out.values.emplace_back(v.texts[i]);
    rank[i] = static_cast<std::uint32_t>(out.values.size());
  }
  out.codes.resize(rows);
  for (unsigned r = 0; r < rows; ++r) {
    const std::int64_t c = v.codes[r * v.stride];
    out.codes[r] = c < 0 ? 0 : rank[c];
    if (out.codes[r] == 0) out.unknowns = true;
  }
  return out;
}

// The column over a domain of the coded values, filled with the codes.
template <class V>
column* make_column(const array_column& source, const char* word, coded_column<V>&& coded, unsigned rows) {
  const bool admits = column::admits_null(column::type_word(source.kind));
  std::unique_ptr<o_set> domain(o_set::NEW_O_SET(word, admits, "?"));
  static_cast<o_set_typed<datatype<V>>&>(*domain).assign_sorted(std::move(coded.values));
  domain->set_contains_null(coded.unknowns);
  std::string error;
  std::unique_ptr<column> c(column::NEW_COLUMN(domain.get(), source.name, column::type_word(source.kind), error));
  if (!c) throw std::invalid_argument(error);
  domain.release();
  c->reserve(rows);
  for (std::uint32_t code : coded.codes) c->push_index(code);
  return c.release();
}

column* build_column(const array_column& source, unsigned rows) {
  if (const auto* v = std::get_if<real_values>(&source.values)) return make_column(source, "float", code_reals(*v, rows, source.name), rows);
  if (const auto* v = std::get_if<integer_values>(&source.values))
    return make_column(source, "integer", code_integers(*v, rows, source.name), rows);
  const auto& texts = std::get<text_values>(source.values);
  return make_column(source, "string", code_texts(texts, rows, source.name, "?"), rows);
}

}  // namespace

std::unique_ptr<table> table_from_arrays(const std::string& name, const std::vector<array_column>& columns,
                                         unsigned rows) {
  auto t = std::make_unique<table>(name, true);
  for (const array_column& source : columns) t->push_back_filled(build_column(source, rows));
  std::string message;
  if (!t->consistency_check(t->get_no_attributes(), message)) throw std::invalid_argument(message);
  return t;
}

}  // namespace sylva::impls

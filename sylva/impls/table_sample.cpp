// Weighted subsets of a table's rows.

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "sylva/impls/table.h"
#include "tarn/util/rand_gen.h"

namespace sylva::impls {

namespace {

// Every sampling call reseeds the process-wide generator with the time in
// seconds: two calls within one second draw the same sample.
void reseed() { std::srand(static_cast<unsigned>(std::time(nullptr))); }

}  // namespace

w_sequence* table::get_wsubset_all() const { return get_wsubset_first_n(no_rows_); }

w_sequence* table::get_wsubset_first_n(unsigned n) const {
  const unsigned m = std::min(n, no_rows_);
  auto* s = new w_sequence();
  s->reserve(m);
  for (unsigned i = 0; i < m; ++i) s->emplace_back(i, 1.0f);
  update_weights(s);
  return s;
}

w_sequence* table::get_wsubset_random(unsigned n) const {
  reseed();
  unsigned need = std::min(n, no_rows_), remaining = no_rows_;
  auto* s = new w_sequence();
  s->reserve(need);
  // One pass: row i is taken with probability need / remaining.
  for (unsigned i = 0; need > 0; ++i, --remaining) {
    const auto k = static_cast<unsigned long long>(remaining * tarn::util::rand_gen::draw());
    if (k < need) {
      s->emplace_back(i, 1.0f);
      --need;
    }
  }
  update_weights(s);
  return s;
}

w_sequence* table::get_wsubset_random_repeated(unsigned n) const {
  reseed();
  const unsigned m = std::min(n, no_rows_);
  auto* s = new w_sequence();
  s->reserve(m);
  for (unsigned i = 0; i < m; ++i)
    s->emplace_back(static_cast<unsigned>(no_rows_ * tarn::util::rand_gen::draw()), 1.0f);
  update_weights(s);
  return s;
}

w_sequence* table::get_wsubset_difference(w_sequence* other) const {
  std::sort(other->begin(), other->end(), [](const w_pair& a, const w_pair& b) { return a.first < b.first; });
  auto* s = new w_sequence();
  // The cursor moves one element per skipped row, so a row listed twice
  // keeps it on the second copy and every later row is taken: kept so.
  size_t cursor = 0;
  for (unsigned i = 0; i < no_rows_; ++i) {
    if (cursor < other->size() && (*other)[cursor].first == i)
      ++cursor;
    else
      s->emplace_back(i, 1.0f);
  }
  update_weights(s);
  return s;
}

w_sequence* table::get_wsubset_balanced() const {
  w_sequence* all = get_wsubset_all();
  const column* cls = get_class();
  if (!cls) return all;
  const unsigned distinct = cls->get_distinct();
  std::vector<unsigned> quota(distinct, 0);
  for (const w_pair& p : *all) ++quota[cls->get_row_index(p.first)];
  unsigned q = ~0u;
  for (unsigned c = 1; c < distinct; ++c) q = std::min(q, quota[c]);
  for (unsigned c = 1; c < distinct; ++c) quota[c] = q;
  auto* s = new w_sequence();
  for (const w_pair& p : *all) {
    unsigned& left = quota[cls->get_row_index(p.first)];
    if (left > 0) {
      --left;
      s->push_back(p);
    }
  }
  delete all;
  return s;
}

void table::update_weights(w_sequence* s) const {
  const column* w = get_weights();
  if (!w) return;
  for (w_pair& p : *s) p.second = static_cast<float>(std::strtod(w->get_row_value(p.first).c_str(), nullptr));
}

std::vector<float> table::weights_by_code() const {
  const column* w = get_weights();
  std::vector<float> by_code;
  if (!w) return by_code;
  for (unsigned code = 0; code < w->get_distinct(); ++code)
    by_code.push_back(static_cast<float>(std::strtod(w->get_value(code).c_str(), nullptr)));
  return by_code;
}

}  // namespace sylva::impls

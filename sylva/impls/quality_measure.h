#pragma once

// Split quality of one attribute in one node: information gain with the
// unknown-value correction, split information with unknowns as a branch of
// their own, and for continuous attributes the best binary cut. Weights,
// sums and results are 32-bit floats; every logarithm is taken in double
// precision and rounded to float. That rounding is part of the results:
// gains are compared for order and equality, so a different summation order
// or precision changes trees.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "sylva/impls/column.h"
#include "sylva/impls/split_rules.h"
#include "sylva/impls/xlogx.h"
#include "tarn/adt/counting_sort.h"
#include "tarn/adt/intro_sort.h"

namespace sylva::impls {


// I(x) = S*log2(S) - sum x_i*log2(x_i) over slots [from, to): S and the sum
// are accumulated separately in slot order and subtracted once.
inline float info(const float* x, size_t from, size_t to) {
  float s = 0, sum = 0;
  for (size_t i = from; i < to; ++i) {
    s += x[i];
    if (x[i] > 0) sum += xlog2x(x[i]);
  }
  const float ss = s > 0 ? xlog2x(s) : 0.0f;
  return ss - sum;
}

// The class weights of one side of a continuous cut, whose terms
// x*log2(x) are kept between evaluations and recomputed only for the slots
// that changed since: info() over it gives the bits info() over the weights
// gives (the same terms, summed in the same order).
class class_side {
public:
  void assign(unsigned width, float value) {
    x_.assign(width, value);
    term_.assign(width, 0.0f);
    stale_.assign(width, 1);
  }
  float weight(unsigned k) const { return x_[k]; }
  const float* weights() const { return x_.data(); }
  void add(unsigned k, float w) {
    x_[k] += w;
    stale_[k] = 1;
  }
  void sub(unsigned k, float w) {
    x_[k] -= w;
    stale_[k] = 1;
  }
  void set(unsigned k, float w) {
    x_[k] = w;
    stale_[k] = 1;
  }
  // info(weights, 1, width).
  float info() {
    float s = 0, sum = 0;
    for (size_t i = 1; i < x_.size(); ++i) {
      s += x_[i];
      if (x_[i] > 0) {
        if (stale_[i]) {
          term_[i] = xlog2x(x_[i]);
          stale_[i] = 0;
        }
        sum += term_[i];
      }
    }
    const float ss = s > 0 ? xlog2x(s) : 0.0f;
    return ss - sum;
  }

private:
  std::vector<float> x_, term_;
  std::vector<char> stale_;
};

// Smallest weight a side of a continuous cut may carry.
inline float min_split(float known, float min_obj, unsigned classes) {
  float ms = static_cast<float>(0.1 * known / classes);
  if (min_obj >= ms)
    ms = min_obj;
  else if (ms > 25)
    ms = 25;
  return ms;
}

// log2(T) over the total weight, or over the number of cases on request.
inline float threshold_penalty(unsigned candidates, float total, size_t cases, const options* opts) {
  const float p = candidates > 0 ? log2w(static_cast<float>(candidates)) : 0.0f;
  return opts && opts->penalty_on_cases ? p / static_cast<float>(cases) : p / total;
}

// Class weights per value slot (slot 0 unused) and per class, summed in case
// order; returns the weight of the cases whose value is unknown.
template <class Codes, class Classes>
float class_table(Codes codes, Classes cls, unsigned width, const w_sequence& cases, const index_range& range,
                  std::vector<float>& by_value, std::vector<float>& by_class) {
  const unsigned first = range.first;
  by_value.assign(static_cast<size_t>(range.second - range.first + 1) * width, 0.0f);
  by_class.assign(width, 0.0f);
  float unknown = 0;
  for (const w_pair& p : cases) {
    const unsigned x = codes[p.first];
    if (x == 0) {
      unknown += p.second;
    } else {
      const unsigned y = cls[p.first];
      by_value[(x - first + 1) * width + y] += p.second;
      by_class[y] += p.second;
    }
  }
  return unknown;
}

// The discrete measure over its class table: f holds `slots` rows of `width`
// class weights (row 0 unused), c the class totals of the known cases.
inline void discrete_from_table(const float* f, const float* c, float unknown, float total, unsigned slots,
                                unsigned width, float min_obj, column::splitting_desc& out) {
  const float known = total - unknown;
  if (known == 0) return out.fail();

  thread_local std::vector<float> b;
  b.assign(slots, 0.0f);
  b[0] = unknown;
  unsigned heavy = 0;
  for (unsigned i = 1; i < slots; ++i) {
    for (unsigned y = 1; y < width; ++y) b[i] += f[i * width + y];
    if (b[i] >= min_obj) ++heavy;
  }
  if (heavy <= 1) return out.fail();

  float branch_info = 0;
  for (unsigned i = 1; i < slots; ++i) branch_info += info(&f[i * width], 1, width);
  out.gain = (info(c, 1, width) / known - branch_info / known) * (known / (unknown + known));
  out.split_info = info(b.data(), 0, slots) / total;
}

template <class Codes, class Classes>
void QualityMeasureDiscrete(Codes codes, Classes cls, unsigned classes, unsigned known_values, float total,
                            const w_sequence& cases, const index_range& range, float min_obj,
                            column::splitting_desc& out) {
  out.branches = known_values;
  const unsigned slots = range.second - range.first + 1, width = classes + 1;
  thread_local std::vector<float> f, c;
  const float unknown = class_table(codes, cls, width, cases, range, f, c);
  discrete_from_table(f.data(), c.data(), unknown, total, slots, width, min_obj, out);
}

// A case with its attribute and class codes beside it, so that sorting and
// scanning read one contiguous array instead of the columns.
struct coded_case {
  unsigned code;
  unsigned klass;
  w_pair pair;
};

// The permutation that sorts n elements by code, unknowns first (for each
// position, the element's original position), and beside it, when asked
// for, the codes in sorted order: a counting sort when the codes are few
// for the elements, the standard introsort otherwise. Both only look at the
// codes, so the permutation is the one sorting the elements themselves
// would apply, whatever they carry beside their codes.
template <class Code>
std::vector<unsigned> order_by_code(size_t n, Code code, const index_range& range,
                                    std::vector<unsigned>* sorted_codes = nullptr) {
  const unsigned slots = range.second - range.first + 1;
  if (split_rules::by_counting_sort(slots, n)) {
    std::vector<unsigned> keys(n);
    for (size_t i = 0; i < n; ++i) keys[i] = code(i);
    std::vector<unsigned> order = tarn::adt::counting_permutation(keys, range.first - 1, range.second, range.first - 1);
    if (sorted_codes) {
      sorted_codes->resize(n);
      for (size_t j = 0; j < n; ++j) (*sorted_codes)[j] = keys[order[j]];
    }
    return order;
  }
  // The comparison sort moves whole elements by the outcomes of comparing
  // codes alone, so sorting (code, position) words that compare by code
  // gives the permutation sorting the elements would.
  thread_local std::vector<std::uint64_t> words;
  words.resize(n);
  for (size_t i = 0; i < n; ++i) words[i] = (std::uint64_t(code(i)) << 32) | i;
  tarn::adt::intro_sort_by_key(words.data(), words.data() + n);
  std::vector<unsigned> order(n);
  for (size_t i = 0; i < n; ++i) order[i] = static_cast<unsigned>(words[i] & 0xffffffffu);
  if (sorted_codes) {
    sorted_codes->resize(n);
    for (size_t i = 0; i < n; ++i) (*sorted_codes)[i] = static_cast<unsigned>(words[i] >> 32);
  }
  return order;
}

// The cases with their codes beside them, in the order sorting the case
// list by code gives them: the order comes from the codes alone, and the
// coded copies are made once, already in place.
template <class Codes, class Classes>
void sorted_coded(Codes codes, Classes cls, const w_sequence& cases, const index_range& range,
                  std::vector<coded_case>& list) {
  const size_t n = cases.size();
  thread_local std::vector<unsigned> sorted;
  const std::vector<unsigned> order =
      order_by_code(n, [&](size_t i) { return static_cast<unsigned>(codes[cases[i].first]); }, range, &sorted);
  list.resize(n);
  for (size_t j = 0; j < n; ++j) {
    const w_pair& p = cases[order[j]];
    list[j] = coded_case{sorted[j], static_cast<unsigned>(cls[p.first]), p};
  }
}

// Scratch space of the sorting measure, reused by each thread.
inline std::vector<coded_case>& coded_scratch() {
  thread_local std::vector<coded_case> scratch;
  return scratch;
}

// What the sorting measure leaves in the node's list, without the scan: the
// cases in the order sort_by_code gives them, without the coded copies
// (less than half the sorting measure's memory per case).
template <class Codes>
void sort_cases_by_code(Codes codes, w_sequence& cases, const index_range& range) {
  const std::vector<unsigned> order =
      order_by_code(cases.size(), [&](size_t i) { return static_cast<unsigned>(codes[cases[i].first]); }, range);
  w_sequence sorted(cases.size());
  for (size_t i = 0; i < cases.size(); ++i) sorted[i] = cases[order[i]];
  cases.swap(sorted);
}

// Best cut so far of a continuous scan.
struct best_cut {
  float gain = split_rules::no_split_gain;
  float split_info = 0;
  unsigned lower = 0, upper = 0;

  // Keeps the cut when its gain is strictly better: ties keep the earlier cut.
  bool consider(float g, float unknown, float left, float known, unsigned lo, unsigned hi) {
    if (!(g > gain)) return false;
    gain = g;
    const float b[3] = {unknown, left, known - left};
    split_info = info(b, 0, 3);
    lower = lo;
    upper = hi;
    return true;
  }
};

inline void finish_continuous(const best_cut& best, unsigned candidates, float total, size_t cases,
                              const options* opts, column::splitting_desc& out) {
  const float penalty = threshold_penalty(candidates, total, cases, opts);
  if (!(penalty < best.gain)) return out.fail();
  out.gain = best.gain - penalty;
  out.split_info = best.split_info / total;
  out.lower = best.lower;
  out.upper = best.upper;
}

// The cut between case i and its successor j lies inside one class's stretch
// when no class change was seen since the last evaluated cut and the whole run
// of j's value has i's class and still fits under the upper limit: such a cut
// cannot be the best one and is skipped (it still counts as a candidate).
inline bool inside_one_class(const std::vector<coded_case>& list, size_t j, float left, float upper_limit) {
  const unsigned klass = list[j - 1].klass, code = list[j].code;
  float l = left + list[j].pair.second;
  size_t k = j;
  while (k + 1 < list.size() && list[k + 1].code == code && l <= upper_limit && list[k].klass == klass) {
    ++k;
    l += list[k].pair.second;
  }
  return list[k].klass == klass && l <= upper_limit;
}

template <class Codes, class Classes>
void QualityMeasureContinuous(Codes codes, Classes cls, unsigned classes, float total, w_sequence& cases,
                              const index_range& range, float min_obj, const options* opts,
                              column::splitting_desc& out, bool copy) {
  out.branches = 2;
  const size_t n = cases.size();
  if (n == 0) return out.fail();
  std::vector<coded_case>& list = coded_scratch();
  sorted_coded(codes, cls, cases, range, list);
  // Without copy the node's own list takes the sorted order: the measures
  // that follow and the partition see it.
  if (!copy)
    for (size_t i = 0; i < n; ++i) cases[i] = list[i].pair;

  const unsigned width = classes + 1;
  thread_local class_side left, right;
  left.assign(width, 0.0f);
  right.assign(width, 0.0f);
  float unknown = 0;
  size_t first_known = 0;
  while (first_known < n && list[first_known].code == 0) unknown += list[first_known++].pair.second;
  for (size_t i = first_known; i < n; ++i) right.add(list[i].klass, list[i].pair.second);

  const float known = total - unknown;
  if (known < 2 * min_obj) return out.fail();
  const float base = right.info() / known;
  const float least = min_split(known, min_obj, classes), upper_limit = known - least;

  best_cut best;
  unsigned candidates = 0;
  bool change = false;
  float l = 0;
  for (size_t i = first_known; i + 1 < n; ++i) {
    const unsigned klass = list[i].klass;
    const float w = list[i].pair.second;
    left.add(klass, w);
    right.sub(klass, w);
    l += w;
    if (!change && i > first_known && klass != list[i - 1].klass) change = true;
    if (l < least) continue;
    if (l > upper_limit) break;
    const unsigned code = list[i].code, next = list[i + 1].code;
    if (code == next) continue;
    ++candidates;
    if (!change && inside_one_class(list, i + 1, l, upper_limit)) continue;
    const float gain = (base - (left.info() + right.info()) / known) * (known / (unknown + known));
    best.consider(gain, unknown, l, known, code, next);
    change = false;
  }
  finish_continuous(best, candidates, total, n, opts, out);
}

// The value-count walk over a class table: f holds `slots` rows of `width`
// class weights (row 0 unused), `right` the class totals of the known cases
// (consumed). Cuts fall between non-empty value slots; there is no boundary
// skip in this variant.
inline void value_count_walk(const float* f, std::vector<float>& right, float unknown, float total, unsigned slots,
                             unsigned width, unsigned first, size_t cases, float min_obj, const options* opts,
                             column::splitting_desc& out) {
  const unsigned classes = width - 1;
  thread_local std::vector<float> left;
  left.assign(width, 0.0f);
  const float known = total - unknown;
  if (known < 2 * min_obj) return out.fail();
  const float base = info(right.data(), 1, width) / known;
  const float least = min_split(known, min_obj, classes), upper_limit = known - least;

  thread_local std::vector<char> empty;
  empty.assign(slots, 1);
  unsigned first_full = slots, last_full = 0;
  for (unsigned s = 1; s < slots; ++s) {
    for (unsigned y = 1; y < width; ++y)
      if (f[s * width + y] != 0) empty[s] = false;
    if (!empty[s]) {
      first_full = std::min(first_full, s);
      last_full = s;
    }
  }

  best_cut best;
  unsigned candidates = 0, best_slot = 0;
  bool found = false;
  float l = 0;
  for (unsigned s = first_full; s < last_full; ++s) {
    if (empty[s]) continue;
    float weight = 0;
    for (unsigned y = 1; y < width; ++y) {
      const float w = f[s * width + y];
      left[y] += w;
      right[y] -= w;
      weight += w;
    }
    l += weight;
    if (l < least) continue;
    if (l > upper_limit) break;
    ++candidates;
    const float gain = (base - (info(left.data(), 1, width) + info(right.data(), 1, width)) / known) *
                       (known / (unknown + known));
    if (best.consider(gain, unknown, l, known, 0, 0)) {
      best_slot = s;
      found = true;
    }
  }
  if (found) {
    unsigned next = best_slot + 1;
    while (empty[next]) ++next;
    best.lower = best_slot + first - 1;
    best.upper = next + first - 1;
  }
  finish_continuous(best, candidates, total, cases, opts, out);
}

template <class Codes, class Classes>
void QualityMeasureContinuousRainForest(Codes codes, Classes cls, unsigned classes, float total,
                                        const w_sequence& cases, const index_range& range, float min_obj,
                                        const options* opts, column::splitting_desc& out) {
  out.branches = 2;
  const unsigned slots = range.second - range.first + 1, width = classes + 1;
  thread_local std::vector<float> f, right;
  const float unknown = class_table(codes, cls, width, cases, range, f, right);
  value_count_walk(f.data(), right, unknown, total, slots, width, range.first, cases.size(), min_obj, opts, out);
}

}  // namespace sylva::impls

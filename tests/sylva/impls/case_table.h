#pragma once

// Small random tables of one continuous attribute (codes, classes, weights)
// for the tests of the run-based measures, and the case-by-case measure they
// are held against.

#include <random>
#include <vector>

#include "sylva/impls/quality_measure.h"

namespace sylva::impls::test {

struct case_table {
  std::vector<unsigned> codes, classes;
  std::vector<float> weights;
  unsigned width = 0, slots = 0;
};

inline case_table random_table(std::mt19937& rng, bool unit) {
  case_table t;
  const unsigned n = 1 + rng() % 60;
  t.width = 2 + rng() % 3;
  t.slots = 1 + rng() % (rng() % 2 ? 6 : 80);
  // Long stretches of one class make skipped cuts common.
  unsigned klass = 1;
  for (unsigned i = 0; i < n; ++i) {
    if (rng() % 4 == 0) klass = 1 + rng() % (t.width - 1);
    t.codes.push_back(1 + rng() % t.slots);
    t.classes.push_back(klass);
    t.weights.push_back(unit ? 1.0f : static_cast<float>(rng() % 5));
  }
  return t;
}

inline std::vector<float> class_totals(const case_table& t) {
  std::vector<float> right(t.width, 0.0f);
  for (size_t i = 0; i < t.codes.size(); ++i) right[t.classes[i]] += t.weights[i];
  return right;
}

inline float total_of(const std::vector<float>& right) {
  float total = 0;
  for (float w : right) total += w;
  return total;
}

// The case-by-case measure on the cases in the given order.
inline column::splitting_desc by_cases(const case_table& t, const std::vector<unsigned>& order, float min_obj) {
  w_sequence cases;
  for (unsigned i : order) cases.emplace_back(i, t.weights[i]);
  const index_range range(1, t.slots + 1);
  column::splitting_desc out;
  QualityMeasureContinuous(array_codes<unsigned>{t.codes.data()}, array_codes<unsigned>{t.classes.data()},
                           t.width - 1, total_of(class_totals(t)), cases, range, min_obj, nullptr, out, true);
  return out;
}

// The same over the cases in row order.
inline column::splitting_desc by_cases(const case_table& t, float min_obj) {
  std::vector<unsigned> order(t.codes.size());
  for (unsigned i = 0; i < order.size(); ++i) order[i] = i;
  return by_cases(t, order, min_obj);
}

}  // namespace sylva::impls::test

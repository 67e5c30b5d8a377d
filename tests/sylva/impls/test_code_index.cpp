#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "sylva/impls/code_index.h"

using namespace sylva::impls;

namespace {

template <class V>
std::vector<datatype<V>> domain_of(std::set<V> values) {
  return std::vector<datatype<V>>(values.begin(), values.end());
}

// Every value is found at its position, values next to them are not, and
// the staged lookup agrees with the direct one.
template <class V>
void expect_ranks(const std::set<V>& values, const std::vector<V>& absent) {
  const auto domain = domain_of(values);
  const rank_index<datatype<V>> index(domain);
  for (std::size_t i = 0; i < domain.size(); ++i) ASSERT_EQ(index.find(value_key(domain[i].value)), i + 1) << domain[i].value;
  for (const V v : absent) {
    if (values.count(v)) continue;
    ASSERT_EQ(index.find(value_key(v)), 0u) << v;
    rank_probe p;
    index.prefetch(value_key(v));
    index.start(value_key(v), p);
    index.refine(p);
    ASSERT_EQ(index.finish(value_key(v), p), 0u) << v;
  }
}

}  // namespace

TEST(CodeIndex, IntegersOfEveryRange) {
  std::mt19937 g(1);
  for (const std::size_t n : {0u, 1u, 63u, 64u, 5000u, 200000u}) {
    std::set<int> values, spread;
    std::vector<int> absent = {std::numeric_limits<int>::min(), std::numeric_limits<int>::max(), 0, -1};
    while (values.size() < n) values.insert(static_cast<int>(g() % 1000000) - 500000);
    while (spread.size() < n) spread.insert(static_cast<int>(g()));
    for (const int v : values) absent.push_back(v + 1);
    expect_ranks(values, absent);
    expect_ranks(spread, absent);
  }
  std::set<unsigned int> extremes = {0u, 1u, 4294967295u};
  for (unsigned i = 0; i < 100; ++i) extremes.insert(i * 7919u);
  expect_ranks(extremes, {2u, 4294967294u, 7920u});
}

TEST(CodeIndex, RealsCrowdedIntoFewMagnitudes) {
  std::mt19937 g(2);
  std::set<float> uniform, skewed;
  std::vector<float> absent = {-INFINITY, INFINITY, 1e-30f, 0.5f};
  // Two decimals over a range, as in money columns; magnitudes spread over
  // many powers of two; both signs.
  while (uniform.size() < 100000) uniform.insert(static_cast<float>((g() % 50000000) / 100.0));
  while (skewed.size() < 20000) skewed.insert(std::ldexp(static_cast<float>(g() % 1000) - 500, static_cast<int>(g() % 60) - 30));
  for (const float v : uniform) absent.push_back(std::nextafter(v, INFINITY));
  expect_ranks(uniform, absent);
  expect_ranks(skewed, absent);
  std::set<double> doubles = {-1e300, -2.5, 0.0, 1e-300, 3.0, 1e300};
  for (int i = 0; i < 1000; ++i) doubles.insert(std::ldexp(static_cast<double>(g()), static_cast<int>(g() % 200) - 100));
  expect_ranks(doubles, {-3.0, 2.0, 1e299});
}

TEST(CodeIndex, EitherZeroFindsTheZeroOfTheDomain) {
  const std::vector<datatype<float>> domain = {datatype<float>(-1.0f), datatype<float>(-0.0f), datatype<float>(2.0f)};
  const rank_index<datatype<float>> index(domain);
  EXPECT_EQ(index.find(value_key(0.0f)), 2u);
  EXPECT_EQ(index.find(value_key(-0.0f)), 2u);
}

TEST(CodeIndex, TextsAreFoundByTheirBytes) {
  std::vector<datatype<std::string>> domain;
  for (const char* s : {"", "a", "a b", "ab", "b"}) domain.emplace_back(std::string(s));
  const text_index index(domain);
  for (std::size_t i = 0; i < domain.size(); ++i)
    EXPECT_EQ(index.find(domain[i].value.c_str(), domain[i].value.size()), i + 1);
  EXPECT_EQ(index.find("a", 0), 1u) << "the empty text";
  EXPECT_EQ(index.find("abc", 3), 0u);
  EXPECT_EQ(index.find("A", 1), 0u);
}

#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <type_traits>
#include <vector>

namespace tarn::adt {

// Least-significant-digit radix sort of unsigned integer keys, 11 bits per
// pass, with one counting read for all passes. Passes whose digit is the
// same for every key are skipped, so keys that share their high bits (reals
// of one magnitude, small integers) cost fewer passes. `scratch` is resized
// to the data's size and left with unspecified content (the two vectors
// may have traded their storage).
template <class K>
void radix_sort(std::vector<K>& data, std::vector<K>& scratch) {
  static_assert(std::is_unsigned_v<K>, "radix_sort sorts unsigned keys");
  constexpr int digit_bits = 11;
  constexpr std::size_t buckets = std::size_t{1} << digit_bits;
  constexpr int passes = (8 * sizeof(K) + digit_bits - 1) / digit_bits;
  const std::size_t n = data.size();
  if (n < 2) return;
  std::vector<std::size_t> counts(passes * buckets, 0);
  for (const K k : data)
    for (int p = 0; p < passes; ++p) ++counts[p * buckets + ((k >> (p * digit_bits)) & (buckets - 1))];
  scratch.resize(n);
  K* from = data.data();
  K* to = scratch.data();
  for (int p = 0; p < passes; ++p) {
    std::size_t* c = &counts[p * buckets];
    const K sample_digit = (from[0] >> (p * digit_bits)) & (buckets - 1);
    if (c[sample_digit] == n) continue;  // one digit for all: nothing to move
    std::size_t at = 0;
    for (std::size_t b = 0; b < buckets; ++b) {
      const std::size_t here = c[b];
      c[b] = at;
      at += here;
    }
    for (std::size_t i = 0; i < n; ++i) {
      const K k = from[i];
      to[c[(k >> (p * digit_bits)) & (buckets - 1)]++] = k;
    }
    std::swap(from, to);
  }
  if (from != data.data()) data.swap(scratch);
}

}  // namespace tarn::adt

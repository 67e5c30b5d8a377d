#pragma once

// x*log2(x) as the split measures compute it: the natural logarithm in
// double precision divided by the float constant ln 2, rounded to float,
// times x in float. Whole values below 2^24 (most weights and their sums)
// are remembered in a table shared by all threads: the entry holds the very
// float every thread computes for it, so reading it changes no bit.

#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>

namespace sylva::impls {

struct weight_type {
  static constexpr float Log2 = 0.6931472f;
};

inline float log2w(float x) { return static_cast<float>(std::log(static_cast<double>(x)) / weight_type::Log2); }

// Computes and remembers the entry of whole x in [2, 2^24).
float xlog2x_remember(std::uint32_t x);
extern std::atomic<std::uint32_t>* const xlog2x_memo;

inline float xlog2x(float x) {
  constexpr float table_limit = 16777216.0f;
  if (x < table_limit) {
    const auto i = static_cast<std::uint32_t>(x);
    if (static_cast<float>(i) == x) {
      const std::uint32_t bits = xlog2x_memo[i].load(std::memory_order_relaxed);
      if (bits != 0 || i <= 1) return std::bit_cast<float>(bits);
      return xlog2x_remember(i);
    }
  }
  return x * log2w(x);
}

}  // namespace sylva::impls

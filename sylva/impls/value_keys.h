#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace sylva::impls {

// Unsigned keys that order as the numeric values of a domain do, so that
// domains can be built by radix sorting and searched by key prefixes. The
// two zeros of a real type are one value and share the key of +0; a
// not-a-number has no place in the order and no key (callers test first).
template <class V>
using value_key_t = std::conditional_t<sizeof(V) == 8, std::uint64_t, std::uint32_t>;

inline std::uint32_t value_key(unsigned int v) { return v; }
inline std::uint32_t value_key(int v) { return static_cast<std::uint32_t>(v) ^ 0x80000000u; }

inline std::uint32_t value_key(float v) {
  if (v == 0) v = 0;
  std::uint32_t b;
  std::memcpy(&b, &v, 4);
  return (b & 0x80000000u) ? ~b : (b | 0x80000000u);
}

inline std::uint64_t value_key(double v) {
  if (v == 0) v = 0;
  std::uint64_t b;
  std::memcpy(&b, &v, 8);
  return (b >> 63) ? ~b : (b | (std::uint64_t{1} << 63));
}

// The value of a key.
template <class V>
V key_value(value_key_t<V> k);

template <>
inline unsigned int key_value<unsigned int>(std::uint32_t k) {
  return k;
}

template <>
inline int key_value<int>(std::uint32_t k) {
  return static_cast<int>(k ^ 0x80000000u);
}

template <>
inline float key_value<float>(std::uint32_t k) {
  const std::uint32_t b = (k & 0x80000000u) ? (k & 0x7FFFFFFFu) : ~k;
  float v;
  std::memcpy(&v, &b, 4);
  return v;
}

template <>
inline double key_value<double>(std::uint64_t k) {
  const std::uint64_t top = std::uint64_t{1} << 63;
  const std::uint64_t b = (k & top) ? (k & ~top) : ~k;
  double v;
  std::memcpy(&v, &b, 8);
  return v;
}

}  // namespace sylva::impls

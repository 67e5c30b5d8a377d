#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

namespace tarn::data_types {

// Holder of one domain value. `key_type` is what lookups and insertions take:
// the value itself, or a view for strings so that probing the value cache
// does not allocate. `slot(key)` places a value in the 1339-slot cache of
// tarn::adt::set; it only spreads values, results never depend on it.
template <class T>
struct datatype {
  using value_type = T;
  using key_type = T;
  T value{};

  datatype() = default;
  datatype(T v) : value(v) {}
  friend bool operator==(const datatype& a, const datatype& b) { return a.value == b.value; }
  friend bool operator<(const datatype& a, const datatype& b) { return a.value < b.value; }
  bool equals(key_type k) const { return value == k; }
  void assign(key_type k) { value = k; }
  static std::uint32_t slot(key_type k);
};

template <>
inline std::uint32_t datatype<int>::slot(int k) {
  return static_cast<std::uint32_t>(k) % 1339u;
}

template <>
inline std::uint32_t datatype<unsigned int>::slot(unsigned int k) {
  return k % 1339u;
}

namespace detail {
// x * 100000 for x >= 1 (and for NaN), (1 / x) * 100000 below, in extended
// precision; a key that does not fit 64 bits counts as 0x8000000000000000.
inline std::uint32_t real_slot(long double x) {
  const long double m = 100000.0f;
  const long double key = x < 1 ? (1.0L / x) * m : x * m;
  std::int64_t bits = INT64_MIN;
  if (key >= -9223372036854775808.0L && key < 9223372036854775808.0L)
    bits = static_cast<std::int64_t>(key);
  return static_cast<std::uint32_t>(static_cast<std::uint64_t>(bits)) % 1339u;
}
}  // namespace detail

template <>
inline std::uint32_t datatype<float>::slot(float k) {
  return detail::real_slot(k);
}

template <>
inline std::uint32_t datatype<double>::slot(double k) {
  return detail::real_slot(k);
}

template <>
struct datatype<std::string> {
  using value_type = std::string;
  using key_type = std::string_view;
  std::string value;

  datatype() = default;
  datatype(std::string v) : value(std::move(v)) {}
  datatype(std::string_view v) : value(v) {}
  friend bool operator==(const datatype& a, const datatype& b) { return a.value == b.value; }
  friend bool operator<(const datatype& a, const datatype& b) { return a.value < b.value; }
  bool equals(key_type k) const { return std::string_view(value) == k; }
  void assign(key_type k) { value.assign(k.data(), k.size()); }
  // Sum of the bytes as signed chars in a 32-bit accumulator.
  static std::uint32_t slot(key_type k) {
    std::int32_t sum = 0;
    for (char c : k) sum += static_cast<signed char>(c);
    return static_cast<std::uint32_t>(sum) % 1339u;
  }
};

}  // namespace tarn::data_types

#include "tarn/util/string_util.h"

#include <limits>
#include <stdexcept>

namespace tarn::util::string_util {

namespace {

// Magnitude limits: the positive maximum of the type, so that for int the
// text -2147483648 overflows.
template <class T>
struct int_limits {
  static unsigned long long maxabs() {
    static const unsigned long long v = static_cast<unsigned long long>(std::numeric_limits<T>::max());
    return v;
  }
  static unsigned long long max10() {
    static const unsigned long long v = maxabs() / 10;
    return v;
  }
};

template <class T>
void negative_sign();

template <>
void negative_sign<unsigned int>() {
  throw std::runtime_error("str2int:: a negative number provided.");
}

template <>
void negative_sign<int>() {}

}  // namespace

template <class T>
void str2int(const char* s, T& out) {
  if (s == nullptr) throw std::runtime_error("str2int:: cannot convert a NULL string.");
  const char* p = s;
  while (*p == ' ') ++p;
  bool sign = false, negative = false;
  if (*p == '+') {
    sign = true;
    ++p;
  } else if (*p == '-') {
    negative_sign<T>();
    sign = negative = true;
    ++p;
  }
  if (!sign && *p == '\0') throw std::runtime_error(std::string(s) + ": not an int");

  const unsigned long long maxabs = int_limits<T>::maxabs(), max10 = int_limits<T>::max10();
  unsigned long long value = 0;
  for (; *p >= '0' && *p <= '9'; ++p) {
    const unsigned long long digit = static_cast<unsigned long long>(*p - '0');
    if (value > max10 || digit > maxabs - 10 * value) throw std::runtime_error("str2int:: overflow");
    value = value * 10 + digit;
  }
  if (*p != '\0') throw std::runtime_error(std::string(s) + ": _not an int");
  out = negative ? static_cast<T>(-static_cast<long long>(value)) : static_cast<T>(value);
}

template void str2int<int>(const char*, int&);
template void str2int<unsigned int>(const char*, unsigned int&);

std::string toXML(const std::string& s) {
  std::string r;
  r.reserve(s.size());
  for (char c : s) {
    switch (c) {
      case '<': r += "&lt;"; break;
      case '>': r += "&gt;"; break;
      case '&': r += "&amp;"; break;
      default: r += c;
    }
  }
  return r;
}

}  // namespace tarn::util::string_util

#include "tarn/util/numbers.h"

#include <fast_float/fast_float.h>
#include <locale.h>

#include <cstdlib>

namespace tarn::util {

namespace {

// The "C" locale, made once: strtod_l reads '.' as the decimal point even
// when the process has set another numeric locale.
locale_t c_locale() {
  static const locale_t loc = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return loc;
}

bool platform_real(const char* s, double& out) {
  char* stop = nullptr;
  const locale_t loc = c_locale();
  out = loc ? strtod_l(s, &stop, loc) : std::strtod(s, &stop);
  return *stop == '\0';
}

}  // namespace

bool parse_real(const char* s, std::size_t length, double& out) {
  if (length == 0) return false;
  const char* end = s + length;
  // Out-of-range texts come back as infinity or zero, the values strtod
  // gives them.
  const auto r = fast_float::from_chars(s, end, out);
  if (r.ec == std::errc() && r.ptr == end) return true;
  return platform_real(s, out);
}

}  // namespace tarn::util

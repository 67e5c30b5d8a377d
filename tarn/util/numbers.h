#pragma once

#include <cstddef>

namespace tarn::util {

// The platform's strtod over a whole text, in the "C" locale whatever the
// process's locale: true, with the value in `out`, when the text is not
// empty and every one of its `length` characters belongs to the number
// (leading blanks, a sign, decimal and hexadecimal forms, infinity and
// not-a-number spellings, as strtod reads them). `s[length]` must be NUL.
//
// Plain decimal texts, by far the most common, are read by a correctly
// rounded parser, which gives exactly strtod's value (both round the exact
// decimal value to the nearest double); whatever it does not take whole goes
// to strtod itself. Callers that want a float narrow the double, as strtod's
// users do: parsing straight to float could round twice differently.
bool parse_real(const char* s, std::size_t length, double& out);

}  // namespace tarn::util

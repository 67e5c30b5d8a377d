#pragma once

#include <string>

namespace tarn::util::string_util {

// Strict decimal parsing for T = int and unsigned int: leading blanks (spaces
// only) and one sign are allowed, nothing may follow the digits. Failures
// throw std::runtime_error and leave `out` untouched.
template <class T>
void str2int(const char* s, T& out);

extern template void str2int<int>(const char*, int&);
extern template void str2int<unsigned int>(const char*, unsigned int&);

// The only XML escaping of the system: <, > and & become entities; every
// other byte, quotes included, is copied as it is.
std::string toXML(const std::string& s);

}  // namespace tarn::util::string_util

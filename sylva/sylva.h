#pragma once

// Public handles of the Sylva library.

#include <string>

namespace sylva {

std::string get_version();    // "1.2.5"
int get_build();              // 10205
std::string get_copyright();  // one-line banner

}  // namespace sylva

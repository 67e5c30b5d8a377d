#pragma once

// Little-endian records of the binary encodings, written out by hand.

#include <cstring>
#include <string>

namespace testing_support {

struct bytes {
  std::string s;
  bytes& b(int v) { return s += static_cast<char>(v), *this; }
  bytes& u(unsigned v) {
    for (int i = 0; i < 4; ++i) s += static_cast<char>((v >> (8 * i)) & 0xff);
    return *this;
  }
  bytes& f(float v) {
    unsigned x;
    std::memcpy(&x, &v, 4);
    return u(x);
  }
  bytes& d(double v) { return s.append(reinterpret_cast<const char*>(&v), 8), *this; }
  bytes& text(const std::string& t) { return b(1).u(static_cast<unsigned>(t.size())), s += t, *this; }
  bytes& add(const std::string& more) { return s += more, *this; }
};

}  // namespace testing_support

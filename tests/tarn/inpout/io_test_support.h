#pragma once

// Helpers of the connection tests: the text of an expected runtime_error,
// and a connection over a std::string that records the transfer sizes it is
// asked for, so that tests can see how an adapter drives its connection.

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarn/inpout/ioconn.h"

namespace testing_support {

template <class F>
std::string thrown_text(F f) {
  try {
    f();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "<nothing thrown>";
}

struct spy_conn : tarn::inpout::ioconn {
  spy_conn(int mode, std::string content = "", bool* destroyed = nullptr)
      : data(std::move(content)), mode(mode), destroyed(destroyed) {}
  ~spy_conn() override {
    if (destroyed) *destroyed = true;
  }
  int close() override {
    ++closes;
    return 0;
  }
  bool is_open() const override { return closes == 0; }
  int get_mode() const override { return mode; }
  int read(void* p, int n) override {
    reads.push_back(n);
    long long k = std::max(0LL, std::min<long long>(n, static_cast<long long>(data.size()) - pos));
    if (k > 0) std::memcpy(p, data.data() + pos, k);
    pos += k;
    return static_cast<int>(k);
  }
  int write(const void* p, int n) override {
    writes.push_back(n);
    if (fail_writes) return -1;
    data.replace(pos, std::min<size_t>(n, data.size() - pos), static_cast<const char*>(p), n);
    pos += n;
    return n;
  }
  long long lseek(long long off, int whence) override {
    return pos = off + (whence == LSEEK_SET ? 0 : whence == LSEEK_CUR ? pos : data.size());
  }

  std::vector<int> reads, writes;
  std::string data;
  long long pos = 0;
  int closes = 0, mode;
  bool fail_writes = false;
  bool* destroyed;
};

}  // namespace testing_support

#pragma once

// A connection over a std::string that records the transfer sizes it is
// asked for, so that tests can see how an adapter drives its connection.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tarn/inpout/ioconn.h"

namespace testing_support {

class spy_conn : public tarn::inpout::ioconn {
public:
  spy_conn(int mode, std::string content = "", bool* destroyed = nullptr)
      : data(std::move(content)), mode_(mode), destroyed_(destroyed) {}
  ~spy_conn() override {
    if (destroyed_) *destroyed_ = true;
  }

  int close() override {
    ++closes;
    open_ = false;
    return 0;
  }
  bool is_open() const override { return open_; }
  int get_mode() const override { return mode_; }
  bool is_random() const override { return random; }
  int read(void* p, int n) override {
    reads.push_back(n);
    int k = std::min<long long>(n, static_cast<long long>(data.size()) - pos);
    if (k <= 0) return 0;
    std::memcpy(p, data.data() + pos, k);
    pos += k;
    return k;
  }
  int write(const void* p, int n) override {
    writes.push_back(n);
    if (fail_writes) return -1;
    data.replace(pos, std::min<size_t>(n, data.size() - pos), static_cast<const char*>(p), n);
    pos += n;
    return n;
  }
  long long lseek(long long off, int whence) override {
    long long base = whence == LSEEK_SET ? 0 : whence == LSEEK_CUR ? pos : data.size();
    pos = base + off;
    return pos;
  }

  std::vector<int> reads, writes;
  std::string data;
  long long pos = 0;
  int closes = 0;
  bool random = false;
  bool fail_writes = false;

private:
  int mode_;
  bool open_ = true;
  bool* destroyed_;
};

}  // namespace testing_support

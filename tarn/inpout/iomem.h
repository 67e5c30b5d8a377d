#pragma once

#include "tarn/inpout/ioconn.h"

namespace tarn::inpout {

// Connection over a block of memory, either the caller's (never grown,
// never freed) or an owned one that grows on demand. Always READ|WRITE.
class iomem : public ioconn {
public:
  iomem() = default;
  ~iomem() override;

  int close() override;  // frees an owned block; returns 0
  bool eof() override { return position == length; }
  bool is_open() const override { return block != nullptr; }
  int get_mode() const override { return READ | WRITE; }
  int write(const void* p, int n) override;
  int writeln(const char* s) override;
  int read(void* p, int n) override;
  // Seen as an ioconn (const) a memory block is not random-access; used
  // directly it is.
  using ioconn::is_random;
  virtual bool is_random() { return true; }
  long long lseek(long long off, int whence) override;
  long long tell() override { return position; }
  long long size() override { return length; }

  // Adopts the caller's block; a size beyond the capacity is cut to it.
  virtual bool open(void* p, unsigned capacity, unsigned size);
  // Allocates an owned block; throws "Out of memory".
  virtual bool open(unsigned capacity);

  unsigned capacity() const { return cap; }
  const char* data() const { return block; }

private:
  void grow_to(unsigned long long new_cap);

  char* block = nullptr;
  unsigned cap = 0;
  unsigned length = 0;
  unsigned position = 0;
  bool owns = false;
};

}  // namespace tarn::inpout

#pragma once

#include <string>

#include "tarn/inpout/ioconn.h"

namespace tarn::inpout {

// Connection over a POSIX file descriptor (large-file calls throughout).
// Results of read and write are the system calls' own, -1 included.
class iofile : public ioconn {
public:
  iofile() = default;
  ~iofile() override;

  int close() override;
  bool is_open() const override { return fd != -1; }
  int get_mode() const override { return mode; }
  int write(const void* p, int n) override;
  using ioconn::copy;
  // Reserves the space the source still holds before moving any data.
  long long copy(ioconn& src) override;
  int read(void* p, int n) override;
  bool is_random() const override;  // a regular file
  long long lseek(long long off, int whence) override;
  long long size() override;  // throws when fstat fails

  virtual bool open(const std::string& path, int mode, int perms = 0644);
  // Same as open(), but reports true whatever happened.
  virtual bool open_mmap(const std::string& path, int mode, int perms = 0644);
  // Adopts a descriptor; the mode comes from the owner permission bits.
  virtual bool open(int fd);
  virtual bool resize(long long n);
  virtual void* mem_map(long long offset, long long len);
  virtual bool mem_unmap(void* p, long long len);
  virtual bool mem_sync(void* p, long long len);

  int descriptor() const { return fd; }
  static bool is_pipe(const std::string& path);
  // The page size, asked once per process (0 if the system will not say).
  static long allocation_granularity();

private:
  static inline long alloc = -1;  // -1: not asked yet

  int mode = 0;
  int fd = -1;
};

}  // namespace tarn::inpout

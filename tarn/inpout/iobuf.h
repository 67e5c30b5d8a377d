#pragma once

#include "tarn/inpout/ioconn.h"

namespace tarn::inpout {

// Buffer over another connection, used in one direction only: the
// connection's mode decides whether it buffers reads or writes.
class iobuf : public ioconn {
public:
  iobuf() = default;
  iobuf(ioconn* conn, bool owns, unsigned bufsize = 65536) { open(conn, owns, bufsize); }
  ~iobuf() override;

  int close() override;  // -1 when no connection is set
  bool eof() override;
  bool is_open() const override;
  int get_mode() const override;
  bool rewind() override;
  int write(const void* p, int n) override;
  int read(void* p, int n) override;
  bool is_random() const override;
  // Flushes and drops the buffer, then seeks the connection: a LSEEK_CUR
  // offset counts from the connection's position, not the logical one.
  long long lseek(long long off, int whence) override;
  long long tell() override;
  long long size() override;

  // bufsize below 1024 is raised to 1024; above INT_MAX (a negative int
  // passed in) it means INT_MAX; halved while allocation fails.
  virtual bool open(ioconn* conn, bool owns, unsigned bufsize);

  unsigned capacity() const { return cap; }

private:
  bool writing() const;
  bool flush();
  void release();

  ioconn* conn = nullptr;
  bool owns = false;
  char* buf = nullptr;
  unsigned cap = 0;
  unsigned count = 0;  // valid bytes (reading) or pending bytes (writing)
  unsigned pos = 0;    // read position inside the buffer
};

}  // namespace tarn::inpout

#pragma once

#include <zlib.h>

#include <string>

#include "tarn/inpout/ioconn.h"

namespace tarn::inpout {

// Connection over a gzip file. Reading also accepts uncompressed files.
// The size is not available: size() throws because LSEEK_END is refused.
class iogz : public ioconn {
public:
  iogz() = default;
  ~iogz() override;

  int close() override;  // gzclose's result, 0 when not open
  bool eof() override;   // true when not open
  bool is_open() const override { return gz != nullptr; }
  int get_mode() const override { return mode; }
  bool rewind() override;
  int write(const void* p, int n) override;
  int read(void* p, int n) override;
  bool is_random() const override { return true; }
  long long lseek(long long off, int whence) override;
  long long tell() override;

  // zlib's error state (Z_OK when none): a truncated stream reads like a
  // short file and is only told apart here.
  int error() const;
  // True when the file being read is not compressed and is passed through
  // as it is (an empty file counts as such).
  bool direct() const;

  // level -1 leaves zlib's default level; strategy is a Z_* strategy.
  virtual bool open(const std::string& path, int mode, int level = -1,
                    int strategy = Z_DEFAULT_STRATEGY);

private:
  int mode = 0;
  gzFile gz = nullptr;
};

}  // namespace tarn::inpout

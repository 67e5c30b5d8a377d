#pragma once

#include <string>

#include "tarn/util/nocopy.h"

namespace tarn::inpout {

// Abstract byte connection. Every reader and writer of the system is written
// against this interface; implementations are plain files, gzip files, memory
// blocks, mapped files and a buffering adapter over any of them.
//
// Ordinary failures (a file that does not open, a short read) are reported by
// return values; failures nobody can handle are thrown as std::runtime_error.
class ioconn : private tarn::util::nocopy {
public:
  // Open-mode bits.
  static constexpr int READ = 2;
  static constexpr int WRITE = 4;
  static constexpr int APPEND = 8;
  static constexpr int CREATE = 32;
  static constexpr int TRUNC = 64;
  // Seek origins.
  static constexpr int LSEEK_SET = 0;
  static constexpr int LSEEK_CUR = 1;
  static constexpr int LSEEK_END = 2;

  ioconn() = default;
  virtual ~ioconn();

  virtual int close() = 0;
  virtual bool eof();                     // size() == tell()
  virtual bool is_open() const = 0;
  virtual int get_mode() const = 0;
  virtual bool rewind();                  // lseek(0, LSEEK_SET) == 0
  virtual int write(const void* p, int n) = 0;
  virtual int writeln(const char* s);     // s, then one '\n'
  virtual long long copy(ioconn& src);
  virtual long long copy(ioconn& src, long long n);
  virtual int read(void* p, int n) = 0;
  virtual bool is_random() const;         // false
  virtual long long lseek(long long off, int whence);  // throws
  virtual long long tell();               // lseek(0, LSEEK_CUR)
  virtual long long size();               // via LSEEK_END and back

protected:
  std::string name;  // never set by this system; kept for diagnostics
};

// Maps an open mode to POSIX open(2) flags: READ|WRITE is O_RDWR, WRITE alone
// is O_WRONLY, anything else O_RDONLY; APPEND, CREATE, TRUNC add their flags.
int open_flags(int mode);

}  // namespace tarn::inpout

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarn/util/nocopy.h"

namespace tarn::inpout {

class ioconn;

// Fixed-width binary output: scalars as their little-endian bytes, texts and
// owned vectors behind a presence byte. Plain files go through a 64 KiB
// buffer; gzip files rely on the compressor's buffering.
class obinstream : private tarn::util::nocopy {
public:
  obinstream(const std::string& file, bool compressed = false, int level = -1);
  // Over an existing connection (tests, memory blocks).
  obinstream(ioconn* conn, bool owns);
  virtual ~obinstream();

  obinstream& operator<<(bool v);
  obinstream& operator<<(unsigned char v);
  obinstream& operator<<(int v);
  obinstream& operator<<(unsigned int v);
  obinstream& operator<<(float v);
  obinstream& operator<<(double v);
  obinstream& operator<<(unsigned long long v);
  // A present text: presence byte 1, u32 length, the bytes.
  obinstream& operator<<(const std::string& s);
  // An absent text: presence byte 0.
  obinstream& write_null_text();

  // An owned vector through a pointer: presence byte (0 for null), u32
  // count, the elements.
  template <class T>
  obinstream& write_vector(const std::vector<T>* v) {
    if (!v) return *this << static_cast<unsigned char>(0);
    *this << static_cast<unsigned char>(1) << static_cast<unsigned int>(v->size());
    for (const T& x : *v) *this << x;
    return *this;
  }

  // Raw bytes, no presence byte or count.
  obinstream& write_bytes(const void* p, size_t n);

  // Flushes buffered bytes and closes the connection; false on failure.
  bool close();
  bool good() const { return good_; }
  ioconn* get_ioconn() { return conn_; }

private:
  void put(const void* p, int n);

  ioconn* conn_ = nullptr;
  bool owns_ = false;
  bool good_ = true;
};

// Thrown by ibinstream when the data end before a value is complete, or when
// a count cannot be what the file holds.
class binary_format_error : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// Fixed-width binary input, the mirror of obinstream. A short read throws
// binary_format_error, so a truncated or foreign file can never leave values
// half read. Where the size of the data is known (plain files, and gzip
// files that turn out to be stored uncompressed), every count is checked
// against the bytes that remain before anything is allocated; where it is
// not (compressed data), readers grow their objects slice by slice, and
// account() bounds what a record may build by the bytes read so far.
class ibinstream : private tarn::util::nocopy {
public:
  ibinstream(const std::string& file, bool compressed = false);
  ibinstream(ioconn* conn, bool owns);
  virtual ~ibinstream();

  ibinstream& operator>>(bool& v);  // 0 or 1, anything else is a format error
  ibinstream& operator>>(unsigned char& v);
  ibinstream& operator>>(int& v);
  ibinstream& operator>>(unsigned int& v);
  ibinstream& operator>>(float& v);
  ibinstream& operator>>(double& v);
  ibinstream& operator>>(unsigned long long& v);

  // Exactly n raw bytes; a short read throws.
  void read_bytes(void* p, size_t n);
  // A text behind its presence byte; false (and `s` cleared) when absent.
  bool read_text(std::string& s);
  // A presence byte: 0 or 1, anything else is a format error.
  bool read_presence();
  // A u32 count of items that take at least `item_bytes` bytes each in the
  // data: counts beyond `limit`, or beyond what the rest of the data can
  // hold, are format errors.
  unsigned int read_count(unsigned int item_bytes = 1, unsigned int limit = 0xFFFFFFFFu);
  // Throws unless at least `bytes` more bytes can follow (always passes
  // when the size of the data is unknown).
  void require(unsigned long long bytes) const;
  // Bytes left in the data, -1 when unknown.
  long long remaining() const { return total_ < 0 ? -1 : total_ - static_cast<long long>(consumed_); }
  unsigned long long consumed() const { return consumed_; }
  // Records `bytes` of memory built from the data; throws once a reader
  // has built more than `memory_per_byte` times what it has read (plus a
  // fixed allowance), so that no file can make memory grow out of
  // proportion to itself, however its counts are set.
  void account(unsigned long long bytes);
  static constexpr unsigned memory_per_byte = 16;
  static constexpr unsigned long long memory_allowance = 1u << 20;

  // An owned vector through a pointer: null for presence 0.
  template <class T>
  void read_special(std::vector<T>*& v) {
    v = nullptr;
    if (!read_presence()) return;
    auto* r = new std::vector<T>();
    try {
      const unsigned int n = read_count();
      r->reserve(n < 65536 ? n : 65536);
      for (unsigned int i = 0; i < n; ++i) {
        T x{};
        *this >> x;
        r->push_back(x);
      }
    } catch (...) {
      delete r;
      throw;
    }
    v = r;
  }

  // Throws unless the data end here, cleanly: no byte follows, and a gzip
  // stream ended with its trailer intact.
  void expect_end();

  ioconn* get_ioconn() { return conn_; }

private:
  void get(void* p, int n);

  ioconn* conn_ = nullptr;
  bool owns_ = false;
  long long total_ = -1;  // size of the data, -1 when unknown
  unsigned long long consumed_ = 0;
  unsigned long long built_ = 0;
};

}  // namespace tarn::inpout

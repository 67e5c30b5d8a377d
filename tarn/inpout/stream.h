#pragma once

#include <stdexcept>
#include <string>

#include "tarn/util/nocopy.h"
#include "tarn/util/tokenizer.h"

namespace tarn::inpout {

class ioconn;

// Reads a connection line by line and cuts each line into fields at a
// one-character separator. Lines are returned in place in the stream's own
// buffer (ended by LF or CR LF, the terminator removed), so reading a row
// allocates nothing once the buffer has grown to the longest line.
class stream : private tarn::util::nocopy {
public:
  stream(ioconn* conn, bool owns, char separator, int buffer_size);
  virtual ~stream();

  virtual void open(ioconn* conn, bool owns, char separator, int buffer_size);
  virtual void set_delim(char c) { separator_ = c; }
  virtual void close();
  virtual bool eof() const;
  virtual bool rewind();
  virtual bool read_line();
  virtual const char* get_line() const { return line_ ? line_ : tarn::util::tokenizer::EMPTY; }
  virtual long long tell() const;
  virtual unsigned long long tell2() const { return position_; }
  virtual long long size() const;
  virtual long long lseek(long long offset, int origin);
  virtual ioconn* get_ioconn() { return conn_; }

  char get_delim() const { return separator_; }
  // Cuts the fields of the current line.
  tarn::util::tokenizer& get_tokenizer() { return tokenizer_; }
  const char* next_field() { return tokenizer_.next(); }
  // True once a read of the connection failed (corrupt or truncated data, a
  // directory given as a file): reading then stopped as at the end.
  bool failed() const { return failed_; }
  // Throws when reading stopped on a failed read rather than at the end:
  // data silently cut short would be worse than an error.
  void check_complete() const;
  // The error check_complete() throws.
  std::runtime_error incomplete_error() const;

  // Raw bytes from the current position, for readers that cut lines
  // themselves: the bytes buffered but not yet returned as lines first, then
  // the connection's. The count read; 0 at the end; -1 when the read failed
  // (failed() is then true, as after read_line()).
  int read_bytes(char* p, int n);
  // The descriptor of a regular file of which nothing has been read yet, so
  // that readers may read it by ranges, in parallel; -1 for any other
  // source (gzip, pipes, the data provider, a stream already read from).
  int range_descriptor();
  // The source's name for messages.
  const std::string& get_source() const { return source_; }
  void set_source(const std::string& s) { source_ = s; }

  // A stream over a plain or gzip-compressed (".gz") file.
  static stream* FROM_FILE(const std::string& path, char separator);
  // A stream for a data-source descriptor: "FILE#path#sep" or "JDBC#f1#...#f6".
  static stream* FROM_READER(const std::string& descriptor);
  // A stream over an external data provider; null with `error` set when the
  // provider cannot be started or reports an error.
  static stream* FROM_JDBC(const std::string& f1, const std::string& f2, const std::string& f3,
                           const std::string& f4, const std::string& f5, const std::string& f6, std::string& error);

private:
  void reset();
  bool source_complete() const;
  void grow();
  bool deliver(char* line_start);

  ioconn* conn_ = nullptr;
  bool owns_ = false;
  char separator_;
  char* buffer_ = nullptr;
  int capacity_ = 0;
  char* cursor_ = nullptr;
  char* line_ = nullptr;
  int buffered_ = 0;
  unsigned long long position_ = 0;
  tarn::util::tokenizer tokenizer_;
  bool failed_ = false;
  std::string source_;
};

}  // namespace tarn::inpout

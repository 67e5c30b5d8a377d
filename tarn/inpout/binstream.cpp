#include "tarn/inpout/binstream.h"

#include <sys/stat.h>

#include <memory>

#include "tarn/inpout/iobuf.h"
#include "tarn/inpout/iofile.h"
#include "tarn/inpout/iogz.h"
#include "tarn/inpout/iomem.h"

namespace tarn::inpout {

namespace {

constexpr unsigned buffer_size = 65536;
const char open_error[] = "Error description not available";

// A plain file behind a 64 KiB buffer, or a gzip file.
ioconn* open_file(const std::string& file, bool compressed, int mode, int level) {
  if (compressed) {
    auto gz = std::make_unique<iogz>();
    if (!gz->open(file, mode, level)) throw std::runtime_error(open_error);
    return gz.release();
  }
  auto plain = std::make_unique<iofile>();
  if (!plain->open(file, mode, 0644)) throw std::runtime_error(open_error);
  auto buf = std::make_unique<iobuf>();
  try {
    buf->open(plain.get(), true, buffer_size);
  } catch (const std::exception&) {
    throw std::runtime_error(open_error);
  }
  plain.release();
  return buf.release();
}

// The bytes a freshly opened connection will deliver, -1 when that cannot be
// known: compressed data, pipes, devices.
long long data_size(ioconn* conn) {
  if (dynamic_cast<iogz*>(conn)) return -1;
  if (auto* mem = dynamic_cast<iomem*>(conn)) return mem->size() - mem->tell();
  if (!conn->is_random()) return -1;
  try {
    return conn->size() - conn->tell();
  } catch (const std::exception&) {
    return -1;
  }
}

// A gzip connection reads a stored (uncompressed) regular file as it is; its
// size is then that of the file.
long long data_size(ioconn* conn, const std::string& file) {
  auto* gz = dynamic_cast<iogz*>(conn);
  if (!gz) return data_size(conn);
  struct stat st;
  if (!gz->direct() || ::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
  return static_cast<long long>(st.st_size);
}

}  // namespace

// ------------------------------------------------------------ obinstream

obinstream::obinstream(const std::string& file, bool compressed, int level)
    : conn_(open_file(file, compressed, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC, level)), owns_(true) {}

obinstream::obinstream(ioconn* conn, bool owns) : conn_(conn), owns_(owns) {}

obinstream::~obinstream() { close(); }

bool obinstream::close() {
  if (conn_ && owns_) {
    if (conn_->close() < 0) good_ = false;
    delete conn_;
  }
  conn_ = nullptr;
  return good_;
}

void obinstream::put(const void* p, int n) {
  if (!conn_ || conn_->write(p, n) != n) good_ = false;
}

obinstream& obinstream::operator<<(bool v) {
  const unsigned char b = v ? 1 : 0;
  put(&b, 1);
  return *this;
}

obinstream& obinstream::operator<<(unsigned char v) { return put(&v, 1), *this; }
obinstream& obinstream::operator<<(int v) { return put(&v, 4), *this; }
obinstream& obinstream::operator<<(unsigned int v) { return put(&v, 4), *this; }
obinstream& obinstream::operator<<(float v) { return put(&v, 4), *this; }
obinstream& obinstream::operator<<(double v) { return put(&v, 8), *this; }
obinstream& obinstream::operator<<(unsigned long long v) { return put(&v, 8), *this; }

obinstream& obinstream::operator<<(const std::string& s) {
  if (s.size() > 2147483646u) throw std::runtime_error("obinstream::writing too long string");
  *this << static_cast<unsigned char>(1) << static_cast<unsigned int>(s.size());
  return write_bytes(s.data(), s.size());
}

obinstream& obinstream::write_null_text() { return *this << static_cast<unsigned char>(0); }

obinstream& obinstream::write_bytes(const void* p, size_t n) {
  const char* c = static_cast<const char*>(p);
  while (n > 0) {
    const int chunk = n > (1u << 30) ? (1 << 30) : static_cast<int>(n);
    put(c, chunk);
    c += chunk;
    n -= static_cast<size_t>(chunk);
  }
  return *this;
}

// ------------------------------------------------------------ ibinstream

ibinstream::ibinstream(const std::string& file, bool compressed)
    : conn_(open_file(file, compressed, ioconn::READ, -1)), owns_(true), total_(data_size(conn_, file)) {}

ibinstream::ibinstream(ioconn* conn, bool owns)
    : conn_(conn), owns_(owns), total_(conn ? data_size(conn) : -1) {}

ibinstream::~ibinstream() {
  if (conn_ && owns_) {
    conn_->close();
    delete conn_;
  }
}

void ibinstream::get(void* p, int n) {
  char* c = static_cast<char*>(p);
  while (n > 0) {
    const int r = conn_ ? conn_->read(c, n) : -1;
    if (r <= 0) throw binary_format_error("unexpected end of data");
    c += r;
    n -= r;
    consumed_ += static_cast<unsigned long long>(r);
  }
}

void ibinstream::require(unsigned long long bytes) const {
  if (total_ >= 0 && bytes > static_cast<unsigned long long>(remaining()))
    throw binary_format_error("count beyond the end of the data");
}

void ibinstream::account(unsigned long long bytes) {
  built_ += bytes;
  if (built_ > memory_per_byte * consumed_ + memory_allowance)
    throw binary_format_error("data describe more than they hold");
}

void ibinstream::read_bytes(void* p, size_t n) {
  char* c = static_cast<char*>(p);
  while (n > 0) {
    const int chunk = n > (1u << 30) ? (1 << 30) : static_cast<int>(n);
    get(c, chunk);
    c += chunk;
    n -= static_cast<size_t>(chunk);
  }
}

ibinstream& ibinstream::operator>>(bool& v) {
  unsigned char b;
  get(&b, 1);
  if (b > 1) throw binary_format_error("bad boolean");
  v = b != 0;
  return *this;
}

ibinstream& ibinstream::operator>>(unsigned char& v) { return get(&v, 1), *this; }
ibinstream& ibinstream::operator>>(int& v) { return get(&v, 4), *this; }
ibinstream& ibinstream::operator>>(unsigned int& v) { return get(&v, 4), *this; }
ibinstream& ibinstream::operator>>(float& v) { return get(&v, 4), *this; }
ibinstream& ibinstream::operator>>(double& v) { return get(&v, 8), *this; }
ibinstream& ibinstream::operator>>(unsigned long long& v) { return get(&v, 8), *this; }

void ibinstream::expect_end() {
  char extra;
  const int r = conn_ ? conn_->read(&extra, 1) : -1;
  if (r != 0) throw binary_format_error(r > 0 ? "data after the end of the record" : "unreadable data");
  if (const auto* gz = dynamic_cast<const iogz*>(conn_); gz && gz->error() != Z_OK)
    throw binary_format_error("truncated compressed data");
}

bool ibinstream::read_presence() {
  unsigned char b;
  get(&b, 1);
  if (b > 1) throw binary_format_error("bad presence byte");
  return b == 1;
}

unsigned int ibinstream::read_count(unsigned int item_bytes, unsigned int limit) {
  unsigned int n;
  get(&n, 4);
  if (n > limit) throw binary_format_error("count out of range");
  require(static_cast<unsigned long long>(n) * item_bytes);
  return n;
}

bool ibinstream::read_text(std::string& s) {
  s.clear();
  if (!read_presence()) return false;
  const unsigned int n = read_count(1, 2147483646u);
  // Grown slice by slice: a corrupt length runs into the end of the data
  // before it can drive a large allocation.
  constexpr unsigned int slice = 65536;
  for (unsigned int done = 0; done < n;) {
    const unsigned int k = n - done < slice ? n - done : slice;
    s.resize(done + k);
    get(&s[done], static_cast<int>(k));
    done += k;
  }
  // The text ends at its first NUL, as a C string would.
  const size_t nul = s.find('\0');
  if (nul != std::string::npos) s.resize(nul);
  return true;
}

}  // namespace tarn::inpout

#include "tarn/inpout/iobuf.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace tarn::inpout {

namespace {
constexpr unsigned min_bufsize = 1024;
}

iobuf::~iobuf() { close(); }

bool iobuf::open(ioconn* c, bool own, unsigned bufsize) {
  if (c == nullptr) return false;
  close();
  int m = c->get_mode();
  if ((m & READ) && (m & WRITE))
    throw std::runtime_error("iobuf::open: IOBuffers are either READ or WRITE, not both.");
  unsigned want = bufsize > INT_MAX ? INT_MAX : bufsize;
  if (want < min_bufsize) want = min_bufsize;
  char* p = nullptr;
  for (; want >= min_bufsize; want /= 2)
    if ((p = static_cast<char*>(std::malloc(want))) != nullptr) break;
  if (p == nullptr) throw std::runtime_error("iobuf::open : Out of memory");
  conn = c;
  owns = own;
  buf = p;
  cap = want;
  count = pos = 0;
  return true;
}

bool iobuf::writing() const { return conn && (conn->get_mode() & WRITE); }

// Writes out the pending bytes; false if the connection refused some.
bool iobuf::flush() {
  unsigned done = 0;
  while (done < count) {
    int w = conn->write(buf + done, static_cast<int>(count - done));
    if (w < 1) break;
    done += static_cast<unsigned>(w);
  }
  bool ok = done == count;
  count = pos = 0;
  return ok;
}

void iobuf::release() {
  std::free(buf);
  buf = nullptr;
  owns = false;
  cap = count = pos = 0;
}

int iobuf::close() {
  if (conn == nullptr) return -1;
  // Bytes that never reach the file make the close a failure.
  const bool flushed = !writing() || flush();
  int r = conn->close();
  if (!flushed) r = -1;
  if (owns) delete conn;
  conn = nullptr;
  release();
  return r;
}

int iobuf::read(void* p, int n) {
  if (conn == nullptr) return -1;
  if (n < 1) return 0;
  char* out = static_cast<char*>(p);
  unsigned want = static_cast<unsigned>(n);
  unsigned avail = count - pos;
  if (want <= avail) {
    std::memcpy(out, buf + pos, want);
    pos += want;
    return n;
  }
  std::memcpy(out, buf + pos, avail);
  count = pos = 0;
  unsigned rest = want - avail;
  int r;
  if (rest > cap) {  // too big to stage: straight into the caller's memory
    r = conn->read(out + avail, static_cast<int>(rest));
    if (r > 0) avail += static_cast<unsigned>(r);
  } else {
    r = conn->read(buf, static_cast<int>(cap));
    if (r > 0) {
      count = static_cast<unsigned>(r);
      pos = rest < count ? rest : count;
      std::memcpy(out + avail, buf, pos);
      avail += pos;
    }
  }
  return avail == 0 && r < 0 ? r : static_cast<int>(avail);
}

int iobuf::write(const void* p, int n) {
  if (conn == nullptr) return -1;
  if (n < 1) return 0;
  unsigned want = static_cast<unsigned>(n);
  if (want > cap - count && !flush()) return -1;
  if (want > cap) return conn->write(p, n);
  std::memcpy(buf + count, p, want);
  count += want;
  return n;
}

long long iobuf::lseek(long long off, int whence) {
  if (conn == nullptr) return -1;
  if (writing() && count > 0) flush();
  count = pos = 0;
  return conn->lseek(off, whence);
}

long long iobuf::tell() {
  if (conn == nullptr) return -1;
  long long t = conn->tell();
  return writing() ? t + count : t + pos - static_cast<long long>(count);
}

bool iobuf::rewind() {
  if (conn == nullptr) return false;
  if (writing()) flush();
  count = pos = 0;
  return conn->rewind();
}

bool iobuf::eof() {
  if (conn == nullptr) return true;
  if (!writing() && pos < count) return false;
  return conn->eof();
}

long long iobuf::size() { return conn ? conn->size() : -1; }
bool iobuf::is_open() const { return conn && conn->is_open(); }
int iobuf::get_mode() const { return conn ? conn->get_mode() : 0; }
bool iobuf::is_random() const { return conn && conn->is_random(); }

}  // namespace tarn::inpout

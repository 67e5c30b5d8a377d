#include "tarn/inpout/ioconn.h"

#include <fcntl.h>

#include <cstring>
#include <stdexcept>

namespace tarn::inpout {

namespace {
// Chunk of the generic copy loops; lives on the stack.
constexpr int copy_chunk = 65536;
}  // namespace

ioconn::~ioconn() = default;

bool ioconn::eof() { return size() == tell(); }

bool ioconn::rewind() { return lseek(0, LSEEK_SET) == 0; }

int ioconn::writeln(const char* s) {
  int a = write(s, static_cast<int>(std::strlen(s)));
  int b = write("\n", 1);
  return a + b;
}

// A failed write ends the copy: going on would only drain the source.
long long ioconn::copy(ioconn& src) {
  char buf[copy_chunk];
  long long total = 0;
  for (;;) {
    int r = src.read(buf, copy_chunk);
    if (r < 1) break;
    int w = write(buf, r);
    if (w < 1) break;
    total += w;
  }
  return total;
}

long long ioconn::copy(ioconn& src, long long n) {
  char buf[copy_chunk];
  long long done = 0;
  while (done < n) {
    long long want = n - done < copy_chunk ? n - done : copy_chunk;
    int r = src.read(buf, static_cast<int>(want));
    if (r < 1) break;
    int w = write(buf, r);
    if (w < 1) break;
    done += w;
  }
  return done;
}

bool ioconn::is_random() const { return false; }

long long ioconn::lseek(long long, int) { throw std::runtime_error("lseek not available"); }

long long ioconn::tell() { return lseek(0, LSEEK_CUR); }

long long ioconn::size() {
  long long here = tell();
  long long end = lseek(0, LSEEK_END);
  lseek(here, LSEEK_SET);
  return end;
}

int open_flags(int mode) {
  int flags = O_RDONLY;
  if ((mode & ioconn::READ) && (mode & ioconn::WRITE))
    flags = O_RDWR;
  else if (mode & ioconn::WRITE)
    flags = O_WRONLY;
  if (mode & ioconn::APPEND) flags |= O_APPEND;
  if (mode & ioconn::CREATE) flags |= O_CREAT;
  if (mode & ioconn::TRUNC) flags |= O_TRUNC;
  return flags;
}

}  // namespace tarn::inpout

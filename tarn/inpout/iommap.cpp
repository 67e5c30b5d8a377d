#include "tarn/inpout/iommap.h"

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace tarn::inpout {

namespace {
// Default window setting, in pages.
constexpr unsigned default_pages = 4;
// Each remap maps this many times the window setting.
constexpr long long window_factor = 4;
}  // namespace

iommap::iommap() { set_mapped_area_size(default_pages * iofile::allocation_granularity()); }

iommap::~iommap() {
  close();
  std::free(line);
}

bool iommap::open(const std::string& path, int mode, int perms) {
  close();
  if (!file.open(path, mode, perms)) return false;
  start = 0;
  remap();
  return true;
}

int iommap::close() {
  unmap();
  start = offset = 0;
  return file.close();
}

unsigned iommap::set_mapped_area_size(unsigned n) {
  unsigned page = static_cast<unsigned>(iofile::allocation_granularity());
  unsigned v = n > page ? n : page;
  area = page ? v - v % page : v;
  return area;
}

void iommap::unmap() {
  if (window) file.mem_unmap(window, window_len);
  window = nullptr;
  window_len = 0;
}

void iommap::remap() {
  unmap();
  ++remaps;
  long long fsize = file.size();
  if (start >= fsize) {
    offset = 0;
    start = fsize;
    return;
  }
  long long page = iofile::allocation_granularity();
  long long aligned = page ? start - start % page : start;
  offset = start - aligned;
  start = aligned;
  long long want = window_factor * area;
  window_len = fsize - start < want ? fsize - start : want;
  window = static_cast<char*>(file.mem_map(start, window_len));
  if (window == nullptr) {
    window_len = 0;
    std::cout << "@@" << remaps << std::endl;
    throw std::runtime_error("iommap::remap failed.");
  }
}

int iommap::read(void* p, int n) {
  if (!is_open()) return -1;
  char* out = static_cast<char*>(p);
  long long done = 0;
  while (done < n) {
    long long left = window_len - offset;
    long long k = n - done < left ? n - done : left;
    if (k > 0) std::memcpy(out + done, window + offset, k);
    offset += k;
    done += k;
    if (done == n) break;
    start += window_len;  // window used up: slide on
    remap();
    if (window_len == 0) break;
  }
  return static_cast<int>(done);
}

void iommap::append_to_line(const char* p, long long n, long long& len) {
  if (len + n + 1 > line_cap) {
    void* q = std::realloc(line, len + n + 1);
    if (q == nullptr) throw std::runtime_error("Out of memory");
    line = static_cast<char*>(q);
    line_cap = len + n + 1;
  }
  if (n > 0) std::memcpy(line + len, p, n);
  len += n;
}

bool iommap::read_line() {
  if (!is_open()) return false;
  long long len = 0;
  for (;;) {
    const char* from = window + offset;
    long long left = window_len - offset;
    const void* nl = left > 0 ? std::memchr(from, '\n', left) : nullptr;
    long long k = nl ? static_cast<const char*>(nl) - from : left;
    append_to_line(from, k, len);
    offset += k;
    if (nl) {
      ++offset;
      break;
    }
    if (window_len == 0) break;  // end of file
    start += window_len;
    remap();
  }
  line[len] = '\0';
  ++lines;
  return true;
}

const char* iommap::get_line() { return line ? line : ""; }

long long iommap::lseek(long long off, int whence) {
  if (!is_open()) return -1;
  long long base;
  switch (whence) {
    case LSEEK_SET: base = 0; break;
    case LSEEK_CUR: base = start + offset; break;
    case LSEEK_END: base = size(); break;
    default: return -1;
  }
  long long target = base + off;
  if (target < 0) return -1;
  if (target >= start && target <= start + window_len) {
    offset = target - start;
  } else {
    start = target;
    remap();
  }
  return start + offset;
}

bool iommap::eof() { return !is_open() || file.size() == start + offset; }

int iommap::write(const void*, int) { throw std::runtime_error("iommap::write not implemented yet"); }

int iommap::writeln(const char* s) { return write(s, static_cast<int>(std::strlen(s))); }

// The logical position survives the resize unless it now lies past the end.
bool iommap::resize(long long n) {
  if (!is_open()) return false;
  unmap();
  bool ok = file.resize(n);
  start += offset;
  offset = 0;
  if (ok && start > n) start = n;
  remap();
  return ok;
}

}  // namespace tarn::inpout

#include "tarn/inpout/iomem.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace tarn::inpout {

namespace {
constexpr unsigned long long max_cap = UINT32_MAX;
}

iomem::~iomem() { close(); }

bool iomem::open(void* p, unsigned capacity, unsigned size) {
  close();
  block = static_cast<char*>(p);
  cap = capacity;
  length = size < capacity ? size : capacity;
  return block != nullptr;
}

bool iomem::open(unsigned capacity) {
  close();
  block = static_cast<char*>(std::malloc(capacity ? capacity : 1));
  if (block == nullptr) throw std::runtime_error("Out of memory");
  cap = capacity;
  owns = true;
  return true;
}

int iomem::close() {
  if (owns) std::free(block);
  block = nullptr;
  cap = length = position = 0;
  owns = false;
  return 0;
}

void iomem::grow_to(unsigned long long new_cap) {
  void* p = std::realloc(block, new_cap);
  if (p == nullptr) throw std::runtime_error("Out of memory");
  block = static_cast<char*>(p);
  cap = static_cast<unsigned>(new_cap);
}

int iomem::read(void* p, int n) {
  if (n < 1) return 0;
  unsigned left = length - position;
  unsigned k = static_cast<unsigned>(n) < left ? static_cast<unsigned>(n) : left;
  if (k) std::memcpy(p, block + position, k);
  position += k;
  return static_cast<int>(k);
}

// An owned block grows by the shortfall plus half its capacity, so that a
// run of small appends reallocates only logarithmically often.
int iomem::write(const void* p, int n) {
  if (n < 1) return 0;
  unsigned long long want = static_cast<unsigned>(n);
  unsigned long long room = cap - position;
  if (want > room) {
    if (owns) {
      unsigned long long shortfall = want - room;
      unsigned long long next = cap + shortfall + cap / 2;
      if (next > max_cap) next = cap + shortfall;
      if (next > max_cap) throw std::runtime_error("Out of memory");
      grow_to(next);
    } else {
      want = room;
    }
  }
  if (want) std::memcpy(block + position, p, want);
  position += static_cast<unsigned>(want);
  if (position > length) length = position;
  return static_cast<int>(want);
}

int iomem::writeln(const char* s) {
  int a = write(s, static_cast<int>(std::strlen(s)));
  int b = write("\n", 1);
  return a + b;
}

// Past the end, an owned block is extended (new bytes are not cleared);
// the caller's block only lets the position reach its end.
long long iomem::lseek(long long off, int whence) {
  long long base;
  switch (whence) {
    case LSEEK_SET: base = 0; break;
    case LSEEK_CUR: base = position; break;
    case LSEEK_END: base = length; break;
    default: return -1;
  }
  long long target = base + off;
  if (target < 0) return -1;
  if (target <= length) {
    position = static_cast<unsigned>(target);
  } else if (owns) {
    unsigned long long t = static_cast<unsigned long long>(target);
    if (t > max_cap) throw std::runtime_error("Out of memory");
    if (t > cap) {
      unsigned long long next = t + cap / 2;
      grow_to(next > max_cap ? t : next);
    }
    length = position = static_cast<unsigned>(t);
  } else {
    position = length;
  }
  return position;
}

}  // namespace tarn::inpout

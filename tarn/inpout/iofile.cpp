#include "tarn/inpout/iofile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

namespace tarn::inpout {

iofile::~iofile() { close(); }

bool iofile::open(const std::string& path, int m, int perms) {
  close();
  fd = ::open64(path.c_str(), open_flags(m), perms);
  if (fd >= 0) mode = m;
  return fd >= 0;
}

bool iofile::open_mmap(const std::string& path, int m, int perms) {
  open(path, m, perms);
  return true;
}

bool iofile::open(int descriptor) {
  close();
  fd = descriptor;
  mode = 0;
  struct stat st;
  if (::fstat(fd, &st) == 0) {
    if (st.st_mode & S_IRUSR) mode |= READ;
    if (st.st_mode & S_IWUSR) mode |= WRITE;
  }
  return fd >= 0;
}

int iofile::close() {
  if (fd == -1) return -1;
  int r = ::close(fd);
  fd = -1;
  mode = 0;
  return r;
}

int iofile::read(void* p, int n) { return static_cast<int>(::read(fd, p, n)); }

int iofile::write(const void* p, int n) { return static_cast<int>(::write(fd, p, n)); }

long long iofile::lseek(long long off, int whence) {
  switch (whence) {
    case LSEEK_SET: return ::lseek64(fd, off, SEEK_SET);
    case LSEEK_CUR: return ::lseek64(fd, off, SEEK_CUR);
    case LSEEK_END: return ::lseek64(fd, off, SEEK_END);
    default: return -1;
  }
}

bool iofile::is_random() const {
  struct stat st;
  return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
}

long long iofile::size() {
  struct stat st;
  if (::fstat(fd, &st) != 0) throw std::runtime_error("iofile::size(): cannot access file size.");
  return st.st_size;
}

// Growing writes the last byte, so the file really has the new length even
// on file systems that do not extend with ftruncate.
bool iofile::resize(long long n) {
  if (fd == -1 || n < 0 || !(mode & WRITE)) return false;
  struct stat st;
  if (::fstat(fd, &st) != 0) return false;
  if (n == st.st_size) return true;
  if (n < st.st_size) return ::ftruncate64(fd, n) == 0;
  long long here = ::lseek64(fd, 0, SEEK_CUR);
  if (here < 0 || ::lseek64(fd, n - 1, SEEK_SET) < 0) return false;
  const char zero = 0;
  bool ok = ::write(fd, &zero, 1) == 1;
  long long back = here > n ? n : here;
  return ::lseek64(fd, back, SEEK_SET) == back && ok;
}

long long iofile::copy(ioconn& src) {
  if (src.is_random()) resize(tell() + (src.size() - src.tell()));
  return ioconn::copy(src);
}

void* iofile::mem_map(long long offset, long long len) {
  int prot = 0;
  if (mode & WRITE) prot |= PROT_WRITE;
  if (mode & READ) prot |= PROT_READ;
  void* p = ::mmap64(nullptr, static_cast<size_t>(len), prot, MAP_SHARED, fd, offset);
  return p == MAP_FAILED ? nullptr : p;
}

bool iofile::mem_unmap(void* p, long long len) {
  return p == nullptr || ::munmap(p, static_cast<size_t>(len)) == 0;
}

bool iofile::mem_sync(void* p, long long len) {
  return p == nullptr || ::msync(p, static_cast<size_t>(len), MS_SYNC) == 0;
}

bool iofile::is_pipe(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
}

long iofile::allocation_granularity() {
  if (alloc < 0) {
    long page = ::sysconf(_SC_PAGESIZE);
    alloc = page < 0 ? 0 : page;
  }
  return alloc;
}

}  // namespace tarn::inpout

#include "tarn/inpout/iogz.h"

#include <stdexcept>

namespace tarn::inpout {

iogz::~iogz() { close(); }

bool iogz::open(const std::string& path, int m, int level, int strategy) {
  close();
  char how[4] = {'r', 'b', 0, 0};
  if (m & WRITE) how[0] = 'w';
  if (m & APPEND) how[0] = 'a';
  if (level != -1) how[2] = static_cast<char>('0' + level);
  gz = ::gzopen(path.c_str(), how);
  if (gz == nullptr) return false;
  ::gzsetparams(gz, level, strategy);
  mode = m;
  return true;
}

int iogz::close() {
  if (gz == nullptr) return 0;
  int r = ::gzclose(gz);
  gz = nullptr;
  mode = 0;
  return r;
}

bool iogz::eof() { return gz == nullptr || ::gzeof(gz) != 0; }

bool iogz::rewind() { return gz != nullptr && ::gzrewind(gz) == 0; }

int iogz::read(void* p, int n) {
  if (gz == nullptr) return -1;
  return ::gzread(gz, p, static_cast<unsigned>(n));
}

int iogz::write(const void* p, int n) {
  if (gz == nullptr) return -1;
  return ::gzwrite(gz, p, static_cast<unsigned>(n));
}

long long iogz::lseek(long long off, int whence) {
  if (whence == LSEEK_END) throw std::runtime_error("iogz::lseek LSEEK_END not supported");
  if (whence != LSEEK_SET && whence != LSEEK_CUR)
    throw std::runtime_error("iogz::lseek position not supported");
  if (gz == nullptr) return -1;
  return ::gzseek(gz, static_cast<z_off_t>(off), whence == LSEEK_SET ? SEEK_SET : SEEK_CUR);
}

long long iogz::tell() { return gz == nullptr ? -1 : ::gztell(gz); }

bool iogz::direct() const { return gz != nullptr && (mode & (WRITE | APPEND)) == 0 && ::gzdirect(gz) == 1; }

int iogz::error() const {
  if (!gz) return Z_OK;
  int err = Z_OK;
  gzerror(gz, &err);
  return err;
}

}  // namespace tarn::inpout

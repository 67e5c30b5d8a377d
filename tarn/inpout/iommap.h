#pragma once

#include <string>

#include "tarn/inpout/iofile.h"

namespace tarn::inpout {

// Read-only connection over a file mapped through a sliding window. Each
// remap maps four times the window size setting (or the rest of the file),
// starting at a page boundary.
class iommap : public ioconn {
public:
  iommap();
  ~iommap() override;

  int close() override;
  bool eof() override;  // true when not open
  bool is_open() const override { return file.is_open(); }
  int get_mode() const override { return file.get_mode(); }
  int write(const void* p, int n) override;  // throws
  int writeln(const char* s) override;       // throws
  int read(void* p, int n) override;
  bool is_random() const override { return true; }
  long long lseek(long long off, int whence) override;
  long long tell() override { return start + offset; }
  long long size() override { return file.size(); }

  // Reads up to the next newline (dropped); false only when not open.
  virtual bool read_line();
  virtual const char* get_line();
  virtual bool open(const std::string& path, int mode, int perms = 0644);
  virtual unsigned get_mapped_area_size() { return area; }
  virtual unsigned set_mapped_area_size(unsigned n);
  virtual bool resize(long long n);
  virtual void remap();

  long long line_number() const { return lines; }
  // Calls of remap() in this process.
  static long remap_count() { return remaps; }

private:
  void unmap();
  void append_to_line(const char* p, long long n, long long& len);

  static inline long remaps = 0;

  iofile file;
  char* window = nullptr;
  long long window_len = 0;
  unsigned area = 0;
  long long start = 0;   // file offset of the window (the target before remap)
  long long offset = 0;  // position inside the window
  char* line = nullptr;
  long long line_cap = 0;
  long long lines = 0;
};

}  // namespace tarn::inpout

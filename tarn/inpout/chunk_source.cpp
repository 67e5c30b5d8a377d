#include "tarn/inpout/chunk_source.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tarn/inpout/stream.h"

namespace tarn::inpout {

namespace {

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

std::exception_ptr line_too_long() {
  return std::make_exception_ptr(std::runtime_error("ioconn::read_line(): out of memory"));
}

void make_room(text_chunk& c, std::size_t bytes) {
  if (c.bytes.size() < bytes + chunk_padding) c.bytes.resize(bytes + chunk_padding);
}

// Where the line that holds position `at` of [0, end) begins.
std::size_t line_start(const char* p, std::size_t floor, std::size_t at) {
  while (at > floor && p[at - 1] != '\n') --at;
  return at;
}

// ------------------------------------------------------------ byte ranges

// A regular file read by ranges: chunk i holds the lines that begin in
// [i * chunk, (i + 1) * chunk), so every chunk is found without reading any
// other, and the threads that ask for chunks read them side by side.
class range_source : public chunk_source {
public:
  range_source(int fd, long long size, std::size_t chunk, std::exception_ptr failure)
      : fd_(fd), size_(size), chunk_(chunk), failure_(std::move(failure)) {
    count_ = size <= 0 ? 0 : static_cast<std::size_t>((size - 1) / static_cast<long long>(chunk) + 1);
  }
  range_source(int fd, const chunk_layout& layout, std::exception_ptr failure)
      : fd_(fd), layout_(&layout), failure_(std::move(failure)), count_(layout.size()) {}

  bool next(text_chunk& c) override {
    const std::size_t i = next_.fetch_add(1);
    if (i >= count_ || i > stop_.load()) return false;
    c.index = i;
    c.begin = c.size = 0;
    c.failure = nullptr;
    if (layout_)
      reread(c, (*layout_)[i].first, (*layout_)[i].second);
    else
      cut(c, static_cast<long long>(i) * static_cast<long long>(chunk_));
    return true;
  }

  void stop_after(std::size_t index) override {
    std::size_t seen = stop_.load();
    while (index < seen && !stop_.compare_exchange_weak(seen, index)) {
    }
  }

private:
  // Reads up to n bytes at `offset` into the chunk's buffer from `at` on:
  // the count read, short at the end of the file; -1 on a read error.
  long long read_at(text_chunk& c, std::size_t at, long long offset, std::size_t n) {
    make_room(c, at + n);
    std::size_t done = 0;
    while (done < n) {
      const ssize_t r = ::pread(fd_, c.bytes.data() + at + done, n - done, offset + static_cast<long long>(done));
      if (r < 0) return -1;
      if (r == 0) break;
      done += static_cast<std::size_t>(r);
    }
    return static_cast<long long>(done);
  }

  void reread(text_chunk& c, long long offset, std::size_t size) {
    c.offset = offset;
    if (read_at(c, 0, offset, size) != static_cast<long long>(size)) {
      c.failure = failure_;
      return;
    }
    c.size = size;
  }

  void cut(text_chunk& c, long long lo) {
    // One byte before the range tells whether a line begins at its start.
    const long long from = lo == 0 ? 0 : lo - 1;
    long long hi = std::min(size_, lo + static_cast<long long>(chunk_));
    const long long got = read_at(c, 0, from, static_cast<std::size_t>(hi - from));
    c.offset = lo;
    if (got < 0) return void(c.failure = failure_);
    hi = from + got;  // a file shortened since its size was taken ends here
    const char* p = c.bytes.data();
    std::size_t start = 0;
    if (lo != 0) {
      const void* lf = std::memchr(p, '\n', static_cast<std::size_t>(got));
      if (!lf) return;  // inside a line that began earlier
      start = static_cast<std::size_t>(static_cast<const char*>(lf) - p) + 1;
    }
    c.begin = start;
    c.offset = from + static_cast<long long>(start);
    if (c.offset >= hi) return;
    // The last line of the chunk is the one that holds byte hi - 1; it ends
    // at the first line feed from there on, or at the end of the file.
    std::size_t have = static_cast<std::size_t>(got), look = static_cast<std::size_t>(hi - 1 - from);
    for (;;) {
      const void* lf = std::memchr(c.bytes.data() + look, '\n', have - look);
      if (lf) {
        c.size = static_cast<std::size_t>(static_cast<const char*>(lf) - c.bytes.data()) + 1 - start;
        return;
      }
      const std::size_t last = line_start(c.bytes.data(), start, look);
      if (have - last >= max_line_bytes) {
        c.size = last - start;
        c.failure = line_too_long();
        return;
      }
      const std::size_t more = std::max<std::size_t>(have, 1 << 16);
      const long long r = read_at(c, have, from + static_cast<long long>(have), more);
      if (r < 0) {
        c.size = last - start;
        c.failure = failure_;
        return;
      }
      if (r == 0) {  // the last line of the file, without terminator
        c.size = have - start;
        return;
      }
      look = have;
      have += static_cast<std::size_t>(r);
    }
  }

  int fd_;
  long long size_ = 0;
  std::size_t chunk_ = 1;
  const chunk_layout* layout_ = nullptr;
  std::exception_ptr failure_;
  std::size_t count_ = 0;
  std::atomic<std::size_t> next_{0};
  std::atomic<std::size_t> stop_{none};
};

}  // namespace

// The sequential source is in chunk_stream.cpp.
std::unique_ptr<chunk_source> stream_chunks(stream& s, std::size_t chunk_bytes, const chunk_layout* layout,
                                            std::size_t depth);

std::unique_ptr<chunk_source> read_chunks(stream& s, std::size_t chunk_bytes, std::size_t depth) {
  chunk_bytes = std::clamp<std::size_t>(chunk_bytes, 1, max_line_bytes / 2);
  const int fd = s.range_descriptor();
  if (fd >= 0) {
    struct stat st;
    if (::fstat(fd, &st) == 0)
      return std::make_unique<range_source>(fd, st.st_size, chunk_bytes,
                                            std::make_exception_ptr(s.incomplete_error()));
  }
  return stream_chunks(s, chunk_bytes, nullptr, depth);
}

std::unique_ptr<chunk_source> reread_chunks(stream& s, const chunk_layout& layout, std::size_t depth) {
  const int fd = s.range_descriptor();
  if (fd >= 0) return std::make_unique<range_source>(fd, layout, std::make_exception_ptr(s.incomplete_error()));
  return stream_chunks(s, 0, &layout, depth);
}

}  // namespace tarn::inpout

#pragma once

#include <cstddef>
#include <cstring>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

namespace tarn::inpout {

class stream;

// Whole lines of a text source, the unit of parallel reading. Chunks are
// numbered in source order; together they hold every byte of the source
// once. A chunk may hold no line at all (a long line that began in an
// earlier one).
struct text_chunk {
  std::size_t index = 0;
  long long offset = 0;      // source position of the first byte
  std::size_t size = 0;      // bytes of lines, from data() on
  std::size_t begin = 0;     // where they start in `bytes`
  std::vector<char> bytes;   // at least `chunk_padding` spare bytes follow them
  // Set when reading failed after this chunk's lines (a damaged gzip
  // stream, a read error, a line too long to hold): nothing follows.
  std::exception_ptr failure;

  char* data() { return bytes.data() + begin; }
};

// The lines of a chunk as the line stream returns them: each ends at a line
// feed, or at a carriage return and line feed, the terminator replaced in
// place by a NUL; the last line of a source may lack its terminator.
class line_cursor {
public:
  explicit line_cursor(text_chunk& c) : p_(c.data()), end_(c.data() + c.size) {}

  // The next line, or null after the last.
  char* next() {
    if (p_ >= end_) return nullptr;
    char* start = p_;
    auto* lf = static_cast<char*>(std::memchr(p_, '\n', static_cast<std::size_t>(end_ - p_)));
    if (!lf) {
      *end_ = '\0';  // into the padding
      p_ = end_ + 1;
      return start;
    }
    if (lf > start && lf[-1] == '\r')
      lf[-1] = '\0';
    else
      *lf = '\0';
    p_ = lf + 1;
    return start;
  }

private:
  char* p_;
  char* end_;
};

// Spare bytes after a chunk's lines, which readers may overwrite (a line
// without terminator is ended with a NUL there) and read (word-wise probes).
constexpr std::size_t chunk_padding = 64;

// Where the chunks of a reading lay (offset and size of each), so that a
// second reading cuts exactly the same chunks.
using chunk_layout = std::vector<std::pair<long long, std::size_t>>;

// A source of chunks for several reading threads.
class chunk_source {
public:
  virtual ~chunk_source() = default;
  // Fills `c` (reusing its buffer) with the next chunk in source order;
  // false when none is left. Any thread may call it.
  virtual bool next(text_chunk& c) = 0;
  // Chunks after `index` are not wanted: reading may end early.
  virtual void stop_after(std::size_t index) = 0;
  // Threads of the source's own that read while the callers of next()
  // work (0 or 1).
  virtual unsigned own_threads() const { return 0; }
};

// Chunks of about `chunk_bytes` bytes from the current position of a stream
// to its end. A regular file not yet read from is read by byte ranges in
// the callers of next(), in parallel, each range extended to the end of the
// line that crosses its end; any other source (gzip, a pipe) is read by one
// thread of the source's own, which cuts the stream's bytes at line ends and
// hands the chunks over with at most `depth` of them in flight.
std::unique_ptr<chunk_source> read_chunks(stream& s, std::size_t chunk_bytes, std::size_t depth);

// The chunks of an earlier reading of the same stream, rewound, again: each
// is read whole at its recorded place. A source that no longer holds them
// (shortened in between) fails as a damaged one does.
std::unique_ptr<chunk_source> reread_chunks(stream& s, const chunk_layout& layout, std::size_t depth);

// Lines longer than this cannot be held (the line stream's limit too).
constexpr std::size_t max_line_bytes = std::size_t{1} << 30;

}  // namespace tarn::inpout

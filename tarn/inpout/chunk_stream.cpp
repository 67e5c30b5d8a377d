// The chunk source of sources that can only be read in order (gzip files,
// pipes): one thread reads the stream and cuts its bytes at line ends while
// the loading threads parse the chunks it has cut.

#include <algorithm>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "tarn/inpout/chunk_source.h"
#include "tarn/inpout/stream.h"

namespace tarn::inpout {

namespace {

constexpr std::size_t none = std::numeric_limits<std::size_t>::max();

class stream_source : public chunk_source {
public:
  stream_source(stream& s, std::size_t chunk, const chunk_layout* layout, std::size_t depth)
      : s_(s), chunk_(chunk), layout_(layout), depth_(std::max<std::size_t>(depth, 2)) {
    reader_ = std::thread([this] { run(); });
  }

  ~stream_source() override {
    {
      std::lock_guard<std::mutex> lock(m_);
      closing_ = true;
    }
    cv_.notify_all();
    reader_.join();
  }

  bool next(text_chunk& c) override {
    std::unique_lock<std::mutex> lock(m_);
    if (c.bytes.capacity() != 0) spare_.push_back(std::move(c.bytes));
    c.bytes = std::vector<char>();
    cv_.notify_all();
    cv_.wait(lock, [&] { return !ready_.empty() || finished_; });
    if (ready_.empty()) return false;
    c = std::move(ready_.front());
    ready_.pop_front();
    cv_.notify_all();
    return true;
  }

  void stop_after(std::size_t index) override {
    std::lock_guard<std::mutex> lock(m_);
    stop_ = std::min(stop_, index);
  }

  unsigned own_threads() const override { return 1; }

private:
  void run() {
    try {
      if (layout_)
        replay();
      else
        cut();
    } catch (...) {
      text_chunk c;
      c.index = index_;
      c.failure = std::current_exception();
      emit(std::move(c));
    }
    std::lock_guard<std::mutex> lock(m_);
    finished_ = true;
    cv_.notify_all();
  }

  // A buffer for the next chunk, once fewer than `depth_` are in flight;
  // false when the source is being closed or no more chunks are wanted.
  bool take_buffer(text_chunk& c) {
    std::unique_lock<std::mutex> lock(m_);
    cv_.wait(lock, [&] { return closing_ || index_ > stop_ || !spare_.empty() || buffers_ < depth_; });
    if (closing_ || index_ > stop_) return false;
    if (!spare_.empty()) {
      c.bytes = std::move(spare_.back());
      spare_.pop_back();
    } else {
      ++buffers_;
    }
    return true;
  }

  void emit(text_chunk&& c) {
    std::lock_guard<std::mutex> lock(m_);
    ready_.push_back(std::move(c));
    cv_.notify_all();
  }

  // Reads until `have` reaches `want` or the stream ends: false on a failed read.
  bool fill(text_chunk& c, std::size_t& have, std::size_t want) {
    if (c.bytes.size() < want + chunk_padding) c.bytes.resize(want + chunk_padding);
    while (have < want) {
      const int r = s_.read_bytes(c.bytes.data() + have, static_cast<int>(std::min<std::size_t>(want - have, INT_MAX)));
      if (r < 0) return false;
      if (r == 0) break;
      have += static_cast<std::size_t>(r);
    }
    return true;
  }

  void cut() {
    std::vector<char> carry;  // the start of a line that goes on in the next chunk
    long long offset = 0;
    for (bool more = true; more;) {
      text_chunk c;
      if (!take_buffer(c)) return;
      c.index = index_;
      c.offset = offset;
      std::size_t have = carry.size(), want = std::max(chunk_, have + 1);
      if (c.bytes.size() < want + chunk_padding) c.bytes.resize(want + chunk_padding);
      if (!carry.empty()) std::memcpy(c.bytes.data(), carry.data(), carry.size());
      for (;;) {
        const std::size_t before = have;  // no line feed before this
        if (!fill(c, have, want)) {
          c.size = last_line_end(c, 0, have);
          c.failure = std::make_exception_ptr(s_.incomplete_error());
          more = false;
          break;
        }
        if (have < want) {  // the end: a last line may lack its terminator
          c.size = have;
          more = false;
          break;
        }
        if (const std::size_t end = last_line_end(c, before, have); end > 0) {
          c.size = end;
          break;
        }
        if (have >= max_line_bytes) {
          c.failure = std::make_exception_ptr(std::runtime_error("ioconn::read_line(): out of memory"));
          more = false;
          break;
        }
        want = 2 * have;  // a line longer than a chunk
      }
      carry.assign(c.bytes.data() + c.size, c.bytes.data() + (c.failure ? c.size : have));
      offset += static_cast<long long>(c.size);
      if (c.size == 0 && !c.failure) return;
      ++index_;
      emit(std::move(c));
    }
  }

  // One past the last line feed in [from, have); 0 if none.
  static std::size_t last_line_end(const text_chunk& c, std::size_t from, std::size_t have) {
    const void* lf = ::memrchr(c.bytes.data() + from, '\n', have - from);
    return lf ? static_cast<std::size_t>(static_cast<const char*>(lf) - c.bytes.data()) + 1 : 0;
  }

  void replay() {
    for (const auto& [offset, size] : *layout_) {
      text_chunk c;
      if (!take_buffer(c)) return;
      c.index = index_;
      c.offset = offset;
      std::size_t have = 0;
      if (!fill(c, have, size) || have < size) {
        c.failure = std::make_exception_ptr(s_.incomplete_error());
        emit(std::move(c));
        return;
      }
      c.size = size;
      ++index_;
      emit(std::move(c));
    }
  }

  stream& s_;
  const std::size_t chunk_;
  const chunk_layout* layout_;
  const std::size_t depth_;
  std::thread reader_;

  std::mutex m_;
  std::condition_variable cv_;
  std::deque<text_chunk> ready_;
  std::vector<std::vector<char>> spare_;
  std::size_t buffers_ = 0;
  std::size_t index_ = 0;  // of the next chunk cut
  std::size_t stop_ = none;
  bool closing_ = false;
  bool finished_ = false;
};

}  // namespace

std::unique_ptr<chunk_source> stream_chunks(stream& s, std::size_t chunk_bytes, const chunk_layout* layout,
                                            std::size_t depth) {
  return std::make_unique<stream_source>(s, chunk_bytes, layout, depth);
}

}  // namespace tarn::inpout

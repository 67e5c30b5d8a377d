#include "progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>

namespace arbor_cmd {

namespace {

// Fixed-point text that no locale can change.
std::string fixed(double v, int decimals) {
  char buf[64];
  auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, decimals);
  return std::string(buf, r.ptr);
}

std::string two_digits(unsigned long v) {
  const char digits[2] = {static_cast<char>('0' + v / 10 % 10), static_cast<char>('0' + v % 10)};
  return std::string(digits, 2);
}

}  // namespace

double monotonic_seconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

std::string elapsed_text(double seconds) {
  const unsigned long s = seconds > 0 ? static_cast<unsigned long>(seconds) : 0;
  if (s < 3600) return std::to_string(s / 60) + ":" + two_digits(s % 60);
  return std::to_string(s / 3600) + ":" + two_digits(s / 60 % 60) + ":" + two_digits(s % 60);
}

std::string loading_text(std::uint64_t rows, std::uint64_t bytes, double elapsed) {
  const double rate = elapsed > 0 ? static_cast<double>(bytes) / 1e6 / elapsed : 0.0;
  return "loading: " + std::to_string(rows) + " rows, " + fixed(rate, 1) + " MB/s, " + elapsed_text(elapsed);
}

std::string growing_text(std::uint64_t nodes, std::uint64_t open, double cases, double elapsed) {
  return "growing: " + std::to_string(nodes) + " nodes, " + std::to_string(open) + " open, " + fixed(cases, 0) +
         " cases to split, " + elapsed_text(elapsed);
}

progress_line::progress_line(int fd, clock_fn now, unsigned width) : fd_(fd), now_(std::move(now)), width_(width) {}

progress_line::~progress_line() { erase(); }

void progress_line::begin(phase) {
  std::lock_guard<std::mutex> lock(mutex_);
  erase();
  start_ = last_draw_ = now_();
}

void progress_line::loading(std::uint64_t rows, std::uint64_t bytes) {
  std::lock_guard<std::mutex> lock(mutex_);
  const double now = now_();
  if (due(now)) draw(loading_text(rows, bytes, now - start_), now);
}

void progress_line::growing(std::uint64_t nodes, std::uint64_t open, double cases) {
  std::lock_guard<std::mutex> lock(mutex_);
  const double now = now_();
  if (due(now)) draw(growing_text(nodes, open, cases, now - start_), now);
}

void progress_line::end() {
  std::lock_guard<std::mutex> lock(mutex_);
  erase();
}

void progress_line::draw(const std::string& text, double now) {
  // Carriage return, the text, then erase what a longer earlier line left.
  std::string line = "\r" + text;
  if (width_ > 1 && text.size() > width_ - 1) line.resize(width_);
  put(line + "\033[K");
  shown_ = true;
  last_draw_ = now;
}

void progress_line::erase() {
  if (!shown_) return;
  put("\r\033[K");
  shown_ = false;
}

void progress_line::put(const std::string& bytes) const {
  // Progress is best effort: a failed write is dropped, never reported.
  const char* p = bytes.data();
  size_t left = bytes.size();
  while (left > 0) {
    const ssize_t n = ::write(fd_, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    p += n;
    left -= static_cast<size_t>(n);
  }
}

std::unique_ptr<tarn::util::progress> make_progress_line(int fd, clock_fn now) {
  if (!::isatty(fd)) return nullptr;
  struct winsize ws {};
  const unsigned width = ::ioctl(fd, TIOCGWINSZ, &ws) == 0 ? ws.ws_col : 0;
  return std::make_unique<progress_line>(fd, std::move(now), width);
}

}  // namespace arbor_cmd

#pragma once

// A live progress line on a terminal: one line redrawn in place (carriage
// return, text, erase to the end of the line) at most ten times a second,
// and erased when its phase ends. A phase shorter than a tenth of a second
// draws nothing at all.

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "tarn/util/progress.h"

namespace arbor_cmd {

// Seconds on a monotonic clock; tests pass their own.
using clock_fn = std::function<double()>;
double monotonic_seconds();

class progress_line final : public tarn::util::progress {
public:
  // Draws on `fd`; a `width` above 0 cuts lines to width - 1 characters so
  // that they never wrap.
  progress_line(int fd, clock_fn now, unsigned width = 0);
  ~progress_line() override;

  void begin(phase p) override;
  void loading(std::uint64_t rows, std::uint64_t bytes) override;
  void growing(std::uint64_t nodes, std::uint64_t open, double cases) override;
  void end() override;

  static constexpr double redraw_interval = 0.1;  // seconds

private:
  bool due(double now) const { return now - last_draw_ >= redraw_interval; }
  void draw(const std::string& text, double now);
  void erase();
  void put(const std::string& bytes) const;

  int fd_;
  clock_fn now_;
  unsigned width_;
  std::mutex mutex_;  // reports may come from several loader threads
  double start_ = 0.0, last_draw_ = 0.0;
  bool shown_ = false;  // a line is on the terminal now
};

// The texts of the line (without the control characters).
std::string loading_text(std::uint64_t rows, std::uint64_t bytes, double elapsed);
std::string growing_text(std::uint64_t nodes, std::uint64_t open, double cases, double elapsed);
// Elapsed seconds as m:ss, or h:mm:ss from an hour on.
std::string elapsed_text(double seconds);

// A progress line on `fd` when it is a terminal, none otherwise: nothing is
// ever written to a file or a pipe. arbor's driver makes one for standard
// error and hands it to loading and growth.
std::unique_ptr<tarn::util::progress> make_progress_line(int fd = 2, clock_fn now = monotonic_seconds);

}  // namespace arbor_cmd

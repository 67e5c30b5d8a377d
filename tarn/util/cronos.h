#pragma once

#include <sys/time.h>

#include <string>

namespace tarn::util {

// Stopwatch for wall-clock and processor time. stop() may be called several
// times after one start(); each call measures from that same start.
class cronos {
public:
  cronos() = default;
  virtual ~cronos() = default;

  void start();
  void stop();
  double get_elapsed() const { return elapsed_; }
  double get_process() const { return process_; }

  // asctime() of the local time; ends with a newline.
  static std::string get_current_time();
  // Sleeps `ms` milliseconds; throws when the microseconds do not fit 32 bits.
  static void sleep(unsigned ms);

private:
  double elapsed_ = 0.0;
  double process_ = 0.0;
  struct timeval wall_start_ {};
  double process_start_ = 0.0;
};

}  // namespace tarn::util

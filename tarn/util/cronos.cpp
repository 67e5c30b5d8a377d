#include "tarn/util/cronos.h"

#include <sys/times.h>
#include <unistd.h>

#include <ctime>
#include <stdexcept>

namespace tarn::util {

namespace {

// User + system time of the process and its waited-for children, in seconds.
double processor_seconds() {
  struct tms t;
  times(&t);
  const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
  return t.tms_utime / ticks + t.tms_stime / ticks + t.tms_cutime / ticks + t.tms_cstime / ticks;
}

}  // namespace

void cronos::start() {
  gettimeofday(&wall_start_, nullptr);
  process_start_ = processor_seconds();
}

void cronos::stop() {
  struct timeval now;
  gettimeofday(&now, nullptr);
  const long long us = (now.tv_sec - wall_start_.tv_sec) * 1000000LL + (now.tv_usec - wall_start_.tv_usec);
  elapsed_ = static_cast<double>(us) / 1000000.0;
  process_ = processor_seconds() - process_start_;
}

std::string cronos::get_current_time() {
  time_t now = time(nullptr);
  return asctime(localtime(&now));
}

void cronos::sleep(unsigned ms) {
  // 4,294,967 ms is the first count whose microseconds overflow 32 bits.
  if (ms >= 4294967u) throw std::runtime_error("cronos::sleep() called with too much time");
  usleep(ms * 1000u);
}

}  // namespace tarn::util

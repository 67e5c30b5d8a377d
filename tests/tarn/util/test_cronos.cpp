#include <gtest/gtest.h>

#include <stdexcept>

#include "tarn/util/cronos.h"
#include "tarn/util/proc.h"

using tarn::util::cronos;

TEST(Cronos, StopMeasuresFromTheSameStart) {
  cronos c;
  EXPECT_EQ(c.get_elapsed(), 0.0);
  c.start();
  cronos::sleep(2);
  c.stop();
  const double first = c.get_elapsed();
  EXPECT_GT(first, 0.0);
  cronos::sleep(2);
  c.stop();
  EXPECT_GT(c.get_elapsed(), first);
  EXPECT_GE(c.get_process(), 0.0);
}

TEST(Cronos, SleepRefusesCountsWhoseMicrosecondsOverflow) {
  try {
    cronos::sleep(4294967);
    FAIL() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "cronos::sleep() called with too much time");
  }
  EXPECT_NO_THROW(cronos::sleep(0));
}

TEST(Cronos, CurrentTimeEndsWithANewline) {
  const std::string now = cronos::get_current_time();
  ASSERT_FALSE(now.empty());
  EXPECT_EQ(now.back(), '\n');
}

TEST(Proc, MemoryFiguresAreConsistent) {
  EXPECT_GT(tarn::util::proc::phys_total_ram(), 0);
  EXPECT_LE(tarn::util::proc::phys_available_ram(), tarn::util::proc::phys_total_ram());
  EXPECT_EQ(tarn::util::proc::process_peak_mem(), -1);
  EXPECT_GE(tarn::util::proc::process_free_ram(), 0);
}

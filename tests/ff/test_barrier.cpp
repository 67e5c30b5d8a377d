#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "ff/barrier.h"

namespace {

// Each thread checks in, waits at the barrier and then records how many had
// checked in: everybody must see all of them. Thread 0 arrives late, so a
// barrier that let anyone through early would be caught.
std::vector<int> meet(ff::Barrier& b, int n) {
  std::atomic<int> arrived{0};
  std::vector<int> seen(n, -1);
  b.barrier(n);  // arm
  std::vector<std::thread> threads;
  for (int i = 0; i < n; ++i) {
    threads.emplace_back([&, i] {
      if (i == 0) usleep(2000);
      arrived.fetch_add(1);
      b.barrier();
      seen[i] = arrived.load();
    });
  }
  for (std::thread& t : threads) t.join();
  return seen;
}

TEST(FfBarrier, ReleasesThreadsOnlyWhenTheLastArrives) {
  ff::Barrier fresh;
  fresh.barrier();   // nothing armed: returns at once
  fresh.barrier(0);  // neither does a zero count arm it
  EXPECT_EQ(meet(fresh, 3), std::vector<int>(3, 3));
  // The process-wide one, re-armed round after round with different counts.
  for (int n = 1; n <= 5; ++n) EXPECT_EQ(meet(ff::Barrier::instance(), n), std::vector<int>(n, n));
}

}  // namespace

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
  ff::Barrier& shared = ff::Barrier::instance();
  EXPECT_EQ(&shared, &ff::Barrier::instance());
  // Re-armed round after round, with different thread counts.
  for (int round = 0; round < 20; ++round) {
    const int n = 1 + round % 5;
    SCOPED_TRACE(n);
    EXPECT_EQ(meet(shared, n), std::vector<int>(n, n));
  }
}

TEST(FfBarrier, CallOnADisarmedBarrierDoesNotArmIt) {
  ff::Barrier b;
  b.barrier();   // nothing armed: returns at once
  b.barrier(0);  // neither does a zero count arm it
  EXPECT_EQ(meet(b, 3), std::vector<int>(3, 3));
}

}  // namespace

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "farm_fixtures.h"
#include "ff/buffer.h"

namespace {

constexpr unsigned long STRESS_ITEMS = 4000000 / ff_fixtures::SCALE;

void* as_ptr(std::uintptr_t v) { return reinterpret_cast<void*>(v); }

TEST(FfBuffer, RingKeepsOrderRefusesNullAndReportsFullAndEmpty) {
  ff::SWSR_Ptr_Buffer ring(3);
  ASSERT_TRUE(ring.init());
  void* p = nullptr;
  EXPECT_FALSE(ring.pop(&p));
  EXPECT_TRUE(ring.empty());
  EXPECT_FALSE(ring.push(nullptr));
  EXPECT_TRUE(ring.empty());

  // Several laps around the ring, so that both positions wrap.
  std::uintptr_t next_in = 1, next_out = 1;
  for (int lap = 0; lap < 5; ++lap) {
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(ring.push(as_ptr(next_in++)));
    EXPECT_FALSE(ring.available());
    EXPECT_FALSE(ring.push(as_ptr(99)));
    ASSERT_TRUE(ring.pop(&p));
    EXPECT_EQ(p, as_ptr(next_out++));
    ASSERT_TRUE(ring.push(as_ptr(next_in++)));
    while (ring.pop(&p)) EXPECT_EQ(p, as_ptr(next_out++));
    EXPECT_EQ(next_out, next_in);
    EXPECT_TRUE(ring.empty());
    EXPECT_TRUE(ring.available());
  }
}

TEST(FfBuffer, RingOfZeroSlotsCannotBeCreated) {
  ff::SWSR_Ptr_Buffer ring(0);
  EXPECT_FALSE(ring.init());
  ff::uSWSR_Ptr_Buffer queue(0);
  EXPECT_FALSE(queue.init());
  EXPECT_FALSE(queue.push(as_ptr(1)));
}

TEST(FfBuffer, UnboundedQueueGrowsAcrossSegmentsInOrder) {
  ff::uSWSR_Ptr_Buffer q(4);
  ASSERT_TRUE(q.init());
  void* p = nullptr;
  EXPECT_FALSE(q.pop(&p));
  EXPECT_TRUE(q.empty());
  EXPECT_FALSE(q.push(nullptr));
  EXPECT_TRUE(q.empty());

  for (std::uintptr_t i = 1; i <= 1000; ++i) ASSERT_TRUE(q.push(as_ptr(i)));
  EXPECT_FALSE(q.empty());
  EXPECT_GE(q.segments_allocated(), 250u);
  for (std::uintptr_t i = 1; i <= 1000; ++i) {
    ASSERT_TRUE(q.pop(&p));
    ASSERT_EQ(p, as_ptr(i));
  }
  EXPECT_FALSE(q.pop(&p));
  EXPECT_TRUE(q.empty());
}

TEST(FfBuffer, FixedSizeQueueRefusesWhenFull) {
  ff::uSWSR_Ptr_Buffer q(2, true);
  ASSERT_TRUE(q.init());
  EXPECT_TRUE(q.push(as_ptr(1)));
  EXPECT_TRUE(q.push(as_ptr(2)));
  EXPECT_FALSE(q.push(as_ptr(3)));
  void* p = nullptr;
  ASSERT_TRUE(q.pop(&p));
  EXPECT_EQ(p, as_ptr(1));
  EXPECT_TRUE(q.push(as_ptr(3)));
  ASSERT_TRUE(q.pop(&p));
  EXPECT_EQ(p, as_ptr(2));
  ASSERT_TRUE(q.pop(&p));
  EXPECT_EQ(p, as_ptr(3));
  EXPECT_FALSE(q.pop(&p));
  EXPECT_EQ(q.segments_allocated(), 1u);
}

TEST(FfBuffer, DrainedSegmentsAreRecycled) {
  // Bursts of ten segments' worth: the first burst allocates them, every
  // later one runs on the segments handed back to the pool.
  ff::uSWSR_Ptr_Buffer q(8);
  ASSERT_TRUE(q.init());
  void* p = nullptr;
  std::uintptr_t in = 1, out = 1;
  unsigned long after_first = 0;
  for (int burst = 0; burst < 1000; ++burst) {
    for (int i = 0; i < 80; ++i) ASSERT_TRUE(q.push(as_ptr(in++)));
    while (q.pop(&p)) ASSERT_EQ(p, as_ptr(out++));
    if (burst == 0) after_first = q.segments_allocated();
  }
  EXPECT_EQ(out, in);
  EXPECT_GE(after_first, 10u);
  EXPECT_EQ(q.segments_allocated(), after_first);
}

TEST(FfBuffer, BurstLargerThanThePoolStaysInOrder) {
  // 50 segments drained at once overflow the 32-entry pool: the surplus is
  // freed, and the next burst allocates only what the pool cannot give.
  ff::uSWSR_Ptr_Buffer q(4);
  ASSERT_TRUE(q.init());
  void* p = nullptr;
  std::uintptr_t in = 1, out = 1;
  std::vector<unsigned long> allocated;
  for (int burst = 0; burst < 3; ++burst) {
    const unsigned long before = q.segments_allocated();
    for (int i = 0; i < 200; ++i) ASSERT_TRUE(q.push(as_ptr(in++)));
    while (q.pop(&p)) ASSERT_EQ(p, as_ptr(out++));
    allocated.push_back(q.segments_allocated() - before);
  }
  EXPECT_EQ(out, in);
  EXPECT_GE(allocated[0], 49u);
  EXPECT_LE(allocated[1], allocated[0] - ff::uSWSR_Ptr_Buffer::POOL_SIZE);
  EXPECT_EQ(allocated[2], allocated[1]);
}

struct item {
  std::uintptr_t seq = 0;
  std::uintptr_t payload = 0;
};

// Producer thread writes each item and pushes its address; the consumer
// checks sequence and contents. `max_ahead` bounds how far the producer may
// run ahead of the consumer (0: unbounded).
struct stress_result {
  unsigned long received = 0;
  unsigned long out_of_order = 0;
  unsigned long bad_payload = 0;
  unsigned long segments = 0;
};

// Polls tightly (a relaxed poller would hide short windows between the two
// threads), yielding only now and then.
void backoff(unsigned& failures) {
  if (++failures % 1024 == 0) std::this_thread::yield();
}

stress_result stress(unsigned long n, unsigned long segment, unsigned long max_ahead) {
  std::vector<item> items(n);
  ff::uSWSR_Ptr_Buffer q(segment);
  stress_result r;
  if (!q.init()) return r;
  std::atomic<unsigned long> consumed{0};
  std::atomic<bool> produced_all{false};
  std::atomic<bool> gave_up{false};

  std::thread producer([&] {
    unsigned failures = 0;
    for (unsigned long i = 0; i < n; ++i) {
      while (max_ahead && i - consumed.load(std::memory_order_acquire) >= max_ahead &&
             !gave_up.load(std::memory_order_relaxed))
        backoff(failures);
      items[i].seq = i;
      items[i].payload = i * 7 + 3;
      while (!q.push(&items[i])) backoff(failures);
    }
    produced_all.store(true, std::memory_order_release);
  });
  std::thread consumer([&] {
    unsigned failures = 0;
    void* p = nullptr;
    for (unsigned long i = 0; i < n; ++i) {
      bool got = q.pop(&p);
      while (!got) {
        // A lost pointer must fail the test, not hang it.
        const bool last_chance = produced_all.load(std::memory_order_acquire);
        got = q.pop(&p);
        if (!got && last_chance) {
          gave_up.store(true, std::memory_order_relaxed);
          return;
        }
        backoff(failures);
      }
      const item* it = static_cast<const item*>(p);
      if (it->seq != i) ++r.out_of_order;
      if (it->payload != it->seq * 7 + 3) ++r.bad_payload;
      ++r.received;
      consumed.store(i + 1, std::memory_order_release);
    }
  });
  producer.join();
  consumer.join();
  r.segments = q.segments_allocated();
  void* extra = nullptr;
  if (q.pop(&extra)) ++r.received;  // nothing may be left over
  return r;
}

TEST(FfBuffer, MillionsOfPointersBetweenTwoThreadsArriveInOrder) {
  // Tiny segments: the consumer keeps catching up with the producer right
  // where it links a new segment.
  const stress_result r = stress(STRESS_ITEMS, 4, 0);
  EXPECT_EQ(r.received, STRESS_ITEMS);
  EXPECT_EQ(r.out_of_order, 0u);
  EXPECT_EQ(r.bad_payload, 0u);
}

TEST(FfBuffer, ConcurrentSteadyStateRunsOnRecycledSegments) {
  // With at most 1,000 pointers in flight and 64 per segment, no more than
  // head + tail + 1000 / 64 full segments are ever in use, plus one on its
  // way back to the pool; everything else must come from the pool.
  const unsigned long n = STRESS_ITEMS / 4, segment = 64, ahead = 1000;
  const stress_result r = stress(n, segment, ahead);
  EXPECT_EQ(r.received, n);
  EXPECT_EQ(r.out_of_order, 0u);
  EXPECT_EQ(r.bad_payload, 0u);
  EXPECT_LE(r.segments, 2 + ahead / segment + 2);
  EXPECT_LT(r.segments * 100, n / segment);  // far fewer than segments passed
}

}  // namespace

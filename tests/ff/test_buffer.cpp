#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "ff/buffer.h"

namespace {

void* as_ptr(std::uintptr_t v) { return reinterpret_cast<void*>(v); }

TEST(FfBuffer, QueueKeepsOrderAndRefusesNullEmptyAndFull) {
  ff::uSWSR_Ptr_Buffer q(4);
  ASSERT_TRUE(q.init());
  void* p = nullptr;
  EXPECT_FALSE(q.pop(&p));
  EXPECT_FALSE(q.push(nullptr));
  EXPECT_TRUE(q.empty());
  for (std::uintptr_t i = 1; i <= 1000; ++i) ASSERT_TRUE(q.push(as_ptr(i)));
  EXPECT_GE(q.segments_allocated(), 250u);
  for (std::uintptr_t i = 1; i <= 1000; ++i) {
    ASSERT_TRUE(q.pop(&p));
    ASSERT_EQ(p, as_ptr(i));
  }
  EXPECT_FALSE(q.pop(&p));

  // A fixed-size queue never grows: it refuses while full. Several laps
  // make both ends of its ring wrap.
  ff::uSWSR_Ptr_Buffer fixed(3, true);
  ASSERT_TRUE(fixed.init());
  std::uintptr_t in = 1, out = 1;
  for (int lap = 0; lap < 5; ++lap) {
    for (int i = 0; i < 10 && fixed.push(as_ptr(in)); ++i) ++in;
    EXPECT_EQ(in - out, 3u);
    ASSERT_TRUE(fixed.pop(&p));
    EXPECT_EQ(p, as_ptr(out++));
    ASSERT_TRUE(fixed.push(as_ptr(in++)));
    while (fixed.pop(&p)) EXPECT_EQ(p, as_ptr(out++));
    EXPECT_EQ(out, in);
  }
  EXPECT_EQ(fixed.segments_allocated(), 1u);
}

// Pushes `per_burst` pointers and drains them, four times over; returns how
// many segments each burst had to allocate.
std::vector<unsigned long> bursts(unsigned long segment, unsigned long per_burst) {
  ff::uSWSR_Ptr_Buffer q(segment);
  std::vector<unsigned long> allocated(4, 0);
  EXPECT_TRUE(q.init());
  void* p = nullptr;
  std::uintptr_t in = 1, out = 1;
  for (unsigned long& a : allocated) {
    const unsigned long before = q.segments_allocated();
    for (unsigned long i = 0; i < per_burst; ++i) q.push(as_ptr(in++));
    while (q.pop(&p) && p == as_ptr(out)) ++out;
    a = q.segments_allocated() - before;
  }
  EXPECT_EQ(out, in);
  return allocated;
}

TEST(FfBuffer, DrainedSegmentsAreRecycledUpToThePoolSize) {
  // Ten segments' worth (one made by init): every burst after the first
  // runs on recycled ones.
  const std::vector<unsigned long> small = bursts(8, 80);
  EXPECT_GE(small[0], 9u);
  EXPECT_EQ(small[1] + small[2] + small[3], 0u);
  // 50 segments drained at once overflow the 32-entry pool: the surplus is
  // freed, and each later burst allocates only what the pool cannot give.
  const std::vector<unsigned long> large = bursts(4, 200);
  EXPECT_GE(large[0], 49u);
  EXPECT_LE(large[1], large[0] - ff::uSWSR_Ptr_Buffer::POOL_SIZE);
  EXPECT_EQ(large[3], large[1]);
}

TEST(FfBuffer, PointersBetweenTwoThreadsArriveInOrderOnRecycledSegments) {
  // A producer thread fills each item and pushes its address, held at most
  // `max_ahead` ahead of the consumer, which checks order and contents. With
  // tiny segments the consumer keeps catching up with the producer right
  // where it links a new one. Both poll tightly, yielding only now and then:
  // a relaxed poller would hide short windows between the two threads.
  const unsigned long n = 1000000, segment = 4, max_ahead = 64;
  struct item {
    std::uintptr_t seq = 0, payload = 0;
  };
  std::vector<item> items(n);
  ff::uSWSR_Ptr_Buffer q(segment);
  ASSERT_TRUE(q.init());
  std::atomic<unsigned long> consumed{0};
  std::atomic<bool> produced_all{false}, gave_up{false};
  auto backoff = [](unsigned& failures) {
    if (++failures % 1024 == 0) std::this_thread::yield();
  };
  std::thread producer([&] {
    unsigned failures = 0;
    for (unsigned long i = 0; i < n; ++i) {
      while (i - consumed.load(std::memory_order_acquire) >= max_ahead &&
             !gave_up.load(std::memory_order_relaxed))
        backoff(failures);
      items[i] = {i, i * 7 + 3};
      while (!q.push(&items[i])) backoff(failures);
    }
    produced_all.store(true, std::memory_order_release);
  });
  unsigned long received = 0, wrong = 0;
  std::thread consumer([&] {
    unsigned failures = 0;
    void* p = nullptr;
    for (unsigned long i = 0; i < n; ++i) {
      for (bool got = q.pop(&p); !got; backoff(failures)) {
        // A lost pointer must fail the test, not hang it.
        const bool last_chance = produced_all.load(std::memory_order_acquire);
        if (!(got = q.pop(&p)) && last_chance) {
          gave_up.store(true, std::memory_order_relaxed);
          return;
        }
      }
      const item* it = static_cast<const item*>(p);
      if (it->seq != i || it->payload != i * 7 + 3) ++wrong;
      ++received;
      consumed.store(i + 1, std::memory_order_release);
    }
  });
  producer.join();
  consumer.join();
  void* extra = nullptr;
  EXPECT_FALSE(q.pop(&extra));  // nothing left over
  EXPECT_EQ(received, n);
  EXPECT_EQ(wrong, 0u);
  // At most head + tail + max_ahead / segment full segments are in use,
  // plus one on its way back to the pool; the rest must be recycled.
  EXPECT_LE(q.segments_allocated(), 2 + max_ahead / segment + 2);
}

}  // namespace

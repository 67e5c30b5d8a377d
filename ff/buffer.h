#pragma once

// Single-producer single-consumer pointer queues: the only channel between
// the threads of a farm.
//
// A slot holding null is empty, so null can never be queued. The producer
// publishes a task with a release store into its slot and the consumer takes
// it with an acquire load: everything the producer wrote into the task before
// pushing it is visible to the consumer after popping it. No lock is taken.

#include <pthread.h>

#include <atomic>
#include <cstddef>

#include "tarn/util/nocopy.h"

namespace ff {

// Lets an idle consumer sleep until a producer has pushed something into one
// of its queues. Several queues may share one wakeup (a load balancer
// sleeps on all its feedback channels at once).
//
// The consumer announces itself with prepare(), polls its queues once more,
// and then either cancel()s (found work) or sleep()s. A producer calls
// notify() after each push. Both announce through a read-modify-write of
// the same flag, so one of them comes second and sees the other: either the
// producer finds the consumer announced and wakes it, or the consumer's
// announcement synchronises with the producer's notify and its last poll
// finds the task. The lock is only taken on the way to sleep and to wake.
class wakeup : private tarn::util::nocopy {
public:
  wakeup();
  ~wakeup();

  void prepare() { sleeping.exchange(1, std::memory_order_seq_cst); }
  void cancel() { sleeping.store(0, std::memory_order_relaxed); }
  // Waits until notified or `max_us` microseconds have passed.
  void sleep(unsigned max_us);

  void notify() {
    if (sleeping.fetch_add(0, std::memory_order_seq_cst) != 0) wake();
  }

private:
  void wake();

  std::atomic<int> sleeping{0};
  bool signalled = false;  // under `mutex`
  pthread_mutex_t mutex;
  pthread_cond_t cond;
};

// Bounded ring of `size` pointer slots; the building block of the unbounded
// queue. push() may only be called by one thread and pop() by one (other)
// thread.
class alignas(64) SWSR_Ptr_Buffer : private tarn::util::nocopy {
public:
  explicit SWSR_Ptr_Buffer(unsigned long n);
  ~SWSR_Ptr_Buffer();

  // Allocates the 64-byte aligned slot array; false when memory runs out.
  bool init();

  // Producer side. False for null or when the ring is full.
  bool push(void* data) {
    if (!data) return false;
    std::atomic<void*>& slot = buf[pwrite];
    if (slot.load(std::memory_order_acquire) != nullptr) return false;
    slot.store(data, std::memory_order_release);
    pwrite = pwrite + 1 == size ? 0 : pwrite + 1;
    return true;
  }

  // Consumer side. False when the ring is empty.
  bool pop(void** data) {
    std::atomic<void*>& slot = buf[pread];
    void* d = slot.load(std::memory_order_acquire);
    if (!d) return false;
    slot.store(nullptr, std::memory_order_release);
    pread = pread + 1 == size ? 0 : pread + 1;
    *data = d;
    return true;
  }

  // Consumer side: nothing to pop right now.
  bool empty() const { return buf[pread].load(std::memory_order_acquire) == nullptr; }
  // Producer side: a push would succeed right now.
  bool available() const { return buf[pwrite].load(std::memory_order_acquire) == nullptr; }

  unsigned long buffersize() const { return size; }

  // Rewinds both positions. Only valid on an empty ring that no thread is
  // using (every popped slot is already null).
  void reset() { pread = pwrite = 0; }

private:
  // The two positions live on separate cache lines so that the producer and
  // the consumer do not invalidate each other's line on every operation.
  alignas(64) unsigned long pread = 0;   // consumer only
  alignas(64) unsigned long pwrite = 0;  // producer only
  alignas(64) std::atomic<void*>* buf = nullptr;
  unsigned long size;
};

// Unbounded single-producer single-consumer queue: a linked list of rings of
// `n` slots each. The producer fills the tail ring and links a new one when
// it is full; the consumer drains the head ring and, once it is exhausted and
// a successor exists, hands it back to a 32-entry pool from which the
// producer takes its next ring. In the steady state nothing is allocated.
//
// With `fixedsize` the queue never grows beyond its first ring: push then
// fails when `n` pointers are waiting. The farm uses that for worker input
// queues, so that a busy worker makes the scheduler look elsewhere.
class uSWSR_Ptr_Buffer : private tarn::util::nocopy {
public:
  static constexpr unsigned long POOL_SIZE = 32;

  explicit uSWSR_Ptr_Buffer(unsigned long n, bool fixedsize = false);
  ~uSWSR_Ptr_Buffer();

  // Allocates the first ring and the pool; false when memory runs out.
  bool init();

  // Producer side. False for null, when memory runs out, or when a
  // fixed-size queue is full.
  bool push(void* data);
  // Consumer side. False when the queue is empty.
  bool pop(void** data);
  // Consumer side: nothing to pop right now.
  bool empty();

  // The consumer's wakeup, notified after every push; set it before the
  // producer starts.
  void set_wakeup(wakeup* w) { wake = w; }

  unsigned long buffersize() const { return size; }
  bool isFixedSize() const { return fixedsize; }
  // Number of rings allocated so far (not taken from the pool). Read it from
  // the producer thread, or after the producer has finished.
  unsigned long segments_allocated() const { return nalloc; }

private:
  struct segment;

  segment* new_segment();          // producer: from the pool, else allocated
  void release_segment(segment*);  // consumer: to the pool, else freed

  // Read-only once initialised.
  const unsigned long size;
  const bool fixedsize;
  SWSR_Ptr_Buffer* pool = nullptr;      // consumer pushes, producer pops
  wakeup* wake = nullptr;
  alignas(64) segment* head = nullptr;  // consumer only
  alignas(64) segment* tail = nullptr;  // producer only
  unsigned long nalloc = 0;             // producer only
};

}  // namespace ff

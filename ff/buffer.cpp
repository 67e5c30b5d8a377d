#include "ff/buffer.h"

#include <time.h>

#include <cstdlib>
#include <new>

namespace ff {

namespace {

constexpr std::align_val_t LINE{64};

}  // namespace

wakeup::wakeup() {
  pthread_condattr_t attr;
  pthread_condattr_init(&attr);
  pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
  if (pthread_mutex_init(&mutex, nullptr) != 0 || pthread_cond_init(&cond, &attr) != 0)
    std::abort();
  pthread_condattr_destroy(&attr);
}

wakeup::~wakeup() {
  pthread_cond_destroy(&cond);
  pthread_mutex_destroy(&mutex);
}

void wakeup::sleep(unsigned max_us) {
  struct timespec until;
  clock_gettime(CLOCK_MONOTONIC, &until);
  until.tv_nsec += static_cast<long>(max_us % 1000000) * 1000;
  until.tv_sec += max_us / 1000000 + until.tv_nsec / 1000000000;
  until.tv_nsec %= 1000000000;
  pthread_mutex_lock(&mutex);
  // One wait only: the caller polls again whatever woke it.
  if (!signalled) pthread_cond_timedwait(&cond, &mutex, &until);
  signalled = false;
  pthread_mutex_unlock(&mutex);
  cancel();
}

void wakeup::wake() {
  pthread_mutex_lock(&mutex);
  signalled = true;
  pthread_cond_signal(&cond);
  pthread_mutex_unlock(&mutex);
}

SWSR_Ptr_Buffer::SWSR_Ptr_Buffer(unsigned long n) : size(n) {}

SWSR_Ptr_Buffer::~SWSR_Ptr_Buffer() {
  if (buf) ::operator delete[](buf, LINE);
}

bool SWSR_Ptr_Buffer::init() {
  if (buf) return true;
  if (size == 0) return false;
  void* mem = ::operator new[](size * sizeof(std::atomic<void*>), LINE, std::nothrow);
  if (!mem) return false;
  buf = static_cast<std::atomic<void*>*>(mem);
  for (unsigned long i = 0; i < size; ++i) new (&buf[i]) std::atomic<void*>(nullptr);
  pread = pwrite = 0;
  return true;
}

// A ring plus the link to the ring the producer filled next. A segment is
// non-empty when it gets linked, and the producer never touches a ring again
// once it has published its successor.
struct uSWSR_Ptr_Buffer::segment {
  explicit segment(unsigned long n) : ring(n) {}
  SWSR_Ptr_Buffer ring;
  std::atomic<segment*> next{nullptr};
};

uSWSR_Ptr_Buffer::uSWSR_Ptr_Buffer(unsigned long n, bool fixedsize)
    : size(n), fixedsize(fixedsize) {}

uSWSR_Ptr_Buffer::~uSWSR_Ptr_Buffer() {
  while (head) {
    segment* next = head->next.load(std::memory_order_relaxed);
    delete head;
    head = next;
  }
  if (pool) {
    void* s;
    while (pool->pop(&s)) delete static_cast<segment*>(s);
    delete pool;
  }
}

bool uSWSR_Ptr_Buffer::init() {
  if (head) return true;
  if (size == 0) return false;
  if (!fixedsize) {
    pool = new (std::nothrow) SWSR_Ptr_Buffer(POOL_SIZE);
    if (!pool || !pool->init()) {
      delete pool;
      pool = nullptr;
      return false;
    }
  }
  segment* s = new_segment();
  if (!s) return false;
  head = tail = s;
  return true;
}

bool uSWSR_Ptr_Buffer::push(void* data) {
  if (!data || !tail) return false;
  if (!tail->ring.push(data)) {
    if (fixedsize) return false;
    segment* s = new_segment();
    if (!s) return false;
    s->ring.push(data);
    // Publishes the successor: the consumer sees every push into the old
    // tail once it sees this link.
    tail->next.store(s, std::memory_order_release);
    tail = s;
  }
  if (wake) wake->notify();
  return true;
}

bool uSWSR_Ptr_Buffer::pop(void** data) {
  if (!head) return false;
  if (head->ring.pop(data)) return true;
  segment* next = head->next.load(std::memory_order_acquire);
  if (!next) return false;
  // The producer filled the head before linking `next`; what it pushed last
  // into the head is visible only now.
  if (head->ring.pop(data)) return true;
  segment* old = head;
  head = next;
  release_segment(old);
  return head->ring.pop(data);
}

bool uSWSR_Ptr_Buffer::empty() {
  if (!head) return true;
  return head->ring.empty() && head->next.load(std::memory_order_acquire) == nullptr;
}

uSWSR_Ptr_Buffer::segment* uSWSR_Ptr_Buffer::new_segment() {
  void* recycled;
  if (pool && pool->pop(&recycled)) return static_cast<segment*>(recycled);
  segment* s = new (std::nothrow) segment(size);
  if (!s) return nullptr;
  if (!s->ring.init()) {
    delete s;
    return nullptr;
  }
  ++nalloc;
  return s;
}

void uSWSR_Ptr_Buffer::release_segment(segment* s) {
  // Every slot of an exhausted ring is already null; only the positions and
  // the link need rewinding before the producer may reuse it.
  s->ring.reset();
  s->next.store(nullptr, std::memory_order_relaxed);
  if (!pool || !pool->push(s)) delete s;
}

}  // namespace ff

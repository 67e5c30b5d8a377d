#pragma once

// Rendezvous of a known number of threads.
//
//   ff::Barrier::instance().barrier(n);   // arm: n threads will meet
//   ...                                   // each of the n threads then calls
//   ff::Barrier::instance().barrier();    // and returns once all n arrived
//
// Arming only sets the count; it does not count as an arrival. Once all
// threads are through, the barrier can be armed again.

#include <pthread.h>

#include "tarn/util/nocopy.h"

namespace ff {

class Barrier : private tarn::util::nocopy {
public:
  // The process-wide barrier.
  static Barrier& instance();

  Barrier();
  ~Barrier();

  // On a disarmed barrier, a positive `n` arms it for n threads and returns
  // at once (any other `n` does nothing). On an armed one, counts the
  // caller in and blocks until the last of the n threads arrives.
  void barrier(int n = 0);

private:
  int _barrier = 0;          // threads still expected
  unsigned long round = 0;   // completed rendezvous, against spurious wake-ups
  pthread_mutex_t bLock;
  pthread_cond_t bCond;
};

}  // namespace ff

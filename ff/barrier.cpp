#include "ff/barrier.h"

#include <cassert>
#include <cstdlib>

#include "ff/node.h"

namespace ff {

Barrier& Barrier::instance() {
  static Barrier shared;
  return shared;
}

Barrier::Barrier() {
  if (pthread_mutex_init(&bLock, nullptr) != 0) {
    error("ERROR: Barrier: pthread_mutex_init fails!\n");
    std::abort();
  }
  if (pthread_cond_init(&bCond, nullptr) != 0) {
    error("ERROR: Barrier: pthread_cond_init fails!\n");
    std::abort();
  }
}

Barrier::~Barrier() {
  pthread_cond_destroy(&bCond);
  pthread_mutex_destroy(&bLock);
}

void Barrier::barrier(int n) {
  pthread_mutex_lock(&bLock);
  if (_barrier == 0) {
    // Arming (or a call on a disarmed barrier, which has nobody to wait for).
    if (n > 0) _barrier = n;
  } else if (--_barrier > 0) {
    const unsigned long mine = round;
    while (round == mine) pthread_cond_wait(&bCond, &bLock);
    assert(_barrier==0);
  } else {
    ++round;
    pthread_cond_broadcast(&bCond);
  }
  pthread_mutex_unlock(&bLock);
}

}  // namespace ff

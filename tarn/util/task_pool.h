#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tarn/util/nocopy.h"

namespace tarn::util {

// A fixed set of threads that run one job at a time, all of them together
// with the calling thread: run(job) returns once every thread has returned
// from job(its index), indices 0 (the caller) to size() - 1. The job shares
// its work out itself (an atomic counter, a shared stack); between jobs the
// threads sleep. An exception thrown by the job on any thread is rethrown by
// run() on the calling thread, the first one if several threads fail.
class task_pool : private nocopy {
public:
  explicit task_pool(unsigned threads);
  ~task_pool();

  unsigned size() const { return static_cast<unsigned>(threads_.size()) + 1; }
  void run(const std::function<void(unsigned)>& job);

  // Calls f(i) for i in [0, n) on every thread, each index once.
  template <class F>
  void for_each_index(std::size_t n, F&& f) {
    std::atomic<std::size_t> next{0};
    run([&](unsigned) {
      for (std::size_t i = next++; i < n; i = next++) f(i);
    });
  }

private:
  void loop(unsigned index);
  void execute(unsigned index);

  std::vector<std::thread> threads_;
  std::mutex mutex_;
  std::condition_variable start_, finished_;
  const std::function<void(unsigned)>* job_ = nullptr;
  unsigned long generation_ = 0;
  unsigned busy_ = 0;
  bool stopping_ = false;
  std::exception_ptr failure_;
};

}  // namespace tarn::util

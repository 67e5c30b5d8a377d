#include "tarn/util/task_pool.h"

namespace tarn::util {

task_pool::task_pool(unsigned threads) {
  for (unsigned i = 1; i < threads; ++i) threads_.emplace_back([this, i] { loop(i); });
}

task_pool::~task_pool() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  start_.notify_all();
  for (std::thread& t : threads_) t.join();
}

void task_pool::execute(unsigned index) {
  try {
    (*job_)(index);
  } catch (...) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!failure_) failure_ = std::current_exception();
  }
}

void task_pool::loop(unsigned index) {
  unsigned long seen = 0;
  for (;;) {
    {
      std::unique_lock<std::mutex> lock(mutex_);
      start_.wait(lock, [&] { return stopping_ || generation_ != seen; });
      if (stopping_) return;
      seen = generation_;
    }
    execute(index);
    std::lock_guard<std::mutex> lock(mutex_);
    if (--busy_ == 0) finished_.notify_one();
  }
}

void task_pool::run(const std::function<void(unsigned)>& job) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    job_ = &job;
    failure_ = nullptr;
    busy_ = static_cast<unsigned>(threads_.size());
    ++generation_;
  }
  start_.notify_all();
  execute(0);
  std::unique_lock<std::mutex> lock(mutex_);
  finished_.wait(lock, [&] { return busy_ == 0; });
  job_ = nullptr;
  if (failure_) {
    std::exception_ptr f = failure_;
    failure_ = nullptr;
    std::rethrow_exception(f);
  }
}

}  // namespace tarn::util

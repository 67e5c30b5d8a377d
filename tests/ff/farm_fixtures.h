#pragma once

// Test sizes and stages shared by the task farm tests.

#include <cstdint>
#include <vector>

#include "ff/farm.h"

namespace ff_fixtures {

#if defined(__SANITIZE_THREAD__)
#define FF_TESTS_UNDER_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define FF_TESTS_UNDER_TSAN 1
#endif
#endif

// Divides the sizes of the heavy tests: instrumented runs are slower.
#ifdef FF_TESTS_UNDER_TSAN
inline constexpr unsigned long SCALE = 2;
#else
inline constexpr unsigned long SCALE = 1;
#endif

struct job {
  std::uint64_t in = 0;
  std::uint64_t out = 0;
  int target = -1;   // worker the emitter chose
  int ran_on = -1;   // worker that processed it
  int returns = 0;   // times it came back to the emitter
};

// Squares job::in into job::out and returns the job. Its counters are read
// by the test once the farm's threads are joined or frozen.
class square_worker : public ff::ff_node {
public:
  void* svc(void* task) override {
    auto* j = static_cast<job*>(task);
    j->out = j->in * j->in;
    j->ran_on = get_my_id();
    seen.push_back(j->in);
    ++processed;
    return task;
  }
  int svc_init() override {
    ++inits;
    return 0;
  }
  void svc_end() override { ++ends; }

  std::vector<std::uint64_t> seen;
  unsigned long processed = 0;
  int inits = 0;
  int ends = 0;
};

// Master-worker emitter: starts `window` jobs with ff_send_out, then answers
// every returning job with the next one (returned from svc, so it goes
// through schedule_task) until `total` jobs have come back.
class window_emitter : public ff::ff_node {
public:
  window_emitter(unsigned long total, unsigned long window) : total(total), window(window) {}

  int svc_init() override {
    jobs.assign(total, job{});
    sent = returned = bad = 0;
    ++streams;
    return 0;
  }

  void* svc(void* task) override {
    if (!task) {
      while (sent < window && sent < total)
        if (!ff_send_out(next_job(), static_cast<unsigned>(-1), 1000)) ++bad;
      return total == 0 ? ff::EOS : ff::GO_ON;
    }
    auto* j = static_cast<job*>(task);
    if (j->out != j->in * j->in || ++j->returns != 1) ++bad;
    if (++returned == total) return ff::EOS;
    return sent < total ? static_cast<void*>(next_job()) : ff::GO_ON;
  }

  const unsigned long total, window;
  std::vector<job> jobs;
  unsigned long sent = 0, returned = 0, bad = 0;
  int streams = 0;

private:
  job* next_job() {
    job* j = &jobs[sent];
    j->in = sent + 1;
    ++sent;
    return j;
  }
};

inline std::vector<ff::ff_node*> as_nodes(std::vector<square_worker>& ws) {
  std::vector<ff::ff_node*> nodes;
  for (square_worker& w : ws) nodes.push_back(&w);
  return nodes;
}

}  // namespace ff_fixtures

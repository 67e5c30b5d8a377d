#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "farm_fixtures.h"
#include "ff/farm.h"

namespace {

using namespace ff_fixtures;

// Returns a fixed result on its first call.
class ending_emitter : public ff::ff_node {
public:
  explicit ending_emitter(void* result) : result(result) {}
  void* svc(void*) override {
    ++calls;
    return result;
  }
  void* result;
  int calls = 0;
};

TEST(FfFarm, EmitterEndingOnItsFirstCallEndsEveryWorkerUntouched) {
  struct variant {
    const char* name;
    void* first_result;
    bool feedback;
  };
  const variant variants[] = {
      {"null, master-worker", nullptr, true},
      {"EOS, master-worker", ff::EOS, true},
      {"EOS_NOFREEZE, master-worker", ff::EOS_NOFREEZE, true},
      {"null, no feedback", nullptr, false},
      {"EOS, no feedback", ff::EOS, false},
  };
  for (const variant& v : variants) {
    SCOPED_TRACE(v.name);
    ff::ff_farm<> farm(16, 16, 64);
    ending_emitter emitter(v.first_result);
    std::vector<square_worker> workers(3);
    ASSERT_EQ(farm.add_emitter(&emitter), 0);
    ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
    if (v.feedback) {
      ASSERT_EQ(farm.wrap_around(), 0);
    }
    ASSERT_EQ(farm.run_and_wait_end(), 0);
    EXPECT_EQ(emitter.calls, 1);
    for (const square_worker& w : workers) {
      EXPECT_EQ(w.processed, 0u);
      EXPECT_EQ(w.inits, 1);
      EXPECT_EQ(w.ends, 1);  // its loop saw an end mark
    }
  }
}

// Sends `count` jobs from its first call, then ends the stream.
class burst_emitter : public ff::ff_node {
public:
  explicit burst_emitter(unsigned long count) : jobs(count) {}
  void* svc(void*) override {
    for (std::size_t i = 0; i < jobs.size(); ++i) {
      jobs[i].in = i;
      if (!ff_send_out(&jobs[i])) ++refused;
    }
    return ff::EOS;
  }
  std::vector<job> jobs;
  int refused = 0;
};

TEST(FfFarm, DefaultSelectionIsRoundRobinStartingAtWorkerOne) {
  const int n = 4;
  ff::ff_farm<> farm(64, 64, 64);
  burst_emitter emitter(10);
  std::vector<square_worker> workers(n);
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
  ASSERT_EQ(farm.run_and_wait_end(), 0);
  EXPECT_EQ(emitter.refused, 0);
  // Jobs 0, 1, 2, ... go to workers 1, 2, 3, 0, 1, ...
  const std::vector<std::vector<std::uint64_t>> expected = {{3, 7}, {0, 4, 8}, {1, 5, 9}, {2, 6}};
  for (int w = 0; w < n; ++w) {
    EXPECT_EQ(workers[w].get_my_id(), w);
    EXPECT_EQ(workers[w].seen, expected[w]) << "worker " << w;
  }
}

void run_feedback_farm(int nworkers, int in_entries, unsigned long total, unsigned long window) {
  ff::ff_farm<> farm(in_entries, 64, 64);
  window_emitter emitter(total, window);
  std::vector<square_worker> workers(nworkers);
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
  ASSERT_EQ(farm.wrap_around(), 0);
  ASSERT_EQ(farm.run_and_wait_end(), 0);

  EXPECT_EQ(emitter.returned, total);
  EXPECT_EQ(emitter.bad, 0u);
  unsigned long processed = 0;
  for (const square_worker& w : workers) {
    processed += w.processed;
    EXPECT_EQ(w.ends, 1);
  }
  EXPECT_EQ(processed, total);
  std::vector<std::uint64_t> all;
  for (const square_worker& w : workers) all.insert(all.end(), w.seen.begin(), w.seen.end());
  std::sort(all.begin(), all.end());
  for (std::uint64_t i = 0; i < all.size(); ++i) ASSERT_EQ(all[i], i + 1);
}

TEST(FfFarm, MasterWorkerFeedbackBringsEveryTaskBack) {
  run_feedback_farm(3, 512, 200000 / SCALE, 256);
}

TEST(FfFarm, OneSlotWorkerQueuesLoseNoTask) {
  // Queues of one entry keep refusing: ff_send_out retries, schedule_task
  // moves on to the next worker or waits for a new round.
  run_feedback_farm(3, 1, 3000 / SCALE, 16);
}

// Balancer whose choice is made by the emitter, as the parallel build does.
class chosen_balancer : public ff::ff_loadbalancer {
public:
  explicit chosen_balancer(int max_workers) : ff_loadbalancer(max_workers) {}
  int chosen = 0;

protected:
  int selectworker() override { return chosen; }
};

// Sends every job, through ff_send_out, to the worker with the fewest jobs
// in flight and checks on return that it ran there.
class least_loaded_emitter : public ff::ff_node {
public:
  least_loaded_emitter(chosen_balancer* lb, int nworkers, unsigned long total)
      : lb(lb), load(nworkers, 0), jobs(total) {}

  void* svc(void* task) override {
    if (!task) {
      for (int i = 0; i < 32 && sent < jobs.size(); ++i) send(&jobs[sent++]);
      return ff::GO_ON;
    }
    auto* j = static_cast<job*>(task);
    --load[j->target];
    if (j->ran_on != j->target || j->out != j->in * j->in) ++bad;
    if (++returned == jobs.size()) return ff::EOS;
    if (sent < jobs.size()) send(&jobs[sent++]);
    return ff::GO_ON;
  }

  chosen_balancer* lb;
  std::vector<unsigned long> load;
  std::vector<job> jobs;
  std::size_t sent = 0, returned = 0;
  unsigned long bad = 0;

private:
  void send(job* j) {
    const auto least = std::min_element(load.begin(), load.end());
    j->target = static_cast<int>(least - load.begin());
    j->in = sent;
    ++*least;
    lb->chosen = j->target;
    if (!ff_send_out(j, static_cast<unsigned>(-1), 1000)) ++bad;
  }
};

TEST(FfFarm, CustomBalancerSendsEveryTaskToTheEmittersChoice) {
  const int n = 3;
  const unsigned long total = 50000 / SCALE;
  ff::ff_farm<chosen_balancer, ff::ff_gatherer> farm(n * 4096, 4096, 64);
  least_loaded_emitter emitter(farm.getlb(), n, total);
  std::vector<square_worker> workers(n);
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
  ASSERT_EQ(farm.wrap_around(), 0);
  ASSERT_EQ(farm.run_and_wait_end(), 0);
  EXPECT_EQ(emitter.returned, total);
  EXPECT_EQ(emitter.bad, 0u);
  for (unsigned long l : emitter.load) EXPECT_EQ(l, 0u);
  for (const square_worker& w : workers) EXPECT_GT(w.processed, 0u);
}

// Collector stage: counts results and sums them, passing them on.
class summing_collector : public ff::ff_node {
public:
  void* svc(void* task) override {
    sum += static_cast<job*>(task)->out;
    ++count;
    return task;
  }
  std::uint64_t sum = 0;
  unsigned long count = 0;
};

TEST(FfFarm, CollectorReceivesEveryResultThenTheEndMark) {
  const unsigned long k = 1000;
  ff::ff_farm<> farm(8, 8, 64);
  burst_emitter emitter(k);
  summing_collector collector;
  std::vector<square_worker> workers(3);
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
  ASSERT_EQ(farm.add_collector(&collector), 0);
  ASSERT_EQ(farm.wrap_around(), -1);  // feedback and a collector exclude each other
  ASSERT_EQ(farm.create_output_buffer(16), 0);
  ASSERT_EQ(farm.run_and_wait_end(), 0);

  std::uint64_t expected = 0;
  for (std::uint64_t i = 0; i < k; ++i) expected += i * i;
  EXPECT_EQ(collector.count, k);
  EXPECT_EQ(collector.sum, expected);
  unsigned long forwarded = 0;
  void* p = nullptr;
  while (farm.get(&p) && !ff::is_end_mark(p)) ++forwarded;
  EXPECT_EQ(forwarded, k);
  EXPECT_EQ(p, ff::EOS);
}

}  // namespace

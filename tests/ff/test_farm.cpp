// Task farms run end to end on their threads, the balancer's scheduling
// driven from the test thread, and the diagnostics of a misassembled farm.

#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>
#include <vector>

#include "ff/farm.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

struct job {
  std::uint64_t in = 0, out = 0;
  int returns = 0;  // times it came back to the emitter
};

// Squares job::in into job::out. Its counters are read by the test once the
// farm's threads are joined or frozen.
struct square_worker : ff::ff_node {
  void* svc(void* task) override {
    auto* j = static_cast<job*>(task);
    j->out = j->in * j->in;
    ++processed;
    return task;
  }
  void svc_end() override { ++ends; }
  unsigned long processed = 0;
  int ends = 0;
};

struct fixed_emitter : ff::ff_node {
  explicit fixed_emitter(void* result) : result(result) {}
  void* svc(void*) override {
    ++calls;
    return result;
  }
  void* result;
  int calls = 0;
};

// Master-worker emitter: starts `window` jobs with ff_send_out, then answers
// every returning job with the next one (returned from svc, so it goes
// through schedule_task) until all `total` have come back exactly once.
struct window_emitter : ff::ff_node {
  window_emitter(unsigned long total, unsigned long window) : total(total), window(window) {}
  int svc_init() override {  // a new stream
    jobs.assign(total, job{});
    sent = returned = bad = 0;
    return 0;
  }
  void* svc(void* task) override {
    if (!task) {
      while (sent < window && sent < total)
        if (!ff_send_out(next_job(), static_cast<unsigned>(-1), 1000)) ++bad;
      return ff::GO_ON;
    }
    auto* j = static_cast<job*>(task);
    if (j->out != j->in * j->in || ++j->returns != 1) ++bad;
    if (++returned == total) return ff::EOS;
    return sent < total ? static_cast<void*>(next_job()) : ff::GO_ON;
  }
  job* next_job() {
    jobs[sent].in = sent + 1;
    return &jobs[sent++];
  }
  const unsigned long total, window;
  std::vector<job> jobs;
  unsigned long sent = 0, returned = 0, bad = 0;
};

template <class Farm>
void assemble(Farm& farm, ff::ff_node* emitter, std::vector<square_worker>& ws, bool feedback) {
  std::vector<ff::ff_node*> nodes;
  for (square_worker& w : ws) nodes.push_back(&w);
  ASSERT_EQ(farm.add_emitter(emitter), 0);
  ASSERT_EQ(farm.add_workers(nodes), 0);
  if (feedback) {
    ASSERT_EQ(farm.wrap_around(), 0);
  }
}

TEST(FfFarm, EmitterEndingOnItsFirstCallEndsEveryWorkerUntouched) {
  const std::pair<void*, bool> variants[] = {
      {nullptr, true}, {ff::EOS, true}, {ff::EOS_NOFREEZE, true}, {ff::EOS, false}};
  for (auto [first_result, feedback] : variants) {
    SCOPED_TRACE(testing::Message() << first_result << (feedback ? " with" : " without"));
    ff::ff_farm<> farm(16, 16, 64);
    fixed_emitter emitter(first_result);
    std::vector<square_worker> workers(3);
    assemble(farm, &emitter, workers, feedback);
    ASSERT_EQ(farm.run_and_wait_end(), 0);
    EXPECT_EQ(emitter.calls, 1);
    for (const square_worker& w : workers) {
      EXPECT_EQ(w.processed, 0u);
      EXPECT_EQ(w.ends, 1);  // its loop saw an end mark
    }
  }
}

TEST(FfFarm, MasterWorkerFeedbackBringsEveryTaskBack) {
  // With one-slot worker queues ff_send_out keeps retrying and
  // schedule_task keeps moving on to the next worker or a new round.
  for (auto [in_entries, total, window] :
       {std::tuple<int, unsigned long, unsigned long>{512, 50000, 256}, {1, 600, 16}}) {
    SCOPED_TRACE(in_entries);
    ff::ff_farm<> farm(in_entries, 64, 64);
    window_emitter emitter(total, window);
    std::vector<square_worker> workers(3);
    assemble(farm, &emitter, workers, true);
    ASSERT_EQ(farm.run_and_wait_end(), 0);
    EXPECT_EQ(emitter.returned, total);
    EXPECT_EQ(emitter.bad, 0u);
    EXPECT_EQ(workers[0].processed + workers[1].processed + workers[2].processed, total);
  }
}

// Balancer whose choice is made by the emitter, as the parallel build does.
struct chosen_balancer : ff::ff_loadbalancer {
  using ff_loadbalancer::ff_loadbalancer;
  int chosen = 0;

protected:
  int selectworker() override { return chosen; }
};

// Sends every job from its first call to a worker of its own choosing.
struct choosing_emitter : ff::ff_node {
  static int choice(std::size_t i) { return static_cast<int>(i * i / 7 % 3); }
  choosing_emitter(chosen_balancer* lb, unsigned long total) : lb(lb), jobs(total) {}
  void* svc(void* task) override {
    if (task) return ++returned == jobs.size() ? ff::EOS : ff::GO_ON;
    for (std::size_t i = 0; i < jobs.size(); ++i) {
      lb->chosen = choice(i);
      if (!ff_send_out(&jobs[i], static_cast<unsigned>(-1), 1000)) ++bad;
    }
    return ff::GO_ON;
  }
  chosen_balancer* lb;
  std::vector<job> jobs;
  std::size_t returned = 0;
  unsigned long bad = 0;
};

TEST(FfFarm, CustomBalancerSendsEveryTaskToTheEmittersChoice) {
  ff::ff_farm<chosen_balancer, ff::ff_gatherer> farm(1024, 64, 64);
  choosing_emitter emitter(farm.getlb(), 20000);
  std::vector<square_worker> workers(3);
  assemble(farm, &emitter, workers, true);
  ASSERT_EQ(farm.run_and_wait_end(), 0);
  EXPECT_EQ(emitter.returned, emitter.jobs.size());
  EXPECT_EQ(emitter.bad, 0u);
  std::vector<unsigned long> expected(3, 0);
  for (std::size_t i = 0; i < emitter.jobs.size(); ++i) ++expected[choosing_emitter::choice(i)];
  for (int w = 0; w < 3; ++w) EXPECT_EQ(workers[w].processed, expected[w]) << w;
}

// Scheduling without threads: the workers are never started, their queues
// are filled and drained by hand.
struct probe_balancer : ff::ff_loadbalancer {
  using ff_loadbalancer::ff_loadbalancer;
  using ff_loadbalancer::schedule_task;
  int drain_on_wait = -1;  // instead of sleeping, frees this worker's queue
  int waits = 0;

  void* drain(int w) {
    void* p = nullptr;
    getWorkers()[w]->get_in_buffer()->pop(&p);
    return p;
  }
  void attach(std::vector<square_worker>& ws, int entries) {
    for (square_worker& w : ws) {
      ASSERT_EQ(w.create_input_buffer(entries, true), 0);
      ASSERT_EQ(register_worker(&w), 0);
    }
  }

protected:
  void losetime_out() override {
    ++waits;
    if (drain_on_wait >= 0) drain(drain_on_wait);
  }
};

void* task(std::uintptr_t v) { return reinterpret_cast<void*>(v << 4); }

TEST(FfFarm, RoundRobinScheduleIncrementsBeforeUse) {
  probe_balancer lb(8);
  std::vector<square_worker> ws(4);
  lb.attach(ws, 16);
  const int expected[] = {1, 2, 3, 0, 1, 2, 3, 0, 1};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(lb.schedule_task(task(i + 1)), expected[i]) << i;
  EXPECT_EQ(lb.waits, 0);
}

TEST(FfFarm, FullWorkerQueueMakesScheduleTryTheNextSelection) {
  probe_balancer lb(8);
  std::vector<square_worker> ws(3);
  lb.attach(ws, 1);
  for (int i = 1; i <= 3; ++i) lb.schedule_task(task(i));  // workers 1, 2, 0
  // Only worker 2's queue has room: worker 1, next in turn, is skipped.
  EXPECT_EQ(lb.drain(2), task(2));
  EXPECT_EQ(lb.schedule_task(task(4)), 2);
  EXPECT_EQ(lb.waits, 0);
  // Nothing free: the first round fails, the balancer waits (and here
  // worker 1's queue is emptied meanwhile), the second round places it.
  lb.drain_on_wait = 1;
  EXPECT_EQ(lb.schedule_task(task(5)), 1);
  EXPECT_EQ(lb.waits, 1);
  EXPECT_EQ(lb.drain(1), task(5));
  EXPECT_EQ(lb.drain(0), task(3));
  EXPECT_EQ(lb.drain(2), task(4));
}

TEST(FfFarm, FallbackTakesWhatAWholeRoundCouldNotPlace) {
  probe_balancer lb(8);
  EXPECT_EQ(lb.schedule_task(task(1)), -1);  // no workers, no fallback
  std::vector<square_worker> ws(3);
  lb.attach(ws, 1);
  std::vector<void*> fell_back;
  ASSERT_EQ(lb.set_fallback([&](void* t) { fell_back.push_back(t); }), 0);
  for (int i = 1; i <= 3; ++i) lb.schedule_task(task(i));
  EXPECT_EQ(lb.schedule_task(task(4)), -1);
  EXPECT_EQ(fell_back, std::vector<void*>{task(4)});
  EXPECT_EQ(lb.waits, 0);
  // The fallback resets the turn: worker 0 comes next, not worker 1.
  lb.drain(0);
  lb.drain(1);
  EXPECT_EQ(lb.schedule_task(task(5)), 0);
}

TEST(FfFarm, MisassemblyIsReportedWithTheExactText) {
  std::vector<square_worker> workers(3);
  std::vector<ff::ff_node*> nodes = {&workers[0], &workers[1], &workers[2]};
  fixed_emitter e1(ff::EOS), e2(ff::EOS);
  ff::ff_farm<> farm(16, 16, 2);
  CaptureStderr();
  EXPECT_EQ(farm.add_workers(nodes), -1);
  ASSERT_EQ(farm.add_workers({nodes[0], nodes[1]}), 0);
  EXPECT_EQ(farm.add_workers({nodes[2]}), -1);  // the limit counts those added
  ASSERT_EQ(farm.add_emitter(&e1), 0);
  EXPECT_EQ(farm.add_emitter(&e2), -1);
  ASSERT_EQ(farm.wrap_around(), 0);
  EXPECT_EQ(farm.wrap_around(), -1);
  EXPECT_EQ(farm.create_output_buffer(8), -1);
  EXPECT_EQ(farm.set_output_buffer(nullptr), -1);
  ASSERT_EQ(farm.create_input_buffer(8), 0);
  EXPECT_EQ(farm.create_input_buffer(8), -1);
  EXPECT_EQ(GetCapturedStderr(),
            "ERROR: FARM, try to add too many workers, please increase max_nworkers\n"
            "ERROR: FARM, try to add too many workers, please increase max_nworkers\n"
            "ERROR: LB, setting collector filter\n"
            "ERROR: LB, master_worker flag already set\n"
            "ERROR: FARM with no collector, cannot create output buffer\n"
            "ERROR: FARM with no collector, cannot set output buffer\n"
            "ERROR: FARM create_input_buffer, buffer already present\n");

  ff::ff_farm<> with_fallback;
  ASSERT_EQ(with_fallback.add_emitter(&e2, [](void*) {}), 0);
  ASSERT_EQ(with_fallback.add_collector(), 0);
  ASSERT_EQ(with_fallback.create_output_buffer(8), 0);
  ff::ff_loadbalancer lb(1);
  ASSERT_EQ(lb.register_worker(nodes[0]), 0);
  CaptureStderr();
  EXPECT_EQ(with_fallback.wrap_around(), -1);
  EXPECT_EQ(with_fallback.getlb()->set_fallback([](void*) {}), -1);
  EXPECT_EQ(with_fallback.create_output_buffer(8), -1);
  EXPECT_EQ(lb.register_worker(nodes[1]), -1);
  ff::error("ERROR: Barrier: pthread_mutex_init fails!\n");  // the prefix comes twice
  EXPECT_EQ(GetCapturedStderr(),
            "ERROR: FARM, cannot add feedback channels if the fallback function has been set "
            "in the Emitter\n"
            "ERROR: LB, setting fallback\n"
            "ERROR: FARM create_output_buffer, buffer already present\n"
            "ERROR: LB, max number of workers reached (max=1)\n"
            "ERROR: ERROR: Barrier: pthread_mutex_init fails!\n");
}

struct failing_emitter : fixed_emitter {
  failing_emitter() : fixed_emitter(ff::GO_ON) {}
  int svc_init() override { return -1; }
};

TEST(FfFarm, EmitterInitFailureStopsTheWorkersAndFailsTheRun) {
  ff::ff_farm<> farm(16, 16, 64);
  failing_emitter emitter;
  std::vector<square_worker> workers(2);
  assemble(farm, &emitter, workers, true);
  CaptureStderr();
  EXPECT_EQ(farm.run_and_wait_end(), -1);
  EXPECT_EQ(GetCapturedStderr(), "ERROR: ff_thread, svc_init failed, thread exit!!!\n");
  EXPECT_EQ(emitter.calls, 0);
  for (const square_worker& w : workers) EXPECT_EQ(w.ends, 1);
}

TEST(FfFarm, FrozenFarmRunsAnotherStreamAfterThaw) {
  const unsigned long total = 500;
  ff::ff_farm<> farm(64, 64, 64);
  window_emitter emitter(total, 8);
  std::vector<square_worker> workers(2);
  assemble(farm, &emitter, workers, true);
  for (int stream = 1; stream <= 2; ++stream) {
    SCOPED_TRACE(stream);
    ASSERT_EQ(farm.run_then_freeze(), 0);
    ASSERT_EQ(farm.wait_freezing(), 0);
    EXPECT_TRUE(farm.isfrozen());
    EXPECT_EQ(emitter.returned, total);
    EXPECT_EQ(emitter.bad, 0u);
    EXPECT_EQ(workers[0].processed + workers[1].processed, stream * total);
    EXPECT_EQ(farm.run_and_wait_end(), -1);  // refused while frozen
  }
  EXPECT_EQ(farm.wait(), 0);  // ends the frozen threads
  EXPECT_FALSE(farm.isfrozen());
}

}  // namespace

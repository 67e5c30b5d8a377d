// The balancer's scheduling, driven directly from the test thread: the
// workers are never started, their one-slot queues are filled and drained by
// hand.

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "farm_fixtures.h"
#include "ff/farm.h"

namespace {

using namespace ff_fixtures;

class probe_balancer : public ff::ff_loadbalancer {
public:
  explicit probe_balancer(int max_workers) : ff_loadbalancer(max_workers) {}
  using ff_loadbalancer::schedule_task;

  // Instead of sleeping between rounds, frees the queue of `drain_on_wait`.
  int drain_on_wait = -1;
  int waits = 0;

protected:
  void losetime_out() override {
    ++waits;
    void* p;
    if (drain_on_wait >= 0) getWorkers()[drain_on_wait]->get_in_buffer()->pop(&p);
  }
};

void* task(std::uintptr_t v) { return reinterpret_cast<void*>(v << 4); }

// Takes the waiting task out of worker `w`'s queue.
void* drain(std::vector<square_worker>& ws, int w) {
  void* p = nullptr;
  ws[w].get_in_buffer()->pop(&p);
  return p;
}

void attach(probe_balancer& lb, std::vector<square_worker>& ws, int entries) {
  for (square_worker& w : ws) {
    ASSERT_EQ(w.create_input_buffer(entries, true), 0);
    ASSERT_EQ(lb.register_worker(&w), 0);
  }
}

TEST(FfFarm, RoundRobinScheduleIncrementsBeforeUse) {
  probe_balancer lb(8);
  std::vector<square_worker> ws(4);
  attach(lb, ws, 16);
  const int expected[] = {1, 2, 3, 0, 1, 2, 3, 0, 1};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(lb.schedule_task(task(i + 1)), expected[i]) << "task " << i;
  EXPECT_EQ(lb.waits, 0);
}

TEST(FfFarm, FullWorkerQueueMakesScheduleTryTheNextSelection) {
  probe_balancer lb(8);
  std::vector<square_worker> ws(3);
  attach(lb, ws, 1);
  EXPECT_EQ(lb.schedule_task(task(1)), 1);
  EXPECT_EQ(lb.schedule_task(task(2)), 2);
  EXPECT_EQ(lb.schedule_task(task(3)), 0);

  // Every queue is full except worker 2's: worker 1, next in turn, is
  // skipped.
  EXPECT_EQ(drain(ws, 2), task(2));
  EXPECT_EQ(lb.schedule_task(task(4)), 2);
  EXPECT_EQ(lb.waits, 0);

  // Nothing free: the first round fails, the balancer waits (and here
  // worker 1's queue is emptied meanwhile), the second round places it.
  lb.drain_on_wait = 1;
  EXPECT_EQ(lb.schedule_task(task(5)), 1);
  EXPECT_EQ(lb.waits, 1);
  EXPECT_EQ(drain(ws, 1), task(5));
  EXPECT_EQ(drain(ws, 0), task(3));
  EXPECT_EQ(drain(ws, 2), task(4));
}

TEST(FfFarm, FallbackTakesWhatAWholeRoundCouldNotPlace) {
  probe_balancer lb(8);
  std::vector<square_worker> ws(3);
  attach(lb, ws, 1);
  std::vector<void*> fell_back;
  ASSERT_EQ(lb.set_fallback([&](void* t) { fell_back.push_back(t); }), 0);
  for (int i = 1; i <= 3; ++i) lb.schedule_task(task(i));

  EXPECT_EQ(lb.schedule_task(task(4)), -1);
  ASSERT_EQ(fell_back.size(), 1u);
  EXPECT_EQ(fell_back[0], task(4));
  EXPECT_EQ(lb.waits, 0);

  // The fallback resets the turn: worker 0 comes next, not worker 1.
  drain(ws, 0);
  drain(ws, 1);
  EXPECT_EQ(lb.schedule_task(task(5)), 0);
}

TEST(FfFarm, BalancerWithoutWorkersPlacesNothing) {
  probe_balancer lb(8);
  EXPECT_EQ(lb.schedule_task(task(1)), -1);
  EXPECT_EQ(lb.waits, 0);
}

}  // namespace

// Farm assembly errors, start-up failures and frozen farms.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "farm_fixtures.h"
#include "ff/farm.h"

namespace {

using namespace ff_fixtures;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

class idle_emitter : public ff::ff_node {
public:
  void* svc(void*) override { return ff::EOS; }
};

TEST(FfFarm, TooManyWorkersAreRefusedWithTheExactText) {
  ff::ff_farm<> farm(16, 16, 2);
  std::vector<square_worker> workers(3);
  std::vector<ff::ff_node*> nodes = as_nodes(workers);

  CaptureStderr();
  EXPECT_EQ(farm.add_workers(nodes), -1);
  EXPECT_EQ(GetCapturedStderr(),
            "ERROR: FARM, try to add too many workers, please increase max_nworkers\n");
  EXPECT_TRUE(farm.getWorkers().empty());

  // The limit counts the workers added so far.
  ASSERT_EQ(farm.add_workers({nodes[0], nodes[1]}), 0);
  CaptureStderr();
  EXPECT_EQ(farm.add_workers({nodes[2]}), -1);
  EXPECT_EQ(GetCapturedStderr(),
            "ERROR: FARM, try to add too many workers, please increase max_nworkers\n");
  EXPECT_EQ(farm.getWorkers().size(), 2u);

  ff::ff_loadbalancer lb(1);
  ASSERT_EQ(lb.register_worker(nodes[0]), 0);
  CaptureStderr();
  EXPECT_EQ(lb.register_worker(nodes[1]), -1);
  EXPECT_EQ(GetCapturedStderr(), "ERROR: LB, max number of workers reached (max=1)\n");
}

TEST(FfFarm, AssemblyMisuseIsReportedWithTheExactText) {
  idle_emitter e1, e2;
  {
    ff::ff_farm<> farm;
    ASSERT_EQ(farm.add_emitter(&e1), 0);
    CaptureStderr();
    EXPECT_EQ(farm.add_emitter(&e2), -1);
    EXPECT_EQ(GetCapturedStderr(), "ERROR: LB, setting collector filter\n");
    ASSERT_EQ(farm.wrap_around(), 0);
    CaptureStderr();
    EXPECT_EQ(farm.wrap_around(), -1);
    EXPECT_EQ(GetCapturedStderr(), "ERROR: LB, master_worker flag already set\n");
  }
  {
    ff::ff_farm<> farm;
    ASSERT_EQ(farm.add_emitter(&e1, [](void*) {}), 0);
    CaptureStderr();
    EXPECT_EQ(farm.wrap_around(), -1);
    EXPECT_EQ(GetCapturedStderr(),
              "ERROR: FARM, cannot add feedback channels if the fallback function has been set "
              "in the Emitter\n");
    CaptureStderr();
    EXPECT_EQ(farm.getlb()->set_fallback([](void*) {}), -1);
    EXPECT_EQ(GetCapturedStderr(), "ERROR: LB, setting fallback\n");
  }
  {
    ff::ff_farm<> farm;
    CaptureStderr();
    EXPECT_EQ(farm.create_output_buffer(8), -1);
    EXPECT_EQ(farm.set_output_buffer(nullptr), -1);
    EXPECT_EQ(GetCapturedStderr(),
              "ERROR: FARM with no collector, cannot create output buffer\n"
              "ERROR: FARM with no collector, cannot set output buffer\n");
    ASSERT_EQ(farm.create_input_buffer(8), 0);
    CaptureStderr();
    EXPECT_EQ(farm.create_input_buffer(8), -1);
    EXPECT_EQ(GetCapturedStderr(), "ERROR: FARM create_input_buffer, buffer already present\n");
    ASSERT_EQ(farm.add_collector(), 0);
    ASSERT_EQ(farm.create_output_buffer(8), 0);
    CaptureStderr();
    EXPECT_EQ(farm.create_output_buffer(8), -1);
    EXPECT_EQ(GetCapturedStderr(), "ERROR: FARM create_output_buffer, buffer already present\n");
  }
}

TEST(FfFarm, ErrorPrefixesTheFormattedMessage) {
  CaptureStderr();
  ff::error("LB, waiting worker thread, id = %d\n", 7);
  ff::error("ERROR: Barrier: pthread_mutex_init fails!\n");
  EXPECT_EQ(GetCapturedStderr(),
            "ERROR: LB, waiting worker thread, id = 7\n"
            "ERROR: ERROR: Barrier: pthread_mutex_init fails!\n");
}

class failing_emitter : public ff::ff_node {
public:
  int svc_init() override { return -1; }
  void* svc(void*) override {
    ++calls;
    return ff::GO_ON;
  }
  int calls = 0;
};

TEST(FfFarm, EmitterInitFailureStopsTheWorkersAndFailsTheRun) {
  ff::ff_farm<> farm(16, 16, 64);
  failing_emitter emitter;
  std::vector<square_worker> workers(2);
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
  ASSERT_EQ(farm.wrap_around(), 0);
  CaptureStderr();
  const int r = farm.run_and_wait_end();
  EXPECT_EQ(GetCapturedStderr(), "ERROR: ff_thread, svc_init failed, thread exit!!!\n");
  EXPECT_EQ(r, -1);
  EXPECT_EQ(emitter.calls, 0);
  for (const square_worker& w : workers) {
    EXPECT_EQ(w.processed, 0u);
    EXPECT_EQ(w.ends, 1);
  }
}

TEST(FfFarm, FarmWithoutWorkersDoesNotRun) {
  ff::ff_farm<> farm;
  idle_emitter emitter;
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  CaptureStderr();
  EXPECT_EQ(farm.run_and_wait_end(), -1);
  EXPECT_EQ(GetCapturedStderr(), "ERROR: FARM, no workers\n");
}

TEST(FfFarm, FrozenFarmRunsAnotherStreamAfterThaw) {
  const unsigned long total = 500;
  ff::ff_farm<> farm(64, 64, 64);
  window_emitter emitter(total, 8);
  std::vector<square_worker> workers(2);
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
  ASSERT_EQ(farm.wrap_around(), 0);

  for (int stream = 1; stream <= 2; ++stream) {
    SCOPED_TRACE(stream);
    ASSERT_EQ(farm.run_then_freeze(), 0);
    ASSERT_EQ(farm.wait_freezing(), 0);
    EXPECT_TRUE(farm.isfrozen());
    EXPECT_EQ(emitter.streams, stream);
    EXPECT_EQ(emitter.returned, total);
    EXPECT_EQ(emitter.bad, 0u);
    EXPECT_EQ(workers[0].processed + workers[1].processed, stream * total);
    for (const square_worker& w : workers) EXPECT_EQ(w.ends, stream);
    EXPECT_EQ(farm.run_and_wait_end(), -1);  // refused while frozen
  }
  EXPECT_EQ(farm.wait(), 0);  // ends the frozen threads
  EXPECT_FALSE(farm.isfrozen());
  EXPECT_EQ(emitter.streams, 2);
}

TEST(FfFarm, EndWithoutFreezeLetsAFreezingFarmExit) {
  ff::ff_farm<> farm(16, 16, 64);
  class null_emitter : public ff::ff_node {
    void* svc(void*) override { return nullptr; }
  } emitter;
  std::vector<square_worker> workers(2);
  ASSERT_EQ(farm.add_emitter(&emitter), 0);
  ASSERT_EQ(farm.add_workers(as_nodes(workers)), 0);
  ASSERT_EQ(farm.run_then_freeze(), 0);
  ASSERT_EQ(farm.wait_freezing(), 0);  // returns because the threads finished
  EXPECT_FALSE(farm.isfrozen());
  EXPECT_EQ(farm.wait(), 0);
  for (const square_worker& w : workers) EXPECT_EQ(w.ends, 1);
}

}  // namespace

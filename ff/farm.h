#pragma once

// Task farm: one load-balancer thread that hosts an emitter stage and routes
// its tasks to N worker threads, optionally with feedback channels that carry
// every processed task back to the emitter (master-worker), optionally with a
// gatherer thread that collects the workers' results.
//
// Master-worker farm with a custom worker choice:
//
//   struct balancer : ff::ff_loadbalancer {
//     explicit balancer(int max_workers) : ff_loadbalancer(max_workers) {}
//     int chosen = 0;                        // set by the emitter
//    protected:
//     int selectworker() override { return chosen; }
//   };
//
//   struct emitter : ff::ff_node {
//     balancer* lb = nullptr;
//     void* svc(void* task) override {
//       if (!task) {                         // first call: start the work
//         lb->chosen = 0;
//         ff_send_out(new job(...), -1, 1000);
//         return ff::GO_ON;
//       }
//       // `task` came back from a worker over the feedback channel
//       ...                                  // more ff_send_out calls
//       return all_done ? ff::EOS : ff::GO_ON;
//     }
//   };
//
//   struct worker : ff::ff_node {
//     void* svc(void* task) override { work_on(task); return task; }
//   };
//
//   ff::ff_farm<balancer, ff::ff_gatherer> farm(nworkers * 4096, 4096, 64);
//   emitter e;
//   e.lb = farm.getlb();
//   std::vector<ff::ff_node*> ws;            // the caller owns the workers
//   for (int i = 0; i < nworkers; ++i) ws.push_back(new worker);
//   farm.add_emitter(&e);
//   farm.add_workers(ws);
//   farm.wrap_around();                      // feedback channels
//   if (farm.run_and_wait_end() < 0) { ... } // 0 on success
//   for (ff::ff_node* w : ws) delete w;
//
// Rules of the game. The emitter's svc_init, svc and svc_end run in the
// load-balancer thread: svc first as svc(nullptr), then once for every task
// that comes back. Its result is GO_ON (nothing to send), a task (scheduled,
// waiting while every worker queue is full), or an end mark: EOS, or null /
// EOS_NOFREEZE; an end mark is put into every worker's queue and ends the
// stream. ff_send_out from the emitter makes one scheduling attempt per try
// (ntentative() calls of selectworker(), which must return an index below
// the number of workers) and retries as asked; with retry -1 it returns only
// once the task is placed. A worker's svc(task) runs in the worker's thread;
// a result other than GO_ON goes into its output queue, which in a
// master-worker farm is the feedback channel to the emitter. A task is any
// pointer other than null, GO_ON and the end marks; whatever it points to
// is published to the thread that receives it. get_my_id() of a worker is
// its index, 0-based, in the order added.
//
// Queues: each worker's input queue holds at most `in_buffer_entries` tasks
// (a full one makes the scheduler try the next selection); feedback channels
// are unbounded, in rings of `out_buffer_entries`, so a worker never blocks
// on its way back to a busy emitter. Queues made for a worker belong to the
// worker stage; the farm owns its balancer, gatherer and its own queues,
// never the emitter, collector or worker stages, which must outlive the
// farm's run (delete them after wait() or run_and_wait_end()).

#include <deque>
#include <functional>
#include <vector>

#include "ff/node.h"

namespace ff {

class ff_loadbalancer : public ff_thread {
public:
  // Receives a task that a whole scheduling round could not place.
  using fallback_t = std::function<void(void*)>;

  explicit ff_loadbalancer(int max_num_workers);
  ~ff_loadbalancer() override;

  // Assembly, before run(); -1 on failure after reporting it.
  int set_filter(ff_node* emitter);
  int set_fallback(fallback_t f);
  int register_worker(ff_node* w);
  int set_masterworker();
  int set_in_buffer(uSWSR_Ptr_Buffer* b);

  bool masterworker() const { return master_worker; }
  bool has_fallback() const { return static_cast<bool>(fallback); }
  int getnworkers() const { return nworkers; }
  int get_max_workers() const { return max_nworkers; }
  ff_node* get_filter() const { return filter; }
  uSWSR_Ptr_Buffer* get_in_buffer() const { return buffer; }
  const std::vector<ff_node*>& getWorkers() const { return workers; }

  // Thread control of the balancer together with its workers.
  int run();
  int wait();
  int wait_freezing();
  void stop();
  void freeze();
  void thaw();
  bool isfrozen() { return ff_thread::isfrozen(); }

  void* svc(void* task) override;
  int svc_init() override;
  void svc_end() override;

protected:
  // Index of the worker to try next: round robin, last chosen + 1.
  virtual int selectworker();
  // Attempts in one scheduling round: the number of workers.
  virtual int ntentative();
  // Pause after a failed scheduling round: 1 ms.
  virtual void losetime_out();
  // Pause of an idle balancer: 1 ms at most, ended early by the arrival of
  // a task on any of its channels.
  virtual void losetime_in();
  // Places a task into a worker's queue: rounds of ntentative() attempts,
  // losetime_out() between rounds. Returns the worker index, or -1 when the
  // fallback took the task.
  virtual int schedule_task(void* task);
  // Next task from the farm's input or from a worker's feedback channel,
  // polling the channels in turn from `start`; waits while none has one.
  // False when there is no channel to wait on.
  virtual bool collect_task(void** task, std::deque<ff_node*>& availworkers,
                            std::deque<ff_node*>::iterator& start);
  // Puts a mark into every worker's queue, waiting for room where needed.
  virtual void broadcast_task(void* task);

  int nworkers = 0;
  int max_nworkers;
  int nextw = 0;  // index of the last chosen worker
  std::vector<ff_node*> workers;
  ff_node* filter = nullptr;
  fallback_t fallback;
  bool master_worker = false;
  uSWSR_Ptr_Buffer* buffer = nullptr;

private:
  static constexpr int NOT_PLACED = -2;
  static bool send_from_emitter(void* task, void* self);
  bool poll(void** task, std::deque<ff_node*>& availworkers,
            std::deque<ff_node*>::iterator& start);
  int schedule_round(void* task);  // one round; NOT_PLACED when refused
  void* end_stream(void* result);  // broadcasts the end mark for `result`
  void end_workers(int n);         // stops the first n workers after a failed start

  wakeup wake;  // notified by the farm's input and the feedback channels
};

// Collects the workers' results, passes them through an optional collector
// stage and into the farm's output queue. Not used by master-worker farms.
class ff_gatherer : public ff_thread {
public:
  explicit ff_gatherer(int max_num_workers);

  int set_filter(ff_node* collector);
  int register_worker(ff_node* w);
  int set_out_buffer(uSWSR_Ptr_Buffer* b);
  ff_node* get_filter() const { return filter; }
  uSWSR_Ptr_Buffer* get_out_buffer() const { return buffer; }
  int getnworkers() const { return nworkers; }

  int run();  // starts the thread, or thaws a frozen one

  void* svc(void* task) override;
  int svc_init() override;
  void svc_end() override;

protected:
  // Index of the worker to poll next: round robin over live streams.
  virtual int selectworker();
  // Pause of an idle gatherer: 1 ms at most, ended early by a result.
  virtual void losetime_in();
  // Waits for the next result of any live worker; returns its index.
  virtual int gather_task(void** task);

  int nworkers = 0;
  int max_nworkers;
  int nextr = 0;
  std::vector<ff_node*> workers;
  std::vector<char> ended;  // per worker: its end mark has arrived
  ff_node* filter = nullptr;
  uSWSR_Ptr_Buffer* buffer = nullptr;

private:
  bool poll(void** task);  // one look at every live worker
  wakeup wake;             // notified by the workers' output queues
};

template <typename LB = ff_loadbalancer, typename GT = ff_gatherer>
class ff_farm : public ff_node {
public:
  static constexpr int DEF_IN_BUFF_ENTRIES = 2048;
  static constexpr int DEF_OUT_BUFF_ENTRIES = 2048;
  static constexpr int DEF_MAX_NUM_WORKERS = 64;

  explicit ff_farm(int in_buffer_entries = DEF_IN_BUFF_ENTRIES,
                   int out_buffer_entries = DEF_OUT_BUFF_ENTRIES,
                   int max_num_workers = DEF_MAX_NUM_WORKERS)
      : in_entries(in_buffer_entries), out_entries(out_buffer_entries),
        max_nworkers(max_num_workers), lb(new LB(max_num_workers)) {}

  ~ff_farm() override {
    if (lb->isrunning()) wait();  // e.g. left frozen: its threads use lb and gt
    delete lb;
    delete gt;
  }

  int add_emitter(ff_node* e, ff_loadbalancer::fallback_t fallback = nullptr) {
    if (lb->set_filter(e) < 0) return -1;
    return fallback ? lb->set_fallback(std::move(fallback)) : 0;
  }

  int add_workers(const std::vector<ff_node*>& w) {
    if (workers.size() + w.size() > static_cast<std::size_t>(max_nworkers)) {
      error("FARM, try to add too many workers, please increase max_nworkers\n");
      return -1;
    }
    for (ff_node* n : w) {
      if (!n || lb->register_worker(n) < 0) return -1;
      if (gt && gt->register_worker(n) < 0) return -1;
      workers.push_back(n);
    }
    return 0;
  }

  // A gatherer with an optional collector stage; not with feedback.
  int add_collector(ff_node* c = nullptr) {
    if (gt || lb->masterworker()) return -1;
    gt = new GT(max_nworkers);
    if (c && gt->set_filter(c) < 0) return -1;
    for (ff_node* w : workers)
      if (gt->register_worker(w) < 0) return -1;
    return 0;
  }

  // Adds a feedback channel from every worker back to the emitter.
  int wrap_around() {
    if (lb->has_fallback()) {
      error("FARM, cannot add feedback channels if the fallback function has been set in the Emitter\n");
      return -1;
    }
    if (gt) return -1;
    return lb->set_masterworker();
  }

  int run_and_wait_end() {
    if (isfrozen()) return -1;
    stop();
    if (run() < 0) return -1;
    return wait() < 0 ? -1 : 0;
  }

  // Runs one stream and leaves the threads frozen for the next one.
  int run_then_freeze() {
    freeze();
    return run();
  }

  int create_input_buffer(int nentries, bool fixedsize = true) override {
    if (get_in_buffer()) {
      error("FARM create_input_buffer, buffer already present\n");
      return -1;
    }
    if (ff_node::create_input_buffer(nentries, fixedsize) < 0) {
      error("FARM, creating input buffer\n");
      return -1;
    }
    return lb->set_in_buffer(get_in_buffer());
  }

  int create_output_buffer(int nentries, bool fixedsize = false) override {
    if (!gt) {
      error("FARM with no collector, cannot create output buffer\n");
      return -1;
    }
    if (get_out_buffer()) {
      error("FARM create_output_buffer, buffer already present\n");
      return -1;
    }
    if (ff_node::create_output_buffer(nentries, fixedsize) < 0) {
      error("FARM, setting output buffer\n");
      return -1;
    }
    return gt->set_out_buffer(get_out_buffer());
  }

  int set_output_buffer(uSWSR_Ptr_Buffer* o) override {
    if (!gt) {
      error("FARM with no collector, cannot set output buffer\n");
      return -1;
    }
    if (ff_node::set_output_buffer(o) < 0 || gt->set_out_buffer(o) < 0) {
      error("FARM, setting output buffer\n");
      return -1;
    }
    return 0;
  }

  int run(bool = false) override {
    if (workers.empty()) {
      error("FARM, no workers\n");
      return -1;
    }
    if (isfrozen() && wait_freezing() < 0) return -1;
    if (prepare() < 0) return -1;
    if (gt && gt->run() < 0) {
      error("FARM, running gather module\n");
      return -1;
    }
    if (lb->run() < 0) {
      error("FARM, running load-balancer module\n");
      return -1;
    }
    return 0;
  }

  int wait() override {
    int r = lb->wait();
    if (gt && gt->wait() < 0) {
      error("GT, waiting GT thread\n");
      r = -1;
    }
    return r;
  }

  int wait_freezing() override {
    int r = lb->wait_freezing();
    if (gt && gt->wait_freezing() < 0) r = -1;
    return r;
  }

  void stop() override {
    lb->stop();
    if (gt) gt->stop();
  }
  void freeze() override {
    lb->freeze();
    if (gt) gt->freeze();
  }
  void thaw() override {
    lb->thaw();
    if (gt) gt->thaw();
  }
  bool isfrozen() override { return lb->isfrozen(); }

  int cardinality() const override {
    int n = 1 + (gt ? 1 : 0);
    for (ff_node* w : workers) n += w->cardinality();
    return n;
  }
  double ffTime() override { return lb->ffTime(); }
  double wffTime() override { return lb->wffTime(); }

  // The farm's work runs in its own threads, never through these.
  void* svc(void*) override { return nullptr; }
  int svc_init() override { return 0; }
  void svc_end() override {}

  LB* getlb() const { return lb; }
  GT* getgt() const { return gt; }
  const std::vector<ff_node*>& getWorkers() const { return workers; }

private:
  // Gives every worker its input queue and, with feedback or a gatherer,
  // its output queue; kept across runs.
  int prepare() {
    const bool feedback = lb->masterworker();
    for (ff_node* w : workers) {
      if (!w->get_in_buffer() && w->create_input_buffer(in_entries, true) < 0) {
        error("FARM, creating input buffer\n");
        return -1;
      }
      if ((feedback || gt) && !w->get_out_buffer() &&
          w->create_output_buffer(out_entries, !feedback) < 0) {
        error("FARM, setting output buffer\n");
        return -1;
      }
      w->out_is_feedback = feedback;
    }
    return 0;
  }

  int in_entries;
  int out_entries;
  int max_nworkers;
  std::vector<ff_node*> workers;
  LB* lb;
  GT* gt = nullptr;
};

}  // namespace ff

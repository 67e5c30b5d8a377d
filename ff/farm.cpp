#include "ff/farm.h"

#include <unistd.h>

namespace ff {

ff_loadbalancer::ff_loadbalancer(int max_num_workers) : max_nworkers(max_num_workers) {}

ff_loadbalancer::~ff_loadbalancer() = default;

int ff_loadbalancer::set_filter(ff_node* emitter) {
  if (filter) {
    error("LB, setting collector filter\n");
    return -1;
  }
  if (!emitter) return -1;
  filter = emitter;
  filter->register_callback(send_from_emitter, this);
  return 0;
}

int ff_loadbalancer::set_fallback(fallback_t f) {
  if (fallback) {
    error("LB, setting fallback\n");
    return -1;
  }
  fallback = std::move(f);
  return 0;
}

int ff_loadbalancer::register_worker(ff_node* w) {
  if (nworkers >= max_nworkers) {
    error("LB, max number of workers reached (max=%d)\n", max_nworkers);
    return -1;
  }
  w->set_id(nworkers++);
  workers.push_back(w);
  return 0;
}

int ff_loadbalancer::set_masterworker() {
  if (master_worker) {
    error("LB, master_worker flag already set\n");
    return -1;
  }
  master_worker = true;
  return 0;
}

int ff_loadbalancer::set_in_buffer(uSWSR_Ptr_Buffer* b) {
  if (buffer || !b) return -1;
  buffer = b;
  return 0;
}

// ---------------------------------------------------------------------------
// Scheduling

int ff_loadbalancer::selectworker() {
  const int next = (nextw + 1) % nworkers;
  return next < 0 ? next + nworkers : next;
}

int ff_loadbalancer::ntentative() { return nworkers; }
void ff_loadbalancer::losetime_out() { usleep(IDLE_SLEEP_US); }
void ff_loadbalancer::losetime_in() { wake.sleep(IDLE_SLEEP_US); }

int ff_loadbalancer::schedule_round(void* task) {
  const int attempts = ntentative();
  for (int i = 0; i < attempts; ++i) {
    const int w = selectworker();
    nextw = w;
    if (w >= 0 && w < nworkers && workers[w]->put(task)) return w;
  }
  if (fallback) {
    fallback(task);
    nextw = -1;
    return -1;
  }
  return NOT_PLACED;
}

int ff_loadbalancer::schedule_task(void* task) {
  if (nworkers == 0 && !fallback) return -1;  // nobody could ever take it
  for (;;) {
    const int w = schedule_round(task);
    if (w != NOT_PLACED) return w;
    losetime_out();
  }
}

bool ff_loadbalancer::send_from_emitter(void* task, void* self) {
  auto* lb = static_cast<ff_loadbalancer*>(self);
  return (lb->nworkers > 0 || lb->fallback) && lb->schedule_round(task) != NOT_PLACED;
}

void ff_loadbalancer::broadcast_task(void* task) {
  for (ff_node* w : workers)
    while (!w->put(task)) losetime_out();
}

bool ff_loadbalancer::poll(void** task, std::deque<ff_node*>& availworkers,
                           std::deque<ff_node*>::iterator& start) {
  // Feedback first: finished work frees the emitter's resources.
  for (std::size_t i = 0; i < availworkers.size(); ++i) {
    if (start == availworkers.end()) start = availworkers.begin();
    ff_node* w = *start++;
    if (w->get(task)) return true;
  }
  return buffer && buffer->pop(task);
}

bool ff_loadbalancer::collect_task(void** task, std::deque<ff_node*>& availworkers,
                                   std::deque<ff_node*>::iterator& start) {
  if (!buffer && availworkers.empty()) return false;
  idle_wait idle;
  for (;;) {
    if (poll(task, availworkers, start)) return true;
    if (idle.spin()) continue;
    wake.prepare();
    if (poll(task, availworkers, start)) {
      wake.cancel();
      return true;
    }
    losetime_in();
    wake.cancel();
  }
}

// ---------------------------------------------------------------------------
// The balancer's thread

int ff_loadbalancer::svc_init() {
  if (filter && filter->svc_init() < 0) {
    // Nobody will feed the workers: let them go.
    broadcast_task(EOS_NOFREEZE);
    return -1;
  }
  return 0;
}

void ff_loadbalancer::svc_end() {
  if (filter) filter->svc_end();
}

void* ff_loadbalancer::end_stream(void* result) {
  void* mark = result == EOS ? EOS : EOS_NOFREEZE;
  broadcast_task(mark);
  return mark;
}

void* ff_loadbalancer::svc(void*) {
  std::deque<ff_node*> avail;
  if (master_worker) avail.assign(workers.begin(), workers.end());
  auto start = avail.begin();
  if (filter) {
    void* r = filter->svc(nullptr);
    if (!r || is_end_mark(r)) return end_stream(r);
    if (r != GO_ON) schedule_task(r);
  }
  void* task = nullptr;
  for (;;) {
    // An emitter with neither input nor feedback generates its whole
    // stream in the first call.
    if (!collect_task(&task, avail, start)) return end_stream(EOS);
    if (is_end_mark(task)) return end_stream(task);
    if (!filter) {
      schedule_task(task);
      continue;
    }
    void* r = filter->svc(task);
    if (!r || is_end_mark(r)) return end_stream(r);
    if (r != GO_ON) schedule_task(r);
  }
}

// ---------------------------------------------------------------------------
// Thread control of balancer and workers

void ff_loadbalancer::end_workers(int n) {
  for (int i = 0; i < n; ++i) {
    while (!workers[i]->put(EOS_NOFREEZE)) losetime_out();
    workers[i]->wait();
  }
}

int ff_loadbalancer::run() {
  if (isfrozen()) {
    if (wait_freezing() < 0) return -1;
    for (ff_node* w : workers) w->thaw();
    ff_thread::thaw();
    return 0;
  }
  if (buffer) buffer->set_wakeup(&wake);
  if (master_worker)
    for (ff_node* w : workers)
      if (w->get_out_buffer()) w->get_out_buffer()->set_wakeup(&wake);
  for (int i = 0; i < nworkers; ++i) {
    if (workers[i]->run(true) < 0) {
      error("LB, spawning worker thread\n");
      end_workers(i);
      return -1;
    }
  }
  if (spawn() < 0) {
    error("LB, spawning LB thread\n");
    end_workers(nworkers);
    return -1;
  }
  return 0;
}

int ff_loadbalancer::wait() {
  int r = ff_thread::wait();
  for (int i = 0; i < nworkers; ++i) {
    if (workers[i]->wait() < 0) {
      error("LB, waiting worker thread, id = %d\n", i);
      r = -1;
    }
  }
  return r;
}

int ff_loadbalancer::wait_freezing() {
  int r = 0;
  if (ff_thread::wait_freezing() < 0) {
    error("LB, waiting LB thread freezing\n");
    r = -1;
  }
  for (int i = 0; i < nworkers; ++i) {
    if (workers[i]->wait_freezing() < 0) {
      error("LB, waiting freezing of worker thread, id = %d\n", i);
      r = -1;
    }
  }
  return r;
}

void ff_loadbalancer::stop() {
  for (ff_node* w : workers) w->stop();
  ff_thread::stop();
}

void ff_loadbalancer::freeze() {
  for (ff_node* w : workers) w->freeze();
  ff_thread::freeze();
}

void ff_loadbalancer::thaw() {
  for (ff_node* w : workers) w->thaw();
  ff_thread::thaw();
}

// ---------------------------------------------------------------------------
// Gatherer

ff_gatherer::ff_gatherer(int max_num_workers) : max_nworkers(max_num_workers) {}

int ff_gatherer::set_filter(ff_node* collector) {
  if (filter || !collector) return -1;
  filter = collector;
  return 0;
}

int ff_gatherer::register_worker(ff_node* w) {
  if (nworkers >= max_nworkers) {
    error("GT, max number of workers reached (max=%d)\n", max_nworkers);
    return -1;
  }
  workers.push_back(w);
  ++nworkers;
  return 0;
}

int ff_gatherer::set_out_buffer(uSWSR_Ptr_Buffer* b) {
  if (buffer || !b) return -1;
  buffer = b;
  return 0;
}

int ff_gatherer::run() {
  if (isfrozen()) {
    thaw();
    return 0;
  }
  for (ff_node* w : workers)
    if (w->get_out_buffer()) w->get_out_buffer()->set_wakeup(&wake);
  return spawn();
}

int ff_gatherer::selectworker() { return (nextr + 1) % nworkers; }
void ff_gatherer::losetime_in() { wake.sleep(IDLE_SLEEP_US); }

bool ff_gatherer::poll(void** task) {
  for (int i = 0; i < nworkers; ++i) {
    const int w = selectworker();
    nextr = w;
    if (!ended[w] && workers[w]->get(task)) return true;
  }
  return false;
}

int ff_gatherer::gather_task(void** task) {
  idle_wait idle;
  for (;;) {
    if (poll(task)) return nextr;
    if (idle.spin()) continue;
    wake.prepare();
    if (poll(task)) {
      wake.cancel();
      return nextr;
    }
    losetime_in();
    wake.cancel();
  }
}

int ff_gatherer::svc_init() {
  ended.assign(nworkers, 0);
  return filter ? filter->svc_init() : 0;
}

void ff_gatherer::svc_end() {
  if (filter) filter->svc_end();
}

namespace {

void push_waiting(uSWSR_Ptr_Buffer* b, void* task) {
  idle_wait idle;
  while (!b->push(task)) idle.wait();
}

}  // namespace

void* ff_gatherer::svc(void*) {
  void* mark = EOS;
  for (int live = nworkers; live > 0;) {
    void* task;
    const int w = gather_task(&task);
    if (is_end_mark(task)) {
      ended[w] = 1;
      --live;
      mark = task;
      continue;
    }
    void* r = filter ? filter->svc(task) : task;
    // The stream ends when every worker's has ended; a collector's end mark
    // cannot cut it short while workers are still delivering.
    if (!r || r == GO_ON || is_end_mark(r) || !buffer) continue;
    push_waiting(buffer, r);
  }
  if (buffer) push_waiting(buffer, mark);
  return mark;
}

}  // namespace ff

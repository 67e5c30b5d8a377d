#include "ff/node.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <thread>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

namespace ff {

void error(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  va_list again;
  va_copy(again, ap);
  int n = std::vsnprintf(nullptr, 0, fmt, ap);
  va_end(ap);
  if (n < 0) std::abort();
  std::string msg = "ERROR: ";
  const std::size_t prefix = msg.size();
  msg.resize(prefix + static_cast<std::size_t>(n) + 1);
  if (std::vsnprintf(&msg[prefix], n + 1, fmt, again) != n) std::abort();
  va_end(again);
  msg.pop_back();  // the terminating null
  std::fwrite(msg.data(), 1, msg.size(), stderr);
  std::fflush(stderr);
}

// ---------------------------------------------------------------------------

namespace {

inline void cpu_relax() {
#if defined(__x86_64__) || defined(__i386__)
  _mm_pause();
#else
  __asm__ __volatile__("" ::: "memory");
#endif
}

double ms_between(const struct timeval& a, const struct timeval& b) {
  return (b.tv_sec - a.tv_sec) * 1000.0 + (b.tv_usec - a.tv_usec) / 1000.0;
}

}  // namespace

ticks getticks() {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  using namespace std::chrono;
  return duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count();
#endif
}

void ticks_wait(ticks t) {
  const ticks start = getticks();
  while (getticks() - start < t) cpu_relax();
}

bool idle_wait::spin() {
  const ticks now = getticks();
  if (start == 0) start = now ? now : 1;
  const ticks waited = now - start;
  if (waited >= SPIN_TICKS) return false;
  // After the first instants, offer the core to whoever is runnable: with
  // more threads than cores, the task being waited for may need it.
  if (waited < PAUSE_TICKS)
    cpu_relax();
  else
    std::this_thread::yield();
  return true;
}

void idle_wait::wait() {
  if (!spin()) usleep(IDLE_SLEEP_US);
}

// ---------------------------------------------------------------------------

ff_thread::ff_thread() {
  if (pthread_attr_init(&attr) != 0) {
    error("ERROR: ff_thread: pthread_attr_init fails!\n");
    std::abort();
  }
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
  if (pthread_mutex_init(&mutex, nullptr) != 0) {
    error("ERROR: ff_thread: pthread_mutex_init fails!\n");
    std::abort();
  }
  if (pthread_cond_init(&cond_frozen, nullptr) != 0 ||
      pthread_cond_init(&cond_thaw, nullptr) != 0) {
    error("ERROR: ff_thread: pthread_cond_init fails!\n");
    std::abort();
  }
}

ff_thread::~ff_thread() {
  pthread_cond_destroy(&cond_thaw);
  pthread_cond_destroy(&cond_frozen);
  pthread_mutex_destroy(&mutex);
  if (pthread_attr_destroy(&attr) != 0) error("ERROR: ~ff_thread: pthread_attr_destroy fails!");
}

void* ff_thread::thread_routine(void* arg) {
  ff_thread* th = static_cast<ff_thread*>(arg);
  if (pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr) != 0)
    error("ff_thread, thread_routine, could not change thread cancelability");
  while (th->run_stream()) {
  }
  return nullptr;
}

bool ff_thread::run_stream() {
  gettimeofday(&tstart, nullptr);
  if (svc_init() < 0) {
    error("ff_thread, svc_init failed, thread exit!!!\n");
    pthread_mutex_lock(&mutex);
    init_failed = true;
    finished = true;
    pthread_cond_broadcast(&cond_frozen);
    pthread_mutex_unlock(&mutex);
    return false;
  }
  gettimeofday(&wtstart, nullptr);
  void* end = svc(nullptr);
  gettimeofday(&wtstop, nullptr);
  svc_end();
  gettimeofday(&tstop, nullptr);
  return freeze_or_exit(end == EOS_NOFREEZE);
}

bool ff_thread::freeze_or_exit(bool nofreeze) {
  pthread_mutex_lock(&mutex);
  if (freezing && !nofreeze && !exit_asked) {
    frozen = true;
    pthread_cond_broadcast(&cond_frozen);
    while (!thawed) pthread_cond_wait(&cond_thaw, &mutex);
    thawed = false;
    if (!exit_asked) {
      pthread_mutex_unlock(&mutex);
      return true;
    }
  }
  finished = true;
  pthread_cond_broadcast(&cond_frozen);
  pthread_mutex_unlock(&mutex);
  return false;
}

int ff_thread::spawn() {
  pthread_mutex_lock(&mutex);
  const bool busy = spawned && !finished;
  const bool reap = spawned && finished;
  pthread_mutex_unlock(&mutex);
  if (busy) return -1;
  if (reap) wait();  // the previous run's outcome was reported by its own wait
  pthread_mutex_lock(&mutex);
  finished = frozen = thawed = exit_asked = init_failed = false;
  spawned = pthread_create(&th_handle, &attr, thread_routine, this) == 0;
  const bool ok = spawned;
  pthread_mutex_unlock(&mutex);
  return ok ? 0 : -1;
}

int ff_thread::wait() {
  pthread_mutex_lock(&mutex);
  if (!spawned) {
    pthread_mutex_unlock(&mutex);
    return 0;
  }
  exit_asked = true;
  if (frozen) {
    frozen = false;
    thawed = true;
    pthread_cond_signal(&cond_thaw);
  }
  pthread_mutex_unlock(&mutex);
  const int rc = pthread_join(th_handle, nullptr);
  pthread_mutex_lock(&mutex);
  spawned = false;
  const bool failed = rc != 0 || init_failed;
  pthread_mutex_unlock(&mutex);
  return failed ? -1 : 0;
}

int ff_thread::wait_freezing() {
  pthread_mutex_lock(&mutex);
  while (spawned && !frozen && !finished) pthread_cond_wait(&cond_frozen, &mutex);
  const bool failed = init_failed;
  pthread_mutex_unlock(&mutex);
  return failed ? -1 : 0;
}

void ff_thread::freeze() {
  pthread_mutex_lock(&mutex);
  freezing = true;
  pthread_mutex_unlock(&mutex);
}

void ff_thread::stop() {
  pthread_mutex_lock(&mutex);
  freezing = false;
  pthread_mutex_unlock(&mutex);
}

void ff_thread::thaw() {
  pthread_mutex_lock(&mutex);
  if (frozen) {
    // Cleared here, not by the woken thread, so that a wait_freezing() right
    // after thaw() waits for the end of the new stream.
    frozen = false;
    thawed = true;
    pthread_cond_signal(&cond_thaw);
  }
  pthread_mutex_unlock(&mutex);
}

bool ff_thread::isfrozen() {
  pthread_mutex_lock(&mutex);
  const bool f = frozen;
  pthread_mutex_unlock(&mutex);
  return f;
}

bool ff_thread::isrunning() {
  pthread_mutex_lock(&mutex);
  const bool r = spawned;
  pthread_mutex_unlock(&mutex);
  return r;
}

double ff_thread::ffTime() const { return ms_between(tstart, tstop); }
double ff_thread::wffTime() const { return ms_between(wtstart, wtstop); }

// ---------------------------------------------------------------------------

ff_node::ff_node() = default;

ff_node::~ff_node() {
  delete worker;
  if (own_in) delete in;
  if (own_out) delete out;
}

namespace {

uSWSR_Ptr_Buffer* new_buffer(int nentries, bool fixedsize) {
  if (nentries <= 0) return nullptr;
  auto* b = new (std::nothrow) uSWSR_Ptr_Buffer(static_cast<unsigned long>(nentries), fixedsize);
  if (b && !b->init()) {
    delete b;
    b = nullptr;
  }
  return b;
}

const struct timeval no_time{};

}  // namespace

int ff_node::create_input_buffer(int nentries, bool fixedsize) {
  if (in) return -1;
  in = new_buffer(nentries, fixedsize);
  own_in = in != nullptr;
  return in ? 0 : -1;
}

int ff_node::create_output_buffer(int nentries, bool fixedsize) {
  if (out) return -1;
  out = new_buffer(nentries, fixedsize);
  own_out = out != nullptr;
  return out ? 0 : -1;
}

int ff_node::set_output_buffer(uSWSR_Ptr_Buffer* o) {
  if (out || !o) return -1;
  out = o;
  own_out = false;
  return 0;
}

int ff_node::set_input_buffer(uSWSR_Ptr_Buffer* i) {
  if (in || !i) return -1;
  in = i;
  own_in = false;
  return 0;
}

int ff_node::run(bool) {
  if (!worker) worker = new thWorker(this);
  if (worker->isfrozen()) {
    worker->thaw();
    return 0;
  }
  if (in) in->set_wakeup(&in_wake);  // before any producer can push
  return worker->spawn();
}

int ff_node::wait() { return worker ? worker->wait() : 0; }
int ff_node::wait_freezing() { return worker ? worker->wait_freezing() : 0; }

void ff_node::stop() {
  if (worker) worker->stop();
}

void ff_node::freeze() {
  if (!worker) worker = new thWorker(this);
  worker->freeze();
}

void ff_node::thaw() {
  if (worker) worker->thaw();
}

bool ff_node::isfrozen() { return worker && worker->isfrozen(); }
double ff_node::ffTime() { return worker ? worker->ffTime() : 0.0; }
double ff_node::wffTime() { return worker ? worker->wffTime() : 0.0; }

bool ff_node::put(void* ptr) { return in && in->push(ptr); }
bool ff_node::get(void** ptr) { return out && out->pop(ptr); }

const struct timeval& ff_node::getstarttime() const {
  return worker ? worker->getstarttime() : no_time;
}
const struct timeval& ff_node::getstoptime() const {
  return worker ? worker->getstoptime() : no_time;
}
const struct timeval& ff_node::getwstartime() const {
  return worker ? worker->getwstartime() : no_time;
}
const struct timeval& ff_node::getwstoptime() const {
  return worker ? worker->getwstoptime() : no_time;
}

bool ff_node::ff_send_out(void* task, unsigned retry, unsigned ticks_between) {
  if (!callback && !out) return false;
  ticks first_refusal = 0;
  for (unsigned attempt = 0;; ++attempt) {
    if (callback ? callback(task, callback_arg) : out->push(task)) return true;
    if (attempt == retry) return false;
    // Short refusals are waited out on the time-stamp counter; a receiver
    // that stays busy for long gets the core back through a sleep.
    const ticks now = getticks();
    if (attempt == 0) first_refusal = now;
    if (now - first_refusal < SPIN_TICKS)
      ticks_wait(ticks_between);
    else
      usleep(IDLE_SLEEP_US);
  }
}

void* ff_node::thWorker::svc(void*) { return node->stream_loop(); }

void* ff_node::stream_loop() {
  void* mark = EOS;
  if (!in) {
    // A first stage: its whole stream comes from one call.
    void* r = svc(nullptr);
    if (!r) mark = EOS_NOFREEZE;
    else if (is_end_mark(r)) mark = r;
    else if (r != GO_ON) push_out(r);
  } else {
    for (;;) {
      void* task = next_task();
      if (is_end_mark(task)) {
        mark = task;
        break;
      }
      void* r = svc(task);
      if (r == GO_ON) continue;
      if (!r || is_end_mark(r)) {
        mark = r ? r : EOS_NOFREEZE;
        break;
      }
      push_out(r);
    }
  }
  if (out && !out_is_feedback) push_out(mark);
  return mark;
}

void ff_node::push_out(void* task) {
  if (!out) return;
  idle_wait idle;
  while (!out->push(task)) idle.wait();
}

void* ff_node::next_task() {
  idle_wait idle;
  void* task;
  for (;;) {
    if (in->pop(&task)) return task;
    if (idle.spin()) continue;
    in_wake.prepare();
    if (in->pop(&task)) {
      in_wake.cancel();
      return task;
    }
    in_wake.sleep(IDLE_SLEEP_US);
  }
}

}  // namespace ff

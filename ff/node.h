#pragma once

// Threads and stages of the task farm.
//
// A stage (ff_node) consumes tasks from its input queue, runs svc() on each
// and puts the results into its output queue. Tasks are opaque pointers; a
// few pointer values are reserved as stream marks.

#include <pthread.h>
#include <sys/time.h>

#include <cstdint>

#include "ff/buffer.h"
#include "tarn/util/nocopy.h"

namespace ff {

// Stream marks: pointer values that are never task addresses.
inline void* const GO_ON = reinterpret_cast<void*>(std::uintptr_t{1});  // no output
inline void* const EOS = reinterpret_cast<void*>(~std::uintptr_t{0});  // end of stream
// End of stream after which the threads exit even when asked to freeze.
inline void* const EOS_NOFREEZE = reinterpret_cast<void*>(~std::uintptr_t{1});

inline bool is_end_mark(void* p) { return p == EOS || p == EOS_NOFREEZE; }

// Writes "ERROR: " and the printf-style message to standard error; aborts
// the process if the message cannot be formatted.
void error(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// ---------------------------------------------------------------------------
// Waiting. Threads poll their queues; an idle thread spins only briefly and
// then sleeps, so that idle threads never hold a core that a working thread
// could use (a farm usually has more threads than the machine has cores).

using ticks = unsigned long long;

// Processor time-stamp counter (nanoseconds of a steady clock elsewhere).
ticks getticks();
// Busy-waits about `t` ticks.
void ticks_wait(ticks t);

// Busy-wait budget of an idle poller before it starts sleeping (some 40 us
// at 2.5 GHz); past its first PAUSE_TICKS the poller yields the core
// between polls.
inline constexpr ticks SPIN_TICKS = 100000;
inline constexpr ticks PAUSE_TICKS = 2000;
// Default pause between two attempts of ff_send_out.
inline constexpr unsigned TICKS2WAIT = 1000;
// Sleep of an idle poller once the spin budget is spent, in microseconds.
inline constexpr unsigned IDLE_SLEEP_US = 1000;

// Wait policy of one polling loop, called after each failed poll: the first
// calls spin (pausing, then yielding) for up to SPIN_TICKS in total, then the
// caller sleeps. A thread waiting for tasks sleeps on the wakeup of its
// queues (woken by the next push, or after IDLE_SLEEP_US at the latest); one
// waiting for room in a full queue sleeps IDLE_SLEEP_US.
class idle_wait {
public:
  // True while the caller should simply poll again (the call has paused
  // briefly); false when the spin budget is spent and the caller should
  // sleep.
  bool spin();
  // Spins, or sleeps IDLE_SLEEP_US once the budget is spent.
  void wait();

private:
  ticks start = 0;
};

// ---------------------------------------------------------------------------

// A POSIX thread that runs svc_init(), svc(nullptr) and svc_end() for each
// stream. After a stream it exits, unless freeze() was asked: then it waits,
// frozen, until thaw() starts the next stream.
class ff_thread : private tarn::util::nocopy {
public:
  ff_thread();
  virtual ~ff_thread();

  // The stream's work; the result tells how the stream ended (EOS_NOFREEZE:
  // exit even when freezing was asked).
  virtual void* svc(void* task) = 0;
  // Negative result: the stream is not run and the thread exits.
  virtual int svc_init() { return 0; }
  virtual void svc_end() {}

  // Starts the thread (a finished but unjoined one is reaped first).
  // 0 on success, -1 when it is already running or cannot be created.
  int spawn();
  // Joins the thread, ending a frozen thread first. -1 when the join
  // failed or the thread's svc_init failed.
  int wait();
  // Waits until the thread is frozen or has finished; -1 if its svc_init
  // failed.
  int wait_freezing();
  void freeze();  // freeze after the current stream instead of exiting
  void stop();    // exit after the current stream (undoes freeze)
  void thaw();    // wake a frozen thread for a new stream
  bool isfrozen();
  bool isrunning();  // spawned and not yet joined

  // Times of the last stream, valid once the thread is frozen or joined:
  // from thread start to the end of svc_end, and the svc part of it.
  virtual double ffTime() const;
  virtual double wffTime() const;
  virtual const struct timeval& getstarttime() const { return tstart; }
  virtual const struct timeval& getstoptime() const { return tstop; }
  virtual const struct timeval& getwstartime() const { return wtstart; }
  virtual const struct timeval& getwstoptime() const { return wtstop; }

private:
  static void* thread_routine(void* arg);
  bool run_stream();     // one stream; false if svc_init failed
  bool freeze_or_exit(bool nofreeze);  // true: run another stream

  pthread_t th_handle{};
  pthread_attr_t attr;
  pthread_mutex_t mutex;
  pthread_cond_t cond_frozen;  // signalled when frozen or finished
  pthread_cond_t cond_thaw;    // signalled by thaw()
  bool spawned = false;
  bool finished = false;
  bool freezing = false;
  bool frozen = false;
  bool thawed = false;
  bool exit_asked = false;
  bool init_failed = false;
  struct timeval tstart{}, tstop{}, wtstart{}, wtstop{};
};

class ff_loadbalancer;
class ff_gatherer;
template <typename LB, typename GT> class ff_farm;

// A stage. Derive it and implement svc(task), which returns a result (put
// into the output queue, if any), GO_ON (nothing to pass on), or an end mark
// or null, which ends the stage's stream. An end mark arriving on the input
// queue ends it as well, and is passed on to the output queue unless that
// is a feedback channel. A stage without an input queue produces its whole
// stream from one svc(nullptr) call, typically through ff_send_out.
class ff_node : private tarn::util::nocopy {
public:
  ff_node();

  // Queues. create_* allocate a queue owned by the node (-1 when one is
  // already present or memory runs out); set_* attach one owned elsewhere.
  virtual int create_input_buffer(int nentries, bool fixedsize = true);
  virtual int create_output_buffer(int nentries, bool fixedsize = false);
  virtual int set_output_buffer(uSWSR_Ptr_Buffer* o);
  virtual int set_input_buffer(uSWSR_Ptr_Buffer* i);

  // Thread control of a stand-alone stage (a farm runs its workers itself).
  virtual int run(bool skip_init = false);
  virtual int wait();
  virtual int wait_freezing();
  virtual void stop();
  virtual void freeze();
  virtual void thaw();
  virtual bool isfrozen();
  virtual int cardinality() const { return 1; }
  virtual double ffTime();
  virtual double wffTime();

  virtual void* svc(void* task) = 0;
  virtual int svc_init() { return 0; }
  virtual void svc_end() {}

  // Index of a worker in its farm (0-based); -1 for other stages.
  virtual int get_my_id() const { return myid; }
  virtual bool put(void* ptr);   // into the input queue
  virtual bool get(void** ptr);  // from the output queue
  virtual uSWSR_Ptr_Buffer* get_in_buffer() const { return in; }
  virtual uSWSR_Ptr_Buffer* get_out_buffer() const { return out; }
  virtual const struct timeval& getstarttime() const;
  virtual const struct timeval& getstoptime() const;
  virtual const struct timeval& getwstartime() const;
  virtual const struct timeval& getwstoptime() const;
  virtual ~ff_node();

  // Sends a task on from inside svc(): an emitter hands it to its load
  // balancer, any other stage puts it into its output queue. A refused task
  // is tried again up to `retry` more times (-1: practically forever),
  // pausing `ticks` time-stamp ticks between attempts (after a long run of
  // refusals the pause becomes a 1 ms sleep). False if never accepted.
  virtual bool ff_send_out(void* task, unsigned retry = static_cast<unsigned>(-1),
                           unsigned ticks = TICKS2WAIT);

  // The stage's thread.
  class thWorker : public ff_thread {
  public:
    explicit thWorker(ff_node* node) : node(node) {}
    void* svc(void* task) override;
    int svc_init() override { return node->svc_init(); }
    void svc_end() override { node->svc_end(); }

  private:
    ff_node* node;
  };

private:
  friend class ff_loadbalancer;
  friend class ff_gatherer;
  template <typename LB, typename GT> friend class ff_farm;

  // How ff_send_out hands a task over when the stage is an emitter: one
  // scheduling attempt, true when the task was accepted.
  using send_callback = bool (*)(void* task, void* arg);

  void set_id(int id) { myid = id; }
  void register_callback(send_callback cb, void* arg) {
    callback = cb;
    callback_arg = arg;
  }
  void* stream_loop();                // body of thWorker::svc
  void push_out(void* task);          // into the output queue, waiting if full
  void* next_task();                  // from the input queue, waiting if empty

  uSWSR_Ptr_Buffer* in = nullptr;
  uSWSR_Ptr_Buffer* out = nullptr;
  bool own_in = false;
  bool own_out = false;
  // The output queue is a feedback channel to the load balancer, which must
  // not receive end marks.
  bool out_is_feedback = false;
  int myid = -1;
  send_callback callback = nullptr;
  void* callback_arg = nullptr;
  thWorker* worker = nullptr;
  wakeup in_wake;  // the stage's thread sleeps here while its input is empty
};

}  // namespace ff

#define _GNU_SOURCE
#include <dlfcn.h>
#include <sys/time.h>
#include <time.h>
#include <link.h>
/* A wall clock that stands still for the program's own code only: MPI's
   libraries keep the real clock, which their progress loops need. Elapsed
   times then print as 0, and the random hold-out, seeded with the time in
   seconds, draws the same rows in every run. */
static int from_main(void* ret) {
  Dl_info info;
  struct link_map* map = 0;
  if (!dladdr1(ret, &info, (void**)&map, RTLD_DL_LINKMAP) || !map) return 0;
  return map->l_name == 0 || map->l_name[0] == '\0';
}
int gettimeofday(struct timeval* tv, void* tz) {
  if (from_main(__builtin_return_address(0))) {
    if (tv) { tv->tv_sec = 1000000000; tv->tv_usec = 0; }
    return 0;
  }
  static int (*real)(struct timeval*, void*) = 0;
  if (!real) real = (int (*)(struct timeval*, void*))dlsym(RTLD_NEXT, "gettimeofday");
  return real(tv, tz);
}

time_t time(time_t* out) {
  time_t now;
  if (from_main(__builtin_return_address(0))) {
    now = 1000000000;
  } else {
    static time_t (*real)(time_t*) = 0;
    if (!real) real = (time_t (*)(time_t*))dlsym(RTLD_NEXT, "time");
    now = real(0);
  }
  if (out) *out = now;
  return now;
}

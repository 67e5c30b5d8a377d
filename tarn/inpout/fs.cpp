#include "tarn/inpout/fs.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>

#include "tarn/inpout/iofile.h"

namespace tarn::inpout::fs {

bool pipe(ioconn** ends) {
  int fds[2];
  if (::pipe(fds) != 0) return false;
  auto* in = new iofile;
  auto* out = new iofile;
  in->open(fds[0]);
  out->open(fds[1]);
  ends[0] = in;
  ends[1] = out;
  return true;
}

bool mkfifo(const std::string& path, int mode) { return ::mkfifo(path.c_str(), mode) == 0; }

bool rename(const std::string& from, const std::string& to) {
  return ::rename(from.c_str(), to.c_str()) == 0;
}

bool unlink(const std::string& path) { return ::unlink(path.c_str()) == 0; }

namespace {

void trace(const char* step, const char* file, int mode) {
  std::cout << step << file << '\n' << mode << std::endl;
}

// The descriptors popen juggles: the two pipes and the saved standard
// streams, -1 where unused.
struct plumbing {
  int out[2] = {-1, -1};  // our stdout -> out[1], readable at out[0]
  int in[2] = {-1, -1};   // in[1] -> our stdin at in[0]
  int saved_out = -1;
  int saved_in = -1;

  void restore() {
    std::cout.flush();
    if (saved_out >= 0) ::dup2(saved_out, 1);
    if (saved_in >= 0) ::dup2(saved_in, 0);
  }
  void close_all() {
    for (int* fd : {&out[0], &out[1], &in[0], &in[1], &saved_out, &saved_in})
      if (*fd >= 0) {
        ::close(*fd);
        *fd = -1;
      }
  }
  // Points `target` (0 or 1) at pipe end `end`, keeping a copy of it first.
  static bool redirect(int fds[2], int end, int& saved, int target) {
    if (::pipe(fds) != 0) return false;
    saved = ::dup(target);
    return saved >= 0 && ::dup2(fds[end], target) >= 0;
  }
};

}  // namespace

bool popen(ioconn** ends, const char* file, char* const argv[], int mode) {
  (void)ends;  // never filled: the launcher does not hand out its pipes yet
  trace("* ", file, mode);
  plumbing pl;
  std::cout.flush();
  if ((mode & ioconn::READ) && !plumbing::redirect(pl.out, 1, pl.saved_out, 1)) {
    pl.restore();
    pl.close_all();
    return false;
  }
  if ((mode & ioconn::WRITE) && !plumbing::redirect(pl.in, 0, pl.saved_in, 0)) {
    pl.restore();
    pl.close_all();
    return false;
  }
  std::fflush(stdout);
  pid_t pid = ::fork();
  if (pid < 0) {
    pl.restore();
    pl.close_all();
    throw new std::runtime_error("fs::popen cannot fork process");
  }
  if (pid == 0) {
    // The child keeps only its redirected standard streams.
    pl.close_all();
    trace("figlio1 ", file, mode);
    ::execvp(file, argv);
    trace("figlio2 ", file, mode);
    ::_exit(0);
  }
  pl.restore();
  pl.close_all();
  trace("3 ", file, mode);
  return false;
}

}  // namespace tarn::inpout::fs


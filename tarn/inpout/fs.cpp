#include "tarn/inpout/fs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
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

bool same_file(const std::string& a, const std::string& b) {
  struct stat sa, sb;
  const bool has_a = ::stat(a.c_str(), &sa) == 0, has_b = ::stat(b.c_str(), &sb) == 0;
  if (has_a && has_b) return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
  if (has_a || has_b) return false;
  std::error_code ea, eb;
  const auto ra = std::filesystem::weakly_canonical(a, ea), rb = std::filesystem::weakly_canonical(b, eb);
  return !ea && !eb && ra == rb;
}

bool is_special(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode);
}

namespace {

// Syncs a file or directory to the disk; false on failure.
bool sync_path(const std::string& path, int flags) {
  const int fd = ::open(path.c_str(), flags | O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool ok = ::fsync(fd) == 0;
  return ::close(fd) == 0 && ok;
}

}  // namespace

replacement::replacement(const std::string& target) : target_(target), path_(target) {
  struct stat st;
  // Through a symbolic link the file it points to is replaced, not the link.
  std::error_code ec;
  if (::lstat(target.c_str(), &st) == 0) {
    if (::stat(target.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;  // written in place
    const auto resolved = std::filesystem::canonical(target, ec);
    if (!ec) target_ = resolved.string();
  }
  // The name is made unique by this process's id and a counter; O_EXCL
  // guarantees that no other file is ever truncated by mistake.
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    path_ = target_ + "." + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".partial";
    const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd >= 0) {
      ::close(fd);
      pending_ = true;
      return;
    }
    if (errno != EEXIST) break;
  }
  throw std::runtime_error("cannot create a file beside " + target);
}

replacement::~replacement() {
  if (pending_) ::unlink(path_.c_str());
}

bool replacement::commit() {
  if (!pending_) return true;  // written in place
  struct stat st;
  if (::stat(target_.c_str(), &st) == 0 && ::chmod(path_.c_str(), st.st_mode & 07777) != 0) return false;
  if (!sync_path(path_, 0) || ::rename(path_.c_str(), target_.c_str()) != 0) return false;
  pending_ = false;
  // The rename itself reaches the disk with the directory.
  const auto dir = std::filesystem::path(target_).parent_path();
  sync_path(dir.empty() ? "." : dir.string(), O_DIRECTORY);
  return true;
}

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


#pragma once

#include <string>

#include "tarn/inpout/ioconn.h"
#include "tarn/util/nocopy.h"

namespace tarn::inpout::fs {

// ends[0] receives the reading end, ends[1] the writing end, both new
// iofile objects owned by the caller.
bool pipe(ioconn** ends);

// Child-process launcher. Unfinished: it redirects the standard streams
// (READ: our stdout into a pipe, WRITE: our stdin from a pipe), forks and
// execs `file`, restores the streams and always returns false without
// filling `ends`. Traces every step on standard output. A failed fork is
// thrown as a pointer to a new std::runtime_error.
bool popen(ioconn** ends, const char* file, char* const argv[], int mode);

bool mkfifo(const std::string& path, int mode);
bool rename(const std::string& from, const std::string& to);
bool unlink(const std::string& path);

// Whether two paths name one file: the same device and inode when both
// exist, the same path once resolved (symbolic links, "..") when neither
// does yet.
bool same_file(const std::string& a, const std::string& b);
// Whether the path names an existing file that is not a regular file (a
// device, a pipe, a directory).
bool is_special(const std::string& path);

// A file written under a temporary name beside its target and renamed over
// the target only once complete, so that a failed or interrupted write
// never leaves a damaged file where a good one was. A target that is not a
// regular file (a device such as /dev/null, a pipe, a directory) cannot be
// replaced: it is written in place, and fails there as it would. The
// temporary name ends in ".partial"; the destructor removes it unless the
// write was committed.
class replacement : private tarn::util::nocopy {
public:
  // Throws std::runtime_error when no temporary file can be made.
  explicit replacement(const std::string& target);
  ~replacement();

  // Where to write.
  const std::string& path() const { return path_; }
  // Moves the written file to the disk and renames it over the target,
  // keeping the permissions of a file it replaces; false on failure, when
  // the target stays as it was.
  bool commit();

private:
  std::string target_;
  std::string path_;
  bool pending_ = false;  // a temporary file exists and is ours to remove
};

}  // namespace tarn::inpout::fs

#pragma once

#include <string>

#include "tarn/inpout/ioconn.h"

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

}  // namespace tarn::inpout::fs

// The live progress line: what it draws and when, and that it draws
// nothing unless it writes to a terminal.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "cmd/progress_line.h"
#include "test_support.h"

using arbor_cmd::make_progress_line;
using arbor_cmd::progress_line;
using tarn::util::progress;
using testing_support::read_file;
using testing_support::scratch_dir;

namespace {

// A clock the test moves by hand.
struct fake_clock {
  double now = 0.0;
  arbor_cmd::clock_fn fn() {
    return [this] { return now; };
  }
};

// A progress line writing into a scratch file.
struct recorded {
  scratch_dir dir;
  std::string path = dir.file("terminal");
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ~recorded() { ::close(fd); }
  std::string bytes() const { return read_file(path); }
};

std::string line(const std::string& text) { return "\r" + text + "\033[K"; }
const std::string erase = "\r\033[K";

// Whether this system can give a pseudo-terminal (a container may not).
bool have_pty() {
  const int fd = ::posix_openpt(O_RDWR | O_NOCTTY);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

// Runs `child` in a process whose standard streams are a pseudo-terminal;
// returns what it wrote there.
template <class F>
std::string in_pty(F child) {
  int master = -1;
  const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
  if (pid < 0) throw std::runtime_error("forkpty failed");
  if (pid == 0) {
    child();
    _exit(0);
  }
  std::string out;
  char buf[4096];
  for (;;) {
    const ssize_t n = ::read(master, buf, sizeof buf);
    if (n > 0) out.append(buf, static_cast<size_t>(n));
    else if (n < 0 && errno == EINTR) continue;
    else break;  // EIO once the child has closed the terminal
  }
  int status = 0;
  waitpid(pid, &status, 0);
  ::close(master);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child status " << status;
  return out;
}

// Runs arbor with `args` (the program first) with standard output to the
// file `out` and standard error a pseudo-terminal; returns what the terminal got.
std::string arbor_in_pty(const std::vector<std::string>& args, const std::string& out) {
  return in_pty([&] {
    const int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0 || dup2(fd, 1) < 0) _exit(4);
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(5);
  });
}

// One loading phase: reports at 0.05 s (too early), 0.1 s (drawn), 0.15 s
// (too soon after) and 0.25 s (drawn), then the end.
void loading_phase(progress& p, fake_clock& clock) {
  p.begin(progress::LOADING);
  for (double t : {0.05, 0.1, 0.15, 0.25}) {
    clock.now = t;
    p.loading(static_cast<std::uint64_t>(t * 40000), static_cast<std::uint64_t>(t * 2e7));
  }
  p.end();
}

const std::string loading_phase_bytes = line("loading: 4000 rows, 20.0 MB/s, 0:00") +
                                        line("loading: 10000 rows, 20.0 MB/s, 0:00") + erase;

}  // namespace

TEST(ProgressLine, RedrawsAtMostTenTimesASecondAndErasesAtTheEnd) {
  recorded term;
  fake_clock clock;
  {
    progress_line p(term.fd, clock.fn());
    loading_phase(p, clock);
  }
  EXPECT_EQ(term.bytes(), loading_phase_bytes);
}

TEST(ProgressLine, GrowingPhaseAndElapsedTime) {
  recorded term;
  fake_clock clock{100.0};
  progress_line p(term.fd, clock.fn());
  p.begin(progress::GROWING);
  clock.now = 175.0;
  p.growing(12, 3, 1234.6);
  // A new phase erases the line and counts its time from its own start.
  p.begin(progress::LOADING);
  clock.now = 175.5;
  p.loading(7, 0);
  EXPECT_EQ(term.bytes(), line("growing: 12 nodes, 3 open, 1235 cases to split, 1:15") + erase +
                              line("loading: 7 rows, 0.0 MB/s, 0:00"));
  EXPECT_EQ(arbor_cmd::elapsed_text(3725.9), "1:02:05");
  EXPECT_EQ(arbor_cmd::elapsed_text(59.99), "0:59");
  EXPECT_EQ(arbor_cmd::loading_text(0, 0, 0.0), "loading: 0 rows, 0.0 MB/s, 0:00");
}

TEST(ProgressLine, ShortPhasesDrawNothingAndLinesNeverWrap) {
  recorded quiet;
  fake_clock clock;
  {
    progress_line p(quiet.fd, clock.fn());
    p.begin(progress::LOADING);
    clock.now = 0.099;
    p.loading(1, 1);
    p.end();
  }
  EXPECT_EQ(quiet.bytes(), "");

  recorded narrow;
  progress_line p(narrow.fd, clock.fn(), 20);
  p.begin(progress::GROWING);
  clock.now = 1.0;
  p.growing(1, 1, 1);
  EXPECT_EQ(narrow.bytes(), line("growing: 1 nodes, 1"));
}

TEST(ProgressLine, DrawsOnATerminalOnly) {
  if (!have_pty()) GTEST_SKIP() << "no pseudo-terminal on this system";
  fake_clock clock;
  const std::string terminal = in_pty([&] {
    auto p = make_progress_line(2, clock.fn());
    if (!p) _exit(3);
    loading_phase(*p, clock);
  });
  EXPECT_EQ(terminal, loading_phase_bytes);
}

TEST(ProgressLine, NoneForAFileOrAPipe) {
  fake_clock clock;
  recorded file;
  EXPECT_EQ(make_progress_line(file.fd, clock.fn()), nullptr);
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  EXPECT_EQ(make_progress_line(fds[1], clock.fn()), nullptr);
  ::close(fds[0]);
  ::close(fds[1]);
}

TEST(ProgressLine, ArborPrintsTheSameWhetherStandardErrorIsATerminalOrAFile) {
  if (!have_pty()) GTEST_SKIP() << "no pseudo-terminal on this system";
  scratch_dir d;
  const std::string golf = testing_support::source_dir() + "/examples/golf";
  const std::vector<std::string> args = {ARBOR_EXE, "-f", golf, "-tstd", "-dstd", "-xstd"};
  const auto plain = testing_support::run_program(args);
  EXPECT_EQ(plain.err, "");

  const std::string out = d.file("stdout");
  arbor_in_pty(args, out);
  EXPECT_EQ(read_file(out), plain.out);
}

// A run long enough to draw (loading a gzip file and growing take well over
// a tenth of a second each on one thread): both phases show on the terminal,
// the line is erased at the end, and standard output is that of a run whose
// standard error is a file, which gets nothing.
TEST(ProgressLine, ArborShowsLoadingAndGrowingOnATerminal) {
  if (!have_pty()) GTEST_SKIP() << "no pseudo-terminal on this system";
  const std::string stem = testing_support::data_dir() + "/kddcup10/kddcup10";
  if (!std::filesystem::exists(stem + ".names")) GTEST_SKIP() << "kddcup10 not found under " << stem;
  scratch_dir d;
  const std::vector<std::string> args = {ARBOR_EXE, "-fm", stem + ".names", "-fd", stem + ".data.gz",
                                         "-ff", "1", "-tstd"};
  const auto plain = testing_support::run_program(args);
  EXPECT_EQ(plain.err, "");

  const std::string out = d.file("stdout");
  const std::string terminal = arbor_in_pty(args, out);
  EXPECT_EQ(read_file(out), plain.out);
  const std::size_t loading = terminal.find("\rloading: "), growing = terminal.find("\rgrowing: ");
  EXPECT_NE(loading, std::string::npos) << terminal;
  EXPECT_NE(growing, std::string::npos) << terminal;
  EXPECT_LT(loading, growing);
  EXPECT_NE(terminal.find(" rows, ", loading), std::string::npos);
  EXPECT_NE(terminal.find(" open, ", growing), std::string::npos);
  EXPECT_TRUE(terminal.size() >= erase.size() && terminal.substr(terminal.size() - erase.size()) == erase)
      << "the line is erased when the run ends";
}

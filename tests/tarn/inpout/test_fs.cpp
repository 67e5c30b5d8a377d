#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "tarn/inpout/fs.h"
#include "tarn/inpout/iofile.h"
#include "test_support.h"

namespace fs = tarn::inpout::fs;
using tarn::inpout::ioconn;
using tarn::inpout::iofile;
using testing_support::scratch_dir;

namespace {

int open_descriptors() {
  int n = 0;
  if (DIR* d = ::opendir("/proc/self/fd")) {
    while (::readdir(d)) ++n;
    ::closedir(d);
  }
  return n;
}

// Identity of what a standard descriptor points at.
std::pair<dev_t, ino_t> identity(int fd) {
  struct stat st {};
  ::fstat(fd, &st);
  return {st.st_dev, st.st_ino};
}

// Runs popen with stdout captured and the child reaped, so that nothing the
// child prints escapes into the test log. Returns the captured text.
std::string launch(const char* file, int mode, bool& result, int& child_status) {
  char* argv[] = {const_cast<char*>(file), nullptr};
  ioconn* ends[2] = {reinterpret_cast<ioconn*>(0x1), reinterpret_cast<ioconn*>(0x2)};
  testing::internal::CaptureStdout();
  result = fs::popen(ends, file, argv, mode);
  ::waitpid(-1, &child_status, 0);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(ends[0], reinterpret_cast<ioconn*>(0x1));
  EXPECT_EQ(ends[1], reinterpret_cast<ioconn*>(0x2));
  return out;
}

}  // namespace

TEST(Fs, PipeConnectsItsTwoEnds) {
  ioconn* ends[2] = {nullptr, nullptr};
  ASSERT_TRUE(fs::pipe(ends));
  ASSERT_NE(ends[0], nullptr);
  ASSERT_NE(ends[1], nullptr);
  EXPECT_TRUE(ends[0]->is_open());
  EXPECT_FALSE(ends[0]->is_random());
  EXPECT_EQ(ends[1]->write("hello", 5), 5);
  char buf[8];
  EXPECT_EQ(ends[0]->read(buf, sizeof buf), 5);
  EXPECT_EQ(std::string(buf, 5), "hello");
  ends[1]->close();
  EXPECT_EQ(ends[0]->read(buf, sizeof buf), 0);  // writer gone
  delete ends[0];
  delete ends[1];
}

TEST(Fs, FileSystemCalls) {
  scratch_dir d;
  std::string fifo = d.file("fifo");
  EXPECT_TRUE(fs::mkfifo(fifo, 0600));
  EXPECT_TRUE(iofile::is_pipe(fifo));
  EXPECT_FALSE(fs::mkfifo(fifo, 0600));  // exists
  EXPECT_FALSE(fs::mkfifo(d.file("no/such/dir"), 0600));

  std::string a = d.write("a", "content");
  EXPECT_TRUE(fs::rename(a, d.file("b")));
  EXPECT_EQ(testing_support::read_file(d.file("b")), "content");
  EXPECT_FALSE(fs::rename(a, d.file("c")));

  EXPECT_TRUE(fs::unlink(d.file("b")));
  EXPECT_FALSE(fs::unlink(d.file("b")));
  EXPECT_TRUE(fs::unlink(fifo));
}

TEST(Fs, PopenTracesAndAlwaysFails) {
  int before = open_descriptors();
  auto out_id = identity(1);
  bool ok = true;
  int status = -1;
  std::string out = launch("true", ioconn::READ, ok, status);
  EXPECT_FALSE(ok);
  // The child's own trace went into the pipe, not to us.
  EXPECT_EQ(out, "* true\n2\n3 true\n2\n");
  EXPECT_EQ(identity(1), out_id);
  EXPECT_EQ(open_descriptors(), before);
}

TEST(Fs, PopenRestoresStandardInput) {
  int before = open_descriptors();
  auto in_id = identity(0);
  bool ok = true;
  int status = -1;
  // Only stdin is redirected, so the child's trace reaches our stdout.
  std::string out = launch("true", ioconn::WRITE, ok, status);
  EXPECT_FALSE(ok);
  EXPECT_EQ(out.rfind("* true\n4\n", 0), 0u) << out;
  EXPECT_NE(out.find("figlio1 true\n4\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("figlio2"), std::string::npos) << out;  // exec worked
  EXPECT_NE(out.find("3 true\n4\n"), std::string::npos) << out;
  EXPECT_EQ(identity(0), in_id);
  EXPECT_EQ(open_descriptors(), before);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(Fs, PopenChildExitsWhenExecFails) {
  // Without redirection the child writes to our (captured) stdout.
  bool ok = true;
  int status = -1;
  std::string out = launch("/nonexistent/program", 0, ok, status);
  EXPECT_FALSE(ok);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(out.rfind("* /nonexistent/program\n0\n", 0), 0u) << out;
  EXPECT_NE(out.find("figlio1 /nonexistent/program\n0\n"), std::string::npos) << out;
  EXPECT_NE(out.find("figlio2 /nonexistent/program\n0\n"), std::string::npos) << out;
  EXPECT_NE(out.find("3 /nonexistent/program\n0\n"), std::string::npos) << out;
}

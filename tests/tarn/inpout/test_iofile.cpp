// Descriptor-level connections, and the pipes, named pipes and child
// processes built on them.

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "tarn/inpout/fs.h"
#include "tarn/inpout/iofile.h"
#include "tarn/inpout/io_test_support.h"
#include "test_support.h"

using namespace tarn::inpout;
using namespace testing_support;

namespace {

constexpr int RW = ioconn::READ | ioconn::WRITE;

int open_descriptors() {
  int n = 0;
  if (DIR* d = ::opendir("/proc/self/fd")) {
    while (::readdir(d)) ++n;
    ::closedir(d);
  }
  return n;
}

// Identity of what a descriptor points at.
std::pair<dev_t, ino_t> identity(int fd) {
  struct stat st {};
  ::fstat(fd, &st);
  return {st.st_dev, st.st_ino};
}

// Runs popen with stdout captured and the child reaped, so that nothing the
// child prints escapes into the test log; checks that popen failed, left the
// slots and our standard streams alone and kept no descriptor. Returns the
// captured text.
std::string launch(const char* file, int mode, int& child_status) {
  const int before = open_descriptors();
  const auto in_id = identity(0);
  char* argv[] = {const_cast<char*>(file), nullptr};
  ioconn* ends[2] = {nullptr, nullptr};
  testing::internal::CaptureStdout();
  EXPECT_FALSE(fs::popen(ends, file, argv, mode));
  ::waitpid(-1, &child_status, 0);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(ends[0], nullptr);
  EXPECT_EQ(ends[1], nullptr);
  EXPECT_EQ(identity(0), in_id);  // stdout is proven by the captured text
  EXPECT_EQ(open_descriptors(), before);
  return out;
}

}  // namespace

TEST(IoFile, WriteAppendSeekAndReadBack) {
  scratch_dir d;
  std::string p = d.file("a.txt");
  iofile f;
  ASSERT_TRUE(f.open(p, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC, 0600));
  EXPECT_EQ(f.get_mode(), 100);
  EXPECT_EQ(f.writeln("hello"), 6);
  EXPECT_EQ(f.close(), 0);
  EXPECT_EQ(f.close(), -1);
  struct stat st;
  ASSERT_EQ(::stat(p.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
  ASSERT_TRUE(f.open(p, ioconn::WRITE | ioconn::APPEND));
  EXPECT_TRUE(f.rewind());
  EXPECT_EQ(f.write("world", 5), 5);  // still lands at the end
  EXPECT_EQ(read_file(p), "hello\nworld");

  ASSERT_TRUE(f.open(p, ioconn::READ));
  EXPECT_TRUE(f.is_random());
  EXPECT_EQ(f.lseek(3, ioconn::LSEEK_SET), 3);
  EXPECT_EQ(f.lseek(3, ioconn::LSEEK_CUR), 6);
  char buf[32];
  EXPECT_EQ(f.read(buf, 2), 2);
  EXPECT_EQ(std::string(buf, 2), "wo");
  EXPECT_EQ(f.lseek(-1, ioconn::LSEEK_END), 10);
  EXPECT_EQ(f.lseek(0, 3), -1);
  EXPECT_FALSE(f.eof());
  EXPECT_EQ(f.read(buf, 32), 1);
  EXPECT_TRUE(f.eof());
  EXPECT_EQ(f.size(), 11);
}

TEST(IoFile, MissingDirectoryAndEmptyFiles) {
  scratch_dir d;
  iofile f;
  char buf[16];
  ASSERT_TRUE(f.open(d.write("e", ""), ioconn::READ));
  EXPECT_EQ(f.size(), 0);
  EXPECT_TRUE(f.eof());
  EXPECT_EQ(f.read(buf, 1), 0);

  EXPECT_FALSE(f.open(d.file("missing"), ioconn::READ));
  EXPECT_EQ(f.read(buf, 1), -1);
  EXPECT_EQ(f.write("x", 1), -1);
  EXPECT_EQ(thrown_text([&] { f.size(); }), "iofile::size(): cannot access file size.");
  EXPECT_TRUE(f.open_mmap(d.file("missing"), ioconn::READ, 0644));  // whatever happened
  EXPECT_FALSE(f.is_open());

  EXPECT_FALSE(f.open(d.path(), ioconn::WRITE));
  ASSERT_TRUE(f.open(d.path(), ioconn::READ));
  EXPECT_EQ(f.read(buf, sizeof buf), -1);
  EXPECT_FALSE(f.is_random());
}

TEST(IoFile, AdoptedDescriptorTakesModeFromOwnerBits) {
  scratch_dir d;
  std::string p = d.write("m", "data");
  iofile f;
  for (auto [perms, mode] : {std::pair<mode_t, int>{0400, ioconn::READ}, {0200, ioconn::WRITE},
                             {0600, RW}, {0077, 0}}) {
    int fd = ::open(p.c_str(), O_RDWR);
    ASSERT_EQ(::fchmod(fd, perms), 0);
    EXPECT_TRUE(f.open(fd));
    EXPECT_EQ(f.get_mode(), mode) << std::oct << perms;
  }
  char buf[8];
  EXPECT_EQ(f.read(buf, 8), 4);
  EXPECT_FALSE(f.open(-1));
}

TEST(IoFile, ResizeAndMapping) {
  scratch_dir d;
  std::string p = d.write("r", "abc");
  iofile f;
  EXPECT_FALSE(f.resize(10));  // not open
  ASSERT_TRUE(f.open(p, ioconn::READ));
  EXPECT_FALSE(f.resize(10));
  ASSERT_TRUE(f.open(p, RW));
  EXPECT_FALSE(f.resize(-1));
  ASSERT_EQ(f.lseek(3, ioconn::LSEEK_SET), 3);
  EXPECT_TRUE(f.resize(3));
  EXPECT_TRUE(f.resize(10));
  EXPECT_EQ(read_file(p), std::string("abc") + std::string(7, '\0'));
  EXPECT_EQ(f.tell(), 3);
  EXPECT_TRUE(f.resize(2));
  EXPECT_EQ(read_file(p), "ab");
  // Growing while positioned beyond the new end moves the position to it.
  ASSERT_EQ(f.lseek(50, ioconn::LSEEK_SET), 50);
  EXPECT_TRUE(f.resize(20));
  EXPECT_EQ(f.size(), 20);
  EXPECT_EQ(f.tell(), 20);

  // Mappings share the file; unmapping or syncing nothing succeeds.
  const long page = iofile::allocation_granularity();
  EXPECT_EQ(page, ::sysconf(_SC_PAGESIZE));
  ASSERT_TRUE(f.resize(2 * page));
  char* m = static_cast<char*>(f.mem_map(page, page));
  ASSERT_NE(m, nullptr);
  std::memcpy(m, "mapped", 6);
  EXPECT_TRUE(f.mem_sync(m, page));
  EXPECT_TRUE(f.mem_unmap(m, page));
  EXPECT_EQ(read_file(p).substr(page, 6), "mapped");
  EXPECT_TRUE(f.mem_unmap(nullptr, page));
  EXPECT_TRUE(f.mem_sync(nullptr, page));
  EXPECT_FALSE(f.mem_unmap(reinterpret_cast<void*>(1), page));
  EXPECT_FALSE(f.mem_sync(reinterpret_cast<void*>(1), page));
}

TEST(IoFile, CopyReservesPositionPlusRemainingSourceBytes) {
  scratch_dir d;
  std::string content;
  for (int i = 10000; i < 11000; ++i) content += std::to_string(i);
  std::string p = d.write("dst", std::string(200, 'o')), s = d.write("src", content);
  iofile f, src;
  ASSERT_TRUE(f.open(p, ioconn::WRITE));
  // A write-only source yields no byte: the file shows the reservation alone.
  ASSERT_TRUE(src.open(s, ioconn::WRITE));
  ASSERT_EQ(src.lseek(1000, ioconn::LSEEK_SET), 1000);
  ASSERT_EQ(f.lseek(4, ioconn::LSEEK_SET), 4);
  EXPECT_EQ(f.copy(src), 0);
  EXPECT_EQ(f.size(), 4 + 4000);
  ASSERT_EQ(src.lseek(4990, ioconn::LSEEK_SET), 4990);
  EXPECT_EQ(f.copy(src), 0);  // less than the file holds: it shrinks
  EXPECT_EQ(f.size(), 14);
  // Neither a limited copy nor a sequential source reserves anything.
  ASSERT_EQ(src.lseek(0, ioconn::LSEEK_SET), 0);
  EXPECT_EQ(f.copy(src, 3000), 0);
  spy_conn sequential(ioconn::READ);
  EXPECT_EQ(f.copy(sequential), 0);
  EXPECT_EQ(f.size(), 14);

  ASSERT_TRUE(src.open(s, ioconn::READ));
  ASSERT_EQ(f.lseek(2, ioconn::LSEEK_SET), 2);
  EXPECT_EQ(f.copy(src), 5000);
  EXPECT_EQ(read_file(p), "oo" + content);
}

TEST(Fs, PipesAndFileSystemCalls) {
  ioconn* ends[2] = {nullptr, nullptr};
  ASSERT_TRUE(fs::pipe(ends));  // reading end first
  EXPECT_EQ(ends[1]->write("hello", 5), 5);
  char buf[8];
  EXPECT_EQ(ends[0]->read(buf, sizeof buf), 5);
  EXPECT_EQ(std::string(buf, 5), "hello");
  delete ends[0];
  delete ends[1];

  scratch_dir d;
  std::string fifo = d.file("fifo"), a = d.write("a", "content");
  EXPECT_TRUE(fs::mkfifo(fifo, 0600));
  EXPECT_FALSE(fs::mkfifo(fifo, 0600));  // exists
  EXPECT_TRUE(iofile::is_pipe(fifo));
  EXPECT_FALSE(iofile::is_pipe(a));
  EXPECT_FALSE(iofile::is_pipe(d.path()));
  EXPECT_TRUE(fs::rename(a, d.file("b")));
  EXPECT_FALSE(fs::rename(a, d.file("c")));
  EXPECT_EQ(read_file(d.file("b")), "content");
  EXPECT_TRUE(fs::unlink(d.file("b")));
  EXPECT_FALSE(fs::unlink(d.file("b")));
  EXPECT_FALSE(iofile::is_pipe(d.file("b")));
}

TEST(Fs, PopenTracesEveryStepAndAlwaysFails) {
  int status = -1;
  // Redirected stdout: the child's own trace went into the pipe, not to us.
  EXPECT_EQ(launch("true", ioconn::READ, status), "* true\n2\n3 true\n2\n");
  // Only stdin redirected: the child's trace reaches us; exec works.
  std::string out = launch("true", ioconn::WRITE, status);
  EXPECT_NE(out.find("figlio1 true\n4\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("figlio2"), std::string::npos) << out;
  // A failed exec still exits the child with status 0.
  out = launch("/nonexistent/program", 0, status);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(out.rfind("* /nonexistent/program\n0\n", 0), 0u) << out;
  EXPECT_NE(out.find("figlio1 /nonexistent/program\n0\n"), std::string::npos) << out;
  EXPECT_NE(out.find("figlio2 /nonexistent/program\n0\n"), std::string::npos) << out;
  EXPECT_NE(out.find("3 /nonexistent/program\n0\n"), std::string::npos) << out;
}

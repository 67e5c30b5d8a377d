#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarn/inpout/iobuf.h"
#include "tarn/inpout/iofile.h"
#include "tarn/inpout/spy_conn.h"
#include "test_support.h"

using tarn::inpout::ioconn;
using tarn::inpout::iobuf;
using tarn::inpout::iofile;
using testing_support::scratch_dir;
using testing_support::spy_conn;
using V = std::vector<int>;

namespace {

std::string pattern(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>(i * 7 % 251);
  return s;
}

std::string take(iobuf& b, int n) {
  std::string s(n, '\0');
  int r = b.read(s.data(), n);
  s.resize(r > 0 ? r : 0);
  return s;
}

bool halving_step(unsigned cap) {
  for (unsigned v = INT_MAX; v >= 1024; v /= 2)
    if (cap == v) return true;
  return false;
}

}  // namespace

TEST(IoBuf, OpenRefusesNullAndReadWriteConnections) {
  spy_conn reader(ioconn::READ), both(ioconn::READ | ioconn::WRITE);
  iobuf b;
  EXPECT_FALSE(b.open(nullptr, false, 10));
  ASSERT_TRUE(b.open(&reader, false, 10));
  EXPECT_FALSE(b.open(nullptr, false, 10));  // leaves the open one alone
  EXPECT_TRUE(b.is_open());
  try {
    b.open(&both, false, 10);
    FAIL() << "a READ|WRITE connection must be refused";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "iobuf::open: IOBuffers are either READ or WRITE, not both.");
  }
  EXPECT_EQ(reader.closes, 1);  // closed before the check
  EXPECT_FALSE(b.is_open());
  EXPECT_EQ(both.closes, 0);
}

TEST(IoBuf, BufferSizes) {
  spy_conn c(ioconn::READ);
  iobuf b;
  for (auto [asked, got] : {std::pair<unsigned, unsigned>{10, 1024}, {0, 1024}, {1024, 1024},
                            {1025, 1025}, {65536, 65536}}) {
    ASSERT_TRUE(b.open(&c, false, asked));
    EXPECT_EQ(b.capacity(), got) << asked;
  }
  ASSERT_TRUE(b.open(&c, false, static_cast<unsigned>(-1)));
  EXPECT_TRUE(halving_step(b.capacity())) << b.capacity();
}

TEST(IoBuf, HugeRequestHalvesUntilAllocationSucceeds) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "address-space limits do not mix with sanitizers";
#endif
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  ASSERT_GT(pages, 0);
  const unsigned long long slack = 100ull << 20;
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    // Only about 100 MiB of address space left: 2 GiB down to 128 MiB fail.
    rlimit lim{};
    lim.rlim_cur = lim.rlim_max = pages * iofile::allocation_granularity() + slack;
    if (setrlimit(RLIMIT_AS, &lim) != 0) _exit(2);
    spy_conn c(ioconn::READ);
    iobuf b;
    b.open(&c, false, static_cast<unsigned>(-1));
    unsigned cap = b.capacity();
    _exit(halving_step(cap) && cap < slack && cap >= (16u << 20) ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(IoBuf, SmallReadsComeFromOneRefill) {
  std::string content = pattern(5000);
  spy_conn c(ioconn::READ, content);
  iobuf b(&c, false, 1024);
  EXPECT_EQ(take(b, 100), content.substr(0, 100));
  EXPECT_EQ(take(b, 900), content.substr(100, 900));
  EXPECT_EQ(c.reads, V{1024});
  EXPECT_EQ(b.read(nullptr, 0), 0);
  EXPECT_EQ(b.read(nullptr, -1), 0);
  // 24 left: handed over, then one whole-buffer refill for the other 76.
  EXPECT_EQ(take(b, 100), content.substr(1000, 100));
  EXPECT_EQ(c.reads, (V{1024, 1024}));
  EXPECT_EQ(b.tell(), 1100);
}

TEST(IoBuf, LargeReadBypassesTheBuffer) {
  std::string content = pattern(5000);
  spy_conn c(ioconn::READ, content);
  iobuf b(&c, false, 1024);
  EXPECT_EQ(take(b, 100), content.substr(0, 100));
  // 924 buffered bytes first, then 2076 straight from the connection.
  EXPECT_EQ(take(b, 3000), content.substr(100, 3000));
  EXPECT_EQ(c.reads, (V{1024, 2076}));
  EXPECT_EQ(b.tell(), 3100);
  EXPECT_EQ(take(b, 5000), content.substr(3100));  // 1900 left, straight
  EXPECT_EQ(c.reads, (V{1024, 2076, 5000}));
  EXPECT_TRUE(b.eof());
  EXPECT_EQ(take(b, 10), "");
}

TEST(IoBuf, EofWaitsForTheBufferedBytes) {
  spy_conn c(ioconn::READ, pattern(100));
  iobuf b(&c, false, 1024);
  EXPECT_EQ(take(b, 50).size(), 50u);
  EXPECT_TRUE(c.eof());
  EXPECT_FALSE(b.eof());
  EXPECT_EQ(take(b, 80).size(), 50u);  // a short refill ends the data
  EXPECT_TRUE(b.eof());
}

TEST(IoBuf, TellAfterRefillIsTheLogicalPosition) {
  scratch_dir d;
  std::string content = pattern(5000);
  auto* f = new iofile;
  ASSERT_TRUE(f->open(d.write("f", content), ioconn::READ));
  iobuf b(f, true, 1024);
  EXPECT_EQ(take(b, 10), content.substr(0, 10));
  EXPECT_EQ(f->tell(), 1024);
  EXPECT_EQ(b.tell(), 10);
  EXPECT_EQ(b.size(), 5000);
  EXPECT_TRUE(b.is_random());
  EXPECT_EQ(b.get_mode(), ioconn::READ);
}

TEST(IoBuf, RelativeSeekCountsFromTheConnection) {
  scratch_dir d;
  std::string content = pattern(5000);
  auto* f = new iofile;
  ASSERT_TRUE(f->open(d.write("f", content), ioconn::READ));
  iobuf b(f, true, 1024);
  take(b, 10);
  // The connection is 1024 ahead; LSEEK_CUR starts there, not at 10.
  EXPECT_EQ(b.lseek(5, ioconn::LSEEK_CUR), 1029);
  EXPECT_EQ(take(b, 3), content.substr(1029, 3));
  EXPECT_EQ(b.lseek(10, ioconn::LSEEK_SET), 10);
  EXPECT_EQ(take(b, 3), content.substr(10, 3));
  EXPECT_TRUE(b.rewind());
  EXPECT_EQ(b.tell(), 0);
  EXPECT_EQ(take(b, 3), content.substr(0, 3));
}

TEST(IoBuf, WritesAreCollectedThenFlushed) {
  spy_conn c(ioconn::WRITE);
  iobuf b(&c, false, 1024);
  std::string a = pattern(100), m = pattern(1000), big = pattern(2000);
  EXPECT_EQ(b.write(a.data(), 100), 100);
  EXPECT_TRUE(c.writes.empty());
  EXPECT_EQ(b.tell(), 100);
  EXPECT_EQ(b.write(m.data(), 1000), 1000);  // no room: flush first
  EXPECT_EQ(c.writes, V{100});
  // Larger than the buffer: flush, then straight through.
  EXPECT_EQ(b.write(big.data(), 2000), 2000);
  EXPECT_EQ(c.writes, (V{100, 1000, 2000}));
  EXPECT_EQ(b.write("tail", 4), 4);
  EXPECT_EQ(b.write("x", 0), 0);
  EXPECT_EQ(b.tell(), 3104);
  EXPECT_EQ(b.close(), 0);
  EXPECT_EQ(c.writes, (V{100, 1000, 2000, 4}));
  EXPECT_EQ(c.data, a + m + big + "tail");
  EXPECT_EQ(c.closes, 1);
}

TEST(IoBuf, StraightWriteReportsTheConnectionResult) {
  spy_conn c(ioconn::WRITE);
  c.fail_writes = true;
  iobuf b(&c, false, 1024);
  std::string big = pattern(2000);
  EXPECT_EQ(b.write(big.data(), 2000), -1);
  EXPECT_EQ(b.write("abc", 3), 3);  // buffered: nothing is tried yet
  EXPECT_EQ(b.write(big.data(), 1500), -1);  // the flush fails
}

TEST(IoBuf, SeekAndRewindFlushWhenWriting) {
  spy_conn c(ioconn::WRITE);
  iobuf b(&c, false, 1024);
  b.write("abcdef", 6);
  EXPECT_TRUE(b.rewind());
  EXPECT_EQ(c.data, "abcdef");
  b.write("XY", 2);
  EXPECT_EQ(b.lseek(1, ioconn::LSEEK_END), 7);
  EXPECT_EQ(c.data, "XYcdef");
  b.close();
}

TEST(IoBuf, OwnedConnectionIsDeletedOnClose) {
  bool destroyed = false;
  {
    iobuf b(new spy_conn(ioconn::READ, "abc", &destroyed), true, 10);
    EXPECT_TRUE(b.is_open());
    EXPECT_EQ(b.close(), 0);
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(b.is_open());
    EXPECT_EQ(b.capacity(), 0u);
    EXPECT_EQ(b.close(), -1);
  }
  destroyed = false;
  { iobuf b(new spy_conn(ioconn::READ, "abc", &destroyed), true, 10); }
  EXPECT_TRUE(destroyed);
  destroyed = false;
  spy_conn kept(ioconn::WRITE, "", &destroyed);
  {
    iobuf b(&kept, false, 10);
    b.write("zz", 2);
  }
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(kept.closes, 1);
  EXPECT_EQ(kept.data, "zz");
}

TEST(IoBuf, ClosedBufferRefusesTransfers) {
  iobuf b;
  char c;
  EXPECT_FALSE(b.is_open());
  EXPECT_EQ(b.read(&c, 1), -1);
  EXPECT_EQ(b.write("x", 1), -1);
  EXPECT_TRUE(b.eof());
  EXPECT_EQ(b.tell(), -1);
  EXPECT_EQ(b.get_mode(), 0);
}

TEST(IoBuf, RoundTripThroughFiles) {
  scratch_dir d;
  std::string content = pattern(300000);
  std::string p = d.file("round");
  {
    auto* f = new iofile;
    ASSERT_TRUE(f->open(p, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC));
    iobuf b(f, true, 4096);
    size_t at = 0;
    for (int step = 1; at < content.size(); step = step * 3 % 10007) {
      int n = static_cast<int>(std::min<size_t>(step, content.size() - at));
      ASSERT_EQ(b.write(content.data() + at, n), n);
      at += n;
    }
  }
  ASSERT_EQ(testing_support::read_file(p), content);
  auto* f = new iofile;
  ASSERT_TRUE(f->open(p, ioconn::READ));
  iobuf b(f, true, 4096);
  std::string back;
  for (int step = 1; !b.eof(); step = step * 5 % 9973) back += take(b, step);
  EXPECT_EQ(back, content);
}

TEST(IoBuf, DirectoryReadFailsWithoutHanging) {
  scratch_dir d;
  auto* f = new iofile;
  ASSERT_TRUE(f->open(d.path(), ioconn::READ));
  iobuf b(f, true, 1024);
  char buf[100];
  EXPECT_EQ(b.read(buf, 100), -1);
  EXPECT_EQ(b.read(buf, 5000), -1);
}

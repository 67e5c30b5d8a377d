// The behaviour every connection inherits from ioconn, and the buffering
// adapter that goes over any connection; both are watched through spy_conn.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "tarn/inpout/io_test_support.h"
#include "tarn/inpout/iobuf.h"
#include "tarn/inpout/iofile.h"
#include "test_support.h"

using namespace tarn::inpout;
using namespace testing_support;
using V = std::vector<int>;

namespace {

// Keeps the base lseek, which refuses every seek.
class unseekable : public ioconn {
public:
  int close() override { return 0; }
  bool is_open() const override { return true; }
  int get_mode() const override { return READ; }
  int write(const void*, int n) override { return n; }
  int read(void*, int) override { return 0; }
};

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

}  // namespace

TEST(IoConn, PositionQueriesBuiltOnLseek) {
  unseekable u;
  EXPECT_EQ(thrown_text([&] { u.eof(); }), "lseek not available");
  EXPECT_EQ(thrown_text([&] { u.rewind(); }), "lseek not available");
  EXPECT_FALSE(u.is_random());

  spy_conn c(ioconn::READ, "0123456789");
  c.lseek(4, ioconn::LSEEK_SET);
  EXPECT_EQ(c.size(), 10);
  EXPECT_EQ(c.tell(), 4);  // size() put the position back
  EXPECT_FALSE(c.eof());
  c.lseek(0, ioconn::LSEEK_END);
  EXPECT_TRUE(c.eof());
  EXPECT_TRUE(c.rewind());
  EXPECT_EQ(c.tell(), 0);
}

TEST(IoConn, WritelnAndCopy) {
  spy_conn w(ioconn::WRITE);
  EXPECT_EQ(w.writeln("abc"), 4);
  EXPECT_EQ(w.writeln(""), 1);
  EXPECT_EQ(w.data, "abc\n\n");

  std::string content = pattern(200000);
  spy_conn src(ioconn::READ, content), dst(ioconn::WRITE);
  EXPECT_EQ(dst.copy(src), 200000);
  EXPECT_EQ(dst.data, content);
  EXPECT_EQ(src.reads, V(5, 65536));  // the last one finds nothing
  EXPECT_EQ(dst.writes, (V{65536, 65536, 65536, 200000 - 3 * 65536}));

  spy_conn lsrc(ioconn::READ, content), ldst(ioconn::WRITE);
  EXPECT_EQ(ldst.copy(lsrc, 70000), 70000);
  EXPECT_EQ(lsrc.reads, (V{65536, 70000 - 65536}));
  EXPECT_EQ(ldst.data, content.substr(0, 70000));
  spy_conn shrt(ioconn::READ, "short");
  EXPECT_EQ(ldst.copy(shrt, 1000), 5);
  EXPECT_EQ(ldst.copy(lsrc, 0), 0);
  EXPECT_EQ(ldst.copy(lsrc, -5), 0);
  EXPECT_EQ(lsrc.reads.size(), 2u);

  // A failed write ends either copy.
  spy_conn fsrc(ioconn::READ, content), fdst(ioconn::WRITE);
  fdst.fail_writes = true;
  EXPECT_EQ(fdst.copy(fsrc), 0);
  EXPECT_EQ(fdst.copy(fsrc, 50), 0);
  EXPECT_EQ(fsrc.reads.size(), 2u);
}

TEST(IoBuf, OpenRulesAndSizes) {
  spy_conn reader(ioconn::READ), both(ioconn::READ | ioconn::WRITE);
  iobuf b;
  EXPECT_FALSE(b.open(nullptr, false, 10));
  for (auto [asked, got] : {std::pair<unsigned, unsigned>{10, 1024}, {0, 1024}, {1025, 1025}}) {
    ASSERT_TRUE(b.open(&reader, false, asked));
    EXPECT_EQ(b.capacity(), got) << asked;
  }
  EXPECT_FALSE(b.open(nullptr, false, 10));  // leaves the open one alone
  EXPECT_EQ(b.capacity(), 1025u);
  EXPECT_EQ(thrown_text([&] { b.open(&both, false, 10); }),
            "iobuf::open: IOBuffers are either READ or WRITE, not both.");
  EXPECT_EQ(reader.closes, 3);  // closed before the check
  EXPECT_FALSE(b.is_open());
}

// GCC announces its sanitizers with macros, clang through __has_feature.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ARBOR_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ARBOR_SANITIZED 1
#endif
#endif

TEST(IoBuf, HugeRequestHalvesUntilAllocationSucceeds) {
#ifdef ARBOR_SANITIZED
  GTEST_SKIP() << "address-space limits do not mix with sanitizers";
#endif
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    // About 100 MiB of address space left: 2 GiB down to 128 MiB fail, and
    // halving INT_MAX always leaves a value of the form 2^k - 1.
    rlimit lim{};
    lim.rlim_cur = lim.rlim_max = pages * iofile::allocation_granularity() + (100 << 20);
    if (setrlimit(RLIMIT_AS, &lim) != 0) _exit(2);
    spy_conn c(ioconn::READ);
    iobuf b(&c, false, static_cast<unsigned>(-1));
    unsigned cap = b.capacity();
    _exit((cap & (cap + 1)) == 0 && cap >= (16u << 20) && cap < (100u << 20) ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(IoBuf, ReadsRefillOrBypassTheBuffer) {
  std::string content = pattern(5000);
  spy_conn c(ioconn::READ, content);
  iobuf b(&c, false, 1024);
  EXPECT_EQ(take(b, 100), content.substr(0, 100));
  EXPECT_EQ(take(b, 900), content.substr(100, 900));
  EXPECT_EQ(b.read(nullptr, 0), 0);
  EXPECT_EQ(c.reads, V{1024});
  // 24 left: handed over, then one whole-buffer refill for the other 76.
  EXPECT_EQ(take(b, 100), content.substr(1000, 100));
  EXPECT_EQ(c.reads, (V{1024, 1024}));
  // 948 buffered bytes first, then 2052 straight from the connection.
  EXPECT_EQ(take(b, 3000), content.substr(1100, 3000));
  EXPECT_EQ(c.reads, (V{1024, 1024, 2052}));
  EXPECT_EQ(take(b, 850), content.substr(4100, 850));
  EXPECT_TRUE(c.eof());
  EXPECT_FALSE(b.eof());  // 50 bytes still buffered
  EXPECT_EQ(take(b, 80), content.substr(4950));
  EXPECT_TRUE(b.eof());
  EXPECT_EQ(take(b, 10), "");
}

TEST(IoBuf, TellAndSeekOverAFile) {
  scratch_dir d;
  std::string content = pattern(5000);
  auto* f = new iofile;
  ASSERT_TRUE(f->open(d.write("f", content), ioconn::READ));
  iobuf b(f, true, 1024);
  EXPECT_EQ(take(b, 10), content.substr(0, 10));
  EXPECT_EQ(f->tell(), 1024);
  EXPECT_EQ(b.tell(), 10);  // the logical position, not the file's
  // The file is 1024 ahead; LSEEK_CUR starts there, not at 10.
  EXPECT_EQ(b.lseek(5, ioconn::LSEEK_CUR), 1029);
  EXPECT_EQ(take(b, 3), content.substr(1029, 3));
  EXPECT_EQ(b.lseek(10, ioconn::LSEEK_SET), 10);
  EXPECT_EQ(take(b, 3), content.substr(10, 3));
  EXPECT_TRUE(b.rewind());
  EXPECT_EQ(take(b, 3), content.substr(0, 3));
  EXPECT_EQ(b.tell(), 3);

  // A directory opens for reading; its read error comes through either way.
  auto* dir = new iofile;
  ASSERT_TRUE(dir->open(d.path(), ioconn::READ));
  ASSERT_TRUE(b.open(dir, true, 1024));
  char buf[100];
  EXPECT_EQ(b.read(buf, 100), -1);
  EXPECT_EQ(b.read(buf, 5000), -1);
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
  EXPECT_TRUE(b.rewind());  // flushes
  EXPECT_EQ(c.data, a + m + big + "tail");
  b.write("XY", 2);
  EXPECT_EQ(b.lseek(0, ioconn::LSEEK_END), 3104);  // flushes too
  EXPECT_EQ(c.data.substr(0, 3), "XY" + a.substr(2, 1));

  // A failing connection: the straight write's result, then a failed flush.
  c.fail_writes = true;
  EXPECT_EQ(b.write(big.data(), 2000), -1);
  EXPECT_EQ(b.write("abc", 3), 3);  // buffered: nothing is tried yet
  EXPECT_EQ(b.write(big.data(), 1500), -1);
}

TEST(IoBuf, CloseFlushesAndDeletesOnlyAnOwnedConnection) {
  bool destroyed = false;
  iobuf b(new spy_conn(ioconn::READ, "abc", &destroyed), true, 10);
  EXPECT_EQ(b.close(), 0);
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(b.close(), -1);
  EXPECT_EQ(b.write("x", 1), -1);
  destroyed = false;
  spy_conn kept(ioconn::WRITE, "", &destroyed);
  {
    iobuf user(&kept, false, 10);
    user.write("zz", 2);
  }
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(kept.closes, 1);
  EXPECT_EQ(kept.data, "zz");  // flushed on destruction
}

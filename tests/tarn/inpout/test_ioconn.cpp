// Behaviour every connection inherits from ioconn, and the open-mode mapping.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tarn/inpout/ioconn.h"
#include "tarn/inpout/spy_conn.h"

using tarn::inpout::ioconn;
using testing_support::spy_conn;

namespace {

// A connection that keeps the base lseek, which refuses every seek.
class unseekable : public ioconn {
public:
  int close() override { return 0; }
  bool is_open() const override { return true; }
  int get_mode() const override { return READ; }
  int write(const void*, int n) override { return n; }
  int read(void*, int) override { return 0; }
};

template <class F>
std::string thrown_text(F f) {
  try {
    f();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "<nothing thrown>";
}

}  // namespace

TEST(IoConn, PositionQueriesWithoutLseekThrow) {
  unseekable c;
  EXPECT_EQ(thrown_text([&] { c.lseek(0, ioconn::LSEEK_SET); }), "lseek not available");
  EXPECT_EQ(thrown_text([&] { c.tell(); }), "lseek not available");
  EXPECT_EQ(thrown_text([&] { c.size(); }), "lseek not available");
  EXPECT_EQ(thrown_text([&] { c.eof(); }), "lseek not available");
  EXPECT_EQ(thrown_text([&] { c.rewind(); }), "lseek not available");
  EXPECT_FALSE(c.is_random());
}

TEST(IoConn, SizeEofRewindBuiltOnLseek) {
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

TEST(IoConn, WritelnAppendsOneNewline) {
  spy_conn c(ioconn::WRITE);
  EXPECT_EQ(c.writeln("abc"), 4);
  EXPECT_EQ(c.writeln(""), 1);
  EXPECT_EQ(c.data, "abc\n\n");
  EXPECT_EQ(c.writes, (std::vector<int>{3, 1, 0, 1}));
}

TEST(IoConn, CopyMovesEverythingInChunks) {
  std::string content(200000, 'x');
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>('a' + i % 26);
  spy_conn src(ioconn::READ, content), dst(ioconn::WRITE);
  EXPECT_EQ(dst.copy(src), 200000);
  EXPECT_EQ(dst.data, content);
  EXPECT_EQ(src.reads, std::vector<int>(5, 65536));  // the last one finds nothing
  EXPECT_EQ(dst.writes, (std::vector<int>{65536, 65536, 65536, 200000 - 3 * 65536}));
}

TEST(IoConn, CopyStopsAtFailedWrite) {
  spy_conn src(ioconn::READ, std::string(100000, 'x')), dst(ioconn::WRITE);
  dst.fail_writes = true;
  EXPECT_EQ(dst.copy(src), 0);
  EXPECT_EQ(src.reads.size(), 1u);
  EXPECT_EQ(dst.copy(src, 50), 0);
}

TEST(IoConn, CopyWithLimit) {
  std::string content(100000, 'y');
  {
    spy_conn src(ioconn::READ, content), dst(ioconn::WRITE);
    EXPECT_EQ(dst.copy(src, 70000), 70000);
    EXPECT_EQ(src.reads, (std::vector<int>{65536, 70000 - 65536}));
    EXPECT_EQ(dst.data.size(), 70000u);
    EXPECT_EQ(src.tell(), 70000);
  }
  {
    spy_conn src(ioconn::READ, "short"), dst(ioconn::WRITE);
    EXPECT_EQ(dst.copy(src, 1000), 5);
    EXPECT_EQ(dst.data, "short");
  }
  for (long long n : {0LL, -5LL}) {
    spy_conn src(ioconn::READ, "abc"), dst(ioconn::WRITE);
    EXPECT_EQ(dst.copy(src, n), 0);
    EXPECT_TRUE(src.reads.empty());
  }
}

TEST(IoConn, OpenFlagsFromMode) {
  EXPECT_EQ(tarn::inpout::open_flags(ioconn::READ), O_RDONLY);
  EXPECT_EQ(tarn::inpout::open_flags(0), O_RDONLY);
  EXPECT_EQ(tarn::inpout::open_flags(ioconn::WRITE), O_WRONLY);
  EXPECT_EQ(tarn::inpout::open_flags(ioconn::READ | ioconn::WRITE), O_RDWR);
  EXPECT_EQ(tarn::inpout::open_flags(ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC),
            O_WRONLY | O_CREAT | O_TRUNC);
  EXPECT_EQ(ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC, 100);
  EXPECT_EQ(tarn::inpout::open_flags(ioconn::READ | ioconn::APPEND), O_RDONLY | O_APPEND);
  EXPECT_EQ(tarn::inpout::open_flags(ioconn::APPEND | ioconn::CREATE), O_RDONLY | O_APPEND | O_CREAT);
}

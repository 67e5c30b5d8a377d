#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "tarn/inpout/iomem.h"

using tarn::inpout::ioconn;
using tarn::inpout::iomem;

namespace {

std::string contents(const iomem& m, long long n) { return std::string(m.data(), n); }

}  // namespace

TEST(IoMem, OwnedBlockGrowsByShortfallPlusHalf) {
  iomem m;
  ASSERT_TRUE(m.open(100));
  EXPECT_EQ(m.capacity(), 100u);
  EXPECT_EQ(m.size(), 0);
  std::string first(90, 'a'), second(30, 'b');
  EXPECT_EQ(m.write(first.data(), 90), 90);
  EXPECT_EQ(m.capacity(), 100u);
  EXPECT_EQ(m.write(second.data(), 30), 30);  // 20 short
  EXPECT_EQ(m.capacity(), 170u);
  EXPECT_EQ(m.size(), 120);
  EXPECT_EQ(m.tell(), 120);
  EXPECT_EQ(contents(m, 120), first + second);
  // Exactly filling the room does not grow.
  std::string fill(50, 'c');
  EXPECT_EQ(m.write(fill.data(), 50), 50);
  EXPECT_EQ(m.capacity(), 170u);
}

TEST(IoMem, OverwriteInsideKeepsTheSize) {
  iomem m;
  m.open(16);
  m.writeln("0123456789");
  EXPECT_EQ(m.size(), 11);
  EXPECT_EQ(m.lseek(2, ioconn::LSEEK_SET), 2);
  EXPECT_EQ(m.write("xy", 2), 2);
  EXPECT_EQ(m.size(), 11);
  EXPECT_EQ(contents(m, 11), "01xy456789\n");
}

TEST(IoMem, CallersBlockIsNeverGrown) {
  char block[8] = {'a', 'b', 'c', 'd', 0, 0, 0, 0};
  iomem m;
  ASSERT_TRUE(m.open(block, sizeof block, 4));
  EXPECT_EQ(m.size(), 4);
  EXPECT_EQ(m.lseek(0, ioconn::LSEEK_END), 4);
  EXPECT_EQ(m.write("123456", 6), 4);  // cut to the room left
  EXPECT_EQ(m.capacity(), 8u);
  EXPECT_EQ(m.size(), 8);
  EXPECT_EQ(std::string(block, 8), "abcd1234");
  EXPECT_EQ(m.write("x", 1), 0);
  // Seeking past the end stops at the end.
  EXPECT_EQ(m.lseek(100, ioconn::LSEEK_SET), 8);
  m.close();
  EXPECT_EQ(std::string(block, 8), "abcd1234");  // not freed, not touched
}

TEST(IoMem, SeekBeyondTheEndExtendsAnOwnedBlock) {
  iomem m;
  m.open(100);
  m.write("0123456789", 10);
  // Past the size but inside the capacity: size follows, capacity stays.
  EXPECT_EQ(m.lseek(60, ioconn::LSEEK_SET), 60);
  EXPECT_EQ(m.size(), 60);
  EXPECT_EQ(m.capacity(), 100u);
  // Past the capacity: target plus half the old capacity.
  EXPECT_EQ(m.lseek(90, ioconn::LSEEK_CUR), 150);
  EXPECT_EQ(m.size(), 150);
  EXPECT_EQ(m.tell(), 150);
  EXPECT_EQ(m.capacity(), 200u);
  EXPECT_EQ(contents(m, 10), "0123456789");
  EXPECT_EQ(m.lseek(-50, ioconn::LSEEK_END), 100);
  EXPECT_EQ(m.size(), 150);
  EXPECT_TRUE(m.rewind());
  EXPECT_EQ(m.tell(), 0);
}

TEST(IoMem, BadSeeksLeaveThePosition) {
  iomem m;
  m.open(10);
  m.write("abc", 3);
  EXPECT_EQ(m.lseek(0, 7), -1);
  EXPECT_EQ(m.lseek(-4, ioconn::LSEEK_CUR), -1);
  EXPECT_EQ(m.tell(), 3);
  try {
    m.lseek(1LL << 33, ioconn::LSEEK_SET);
    FAIL() << "a target beyond 32 bits cannot be held";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Out of memory");
  }
  EXPECT_EQ(m.tell(), 3);
  EXPECT_EQ(m.size(), 3);
}

TEST(IoMem, ReadStopsAtTheSize) {
  char block[] = "hello world";
  iomem m;
  m.open(block, sizeof block, 11);
  char buf[32];
  EXPECT_EQ(m.read(buf, 0), 0);
  EXPECT_EQ(m.read(buf, -3), 0);
  EXPECT_EQ(m.read(buf, 5), 5);
  EXPECT_EQ(std::string(buf, 5), "hello");
  EXPECT_FALSE(m.eof());
  EXPECT_EQ(m.read(buf, 32), 6);
  EXPECT_EQ(std::string(buf, 6), " world");
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.read(buf, 32), 0);
}

TEST(IoMem, ModeAndRandomAccess) {
  iomem m;
  EXPECT_FALSE(m.is_open());
  EXPECT_EQ(m.get_mode(), ioconn::READ | ioconn::WRITE);
  m.open(4);
  EXPECT_TRUE(m.is_open());
  // Random access only when used as an iomem; through the base interface
  // the const query answers false.
  EXPECT_TRUE(m.is_random());
  const ioconn& base = m;
  EXPECT_FALSE(base.is_random());
}

TEST(IoMem, CloseAndReopenClearEverything) {
  iomem m;
  m.open(10);
  m.write("abcdef", 6);
  EXPECT_EQ(m.close(), 0);
  EXPECT_FALSE(m.is_open());
  EXPECT_EQ(m.size(), 0);
  EXPECT_EQ(m.tell(), 0);
  EXPECT_EQ(m.capacity(), 0u);
  EXPECT_EQ(m.write("x", 1), 0);  // nothing to write into
  m.open(10);
  m.write("abcdef", 6);
  char other[4] = {'w', 'x', 'y', 'z'};
  m.open(other, 4, 2);
  EXPECT_EQ(m.size(), 2);
  EXPECT_EQ(m.tell(), 0);
  char buf[4];
  EXPECT_EQ(m.read(buf, 4), 2);
  EXPECT_EQ(std::string(buf, 2), "wx");
}

TEST(IoMem, ZeroCapacityBlockGrowsOnFirstWrite) {
  iomem m;
  ASSERT_TRUE(m.open(0u));
  EXPECT_TRUE(m.is_open());
  EXPECT_EQ(m.write("abc", 3), 3);
  EXPECT_EQ(m.capacity(), 3u);
  EXPECT_EQ(contents(m, 3), "abc");
}

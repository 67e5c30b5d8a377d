#include <gtest/gtest.h>

#include <string>

#include "tarn/inpout/io_test_support.h"
#include "tarn/inpout/iomem.h"

using namespace tarn::inpout;
using namespace testing_support;

TEST(IoMem, OwnedBlockGrowsByShortfallPlusHalf) {
  iomem m;
  ASSERT_TRUE(m.open(100));
  std::string first(90, 'a'), second(30, 'b');
  EXPECT_EQ(m.write(first.data(), 90), 90);
  EXPECT_EQ(m.capacity(), 100u);
  EXPECT_EQ(m.write(second.data(), 30), 30);  // 20 short
  EXPECT_EQ(m.capacity(), 170u);
  EXPECT_EQ(m.size(), 120);
  EXPECT_EQ(std::string(m.data(), 120), first + second);
  std::string fill(50, 'c');
  EXPECT_EQ(m.write(fill.data(), 50), 50);  // exactly fills the room
  EXPECT_EQ(m.capacity(), 170u);
  // Overwriting inside keeps the size.
  EXPECT_EQ(m.lseek(2, ioconn::LSEEK_SET), 2);
  EXPECT_EQ(m.writeln("xy"), 3);
  EXPECT_EQ(m.size(), 170);
  EXPECT_EQ(std::string(m.data(), 6), "aaxy\na");

  ASSERT_TRUE(m.open(0u));
  EXPECT_EQ(m.write("abc", 3), 3);
  EXPECT_EQ(m.capacity(), 3u);
  EXPECT_EQ(std::string(m.data(), 3), "abc");
}

TEST(IoMem, CallersBlockIsClampedNeverGrown) {
  char block[8] = {'a', 'b', 'c', 'd', 0, 0, 0, 0};
  iomem m;
  ASSERT_TRUE(m.open(block, sizeof block, 4));
  char buf[16];
  EXPECT_EQ(m.read(buf, 0), 0);
  EXPECT_EQ(m.read(buf, 3), 3);
  EXPECT_FALSE(m.eof());
  EXPECT_EQ(m.read(buf, 16), 1);  // stops at the size
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.write("123456", 6), 4);  // cut to the room left
  EXPECT_EQ(m.capacity(), 8u);
  EXPECT_EQ(m.size(), 8);
  EXPECT_EQ(m.write("x", 1), 0);
  EXPECT_EQ(m.lseek(100, ioconn::LSEEK_SET), 8);  // clamped to the end
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
  EXPECT_EQ(m.capacity(), 200u);
  EXPECT_EQ(std::string(m.data(), 10), "0123456789");
  EXPECT_EQ(m.lseek(-50, ioconn::LSEEK_END), 100);
  EXPECT_EQ(m.size(), 150);
  // Bad seeks leave the position alone.
  EXPECT_EQ(m.lseek(0, 7), -1);
  EXPECT_EQ(m.lseek(-101, ioconn::LSEEK_CUR), -1);
  EXPECT_EQ(thrown_text([&] { m.lseek(1LL << 33, ioconn::LSEEK_SET); }), "Out of memory");
  EXPECT_EQ(m.tell(), 100);
  EXPECT_EQ(m.size(), 150);
  // Random access only when used as an iomem; the const base query says no.
  EXPECT_TRUE(m.is_random());
  EXPECT_FALSE(static_cast<const ioconn&>(m).is_random());
}

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "tarn/inpout/iofile.h"
#include "tarn/inpout/iogz.h"
#include "test_support.h"

using tarn::inpout::ioconn;
using tarn::inpout::iofile;
using tarn::inpout::iogz;
using testing_support::read_file;
using testing_support::scratch_dir;

namespace {

std::string sample_text(size_t n) {
  std::string s;
  unsigned x = 12345;
  while (s.size() < n) {
    x = x * 1103515245u + 12345u;
    s += "row," + std::to_string(x % 1000) + ",yes\n";
  }
  s.resize(n);
  return s;
}

std::string read_all(ioconn& c) {
  std::string out;
  char buf[777];
  int r;
  while ((r = c.read(buf, sizeof buf)) > 0) out.append(buf, r);
  return out;
}

std::string thrown_text(const std::function<void()>& f) {
  try {
    f();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "<nothing thrown>";
}

}  // namespace

TEST(IoGz, ReadsCompressedFile) {
  scratch_dir d;
  std::string content = sample_text(100000);
  std::string p = testing_support::gzip_file(d.file("t.gz"), content);
  iogz g;
  ASSERT_TRUE(g.open(p, ioconn::READ));
  EXPECT_TRUE(g.is_open());
  EXPECT_EQ(g.get_mode(), ioconn::READ);
  EXPECT_TRUE(g.is_random());
  EXPECT_FALSE(g.eof());
  EXPECT_EQ(read_all(g), content);
  EXPECT_TRUE(g.eof());
  EXPECT_EQ(g.tell(), 100000);
  EXPECT_TRUE(g.rewind());
  EXPECT_EQ(g.tell(), 0);
  EXPECT_EQ(g.lseek(10, ioconn::LSEEK_SET), 10);
  char buf[5];
  ASSERT_EQ(g.read(buf, 5), 5);
  EXPECT_EQ(std::string(buf, 5), content.substr(10, 5));
  EXPECT_EQ(g.lseek(5, ioconn::LSEEK_CUR), 20);
  ASSERT_EQ(g.read(buf, 5), 5);
  EXPECT_EQ(std::string(buf, 5), content.substr(20, 5));
  EXPECT_EQ(g.close(), 0);
  EXPECT_FALSE(g.is_open());
  EXPECT_EQ(g.get_mode(), 0);
}

TEST(IoGz, ReadsUncompressedFileAsIs) {
  scratch_dir d;
  std::string content = sample_text(5000);
  iogz g;
  ASSERT_TRUE(g.open(d.write("plain.txt", content), ioconn::READ));
  EXPECT_EQ(read_all(g), content);
  EXPECT_TRUE(g.eof());
}

TEST(IoGz, EmptyFiles) {
  scratch_dir d;
  iogz g;
  char c;
  ASSERT_TRUE(g.open(testing_support::gzip_file(d.file("e.gz"), ""), ioconn::READ));
  EXPECT_EQ(g.read(&c, 1), 0);
  EXPECT_TRUE(g.eof());
  ASSERT_TRUE(g.open(d.write("e.txt", ""), ioconn::READ));
  EXPECT_EQ(g.read(&c, 1), 0);
  EXPECT_TRUE(g.eof());
}

TEST(IoGz, SizeAndEndRelativeSeeksAreRefused) {
  scratch_dir d;
  iogz g;
  ASSERT_TRUE(g.open(testing_support::gzip_file(d.file("t.gz"), "abc"), ioconn::READ));
  EXPECT_EQ(thrown_text([&] { g.size(); }), "iogz::lseek LSEEK_END not supported");
  EXPECT_EQ(thrown_text([&] { g.lseek(0, ioconn::LSEEK_END); }),
            "iogz::lseek LSEEK_END not supported");
  EXPECT_EQ(thrown_text([&] { g.lseek(0, 3); }), "iogz::lseek position not supported");
  EXPECT_EQ(g.tell(), 0);
}

TEST(IoGz, CopyIntoFileNeedsALimitBecauseSizeIsUnknown) {
  // A gzip source is random-access, so the full copy tries to reserve its
  // size, which it cannot have.
  scratch_dir d;
  iogz g;
  ASSERT_TRUE(g.open(testing_support::gzip_file(d.file("t.gz"), "0123456789"), ioconn::READ));
  iofile f;
  ASSERT_TRUE(f.open(d.file("out"), ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC));
  EXPECT_EQ(thrown_text([&] { f.copy(g); }), "iogz::lseek LSEEK_END not supported");
  EXPECT_EQ(f.copy(g, 1000), 10);
  f.close();
  EXPECT_EQ(read_file(d.file("out")), "0123456789");
}

TEST(IoGz, WritesAtTheRequestedLevel) {
  scratch_dir d;
  std::string content(50000, 'z');
  for (int level : {0, 1, 9}) {
    std::string name = "l";
    name += std::to_string(level);
    std::string p = d.file(name + ".gz");
    iogz g;
    ASSERT_TRUE(g.open(p, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC, level));
    EXPECT_EQ(g.get_mode(), 100);
    EXPECT_EQ(g.write(content.data(), static_cast<int>(content.size())), 50000);
    EXPECT_EQ(g.writeln("end"), 4);
    EXPECT_EQ(g.close(), 0);
    std::string raw = read_file(p);
    ASSERT_GE(raw.size(), 2u);
    EXPECT_EQ(raw.substr(0, 2), "\x1f\x8b");
    if (level == 0)
      EXPECT_GT(raw.size(), content.size());  // stored, not compressed
    else
      EXPECT_LT(raw.size(), 1000u);
    ASSERT_TRUE(g.open(p, ioconn::READ));
    EXPECT_EQ(read_all(g), content + "end\n");
  }
}

TEST(IoGz, AppendAddsAMember) {
  scratch_dir d;
  std::string p = testing_support::gzip_file(d.file("a.gz"), "first\n");
  iogz g;
  // APPEND wins over WRITE.
  ASSERT_TRUE(g.open(p, ioconn::WRITE | ioconn::APPEND, 1));
  EXPECT_EQ(g.write("second\n", 7), 7);
  g.close();
  ASSERT_TRUE(g.open(p, ioconn::READ));
  EXPECT_EQ(read_all(g), "first\nsecond\n");
}

TEST(IoGz, MissingFileAndDirectory) {
  scratch_dir d;
  iogz g;
  EXPECT_FALSE(g.open(d.file("missing.gz"), ioconn::READ));
  EXPECT_FALSE(g.is_open());
  EXPECT_EQ(g.close(), 0);
  EXPECT_TRUE(g.eof());
  char buf[8];
  EXPECT_EQ(g.read(buf, 8), -1);
  EXPECT_EQ(g.write("x", 1), -1);
  EXPECT_FALSE(g.rewind());
  // A directory opens (the descriptor is readable) but yields no data.
  ASSERT_TRUE(g.open(d.path(), ioconn::READ));
  EXPECT_EQ(g.read(buf, 8), -1);
}

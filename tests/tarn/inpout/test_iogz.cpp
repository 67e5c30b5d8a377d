#include <gtest/gtest.h>

#include <string>

#include "tarn/inpout/io_test_support.h"
#include "tarn/inpout/iofile.h"
#include "tarn/inpout/iogz.h"
#include "test_support.h"

using namespace tarn::inpout;
using namespace testing_support;

namespace {

std::string sample_text(size_t n) {
  std::string s;
  for (unsigned i = 0; s.size() < n; ++i) s += "row," + std::to_string(i * 7919 % 1000) + ",yes\n";
  return s.substr(0, n);
}

std::string read_all(ioconn& c) {
  std::string out;
  char buf[777];
  for (int r; (r = c.read(buf, sizeof buf)) > 0;) out.append(buf, r);
  return out;
}

}  // namespace

TEST(IoGz, ReadsCompressedAndPlainFiles) {
  scratch_dir d;
  std::string content = sample_text(100000);
  for (const std::string& p : {gzip_file(d.file("t.gz"), content), d.write("t.txt", content)}) {
    SCOPED_TRACE(p);
    iogz g;
    ASSERT_TRUE(g.open(p, ioconn::READ));
    EXPECT_TRUE(g.is_random());
    EXPECT_FALSE(g.eof());
    EXPECT_EQ(read_all(g), content);
    EXPECT_TRUE(g.eof());
    EXPECT_EQ(g.tell(), 100000);
    EXPECT_TRUE(g.rewind());
    EXPECT_EQ(g.lseek(10, ioconn::LSEEK_SET), 10);
    char buf[5];
    ASSERT_EQ(g.read(buf, 5), 5);
    EXPECT_EQ(std::string(buf, 5), content.substr(10, 5));
    EXPECT_EQ(g.lseek(5, ioconn::LSEEK_CUR), 20);
    ASSERT_EQ(g.read(buf, 5), 5);
    EXPECT_EQ(std::string(buf, 5), content.substr(20, 5));
  }
  for (const std::string& p : {gzip_file(d.file("e.gz"), ""), d.write("e.txt", "")}) {
    iogz g;
    char c;
    ASSERT_TRUE(g.open(p, ioconn::READ));
    EXPECT_EQ(g.read(&c, 1), 0);
    EXPECT_TRUE(g.eof());
  }
}

TEST(IoGz, SizeAndEndRelativeSeeksAreRefused) {
  scratch_dir d;
  iogz g;
  ASSERT_TRUE(g.open(gzip_file(d.file("t.gz"), "0123456789"), ioconn::READ));
  EXPECT_EQ(thrown_text([&] { g.size(); }), "iogz::lseek LSEEK_END not supported");
  EXPECT_EQ(thrown_text([&] { g.lseek(0, 3); }), "iogz::lseek position not supported");
  EXPECT_EQ(g.tell(), 0);
  // A gzip source is random-access, so a full copy into a file tries to
  // reserve its size; only a limited copy can take it.
  iofile f;
  ASSERT_TRUE(f.open(d.file("out"), ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC));
  EXPECT_EQ(thrown_text([&] { f.copy(g); }), "iogz::lseek LSEEK_END not supported");
  EXPECT_EQ(f.copy(g, 1000), 10);
  EXPECT_EQ(read_file(d.file("out")), "0123456789");
}

TEST(IoGz, WritesAtTheRequestedLevelAndAppends) {
  scratch_dir d;
  std::string content(50000, 'z'), p = d.file("w.gz");
  iogz g;
  ASSERT_TRUE(g.open(p, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC, 0));
  EXPECT_EQ(g.write(content.data(), static_cast<int>(content.size())), 50000);
  EXPECT_EQ(g.close(), 0);
  std::string raw = read_file(p);
  EXPECT_EQ(raw.substr(0, 2), "\x1f\x8b");
  EXPECT_GT(raw.size(), content.size());  // level 0: stored, not compressed
  // APPEND wins over WRITE: a compressed second member follows the first.
  ASSERT_TRUE(g.open(p, ioconn::WRITE | ioconn::APPEND, 9));
  EXPECT_EQ(g.write(content.data(), static_cast<int>(content.size())), 50000);
  g.close();
  EXPECT_LT(read_file(p).size(), raw.size() + 1000);
  ASSERT_TRUE(g.open(p, ioconn::READ));
  EXPECT_EQ(read_all(g), content + content);
}

TEST(IoGz, MissingFileAndDirectory) {
  scratch_dir d;
  iogz g;
  char buf[8];
  EXPECT_FALSE(g.open(d.file("missing.gz"), ioconn::READ));
  EXPECT_FALSE(g.is_open());
  EXPECT_EQ(g.close(), 0);
  EXPECT_TRUE(g.eof());
  EXPECT_EQ(g.read(buf, 8), -1);
  EXPECT_EQ(g.write("x", 1), -1);
  EXPECT_FALSE(g.rewind());
  // A directory opens (the descriptor is readable) but yields no data.
  ASSERT_TRUE(g.open(d.path(), ioconn::READ));
  EXPECT_EQ(g.read(buf, 8), -1);
}

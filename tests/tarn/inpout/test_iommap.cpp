#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarn/inpout/io_test_support.h"
#include "tarn/inpout/iofile.h"
#include "tarn/inpout/iommap.h"
#include "test_support.h"

using namespace tarn::inpout;
using namespace testing_support;

namespace {

const long long page = iofile::allocation_granularity();

std::string pattern(long long n) {
  std::string s(n, '\0');
  for (long long i = 0; i < n; ++i) s[i] = static_cast<char>('!' + i % 89);
  return s;
}

}  // namespace

TEST(IoMmap, EmptyFileAndWindowSetting) {
  scratch_dir d;
  iommap m;
  EXPECT_EQ(m.set_mapped_area_size(1), page);
  EXPECT_EQ(m.get_mapped_area_size(), page);
  EXPECT_EQ(m.set_mapped_area_size(3 * page + 5), 3 * page);
  ASSERT_TRUE(m.open(d.write("empty", ""), ioconn::READ));
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.size(), 0);
  char buf[16];
  EXPECT_EQ(m.read(buf, sizeof buf), 0);
  EXPECT_TRUE(m.read_line());
  EXPECT_STREQ(m.get_line(), "");
  EXPECT_EQ(m.lseek(5, ioconn::LSEEK_SET), 0);
}

TEST(IoMmap, WindowWalkForSeeksAndReads) {
  scratch_dir d;
  std::string content = pattern(10 * page + 123);
  iommap m;
  m.set_mapped_area_size(1);  // windows of four pages
  ASSERT_TRUE(m.open(d.write("f", content), ioconn::READ));
  long before = iommap::remap_count();
  char c;
  EXPECT_EQ(m.lseek(4 * page - 1, ioconn::LSEEK_SET), 4 * page - 1);
  EXPECT_EQ(iommap::remap_count(), before);  // still in the first window
  ASSERT_EQ(m.read(&c, 1), 1);
  EXPECT_EQ(c, content[4 * page - 1]);
  EXPECT_EQ(m.lseek(page + 10, ioconn::LSEEK_CUR), 5 * page + 10);
  EXPECT_EQ(iommap::remap_count(), before + 1);
  ASSERT_EQ(m.read(&c, 1), 1);
  EXPECT_EQ(c, content[5 * page + 10]);
  EXPECT_EQ(m.lseek(9 * page, ioconn::LSEEK_SET), 9 * page);
  EXPECT_EQ(iommap::remap_count(), before + 1);  // the window ends at page 9
  EXPECT_EQ(m.lseek(10, ioconn::LSEEK_END), 10 * page + 123);  // stops at the end
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.read(&c, 1), 0);
  EXPECT_EQ(m.lseek(0, 9), -1);
  EXPECT_EQ(m.lseek(-1, ioconn::LSEEK_SET), -1);

  // One read from the start slides to pages 4 and 8, then finds the end.
  ASSERT_TRUE(m.rewind());
  before = iommap::remap_count();
  std::string out(content.size() + 1, '\0');
  EXPECT_EQ(m.read(out.data(), static_cast<int>(out.size())), static_cast<int>(content.size()));
  out.pop_back();
  EXPECT_EQ(out, content);
  EXPECT_EQ(iommap::remap_count() - before, 3);
  EXPECT_TRUE(m.eof());
}

TEST(IoMmap, ReadLineAcrossWindows) {
  // The first line ends exactly at the end of the first window; then an
  // empty line, one longer than a whole window, short ones, and a last line
  // without newline.
  std::vector<std::string> lines = {pattern(4 * page - 1), "", std::string(5 * page + 17, 'L')};
  for (int i = 0; i < 40; ++i) lines.push_back(pattern(100 + i * 13));
  lines.push_back("tail");
  std::string text;
  for (const std::string& l : lines) text += l + "\n";
  text.pop_back();

  scratch_dir d;
  iommap m;
  m.set_mapped_area_size(1);
  ASSERT_TRUE(m.open(d.write("lines", text), ioconn::READ));
  char two[2];
  ASSERT_EQ(m.read(two, 2), 2);  // read and read_line share the position
  std::vector<std::string> got;
  while (!m.eof() && got.size() <= lines.size()) {
    ASSERT_TRUE(m.read_line());
    got.push_back(m.get_line());
  }
  lines[0].erase(0, 2);
  EXPECT_EQ(got, lines);
  EXPECT_EQ(m.line_number(), static_cast<long long>(lines.size()));
  EXPECT_TRUE(m.read_line());  // at the end a line is still produced, empty
  EXPECT_STREQ(m.get_line(), "");
}

TEST(IoMmap, FailuresAndMissingFile) {
  scratch_dir d;
  iommap m;
  EXPECT_FALSE(m.open(d.file("missing"), ioconn::READ));
  EXPECT_TRUE(m.eof());
  char c;
  EXPECT_EQ(m.read(&c, 1), -1);
  EXPECT_FALSE(m.read_line());
  EXPECT_EQ(m.lseek(0, ioconn::LSEEK_SET), -1);
  EXPECT_FALSE(m.resize(10));

  ASSERT_TRUE(m.open(d.write("f", "abc"), ioconn::READ));
  EXPECT_EQ(thrown_text([&] { m.write("x", 1); }), "iommap::write not implemented yet");
  // A write-only descriptor cannot be mapped.
  testing::internal::CaptureStdout();
  EXPECT_EQ(thrown_text([&] { m.open(d.file("f"), ioconn::WRITE); }), "iommap::remap failed.");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "@@" + std::to_string(iommap::remap_count()) + "\n");
}

TEST(IoMmap, ResizeKeepsTheLogicalPosition) {
  scratch_dir d;
  std::string p = d.write("f", pattern(100));
  iommap m;
  ASSERT_TRUE(m.open(p, ioconn::READ));
  EXPECT_FALSE(m.resize(200));  // read-only
  ASSERT_TRUE(m.open(p, ioconn::READ | ioconn::WRITE));
  char buf[10];
  ASSERT_EQ(m.read(buf, 10), 10);
  ASSERT_TRUE(m.resize(5 * page));
  EXPECT_EQ(m.tell(), 10);
  std::string rest(5 * page, 'x');
  EXPECT_EQ(m.read(rest.data(), static_cast<int>(rest.size())), 5 * page - 10);
  EXPECT_EQ(rest.substr(0, 5 * page - 10),
            pattern(100).substr(10) + std::string(5 * page - 100, '\0'));
  ASSERT_TRUE(m.resize(5));
  EXPECT_EQ(m.tell(), 5);  // clamped to the new end
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(read_file(p), pattern(5));
}

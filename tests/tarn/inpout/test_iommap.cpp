#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "tarn/inpout/iofile.h"
#include "tarn/inpout/iommap.h"
#include "test_support.h"

using tarn::inpout::ioconn;
using tarn::inpout::iofile;
using tarn::inpout::iommap;
using testing_support::scratch_dir;

namespace {

const long long page = iofile::allocation_granularity();

std::string pattern(long long n) {
  std::string s(n, '\0');
  for (long long i = 0; i < n; ++i) s[i] = static_cast<char>('!' + i % 89);
  return s;
}

// Lines of assorted lengths, one ending exactly at the end of the first
// window (4 pages), one longer than a whole window, an empty one, and a
// last line without newline.
std::vector<std::string> tricky_lines() {
  std::vector<std::string> lines;
  long long used = 0;
  for (int i = 0; used < 4 * page - 800; ++i) {
    lines.push_back(pattern((i * 37) % 700));
    used += lines.back().size() + 1;
  }
  lines.push_back(std::string(4 * page - used - 1, 'e'));
  lines.push_back("");
  lines.push_back(std::string(5 * page + 17, 'L'));
  for (int i = 0; i < 40; ++i) lines.push_back(pattern(100 + i * 13));
  lines.push_back("tail");
  return lines;
}

std::string join(const std::vector<std::string>& lines) {
  std::string s;
  for (size_t i = 0; i < lines.size(); ++i) s += lines[i] + (i + 1 < lines.size() ? "\n" : "");
  return s;
}

}  // namespace

TEST(IoMmap, EmptyFile) {
  scratch_dir d;
  iommap m;
  ASSERT_TRUE(m.open(d.write("empty", ""), ioconn::READ));
  EXPECT_TRUE(m.is_open());
  EXPECT_TRUE(m.is_random());
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.size(), 0);
  EXPECT_EQ(m.tell(), 0);
  char buf[16];
  EXPECT_EQ(m.read(buf, sizeof buf), 0);
  EXPECT_TRUE(m.read_line());
  EXPECT_STREQ(m.get_line(), "");
  EXPECT_EQ(m.lseek(5, ioconn::LSEEK_SET), 0);
}

TEST(IoMmap, WindowSettingIsWholePages) {
  iommap m;
  long long initial = m.get_mapped_area_size();
  EXPECT_GE(initial, page);
  EXPECT_EQ(initial % page, 0);
  EXPECT_EQ(m.set_mapped_area_size(1), page);
  EXPECT_EQ(m.get_mapped_area_size(), page);
  EXPECT_EQ(m.set_mapped_area_size(0), page);
  EXPECT_EQ(m.set_mapped_area_size(3 * page + 5), 3 * page);
  EXPECT_EQ(m.set_mapped_area_size(2 * page), 2 * page);
}

TEST(IoMmap, OneReadSpansSeveralWindows) {
  scratch_dir d;
  std::string content = pattern(10 * page + 123);
  iommap m;
  m.set_mapped_area_size(1);  // windows of four pages
  ASSERT_TRUE(m.open(d.write("f", content), ioconn::READ));
  long before = iommap::remap_count();
  std::string out(content.size() + 1, '\0');
  EXPECT_EQ(m.read(out.data(), static_cast<int>(out.size())), static_cast<int>(content.size()));
  out.pop_back();
  EXPECT_EQ(out, content);
  // Slides to pages 4 and 8, then finds the end.
  EXPECT_EQ(iommap::remap_count() - before, 3);
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.tell(), static_cast<long long>(content.size()));
  EXPECT_EQ(m.read(out.data(), 10), 0);
}

TEST(IoMmap, SmallReadsCrossWindowBoundaries) {
  scratch_dir d;
  std::string content = pattern(9 * page + 7);
  iommap m;
  m.set_mapped_area_size(1);
  ASSERT_TRUE(m.open(d.write("f", content), ioconn::READ));
  std::string out;
  char buf[1000];
  int r;
  while ((r = m.read(buf, sizeof buf)) > 0) out.append(buf, r);
  EXPECT_EQ(out, content);
  EXPECT_TRUE(m.eof());
}

TEST(IoMmap, SeeksInsideTheWindowDoNotRemap) {
  scratch_dir d;
  std::string content = pattern(10 * page);
  iommap m;
  m.set_mapped_area_size(1);
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
  EXPECT_EQ(m.tell(), 5 * page + 11);
  EXPECT_EQ(m.lseek(-page, ioconn::LSEEK_END), 9 * page);
  EXPECT_EQ(iommap::remap_count(), before + 1);  // the window ends at page 9
  EXPECT_TRUE(m.rewind());
  EXPECT_EQ(iommap::remap_count(), before + 2);
  ASSERT_EQ(m.read(&c, 1), 1);
  EXPECT_EQ(c, content[0]);
}

TEST(IoMmap, SeekPastTheEndStopsAtTheEnd) {
  scratch_dir d;
  iommap m;
  ASSERT_TRUE(m.open(d.write("f", pattern(1000)), ioconn::READ));
  EXPECT_EQ(m.lseek(10, ioconn::LSEEK_END), 1000);
  EXPECT_TRUE(m.eof());
  char c;
  EXPECT_EQ(m.read(&c, 1), 0);
  EXPECT_EQ(m.lseek(0, 9), -1);
  EXPECT_EQ(m.lseek(-1, ioconn::LSEEK_SET), -1);
  EXPECT_EQ(m.tell(), 1000);
}

TEST(IoMmap, ReadLineAcrossWindows) {
  scratch_dir d;
  std::vector<std::string> lines = tricky_lines();
  iommap m;
  m.set_mapped_area_size(1);
  ASSERT_TRUE(m.open(d.write("lines", join(lines)), ioconn::READ));
  std::vector<std::string> got;
  while (!m.eof() && got.size() <= lines.size()) {
    ASSERT_TRUE(m.read_line());
    got.push_back(m.get_line());
  }
  EXPECT_EQ(got, lines);
  EXPECT_EQ(m.line_number(), static_cast<long long>(lines.size()));
  // At the end a line is still produced, empty.
  EXPECT_TRUE(m.read_line());
  EXPECT_STREQ(m.get_line(), "");
}

TEST(IoMmap, ReadAndReadLineShareThePosition) {
  scratch_dir d;
  iommap m;
  ASSERT_TRUE(m.open(d.write("f", "abc\ndef\nghi"), ioconn::READ));
  char buf[2];
  ASSERT_EQ(m.read(buf, 2), 2);
  ASSERT_TRUE(m.read_line());
  EXPECT_STREQ(m.get_line(), "c");
  EXPECT_EQ(m.tell(), 4);
  ASSERT_TRUE(m.read_line());
  EXPECT_STREQ(m.get_line(), "def");
  ASSERT_EQ(m.read(buf, 2), 2);
  EXPECT_EQ(std::string(buf, 2), "gh");
}

TEST(IoMmap, WritingIsNotImplemented) {
  scratch_dir d;
  iommap m;
  ASSERT_TRUE(m.open(d.write("f", "abc"), ioconn::READ));
  try {
    m.write("x", 1);
    FAIL() << "write must throw";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "iommap::write not implemented yet");
  }
  EXPECT_THROW(m.writeln("x"), std::runtime_error);
}

TEST(IoMmap, MissingFile) {
  scratch_dir d;
  iommap m;
  EXPECT_FALSE(m.open(d.file("missing"), ioconn::READ));
  EXPECT_FALSE(m.is_open());
  EXPECT_TRUE(m.eof());
  char c;
  EXPECT_EQ(m.read(&c, 1), -1);
  EXPECT_FALSE(m.read_line());
  EXPECT_EQ(m.lseek(0, ioconn::LSEEK_SET), -1);
  EXPECT_FALSE(m.resize(10));
}

TEST(IoMmap, FailedMappingPrintsTheCounterAndThrows) {
  // A write-only descriptor cannot be mapped.
  scratch_dir d;
  iommap m;
  testing::internal::CaptureStdout();
  std::string what;
  try {
    m.open(d.write("f", "abc"), ioconn::WRITE);
  } catch (const std::runtime_error& e) {
    what = e.what();
  }
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(what, "iommap::remap failed.");
  EXPECT_EQ(out, "@@" + std::to_string(iommap::remap_count()) + "\n");
}

TEST(IoMmap, DirectoryGivenAsFile) {
  scratch_dir d;
  iommap m;
  testing::internal::CaptureStdout();
  std::string what;
  bool opened = false;
  try {
    opened = m.open(d.path(), ioconn::READ);
  } catch (const std::runtime_error& e) {
    what = e.what();
  }
  std::string out = testing::internal::GetCapturedStdout();
  if (what.empty()) {
    // File systems that report a zero directory size give an empty window.
    EXPECT_TRUE(opened);
    EXPECT_TRUE(m.eof());
    EXPECT_EQ(out, "");
  } else {
    EXPECT_EQ(what, "iommap::remap failed.");
    EXPECT_EQ(out.substr(0, 2), "@@");
  }
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
  EXPECT_EQ(m.size(), 5 * page);
  EXPECT_EQ(m.tell(), 10);
  std::string rest(5 * page, 'x');
  EXPECT_EQ(m.read(rest.data(), static_cast<int>(rest.size())), 5 * page - 10);
  EXPECT_EQ(rest.substr(0, 90), pattern(100).substr(10));
  EXPECT_EQ(rest.substr(90, 5 * page - 100), std::string(5 * page - 100, '\0'));
  ASSERT_TRUE(m.resize(5));
  EXPECT_EQ(m.tell(), 5);
  EXPECT_TRUE(m.eof());
  EXPECT_EQ(m.close(), 0);
  EXPECT_FALSE(m.is_open());
  EXPECT_EQ(testing_support::read_file(p), pattern(5));
}

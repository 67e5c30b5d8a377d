#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarn/inpout/iofile.h"
#include "tarn/inpout/stream.h"
#include "test_support.h"

using tarn::inpout::stream;
using testing_support::scratch_dir;

namespace {

std::vector<std::string> lines_of(stream& s) {
  std::vector<std::string> lines;
  while (s.read_line()) lines.push_back(s.get_line());
  return lines;
}

std::unique_ptr<stream> open(const std::string& descriptor) { return std::unique_ptr<stream>(stream::FROM_READER(descriptor)); }

std::string error_of(const std::string& descriptor) {
  try {
    open(descriptor);
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "no error";
}

}  // namespace

TEST(Stream, LineEndsLfAndCrLf) {
  scratch_dir d;
  const std::string p = d.write("a.txt", "a,b\r\nc,d\n\r\nlast\rx\n");
  auto s = open("FILE#" + p + "#,");
  EXPECT_EQ(lines_of(*s), (std::vector<std::string>{"a,b", "c,d", "", "last\rx"}));
}

TEST(Stream, FinalLineWithoutTerminatorAndNoEmptyLastLine) {
  scratch_dir d;
  auto s = open("FILE#" + d.write("a.txt", "x\ny") + "#,");
  EXPECT_EQ(lines_of(*s), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(s->tell2(), 3u);
  auto t = open("FILE#" + d.write("b.txt", "x\ny\n") + "#,");
  EXPECT_EQ(lines_of(*t), (std::vector<std::string>{"x", "y"}));
  EXPECT_EQ(t->tell2(), 4u);
}

TEST(Stream, EmptyFileHasNoLines) {
  scratch_dir d;
  auto s = open("FILE#" + d.write("e.txt", "") + "#,");
  EXPECT_FALSE(s->read_line());
  EXPECT_TRUE(s->eof());
  EXPECT_NO_THROW(s->check_complete());
}

TEST(Stream, LinesLongerThanTheBufferComeWhole) {
  scratch_dir d;
  const std::string big(70000, 'w'), cr_big(16383, 'v');
  auto s = open("FILE#" + d.write("l.txt", "a\n" + big + "\n" + cr_big + "\r\nz") + "#,");
  EXPECT_EQ(lines_of(*s), (std::vector<std::string>{"a", big, cr_big, "z"}));
}

TEST(Stream, FieldsFollowTheSeparator) {
  scratch_dir d;
  auto s = open("FILE#" + d.write("f.txt", "1;2;;4\n") + "#;");
  ASSERT_TRUE(s->read_line());
  EXPECT_STREQ(s->next_field(), "1");
  EXPECT_STREQ(s->next_field(), "2");
  EXPECT_STREQ(s->next_field(), "");
  EXPECT_STREQ(s->next_field(), "4");
}

TEST(Stream, RewindRestartsLinesAndPosition) {
  scratch_dir d;
  auto s = open("FILE#" + d.write("r.txt", "one\ntwo\n") + "#,");
  ASSERT_TRUE(s->read_line());
  ASSERT_TRUE(s->read_line());
  EXPECT_EQ(s->tell2(), 8u);
  ASSERT_TRUE(s->rewind());
  EXPECT_EQ(s->tell2(), 0u);
  ASSERT_TRUE(s->read_line());
  EXPECT_STREQ(s->get_line(), "one");
}

TEST(Stream, GzipThroughTheDescriptor) {
  scratch_dir d;
  const std::string p = testing_support::gzip_file(d.file("x.gz"), "p;q\r\nr;s\n");
  auto s = open("FILE#" + p + "#;");
  ASSERT_TRUE(s->read_line());
  EXPECT_STREQ(s->next_field(), "p");
  EXPECT_STREQ(s->next_field(), "q");
  ASSERT_TRUE(s->read_line());
  EXPECT_STREQ(s->get_line(), "r;s");
  EXPECT_FALSE(s->read_line());
  ASSERT_TRUE(s->rewind());
  ASSERT_TRUE(s->read_line());
  EXPECT_STREQ(s->get_line(), "p;q");
}

TEST(Stream, PlainTextNamedGzReadsAsItIs) {
  scratch_dir d;
  auto s = open("FILE#" + d.write("plain.gz", "a\nb\n") + "#,");
  EXPECT_EQ(lines_of(*s), (std::vector<std::string>{"a", "b"}));
}

TEST(Stream, TruncatedGzipIsAnError) {
  scratch_dir d;
  std::string content;
  for (int i = 0; i < 20000; ++i) content += std::to_string(i * 7919) + ",row\n";
  const std::string full = testing_support::read_file(testing_support::gzip_file(d.file("full.gz"), content));
  const std::string cut = d.write("cut.gz", full.substr(0, full.size() / 2));
  auto s = open("FILE#" + cut + "#,");
  while (s->read_line()) {
  }
  EXPECT_TRUE(s->failed());
  EXPECT_THROW(s->check_complete(), std::runtime_error);
}

TEST(Stream, DirectoryGivenAsFileStopsWithAFailure) {
  scratch_dir d;
  auto s = open("FILE#" + d.path() + "#,");
  EXPECT_FALSE(s->read_line());
  EXPECT_TRUE(s->failed());
}

TEST(Stream, DescriptorErrors) {
  EXPECT_EQ(error_of("FILE#/no/such/file#,"), "File: /no/such/file not found or inaccessible");
  EXPECT_EQ(error_of("FILE#/no/such/file.gz#,"), "File: /no/such/file.gz not found or inaccessible");
  EXPECT_EQ(error_of("SQL#server#query"), "Unknown data source: SQL#server#query");
  EXPECT_EQ(error_of("file#x#,"), "Unknown data source: file#x#,");
}

TEST(Stream, DescriptorFieldsAreCutAtHashes) {
  scratch_dir d;
  d.write("we", "1i2\n");
  // The path stops at its first '#'; what follows is the separator field,
  // of which only the first character counts.
  auto s = open("FILE#" + d.file("we#ird") + "#,");
  EXPECT_EQ(s->get_delim(), 'i');
  ASSERT_TRUE(s->read_line());
  EXPECT_STREQ(s->next_field(), "1");
  auto m = open("FILE#" + d.write("m.txt", "a;b,c\n") + "#;,");
  EXPECT_EQ(m->get_delim(), ';');
  // An empty separator field is the NUL character: one field per line.
  auto n = open("FILE#" + d.write("n.txt", "a;b,c\n") + "#");
  EXPECT_EQ(n->get_delim(), '\0');
  ASSERT_TRUE(n->read_line());
  EXPECT_STREQ(n->next_field(), "a;b,c");
}

TEST(Stream, JdbcProviderIsNeverReached) {
  testing::internal::CaptureStdout();
  std::string error;
  stream* s = stream::FROM_JDBC("server", "db", "user", "pass", "query", "options", error);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(error, "JDBC tarn server not available");
}

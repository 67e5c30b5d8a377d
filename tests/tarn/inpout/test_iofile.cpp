#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "tarn/inpout/iofile.h"
#include "tarn/inpout/spy_conn.h"
#include "test_support.h"

using tarn::inpout::ioconn;
using tarn::inpout::iofile;
using testing_support::read_file;
using testing_support::scratch_dir;

namespace {

constexpr int RW = ioconn::READ | ioconn::WRITE;

long long file_size(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? st.st_size : -1;
}

// A random-access source that notes how large the destination file already
// is when the first byte is asked for.
class watching_source : public testing_support::spy_conn {
public:
  watching_source(std::string content, std::string watched)
      : spy_conn(READ, std::move(content)), watched_(std::move(watched)) {
    random = true;
  }
  int read(void* p, int n) override {
    if (size_at_first_read < 0) size_at_first_read = file_size(watched_);
    return spy_conn::read(p, n);
  }
  long long size_at_first_read = -1;

private:
  std::string watched_;
};

}  // namespace

TEST(IoFile, WriteThenReadBack) {
  scratch_dir d;
  std::string p = d.file("a.txt");
  iofile f;
  ASSERT_TRUE(f.open(p, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC, 0600));
  EXPECT_TRUE(f.is_open());
  EXPECT_EQ(f.get_mode(), 100);
  EXPECT_EQ(f.write("hello ", 6), 6);
  EXPECT_EQ(f.writeln("world"), 6);
  EXPECT_EQ(f.tell(), 12);
  EXPECT_EQ(f.close(), 0);
  EXPECT_FALSE(f.is_open());
  EXPECT_EQ(f.get_mode(), 0);
  EXPECT_EQ(f.close(), -1);
  EXPECT_EQ(read_file(p), "hello world\n");
  struct stat st;
  ASSERT_EQ(::stat(p.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  ASSERT_TRUE(f.open(p, ioconn::READ, 0));
  char buf[32];
  EXPECT_EQ(f.read(buf, 5), 5);
  EXPECT_EQ(std::string(buf, 5), "hello");
  EXPECT_FALSE(f.eof());
  EXPECT_EQ(f.read(buf, 32), 7);
  EXPECT_TRUE(f.eof());
  EXPECT_EQ(f.read(buf, 32), 0);
  EXPECT_EQ(f.size(), 12);
  EXPECT_TRUE(f.is_random());
}

TEST(IoFile, FailedOpenLeavesItClosed) {
  scratch_dir d;
  iofile f;
  ASSERT_TRUE(f.open(d.write("a", "abc"), ioconn::READ));
  EXPECT_FALSE(f.open(d.file("missing"), ioconn::READ));
  EXPECT_FALSE(f.is_open());
  EXPECT_EQ(f.get_mode(), 0);
  char c;
  EXPECT_EQ(f.read(&c, 1), -1);
  EXPECT_EQ(f.write("x", 1), -1);
  EXPECT_FALSE(f.is_random());
  EXPECT_EQ(f.lseek(0, ioconn::LSEEK_SET), -1);
  try {
    f.size();
    FAIL() << "size() of a closed file must throw";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "iofile::size(): cannot access file size.");
  }
  // open_mmap reports success whatever happened.
  EXPECT_TRUE(f.open_mmap(d.file("missing"), ioconn::READ, 0644));
  EXPECT_FALSE(f.is_open());
  EXPECT_TRUE(f.open_mmap(d.file("a"), ioconn::READ, 0644));
  EXPECT_TRUE(f.is_open());
}

TEST(IoFile, DirectoryOpensForReadingButCannotBeRead) {
  scratch_dir d;
  iofile f;
  EXPECT_FALSE(f.open(d.path(), ioconn::WRITE));
  ASSERT_TRUE(f.open(d.path(), ioconn::READ));
  char buf[16];
  EXPECT_EQ(f.read(buf, sizeof buf), -1);
  EXPECT_FALSE(f.is_random());
  EXPECT_EQ(f.close(), 0);
}

TEST(IoFile, EmptyFile) {
  scratch_dir d;
  iofile f;
  ASSERT_TRUE(f.open(d.write("e", ""), ioconn::READ));
  char c;
  EXPECT_EQ(f.size(), 0);
  EXPECT_EQ(f.tell(), 0);
  EXPECT_TRUE(f.eof());
  EXPECT_EQ(f.read(&c, 1), 0);
}

TEST(IoFile, AppendWritesAtTheEnd) {
  scratch_dir d;
  std::string p = d.write("a", "abc");
  iofile f;
  ASSERT_TRUE(f.open(p, ioconn::WRITE | ioconn::APPEND));
  EXPECT_TRUE(f.rewind());
  EXPECT_EQ(f.write("def", 3), 3);
  f.close();
  EXPECT_EQ(read_file(p), "abcdef");
}

TEST(IoFile, SeekOrigins) {
  scratch_dir d;
  iofile f;
  ASSERT_TRUE(f.open(d.write("s", "0123456789"), ioconn::READ));
  EXPECT_EQ(f.lseek(3, ioconn::LSEEK_SET), 3);
  EXPECT_EQ(f.lseek(2, ioconn::LSEEK_CUR), 5);
  char c = 0;
  EXPECT_EQ(f.read(&c, 1), 1);
  EXPECT_EQ(c, '5');
  EXPECT_EQ(f.lseek(-1, ioconn::LSEEK_END), 9);
  EXPECT_EQ(f.lseek(0, 3), -1);
  EXPECT_EQ(f.tell(), 9);
  EXPECT_TRUE(f.rewind());
  EXPECT_EQ(f.tell(), 0);
}

TEST(IoFile, AdoptedDescriptorTakesModeFromOwnerBits) {
  scratch_dir d;
  std::string p = d.write("m", "data");
  struct {
    mode_t perms;
    int mode;
  } cases[] = {{0400, ioconn::READ}, {0200, ioconn::WRITE}, {0600, RW}, {0077, 0}};
  iofile f;
  for (auto c : cases) {
    int fd = ::open(p.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::fchmod(fd, c.perms), 0);
    EXPECT_TRUE(f.open(fd));
    EXPECT_EQ(f.get_mode(), c.mode) << std::oct << c.perms;
    EXPECT_EQ(f.descriptor(), fd);
  }
  char buf[8];
  EXPECT_EQ(f.read(buf, 8), 4);
  EXPECT_FALSE(f.open(-1));
  EXPECT_FALSE(f.is_open());
  EXPECT_EQ(f.get_mode(), 0);
}

TEST(IoFile, ResizeNeedsAnOpenWritableFile) {
  scratch_dir d;
  std::string p = d.write("r", "abc");
  iofile f;
  EXPECT_FALSE(f.resize(10));
  ASSERT_TRUE(f.open(p, ioconn::READ));
  EXPECT_FALSE(f.resize(10));
  ASSERT_TRUE(f.open(p, RW));
  EXPECT_FALSE(f.resize(-1));
  EXPECT_EQ(file_size(p), 3);
}

TEST(IoFile, ResizeGrowsShrinksAndKeepsPosition) {
  scratch_dir d;
  std::string p = d.write("r", "abc");
  iofile f;
  ASSERT_TRUE(f.open(p, RW));
  ASSERT_EQ(f.lseek(3, ioconn::LSEEK_SET), 3);
  EXPECT_TRUE(f.resize(3));
  EXPECT_TRUE(f.resize(10));
  EXPECT_EQ(read_file(p), std::string("abc") + std::string(7, '\0'));
  EXPECT_EQ(f.tell(), 3);
  EXPECT_TRUE(f.resize(2));
  EXPECT_EQ(read_file(p), "ab");
  // Growing while positioned beyond the new end leaves the position there.
  ASSERT_EQ(f.lseek(50, ioconn::LSEEK_SET), 50);
  EXPECT_TRUE(f.resize(20));
  EXPECT_EQ(f.size(), 20);
  EXPECT_EQ(f.tell(), 20);
}

TEST(IoFile, CopyReservesTheRemainingBytesFirst) {
  scratch_dir d;
  std::string p = d.file("dst");
  std::string content(100000, 'q');
  iofile f;
  ASSERT_TRUE(f.open(p, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC));
  ASSERT_EQ(f.write("head", 4), 4);
  watching_source src(content, p);
  src.lseek(1000, ioconn::LSEEK_SET);
  EXPECT_EQ(f.copy(src), 99000);
  EXPECT_EQ(src.size_at_first_read, 4 + 99000);
  f.close();
  EXPECT_EQ(read_file(p), "head" + content.substr(1000));
}

TEST(IoFile, CopyReservationCountsFromThePosition) {
  // The reservation is position + remaining source bytes, even when that is
  // less than the file already holds.
  scratch_dir d;
  std::string p = d.write("dst", std::string(200, 'o'));
  iofile f;
  ASSERT_TRUE(f.open(p, ioconn::WRITE));
  ASSERT_EQ(f.lseek(100, ioconn::LSEEK_SET), 100);
  watching_source src("0123456789", p);
  EXPECT_EQ(f.copy(src), 10);
  EXPECT_EQ(src.size_at_first_read, 110);
  EXPECT_EQ(file_size(p), 110);
}

TEST(IoFile, OnlyTheFullCopyFromRandomSourcesReserves) {
  scratch_dir d;
  std::string p = d.file("dst");
  iofile f;
  ASSERT_TRUE(f.open(p, ioconn::WRITE | ioconn::CREATE | ioconn::TRUNC));
  watching_source sequential(std::string(5000, 's'), p);
  sequential.random = false;
  EXPECT_EQ(f.copy(sequential), 5000);
  EXPECT_EQ(sequential.size_at_first_read, 0);
  watching_source limited(std::string(5000, 'l'), p);
  EXPECT_EQ(f.copy(limited, 3000), 3000);
  EXPECT_EQ(limited.size_at_first_read, 5000);
  EXPECT_EQ(file_size(p), 8000);
}

TEST(IoFile, MemoryMappingSharesTheFile) {
  scratch_dir d;
  std::string p = d.write("map", "");
  long page = iofile::allocation_granularity();
  iofile f;
  EXPECT_EQ(f.mem_map(0, page), nullptr);  // not open
  ASSERT_TRUE(f.open(p, RW));
  ASSERT_TRUE(f.resize(2 * page));
  char* m = static_cast<char*>(f.mem_map(page, page));
  ASSERT_NE(m, nullptr);
  std::memcpy(m, "mapped", 6);
  EXPECT_TRUE(f.mem_sync(m, page));
  EXPECT_TRUE(f.mem_unmap(m, page));
  EXPECT_EQ(read_file(p).substr(page, 6), "mapped");

  ASSERT_TRUE(f.open(p, ioconn::READ));
  const char* r = static_cast<const char*>(f.mem_map(0, 2 * page));
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(std::string(r + page, 6), "mapped");
  EXPECT_TRUE(f.mem_unmap(const_cast<char*>(r), 2 * page));

  EXPECT_TRUE(f.mem_unmap(nullptr, page));
  EXPECT_TRUE(f.mem_sync(nullptr, page));
  void* unaligned = reinterpret_cast<void*>(1);
  EXPECT_FALSE(f.mem_unmap(unaligned, page));
  EXPECT_FALSE(f.mem_sync(unaligned, page));
}

TEST(IoFile, IsPipeRecognisesFifos) {
  scratch_dir d;
  std::string fifo = d.file("fifo");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(iofile::is_pipe(fifo));
  EXPECT_FALSE(iofile::is_pipe(d.write("plain", "x")));
  EXPECT_FALSE(iofile::is_pipe(d.path()));
  EXPECT_FALSE(iofile::is_pipe(d.file("missing")));
}

TEST(IoFile, PageSizeComesFromTheSystem) {
  EXPECT_EQ(iofile::allocation_granularity(), ::sysconf(_SC_PAGESIZE));
}

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

#include "tarn/inpout/binstream.h"
#include "test_support.h"

using tarn::inpout::binary_format_error;
using tarn::inpout::ibinstream;
using tarn::inpout::obinstream;
using testing_support::read_file;
using testing_support::scratch_dir;

namespace {

std::string bytes(std::initializer_list<int> b) {
  std::string s;
  for (int x : b) s += static_cast<char>(x);
  return s;
}

}  // namespace

TEST(BinStream, ExactEncodings) {
  scratch_dir d;
  const std::string p = d.file("b.bin");
  {
    obinstream out(p);
    const std::vector<unsigned int> empty;
    const std::vector<unsigned int>* none = nullptr;
    out.write_vector(&empty);
    out.write_vector(none);
    out << std::string("ab");
    out.write_null_text();
    out << true << static_cast<unsigned char>(200) << -2 << 258u << 1.0f << 2.0 << 0x0102030405060708ull;
    ASSERT_TRUE(out.close());
  }
  const std::string expected = bytes({1, 0, 0, 0, 0}) + bytes({0}) + bytes({1, 2, 0, 0, 0, 'a', 'b'}) + bytes({0}) +
                               bytes({1, 200}) + bytes({0xfe, 0xff, 0xff, 0xff}) + bytes({2, 1, 0, 0}) +
                               bytes({0, 0, 0x80, 0x3f}) + bytes({0, 0, 0, 0, 0, 0, 0, 0x40}) +
                               bytes({8, 7, 6, 5, 4, 3, 2, 1});
  EXPECT_EQ(read_file(p), expected);
}

TEST(BinStream, RoundTripPlainAndCompressed) {
  scratch_dir d;
  for (bool compressed : {false, true}) {
    const std::string p = d.file(compressed ? "c.bin" : "p.bin");
    const std::vector<float> values{1.5f, -2.25f, 3e7f};
    {
      obinstream out(p, compressed, 1);
      out << std::string("name") << 42u << 3.5;
      out.write_vector(&values);
      out.write_vector(static_cast<const std::vector<float>*>(nullptr));
    }
    ibinstream in(p, compressed);
    std::string name;
    unsigned n = 0;
    double x = 0;
    EXPECT_TRUE(in.read_text(name));
    in >> n >> x;
    std::vector<float>* v = nullptr;
    std::vector<float>* null_v = reinterpret_cast<std::vector<float>*>(&n);
    in.read_special(v);
    in.read_special(null_v);
    EXPECT_EQ(name, "name");
    EXPECT_EQ(n, 42u);
    EXPECT_EQ(x, 3.5);
    ASSERT_NE(v, nullptr);
    EXPECT_EQ(*v, values);
    EXPECT_EQ(null_v, nullptr);
    delete v;
  }
}

TEST(BinStream, CompressedFilesAreNotDetected) {
  scratch_dir d;
  const std::string p = d.file("z.bin");
  {
    obinstream out(p, true, 1);
    out << 7u;
  }
  // Read as plain bytes, the gzip header comes back instead of the value.
  ibinstream plain(p, false);
  unsigned v = 0;
  plain >> v;
  EXPECT_NE(v, 7u);
  EXPECT_EQ(v & 0xffffu, 0x8b1fu);
}

TEST(BinStream, ShortReadsAndBadMarkersAreErrors) {
  scratch_dir d;
  const std::string p = d.write("short.bin", bytes({1, 2, 3}));
  ibinstream in(p);
  unsigned v = 0;
  EXPECT_THROW(in >> v, binary_format_error);

  ibinstream text(d.write("t.bin", bytes({1, 0xff, 0xff, 0xff, 0x7f, 'x'})));
  std::string s;
  // A length far beyond the data fails at the end of the data.
  EXPECT_THROW(text.read_text(s), binary_format_error);

  ibinstream marker(d.write("m.bin", bytes({7})));
  EXPECT_THROW(marker.read_presence(), binary_format_error);
}

TEST(BinStream, OpeningFailures) {
  try {
    ibinstream in("/no/such/dir/file.bin");
    FAIL() << "no error";
  } catch (const std::runtime_error& e) {
    EXPECT_STREQ(e.what(), "Error description not available");
  }
  EXPECT_THROW(obinstream("/no/such/dir/file.bin"), std::runtime_error);
  EXPECT_THROW(obinstream("/no/such/dir/file.bin", true, 1), std::runtime_error);
}

TEST(BinStream, WritesThatNeverReachTheDiskFailTheClose) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  obinstream plain("/dev/full");
  plain << std::string("buffered until the close");
  EXPECT_FALSE(plain.close());
  obinstream zipped("/dev/full", true, 1);
  zipped << std::string("compressed");
  EXPECT_FALSE(zipped.close());
}

TEST(BinStream, CountsAreCheckedAgainstWhatRemains) {
  scratch_dir d;
  // A count of 3 items of 4 bytes, then 8 bytes: two items short.
  const std::string p = d.write("c.bin", bytes({3, 0, 0, 0}) + std::string(8, 'x'));
  for (bool through_gzip : {false, true}) {
    // A stored file read through the gzip connection has a known size too.
    ibinstream in(p, through_gzip);
    EXPECT_EQ(in.remaining(), 12);
    EXPECT_THROW(in.read_count(4), binary_format_error);
  }
  ibinstream fits(p);
  EXPECT_EQ(fits.read_count(2), 3u) << "6 bytes of the 8 left";
  EXPECT_EQ(fits.remaining(), 8);
  EXPECT_NO_THROW(fits.require(8));
  EXPECT_THROW(fits.require(9), binary_format_error);
  ibinstream limited(p);
  EXPECT_THROW(limited.read_count(1, 2), binary_format_error) << "beyond the caller's limit";

  // Compressed data have no known size: counts pass, reads fail at the end.
  const std::string z = d.file("z.bin");
  {
    obinstream out(z, true, 1);
    out << 1000000u;
  }
  ibinstream zipped(z, true);
  EXPECT_EQ(zipped.remaining(), -1);
  EXPECT_EQ(zipped.read_count(4), 1000000u);
  unsigned v;
  EXPECT_THROW(zipped >> v, binary_format_error);
}

TEST(BinStream, BooleansAreZeroOrOne) {
  scratch_dir d;
  ibinstream in(d.write("b.bin", bytes({0, 1, 2})));
  bool b = true;
  in >> b;
  EXPECT_FALSE(b);
  in >> b;
  EXPECT_TRUE(b);
  EXPECT_THROW(in >> b, binary_format_error);
}

TEST(BinStream, MemoryBuiltIsBoundedByBytesRead) {
  scratch_dir d;
  ibinstream in(d.write("m.bin", std::string(1000, '\0')));
  // Before anything is read only the fixed allowance is free.
  EXPECT_NO_THROW(in.account(ibinstream::memory_allowance));
  EXPECT_THROW(in.account(1), binary_format_error);
  ibinstream reading(d.file("m.bin"));
  std::string s(100, ' ');
  reading.read_bytes(s.data(), 100);
  EXPECT_NO_THROW(reading.account(ibinstream::memory_allowance + 100 * ibinstream::memory_per_byte));
  EXPECT_THROW(reading.account(1), binary_format_error);
}

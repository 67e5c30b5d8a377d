#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tarn/inpout/chunk_source.h"
#include "tarn/inpout/stream.h"
#include "test_support.h"

using namespace tarn::inpout;
using testing_support::scratch_dir;

namespace {

std::unique_ptr<stream> open(const std::string& path) { return std::unique_ptr<stream>(stream::FROM_FILE(path, ',')); }

std::vector<std::string> stream_lines(const std::string& path) {
  std::vector<std::string> lines;
  auto s = open(path);
  while (s->read_line()) lines.push_back(s->get_line());
  return lines;
}

struct reading {
  std::vector<std::string> lines;
  chunk_layout layout;
  std::string failure;  // the message of a failed reading
};

// Reads all chunks with `threads` threads, then puts the lines back in
// source order.
reading read_all(chunk_source& source, unsigned threads) {
  std::mutex m;
  std::map<std::size_t, text_chunk> chunks;
  std::vector<std::thread> pool;
  for (unsigned t = 0; t < threads; ++t) {
    pool.emplace_back([&] {
      text_chunk c;
      while (source.next(c)) {
        text_chunk copy = c;
        std::lock_guard<std::mutex> lock(m);
        chunks.emplace(c.index, std::move(copy));
      }
    });
  }
  for (std::thread& th : pool) th.join();
  reading r;
  std::size_t expected = 0;
  long long end = 0;  // of the lines so far
  for (auto& [index, c] : chunks) {
    EXPECT_EQ(index, expected++) << "chunks are numbered without gaps";
    if (c.size != 0) {
      EXPECT_EQ(c.offset, end) << "chunks hold every byte once";
      end = c.offset + static_cast<long long>(c.size);
    }
    r.layout.emplace_back(c.offset, c.size);
    line_cursor lines(c);
    while (const char* line = lines.next()) r.lines.emplace_back(line);
    if (c.failure) {
      try {
        std::rethrow_exception(c.failure);
      } catch (const std::runtime_error& e) {
        r.failure = e.what();
      }
    }
  }
  return r;
}

// The lines of every chunking of a file, plain or gzip, are the line
// stream's, and a second reading by the layout gives the same chunks.
void expect_stream_lines(const std::string& path) {
  const std::vector<std::string> want = stream_lines(path);
  for (const std::size_t chunk : {1u, 2u, 3u, 5u, 16u, 1000u, 1u << 20}) {
    for (const unsigned threads : {1u, 3u}) {
      auto s = open(path);
      reading first;
      {
        auto source = read_chunks(*s, chunk, 4);
        first = read_all(*source, threads);
      }
      EXPECT_EQ(first.lines, want) << path << ", chunks of " << chunk;
      EXPECT_EQ(first.failure, "");
      ASSERT_TRUE(s->rewind());
      auto again = reread_chunks(*s, first.layout, 4);
      const reading second = read_all(*again, threads);
      EXPECT_EQ(second.lines, want);
      EXPECT_EQ(second.layout, first.layout);
    }
  }
}

}  // namespace

TEST(ChunkSource, LinesAsTheLineStreamCutsThem) {
  scratch_dir d;
  const std::string long_line(3000, 'L');
  const std::string texts[] = {
      "",
      "\n",
      "one line without terminator",
      "a,b\r\nc,d\n\r\nlast\rx\n",      // CR LF pairs, an empty line, a lone CR
      "x\r\n\r\n\r\ny\r",                // a final CR is kept
      "p\n" + long_line + "\r\nq\n" + long_line,
      std::string("nul\0inside\nnext\n", 16),
  };
  int i = 0;
  for (const std::string& text : texts) {
    const std::string name = std::string(1, 't').append(std::to_string(i++));
    expect_stream_lines(d.write(name + ".txt", text));
    expect_stream_lines(testing_support::gzip_file(d.file(name + ".gz"), text));
  }
}

TEST(ChunkSource, ADamagedGzipFailsAfterItsCompleteLines) {
  scratch_dir d;
  std::string content;
  for (int i = 0; i < 20000; ++i) content += std::to_string(i * 7919) + ",row\n";
  const std::string full = testing_support::read_file(testing_support::gzip_file(d.file("full.gz"), content));
  const std::string cut = d.write("cut.gz", full.substr(0, full.size() / 2));
  std::vector<std::string> want;
  {
    auto s = open(cut);
    while (s->read_line()) want.push_back(s->get_line());
    EXPECT_TRUE(s->failed());
  }
  for (const std::size_t chunk : {7u, 4096u}) {
    auto s = open(cut);
    auto source = read_chunks(*s, chunk, 3);
    const reading r = read_all(*source, 2);
    EXPECT_EQ(r.lines, want);
    EXPECT_EQ(r.failure, "File: " + cut + " could not be read to its end (corrupt or truncated data)");
  }
}

TEST(ChunkSource, AShortenedFileFailsTheSecondReading) {
  scratch_dir d;
  const std::string path = d.write("f.txt", "aaaa\nbbbb\ncccc\n");
  auto s = open(path);
  reading first;
  {
    auto source = read_chunks(*s, 5, 2);
    first = read_all(*source, 1);
  }
  testing_support::write_file(path, "aaaa\nbb");
  ASSERT_TRUE(s->rewind());
  auto again = reread_chunks(*s, first.layout, 2);
  const reading second = read_all(*again, 1);
  EXPECT_EQ(second.lines, (std::vector<std::string>{"aaaa"}));
  EXPECT_EQ(second.failure, "File: " + path + " could not be read to its end (corrupt or truncated data)");
}

TEST(ChunkSource, StoppingEndsTheReadingEarly) {
  scratch_dir d;
  std::string content;
  for (int i = 0; i < 1000; ++i) content += "line " + std::to_string(i) + "\n";
  for (const std::string& path : {d.write("s.txt", content), testing_support::gzip_file(d.file("s.gz"), content)}) {
    auto s = open(path);
    auto source = read_chunks(*s, 100, 3);
    text_chunk c;
    std::size_t last = 0;
    ASSERT_TRUE(source->next(c));
    source->stop_after(2);
    while (source->next(c)) last = c.index;
    EXPECT_LT(last, 10u) << "only chunks already cut come after the stop";
  }
}

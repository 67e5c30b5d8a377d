#include "sylva/impls/dist_text.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

#include "sylva/impls/dist_comm.h"
#include "tarn/inpout/iomem.h"

namespace sylva::impls::dist {

namespace {

// Blocks rank 0 deals from a gzip file: about this many bytes of lines.
constexpr size_t gzip_block = size_t(4) << 20;

std::uint64_t lines_in(const std::vector<char>& bytes) {
  return static_cast<std::uint64_t>(std::count(bytes.begin(), bytes.end(), '\n'));
}

// The first line start at or after `at`: `at` itself when the byte before it
// ends a line.
std::uint64_t line_start(std::FILE* f, std::uint64_t at, std::uint64_t size) {
  if (at == 0 || at >= size) return std::min(at, size);
  if (std::fseek(f, static_cast<long>(at - 1), SEEK_SET) != 0) throw std::runtime_error("cannot seek");
  std::uint64_t p = at - 1;
  for (int c; (c = std::fgetc(f)) != EOF; ++p)
    if (c == '\n') return p + 1;
  return size;
}

std::vector<text_block> plain_share(communicator& comm, const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  const bool opened = f != nullptr;
  if (!comm.all(opened)) {
    if (f) std::fclose(f);
    throw std::runtime_error("File: " + path + " not found or inaccessible");
  }
  std::fseek(f, 0, SEEK_END);
  const std::uint64_t size = static_cast<std::uint64_t>(std::ftell(f));
  const std::uint64_t k = static_cast<std::uint64_t>(comm.size()), r = static_cast<std::uint64_t>(comm.rank());
  const std::uint64_t begin = line_start(f, size * r / k, size), end = line_start(f, size * (r + 1) / k, size);
  text_block block;
  block.bytes.resize(end - begin);
  std::fseek(f, static_cast<long>(begin), SEEK_SET);
  const size_t got = block.bytes.empty() ? 0 : std::fread(block.bytes.data(), 1, block.bytes.size(), f);
  std::fclose(f);
  if (got != block.bytes.size()) throw std::runtime_error("File: " + path + " cannot be read");
  // The last line of the file may lack its end.
  if (!block.bytes.empty() && block.bytes.back() != '\n') block.bytes.push_back('\n');
  block.first_row = comm.exclusive_sum(lines_in(block.bytes));
  std::vector<text_block> out;
  out.push_back(std::move(block));
  return out;
}

// Rank 0 reads the stream and deals blocks round robin; each message holds
// a block's first row and its bytes, and a last one with first row `none`
// ends the file for each rank.
std::vector<text_block> dealt_share(communicator& comm, const std::string& path, char separator,
                                    row_error& error) {
  std::vector<text_block> out;
  const int k = comm.size();
  if (comm.rank() != 0) {
    for (;;) {
      const std::vector<char> message = comm.receive(0);
      unpacker in(message);
      text_block b;
      b.first_row = in.get<std::uint64_t>();
      if (b.first_row == row_error::none) break;
      b.bytes.resize(message.size() - sizeof(std::uint64_t));
      in.get(b.bytes.data(), b.bytes.size());
      out.push_back(std::move(b));
    }
    return out;
  }
  std::unique_ptr<tarn::inpout::stream> s;
  std::string failure;
  try {
    s.reset(tarn::inpout::stream::FROM_FILE(path, separator));
  } catch (const std::runtime_error& e) {
    failure = e.what();
  }
  std::uint64_t row = 0;
  int next = 0;
  text_block block;
  auto deal = [&](bool last) {
    if (!block.bytes.empty()) {
      if (next == 0) {
        out.push_back(std::move(block));
      } else {
        packer p;
        p.put(block.first_row);
        p.put(block.bytes.data(), block.bytes.size());
        comm.send(next, p.bytes());
      }
      next = (next + 1) % k;
    }
    block = text_block();
    block.first_row = row;
    if (!last) return;
    for (int d = 1; d < k; ++d) {
      packer p;
      p.put(row_error::none);
      comm.send(d, p.bytes());
    }
  };
  if (s) {
    while (s->read_line()) {
      const char* line = s->get_line();
      block.bytes.insert(block.bytes.end(), line, line + std::char_traits<char>::length(line));
      block.bytes.push_back('\n');
      ++row;
      if (block.bytes.size() >= gzip_block) deal(false);
    }
    try {
      s->check_complete();
    } catch (const std::runtime_error& e) {
      error.row = row + 1;
      error.message = e.what();
    }
  }
  deal(true);
  std::vector<char> text(failure.begin(), failure.end());
  comm.broadcast(text, 0);
  if (!failure.empty()) throw std::runtime_error(failure);
  return out;
}

}  // namespace

std::vector<text_block> read_share(communicator& comm, const std::string& path, char separator,
                                   row_error& error) {
  const bool gzip = path.size() > 2 && path.compare(path.size() - 3, 3, ".gz") == 0;
  if (!gzip) return plain_share(comm, path);
  std::vector<text_block> blocks = dealt_share(comm, path, separator, error);
  if (comm.rank() != 0) {
    std::vector<char> failure;
    comm.broadcast(failure, 0);
    if (!failure.empty()) throw std::runtime_error(std::string(failure.begin(), failure.end()));
  }
  return blocks;
}

text_block read_contiguous_share(communicator& comm, const std::string& path, char separator, row_error& error) {
  const bool gzip = path.size() > 2 && path.compare(path.size() - 3, 3, ".gz") == 0;
  if (!gzip) return std::move(plain_share(comm, path).front());
  const int k = comm.size();
  text_block mine;
  if (comm.rank() != 0) {
    std::vector<char> failure;
    comm.broadcast(failure, 0);
    if (!failure.empty()) throw std::runtime_error(std::string(failure.begin(), failure.end()));
    for (;;) {
      const std::vector<char> message = comm.receive(0);
      unpacker in(message);
      const std::uint64_t first = in.get<std::uint64_t>();
      if (first == row_error::none) break;
      if (mine.bytes.empty()) mine.first_row = first;
      const size_t n = message.size() - sizeof(std::uint64_t), at = mine.bytes.size();
      mine.bytes.resize(at + n);
      in.get(mine.bytes.data() + at, n);
    }
    return mine;
  }
  std::unique_ptr<tarn::inpout::stream> s;
  std::string failure;
  std::uint64_t total = 0;
  try {
    s.reset(tarn::inpout::stream::FROM_FILE(path, separator));
    while (s->read_line()) ++total;
    s->check_complete();
    if (!s->rewind()) throw std::runtime_error("File: " + path + " cannot be read a second time");
  } catch (const std::runtime_error& e) {
    // A stream that breaks off: its lines are dealt, the error comes after.
    if (s && !s->failed()) failure = e.what();
    if (s && s->failed()) {
      error.row = total + 1;
      error.message = e.what();
      s.reset(tarn::inpout::stream::FROM_FILE(path, separator));
    }
  }
  std::vector<char> text(failure.begin(), failure.end());
  comm.broadcast(text, 0);
  if (!failure.empty()) throw std::runtime_error(failure);
  std::uint64_t row = 0;
  for (int d = 0; d < k; ++d) {
    const std::uint64_t end = total * static_cast<std::uint64_t>(d + 1) / static_cast<std::uint64_t>(k);
    text_block block;
    block.first_row = row;
    auto flush = [&] {
      if (block.bytes.empty()) return;
      if (d == 0) {
        mine = std::move(block);
      } else {
        packer p;
        p.put(block.first_row);
        p.put(block.bytes.data(), block.bytes.size());
        comm.send(d, p.bytes());
      }
      block = text_block();
      block.first_row = row;
    };
    for (; row < end && s->read_line(); ++row) {
      const char* line = s->get_line();
      block.bytes.insert(block.bytes.end(), line, line + std::char_traits<char>::length(line));
      block.bytes.push_back('\n');
      if (d != 0 && block.bytes.size() >= gzip_block) flush();
    }
    flush();
    if (d != 0) {
      packer p;
      p.put(row_error::none);
      comm.send(d, p.bytes());
    }
  }
  mine.first_row = 0;
  return mine;
}

row_error first_error(communicator& comm, const row_error& mine) {
  packer p;
  p.put(mine.row);
  p.put_text(mine.message);
  row_error first;
  for (const std::vector<char>& block : comm.all_gather(p.bytes())) {
    unpacker in(block);
    row_error e;
    e.row = in.get<std::uint64_t>();
    e.message = in.get_text();
    if (e.row < first.row) first = e;
  }
  return first;
}

std::unique_ptr<tarn::inpout::stream> block_stream(text_block& block, char separator) {
  auto mem = std::make_unique<tarn::inpout::iomem>();
  mem->open(block.bytes.data(), static_cast<unsigned>(block.bytes.size()), static_cast<unsigned>(block.bytes.size()));
  auto s = std::make_unique<tarn::inpout::stream>(mem.release(), true, separator, 1 << 16);
  return s;
}

}  // namespace sylva::impls::dist

#pragma once

// The collectives a distributed build uses, over MPI_COMM_WORLD: sums of
// integer counts (exact, so their order does not matter), exchanges of byte
// blocks, and a count of the bytes this rank sends. Every call is made by
// all ranks in the same order; a failure of MPI ends the job.

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace sylva::impls::dist {

// Plain values appended to a byte block.
class packer {
public:
  template <class T>
  void put(const T& v) {
    const size_t at = bytes_.size();
    bytes_.resize(at + sizeof(T));
    std::memcpy(bytes_.data() + at, &v, sizeof(T));
  }
  template <class T>
  void put(const T* p, size_t n) {
    const size_t at = bytes_.size();
    bytes_.resize(at + n * sizeof(T));
    if (n) std::memcpy(bytes_.data() + at, p, n * sizeof(T));
  }
  void put_text(const std::string& s) {
    put<std::uint64_t>(s.size());
    put(s.data(), s.size());
  }
  std::vector<char>& bytes() { return bytes_; }
  size_t size() const { return bytes_.size(); }

private:
  std::vector<char> bytes_;
};

// Reads what a packer wrote; reading past the end throws.
class unpacker {
public:
  unpacker(const char* p, size_t n) : at_(p), end_(p + n) {}
  explicit unpacker(const std::vector<char>& b) : unpacker(b.data(), b.size()) {}
  template <class T>
  T get() {
    T v;
    take(&v, sizeof(T));
    return v;
  }
  template <class T>
  void get(T* p, size_t n) {
    take(p, n * sizeof(T));
  }
  std::string get_text() {
    std::string s(get<std::uint64_t>(), '\0');
    take(s.data(), s.size());
    return s;
  }
  bool done() const { return at_ == end_; }
  // The next n bytes where they lie, skipped.
  const char* skip(size_t n) {
    const char* p = at_;
    take(nullptr, n);
    return p;
  }

private:
  void take(void* p, size_t n) {
    if (static_cast<size_t>(end_ - at_) < n) throw std::runtime_error("[dist::unpacker] message too short");
    if (n && p) std::memcpy(p, at_, n);
    at_ += n;
  }
  const char* at_;
  const char* end_;
};

class communicator {
public:
  communicator();
  int rank() const { return rank_; }
  int size() const { return size_; }

  // Element-wise over all ranks, in place.
  void sum(std::vector<std::int64_t>& v);
  void sum(std::vector<std::uint64_t>& v);
  void min(std::vector<std::int64_t>& v);
  void max(std::vector<std::int64_t>& v);
  std::uint64_t sum(std::uint64_t v);
  std::uint64_t max(std::uint64_t v);
  // The sum over the ranks before this one.
  std::uint64_t exclusive_sum(std::uint64_t v);
  bool all(bool v);
  // Every rank's block, in rank order, on every rank.
  std::vector<std::vector<char>> all_gather(const std::vector<char>& mine);
  // Block d goes to rank d; returns the block from each rank. The blocks
  // sent are released (this rank's own is moved, not copied).
  std::vector<std::vector<char>> all_to_all(std::vector<std::vector<char>>& out);
  // Rank `root`'s block on every rank.
  void broadcast(std::vector<char>& bytes, int root);
  void send(int to, const std::vector<char>& bytes);
  std::vector<char> receive(int from);
  void barrier();

  // Bytes this rank has handed to collectives and sends so far.
  std::uint64_t bytes_sent() const { return sent_; }

private:
  int rank_ = 0, size_ = 1;
  std::uint64_t sent_ = 0;
};

}  // namespace sylva::impls::dist

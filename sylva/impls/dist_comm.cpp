#include "sylva/impls/dist_comm.h"

#include <mpi.h>

#include <climits>

namespace sylva::impls::dist {

namespace {

// Point-to-point transfers go in pieces MPI's int counts can hold.
constexpr std::uint64_t piece = std::uint64_t(1) << 30;
constexpr int tag_blocks = 17;

void check(int code, const char* what) {
  if (code == MPI_SUCCESS) return;
  char text[MPI_MAX_ERROR_STRING];
  int length = 0;
  MPI_Error_string(code, text, &length);
  throw std::runtime_error(std::string("MPI ") + what + ": " + std::string(text, static_cast<size_t>(length)));
}

int as_count(std::uint64_t n) {
  return n > static_cast<std::uint64_t>(INT_MAX) ? -1 : static_cast<int>(n);
}

constexpr int tag_exchange = 18;

// A nonblocking piece of an exchange with rank `peer`.
template <class Start, class Buffer>
MPI_Request irequest(Start start, Buffer* p, std::uint64_t n, size_t peer) {
  MPI_Request r;
  check(start(p, static_cast<int>(n), MPI_BYTE, static_cast<int>(peer), tag_exchange, MPI_COMM_WORLD, &r), "exchange");
  return r;
}

void send_pieces(const char* p, std::uint64_t n, int to) {
  for (std::uint64_t at = 0; at < n; at += piece) {
    const int c = static_cast<int>(std::min(piece, n - at));
    check(MPI_Send(p + at, c, MPI_BYTE, to, tag_blocks, MPI_COMM_WORLD), "send");
  }
}

void receive_pieces(char* p, std::uint64_t n, int from) {
  for (std::uint64_t at = 0; at < n; at += piece) {
    const int c = static_cast<int>(std::min(piece, n - at));
    check(MPI_Recv(p + at, c, MPI_BYTE, from, tag_blocks, MPI_COMM_WORLD, MPI_STATUS_IGNORE), "receive");
  }
}

}  // namespace

communicator::communicator() {
  MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
  MPI_Comm_size(MPI_COMM_WORLD, &size_);
}

void communicator::sum(std::vector<std::int64_t>& v) {
  sent_ += v.size() * sizeof(std::int64_t);
  if (v.empty()) return;
  for (size_t at = 0; at < v.size(); at += piece / 8) {
    const int c = static_cast<int>(std::min<size_t>(piece / 8, v.size() - at));
    check(MPI_Allreduce(MPI_IN_PLACE, v.data() + at, c, MPI_INT64_T, MPI_SUM, MPI_COMM_WORLD), "sum");
  }
}

void communicator::sum(std::vector<std::uint64_t>& v) {
  sent_ += v.size() * sizeof(std::uint64_t);
  if (v.empty()) return;
  for (size_t at = 0; at < v.size(); at += piece / 8) {
    const int c = static_cast<int>(std::min<size_t>(piece / 8, v.size() - at));
    check(MPI_Allreduce(MPI_IN_PLACE, v.data() + at, c, MPI_UINT64_T, MPI_SUM, MPI_COMM_WORLD), "sum");
  }
}

void communicator::min(std::vector<std::int64_t>& v) {
  sent_ += v.size() * sizeof(std::int64_t);
  if (v.empty()) return;
  for (size_t at = 0; at < v.size(); at += piece / 8) {
    const int c = static_cast<int>(std::min<size_t>(piece / 8, v.size() - at));
    check(MPI_Allreduce(MPI_IN_PLACE, v.data() + at, c, MPI_INT64_T, MPI_MIN, MPI_COMM_WORLD), "min");
  }
}

void communicator::max(std::vector<std::int64_t>& v) {
  sent_ += v.size() * sizeof(std::int64_t);
  if (v.empty()) return;
  for (size_t at = 0; at < v.size(); at += piece / 8) {
    const int c = static_cast<int>(std::min<size_t>(piece / 8, v.size() - at));
    check(MPI_Allreduce(MPI_IN_PLACE, v.data() + at, c, MPI_INT64_T, MPI_MAX, MPI_COMM_WORLD), "max");
  }
}

std::uint64_t communicator::sum(std::uint64_t v) {
  std::vector<std::uint64_t> one{v};
  sum(one);
  return one[0];
}

std::uint64_t communicator::max(std::uint64_t v) {
  sent_ += sizeof v;
  std::uint64_t out = 0;
  check(MPI_Allreduce(&v, &out, 1, MPI_UINT64_T, MPI_MAX, MPI_COMM_WORLD), "max");
  return out;
}

std::uint64_t communicator::exclusive_sum(std::uint64_t v) {
  sent_ += sizeof v;
  std::uint64_t out = 0;
  check(MPI_Exscan(&v, &out, 1, MPI_UINT64_T, MPI_SUM, MPI_COMM_WORLD), "scan");
  return rank_ == 0 ? 0 : out;  // undefined on rank 0
}

bool communicator::all(bool v) {
  sent_ += sizeof(int);
  int in = v, out = 0;
  check(MPI_Allreduce(&in, &out, 1, MPI_INT, MPI_LAND, MPI_COMM_WORLD), "and");
  return out != 0;
}

std::vector<std::vector<char>> communicator::all_gather(const std::vector<char>& mine) {
  std::vector<std::uint64_t> sizes(static_cast<size_t>(size_), 0);
  const std::uint64_t own = mine.size();
  check(MPI_Allgather(&own, 1, MPI_UINT64_T, sizes.data(), 1, MPI_UINT64_T, MPI_COMM_WORLD), "gather");
  sent_ += own * static_cast<std::uint64_t>(size_ - 1);
  std::vector<std::vector<char>> blocks(static_cast<size_t>(size_));
  std::uint64_t total = 0;
  for (int r = 0; r < size_; ++r) {
    blocks[r].resize(sizes[r]);
    total += sizes[r];
  }
  if (as_count(total) >= 0) {
    std::vector<int> counts(static_cast<size_t>(size_)), at(static_cast<size_t>(size_));
    std::vector<char> all(total);
    for (int r = 0, offset = 0; r < size_; offset += counts[r], ++r) {
      counts[r] = static_cast<int>(sizes[r]);
      at[r] = offset;
    }
    check(MPI_Allgatherv(mine.data(), static_cast<int>(own), MPI_BYTE, all.data(), counts.data(), at.data(),
                         MPI_BYTE, MPI_COMM_WORLD),
          "gather");
    for (int r = 0; r < size_; ++r) std::memcpy(blocks[r].data(), all.data() + at[r], sizes[r]);
    return blocks;
  }
  for (int r = 0; r < size_; ++r) {
    if (r == rank_) blocks[r] = mine;
    for (std::uint64_t a = 0; a < sizes[r]; a += piece) {
      const int c = static_cast<int>(std::min(piece, sizes[r] - a));
      check(MPI_Bcast(blocks[r].data() + a, c, MPI_BYTE, r, MPI_COMM_WORLD), "gather");
    }
  }
  return blocks;
}

std::vector<std::vector<char>> communicator::all_to_all(std::vector<std::vector<char>>& out) {
  const size_t k = static_cast<size_t>(size_);
  std::vector<std::uint64_t> send_sizes(k), receive_sizes(k);
  for (size_t d = 0; d < k; ++d) {
    send_sizes[d] = out[d].size();
    if (d != static_cast<size_t>(rank_)) sent_ += out[d].size();
  }
  check(MPI_Alltoall(send_sizes.data(), 1, MPI_UINT64_T, receive_sizes.data(), 1, MPI_UINT64_T, MPI_COMM_WORLD),
        "exchange");
  std::vector<std::vector<char>> in(k);
  // The block to itself does not go through MPI.
  const size_t me = static_cast<size_t>(rank_);
  in[me] = std::move(out[me]);
  out[me].clear();
  send_sizes[me] = receive_sizes[me] = 0;
  for (size_t d = 0; d < k; ++d)
    if (d != me) in[d].resize(receive_sizes[d]);
  // Straight from each block sent into each block received, in pieces MPI's
  // counts hold (pieces between two ranks keep their order), without
  // staging copies: the exchange holds what it sends and what it receives.
  std::vector<MPI_Request> requests;
  for (size_t d = 0; d < k; ++d)
    for (std::uint64_t at = 0; at < receive_sizes[d]; at += piece)
      requests.push_back(irequest(MPI_Irecv, in[d].data() + at, std::min(piece, receive_sizes[d] - at), d));
  for (size_t d = 0; d < k; ++d)
    for (std::uint64_t at = 0; at < send_sizes[d]; at += piece)
      requests.push_back(irequest(MPI_Isend, out[d].data() + at, std::min(piece, send_sizes[d] - at), d));
  check(MPI_Waitall(static_cast<int>(requests.size()), requests.data(), MPI_STATUSES_IGNORE), "exchange");
  for (std::vector<char>& block : out) block = std::vector<char>();
  return in;
}

void communicator::broadcast(std::vector<char>& bytes, int root) {
  std::uint64_t n = bytes.size();
  check(MPI_Bcast(&n, 1, MPI_UINT64_T, root, MPI_COMM_WORLD), "broadcast");
  if (rank_ == root) sent_ += n * static_cast<std::uint64_t>(size_ - 1);
  bytes.resize(n);
  for (std::uint64_t a = 0; a < n; a += piece) {
    const int c = static_cast<int>(std::min(piece, n - a));
    check(MPI_Bcast(bytes.data() + a, c, MPI_BYTE, root, MPI_COMM_WORLD), "broadcast");
  }
}

void communicator::send(int to, const std::vector<char>& bytes) {
  const std::uint64_t n = bytes.size();
  sent_ += n + sizeof n;
  check(MPI_Send(&n, 1, MPI_UINT64_T, to, tag_blocks, MPI_COMM_WORLD), "send");
  send_pieces(bytes.data(), n, to);
}

std::vector<char> communicator::receive(int from) {
  std::uint64_t n = 0;
  check(MPI_Recv(&n, 1, MPI_UINT64_T, from, tag_blocks, MPI_COMM_WORLD, MPI_STATUS_IGNORE), "receive");
  std::vector<char> bytes(n);
  receive_pieces(bytes.data(), n, from);
  return bytes;
}

void communicator::barrier() { check(MPI_Barrier(MPI_COMM_WORLD), "barrier"); }

}  // namespace sylva::impls::dist

// Builds the distributed growth cannot make exact: every rank's rows are
// gathered on rank 0, which grows the tree with the single-machine build,
// and every rank receives the model.

#include <cstring>
#include <memory>
#include <stdexcept>

#include "sylva/impls/dist_build.h"
#include "sylva/impls/dist_comm.h"
#include "sylva/impls/table.h"

namespace sylva::impls::dist {

namespace {

// The codes of the rows of one column, in row order.
std::vector<char> column_codes(const column& c) {
  std::vector<char> bytes(static_cast<size_t>(c.size()) * sizeof(std::uint32_t));
  for (unsigned r = 0; r < c.size(); ++r) {
    const std::uint32_t code = c.get_row_index(r);
    std::memcpy(bytes.data() + static_cast<size_t>(r) * sizeof code, &code, sizeof code);
  }
  return bytes;
}

// Rank 0: the whole training table, every rank's rows in file order (the
// ranks hold consecutive rows); the columns keep the merged domains.
std::unique_ptr<table> gather_table(communicator& comm, const shard& s) {
  const table& mine = *s.rows;
  std::unique_ptr<table> whole;
  if (comm.rank() == 0) {
    whole = std::make_unique<table>(mine.get_name(), true);
    whole->set_verbosity(mine.get_verbosity());  // the model keeps it
  }
  for (unsigned a = 0; a < mine.get_no_attributes(); ++a) {
    const column& c = *mine.get_attribute(a);
    // A column without storage (one to ignore) holds no row on any rank.
    if (comm.max(static_cast<std::uint64_t>(c.size())) == 0) {
      if (whole) whole->push_back_filled(c.clone(true));
      continue;
    }
    if (comm.rank() != 0) {
      comm.send(0, column_codes(c));
      continue;
    }
    std::unique_ptr<column> all(c.clone(true));
    all->reserve(static_cast<unsigned>(s.total));
    for (unsigned r = 0; r < c.size(); ++r) all->push_index(c.get_row_index(r));
    for (int from = 1; from < comm.size(); ++from) {
      const std::vector<char> block = comm.receive(from);
      unpacker in(block);
      for (size_t i = 0; i < block.size() / sizeof(std::uint32_t); ++i) all->push_index(in.get<std::uint32_t>());
    }
    whole->push_back_filled(all.release());
  }
  return whole;
}

// Rank 0: a list of every rank's cases, as rows of the whole table; the
// ranks' lists follow one another as their rows do.
std::unique_ptr<w_sequence> gather_cases(communicator& comm, const shard& s, const w_sequence& cases) {
  packer p;
  for (const w_pair& c : cases) {
    p.put<std::uint64_t>(s.first + c.first);
    p.put<float>(c.second);
  }
  if (comm.rank() != 0) {
    comm.send(0, p.bytes());
    return nullptr;
  }
  auto all = std::make_unique<w_sequence>();
  auto take = [&](const std::vector<char>& block) {
    unpacker in(block);
    while (!in.done()) {
      const auto row = static_cast<unsigned>(in.get<std::uint64_t>());
      all->emplace_back(row, in.get<float>());
    }
  };
  take(p.bytes());
  for (int from = 1; from < comm.size(); ++from) take(comm.receive(from));
  return all;
}

}  // namespace

bool grows_distributed(communicator& comm, const shard& s, const w_sequence* training, const w_sequence* rest) {
  const bool whole = whole_weight_build(comm, s, training);
  // A hold-out matrix is summed over the ranks exactly only for whole weights.
  return whole && (!rest || whole_weight_build(comm, s, rest));
}

conf_matrix* build_gathered(communicator& comm, decision_tree& model, const shard& s, const w_sequence* training,
                            const w_sequence* rest, int cores) {
  std::unique_ptr<table> whole = gather_table(comm, s);
  std::unique_ptr<w_sequence> cases, others;
  if (training) cases = gather_cases(comm, s, *training);
  if (rest) others = gather_cases(comm, s, *rest);
  std::vector<char> bytes;
  std::unique_ptr<conf_matrix> holdout;
  if (comm.rank() == 0) {
    model.build_pruned(whole.get(), cases.get(), true, cores);
    if (others) holdout.reset(model.predict(whole.get(), others.get()));
    const std::string raw = model.to_bytes();
    bytes.assign(raw.begin(), raw.end());
  }
  whole.reset();
  comm.broadcast(bytes, 0);
  if (comm.rank() != 0) model.from_bytes(bytes.data(), bytes.size());
  return holdout.release();
}

}  // namespace sylva::impls::dist

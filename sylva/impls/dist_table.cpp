#include "sylva/impls/dist_table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <ostream>

#include "sylva/impls/dist_comm.h"
#include "sylva/impls/dist_text.h"
#include "sylva/impls/o_set.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/rand_gen.h"

namespace sylva::impls::dist {

namespace {

// "... (row L) ..." of a local load made "(row first + L)"; the file's row.
std::uint64_t global_row(std::string& message, std::uint64_t first) {
  const std::string mark = "(row ";
  const size_t at = message.find(mark);
  if (at == std::string::npos) return first + 1;
  const size_t digits = at + mark.size(), close = message.find(')', digits);
  if (close == std::string::npos) return first + 1;
  const std::uint64_t local = std::strtoull(message.substr(digits, close - digits).c_str(), nullptr, 10);
  message.replace(digits, close - digits, std::to_string(first + local));
  return first + local;
}

// The log lines of a load of `rows` rows, or of one stopped by a bad row at
// `bad` (its counters up to that row), as the table's loader writes them.
void load_log(std::ostream& log, std::uint64_t rows, std::uint64_t bad) {
  auto counters = [&](std::uint64_t upto) {
    for (std::uint64_t r = 10000; r <= upto; r += 10000) log << "  " << r << "\r";
  };
  log << "Reading data " << std::endl << " ... 1st pass: " << std::endl;
  if (bad) {
    counters(bad);
    log.flush();
    return;
  }
  counters(rows);
  log << "  " << rows << " rows read. Indexing ... " << " done." << std::endl << " ... 2nd pass: " << std::endl;
  counters(rows);
  log << "  " << rows << " rows read." << std::endl;
}

// Every rank's values of a domain inserted into one: the single load's.
// `code` gets, for each local code, the merged domain's.
o_set* merged_texts(communicator& comm, const o_set& local, std::vector<unsigned>& code) {
  packer p;
  p.put<std::uint8_t>(local.contains_null());
  const unsigned n = local.size_of_known();
  p.put<std::uint32_t>(n);
  for (unsigned i = 1; i <= n; ++i) p.put_text(local.get_value(i));
  std::unique_ptr<o_set> merged(o_set::NEW_O_SET(local.get_datatype(), local.admits_null(), local.get_null()));
  for (const std::vector<char>& block : comm.all_gather(p.bytes())) {
    unpacker in(block);
    if (in.get<std::uint8_t>()) merged->insert(local.get_null());
    const std::uint32_t values = in.get<std::uint32_t>();
    for (std::uint32_t i = 0; i < values; ++i) merged->insert(in.get_text().c_str());
  }
  code.assign(n + 1, 0);
  for (unsigned i = 1; i <= n; ++i) merged->get_order(local.get_value(i).c_str(), code[i]);
  return merged.release();
}

// The same for a numeric domain, its values sent as they are: the ranks'
// ascending values merged, the first rank's kept among equal ones (as
// inserting them in rank order keeps it), without printing and parsing.
template <class T>
o_set* merged_values(communicator& comm, const o_set_typed<T>& local, std::vector<unsigned>& code) {
  using value = typename T::value_type;
  const std::vector<T>& mine = local.values();
  packer p;
  p.put<std::uint8_t>(local.contains_null());
  p.put<std::uint64_t>(mine.size());
  for (const T& v : mine) p.put<value>(v.value);
  std::vector<T> all;
  bool null = false;
  for (const std::vector<char>& block : comm.all_gather(p.bytes())) {
    unpacker in(block);
    null = in.get<std::uint8_t>() || null;
    const auto n = in.get<std::uint64_t>();
    for (std::uint64_t i = 0; i < n; ++i) all.emplace_back(in.get<value>());
  }
  std::stable_sort(all.begin(), all.end());
  all.erase(std::unique(all.begin(), all.end()), all.end());
  code.assign(mine.size() + 1, 0);
  for (size_t i = 0; i < mine.size(); ++i)
    code[i + 1] = static_cast<unsigned>(std::lower_bound(all.begin(), all.end(), mine[i]) - all.begin()) + 1;
  auto merged = std::make_unique<o_set_typed<T>>(local.get_datatype(), local.admits_null(), local.get_null());
  merged->assign_sorted(std::move(all));
  merged->set_contains_null(null);
  return merged.release();
}

o_set* merged_domain(communicator& comm, const o_set& local, std::vector<unsigned>& code) {
  using tarn::data_types::datatype;
  if (auto* d = dynamic_cast<const o_set_typed<datatype<float>>*>(&local)) return merged_values(comm, *d, code);
  if (auto* d = dynamic_cast<const o_set_typed<datatype<double>>*>(&local)) return merged_values(comm, *d, code);
  if (auto* d = dynamic_cast<const o_set_typed<datatype<int>>*>(&local)) return merged_values(comm, *d, code);
  if (auto* d = dynamic_cast<const o_set_typed<datatype<unsigned>>*>(&local)) return merged_values(comm, *d, code);
  return merged_texts(comm, local, code);
}

}  // namespace

shard load_shard(communicator& comm, const std::string& metadata_file, const std::string& data_file,
                 const std::string& separator, const std::string& unknown, std::ostream* log) {
  const char sep = separator.empty() ? '\0' : separator[0];
  auto local = std::make_unique<table>("training_set", true);
  local->load_meta_data(tarn::inpout::stream::FROM_READER("FILE#" + metadata_file + "#" + separator), true);
  row_error error;
  text_block share = read_contiguous_share(comm, data_file, sep, error);
  const std::uint64_t first = share.first_row;
  local->set_verbosity(0);
  local->set_log(nullptr);
  try {
    local->load_data(block_stream(share, sep).release(), unknown, true);
  } catch (const std::runtime_error& e) {
    if (!error.exists()) {
      error.message = e.what();
      error.row = global_row(error.message, first);
    }
  }
  share = text_block();
  const row_error bad = first_error(comm, error);
  const std::uint64_t rows = comm.sum(static_cast<std::uint64_t>(error.exists() ? 0 : local->get_no_rows()));
  if (log) load_log(*log, rows, bad.exists() ? bad.row : 0);
  if (bad.exists()) throw std::runtime_error(bad.message);

  shard s;
  s.first = first;
  s.total = rows;
  s.rows = std::make_unique<table>(local->get_name(), true);
  const unsigned n = local->get_no_rows();
  for (unsigned a = 0; a < local->get_no_attributes(); ++a) {
    const column* c = local->get_attribute(a);
    std::vector<unsigned> code;
    std::unique_ptr<o_set> domain(merged_domain(comm, *c->get_o_set(), code));
    std::string message;
    column* merged = column::NEW_COLUMN(domain.get(), c->get_name(), c->get_type(), message);
    if (!merged) throw std::runtime_error(message);
    domain.release();
    std::unique_ptr<column> owned(merged);
    if (c->size() == n) {
      merged->reserve(n);
      for (unsigned r = 0; r < n; ++r) merged->push_index(code[c->get_row_index(r)]);
    }
    s.rows->push_back_filled(owned.release());
  }
  return s;
}

}  // namespace sylva::impls::dist

namespace sylva::impls::dist {

void holdout_split(communicator& comm, const shard& s, bool random, std::uint64_t n, w_sequence& training,
                   w_sequence& rest) {
  const std::uint64_t local = s.rows->get_no_rows(), end = s.first + local;
  std::vector<char> taken(local, 0);
  if (!random) {
    for (std::uint64_t g = s.first; g < std::min(n, end); ++g) taken[g - s.first] = 1;
  } else {
    // Every rank draws the whole sequence and keeps its own rows of it.
    std::vector<char> seed(sizeof(std::int64_t));
    const std::int64_t now = static_cast<std::int64_t>(std::time(nullptr));
    std::memcpy(seed.data(), &now, sizeof now);
    comm.broadcast(seed, 0);
    std::int64_t shared = 0;
    std::memcpy(&shared, seed.data(), sizeof shared);
    std::srand(static_cast<unsigned>(shared));
    std::uint64_t need = std::min(n, s.total), remaining = s.total;
    for (std::uint64_t g = 0; need > 0; ++g, --remaining) {
      const auto k = static_cast<unsigned long long>(static_cast<unsigned>(remaining) * tarn::util::rand_gen::draw());
      if (k < need) {
        if (g >= s.first && g < end) taken[g - s.first] = 1;
        --need;
      }
    }
  }
  for (std::uint32_t r = 0; r < local; ++r) (taken[r] ? training : rest).emplace_back(r, 1.0f);
  s.rows->update_weights(&training);
  s.rows->update_weights(&rest);
}

}  // namespace sylva::impls::dist

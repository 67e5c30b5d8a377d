#include "sylva/impls/dist_table.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "sylva/impls/dist_comm.h"
#include "sylva/impls/table.h"
#include "tarn/util/rand_gen.h"

namespace sylva::impls::dist {

shard slice(communicator& comm, const table& whole) {
  shard s;
  const std::uint64_t n = whole.get_no_rows(), k = static_cast<std::uint64_t>(comm.size());
  const std::uint64_t r = static_cast<std::uint64_t>(comm.rank());
  s.first = n * r / k;
  s.total = n;
  const std::uint64_t last = n * (r + 1) / k;
  s.rows = std::make_unique<table>(whole.get_name(), true);
  s.rows->set_verbosity(whole.get_verbosity());
  for (unsigned a = 0; a < whole.get_no_attributes(); ++a) {
    const column* c = whole.get_attribute(a);
    column* part = c->clone(true);
    if (c->size() == n)
      for (std::uint64_t row = s.first; row < last; ++row) part->push_index(c->get_row_index(static_cast<unsigned>(row)));
    s.rows->push_back_filled(part);
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

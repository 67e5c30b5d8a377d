#include "sylva/impls/dist_table.h"

#include "sylva/impls/dist_comm.h"
#include "sylva/impls/table.h"

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

#pragma once

// Loading a training table as shards: each rank holds only its own rows;
// and the hold-out's rows of each share.

#include <cstdint>
#include <iosfwd>
#include <string>

#include "sylva/impls/dist_grow.h"

namespace sylva::impls::dist {

// Each rank's share of the rows of a table every rank has loaded whole:
// a stand-in for loading shards from the file.
shard slice(communicator& comm, const table& whole);

// A hold-out over all ranks' rows, drawn as the single-machine build draws
// it over the whole table: the first n rows (random false) or n rows taken
// in one pass of the process-wide generator seeded with rank 0's clock
// (random true). `training` gets this rank's rows of it, `rest` its other
// rows, both as local rows with the table's weights.
void holdout_split(communicator& comm, const shard& s, bool random, std::uint64_t n, w_sequence& training,
                   w_sequence& rest);

}  // namespace sylva::impls::dist

#pragma once

// Loading a training table as shards: each rank holds only its own rows;
// and the hold-out's rows of each share.

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>

#include "sylva/impls/dist_grow.h"

namespace sylva::impls::dist {

// Loads this rank's share of a training file (dist_text.h: its byte range,
// or its rows of a gzip file dealt by rank 0) with the table's own loader,
// then merges the columns' domains over the ranks and recodes its rows, so
// that every code, column width and value order is the single-machine
// load's. Rank 0 writes the log lines of that load to `log` (counting all
// rows); the first bad row of the file is thrown on every rank, with its
// row number in the file. `separator` as a data source gives it.
shard load_shard(communicator& comm, const std::string& metadata_file, const std::string& data_file,
                 const std::string& separator, const std::string& unknown, std::ostream* log);

// A hold-out over all ranks' rows, drawn as the single-machine build draws
// it over the whole table: the first n rows (random false) or n rows taken
// in one pass of the process-wide generator seeded with rank 0's clock
// (random true). `training` gets this rank's rows of it, `rest` its other
// rows, both as local rows with the table's weights.
void holdout_split(communicator& comm, const shard& s, bool random, std::uint64_t n, w_sequence& training,
                   w_sequence& rest);

}  // namespace sylva::impls::dist

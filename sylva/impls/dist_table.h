#pragma once

// Loading a training table as shards: each rank holds only its own rows.

#include <iosfwd>
#include <string>

#include "sylva/impls/dist_grow.h"

namespace sylva::impls::dist {

// Each rank's share of the rows of a table every rank has loaded whole:
// a stand-in for loading shards from the file.
shard slice(communicator& comm, const table& whole);

}  // namespace sylva::impls::dist

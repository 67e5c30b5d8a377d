#pragma once

// Text files spread over the ranks of a job. A plain file is cut into K
// byte ranges [r·S/K, (r+1)·S/K), a line belonging to the range its first
// byte lies in, and each rank reads its own; a gzip file (".gz") cannot be
// entered in the middle, so rank 0 reads it and deals blocks of whole lines
// round robin. Either way a rank holds about 1/K of the text.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tarn/inpout/stream.h"

namespace sylva::impls::dist {

class communicator;

// Whole lines of a file (each ended by '\n') and the file's number, from 0,
// of the first of them.
struct text_block {
  std::uint64_t first_row = 0;
  std::vector<char> bytes;
};

// An error met at a row (1-based, in file order) of a file read apart; the
// first in file order is the one a single reader meets.
struct row_error {
  static constexpr std::uint64_t none = ~std::uint64_t(0);
  std::uint64_t row = none;
  std::string message;
  bool exists() const { return row != none; }
};

// This rank's blocks of the file, in file order. A file that does not open
// throws, on every rank, the text a single reader gives; a gzip stream that
// breaks off is an error at the row after its last complete line.
std::vector<text_block> read_share(communicator& comm, const std::string& path, char separator,
                                   row_error& error);

// This rank's contiguous share of the file's lines, one block: for a plain
// file as read_share cuts it; a gzip file rank 0 reads twice, counting its
// N lines and then sending rank r lines [r·N/K, (r+1)·N/K).
text_block read_contiguous_share(communicator& comm, const std::string& path, char separator, row_error& error);

// The first error of all ranks, the same on every rank.
row_error first_error(communicator& comm, const row_error& mine);

// A stream over the lines of a block.
std::unique_ptr<tarn::inpout::stream> block_stream(text_block& block, char separator);

}  // namespace sylva::impls::dist

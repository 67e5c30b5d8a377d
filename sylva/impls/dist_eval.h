#pragma once

// A tree's test and score files read apart by the ranks (dist_text.h): each
// predicts its share of the rows; the confusion matrix is summed over the
// ranks, the scores go to rank 0, which writes them in input order. Errors
// are those of a single reader: the first bad row of the file.

#include <iosfwd>
#include <string>

#include "sylva/impls/dist_text.h"

namespace sylva::impls {
class decision_tree;
class conf_matrix;
}  // namespace sylva::impls

namespace sylva::impls::dist {

// The matrix of the file's rows, on every rank; throws the file's first
// error on every rank.
conf_matrix* test_matrix(communicator& comm, const decision_tree& model, const std::string& path, char separator);

// The scores of the file's rows, written by rank 0 to `out` (null on the
// other ranks) up to the file's first error, which is returned (on every
// rank) rather than thrown: the rows before it are written, as a single
// reader writes them. Opening errors are thrown.
row_error score_file(communicator& comm, const decision_tree& model, const std::string& path, char separator,
                     char field_separator, std::ostream* out);

}  // namespace sylva::impls::dist

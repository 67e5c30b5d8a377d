#pragma once

// The steps of a run that need the rows of every rank: growing, pruning and
// evaluating a tree, and the confusion matrices of other rows. Every rank
// calls them in the same order and gets the same result.

#include <string>

#include "sylva/impls/dist_grow.h"

namespace sylva::impls::dist {

// build_pruned of the model on the cases of all ranks (local rows with
// weights; null: all rows with the table's weights): grown, pruned with the
// model's strategy, the training matrix summed over the ranks.
void build_pruned(communicator& comm, decision_tree& model, shard& s, const w_sequence* cases,
                  level_traffic* traffic);

// The full pruning strategy on the training cases of all ranks (local rows
// with weights), which every rank gathers as the distinct combinations of
// what routing them through the tree reads (dist_prune.cpp).
void prune_c45(communicator& comm, _decision_tree* root, const table& t, const w_sequence& cases, float cf);

// A matrix of weights summed over the ranks: whole weights as the
// single-machine float sums give them, others summed exactly and rounded.
conf_matrix* sum_matrix(communicator& comm, const conf_matrix& local);

}  // namespace sylva::impls::dist

#pragma once

// The steps of a run that need the rows of every rank: growing, pruning and
// evaluating a tree, and the confusion matrices of other rows. Every rank
// calls them in the same order and gets the same result.

#include <string>

#include "sylva/impls/dist_grow.h"

namespace sylva::impls::dist {

// build_pruned of the model on the cases of all ranks (local rows with
// weights; null: all rows with the table's weights): grown, pruned with the
// model's strategy, the training matrix summed over the ranks. Each rank
// passes over its rows on `threads` threads.
void build_pruned(communicator& comm, decision_tree& model, shard& s, const w_sequence* cases, unsigned threads,
                  level_traffic* traffic);

// Whether the ranks grow the tree together (dist_grow.h): every case weight
// of the training cases and of the hold-out `rest` (null: none) stays whole,
// so that sums over the ranks are exact in any order.
bool grows_distributed(communicator& comm, const shard& s, const w_sequence* training, const w_sequence* rest);

// Any other build: every rank's rows are gathered on rank 0, which builds
// the model as arbor does (on `cores` threads) and evaluates the hold-out;
// every rank then receives the model. Rank 0 alone holds the whole table
// for that time. Returns the hold-out matrix on rank 0, null elsewhere.
conf_matrix* build_gathered(communicator& comm, decision_tree& model, const shard& s, const w_sequence* training,
                            const w_sequence* rest, int cores);

// The full pruning strategy on the training cases of all ranks (local rows
// with weights), which every rank gathers as the distinct combinations of
// what routing them through the tree reads (dist_prune.cpp).
void prune_c45(communicator& comm, _decision_tree* root, const table& t, const w_sequence& cases, float cf);

// A matrix of weights summed over the ranks: whole weights as the
// single-machine float sums give them, others summed exactly and rounded.
conf_matrix* sum_matrix(communicator& comm, const conf_matrix& local);

}  // namespace sylva::impls::dist

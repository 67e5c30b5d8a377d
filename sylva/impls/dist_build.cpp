// The distributed build: growth, pruning and the training matrix.

#include "sylva/impls/dist_build.h"

#include <cmath>
#include <memory>
#include <stdexcept>

#include "sylva/impls/dist_comm.h"
#include "sylva/impls/run_scan.h"
#include "sylva/impls/table.h"
#include "tarn/util/cronos.h"

namespace sylva::impls::dist {

conf_matrix* sum_matrix(communicator& comm, const conf_matrix& local) {
  const auto& m = local.get_matrix();
  std::vector<std::int64_t> cells;
  for (const auto& row : m)
    for (float w : row) cells.push_back(std::llround(w));
  comm.sum(cells);
  std::vector<std::vector<float>> out = m;
  size_t i = 0;
  for (auto& row : out)
    for (float& w : row) w = whole_sums::add(0.0f, cells[i++]);
  auto* sum = new conf_matrix(std::move(out), local.get_names());
  sum->set_elapsed(local.get_elapsed());
  return sum;
}

void build_pruned(communicator& comm, decision_tree& model, shard& s, const w_sequence* cases, unsigned threads,
                  level_traffic* traffic) {
  tarn::util::cronos timer;
  timer.start();
  table* t = s.rows.get();
  std::string message;
  if (!t->set_consistency_for_tree(true, message)) throw std::runtime_error(message);
  for (unsigned a = 0; a < t->get_no_attributes(); ++a) t->get_attribute(a)->get_o_set()->size_of_known();
  auto root = std::make_unique<_decision_tree>();
  root->set_node(new _decision_node(const_cast<w_sequence*>(cases)));
  const options opts;
  grow_settings settings;
  settings.split_type = static_cast<unsigned>(model.get_split_type());
  settings.min_obj = model.get_min_obj();
  settings.opts = &opts;
  settings.threads = threads;
  if (!whole_weight_build(comm, s, cases)) throw std::logic_error("[dist::build_pruned] a build with fractional weights");
  const float cf = model.get_conf_level();
  // With error-based pruning every rank prunes each subtree as soon as it
  // is grown, so that no rank holds the whole unpruned tree; the model is
  // the one pruning the whole tree at the end gives.
  _decision_tree::settled_subtrees settled;
  if (model.get_pruning_strategy() == decision_tree_types::ERROR_BASED_PRUNING) {
    const float coeff = _decision_tree::CFCoefficient(cf);
    settings.after_level = [&] { root->prune_finished(1.0f, cf, coeff, settled); };
  }
  grow_whole(comm, root.get(), s, cases, settings, traffic);
  root->preprune(1.0f, &settled);
  std::unique_ptr<w_sequence> all;
  if (!cases) {
    all.reset(t->get_wsubset_all());
    cases = all.get();
  }
  if (model.get_pruning_strategy() == decision_tree_types::ERROR_BASED_PRUNING)
    root->prune_dt(t, cf, _decision_tree::CFCoefficient(cf));
  else if (model.get_pruning_strategy() == decision_tree_types::C45_PRUNING)
    prune_c45(comm, root.get(), *t, *cases, cf);
  std::unique_ptr<conf_matrix> local(root->predict(t, cases));
  conf_matrix* training = sum_matrix(comm, *local);
  std::unique_ptr<table> metadata(t->clone(35));
  metadata->describe_rows(static_cast<unsigned>(s.total));
  timer.stop();
  model.adopt(root.release(), metadata.release(), training, timer.get_elapsed());
}

}  // namespace sylva::impls::dist

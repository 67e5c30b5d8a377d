// arbor-mpi: arbor's run with the rows spread over the ranks of an MPI job.
// Every rank reads its own share of the data; rank 0 alone writes outputs.

#include <mpi.h>

#include <fstream>
#include <iostream>
#include <memory>

#include "options.h"
#include "steps.h"
#include "sylva/impls/decision_tree.h"
#include "sylva/impls/dist_build.h"
#include "sylva/impls/dist_comm.h"
#include "sylva/impls/dist_table.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/stream.h"

namespace {

using namespace sylva::impls;

std::ostream* open_output(bool to_stdout, const std::string& file, std::ios::openmode mode,
                          std::unique_ptr<std::ofstream>& holder) {
  std::ostream* out = to_stdout ? &std::cout : nullptr;
  if (!file.empty()) {
    holder = std::make_unique<std::ofstream>(file, std::ios::out | mode);
    out = holder.get();
  }
  return out;
}

int run(dist::communicator& comm, const run_settings& s) {
  const bool root = comm.rank() == 0;
  std::unique_ptr<std::ofstream> log_file, text_file, xml_file, dot_file;
  std::ostream *log = nullptr, *text = nullptr, *xml = nullptr, *dot = nullptr;
  if (root) {
    log = open_output(s.log_std, s.log_file, std::ios::app, log_file);
    text = open_output(s.text_std, s.text_file, std::ios::trunc, text_file);
    xml = open_output(s.xml_std, s.xml_file, std::ios::trunc, xml_file);
    dot = open_output(s.dot_std, s.dot_file, std::ios::trunc, dot_file);
  }
  try {
    table whole("training_set", true);
    whole.load_meta_data(tarn::inpout::stream::FROM_READER("FILE#" + s.metadata_file + "#" + s.separator), true);
    whole.set_verbosity(200);
    whole.set_log(log);
    whole.load_data(tarn::inpout::stream::FROM_READER("FILE#" + s.data_file + "#" + s.separator), "?", true);
    if (log) *log << "Data loaded." << '\n' << " time:  " << whole.get_elapsed() << " secs." << std::endl;
    dist::shard shard = dist::slice(comm, whole);
    sylva::dtree tree(shard.rows->get_name());
    tree.set_conf_level(s.confidence);
    tree.set_min_obj(s.min_obj);
    tree.set_pruning_strategy(static_cast<sylva::dtree::PruningStrategy>(s.pruning));
    auto* model = const_cast<decision_tree*>(tree.impl());
    dist::build_pruned(comm, *model, shard, nullptr, nullptr);
    if (log)
      *log << "Tree built." << std::endl
           << " size:  " << tree.size() << " depth: " << tree.depth() << " time:  " << tree.get_elapsed()
           << " secs." << std::endl;
    if (root) {
      save_tree(&tree, s.tree_binary_out, dot, log);
      const std::string none[2];
      test(nullptr, &tree, s.separator, "", none, nullptr, text, xml, log);
    }
  } catch (const std::runtime_error& e) {
    if (root) std::cout << e.what() << std::endl;
  }
  std::cout.flush();
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  MPI_Init(&argc, &argv);
  int status = 0;
  {
    dist::communicator comm;
    if (argc == 1) {
      if (comm.rank() == 0) USAGE();
    } else {
      run_settings settings;
      const parse_outcome parsed = parse_options(argc, argv, settings);
      if (!parsed.ok) {
        if (comm.rank() == 0) std::cout << parsed.message << std::endl;
        status = 255;
      } else {
        status = run(comm, settings);
      }
    }
  }
  MPI_Finalize();
  return status;
}

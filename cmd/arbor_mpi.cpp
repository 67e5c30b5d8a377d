// arbor-mpi: arbor's run with the rows spread over the ranks of an MPI job.
// Every rank takes part in loading and growing; rank 0 alone opens and
// writes outputs, each under a temporary name that replaces the real one
// only when the run is complete, so that no file is left looking finished.

#include <mpi.h>

#include <sys/resource.h>

#include <cstdio>
#include <sstream>
#include <cstdlib>
#include <new>
#include <fstream>
#include <iostream>
#include <memory>
#include <vector>

#include "options.h"
#include "steps.h"
#include "sylva/impls/decision_tree.h"
#include "sylva/impls/dist_build.h"
#include "sylva/impls/dist_comm.h"
#include "sylva/impls/dist_eval.h"
#include "sylva/impls/dist_table.h"
#include "sylva/impls/table.h"
#include "tarn/inpout/fs.h"
#include "tarn/inpout/stream.h"
#include "tarn/util/cronos.h"

namespace {

using namespace sylva::impls;

// Why a run cannot be distributed, or empty. Checked before any file is
// opened.
std::string refusal(const run_settings& s) {
  if (!s.table_binary_in.empty() || !s.table_binary_out.empty())
    return "arbor-mpi: -bd and -db are not available: the training table is spread over the ranks and no rank "
           "holds it whole.";
  if (!s.tree_binary_in.empty()) return "";
  return "";
}

// The output files of a run, each written under a temporary name that
// replaces it only when the run completes (fs::replacement; a device or a
// pipe is written in place). The log, which arbor appends to, is written
// apart and appended then. Abandoned, the temporary files are removed.
class staged_files {
public:
  // The name to write instead of `file` (empty stays empty).
  std::string stage(const std::string& file, bool append = false) {
    if (file.empty()) return file;
    if (!append) {
      try {
        replaced_.emplace_back(file, std::make_unique<tarn::inpout::fs::replacement>(file));
      } catch (const std::runtime_error&) {
        return file;  // no temporary file here: written in place, failing as arbor's would
      }
      return replaced_.back().second->path();
    }
    if (tarn::inpout::fs::is_special(file)) return file;
    appended_.emplace_back(file, file + ".partial");
    std::remove(appended_.back().second.c_str());
    return appended_.back().second;
  }
  // Forgets `file` and removes what was written for it: a step that did
  // not run.
  void drop(const std::string& file) {
    for (size_t i = 0; i < replaced_.size(); ++i)
      if (replaced_[i].first == file) {
        replaced_.erase(replaced_.begin() + static_cast<std::ptrdiff_t>(i));
        return;
      }
  }
  void commit() {
    for (auto& [file, r] : replaced_) r->commit();
    replaced_.clear();
    for (const auto& [file, part] : appended_) {
      std::ifstream in(part, std::ios::binary);
      std::ofstream out(file, std::ios::binary | std::ios::app);
      if (in.peek() != std::ifstream::traits_type::eof()) out << in.rdbuf();
      in.close();
      std::remove(part.c_str());
    }
    appended_.clear();
  }
  ~staged_files() {
    for (const auto& [file, part] : appended_) std::remove(part.c_str());
  }

private:
  std::vector<std::pair<std::string, std::unique_ptr<tarn::inpout::fs::replacement>>> replaced_;
  std::vector<std::pair<std::string, std::string>> appended_;
};

// A failure of one rank alone (memory, an unforeseen error): the others
// would wait for it in their next collective, so the whole job ends here,
// with a message naming the rank and the cause and a non-zero status.
// Outputs keep their temporary names: none is left looking complete.
[[noreturn]] void fail(const dist::communicator& comm, const std::string& cause) {
  std::cerr << "arbor-mpi: rank " << comm.rank() << " of " << comm.size() << " failed: " << cause
            << "; ending the job." << std::endl;
  MPI_Abort(MPI_COMM_WORLD, 1);
  std::abort();
}

long peak_mib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss / 1024;
}

void report_stats(const dist::communicator& comm, const dist::shard& shard, long loaded_mib,
                  const dist::level_traffic& t, std::uint64_t build_bytes) {
  std::ostringstream line;
  line << "rank " << comm.rank() << "/" << comm.size() << ": rows " << shard.rows->get_no_rows()
       << ", peak memory after loading " << loaded_mib << " MiB, in all " << peak_mib() << " MiB, growth sent " << build_bytes << " bytes, by depth (bytes/open nodes):";
  for (size_t d = 0; d < t.bytes.size(); ++d) line << " " << t.bytes[d] << "/" << t.nodes[d];
  std::cerr << line.str() << std::endl;
}

std::ostream* open_output(bool to_stdout, const std::string& file, std::unique_ptr<std::ofstream>& holder) {
  std::ostream* out = to_stdout ? &std::cout : nullptr;
  if (!file.empty()) {
    holder = std::make_unique<std::ofstream>(file, std::ios::out | std::ios::trunc);
    out = holder.get();
  }
  return out;
}

// arbor's steps for a tree read from a file: no data, rank 0 alone.
void run_from_tree(const run_settings& s, std::ostream* text, std::ostream* xml, std::ostream* dot,
                   std::ostream* log, const std::string& tree_out, const std::string& score_out) {
  std::unique_ptr<sylva::dtree> tree(sylva::dtree::fromBinary(s.tree_binary_in));
  if (log) *log << "Tree loaded." << std::endl;
  save_tree(tree.get(), tree_out, dot, log);
  test(nullptr, tree.get(), s.separator, s.test_file, s.db_test, nullptr, text, xml, log);
  evaluate(tree.get(), s.separator, s.score_file, score_out, s.db_score, log);
}

// What the test and score files give, made by all ranks before rank 0
// writes anything; an error is kept to be raised where arbor meets it.
struct file_results {
  std::unique_ptr<sylva::conf_matrix> test;
  std::string test_error;
  bool scored = false;  // the scores are in the score output
  double score_seconds = 0;
  std::string score_error;
};

file_results read_files(dist::communicator& comm, const run_settings& s, const decision_tree& model,
                        const std::string& score_out) {
  file_results r;
  const char separator = s.separator.empty() ? '\0' : s.separator[0];
  if (!s.test_file.empty()) {
    try {
      r.test = std::make_unique<sylva::conf_matrix>(dist::test_matrix(comm, model, s.test_file, separator));
    } catch (const std::runtime_error& e) {
      r.test_error = e.what();
    }
  }
  if (s.score_file.empty() || s.score_output.empty()) return r;
  r.scored = true;
  tarn::util::cronos timer;
  timer.start();
  std::unique_ptr<std::ofstream> out;
  if (comm.rank() == 0) out = std::make_unique<std::ofstream>(score_out, std::ios::out | std::ios::trunc);
  try {
    const dist::row_error e = dist::score_file(comm, model, s.score_file, separator, separator, out.get());
    if (e.exists()) r.score_error = e.message;
  } catch (const std::runtime_error& e) {
    r.score_error = e.what();
  }
  timer.stop();
  r.score_seconds = timer.get_elapsed();
  return r;
}

// Loads this rank's share of the training rows and grows, prunes and
// evaluates the tree with every rank, which also test and score their
// shares of those files; rank 0 then writes.
void run_distributed(dist::communicator& comm, const run_settings& s, std::ostream* text, std::ostream* xml,
                     std::ostream* dot, std::ostream* log, const std::string& tree_out, const std::string& score_out,
                     bool& score_step) {
  if (s.metadata_file.empty()) throw stop_run("No metadata provided.");
  {
    // The metadata is checked before any row is read, as arbor checks it.
    table names("training_set", true);
    names.load_meta_data(tarn::inpout::stream::FROM_READER("FILE#" + s.metadata_file + "#" + s.separator), true);
  }
  if (s.data_file.empty()) throw stop_run("No training data provided.");
  tarn::util::cronos load_timer;
  load_timer.start();
  dist::shard shard = dist::load_shard(comm, s.metadata_file, s.data_file, s.separator, "?", log);
  shard.rows->set_verbosity(200);  // as arbor leaves its table (the model keeps it)
  load_timer.stop();
  const long loaded_mib = peak_mib();
  if (log) *log << "Data loaded." << '\n' << " time:  " << load_timer.get_elapsed() << " secs." << std::endl;
  sylva::dtree tree(shard.rows->get_name());
  tree.set_conf_level(s.confidence);
  tree.set_min_obj(s.min_obj);
  tree.set_pruning_strategy(static_cast<sylva::dtree::PruningStrategy>(s.pruning));
  auto* model = const_cast<decision_tree*>(tree.impl());
  // A hold-out: training rows and the rest, drawn over all ranks' rows.
  std::unique_ptr<w_sequence> training, rest;
  const double total = static_cast<double>(shard.total);
  if ((s.holdout_random > 0 && s.holdout_random < 1) || (s.holdout_first > 0 && s.holdout_first < 1)) {
    const bool random = s.holdout_random > 0 && s.holdout_random < 1;
    training = std::make_unique<w_sequence>();
    rest = std::make_unique<w_sequence>();
    const double fraction = random ? s.holdout_random : s.holdout_first;
    dist::holdout_split(comm, shard, random, static_cast<unsigned>(total * fraction), *training, *rest);
  }
  // ARBOR_MPI_STATS set: each rank reports its traffic and peak memory on
  // standard error (bench/mpi.sh).
  dist::level_traffic traffic;
  const bool stats = std::getenv("ARBOR_MPI_STATS") != nullptr;
  const std::uint64_t sent_before = comm.bytes_sent();
  std::unique_ptr<sylva::conf_matrix> holdout;
  if (dist::grows_distributed(comm, shard, training.get(), rest.get())) {
    // -ff N: each rank passes over its own rows on N threads.
    const unsigned threads = s.cores > 1 ? static_cast<unsigned>(s.cores) : 1;
    dist::build_pruned(comm, *model, shard, training.get(), threads, stats ? &traffic : nullptr);
    if (rest) {
      std::unique_ptr<conf_matrix> local(model->predict(shard.rows.get(), rest.get()));
      holdout = std::make_unique<sylva::conf_matrix>(dist::sum_matrix(comm, *local));
    }
  } else {
    conf_matrix* gathered = dist::build_gathered(comm, *model, shard, training.get(), rest.get(), s.cores);
    if (gathered) holdout = std::make_unique<sylva::conf_matrix>(gathered);
  }
  if (stats) report_stats(comm, shard, loaded_mib, traffic, comm.bytes_sent() - sent_before);
  if (log)
    *log << "Tree built." << std::endl
         << " size:  " << tree.size() << " depth: " << tree.depth() << " time:  " << tree.get_elapsed()
         << " secs." << std::endl;
  file_results files = read_files(comm, s, *model, score_out);
  if (comm.rank() != 0) return;
  save_tree(&tree, tree_out, dot, log);
  test_with(
      &tree, s.test_file,
      [&] {
        if (!files.test_error.empty()) throw std::runtime_error(files.test_error);
        return files.test.release();
      },
      std::move(holdout), text, xml, log);
  score_step = true;
  evaluate_with(
      s.score_file, s.score_output,
      [&] {
        if (!files.score_error.empty()) throw std::runtime_error(files.score_error);
        return files.score_seconds;
      },
      log);
}

int run(dist::communicator& comm, const run_settings& s) {
  const bool root = comm.rank() == 0;
  staged_files files;
  std::unique_ptr<std::ofstream> log_file, text_file, xml_file, dot_file;
  std::ostream *log = nullptr, *text = nullptr, *xml = nullptr, *dot = nullptr;
  std::string tree_out, score_out;
  bool score_step = !s.tree_binary_in.empty();
  if (root) {
    log = open_output(s.log_std, files.stage(s.log_file, true), log_file);
    text = open_output(s.text_std, files.stage(s.text_file), text_file);
    xml = open_output(s.xml_std, files.stage(s.xml_file), xml_file);
    dot = open_output(s.dot_std, files.stage(s.dot_file), dot_file);
    tree_out = files.stage(s.tree_binary_out);
    // arbor opens the score output only when there is a file to score.
    if (!s.score_file.empty()) score_out = files.stage(s.score_output);
  }
  try {
    if (!s.tree_binary_in.empty()) {
      if (root) run_from_tree(s, text, xml, dot, log, tree_out, score_out);
    } else {
      run_distributed(comm, s, text, xml, dot, log, tree_out, score_out, score_step);
    }
  } catch (const std::bad_alloc&) {
    fail(comm, "out of memory");
  } catch (const std::runtime_error& e) {
    // The errors arbor reports are met by every rank alike (or by rank 0
    // alone, once the others are done): rank 0 reports them as arbor does.
    if (root) std::cout << e.what() << std::endl;
  } catch (const std::exception& e) {
    fail(comm, e.what());
  } catch (...) {
    fail(comm, "unknown error");
  }
  std::cout.flush();
  for (auto* f : {log_file.get(), text_file.get(), xml_file.get(), dot_file.get()})
    if (f) f->close();
  // An error arbor also reports leaves the files as arbor leaves them: no
  // score file where the run stopped before scoring.
  if (!score_step) files.drop(s.score_output);
  files.commit();
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
      const std::string refused = parsed.ok ? refusal(settings) : parsed.message;
      // As arbor: an output that is an input stops the run before any
      // output is opened.
      const std::string overlap = refused.empty() ? output_overwrites_input(settings) : "";
      if (!refused.empty() || !overlap.empty()) {
        if (comm.rank() == 0) std::cout << (refused.empty() ? overlap : refused) << std::endl;
        status = 255;
      } else {
        status = run(comm, settings);
      }
    }
  }
  MPI_Finalize();
  return status;
}

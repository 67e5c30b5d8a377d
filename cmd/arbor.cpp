// arbor: induces a classification tree from delimited text data, prunes it,
// tests it, scores new cases and writes the tree in several forms.

#include <fstream>
#include <iostream>
#include <memory>

#include "options.h"
#include "progress_line.h"
#include "steps.h"

namespace {

// An output that starts as standard output when its flag is set; a named
// file replaces it. A file that does not open leaves a failed stream whose
// writes are lost.
std::ostream* open_output(bool to_stdout, const std::string& file, std::ios::openmode mode,
                          std::unique_ptr<std::ofstream>& holder) {
  std::ostream* out = to_stdout ? &std::cout : nullptr;
  if (!file.empty()) {
    holder = std::make_unique<std::ofstream>(file, std::ios::out | mode);
    out = holder.get();
  }
  return out;
}

int run(const run_settings& s) {
  std::unique_ptr<std::ofstream> log_file, text_file, xml_file, dot_file;
  std::ostream* log = open_output(s.log_std, s.log_file, std::ios::app, log_file);
  std::ostream* text = open_output(s.text_std, s.text_file, std::ios::trunc, text_file);
  std::ostream* xml = open_output(s.xml_std, s.xml_file, std::ios::trunc, xml_file);
  std::ostream* dot = open_output(s.dot_std, s.dot_file, std::ios::trunc, dot_file);

  // A live line on standard error while loading and growing, when it is a
  // terminal; destroyed after the table and tree that report to it.
  const std::unique_ptr<tarn::util::progress> progress = arbor_cmd::make_progress_line();
  std::unique_ptr<sylva::table> table;
  std::unique_ptr<sylva::dtree> tree;
  std::unique_ptr<sylva::table::subset> holdout;
  try {
    if (s.tree_binary_in.empty()) {
      table.reset(
          load_table(s.separator, s.metadata_file, s.data_file, s.db_meta, s.db_data, s.table_binary_in, log, s.cores,
                     progress.get()));
      save_table(table.get(), s.table_binary_out, log);
      auto built = buildt(table.get(), s.holdout_random, s.holdout_first, s.confidence, s.min_obj, s.pruning,
                          s.cores, log, progress.get());
      tree.reset(built.first);
      holdout.reset(built.second);
    } else {
      tree.reset(sylva::dtree::fromBinary(s.tree_binary_in));
      if (log) *log << "Tree loaded." << std::endl;
    }
    save_tree(tree.get(), s.tree_binary_out, dot, log);
    test(table.get(), tree.get(), s.separator, s.test_file, s.db_test, holdout.get(), text, xml, log);
    evaluate(tree.get(), s.separator, s.score_file, s.score_output, s.db_score, log);
  } catch (const std::runtime_error& e) {
    std::cout << e.what() << std::endl;
  } catch (...) {
    std::cout << "Halting on generic error." << std::endl;
  }
  std::cout.flush();
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc == 1) {
    USAGE();
    return 0;
  }
  run_settings settings;
  const parse_outcome parsed = parse_options(argc, argv, settings);
  if (!parsed.ok) {
    std::cout << parsed.message << std::endl;
    return -1;
  }
  // Checked before any output is opened: nothing has been truncated yet.
  const std::string overlap = output_overwrites_input(settings);
  if (!overlap.empty()) {
    std::cout << overlap << std::endl;
    return -1;
  }
  return run(settings);
}

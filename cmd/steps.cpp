#include "steps.h"

#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <vector>

#include "options.h"
#include "tarn/inpout/fs.h"

namespace {

std::string file_source(const std::string& file, const std::string& separator) {
  return "FILE#" + file + "#" + separator;
}

// Database sources are described but never reachable from the command line.
std::string db_source(const std::string db[2], bool with_query) {
  return "SQL#" + db[0] + (with_query ? "#" + db[1] : "");
}

void report(std::ostream* text, std::ostream* log, const char* title, const sylva::conf_matrix& m) {
  if (text) {
    *text << std::endl << title << m.mis_perc() * 100 << "% of " << m.cases() << " cases. " << std::endl;
    m.toTEXT(*text, 0);
  }
  if (log) *log << "Testing done." << std::endl << " time:  " << m.get_elapsed() << " secs." << std::endl;
}

}  // namespace

std::string output_overwrites_input(const run_settings& s) {
  // Only the files this run will actually read and write count: a model
  // input replaces the table inputs and output, a score output is opened
  // only when there is something to score.
  std::vector<std::string> inputs{s.test_file, s.score_file}, outputs{s.log_file, s.text_file, s.xml_file,
                                                                      s.dot_file, s.tree_binary_out};
  if (!s.tree_binary_in.empty()) {
    inputs.push_back(s.tree_binary_in);
  } else {
    if (!s.table_binary_in.empty()) {
      inputs.push_back(s.table_binary_in);
    } else {
      inputs.push_back(s.metadata_file);
      inputs.push_back(s.data_file);
    }
    outputs.push_back(s.table_binary_out);
  }
  if (!s.score_file.empty()) outputs.push_back(s.score_output);
  for (const std::string& out : outputs) {
    if (out.empty() || tarn::inpout::fs::is_special(out)) continue;  // devices and pipes lose nothing
    for (const std::string& in : inputs)
      if (!in.empty() && tarn::inpout::fs::same_file(out, in))
        return "File " + out + ": output is the same file as input " + in;
  }
  return {};
}

void USAGE() {
  std::cout << sylva::get_copyright() << std::endl << std::endl << usage_text();
}

sylva::table* load_table(const std::string& separator, const std::string& metadata_file,
                         const std::string& data_file, const std::string db_meta[2], const std::string db_data[2],
                         const std::string& binary_file, std::ostream* log, int threads,
                         tarn::util::progress* progress) {
  if (!binary_file.empty()) {
    sylva::table* t = nullptr;
    try {
      t = sylva::table::fromBinary(binary_file);
    } catch (const std::exception&) {
      throw std::runtime_error("File " + binary_file + ": not binary format");
    }
    if (log) *log << "Data loaded." << std::endl;
    return t;
  }
  auto t = std::make_unique<sylva::table>("training_set");
  if (!metadata_file.empty())
    t->load_meta_data(sylva::datasource(file_source(metadata_file, separator)));
  else if (!db_meta[0].empty())
    t->load_meta_data(sylva::datasource(db_source(db_meta, false)));
  else
    throw stop_run("No metadata provided.");
  t->set_verbosity(200);
  t->set_log(log);
  t->set_progress(progress);
  if (!data_file.empty())
    t->load_data(sylva::datasource(file_source(data_file, separator)), "?", threads);
  else if (!db_data[0].empty())
    t->load_data(sylva::datasource(db_source(db_data, true)), "?", threads);
  else
    throw stop_run("No training data provided.");
  if (log) *log << "Data loaded." << '\n' << " time:  " << t->get_elapsed() << " secs." << std::endl;
  return t.release();
}

void save_table(sylva::table* t, const std::string& file, std::ostream* log) {
  if (file.empty()) return;
  try {
    t->toBinary(file);
  } catch (const std::exception&) {
    throw std::runtime_error("File " + file + ": error with binary output");
  }
  if (log) *log << "Data saved." << std::endl;
}

std::pair<sylva::dtree*, sylva::table::subset*> buildt(sylva::table* t, double holdout_random, double holdout_first,
                                                       float confidence, float min_obj, int pruning, int cores,
                                                       std::ostream* log, tarn::util::progress* progress) {
  auto tree = std::make_unique<sylva::dtree>(t->get_name());
  std::unique_ptr<sylva::table::subset> training;
  if (holdout_random > 0 && holdout_random < 1)
    training.reset(t->get_wsubset_random(static_cast<unsigned>(t->get_no_rows() * holdout_random)));
  else if (holdout_first > 0 && holdout_first < 1)
    training.reset(t->get_wsubset_first_n(static_cast<unsigned>(t->get_no_rows() * holdout_first)));
  tree->set_conf_level(confidence);
  tree->set_min_obj(min_obj);
  tree->set_pruning_strategy(static_cast<sylva::dtree::PruningStrategy>(pruning));
  tree->set_progress(progress);
  tree->build(t, training.get(), true, cores);
  if (log)
    *log << "Tree built." << std::endl
         << " size:  " << tree->size() << " depth: " << tree->depth() << " time:  " << tree->get_elapsed()
         << " secs." << std::endl;
  sylva::table::subset* holdout = training ? t->get_wsubset_difference(training.get()) : nullptr;
  return {tree.release(), holdout};
}

void save_tree(sylva::dtree* tree, const std::string& binary_file, std::ostream* dot, std::ostream* log) {
  if (dot) tree->toDOT(*dot);
  if (binary_file.empty()) return;
  try {
    tree->toBinary(binary_file);
  } catch (const std::exception&) {
    throw std::runtime_error("File " + binary_file + ": error with binary output");
  }
  if (log) *log << "Tree saved." << std::endl;
}

namespace {

// The test step; `file_matrix` makes the test file's matrix and `holdout`
// the hold-out's (null: no hold-out), in the order the text lists them.
void test_step(sylva::dtree* tree, const std::string& test_file, const std::string db_test[2],
               const std::function<sylva::conf_matrix*()>& file_matrix,
               const std::function<sylva::conf_matrix*()>& holdout, std::ostream* text, std::ostream* xml,
               std::ostream* log) {
  if (text) {
    std::unique_ptr<sylva::conf_matrix> training(tree->get_prediction());
    *text << sylva::get_copyright() << std::endl << std::endl << "TREE SIZE: " << tree->size() << std::endl
          << std::endl << "MISCLASSIFICATION on training: " << training->mis_perc() * 100 << "% of "
          << training->cases() << " cases. " << std::endl;
    training->toTEXT(*text, 0);
  }
  std::unique_ptr<sylva::conf_matrix> last;
  if (!db_test[0].empty()) {
    last.reset(tree->predict(sylva::datasource(db_source(db_test, true))));
    report(text, log, "MISCLASSIFICATION on test sqlserver: ", *last);
  }
  if (!test_file.empty()) {
    last.reset(file_matrix());
    report(text, log, "MISCLASSIFICATION on test file: ", *last);
  }
  if (holdout) {
    last.reset(holdout());
    report(text, log, "MISCLASSIFICATION on holdout test: ", *last);
  }
  if (text) {
    *text << std::endl << "Decision Tree" << std::endl << std::endl;
    tree->toTEXT(*text);
  }
  if (xml) tree->toXML(*xml, last.get());
}

}  // namespace

void test(sylva::table* t, sylva::dtree* tree, const std::string& separator, const std::string& test_file,
          const std::string db_test[2], sylva::table::subset* holdout, std::ostream* text, std::ostream* xml,
          std::ostream* log) {
  std::function<sylva::conf_matrix*()> predict_holdout;
  if (holdout) predict_holdout = [&] { return tree->predict(t, holdout); };
  test_step(
      tree, test_file, db_test, [&] { return tree->predict(sylva::datasource(file_source(test_file, separator))); },
      predict_holdout, text, xml, log);
}

void test_with(sylva::dtree* tree, const std::string& test_file,
               const std::function<sylva::conf_matrix*()>& test_file_matrix,
               std::unique_ptr<sylva::conf_matrix> holdout, std::ostream* text, std::ostream* xml, std::ostream* log) {
  const std::string no_db[2];
  std::function<sylva::conf_matrix*()> given;
  if (holdout) given = [&] { return holdout.release(); };
  test_step(tree, test_file, no_db, test_file_matrix, given, text, xml, log);
}

// Whether a run writes scores; says so in the log when a score file has no
// output file.
static bool scores_wanted(const std::string& score_file, const std::string& score_output, const std::string db_score[2],
                   std::ostream* log) {
  if (score_file.empty() && db_score[0].empty()) return false;
  if (score_output.empty()) {
    if (log) *log << std::endl << "No score output file provided!" << std::endl << std::endl;
    return false;
  }
  return true;
}

void evaluate_with(const std::string& score_file, const std::string& score_output, const std::function<double()>& scored,
                   std::ostream* log) {
  const std::string no_db[2];
  if (!scores_wanted(score_file, score_output, no_db, log)) return;
  const double seconds = scored();
  if (log) *log << "Evaluation done." << std::endl << " time:  " << seconds << " secs." << std::endl;
}

void evaluate(sylva::dtree* tree, const std::string& separator, const std::string& score_file,
              const std::string& score_output, const std::string db_score[2], std::ostream* log) {
  if (!scores_wanted(score_file, score_output, db_score, log)) return;
  std::ofstream out(score_output, std::ios::out | std::ios::trunc);
  const char field_separator = separator.empty() ? '\0' : separator[0];
  auto done = [&](double seconds) {
    if (log) *log << "Evaluation done." << std::endl << " time:  " << seconds << " secs." << std::endl;
  };
  if (!db_score[0].empty()) done(tree->evaluate(sylva::datasource(db_source(db_score, true)), out, field_separator));
  if (!score_file.empty()) done(tree->evaluate(sylva::datasource(file_source(score_file, separator)), out, field_separator));
}

#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "sylva/sylva.h"

// Ends the run early with a message on standard output and status 0.
struct stop_run : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct run_settings;

// The message that stops a run one of whose output files is one of the
// files it reads (opening the output would destroy the input before it is
// read); empty when the outputs are all distinct from the inputs.
std::string output_overwrites_input(const run_settings& s);

// The steps of one run. Every stream may be null (no such output) and every
// file name empty (not requested); `db` holds a server and a query.
void USAGE();
// Text data load on `threads` threads (0: all online processors).
sylva::table* load_table(const std::string& separator, const std::string& metadata_file,
                         const std::string& data_file, const std::string db_meta[2], const std::string db_data[2],
                         const std::string& binary_file, std::ostream* log, int threads = 0,
                         tarn::util::progress* progress = nullptr);
void save_table(sylva::table* t, const std::string& file, std::ostream* log);
std::pair<sylva::dtree*, sylva::table::subset*> buildt(sylva::table* t, double holdout_random, double holdout_first,
                                                       float confidence, float min_obj, int pruning, int cores,
                                                       std::ostream* log, tarn::util::progress* progress = nullptr);
void save_tree(sylva::dtree* tree, const std::string& binary_file, std::ostream* dot, std::ostream* log);
void test(sylva::table* t, sylva::dtree* tree, const std::string& separator, const std::string& test_file,
          const std::string db_test[2], sylva::table::subset* holdout, std::ostream* text, std::ostream* xml,
          std::ostream* log);
// test() with the test file's matrix and the hold-out's made elsewhere (a
// distributed run spreads the rows over its ranks): `test_file_matrix` is
// called where test() reads the test file; `holdout` is null without one.
void test_with(sylva::dtree* tree, const std::string& test_file,
               const std::function<sylva::conf_matrix*()>& test_file_matrix,
               std::unique_ptr<sylva::conf_matrix> holdout, std::ostream* text, std::ostream* xml, std::ostream* log);
void evaluate(sylva::dtree* tree, const std::string& separator, const std::string& score_file,
              const std::string& score_output, const std::string db_score[2], std::ostream* log);
// evaluate() with the scores written elsewhere: `scored` is called where
// evaluate() scores and returns the seconds it took.
void evaluate_with(const std::string& score_file, const std::string& score_output, const std::function<double()>& scored,
                   std::ostream* log);

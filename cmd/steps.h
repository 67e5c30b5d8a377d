#pragma once

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

// The steps of one run. Every stream may be null (no such output) and every
// file name empty (not requested); `db` holds a server and a query.
void USAGE();
sylva::table* load_table(const std::string& separator, const std::string& metadata_file,
                         const std::string& data_file, const std::string db_meta[2], const std::string db_data[2],
                         const std::string& binary_file, std::ostream* log);
void save_table(sylva::table* t, const std::string& file, std::ostream* log);
std::pair<sylva::dtree*, sylva::table::subset*> buildt(sylva::table* t, double holdout_random, double holdout_first,
                                                       float confidence, float min_obj, int pruning, int cores,
                                                       std::ostream* log);
void save_tree(sylva::dtree* tree, const std::string& binary_file, std::ostream* dot, std::ostream* log);
void test(sylva::table* t, sylva::dtree* tree, const std::string& separator, const std::string& test_file,
          const std::string db_test[2], sylva::table::subset* holdout, std::ostream* text, std::ostream* xml,
          std::ostream* log);
// test() with the hold-out's matrix already made (a distributed run sums it
// over its ranks); null when there is no hold-out.
void test_with_holdout(sylva::dtree* tree, const std::string& separator, const std::string& test_file,
                       const std::string db_test[2], std::unique_ptr<sylva::conf_matrix> holdout, std::ostream* text,
                       std::ostream* xml, std::ostream* log);
void evaluate(sylva::dtree* tree, const std::string& separator, const std::string& score_file,
              const std::string& score_output, const std::string db_score[2], std::ostream* log);

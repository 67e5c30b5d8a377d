#pragma once

#include <string>
#include <vector>

// Settings of one arbor run, filled from the command line.
struct run_settings {
  std::string separator = ",";
  std::string metadata_file, data_file, test_file, score_file, score_output;
  std::string table_binary_in, table_binary_out, tree_binary_in, tree_binary_out;
  std::string log_file, text_file, xml_file, dot_file;
  bool log_std = false, text_std = false, xml_std = false, dot_std = false;
  float confidence = 0.25f;
  float min_obj = 2.0f;
  double holdout_random = 0.0;
  double holdout_first = 0.0;
  int pruning = 2;  // ERROR_BASED_PRUNING
  int cores = 0;
  // Database server and queries for metadata, training, test and score
  // data. No option sets them: the database branches of the run are kept
  // but never taken from the command line.
  std::string db_meta[2], db_data[2], db_test[2], db_score[2];
};

// One command-line option: its name, whether it takes a value, its usage
// section and line, and how it applies its value. The same table drives
// parsing and the usage text.
struct option_spec {
  const char* name;
  bool takes_value;
  int section;          // 0 dataset, 1 tree construction, 2 output, 3 parallel
  const char* usage;    // the option's line in the usage text
  // Applies the value; returns the validation message, empty when valid.
  std::string (*apply)(run_settings&, const char* value);
};

// Every option, in matching order.
const std::vector<option_spec>& option_table();

// The usage text (without the copyright lines that precede it).
std::string usage_text();

struct parse_outcome {
  bool ok = true;
  std::string message;  // for a failure: the text to print
};

// Parses argv[1..argc-1] into `s`; a later occurrence of an option
// overrides an earlier one.
parse_outcome parse_options(int argc, const char* const argv[], run_settings& s);

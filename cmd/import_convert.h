#pragma once

// From a data set read by one of the formats to arbor's files: the user's
// choices applied, every value checked and the column kinds decided in a
// first pass, the files written in a second.

#include "import_common.h"

namespace arbor_import {

struct import_options {
  std::string class_name;             // empty: the format's choice
  std::vector<std::string> discrete;  // columns taken as text
  std::vector<std::string> ignore;    // columns arbor ignores
};

// Applies --class, --discrete and --ignore; refuses names that are not
// columns, a class that is ignored, and columns without a unique name.
void apply_options(dataset& d, const import_options& o);

enum class out_type { INTEGER, FLOAT, STRING, NONE };
const char* type_word(out_type t);  // "integer", "float", "string", "null"

struct column_result {
  std::string name;
  out_type type = out_type::STRING;
  std::string kind;  // "discrete", "continuous", "class" or "ignore"
  unsigned long known = 0, unknown = 0;
};

struct conversion {
  std::vector<column_result> columns;
  unsigned long data_rows = 0, test_rows = 0;
  char separator = ',';  // of the files written
};

// The first pass over the data file and the test file.
conversion analyse(const dataset& d);

struct output_files {
  std::string names, data, test;  // test empty when there is none
};
output_files output_names(const std::string& stem, bool has_test, bool gzip);

// The second pass: writes the files under temporary names and renames them
// when all are complete.
void write_arbor(const dataset& d, const conversion& c, const output_files& out);

}  // namespace arbor_import

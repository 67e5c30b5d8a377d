#pragma once

// ARFF files: a header of @relation and @attribute lines (numeric, real,
// integer, string, or a nominal list in braces whose values may be quoted),
// then @data and comma-separated rows; values in single or double quotes
// may hold commas and backslash escapes; ? is unknown; % starts a comment
// line. Sparse rows and instance weights are refused.

#include "import_common.h"

namespace arbor_import {

// Reads the header of `file`; the rows follow @data. A `test_file` must
// declare the same attributes. The class is the last attribute until
// --class names another.
dataset read_arff(const std::string& file, const std::string& test_file);

// The comma-separated values of `text`, unquoted; ? outside quotes is
// unknown. `line` and `file` name the place in messages.
row arff_split(const std::string& text, const std::string& file, unsigned long line);

}  // namespace arbor_import

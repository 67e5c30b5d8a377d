#pragma once

// C4.5's own files: STEM.names (the class list first, then one line per
// attribute: "name: continuous.", "name: v1, v2, ...", "name: ignore.",
// "name: discrete N."; | starts a comment, a backslash escapes the next
// character), STEM.data and STEM.test (comma-separated rows with the class
// last, ? for an unknown value, an optional period at the end).

#include "import_common.h"

namespace arbor_import {

// The stem of a C4.5 data set named by its stem, its .names or its .data.
std::string c45_stem(const std::string& input);

// Reads STEM.names; the rows come from STEM.data (or STEM.data.gz) and,
// when `test_file` is empty, STEM.test (or STEM.test.gz) if it exists.
dataset read_c45(const std::string& input, const std::string& test_file);

// The pieces of `text` cut at unescaped `delimiter`s (all of them, or only
// the first when `first_only`), unescaped and trimmed.
std::vector<std::string> c45_split(const std::string& text, char delimiter, bool first_only = false);

}  // namespace arbor_import

#pragma once

// Delimited files with a header line: RFC 4180 quoting (a field in double
// quotes may hold separators, line breaks and doubled quotes), blanks
// around fields trimmed, empty fields, NA and ? unknown.

#include "import_common.h"

namespace arbor_import {

class delimited_reader final : public row_reader {
public:
  delimited_reader(const std::string& file, char separator);
  // The next record; blank lines are skipped.
  bool next(row& r) override;
  unsigned long row_line() const override { return row_line_; }

private:
  bool blank(int c) const { return c == ' ' || (c == '\t' && separator_ != '\t'); }
  // Reads one field; returns the byte that ended it (separator, line feed
  // or -1).
  int read_field(field& f, unsigned column);
  int read_quoted(field& f, unsigned column);

  text_input in_;
  char separator_;
  unsigned long row_line_ = 0;
};

// The separators that are tried, in this order.
inline constexpr char delimited_separators[] = {',', ';', '\t', '|'};

// The separator that splits the header and the first records of `file`
// alike into two or more fields; refuses a file where none or several do.
char detect_separator(const std::string& file);

// The columns named by the header of `file`; the rows of `file` and of
// `test_file` (when given, with the same header) follow it.
dataset read_delimited(const std::string& file, char separator, const std::string& test_file);

// How a separator is written in messages and command lines: ',' or tab.
std::string separator_name(char separator);

}  // namespace arbor_import

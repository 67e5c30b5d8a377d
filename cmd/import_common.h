#pragma once

// What the readers of arbor-import have in common: the rows they yield, the
// columns a format declares, messages that name file, line and column, and
// a text input over plain or gzip files.

#include <zlib.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace arbor_import {

// Input that cannot be converted. The message names the file, the line
// and, where one is to blame, the column.
struct refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// "FILE, line L, column C (NAME): " or "FILE, line L: " or "FILE: ".
std::string where(const std::string& file, unsigned long line = 0, unsigned column = 0,
                  const std::string& name = "");

// One field of a row, as its format delivers it: unquoted and trimmed.
struct field {
  std::string text;
  bool unknown = false;    // the format's unknown value (empty, NA, ?)
  unsigned long line = 0;  // the line the field starts on
};
using row = std::vector<field>;

class row_reader {
public:
  virtual ~row_reader() = default;
  // The next row; false at the end of the file.
  virtual bool next(row& r) = 0;
  // The line on which the last row returned starts.
  virtual unsigned long row_line() const = 0;
};

// What a format says about a column before any value is read.
enum class declared {
  INFER,     // integer, float or discrete, decided from the values
  NUMBER,    // a number: integer or float, decided from the values
  INTEGER,   // a 32-bit integer
  DISCRETE,  // text, taken as it stands
  IGNORE     // kept in the rows, not used by arbor
};

struct column_decl {
  std::string name;
  declared kind = declared::INFER;
  std::vector<std::string> values;  // with `closed`: the only values allowed
  bool closed = false;
};

// A data set as one of the formats reads it.
struct dataset {
  std::string format;          // "delimited", "C4.5" or "ARFF", for the summary
  std::string declared_in;     // the file that declares the columns
  std::vector<column_decl> columns;
  std::size_t class_index = 0;
  std::string data_file;       // training rows
  std::string test_file;       // test rows, empty when there are none
  std::string note;            // anything the reader wants the user to know
  std::function<std::unique_ptr<row_reader>(const std::string& file)> open;
};

// Finds a column by name; -1 when there is none.
long find_column(const std::vector<column_decl>& columns, const std::string& name);

// Numbers as the converted files will hold them: a 32-bit integer, or a
// decimal number (sign, digits, fraction, exponent) whose value fits a
// 32-bit float. Both are read back by arbor exactly as written.
enum class number_kind { NOT_NUMBER, INTEGER, REAL, OUT_OF_RANGE };
number_kind classify_number(const std::string& text);

// Text with blanks (spaces and tabs) cut from both ends.
std::string trim(const std::string& s);

// A text file, plain or gzip-compressed, read line by line or byte by byte
// with the line number kept. A UTF-8 byte-order mark at the start is
// skipped.
class text_input {
public:
  explicit text_input(const std::string& file);
  ~text_input();
  text_input(const text_input&) = delete;
  text_input& operator=(const text_input&) = delete;

  // The next byte, or -1 at the end. Line feeds advance the line number.
  int get() {
    if (pos_ == end_ && !fill()) return -1;
    const unsigned char c = buffer_[pos_++];
    if (c == '\n') ++line_;
    return c;
  }
  int peek() {
    if (pos_ == end_ && !fill()) return -1;
    return static_cast<unsigned char>(buffer_[pos_]);
  }
  // The next line without its line feed and a carriage return before it;
  // false at the end.
  bool read_line(std::string& line);
  // The number of the line the next byte belongs to (from 1).
  unsigned long line() const { return line_; }
  const std::string& file() const { return file_; }

private:
  bool fill();

  std::string file_;
  gzFile gz_ = nullptr;
  std::vector<char> buffer_;
  std::size_t pos_ = 0, end_ = 0;
  unsigned long line_ = 1;
  bool at_start_ = true;
};

}  // namespace arbor_import

#include "import_common.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace arbor_import {

std::string where(const std::string& file, unsigned long line, unsigned column, const std::string& name) {
  std::string s = file;
  if (line > 0) s += ", line " + std::to_string(line);
  if (column > 0) s += ", column " + std::to_string(column);
  if (!name.empty()) s += " (" + name + ")";
  return s + ": ";
}

long find_column(const std::vector<column_decl>& columns, const std::string& name) {
  for (std::size_t i = 0; i < columns.size(); ++i)
    if (columns[i].name == name) return static_cast<long>(i);
  return -1;
}

std::string trim(const std::string& s) {
  const auto first = s.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return s.substr(first, s.find_last_not_of(" \t") - first + 1);
}

namespace {

bool digit(char c) { return c >= '0' && c <= '9'; }

// Skips a run of digits; returns how many there were.
std::size_t digits(const std::string& s, std::size_t& i) {
  const std::size_t from = i;
  while (i < s.size() && digit(s[i])) ++i;
  return i - from;
}

}  // namespace

number_kind classify_number(const std::string& s) {
  std::size_t i = 0;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  const std::size_t start = i;
  const std::size_t whole = digits(s, i);
  std::size_t significant = whole;  // leading zeros do not count
  for (std::size_t k = start; k < start + whole && s[k] == '0'; ++k) --significant;
  std::size_t fraction = 0;
  bool point = false, exponent = false;
  if (i < s.size() && s[i] == '.') {
    point = true;
    ++i;
    fraction = digits(s, i);
  }
  if (whole + fraction == 0) return number_kind::NOT_NUMBER;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    exponent = true;
    ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    if (digits(s, i) == 0) return number_kind::NOT_NUMBER;
  }
  if (i != s.size()) return number_kind::NOT_NUMBER;

  // Short forms need no conversion: nine digits always fit an int32, more
  // than ten never do, and without an exponent 38 digits before the point
  // always fit a float.
  if (!point && !exponent && significant <= 9) return number_kind::INTEGER;
  if (!exponent && significant <= 38 && (point || significant > 10)) return number_kind::REAL;
  // The grammar is a subset of what strtod reads, in the "C" locale the
  // program runs in, which is how arbor reads numbers back.
  const double d = std::strtod(s.c_str(), nullptr);
  if (std::isinf(d) || std::isinf(static_cast<float>(d))) return number_kind::OUT_OF_RANGE;
  // The integer range is the one arbor's strict integer parser accepts.
  if (!point && !exponent && std::fabs(d) <= 2147483647.0) return number_kind::INTEGER;
  return number_kind::REAL;
}

text_input::text_input(const std::string& file) : file_(file), buffer_(1 << 16) {
  std::error_code ec;
  if (std::filesystem::is_directory(file, ec)) throw refusal(file + ": is a directory, not a file");
  gz_ = gzopen(file.c_str(), "rb");
  if (!gz_) throw refusal(file + ": cannot be opened");
}

text_input::~text_input() {
  if (gz_) gzclose(gz_);
}

bool text_input::fill() {
  const int n = gzread(gz_, buffer_.data(), static_cast<unsigned>(buffer_.size()));
  if (n < 0) {
    int code = 0;
    const char* message = gzerror(gz_, &code);
    throw refusal(file_ + ": read error: " + (code == Z_ERRNO ? std::string(std::strerror(errno)) : message));
  }
  pos_ = 0;
  end_ = static_cast<std::size_t>(n);
  if (n == 0) {
    // A gzip stream that ends early reads as a short file; say so.
    int code = 0;
    const char* message = gzerror(gz_, &code);
    if (code != Z_OK && code != Z_STREAM_END) throw refusal(file_ + ": " + message);
    return false;
  }
  if (at_start_) {
    at_start_ = false;
    if (end_ >= 3 && buffer_[0] == '\xEF' && buffer_[1] == '\xBB' && buffer_[2] == '\xBF') pos_ = 3;
    if (pos_ == end_) return fill();
  }
  return true;
}

bool text_input::read_line(std::string& line) {
  line.clear();
  int c = get();
  if (c < 0) return false;
  while (c >= 0 && c != '\n') {
    line.push_back(static_cast<char>(c));
    c = get();
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

}  // namespace arbor_import

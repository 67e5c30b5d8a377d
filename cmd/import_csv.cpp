#include "import_csv.h"

namespace arbor_import {

std::string separator_name(char separator) {
  if (separator == '\t') return "tab";
  std::string s = "'";
  s += separator;
  return s += '\'';
}

namespace {

bool unknown_text(const std::string& t) {
  return t.empty() || (t.size() == 1 && t[0] == '?') || (t.size() == 2 && t[0] == 'N' && t[1] == 'A');
}

}  // namespace

delimited_reader::delimited_reader(const std::string& file, char separator) : in_(file), separator_(separator) {}

bool delimited_reader::next(row& r) {
  for (;;) {
    r.clear();
    if (in_.peek() < 0) return false;
    row_line_ = in_.line();
    int end = 0;
    do {
      field f;
      end = read_field(f, static_cast<unsigned>(r.size() + 1));
      r.push_back(std::move(f));
    } while (end == separator_);
    // A line holding nothing but blanks is no record.
    if (r.size() > 1 || !r[0].text.empty()) return true;
  }
}

int delimited_reader::read_field(field& f, unsigned column) {
  f.line = in_.line();
  int c = in_.get();
  while (blank(c)) c = in_.get();
  if (c == '"') return read_quoted(f, column);
  std::string& t = f.text;
  while (c >= 0 && c != separator_ && c != '\n') {
    t.push_back(static_cast<char>(c));
    c = in_.get();
  }
  if (c != separator_ && !t.empty() && t.back() == '\r') t.pop_back();
  while (!t.empty() && blank(static_cast<unsigned char>(t.back()))) t.pop_back();
  f.unknown = unknown_text(t);
  return c;
}

int delimited_reader::read_quoted(field& f, unsigned column) {
  const unsigned long opened = f.line;
  for (;;) {
    int c = in_.get();
    if (c < 0) throw refusal(where(in_.file(), opened, column) + "a quoted field is never closed");
    if (c == '"') {
      if (in_.peek() != '"') break;
      in_.get();
    }
    f.text.push_back(static_cast<char>(c));
  }
  int c = in_.get();
  while (blank(c)) c = in_.get();
  if (c == '\r' && in_.peek() == '\n') c = in_.get();
  if (c >= 0 && c != separator_ && c != '\n')
    throw refusal(where(in_.file(), in_.line(), column) + "unexpected text after the closing quote of a field");
  // Quotes only delimit: a quoted empty field, NA or ? is unknown too.
  f.unknown = unknown_text(f.text);
  return c;
}

namespace {

// How many fields `separator` cuts the header into, when it cuts the
// first records into as many; 0 otherwise.
std::size_t consistent_fields(const std::string& file, char separator) {
  try {
    delimited_reader reader(file, separator);
    row r;
    if (!reader.next(r)) return 0;
    const std::size_t n = r.size();
    for (int i = 0; i < 20 && reader.next(r); ++i)
      if (r.size() != n) return 0;
    return n >= 2 ? n : 0;
  } catch (const refusal&) {
    return 0;
  }
}

}  // namespace

char detect_separator(const std::string& file) {
  delimited_reader probe(file, ',');  // refuses a file that cannot be read
  char found = 0;
  for (char s : delimited_separators) {
    if (consistent_fields(file, s) == 0) continue;
    if (found)
      throw refusal(where(file, 1) + "both " + separator_name(found) + " and " + separator_name(s) +
                    " split every line alike; give the separator with --sep");
    found = s;
  }
  if (!found)
    throw refusal(where(file, 1) +
                  "no separator among , ; tab | splits the header and the first lines into the same number "
                  "of fields; give it with --sep");
  return found;
}

namespace {

std::vector<std::string> header_names(delimited_reader& reader, const std::string& file) {
  row r;
  if (!reader.next(r)) throw refusal(where(file) + "the file is empty: a header line is needed");
  std::vector<std::string> names;
  for (std::size_t i = 0; i < r.size(); ++i) {
    if (r[i].text.empty())
      throw refusal(where(file, reader.row_line(), static_cast<unsigned>(i + 1)) + "the header gives no name");
    names.push_back(r[i].text);
  }
  return names;
}

// Rows after the header, which must name the columns as `names` does.
class body_reader final : public row_reader {
public:
  body_reader(const std::string& file, char separator, const std::vector<std::string>& names)
      : reader_(file, separator) {
    if (header_names(reader_, file) != names)
      throw refusal(where(file, reader_.row_line()) + "the header differs from the training file's");
  }
  bool next(row& r) override { return reader_.next(r); }
  unsigned long row_line() const override { return reader_.row_line(); }

private:
  delimited_reader reader_;
};

}  // namespace

dataset read_delimited(const std::string& file, char separator, const std::string& test_file) {
  if (separator == 0) separator = detect_separator(file);
  dataset d;
  d.format = "delimited, separator " + separator_name(separator);
  d.declared_in = d.data_file = file;
  d.test_file = test_file;
  delimited_reader reader(file, separator);
  std::vector<std::string> names = header_names(reader, file);
  for (const std::string& n : names) d.columns.push_back({n, declared::INFER, {}, false});
  d.class_index = d.columns.size();  // chosen with --class
  d.open = [separator, names](const std::string& f) -> std::unique_ptr<row_reader> {
    return std::make_unique<body_reader>(f, separator, names);
  };
  return d;
}

}  // namespace arbor_import

#include "import_c45.h"

#include <filesystem>

namespace arbor_import {

namespace {

bool ends_with(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// The first of `file` and `file`.gz that exists; empty when neither does.
std::string existing(const std::string& file) {
  std::error_code ec;
  if (std::filesystem::exists(file, ec)) return file;
  if (std::filesystem::exists(file + ".gz", ec)) return file + ".gz";
  return {};
}

// The line without its comment and its final period, trimmed; escapes stay.
std::string content(const std::string& line) {
  std::string s;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size()) {
      s += line[i];
      s += line[++i];
    } else if (line[i] == '|') {
      break;
    } else {
      s += line[i];
    }
  }
  s = trim(s);
  const bool escaped = s.size() >= 2 && s[s.size() - 2] == '\\';
  if (!s.empty() && s.back() == '.' && !escaped) s = trim(s.substr(0, s.size() - 1));
  return s;
}

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

// One entry of the .names file, with the line it starts on. An entry whose
// line ends in a comma goes on over the next line.
struct entry {
  std::string text;
  unsigned long line = 0;
};

std::vector<entry> read_entries(const std::string& file) {
  text_input in(file);
  std::vector<entry> entries;
  std::string line;
  bool open = false;
  for (unsigned long n = in.line(); in.read_line(line); n = in.line()) {
    const std::string c = content(line);
    if (c.empty()) continue;
    if (open)
      entries.back().text += " " + c;
    else
      entries.push_back({c, n});
    open = c.back() == ',';
  }
  return entries;
}

column_decl attribute(const entry& e, const std::string& file) {
  const std::vector<std::string> parts = c45_split(e.text, ':', true);
  if (parts.size() != 2 || parts[0].empty())
    throw refusal(where(file, e.line) + "expected an attribute line \"name: type.\"");
  column_decl d;
  d.name = parts[0];
  const std::string kind_text = lower(parts[1]);
  if (!kind_text.empty() && kind_text[0] == '=')
    throw refusal(where(file, e.line) + "attributes defined by formulas are not supported");
  if (kind_text == "continuous") {
    d.kind = declared::NUMBER;
  } else if (kind_text == "ignore" || kind_text == "label") {
    d.kind = declared::IGNORE;
  } else if (kind_text.rfind("discrete", 0) == 0 && kind_text.find(',') == std::string::npos) {
    d.kind = declared::DISCRETE;  // values are collected from the data
  } else if (kind_text == "date" || kind_text == "time" || kind_text == "timestamp") {
    throw refusal(where(file, e.line) + "attributes of type " + kind_text + " are not supported");
  } else {
    d.kind = declared::DISCRETE;
    d.values = c45_split(parts[1], ',');
    d.closed = true;
    for (const std::string& v : d.values)
      if (v.empty()) throw refusal(where(file, e.line) + "an empty value in the list of values of " + d.name);
  }
  return d;
}

// C4.5 rows: comment and final period cut, fields split at commas.
class c45_reader final : public row_reader {
public:
  explicit c45_reader(const std::string& file) : in_(file) {}
  bool next(row& r) override {
    std::string line;
    for (unsigned long n = in_.line(); in_.read_line(line); n = in_.line()) {
      const std::string c = content(line);
      if (c.empty()) continue;
      row_line_ = n;
      r.clear();
      for (std::string& v : c45_split(c, ',')) {
        field f;
        f.unknown = v == "?";
        f.text = std::move(v);
        f.line = n;
        r.push_back(std::move(f));
      }
      return true;
    }
    return false;
  }
  unsigned long row_line() const override { return row_line_; }

private:
  text_input in_;
  unsigned long row_line_ = 0;
};

}  // namespace

std::vector<std::string> c45_split(const std::string& text, char delimiter, bool first_only) {
  std::vector<std::string> parts;
  std::string piece;
  std::size_t kept = 0;  // blanks up to here were escaped and stay
  auto finish = [&] {
    while (piece.size() > kept && (piece.back() == ' ' || piece.back() == '\t')) piece.pop_back();
    parts.push_back(std::move(piece));
    piece.clear();
    kept = 0;
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escaped = text[i] == '\\' && i + 1 < text.size();
    const char c = escaped ? text[++i] : text[i];
    if (!escaped && c == delimiter && !(first_only && !parts.empty())) {
      finish();
      continue;
    }
    if (!escaped && (c == ' ' || c == '\t') && piece.empty()) continue;
    piece += c;
    if (escaped) kept = piece.size();
  }
  finish();
  return parts;
}

std::string c45_stem(const std::string& input) {
  for (const char* tail : {".names", ".data.gz", ".data"})
    if (ends_with(input, tail)) return input.substr(0, input.size() - std::string(tail).size());
  return input;
}

dataset read_c45(const std::string& input, const std::string& test_file) {
  const std::string stem = c45_stem(input);
  dataset d;
  d.format = "C4.5";
  d.declared_in = stem + ".names";
  const std::vector<entry> entries = read_entries(d.declared_in);
  if (entries.empty()) throw refusal(where(d.declared_in) + "no class list and no attributes");
  for (std::size_t i = 1; i < entries.size(); ++i) {
    d.columns.push_back(attribute(entries[i], d.declared_in));
  }
  if (d.columns.empty()) throw refusal(where(d.declared_in) + "no attributes after the class list");

  // The first entry lists the classes, or names the attribute that is the
  // class.
  const std::vector<std::string> classes = c45_split(entries[0].text, ',');
  const long named = classes.size() == 1 ? find_column(d.columns, classes[0]) : -1;
  if (named >= 0) {
    d.class_index = static_cast<std::size_t>(named);
  } else {
    for (const std::string& c : classes)
      if (c.empty()) throw refusal(where(d.declared_in, entries[0].line) + "an empty name in the class list");
    std::string name = "class";
    while (find_column(d.columns, name) >= 0) name += "_";
    d.columns.push_back({name, declared::DISCRETE, classes, true});
    d.class_index = d.columns.size() - 1;
    d.note = "the class list has no name in C4.5's files: the class column is called '" + name + "'";
  }

  d.data_file = existing(stem + ".data");
  if (d.data_file.empty()) throw refusal(stem + ".data: cannot be opened");
  d.test_file = test_file.empty() ? existing(stem + ".test") : test_file;
  d.open = [](const std::string& f) -> std::unique_ptr<row_reader> { return std::make_unique<c45_reader>(f); };
  return d;
}

}  // namespace arbor_import

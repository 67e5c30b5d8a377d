#include "import_arff.h"

#include <cctype>

namespace arbor_import {

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool comment_or_blank(const std::string& t) { return t.empty() || t[0] == '%'; }

// The keyword that starts a header line (lower case), and the rest.
std::string keyword(const std::string& t, std::string& rest) {
  std::size_t i = 0;
  while (i < t.size() && !std::isspace(static_cast<unsigned char>(t[i]))) ++i;
  rest = trim(t.substr(i));
  return lower(t.substr(0, i));
}

// A quoted text starting at t[i] (a quote); i ends past the closing quote.
std::string quoted(const std::string& t, std::size_t& i, const std::string& file, unsigned long line) {
  const char q = t[i++];
  std::string s;
  while (i < t.size() && t[i] != q) {
    if (t[i] == '\\' && i + 1 < t.size()) {
      ++i;
      const char e = t[i];
      s += e == 'n' ? '\n' : e == 't' ? '\t' : e == 'r' ? '\r' : e;
    } else {
      s += t[i];
    }
    ++i;
  }
  if (i >= t.size()) throw refusal(where(file, line) + "a quoted text is never closed");
  ++i;
  return s;
}

struct header {
  std::vector<column_decl> columns;
  unsigned long data_line = 0;  // the line of @data
};

column_decl attribute(const std::string& rest, const std::string& file, unsigned long line) {
  column_decl d;
  std::size_t i = 0;
  if (!rest.empty() && (rest[0] == '\'' || rest[0] == '"')) {
    d.name = quoted(rest, i, file, line);
  } else {
    while (i < rest.size() && !std::isspace(static_cast<unsigned char>(rest[i]))) ++i;
    d.name = rest.substr(0, i);
  }
  if (d.name.empty()) throw refusal(where(file, line) + "an attribute without a name");
  const std::string type = trim(rest.substr(i));
  const std::string word = lower(type.substr(0, type.find_first_of(" \t")));
  if (!type.empty() && type[0] == '{') {
    if (type.back() != '}') throw refusal(where(file, line) + "a nominal list without its closing brace");
    d.kind = declared::DISCRETE;
    d.closed = true;
    for (field& v : arff_split(type.substr(1, type.size() - 2), file, line)) d.values.push_back(std::move(v.text));
  } else if (word == "numeric" || word == "real") {
    d.kind = declared::NUMBER;
  } else if (word == "integer") {
    d.kind = declared::INTEGER;
  } else if (word == "string") {
    d.kind = declared::DISCRETE;
  } else if (word.empty()) {
    throw refusal(where(file, line) + "attribute " + d.name + " has no type");
  } else {
    throw refusal(where(file, line) + "attributes of type " + word + " are not supported (" + d.name + ")");
  }
  return d;
}

header read_header(text_input& in) {
  header h;
  std::string line;
  for (unsigned long n = in.line(); in.read_line(line); n = in.line()) {
    const std::string t = trim(line);
    if (comment_or_blank(t)) continue;
    std::string rest;
    const std::string key = keyword(t, rest);
    if (key == "@relation") continue;
    if (key == "@attribute") {
      h.columns.push_back(attribute(rest, in.file(), n));
    } else if (key == "@data") {
      h.data_line = n;
      break;
    } else {
      throw refusal(where(in.file(), n) + "expected @relation, @attribute or @data");
    }
  }
  if (h.data_line == 0) throw refusal(where(in.file()) + "no @data line");
  if (h.columns.empty()) throw refusal(where(in.file(), h.data_line) + "no attributes before @data");
  return h;
}

bool same_attributes(const std::vector<column_decl>& a, const std::vector<column_decl>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i].name != b[i].name || a[i].kind != b[i].kind || a[i].values != b[i].values) return false;
  return true;
}

class arff_reader final : public row_reader {
public:
  arff_reader(const std::string& file, const std::vector<column_decl>& expected) : in_(file) {
    if (!same_attributes(read_header(in_).columns, expected))
      throw refusal(where(file) + "the attributes differ from the training file's");
  }
  bool next(row& r) override {
    std::string line;
    for (unsigned long n = in_.line(); in_.read_line(line); n = in_.line()) {
      const std::string t = trim(line);
      if (comment_or_blank(t)) continue;
      if (t[0] == '{') throw refusal(where(in_.file(), n) + "sparse rows are not supported");
      row_line_ = n;
      r = arff_split(t, in_.file(), n);
      if (!r.empty() && !r.back().text.empty() && r.back().text[0] == '{' && r.back().text.back() == '}')
        throw refusal(where(in_.file(), n, static_cast<unsigned>(r.size())) + "instance weights are not supported");
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

row arff_split(const std::string& t, const std::string& file, unsigned long line) {
  row r;
  std::size_t i = 0;
  for (;;) {
    field f;
    f.line = line;
    while (i < t.size() && (t[i] == ' ' || t[i] == '\t')) ++i;
    if (i < t.size() && (t[i] == '\'' || t[i] == '"')) {
      f.text = quoted(t, i, file, line);
      while (i < t.size() && (t[i] == ' ' || t[i] == '\t')) ++i;
      if (i < t.size() && t[i] != ',')
        throw refusal(where(file, line, static_cast<unsigned>(r.size() + 1)) +
                      "unexpected text after the closing quote of a value");
    } else {
      const std::size_t end = t.find(',', i);
      f.text = trim(t.substr(i, end == std::string::npos ? std::string::npos : end - i));
      f.unknown = f.text == "?";
      i = end == std::string::npos ? t.size() : end;
    }
    r.push_back(std::move(f));
    if (i >= t.size()) return r;
    ++i;  // the comma
  }
}

dataset read_arff(const std::string& file, const std::string& test_file) {
  dataset d;
  d.format = "ARFF";
  d.declared_in = d.data_file = file;
  d.test_file = test_file;
  text_input in(file);
  d.columns = read_header(in).columns;
  d.class_index = d.columns.size() - 1;
  const std::vector<column_decl> columns = d.columns;
  d.open = [columns](const std::string& f) -> std::unique_ptr<row_reader> {
    return std::make_unique<arff_reader>(f, columns);
  };
  return d;
}

}  // namespace arbor_import

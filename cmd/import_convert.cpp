#include "import_convert.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include "import_csv.h"

namespace arbor_import {

const char* type_word(out_type t) {
  switch (t) {
    case out_type::INTEGER: return "integer";
    case out_type::FLOAT: return "float";
    case out_type::STRING: return "string";
    case out_type::NONE: break;
  }
  return "null";
}

void apply_options(dataset& d, const import_options& o) {
  std::set<std::string> seen;
  for (const column_decl& c : d.columns)
    if (!seen.insert(c.name).second) throw refusal(where(d.declared_in) + "two columns are named " + c.name);
  auto column = [&](const std::string& name, const char* option) {
    const long i = find_column(d.columns, name);
    if (i < 0) throw refusal(std::string(option) + " " + name + ": no column of " + d.declared_in + " has that name");
    return static_cast<std::size_t>(i);
  };
  if (!o.class_name.empty()) d.class_index = column(o.class_name, "--class");
  if (d.class_index >= d.columns.size())
    throw refusal(d.declared_in + ": which column is the class? Name it with --class");
  for (const std::string& n : o.discrete) d.columns[column(n, "--discrete")].kind = declared::DISCRETE;
  for (const std::string& n : o.ignore) {
    const std::size_t i = column(n, "--ignore");
    if (i == d.class_index) throw refusal("--ignore " + n + ": the class column cannot be ignored");
    d.columns[i].kind = declared::IGNORE;
  }
}

namespace {

// What the first pass learns about one column.
struct column_state {
  bool all_integer = true, all_number = true;
  std::string first_real;      // where the first number that is no integer stands
  std::string first_overflow;  // where the first number beyond a float's range stands
  std::set<std::string> allowed;
};

class analysis {
public:
  explicit analysis(const dataset& d) : d_(d), states_(d.columns.size()) {
    result_.columns.resize(d.columns.size());
    for (std::size_t i = 0; i < d.columns.size(); ++i) {
      result_.columns[i].name = d.columns[i].name;
      states_[i].allowed.insert(d.columns[i].values.begin(), d.columns[i].values.end());
      note_separators(d.columns[i].name);
    }
  }

  unsigned long read(const std::string& file, bool training) {
    std::unique_ptr<row_reader> reader = d_.open(file);
    row r;
    unsigned long rows = 0;
    while (reader->next(r)) {
      if (r.size() != d_.columns.size())
        throw refusal(where(file, reader->row_line()) + std::to_string(r.size()) + " fields where " +
                      std::to_string(d_.columns.size()) + " columns are declared");
      for (std::size_t i = 0; i < r.size(); ++i) check(r[i], i, file, training);
      ++rows;
    }
    return rows;
  }

  conversion finish() {
    for (std::size_t i = 0; i < d_.columns.size(); ++i) resolve(i);
    result_.separator = 0;
    for (char s : delimited_separators)
      if (!used_.count(s)) {
        result_.separator = s;
        break;
      }
    if (!result_.separator)
      throw refusal(where(d_.data_file) + "the values hold every separator arbor's files could use (, ; tab |)");
    return result_;
  }

private:
  void note_separators(const std::string& text) {
    for (char s : delimited_separators)
      if (text.find(s) != std::string::npos) used_.insert(s);
  }

  void check(const field& f, std::size_t i, const std::string& file, bool training) {
    const column_decl& decl = d_.columns[i];
    column_result& res = result_.columns[i];
    // The place is spelled out only for a refusal or a place to remember.
    auto at = [&] { return where(file, f.line, static_cast<unsigned>(i + 1), decl.name); };
    if (f.unknown) {
      if (i == d_.class_index && training) throw refusal(at() + "the class is unknown");
      ++res.unknown;
      return;
    }
    ++res.known;
    bool special = false;  // a character that needs a closer look
    for (char c : f.text) special |= c == '\n' || c == '\r' || c == '\0' || c == ',' || c == ';' || c == '\t' || c == '|';
    if (special) {
      if (f.text.find_first_of(std::string("\n\r\0", 3)) != std::string::npos)
        throw refusal(at() + "the value holds a line break or a NUL, which arbor's files cannot carry");
      note_separators(f.text);
    }
    if (f.text.size() == 1 && f.text[0] == '?')
      throw refusal(at() + "the value '?' would read as unknown in arbor's files");
    if (decl.kind == declared::IGNORE) return;
    if (decl.closed && !states_[i].allowed.count(f.text))
      throw refusal(at() + "'" + f.text + "' is not among the values declared for " + decl.name);
    if (decl.kind != declared::DISCRETE) check_number(f.text, decl.kind, states_[i], at);
  }

  template <class Place>
  void check_number(const std::string& text, declared kind, column_state& st, Place at) {
    if (kind == declared::INFER && !st.all_number) return;  // text already
    switch (classify_number(text)) {
      case number_kind::INTEGER: return;
      case number_kind::NOT_NUMBER:
        if (kind != declared::INFER)
          throw refusal(at() + "'" + text + "' is not " + (kind == declared::INTEGER ? "an integer" : "a number"));
        st.all_number = st.all_integer = false;
        return;
      case number_kind::REAL:
        if (kind == declared::INTEGER) throw refusal(at() + "'" + text + "' is not a 32-bit integer");
        break;
      case number_kind::OUT_OF_RANGE:
        if (kind != declared::INFER) throw refusal(at() + "'" + text + "' is beyond the range of a 32-bit float");
        if (st.first_overflow.empty()) st.first_overflow = at() + "'" + text + "'";
        break;
    }
    if (st.all_integer) st.first_real = at() + "'" + text + "'";
    st.all_integer = false;
  }

  void resolve(std::size_t i) {
    const column_decl& decl = d_.columns[i];
    const column_state& st = states_[i];
    column_result& res = result_.columns[i];
    const bool is_class = i == d_.class_index;
    if (decl.kind == declared::IGNORE || (res.known == 0 && !is_class)) {
      res.type = out_type::NONE;
      res.kind = "ignore";
      return;
    }
    if (decl.kind == declared::DISCRETE || !st.all_number)
      res.type = out_type::STRING;
    else
      res.type = st.all_integer ? out_type::INTEGER : out_type::FLOAT;
    if (res.type == out_type::FLOAT && !st.first_overflow.empty())
      throw refusal(st.first_overflow + " is beyond the range of a 32-bit float; take the column as text with --discrete " +
                    decl.name);
    if (is_class && res.type == out_type::FLOAT)
      throw refusal(st.first_real + ": the class must hold classes, not measurements; take its values as text with "
                    "--discrete " + decl.name);
    res.kind = is_class ? "class" : res.type == out_type::STRING ? "discrete" : "continuous";
  }

  const dataset& d_;
  std::vector<column_state> states_;
  std::set<char> used_;
  conversion result_;
};

}  // namespace

conversion analyse(const dataset& d) {
  analysis a(d);
  const unsigned long data_rows = a.read(d.data_file, true);
  if (data_rows == 0) throw refusal(where(d.data_file) + "no rows to train on");
  const unsigned long test_rows = d.test_file.empty() ? 0 : a.read(d.test_file, false);
  conversion c = a.finish();
  c.data_rows = data_rows;
  c.test_rows = test_rows;
  return c;
}

output_files output_names(const std::string& stem, bool has_test, bool gzip) {
  const std::string gz = gzip ? ".gz" : "";
  return {stem + ".names", stem + ".data" + gz, has_test ? stem + ".test" + gz : std::string()};
}

namespace {

// An output file written under a temporary name, plain or gzip.
class output {
public:
  output(const std::string& target, bool gzip) : target_(target), temp_(target + ".part") {
    if (gzip)
      gz_ = gzopen(temp_.c_str(), "wb6");
    else
      file_ = std::fopen(temp_.c_str(), "wb");
    if (!gz_ && !file_) throw refusal(target + ": cannot be written: " + std::strerror(errno));
  }
  ~output() {
    close();
    if (!done_) std::remove(temp_.c_str());
  }
  void write(const std::string& s) {
    const bool ok = gz_ ? gzwrite(gz_, s.data(), static_cast<unsigned>(s.size())) == static_cast<int>(s.size())
                        : std::fwrite(s.data(), 1, s.size(), file_) == s.size();
    if (!ok && !s.empty()) throw refusal(target_ + ": write error");
  }
  // Closes the temporary file; false when the last writes failed.
  bool close() {
    bool ok = true;
    if (gz_) ok = gzclose(gz_) == Z_OK;
    if (file_) ok = std::fclose(file_) == 0;
    gz_ = nullptr;
    file_ = nullptr;
    return ok;
  }
  void commit() {
    if (!close()) throw refusal(target_ + ": write error");
    std::error_code ec;
    std::filesystem::rename(temp_, target_, ec);
    if (ec) throw refusal(target_ + ": cannot be written: " + ec.message());
    done_ = true;
  }

private:
  std::string target_, temp_;
  gzFile gz_ = nullptr;
  std::FILE* file_ = nullptr;
  bool done_ = false;
};

void write_rows(const dataset& d, const conversion& c, const std::string& in, output& out) {
  std::unique_ptr<row_reader> reader = d.open(in);
  row r;
  std::string line;
  while (reader->next(r)) {
    line.clear();
    for (std::size_t i = 0; i < r.size(); ++i) {
      if (i > 0) line += c.separator;
      if (r[i].unknown)
        line += '?';
      else
        line += r[i].text;
    }
    line += '\n';
    out.write(line);
  }
}

}  // namespace

void write_arbor(const dataset& d, const conversion& c, const output_files& files) {
  const bool gzip = files.data.size() > 3 && files.data.compare(files.data.size() - 3, 3, ".gz") == 0;
  output names(files.names, false), data(files.data, gzip);
  std::unique_ptr<output> test;
  if (!files.test.empty()) test = std::make_unique<output>(files.test, gzip);
  for (const column_result& col : c.columns)
    names.write(col.name + c.separator + type_word(col.type) + c.separator + col.kind + "\n");
  write_rows(d, c, d.data_file, data);
  if (test) write_rows(d, c, d.test_file, *test);
  names.commit();
  data.commit();
  if (test) test->commit();
}

}  // namespace arbor_import

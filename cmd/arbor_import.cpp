// arbor-import: converts a delimited file with a header line, C4.5's
// .names/.data/.test files or an ARFF file into arbor's .names and .data
// (and .test) files, and says what it inferred.

#include <cstring>
#include <filesystem>
#include <iomanip>
#include <iostream>

#include "import_arff.h"
#include "import_c45.h"
#include "import_convert.h"
#include "import_csv.h"

using namespace arbor_import;

namespace {

const char usage[] =
    "Usage: arbor-import [options] INPUT -o STEM\n"
    "Converts INPUT into arbor's STEM.names and STEM.data (and STEM.test).\n"
    "INPUT is a delimited file with a header line, C4.5's STEM.names (with\n"
    "STEM.data and STEM.test beside it) or an ARFF file.\n"
    "  -o, --output STEM   stem of the files written\n"
    "  --format FORMAT     csv, c45 or arff (default: from INPUT's name:\n"
    "                      .names is c45, .arff is arff, anything else csv)\n"
    "  --class NAME        the class column (csv: required; arff: default the\n"
    "                      last attribute)\n"
    "  --sep C             separator of a delimited file: , ; | or tab\n"
    "                      (default: detected)\n"
    "  --discrete A,B,...  take these columns as discrete text\n"
    "  --ignore A,B,...    keep these columns but have arbor ignore them\n"
    "  --test FILE         test rows in INPUT's format (c45: STEM.test is\n"
    "                      read when it exists)\n"
    "  --gzip              write STEM.data.gz and STEM.test.gz\n"
    "  -h, --help          print this text\n"
    "Exit status: 0 converted, 1 input refused, 2 wrong command line.\n";

struct settings {
  std::string input, stem, format, test;
  char separator = 0;
  bool gzip = false;
  import_options columns;
};

struct usage_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void split_names(const std::string& list, std::vector<std::string>& out) {
  std::size_t from = 0;
  for (;;) {
    const std::size_t comma = list.find(',', from);
    const std::string name = trim(list.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
    if (!name.empty()) out.push_back(name);
    if (comma == std::string::npos) return;
    from = comma + 1;
  }
}

char separator_option(const std::string& v) {
  if (v == "tab" || v == "\\t" || v == "\t") return '\t';
  if (v.size() == 1 && v != "\"" && v != "\n" && v != "\r" && v != " ") return v[0];
  throw usage_error("--sep takes one character or the word tab, not '" + v + "'");
}

std::string format_of(const std::string& input) {
  auto ends = [&](const char* tail) {
    const std::size_t n = std::strlen(tail);
    return input.size() >= n && input.compare(input.size() - n, n, tail) == 0;
  };
  if (ends(".names") || ends(".names.gz")) return "c45";
  if (ends(".arff") || ends(".arff.gz")) return "arff";
  return "csv";
}

settings parse(int argc, char* argv[]) {
  settings s;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) throw usage_error(a + " needs a value");
      return argv[++i];
    };
    if (a == "-o" || a == "--output") s.stem = value();
    else if (a == "--format") s.format = value();
    else if (a == "--class") s.columns.class_name = value();
    else if (a == "--sep") s.separator = separator_option(value());
    else if (a == "--discrete") split_names(value(), s.columns.discrete);
    else if (a == "--ignore") split_names(value(), s.columns.ignore);
    else if (a == "--test") s.test = value();
    else if (a == "--gzip") s.gzip = true;
    else if (a.size() > 1 && a[0] == '-') throw usage_error("unknown option " + a);
    else if (!s.input.empty()) throw usage_error("one input only: " + s.input + " or " + a + "?");
    else s.input = a;
  }
  if (s.input.empty()) throw usage_error("no input file");
  if (s.stem.empty()) throw usage_error("no output stem: give -o STEM");
  if (s.stem.find('#') != std::string::npos) throw usage_error("arbor cannot read file names holding '#': " + s.stem);
  if (s.format.empty()) s.format = format_of(s.input);
  if (s.format != "csv" && s.format != "c45" && s.format != "arff")
    throw usage_error("--format is csv, c45 or arff, not " + s.format);
  if (s.format != "csv" && s.separator) throw usage_error("--sep applies to delimited files only");
  if (s.format == "c45" && !s.columns.class_name.empty())
    throw usage_error("--class does not apply to C4.5 files: their .names gives the class");
  return s;
}

dataset read_input(const settings& s) {
  if (s.format == "c45") return read_c45(s.input, s.test);
  if (s.format == "arff") return read_arff(s.input, s.test);
  return read_delimited(s.input, s.separator, s.test);
}

// Refuses to write over any input file.
void check_outputs(const dataset& d, const output_files& out) {
  for (const std::string& o : {out.names, out.data, out.test}) {
    for (const std::string& in : {d.declared_in, d.data_file, d.test_file}) {
      std::error_code ec;
      if (!o.empty() && !in.empty() && std::filesystem::equivalent(o, in, ec))
        throw refusal(o + ": writing it would overwrite an input file; choose another -o");
    }
  }
}

// A shell word for `s`: as it stands when it is safe, else single-quoted.
std::string shell_word(const std::string& s) {
  if (!s.empty() && s.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_./+-=:,@%") ==
                        std::string::npos)
    return s;
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

void print_summary(const settings& s, const dataset& d, const conversion& c, const output_files& out) {
  std::cout << d.declared_in << " (" << d.format << "): " << c.data_rows << " training rows";
  if (!d.test_file.empty()) std::cout << ", " << c.test_rows << " test rows";
  std::cout << "\n";
  std::size_t width = 6;
  for (const column_result& col : c.columns) width = std::max(width, col.name.size());
  std::cout << "  " << std::left << std::setw(static_cast<int>(width)) << "column" << "  type     kind        "
            << std::right << std::setw(9) << "known" << std::setw(9) << "unknown" << "\n";
  for (const column_result& col : c.columns)
    std::cout << "  " << std::left << std::setw(static_cast<int>(width)) << col.name << "  " << std::setw(9)
              << type_word(col.type) << std::setw(12) << col.kind << std::right << std::setw(9) << col.known
              << std::setw(9) << col.unknown << "\n";
  if (!d.note.empty()) std::cout << "Note: " << d.note << "\n";
  std::string sep_arg;
  if (c.separator != ',') {
    std::cout << "Note: values hold ',', so the files are separated by " << separator_name(c.separator)
              << ": give arbor -sep as below\n";
    sep_arg = c.separator == '\t' ? " -sep \"$(printf '\\t')\"" : " -sep " + shell_word(std::string(1, c.separator));
  }
  std::cout << "Wrote " << out.names << ", " << out.data << (out.test.empty() ? "" : ", " + out.test) << "\n";
  std::cout << "Run: arbor ";
  if (s.gzip)
    std::cout << "-fm " << shell_word(out.names) << " -fd " << shell_word(out.data);
  else
    std::cout << "-f " << shell_word(s.stem);
  if (!out.test.empty()) std::cout << " -ft " << shell_word(out.test);
  std::cout << sep_arg << " -tstd\n";
}

}  // namespace

int main(int argc, char* argv[]) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0) {
      std::cout << usage;
      return 0;
    }
  }
  try {
    const settings s = parse(argc, argv);
    dataset d = read_input(s);
    apply_options(d, s.columns);
    const output_files out = output_names(s.stem, !d.test_file.empty(), s.gzip);
    check_outputs(d, out);
    const conversion c = analyse(d);
    write_arbor(d, c, out);
    print_summary(s, d, c, out);
    return 0;
  } catch (const usage_error& e) {
    std::cerr << "arbor-import: " << e.what() << "\n" << usage;
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "arbor-import: " << e.what() << "\n";
    return 1;
  }
}

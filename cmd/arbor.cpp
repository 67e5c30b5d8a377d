// arbor: induces a classification tree from delimited text data, prunes it,
// tests it, scores new cases and writes the tree in several forms.

#include <fstream>
#include <iostream>
#include <memory>

#include "options.h"
#include "sylva/sylva.h"

namespace {

// An output that starts as standard output when its flag is set; a named
// file replaces it. A file that does not open leaves a failed stream whose
// writes are lost.
std::ostream* open_output(bool to_stdout, const std::string& file, std::ios::openmode mode,
                          std::unique_ptr<std::ofstream>& holder) {
  std::ostream* out = to_stdout ? &std::cout : nullptr;
  if (!file.empty()) {
    holder = std::make_unique<std::ofstream>(file, std::ios::out | mode);
    out = holder.get();
  }
  return out;
}

int run(const run_settings& s) {
  std::unique_ptr<std::ofstream> log_file, text_file, xml_file, dot_file;
  std::ostream* log = open_output(s.log_std, s.log_file, std::ios::app, log_file);
  std::ostream* text = open_output(s.text_std, s.text_file, std::ios::trunc, text_file);
  std::ostream* xml = open_output(s.xml_std, s.xml_file, std::ios::trunc, xml_file);
  std::ostream* dot = open_output(s.dot_std, s.dot_file, std::ios::trunc, dot_file);

  // Loading, building, testing, scoring and writing come next; a run that
  // gets here ends with its outputs opened.
  (void)log, (void)text, (void)xml, (void)dot;
  std::cout.flush();
  return 0;
}

}  // namespace

void USAGE() { std::cout << sylva::get_copyright() << std::endl << std::endl << usage_text(); }

int main(int argc, char* argv[]) {
  if (argc == 1) {
    USAGE();
    return 0;
  }
  run_settings settings;
  const parse_outcome parsed = parse_options(argc, argv, settings);
  if (!parsed.ok) {
    std::cout << parsed.message << std::endl;
    return -1;
  }
  return run(settings);
}

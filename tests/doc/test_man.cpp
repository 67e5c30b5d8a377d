// The manual pages describe exactly the options the commands take: every
// option of the usage texts has its entry, and no entry names an option
// the command does not know.

#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "test_support.h"

using testing_support::read_file;
using testing_support::run_program;

namespace {

using option_set = std::set<std::string>;

// Options named in `text`: words of one or two dashes and a letter.
void options_in(const std::string& text, option_set& out) {
  static const std::regex option("(^|[\\s\"])(--?[a-z][a-z0-9.]*)");
  for (std::sregex_iterator i(text.begin(), text.end(), option), end; i != end; ++i) out.insert((*i)[2]);
}

// Options of a usage text: in the lines that start with blanks and a dash,
// the words before the description (which begins after two blanks).
option_set usage_options(const std::string& usage) {
  option_set out;
  std::istringstream lines(usage);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t dash = line.find_first_not_of(' ');
    if (dash == std::string::npos || line[dash] != '-' || dash == 0) continue;
    std::string head = line.substr(dash);
    // The option and its value end where the description starts.
    const std::size_t gap = head.find("  ");
    options_in(head.substr(0, gap), out);
  }
  return out;
}

// Options in the tags of the page's .TP entries, with \- read as a dash.
option_set page_options(const std::string& page) {
  option_set out;
  std::istringstream lines(read_file(testing_support::source_dir() + "/doc/" + page));
  bool tag = false;
  for (std::string line; std::getline(lines, line);) {
    if (tag) options_in(std::regex_replace(line, std::regex("\\\\-"), "-"), out);
    tag = line == ".TP";
  }
  return out;
}

}  // namespace

TEST(ManPages, ArborOptions) {
  const option_set usage = usage_options(run_program({ARBOR_EXE}).out);
  EXPECT_EQ(usage.size(), 26u);
  EXPECT_TRUE(usage.count("-c4.5") && usage.count("-ff") && usage.count("-sep"));
  EXPECT_EQ(page_options("arbor.1"), usage);
}

TEST(ManPages, ArborImportOptions) {
  const option_set usage = usage_options(run_program({ARBOR_IMPORT_EXE, "--help"}).out);
  EXPECT_EQ(usage, (option_set{"-o", "--output", "--format", "--class", "--sep", "--discrete", "--ignore", "--test",
                               "--gzip", "-h", "--help"}));
  EXPECT_EQ(page_options("arbor-import.1"), usage);
}

// arbor-import as a command: each format converted and handed to arbor,
// the summary it prints, its refusals and exit statuses.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "test_support.h"

using testing_support::golf_tree;
using testing_support::read_file;
using testing_support::run_arbor;
using testing_support::run_program;
using testing_support::scratch_dir;

namespace {

testing_support::run_result run_import(std::vector<std::string> args) {
  args.insert(args.begin(), ARBOR_IMPORT_EXE);
  return run_program(args);
}

// The golf table of examples/golf as C4.5 writes it: class list first,
// comments, blanks after commas, periods at the ends of rows.
const char golf_names[] =
    "| The golf example.\n"
    "Play, Don't Play.   | the classes\n"
    "\n"
    "outlook:     sunny, overcast, rain.\n"
    "temperature: continuous.\n"
    "humidity:    continuous.\n"
    "windy:       true, false.\n";

const char golf_rows[] =
    "sunny, 85, 85, false, Don't Play\n"
    "sunny, 80, 90, true, Don't Play.\n"
    "overcast, 83, 78, false, Play\n"
    "rain, 70, 96, false, Play\n"
    "rain, 68, 80, false, Play\n"
    "rain, 65, 70, true, Don't Play\n"
    "overcast, 64, 65, true, Play   | a comment\n"
    "sunny, 72, 95, false, Don't Play\n"
    "sunny, 69, 70, false, Play\n"
    "rain, 75, 80, false, Play\n"
    "sunny, 75, 70, true, Play\n"
    "overcast, 72, 90, true, Play\n"
    "overcast, 81, 75, false, Play\n"
    "rain, 71, 80, true, Don't Play\n";

// arbor's text report must end with the golf tree.
void expect_golf_tree(const testing_support::run_result& r) {
  ASSERT_GE(r.out.size(), sizeof golf_tree - 1) << r.out;
  EXPECT_EQ(r.out.substr(r.out.size() - (sizeof golf_tree - 1)), golf_tree) << r.out;
}

}  // namespace

TEST(ArborImport, GolfFromC45FilesGivesTheGolfTree) {
  scratch_dir d;
  d.write("golf.names", golf_names);
  d.write("golf.data", golf_rows);
  d.write("golf.test", "sunny, 85, 85, false, Play\nrain, 71, ?, true, Don't Play\n");
  const std::string out = d.file("golf-arbor");
  const auto r = run_import({d.file("golf.names"), "-o", out});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out, d.file("golf.names") +
                       " (C4.5): 14 training rows, 2 test rows\n"
                       "  column       type     kind            known  unknown\n"
                       "  outlook      string   discrete           16        0\n"
                       "  temperature  integer  continuous         16        0\n"
                       "  humidity     integer  continuous         15        1\n"
                       "  windy        string   discrete           16        0\n"
                       "  class        string   class              16        0\n"
                       "Note: the class list has no name in C4.5's files: the class column is called 'class'\n"
                       "Wrote " + out + ".names, " + out + ".data, " + out + ".test\n"
                       "Run: arbor -f " + out + " -ft " + out + ".test -tstd\n");
  EXPECT_EQ(read_file(out + ".names"),
            "outlook,string,discrete\ntemperature,integer,continuous\nhumidity,integer,continuous\n"
            "windy,string,discrete\nclass,string,class\n");
  EXPECT_EQ(read_file(out + ".test"), "sunny,85,85,false,Play\nrain,71,?,true,Don't Play\n");
  const auto run = run_arbor({"-f", out, "-ft", out + ".test", "-tstd"});
  EXPECT_NE(run.out.find("MISCLASSIFICATION on training: 0% of 14 cases."), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("MISCLASSIFICATION on test file: 50% of 2 cases."), std::string::npos) << run.out;
  expect_golf_tree(run);
}

TEST(ArborImport, DelimitedFileWithQuotedSeparatorsAndCrLf) {
  // Values hold commas, so the files written are separated by ';' and the
  // summary says how to run arbor on them.
  std::string csv = " outlook , temperature ,humidity,  windy , play \r\n";
  for (std::string row : {"sunny,85,85,false,Don't Play", "sunny,80,90,true,Don't Play", "overcast,83,78,false,Play",
                          "rain,70,96,false,Play", "rain,68,80,false,Play", "rain,65,70,true,Don't Play",
                          "overcast,64,65,true,Play", "sunny,72,95,false,Don't Play", "sunny,69,70,false,Play",
                          "rain,75,80,false,Play", "sunny,75,70,true,Play", "overcast,72,90,true,Play",
                          "overcast,81,75,false,Play", "rain,71,80,true,Don't Play"}) {
    if (row.rfind("sunny", 0) == 0) row.replace(0, 5, "\"sunny, dry\"");
    csv += row + "\r\n";
  }
  scratch_dir d;
  const std::string out = d.file("g");
  const auto r = run_import({d.write("golf.csv", csv), "--class", "play", "-o", out});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("golf.csv (delimited, separator ','): 14 training rows\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("Note: values hold ',', so the files are separated by ';': give arbor -sep as below\n"
                       "Wrote " + out + ".names, " + out + ".data\n"
                       "Run: arbor -f " + out + " -sep ';' -tstd\n"),
            std::string::npos)
      << r.out;
  EXPECT_EQ(read_file(out + ".data").substr(0, 34), "sunny, dry;85;85;false;Don't Play\n");
  std::string tree = golf_tree;
  tree.replace(tree.find("outlook = sunny:"), 16, "outlook = sunny, dry:");
  const auto run = run_arbor({"-f", out, "-sep", ";", "-tstd"});
  EXPECT_EQ(run.out.substr(run.out.size() - tree.size()), tree) << run.out;
}

TEST(ArborImport, ArffWrittenCompressed) {
  std::string arff =
      "% The golf table.\n@relation golf\n"
      "@attribute outlook {sunny, overcast, rain}\n@attribute temperature numeric\n"
      "@attribute humidity real\n@attribute windy {true, false}\n@attribute play {Play, 'Don\\'t Play'}\n@data\n";
  std::string rows = golf_rows;
  rows = std::regex_replace(rows, std::regex("Don't Play\\.?"), "'Don\\'t Play'");
  rows = std::regex_replace(rows, std::regex(" *\\| a comment"), "");
  scratch_dir d;
  const std::string out = d.file("golf");
  const auto r = run_import({d.write("golf.arff", arff + rows), "--gzip", "-o", out});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Run: arbor -fm " + out + ".names -fd " + out + ".data.gz -tstd\n"), std::string::npos) << r.out;
  EXPECT_FALSE(std::filesystem::exists(out + ".data"));
  expect_golf_tree(run_arbor({"-fm", out + ".names", "-fd", out + ".data.gz", "-tstd"}));
}

TEST(ArborImport, RefusalsLeaveNoFiles) {
  scratch_dir d;
  const std::string out = d.file("out");
  // A row that cannot be converted: exit status 1, the place in the message.
  auto r = run_import({d.write("bad.csv", "a,c\n1,x\n2,?\n"), "--class", "c", "-o", out});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "arbor-import: " + d.file("bad.csv") + ", line 3, column 2 (c): the class is unknown\n");
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(std::filesystem::directory_iterator(d.path())->path().filename(), "bad.csv");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(d.path()), {}), 1);

  // Never over an input file.
  d.write("golf.names", golf_names);
  d.write("golf.data", golf_rows);
  r = run_import({d.file("golf.names"), "-o", d.file("golf")});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "arbor-import: " + d.file("golf.names") +
                       ": writing it would overwrite an input file; choose another -o\n");
  EXPECT_EQ(read_file(d.file("golf.names")), golf_names);
}

TEST(ArborImport, CommandLine) {
  scratch_dir d;
  const std::string csv = d.write("a.csv", "a,c\n1,x\n");
  const auto help = run_import({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Usage: arbor-import [options] INPUT -o STEM\n", 0), 0u);
  const std::pair<std::vector<std::string>, std::string> wrong[] = {
      {{csv}, "no output stem: give -o STEM"},
      {{csv, "-o"}, "-o needs a value"},
      {{csv, "-o", "x", "--frobnicate"}, "unknown option --frobnicate"},
      {{csv, "-o", "x", "--sep", "ab"}, "--sep takes one character or the word tab, not 'ab'"},
      {{csv, "-o", "x#1"}, "arbor cannot read file names holding '#': x#1"},
      {{"g.names", "-o", "x", "--class", "c"}, "--class does not apply to C4.5 files: their .names gives the class"},
  };
  for (const auto& [args, message] : wrong) {
    const auto r = run_import(args);
    EXPECT_EQ(r.status, 2) << message;
    EXPECT_EQ(r.err, "arbor-import: " + message + "\n" + help.out);
  }
}

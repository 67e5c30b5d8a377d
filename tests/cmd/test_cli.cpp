#include <gtest/gtest.h>

#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "sylva/sylva.h"
#include "test_support.h"

using testing_support::read_file;
using testing_support::run_arbor;
using testing_support::scratch_dir;

namespace {

const char* const usage_lines[] = {
    "Command line: arbor [doptions] [toptions] [ooption]",
    " [doptions]: DataSet Options",
    "    -f <file>   metadata in <file>.names and training data in <file>.data",
    "    -fm <file>  metadata in <file> (*)",
    "    -fd <file>  training data in <file> (*)",
    "    -ft <file>  test data in <file> (*)",
    "    -fs <file>  score data in <file> (*)",
    "    -bd <file>  training data in binary format in <file>",
    "    -sep <c>    column separator in files (default ',')",
    " [toptions]: Tree Construction Options",
    "    -bt <file>  No dataset. Tree binary input from <file>",
    "    -c <num>    pruning confidence level -- must be in (0,1]",
    "    -m <num>    minimum cases to split -- must be > 1",
    "    -c4.5       true c4.5 pruning strategy (takes longer)",
    "    -np         no pruning at all",
    "    -h <num>    Holdout on training data: random <num>% as training and rest as test",
    "    -hf <num>   Holdout on training data: first <num>% as training and rest as test",
    " [ooptions]: Output Options",
    "    -db <file>  training data binary output in <file>",
    "    -tb <file>  tree binary output to <file>",
    "    -l <file>   log output appended to <file>",
    "    -t <file>   text output to <file>",
    "    -x <file>   tree XML output to <file>",
    "    -d <file>   tree DOT output to <file>",
    "    -s <file>   score output to <file>",
    "    -lstd       log output to stdout",
    "    -tstd       text output to stdout",
    "    -xstd       tree XML output to stdout",
    "    -dstd       tree DOT output to stdout",
    " Parallel options",
    "    -ff <n> run using <n> core-CPU",
    "",
    "(*) .gz files are automatically gunzipped.",
};

std::string expected_usage() {
  std::string s = sylva::get_copyright() + "\n\n";
  for (const char* line : usage_lines) s += std::string(line) + "\n";
  return s;
}

void expect_refused(const std::vector<std::string>& args, const std::string& message) {
  const auto r = run_arbor(args);
  EXPECT_EQ(r.status, 255) << message;
  EXPECT_EQ(r.out, message + "\n");
}

std::string golf() { return testing_support::source_dir() + "/examples/golf"; }

}  // namespace

TEST(Cli, NoArgumentPrintsTheUsage) {
  const auto r = run_arbor({});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, expected_usage());
}

TEST(Cli, UnknownCommands) {
  expect_refused({"-q"}, "Unknown command: -q");
  expect_refused({"-f", golf(), "--help"}, "Unknown command: --help");
  // Options are whole arguments: no prefixes, no joined values.
  expect_refused({"-c0.5"}, "Unknown command: -c0.5");
}

TEST(Cli, MissingValueDoesNotReadPastTheArguments) {
  expect_refused({"-f"}, "Missing value for option -f");
  expect_refused({"-np", "-c"}, "Missing value for option -c");
}

TEST(Cli, ConfidenceLevelBounds) {
  expect_refused({"-c", "0"}, "Confidence level must be in (0,1]");
  expect_refused({"-c", "1.01"}, "Confidence level must be in (0,1]");
  expect_refused({"-c", "abc"}, "Confidence level must be in (0,1]");
  EXPECT_EQ(run_arbor({"-c", "1", "-fm", "/no/such.names"}).status, 0);
}

TEST(Cli, MinObjectsBounds) {
  expect_refused({"-m", "1"}, "MinObjects must be > 1");
  expect_refused({"-m", "-3"}, "MinObjects must be > 1");
  EXPECT_EQ(run_arbor({"-m", "1.5", "-fm", "/no/such.names"}).status, 0);
}

TEST(Cli, HoldoutBounds) {
  expect_refused({"-h", "0"}, "Holdout must be in (0,100]");
  expect_refused({"-h", "-5"}, "Holdout must be in (0,100]");
  expect_refused({"-hf", "100.5"}, "Holdout must be in (0,100]");
  EXPECT_EQ(run_arbor({"-h", "100", "-fm", "/no/such.names"}).status, 0);
  EXPECT_EQ(run_arbor({"-hf", "50x", "-fm", "/no/such.names"}).status, 0);
}

TEST(Cli, CoreCountBounds) {
  const std::string online = std::to_string(sysconf(_SC_NPROCESSORS_ONLN));
  expect_refused({"-ff", "0"}, "<n> must be in [1," + online + "]");
  expect_refused({"-ff", std::to_string(sysconf(_SC_NPROCESSORS_ONLN) + 1)}, "<n> must be in [1," + online + "]");
  // Parsing stops at the first failure, before any later option.
  expect_refused({"-ff", "0", "-zz"}, "<n> must be in [1," + online + "]");
}

TEST(Cli, MissingSourcesEndTheRunQuietly) {
  auto r = run_arbor({"-lstd"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "No metadata provided.\n");
  r = run_arbor({"-fm", golf() + ".names"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "No training data provided.\n");
}

TEST(Cli, RuntimeErrorsPrintTheirTextAndExitZero) {
  const auto r = run_arbor({"-f", "/no/such/stem"});
  EXPECT_EQ(r.status, 0);
  // The source is opened before the loader runs, so no loader prefix.
  EXPECT_EQ(r.out, "File: /no/such/stem.names not found or inaccessible\n");
}

TEST(Cli, LogAppendsAndOtherOutputsTruncate) {
  scratch_dir d;
  const std::string log = d.write("run.log", "previous\n"), text = d.write("run.txt", "stale text\n");
  ASSERT_EQ(run_arbor({"-f", golf(), "-l", log, "-t", text}).status, 0);
  ASSERT_EQ(run_arbor({"-f", golf(), "-l", log, "-t", text}).status, 0);
  const std::string l = read_file(log), t = read_file(text);
  EXPECT_EQ(l.rfind("previous\n", 0), 0u);
  EXPECT_NE(l.find("Tree built."), l.rfind("Tree built.")) << "two runs, two logs";
  EXPECT_EQ(t.find("stale"), std::string::npos);
  EXPECT_EQ(t.find("TREE SIZE"), t.rfind("TREE SIZE")) << "one run's text only";
}

TEST(Cli, AFileBeatsItsStdFlag) {
  scratch_dir d;
  const std::string log = d.file("only.log");
  const auto r = run_arbor({"-f", golf(), "-lstd", "-l", log});
  EXPECT_EQ(r.out, "");
  EXPECT_NE(read_file(log).find("Data loaded.\n time:  "), std::string::npos);
}

TEST(Cli, UnwritableOutputFileIsSilentlyLost) {
  const auto r = run_arbor({"-f", golf(), "-t", "/no/such/dir/out.txt", "-lstd"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("Tree built."), std::string::npos);
}

// Whole runs of the built arbor on the bundled example.

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "sylva/sylva.h"
#include "test_support.h"

using testing_support::read_file;
using testing_support::run_arbor;
using testing_support::golf_tree;
using testing_support::scratch_dir;

namespace {

std::string golf() { return testing_support::source_dir() + "/examples/golf"; }

const char golf_matrix[] = "?\tDon't Play\tPlay\tactual/predicted\n0\t0\t0\t?\n0\t5\t0\tDon't Play\n0\t0\t9\tPlay\n";

// Times vary: every " time:  <seconds> secs." becomes " time:  T secs.".
std::string without_times(const std::string& s) {
  return std::regex_replace(s, std::regex(" time:  [0-9.e+-]+ secs\\."), " time:  T secs.");
}

}  // namespace

TEST(Run, TextReport) {
  const auto r = run_arbor({"-f", golf(), "-tstd"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, sylva::get_copyright() + "\n\nTREE SIZE: 8\n\nMISCLASSIFICATION on training: 0% of 14 cases. \n" +
                       golf_matrix + "\nDecision Tree\n\n" + golf_tree);
}

TEST(Run, LogLines) {
  const auto r = run_arbor({"-f", golf(), "-lstd"});
  EXPECT_EQ(without_times(r.out),
            "Reading data \n ... 1st pass: \n  14 rows read. Indexing ...  done.\n ... 2nd pass: \n  14 rows read.\n"
            "Data loaded.\n time:  T secs.\nTree built.\n size:  8 depth: 3 time:  T secs.\n");
}

TEST(Run, TestFileAndHoldout) {
  auto r = run_arbor({"-f", golf(), "-ft", golf() + ".data", "-tstd", "-lstd"});
  EXPECT_NE(r.out.find(std::string("\nMISCLASSIFICATION on test file: 0% of 14 cases. \n") + golf_matrix),
            std::string::npos);
  EXPECT_NE(without_times(r.out).find("Testing done.\n time:  T secs.\n"), std::string::npos);

  // The first 7 rows train (one of them misclassified), the other 7 test.
  r = run_arbor({"-f", golf(), "-hf", "50", "-tstd"});
  EXPECT_NE(r.out.find("MISCLASSIFICATION on training: 14.2857% of 7 cases. "), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("MISCLASSIFICATION on holdout test: "), std::string::npos);
  EXPECT_NE(r.out.find("% of 7 cases. "), r.out.rfind("% of 7 cases. "));

  // 100% trains on every row and tests no hold-out.
  r = run_arbor({"-f", golf(), "-h", "100", "-tstd"});
  EXPECT_NE(r.out.find("of 14 cases"), std::string::npos);
  EXPECT_EQ(r.out.find("holdout"), std::string::npos);
}

TEST(Run, Scoring) {
  scratch_dir d;
  const std::string cases = d.write("score.txt", "sunny,85,85,false,?\nrain,1,1,true,?,row-2\n");
  const std::string out = d.file("scores.txt");
  auto r = run_arbor({"-f", golf(), "-fs", cases, "-s", out, "-lstd", "-sep", ","});
  EXPECT_EQ(read_file(out), "Don't Play,1\nrow-2,Don't Play,1\n");
  EXPECT_NE(without_times(r.out).find("Evaluation done.\n time:  T secs.\n"), std::string::npos);

  r = run_arbor({"-f", golf(), "-fs", cases, "-lstd"});
  EXPECT_NE(r.out.find("\nNo score output file provided!\n\n"), std::string::npos);
}

TEST(Run, RuntimeErrorKeepsEarlierOutputs) {
  scratch_dir d;
  const std::string bad = d.write("bad.test", "sunny,85,85,false,Play\nrain\n");
  const std::string text = d.file("out.txt");
  const auto r = run_arbor({"-f", golf(), "-ft", bad, "-t", text});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "bad row format (row 2): rain\n");
  EXPECT_NE(read_file(text).find("MISCLASSIFICATION on training"), std::string::npos);
  EXPECT_EQ(read_file(text).find("Decision Tree"), std::string::npos);
}

TEST(Run, PruningOptions) {
  EXPECT_NE(run_arbor({"-f", golf(), "-c4.5", "-tstd"}).out.find(golf_tree), std::string::npos);
  // Without pruning the leaves keep their training errors, none here.
  const auto unpruned = run_arbor({"-f", golf(), "-np", "-tstd"});
  EXPECT_NE(unpruned.out.find("outlook = overcast: Play (4.0)\n"), std::string::npos) << unpruned.out;
  EXPECT_NE(unpruned.out.find("|   humidity > 75 : Don't Play (3.0)\n"), std::string::npos);
  // A low confidence level prunes everything back to the root.
  const auto r = run_arbor({"-f", golf(), "-c", "0.01", "-tstd"});
  EXPECT_NE(r.out.find("TREE SIZE: 1\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\nDecision Tree\n\n Play (14.0/9.6)\n"), std::string::npos);
  const auto m = run_arbor({"-f", golf(), "-m", "3", "-tstd"});
  EXPECT_NE(m.out.find("TREE SIZE: "), std::string::npos);
}

TEST(Run, ParallelGrowthGivesTheSameReport) {
  const auto sequential = run_arbor({"-f", golf(), "-tstd", "-xstd", "-dstd"});
  const auto parallel = run_arbor({"-f", golf(), "-ff", "1", "-tstd", "-xstd", "-dstd"});
  EXPECT_EQ(parallel.status, 0);
  EXPECT_EQ(parallel.out, sequential.out);
}

TEST(Run, GzipDataAndAnotherSeparator) {
  scratch_dir d;
  std::string names = read_file(golf() + ".names"), data = read_file(golf() + ".data");
  for (char& c : names) c = c == ',' ? ';' : c;
  for (char& c : data) c = c == ',' ? ';' : c;
  const std::string meta = d.write("g.names", names);
  const std::string gz = testing_support::gzip_file(d.file("g.data.gz"), data);
  const auto r = run_arbor({"-fm", meta, "-fd", gz, "-sep", ";", "-tstd", "-lstd"});
  EXPECT_NE(r.out.find("  14 rows read.\nData loaded.\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find(golf_tree), std::string::npos);
}

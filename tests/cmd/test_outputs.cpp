// Output files of whole runs: binary table and model, XML and DOT.

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "test_support.h"

using testing_support::data_available;
using testing_support::data_dir;
using testing_support::have_program;
using testing_support::read_file;
using testing_support::run_arbor;
using testing_support::run_program;
using testing_support::scratch_dir;

namespace {

std::string golf() { return testing_support::source_dir() + "/examples/golf"; }

std::string without_times(const std::string& s) {
  return std::regex_replace(s, std::regex(" time:  [0-9.e+-]+ secs\\."), " time:  T secs.");
}

// Sets whose runs are small enough for every test pass.
const char* const small_sets[] = {"golf", "iris", "vote", "crx", "car"};

}  // namespace

TEST(Outputs, BinaryTableTrainsTheSameTree) {
  scratch_dir d;
  for (const char* name : small_sets) {
    if (!data_available(name)) continue;
    const std::string stem = data_dir() + "/" + name + "/" + name;
    const std::string table = d.file(std::string(name) + ".tbl");
    const auto text = run_arbor({"-f", stem, "-db", table, "-tstd", "-lstd"});
    EXPECT_NE(text.out.find("Data saved.\n"), std::string::npos);
    const auto binary = run_arbor({"-bd", table, "-tstd", "-lstd"});
    EXPECT_NE(binary.out.find("Data loaded.\nTree built."), std::string::npos);
    const auto tree_of = [](const std::string& out) { return out.substr(out.find("TREE SIZE")); };
    EXPECT_EQ(tree_of(binary.out), tree_of(text.out)) << name;
  }
  const auto missing = run_arbor({"-bd", d.file("none.tbl")});
  EXPECT_EQ(missing.out, "File " + d.file("none.tbl") + ": not binary format\n");
  const auto foreign = run_arbor({"-bd", golf() + ".names"});
  EXPECT_EQ(foreign.out, "File " + golf() + ".names: not binary format\n");
  const auto unwritable = run_arbor({"-f", golf(), "-db", "/no/such/dir/t.bin"});
  EXPECT_EQ(unwritable.out, "File /no/such/dir/t.bin: error with binary output\n");
  const auto full = run_arbor({"-f", golf(), "-db", "/dev/full"});
  EXPECT_EQ(full.out, "File /dev/full: error with binary output\n");
}

TEST(Outputs, BinaryModelReloadsToTheSameResults) {
  scratch_dir d;
  for (const char* name : small_sets) {
    if (!data_available(name)) continue;
    const std::string stem = data_dir() + "/" + name + "/" + name;
    const std::string model = d.file(std::string(name) + ".model");
    const std::string scores1 = d.file("s1"), scores2 = d.file("s2");
    const auto built = run_arbor({"-f", stem, "-tb", model, "-ft", stem + ".data", "-fs", stem + ".data", "-s",
                                  scores1, "-tstd", "-xstd", "-dstd", "-lstd"});
    EXPECT_NE(built.out.find("Tree saved.\n"), std::string::npos);
    const auto loaded = run_arbor({"-bt", model, "-ft", stem + ".data", "-fs", stem + ".data", "-s", scores2,
                                   "-tstd", "-xstd", "-dstd", "-lstd"});
    EXPECT_NE(loaded.out.find("Tree loaded.\n"), std::string::npos);
    // Everything after the loading lines is the same (DOT, text, tests,
    // XML), but for the line that reports the saving.
    const auto from = [](const std::string& out) { return without_times(out.substr(out.find("digraph"))); };
    std::string saved = from(built.out);
    saved.erase(saved.find("Tree saved.\n"), 12);
    EXPECT_TRUE(from(loaded.out) == saved) << name;
    EXPECT_EQ(read_file(scores2), read_file(scores1)) << name;
  }
  EXPECT_EQ(run_arbor({"-bt", golf() + ".data"}).out, "File " + golf() + ".data: not a binary tree model\n");
  // A model file that does not open is the binary stream's own failure.
  EXPECT_EQ(run_arbor({"-bt", d.file("none")}).out, "Error description not available\n");
  const std::string table = d.file("golf.tbl");
  run_arbor({"-f", golf(), "-db", table});
  EXPECT_EQ(run_arbor({"-bt", table}).out, "File " + table + ": not a binary tree model\n");
}

TEST(Outputs, XmlIsWellFormed) {
  if (!have_program("xmllint")) GTEST_SKIP() << "xmllint not installed (Debian package libxml2-utils)";
  scratch_dir d;
  for (const char* name : small_sets) {
    if (!data_available(name)) continue;
    const std::string stem = data_dir() + "/" + name + "/" + name;
    const std::string xml = d.file(std::string(name) + ".xml");
    run_arbor({"-f", stem, "-hf", "60", "-x", xml});
    const auto check = run_program({"xmllint", "--noout", xml});
    EXPECT_EQ(check.status, 0) << name << ": " << check.err;
    EXPECT_NE(read_file(xml).find("<X-ConfusionMatrixTest "), std::string::npos) << "the hold-out matrix";
  }
}

TEST(Outputs, DotIsAcceptedByGraphviz) {
  if (!have_program("dot")) GTEST_SKIP() << "dot not installed (Debian package graphviz)";
  scratch_dir d;
  for (const char* name : small_sets) {
    if (!data_available(name)) continue;
    const std::string stem = data_dir() + "/" + name + "/" + name;
    const std::string graph = d.file(std::string(name) + ".dot");
    run_arbor({"-f", stem, "-d", graph});
    const auto check = run_program({"dot", "-Tsvg", "-o", d.file("out.svg"), graph});
    EXPECT_EQ(check.status, 0) << name << ": " << check.err;
  }
}

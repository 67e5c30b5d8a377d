// Runs that could destroy the user's files: an output that is one of the
// inputs, and binary outputs that cannot be written completely.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "test_support.h"

using testing_support::read_file;
using testing_support::run_arbor;
using testing_support::run_program;
using testing_support::scratch_dir;

namespace {

std::string golf() { return testing_support::source_dir() + "/examples/golf"; }

// Files of a directory whose names end in ".partial": what a failed binary
// write would leave behind.
std::vector<std::string> partial_files(const std::string& dir) {
  std::vector<std::string> found;
  for (const auto& e : std::filesystem::directory_iterator(dir))
    if (e.path().extension() == ".partial") found.push_back(e.path().string());
  return found;
}

bool is_directory(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

TEST(FileSafety, AnOutputThatIsAnInputStopsTheRunBeforeAnythingIsTruncated) {
  scratch_dir d;
  const std::string names = d.write("g.names", read_file(golf() + ".names"));
  const std::string data = d.write("g.data", read_file(golf() + ".data"));
  const std::string rows = read_file(data);
  const auto refused = [&](std::vector<std::string> args, const std::string& out, const std::string& in) {
    const auto r = run_arbor(args);
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.out, "File " + out + ": output is the same file as input " + in + "\n");
    EXPECT_EQ(read_file(data), rows) << "the input is untouched";
    EXPECT_EQ(read_file(names), read_file(golf() + ".names"));
  };
  refused({"-fm", names, "-fd", data, "-t", data}, data, data);
  refused({"-fm", names, "-fd", golf() + ".data", "-fs", data, "-s", data}, data, data);
  refused({"-fm", names, "-fd", golf() + ".data", "-ft", data, "-x", data}, data, data);
  // Appending to the metadata would change it before it is read.
  refused({"-fm", names, "-fd", golf() + ".data", "-l", names}, names, names);
  // Another name for the same file: a hard link, a symbolic link, a path
  // through "..".
  ASSERT_EQ(::link(data.c_str(), d.file("hard").c_str()), 0);
  ASSERT_EQ(::symlink(data.c_str(), d.file("soft").c_str()), 0);
  refused({"-fm", names, "-fd", data, "-d", d.file("hard")}, d.file("hard"), data);
  refused({"-fm", names, "-fd", d.file("soft"), "-db", data}, data, d.file("soft"));
  const std::string dotted = d.path() + "/../" + std::filesystem::path(d.path()).filename().string() + "/g.data";
  refused({"-fm", names, "-fd", data, "-tb", dotted}, dotted, data);

  // Outputs that cannot destroy anything: a device, and a score output
  // that is never opened because nothing is scored.
  auto r = run_arbor({"-fm", names, "-fd", data, "-fs", "/dev/null", "-s", "/dev/null", "-t", "/dev/null"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  r = run_arbor({"-fm", names, "-fd", data, "-ft", data, "-s", data, "-tstd"});
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("MISCLASSIFICATION on test file: 0% of 14 cases."), std::string::npos);
  EXPECT_EQ(read_file(data), rows);
}

TEST(FileSafety, BinaryOutputsThatCannotBeWrittenReportTheFile) {
  scratch_dir d;
  for (const char* option : {"-tb", "-db"}) {
    auto r = run_arbor({"-f", golf(), option, "/dev/full"});
    EXPECT_EQ(r.out, "File /dev/full: error with binary output\n") << option;
    ASSERT_EQ(::mkdir(d.file("dir").c_str(), 0755), 0);
    r = run_arbor({"-f", golf(), option, d.file("dir")});
    EXPECT_EQ(r.out, "File " + d.file("dir") + ": error with binary output\n") << option;
    EXPECT_TRUE(is_directory(d.file("dir"))) << "a directory in the target's place stays";
    ASSERT_EQ(::rmdir(d.file("dir").c_str()), 0);
  }
  EXPECT_TRUE(partial_files(d.path()).empty());
}

TEST(FileSafety, AFailedBinaryWriteLeavesTheGoodFileInPlace) {
  scratch_dir d;
  // 300 rows of as many distinct values: the table and the model (whose
  // copy of the table keeps that domain) both take well over 512 bytes.
  std::string rows;
  for (unsigned i = 0; i < 300; ++i) rows += std::to_string(i * 7919 % 100003) + "," + "k" + std::to_string(i % 3) + "\n";
  const std::string names = d.write("s.names", "a,string,discrete\nc,string,class\n");
  const std::string data = d.write("s.data", rows);
  const std::string model = d.file("m.bin"), table = d.file("t.bin");
  ASSERT_EQ(run_arbor({"-f", golf(), "-tb", model, "-db", table}).out, "");
  const std::string good_model = read_file(model), good_table = read_file(table);
  // Files may grow to 512 bytes: the outputs do not fit, the messages on
  // standard output do.
  for (const std::string& option : {std::string("-tb"), std::string("-db")}) {
    const std::string& target = option == "-tb" ? model : table;
    const auto r = run_program({"sh", "-c", "trap '' XFSZ; ulimit -f 1; exec \"$@\"", "sh", ARBOR_EXE, "-fm", names,
                                "-fd", data, option, target});
    EXPECT_EQ(r.out, "File " + target + ": error with binary output\n");
  }
  EXPECT_EQ(read_file(model), good_model);
  EXPECT_EQ(read_file(table), good_table);
  EXPECT_TRUE(partial_files(d.path()).empty());
  // Without the limit the same run replaces the files.
  EXPECT_EQ(run_arbor({"-fm", names, "-fd", data, "-tb", model, "-db", table}).out, "");
  EXPECT_GT(read_file(model).size(), 512u);
  EXPECT_GT(read_file(table).size(), 512u);
}

TEST(FileSafety, AFullFileSystemLeavesTheGoodFileInPlace) {
  scratch_dir d;
  const std::string mnt = d.file("small");
  ASSERT_EQ(::mkdir(mnt.c_str(), 0755), 0);
  // One page of space: the good model fills it, its replacement cannot be
  // written beside it.
  if (::mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=4k") != 0)
    GTEST_SKIP() << "cannot mount a small tmpfs here (needs root and a mount namespace that allows it)";
  const std::string model = mnt + "/m.bin";
  const auto first = run_arbor({"-f", golf(), "-tb", model});
  const std::string good = read_file(model);
  const auto second = run_arbor({"-f", golf(), "-np", "-tb", model});
  const std::string after = read_file(model);
  const auto partial = partial_files(mnt);
  ::umount(mnt.c_str());
  EXPECT_EQ(first.out, "");
  EXPECT_FALSE(good.empty());
  EXPECT_EQ(second.out, "File " + model + ": error with binary output\n");
  EXPECT_EQ(after, good);
  EXPECT_TRUE(partial.empty());
}

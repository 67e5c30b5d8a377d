// Same-file checks and files replaced only once complete.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tarn/inpout/fs.h"
#include "test_support.h"

namespace fs = tarn::inpout::fs;
using testing_support::read_file;
using testing_support::scratch_dir;

namespace {

// Files of the directory other than the given ones.
std::vector<std::string> others(const scratch_dir& d, std::vector<std::string> known) {
  std::vector<std::string> found;
  for (const auto& e : std::filesystem::directory_iterator(d.path())) {
    const std::string name = e.path().filename().string();
    if (std::find(known.begin(), known.end(), name) == known.end()) found.push_back(name);
  }
  return found;
}

}  // namespace

TEST(FsSameFile, LinksAndResolvedPaths) {
  scratch_dir d;
  const std::string a = d.write("a", "x"), b = d.write("b", "x");
  ASSERT_EQ(::link(a.c_str(), d.file("hard").c_str()), 0);
  ASSERT_EQ(::symlink(a.c_str(), d.file("soft").c_str()), 0);
  ASSERT_EQ(::mkdir(d.file("sub").c_str(), 0755), 0);
  EXPECT_TRUE(fs::same_file(a, a));
  EXPECT_TRUE(fs::same_file(a, d.file("hard")));
  EXPECT_TRUE(fs::same_file(d.file("soft"), a));
  EXPECT_TRUE(fs::same_file(a, d.file("sub/../a")));
  EXPECT_FALSE(fs::same_file(a, b)) << "same content, other file";
  // Files that do not exist yet compare by their resolved paths.
  EXPECT_TRUE(fs::same_file(d.file("new"), d.file("sub/../new")));
  EXPECT_FALSE(fs::same_file(d.file("new"), d.file("sub/new")));
  EXPECT_FALSE(fs::same_file(d.file("new"), a)) << "one exists, the other not";

  EXPECT_TRUE(fs::is_special(d.file("sub")));
  EXPECT_TRUE(fs::is_special("/dev/null"));
  EXPECT_FALSE(fs::is_special(a));
  EXPECT_FALSE(fs::is_special(d.file("new")));
}

TEST(FsReplacement, ReplacesOnlyOnCommit) {
  scratch_dir d;
  const std::string target = d.write("model", "good");
  ASSERT_EQ(::chmod(target.c_str(), 0600), 0);
  {
    fs::replacement r(target);
    EXPECT_NE(r.path(), target);
    EXPECT_EQ(r.path().substr(r.path().size() - 8), ".partial");
    testing_support::write_file(r.path(), "half");
  }
  EXPECT_EQ(read_file(target), "good") << "not committed: the target stays";
  EXPECT_TRUE(others(d, {"model"}).empty()) << "and the temporary file is gone";

  {
    fs::replacement r(target);
    testing_support::write_file(r.path(), "better");
    EXPECT_TRUE(r.commit());
  }
  EXPECT_EQ(read_file(target), "better");
  struct stat st;
  ASSERT_EQ(::stat(target.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u) << "the replaced file's permissions stay";
  EXPECT_TRUE(others(d, {"model"}).empty());

  // Through a symbolic link the file it names is replaced, the link stays.
  ASSERT_EQ(::symlink(target.c_str(), d.file("link").c_str()), 0);
  {
    fs::replacement r(d.file("link"));
    testing_support::write_file(r.path(), "via link");
    EXPECT_TRUE(r.commit());
  }
  EXPECT_EQ(read_file(target), "via link");
  struct stat lst;
  ASSERT_EQ(::lstat(d.file("link").c_str(), &lst), 0);
  EXPECT_TRUE(S_ISLNK(lst.st_mode));

  // A new file.
  {
    fs::replacement r(d.file("fresh"));
    testing_support::write_file(r.path(), "new");
    EXPECT_TRUE(r.commit());
  }
  EXPECT_EQ(read_file(d.file("fresh")), "new");
}

TEST(FsReplacement, SpecialFilesAreWrittenInPlace) {
  scratch_dir d;
  fs::replacement null("/dev/null");
  EXPECT_EQ(null.path(), "/dev/null");
  EXPECT_TRUE(null.commit());
  ASSERT_EQ(::mkdir(d.file("dir").c_str(), 0755), 0);
  fs::replacement dir(d.file("dir"));
  EXPECT_EQ(dir.path(), d.file("dir")) << "opening it fails as it always did";
  EXPECT_THROW(fs::replacement(d.file("missing/x")), std::runtime_error);
}

// Binary tables and models that are damaged or made up: each is refused
// with the file's message, without reading past a buffer or building more
// than the file can describe.

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sylva/impls/decision_tree.h"
#include "sylva/sylva.h"
#include "hand_bytes.h"
#include "table_fixture.h"
#include "tarn/inpout/binstream.h"

using namespace sylva::impls;
using testing_support::error_of;
using testing_support::bytes;
using testing_support::scratch_dir;

namespace {

void put_u32(std::string& s, size_t at, unsigned v) {
  for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>((v >> (8 * i)) & 0xff);
}

// The golf table's record: outlook (3 values), temperature and humidity
// (continuous integers), windy (2 values), play (class: ?, Don't Play, Play).
std::string golf_table() {
  scratch_dir d;
  auto t = table_fixture::golf();
  {
    tarn::inpout::obinstream out(d.file("t.bin"));
    out << static_cast<const table*>(t.get());
  }
  return testing_support::read_file(d.file("t.bin"));
}

// A node record after a model's build: inactive, no cases, split status 1.
struct node {
  unsigned branch = 0, status = 1, majority = 2, split_status = 1, leaf = 2, branches = 0;
  unsigned char activated = 0;
  std::vector<float> dist{0, 1, 3};
  std::string threshold;

  std::string record() const {
    bytes r;
    r.u(branch).u(status).b(activated).f(4).u(4).u(static_cast<unsigned>(dist.size()));
    for (float x : dist) r.f(x);
    r.f(1).u(majority).b(0).u(split_status);
    if (status == 1) r.f(1).u(leaf);
    if (status == 2) r.f(1).u(leaf).text(threshold).u(branches);
    return r.s;
  }
};

// A subtree: the node, its slot count and its children (empty for a slot
// of presence 0).
std::string subtree(const node& n, const std::vector<std::string>& children = {}) {
  bytes r;
  r.add(n.record()).u(static_cast<unsigned>(children.size()));
  for (const std::string& c : children) c.empty() ? r.b(0) : r.b(1).add(c);
  return r.s;
}

std::string model(const std::string& tree, int split_type = 1, int pruning = 2) {
  bytes m;
  m.b(1).b(1).add(tree).add(golf_table()).b(0).d(0).f(0.25f).f(2).u(static_cast<unsigned>(split_type));
  return m.text("golf").u(static_cast<unsigned>(pruning)).s;
}

// A leaf for branch b of a split.
std::string leaf(unsigned b) {
  node n;
  n.branch = b;
  return subtree(n);
}

std::string model_error(const std::string& content, bool compressed = false) {
  scratch_dir d;
  const std::string p = d.file("m.bin");
  if (compressed)
    testing_support::gzip_file(p, content);
  else
    testing_support::write_file(p, content);
  const std::string e = error_of([&] { delete sylva::dtree::fromBinary(p); });
  return e == "File " + p + ": not a binary tree model" ? "refused" : e;
}

// Peak resident memory of the process in kB, -1 when it cannot be reset
// and read.
long reset_peak_memory() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  return clear.good() ? 0 : -1;
}

long peak_memory_kb() {
  std::ifstream status("/proc/self/status");
  std::string key;
  while (status >> key) {
    long kb;
    if (key == "VmHWM:" && status >> kb) return kb;
  }
  return -1;
}

}  // namespace

TEST(BinaryModelChecks, AHandMadeModelReads) {
  node root;
  root.status = 2;
  root.leaf = 0;  // outlook
  root.branches = 3;
  EXPECT_EQ(model_error(model(subtree(root, {leaf(1), leaf(2), leaf(3)}))), "no error");
  node split_on_temperature = root;
  split_on_temperature.leaf = 1;
  split_on_temperature.branches = 2;
  split_on_temperature.threshold = "75";
  EXPECT_EQ(model_error(model(subtree(split_on_temperature, {leaf(1), leaf(2)}))), "no error");
  EXPECT_EQ(model_error(model(leaf(0)), true), "no error") << "compressed, as models are written";
}

TEST(BinaryModelChecks, EnumerationsOutsideTheirValuesAreRefused) {
  EXPECT_EQ(model_error(model(leaf(0), 1, 3)), "refused") << "pruning strategy";
  EXPECT_EQ(model_error(model(leaf(0), 1, -1)), "refused");
  EXPECT_EQ(model_error(model(leaf(0), 2, 2)), "refused") << "split type";
  for (unsigned status : {0u, 3u}) {
    node n;
    n.status = status;
    EXPECT_EQ(model_error(model(subtree(n))), "refused") << "node status " << status;
  }
  node split_status;
  split_status.split_status = 2;
  EXPECT_EQ(model_error(model(subtree(split_status))), "refused");
  node activated;
  activated.activated = 2;
  EXPECT_EQ(model_error(model(subtree(activated))), "refused") << "a flag byte other than 0 or 1";
}

TEST(BinaryModelChecks, NodesMustFitTheirTable) {
  node out_of_range;
  out_of_range.leaf = 3;  // play has ?, Don't Play, Play
  EXPECT_EQ(model_error(model(subtree(out_of_range))), "refused") << "leaf class";
  node short_distribution;
  short_distribution.dist = {1, 3};
  short_distribution.majority = 1;
  EXPECT_EQ(model_error(model(subtree(short_distribution))), "refused");

  node split;
  split.status = 2;
  split.branches = 3;
  const std::vector<std::string> three{leaf(1), leaf(2), leaf(3)};
  for (unsigned a : {4u, 5u}) {  // the class column, a column that is not there
    split.leaf = a;
    EXPECT_EQ(model_error(model(subtree(split, three))), "refused") << "split on " << a;
  }
  split.leaf = 0;
  split.branches = 2;
  EXPECT_EQ(model_error(model(subtree(split, {leaf(1), leaf(2)}))), "refused") << "outlook has 3 values";

  split.leaf = 1;  // temperature, integer
  for (const char* threshold : {"abc", "?", "75.5", ""}) {
    split.threshold = threshold;
    EXPECT_EQ(model_error(model(subtree(split, {leaf(1), leaf(2)}))), "refused") << threshold;
  }
  split.threshold = "75";
  split.branches = 3;
  EXPECT_EQ(model_error(model(subtree(split, three))), "refused") << "a continuous split has two branches";
  split.branches = 2;
  EXPECT_EQ(model_error(model(subtree(split, {leaf(2), leaf(1)}))), "refused") << "branches out of place";
}

TEST(BinaryModelChecks, SlotsFollowTheBranches) {
  node split;
  split.status = 2;
  split.leaf = 0;
  split.branches = 3;
  EXPECT_EQ(model_error(model(subtree(split, {leaf(1), "", leaf(3)}))), "no error") << "an empty slot keeps its place";
  EXPECT_EQ(model_error(model(subtree(split, {leaf(1), leaf(2)}))), "refused");
  EXPECT_EQ(model_error(model(subtree(node(), {leaf(1)}))), "refused") << "a leaf has no slots";
}

TEST(BinaryModelChecks, CountsCannotOutgrowTheFile) {
  // A split claiming 50 million branches, all empty slots: 50 MB of zero
  // bytes that compress to about 50 KB. Each slot would take a container,
  // gigabytes in all; the reader stops once it has built far more than it
  // has read.
  node split;
  split.status = 2;
  split.leaf = 0;
  split.branches = 50000000;
  std::string content = bytes().b(1).b(1).add(split.record()).u(split.branches).s;
  content.append(split.branches, '\0');
  const bool measured = reset_peak_memory() == 0;
  const long before = peak_memory_kb();
  EXPECT_EQ(model_error(content, true), "refused");
  if (!measured || before < 0) GTEST_SKIP() << "peak memory cannot be reset here (/proc/self/clear_refs)";
  EXPECT_LT(peak_memory_kb() - before, 200 * 1024) << "kB";
}

TEST(BinaryModelChecks, NestingIsBoundedForTheStack) {
  // A chain of splits on temperature, each with a split below its first
  // branch and an empty second slot, ending in a leaf.
  const auto chain = [](unsigned depth) {
    std::string head, tail;
    for (unsigned level = 1; level < depth; ++level) {
      node split;
      split.branch = level == 1 ? 0 : 1;
      split.status = 2;
      split.leaf = 1;
      split.threshold = "75";
      split.branches = 2;
      head += bytes().add(split.record()).u(2).b(1).s;
      tail += '\0';
    }
    node end;
    end.branch = depth == 1 ? 0 : 1;
    return head + bytes().add(end.record()).u(0).s + tail;
  };
  scratch_dir d;
  const std::string deepest = d.write("deep.bin", model(chain(10000)));
  std::unique_ptr<sylva::dtree> m(sylva::dtree::fromBinary(deepest));
  EXPECT_EQ(m->depth(), 10000u);
  // The renderers recurse as deep (the text form, indented by depth, would
  // be hundreds of megabytes).
  std::ostringstream os;
  m->toDOT(os);
  EXPECT_NE(os.str().find("n9999 [ shape=ellipse"), std::string::npos);
  EXPECT_EQ(model_error(model(chain(10001))), "refused");
}

TEST(BinaryTableChecks, EveryColumnHoldsTheRowCount) {
  // The row count raised by one and the loaded-column count set to 0, which
  // used to exempt every column from the length check: the build then read
  // one row past each column.
  const std::string good = golf_table();
  std::string bad = good;
  // The record ends with rows, verbosity, the flag byte, the weights
  // position, the loaded-column count and the loading time.
  const size_t rows_at = bad.size() - 8 - 4 - 4 - 1 - 4 - 4, loaded_at = bad.size() - 8 - 4;
  put_u32(bad, rows_at, 15);
  put_u32(bad, loaded_at, 0);
  scratch_dir d;
  const std::string p = d.write("t.bin", bad);
  EXPECT_EQ(error_of([&] { delete sylva::table::fromBinary(p); }), "File " + p + ": not binary format");
  put_u32(bad, rows_at, 14);
  testing_support::write_file(p, bad);
  EXPECT_EQ(error_of([&] { delete sylva::table::fromBinary(p); }), "no error") << "only the row count was wrong";
}

TEST(BinaryTableChecks, UnknownIndicesNeedADomainThatMetThem) {
  // A column holding the unknown index under a domain that says it met no
  // unknown value: whole-weight growth, which trusts the flag, indexed its
  // branches with that 0 (found by fuzzing the table reader).
  auto t = table_fixture::load("outlook,string,discrete\nplay,string,class\n", "sunny,no\n?,yes\nrain,yes\novercast,no\n");
  scratch_dir d;
  const std::string p = d.file("t.bin");
  {
    tarn::inpout::obinstream out(p);
    out << static_cast<const table*>(t.get());
  }
  std::string bad = testing_support::read_file(p);
  EXPECT_EQ(error_of([&] { delete sylva::table::fromBinary(p); }), "no error");
  // The domain record: the datatype's text, then the admits and contains flags.
  const size_t word = bad.find("string");
  ASSERT_NE(word, std::string::npos);
  ASSERT_EQ(bad[word + 7], 1) << "outlook's domain met an unknown value";
  bad[word + 7] = 0;
  testing_support::write_file(p, bad);
  EXPECT_EQ(error_of([&] { delete sylva::table::fromBinary(p); }), "File " + p + ": not binary format");
}

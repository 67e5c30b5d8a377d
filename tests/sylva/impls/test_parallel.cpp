// Growth on worker threads: the tree must not depend on the number of
// workers or on timing, and equals the sequential tree wherever case
// weights stay whole.

#include <gtest/gtest.h>
#include <zlib.h>

#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "table_fixture.h"
#include "tarn/inpout/binstream.h"

using namespace sylva::impls;
using testing_support::data_available;
using testing_support::read_file;

namespace {

std::unique_ptr<table> dataset(const std::string& name) {
  const std::string stem = testing_support::data_dir() + "/" + name + "/" + name;
  return table_fixture::load(read_file(stem + ".names"), read_file(stem + ".data"));
}

// Text, XML, DOT and the binary model, but for the build time it records.
std::string outputs(const decision_tree& tree) {
  std::ostringstream os;
  tree.toTEXT(os, 0);
  tree.toXML(os, nullptr);
  tree.toDOT(os);
  testing_support::scratch_dir d;
  {
    tarn::inpout::obinstream out(d.file("m.bin"), true, 1);
    out << tree;
  }
  gzFile f = gzopen(d.file("m.bin").c_str(), "rb");
  std::string bin;
  char buf[4096];
  int n;
  while ((n = gzread(f, buf, sizeof buf)) > 0) bin.append(buf, static_cast<size_t>(n));
  gzclose(f);
  // The record ends: time (8), level, min_obj, split type (4 each), name, strategy (4).
  const size_t time_at = bin.size() - (4 + 5 + tree.get_name().size() + 12 + 8);
  bin.replace(time_at, 8, 8, '\0');
  return os.str() + bin;
}

std::string grown(table* t, int cores, decision_tree::PruningStrategy strategy = decision_tree::ERROR_BASED_PRUNING) {
  decision_tree tree("t");
  tree.set_pruning_strategy(strategy);
  tree.build_pruned(t, nullptr, true, cores);
  return outputs(tree);
}

}  // namespace

TEST(Parallel, EveryWorkerCountGivesTheSameModel) {
  for (const char* name : {"golf", "iris", "vote", "crx", "car", "adult"}) {
    if (!data_available(name)) continue;
    auto t = dataset(name);
    const std::string one = grown(t.get(), 1);
    for (int cores : {2, 3, 4}) EXPECT_TRUE(grown(t.get(), cores) == one) << name << " on " << cores << " workers";
    EXPECT_TRUE(grown(t.get(), 3) == one) << name << " repeated";
    EXPECT_TRUE(grown(t.get(), 2, decision_tree::NO_PRUNING) == grown(t.get(), 4, decision_tree::NO_PRUNING)) << name;
  }
}

TEST(Parallel, EqualsTheSequentialBuildWithWholeWeights) {
  // Whole weights sum exactly in any order; mushroom and vote have no
  // continuous attribute, so no list is ever sorted.
  for (const char* name : {"golf", "iris", "car", "nursery", "letter", "covtype-10k", "mushroom", "vote"}) {
    if (!data_available(name)) continue;
    auto t = dataset(name);
    EXPECT_TRUE(grown(t.get(), 2) == grown(t.get(), 0)) << name;
    EXPECT_TRUE(grown(t.get(), 2, decision_tree::C45_PRUNING) == grown(t.get(), 0, decision_tree::C45_PRUNING))
        << name;
  }
}

TEST(Parallel, FinalRootEndsTheFarmAtOnce) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,p\ny,p\nx,p\n");
  decision_tree tree("t");
  tree.build_pruned(t.get(), nullptr, true, 3);
  EXPECT_EQ(tree.size(), 1u);
  std::ostringstream os;
  tree.toTEXT(os, 0);
  EXPECT_EQ(os.str(), " p (3.0/1.1)\n");
}

TEST(Parallel, LargeNodesAreMeasuredAttributeWise) {
  // 400 rows; the root sends tasks for a and the class column, so a child
  // goes attribute-wise when its cases squared reach 400 / 2 = 200: the
  // 390-case child does, the 10-case child becomes one whole-node task.
  std::string data;
  for (int i = 0; i < 390; ++i) data += i % 4 ? "x,p\n" : "x,n\n";
  for (int i = 0; i < 10; ++i) data += "y,n\n";
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", data);
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  _decision_tree root;
  options opts;
  root.set_node(new _decision_node(cases.get()));
  root.build_ff(t.get(), decision_tree::GAIN_RATIO, 2, &opts, 2);
  EXPECT_EQ(root.ff_sent, 2u);
  ASSERT_EQ(root.get_no_childs(), 2u);
  EXPECT_EQ(root.get_child(0)->ff_sent, 1u) << "only the class column: a is spent";
  EXPECT_EQ(root.get_child(1)->ff_sent, 0u);
  EXPECT_EQ(root.get_child(0)->get_node()->get_node_status(), unsigned(decision_tree::LEAF_NODE));
  EXPECT_EQ(root.get_child(1)->get_node()->get_node_status(), unsigned(decision_tree::LEAF_NODE));
  EXPECT_FALSE(root.get_child(0)->get_node()->is_activated());
}

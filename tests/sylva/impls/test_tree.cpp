#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "table_fixture.h"

using namespace sylva::impls;

namespace {

std::string text_of(const decision_tree& t) {
  std::ostringstream os;
  t.toTEXT(os, 0);
  return os.str();
}

}  // namespace

TEST(Tree, GolfGivesTheClassicTree) {
  auto t = table_fixture::golf();
  decision_tree tree("golf");
  tree.build_pruned(t.get(), nullptr, true, 0);
  // Outlook at the root, humidity under sunny (cut between 70 and 85: the
  // largest value not above 77.5 is 75), windy under rain. Leaf errors are
  // the pessimistic estimates: 4 * (1 - 0.25^(1/4)) = 1.17 and so on.
  EXPECT_EQ(text_of(tree), testing_support::golf_tree);
  EXPECT_EQ(tree.size(), 8u);
  EXPECT_EQ(tree.depth(), 3u);
  EXPECT_EQ(tree.get_prediction()->mis_perc(), 0.0f);
  EXPECT_EQ(tree.get_prediction()->cases(), 14.0f);
}

TEST(Tree, SingleLeafTree) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,yes\ny,yes\nx,yes\n");
  decision_tree tree("t");
  tree.build_pruned(t.get(), nullptr, true, 0);
  EXPECT_EQ(tree.size(), 1u);
  EXPECT_EQ(tree.depth(), 1u);
  tree.set_pruning_strategy(decision_tree::NO_PRUNING);
  tree.build_pruned(t.get(), nullptr, true, 0);
  EXPECT_EQ(text_of(tree), " yes (3.0)\n") << "no empty line before a single leaf";
}

TEST(Tree, ZeroRowsGiveOneLeaf) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "");
  decision_tree tree("t");
  tree.build_pruned(t.get(), nullptr, true, 0);
  EXPECT_EQ(tree.size(), 1u);
  EXPECT_EQ(text_of(tree), " ? (0.0)\n");
}

TEST(Tree, ReplaceWithSonAdoptsTheSonsChildren) {
  _decision_tree root;
  root.set_node(new _decision_node(nullptr));
  for (int i = 0; i < 3; ++i) {
    auto* c = new _decision_tree();
    c->set_node(new _decision_node(root.get_node(), i + 1));
    root.push_back_child(c);
  }
  _decision_tree* b = root.get_child(1);
  const _decision_node* b_payload = b->get_node();
  for (int i = 0; i < 2; ++i) {
    auto* g = new _decision_tree();
    g->set_node(new _decision_node(b_payload, i + 1));
    b->push_back_child(g);
  }
  root.push_back_child(nullptr);
  EXPECT_EQ(root.size(), 6u);
  EXPECT_EQ(root.depth(), 3u);
  root.replace_with_son(1);
  EXPECT_EQ(root.get_node(), b_payload);
  EXPECT_EQ(root.get_no_childs(), 2u);
  EXPECT_EQ(root.get_child(0)->get_node()->get_branch(), 1u);
  EXPECT_EQ(root.get_node()->get_father(), nullptr);
}

TEST(Tree, CloneBuildsIdenticallyAndPredictsIdentically) {
  auto t = table_fixture::load(
      "o,string,discrete\nt,integer,continuous\nh,integer,continuous\nw,string,discrete\nc,string,class\n",
      table_fixture::golf_data);
  decision_tree tree("golf");
  tree.set_pruning_strategy(decision_tree::C45_PRUNING);
  tree.build_pruned(t.get(), nullptr, true, 0);
  std::unique_ptr<decision_tree> copy(tree.clone());
  EXPECT_EQ(text_of(*copy), text_of(tree));
  for (const char* row : {"sunny,80,71,true,?", "rain,70,?,?,?", "?,?,?,?,?", "overcast,1,1,false,?"}) {
    std::vector<std::string> values;
    std::stringstream s(row);
    for (std::string v; std::getline(s, v, ',');) values.push_back(v);
    EXPECT_EQ(copy->prediction(values, 1.0f), tree.prediction(values, 1.0f)) << row;
  }
}

TEST(Tree, DepthFirstGrowthWithTheSameCollapseRule) {
  auto t = table_fixture::golf();
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  options opts;
  _decision_tree depth_first;
  depth_first.set_node(new _decision_node(cases.get()));
  EXPECT_EQ(depth_first.build_depth_preprune(1.0f, t.get(), decision_tree::GAIN_RATIO, 2, &opts), 0.0f);
  _decision_tree breadth_first;
  breadth_first.build(t.get(), cases.get(), decision_tree::GAIN_RATIO, &opts, 2, 0);
  std::ostringstream a, b;
  depth_first.toTEXT(t.get(), a, 0);
  breadth_first.toTEXT(t.get(), b, 0);
  EXPECT_EQ(a.str(), b.str());

  // One error in all: the split is collapsed as soon as it is grown.
  auto flat = table_fixture::load("a,string,discrete\nc,string,class\n", "x,p\nx,p\nx,p\nx,p\nx,p\ny,p\ny,p\ny,p\ny,p\ny,n\n");
  std::unique_ptr<w_sequence> all(flat->get_wsubset_all());
  _decision_tree collapsed;
  collapsed.set_node(new _decision_node(all.get()));
  EXPECT_EQ(collapsed.build_depth_preprune(1.0f, flat.get(), decision_tree::GAIN_RATIO, 2, &opts), 1.0f);
  EXPECT_EQ(collapsed.size(), 1u);
  EXPECT_EQ(collapsed.get_node()->get_node_status(), unsigned(decision_tree::LEAF_NODE));
}

// Infinite values are values like any other: a cut next to one keeps both
// sides (a threshold of inf itself would put every case on one side and
// grow without end). Whole weights take the run path, an unknown value the
// sorting path; both must stop with the cut they measured.
TEST(Tree, CutsNextToInfiniteValuesKeepBothSides) {
  const char names[] = "x,float,continuous\nc,string,class\n";
  const struct {
    const char* data;
    const char* tree;
  } cases[] = {
      {"1,a\n2,a\n3,a\ninf,b\ninf,b\ninf,b\n", "\nx <= 3 : a (3.0)\nx > 3 : b (3.0)\n"},
      {"1,a\n2,a\n?,b\ninf,b\ninf,b\ninf,b\n", "\nx <= 2 : a (2.5/0.5)\nx > 2 : b (3.6)\n"},
      {"-inf,a\n-inf,a\n-inf,a\n2,b\n3,b\n4,b\n", "\nx <= -inf : a (3.0)\nx > -inf : b (3.0)\n"},
      {"-inf,a\n-inf,a\ninf,b\ninf,b\n", "\nx <= -inf : a (2.0)\nx > -inf : b (2.0)\n"},
  };
  for (const auto& c : cases) {
    auto t = table_fixture::load(names, c.data);
    decision_tree tree("t");
    tree.set_pruning_strategy(decision_tree::NO_PRUNING);
    tree.build_pruned(t.get(), nullptr, true, 0);
    EXPECT_EQ(text_of(tree), c.tree) << c.data;
  }
}

// Pessimistic error estimates and both pruning strategies. Expected values
// were computed by hand from the definitions in 32-bit float arithmetic.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "table_fixture.h"
#include "tree_fixture.h"

using namespace sylva::impls;

namespace {

// Two groups of an attribute a with the given class counts.
std::string two_groups(int x_p, int x_n, int y_p, int y_n) {
  std::string data;
  for (int i = 0; i < x_p; ++i) data += "x,p\n";
  for (int i = 0; i < x_n; ++i) data += "x,n\n";
  for (int i = 0; i < y_p; ++i) data += "y,p\n";
  for (int i = 0; i < y_n; ++i) data += "y,n\n";
  return data;
}

const char* const groups_names = "a,string,discrete\nc,string,class\n";

unsigned pruned_size(const std::string& data, decision_tree::PruningStrategy strategy) {
  auto t = table_fixture::load(groups_names, data);
  decision_tree tree("t");
  tree.set_pruning_strategy(strategy);
  tree.build_pruned(t.get(), nullptr, true, 0);
  return tree.size();
}

}  // namespace

TEST(Prune, ConfidenceCoefficient) {
  EXPECT_EQ(_decision_tree::CFCoefficient(0.25f), 0.47955623269081116f);
  EXPECT_NEAR(_decision_tree::CFCoefficient(0.25f), 0.4796f, 1e-4);
  EXPECT_EQ(_decision_tree::CFCoefficient(1.0f), 0.0f);
  EXPECT_EQ(_decision_tree::CFCoefficient(0.001f), 9.548099517822266f);
  EXPECT_EQ(_decision_tree::CFCoefficient(0.0f), 16.0f);
  for (float bad : {-0.1f, 1.01f}) {
    try {
      _decision_tree::CFCoefficient(bad);
      FAIL() << bad;
    } catch (const std::runtime_error& e) {
      EXPECT_STREQ(e.what(), "Confidence level required between 0.00 and 1.00");
    }
  }
}

TEST(Prune, ExtraErrorsByCase) {
  const float coeff = _decision_tree::CFCoefficient(0.25f);
  EXPECT_EQ(_decision_tree::add_errs(0.25f, coeff, 14, 0), 1.3198686838150024f) << "N * (1 - CF^(1/N))";
  EXPECT_EQ(_decision_tree::add_errs(0.25f, coeff, 10, 0.5f), 1.3675556182861328f) << "interpolated below 1";
  EXPECT_EQ(_decision_tree::add_errs(0.25f, coeff, 10, 2), 1.5477349758148193f) << "normal approximation";
  EXPECT_EQ(_decision_tree::add_errs(0.25f, coeff, 10, 9.7f), 0.2010001242160797f) << "0.67 * (N - e)";
}

TEST(Prune, MarginOfOneTenthFromBothSides) {
  // Subtree estimate + 0.1 exceeds the leaf estimate by 1.2e-5: collapsed.
  EXPECT_EQ(pruned_size(two_groups(1, 2, 12, 4), decision_tree::ERROR_BASED_PRUNING), 1u);
  EXPECT_EQ(pruned_size(two_groups(1, 2, 12, 4), decision_tree::C45_PRUNING), 1u);
  // Short of it by 0.0014: kept.
  EXPECT_EQ(pruned_size(two_groups(7, 0, 4, 5), decision_tree::ERROR_BASED_PRUNING), 3u);
  EXPECT_EQ(pruned_size(two_groups(7, 0, 4, 5), decision_tree::C45_PRUNING), 3u);
  EXPECT_EQ(pruned_size(two_groups(1, 2, 12, 4), decision_tree::NO_PRUNING), 3u);
}

TEST(Prune, LeafEstimatesReplaceErrors) {
  auto t = table_fixture::load(groups_names, two_groups(7, 0, 4, 5));
  decision_tree tree("t");
  tree.build_pruned(t.get(), nullptr, true, 0);
  std::ostringstream text;
  tree.toTEXT(text, 0);
  // 7 cases without error: 7 * (1 - 0.25^(1/7)) = 1.258; 9 cases, 4 errors: 4 + 1.512.
  EXPECT_EQ(text.str(), "\na = x: p (7.0/1.3)\na = y: n (9.0/5.5)\n");
  EXPECT_EQ(tree.get_tree()->get_child(1)->get_node()->get_error(), 5.512134552001953f);
}

TEST(Prune, CollapsePassRemovesUselessSplitsWithSmallErrors) {
  // One error in all: the split cannot lower it by more than 0.001.
  auto t = table_fixture::load(groups_names, two_groups(5, 0, 4, 1));
  decision_tree tree("t");
  tree.set_pruning_strategy(decision_tree::NO_PRUNING);
  tree.build_pruned(t.get(), nullptr, true, 0);
  EXPECT_EQ(tree.size(), 1u);
  // With eight errors the pass stops at the bound of 1.0 and keeps the split.
  auto big = table_fixture::load(groups_names, two_groups(6, 4, 6, 4));
  decision_tree kept("t");
  kept.set_pruning_strategy(decision_tree::NO_PRUNING);
  kept.build_pruned(big.get(), nullptr, true, 0);
  EXPECT_EQ(kept.size(), 3u);
  EXPECT_EQ(kept.get_tree()->get_node()->get_error(), 4.0f) << "the partial sum of the first child";
}

TEST(Prune, FullStrategyRaisesTheLargestBranch) {
  // a splits off two cases; within the big branch b classifies perfectly,
  // and it does so on all cases as well.
  std::string data;
  for (int i = 0; i < 9; ++i) data += "a1,u,p\na1,v,n\n";
  data += "a2,u,p\na2,v,n\n";
  auto t = table_fixture::load("a,string,discrete\nb,string,discrete\nc,string,class\n", data);
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  _decision_tree root;
  root.set_node(new _decision_node(cases.get()));
  root.get_node()->activate(t.get());
  tree_fixture::force_split(root.get_node(), t.get(), 0);
  _decision_tree* big = tree_fixture::add_child(&root, t.get(), 1);
  _decision_tree* small = tree_fixture::add_child(&root, t.get(), 2);
  tree_fixture::force_split(big->get_node(), t.get(), 1);
  for (unsigned b = 1; b <= 2; ++b) {
    _decision_tree* leaf = tree_fixture::add_child(big, t.get(), b);
    leaf->get_node()->set_as_leaf();
    leaf->get_node()->disactivate();
  }
  big->get_node()->disactivate();
  small->get_node()->set_as_leaf();
  small->get_node()->disactivate();
  root.get_node()->disactivate();
  ASSERT_EQ(root.size(), 5u);

  root.prune_c45(t.get(), 0.25f);
  ASSERT_EQ(root.size(), 3u);
  EXPECT_EQ(root.get_node()->get_split_attribute_index(), 1u);
  EXPECT_EQ(root.get_node()->get_father(), nullptr);
  std::ostringstream text;
  root.toTEXT(t.get(), text, 0);
  // The raised branch is pruned again on all twenty cases.
  EXPECT_EQ(text.str(), "\nb = u: p (10.0/1.3)\nb = v: n (10.0/1.3)");
}

TEST(Prune, BranchWithoutKnownCasesAddsNothing) {
  // Value z of a occurs only in a row left out of training: its branch has
  // no cases and a known fraction of 0.
  auto t = table_fixture::load(groups_names, two_groups(6, 0, 0, 6) + "z,p\n");
  std::unique_ptr<w_sequence> cases(t->get_wsubset_first_n(12));
  for (auto strategy : {decision_tree::ERROR_BASED_PRUNING, decision_tree::C45_PRUNING}) {
    decision_tree tree("t");
    tree.set_pruning_strategy(strategy);
    tree.build_pruned(t.get(), cases.get(), true, 0);
    ASSERT_EQ(tree.size(), 4u);
    const _decision_tree* empty = tree.get_tree()->get_child(2);
    EXPECT_EQ(empty->get_node()->get_known_fract_over_father(), 0.0f);
    EXPECT_EQ(empty->get_node()->get_error(), 0.0f) << "left untouched";
  }
}

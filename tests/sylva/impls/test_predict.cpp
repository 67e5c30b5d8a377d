#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "table_fixture.h"

using testing_support::error_of;

using namespace sylva::impls;

namespace {



const char* const groups_names = "a,string,discrete\nc,string,class\n";

// a = x: 4 p and 1 n; a = y: 3 n. Grown without pruning.
std::unique_ptr<decision_tree> two_leaves(std::unique_ptr<table>& t) {
  t = table_fixture::load(groups_names, "x,p\nx,p\nx,p\nx,p\nx,n\ny,n\ny,n\ny,n\n");
  auto tree = std::make_unique<decision_tree>("t");
  tree->set_pruning_strategy(decision_tree::NO_PRUNING);
  tree->build_pruned(t.get(), nullptr, true, 0);
  return tree;
}

}  // namespace

TEST(Predict, UnknownValueMixesTheLeaves) {
  std::unique_ptr<table> t;
  auto tree = two_leaves(t);
  ASSERT_EQ(tree->size(), 3u);
  // 5/8 of the weight reaches x (p 4/5, n 1/5), 3/8 reaches y (n): p 0.5 and
  // n 0.5, and the tie goes to the lower class code, n.
  EXPECT_EQ(tree->prediction({"?", "?"}, 1.0f), std::make_pair(std::string("n"), 0.5f));
  EXPECT_EQ(tree->prediction({"w", "?"}, 1.0f), std::make_pair(std::string("n"), 0.5f)) << "an unseen value is unknown";
  EXPECT_EQ(tree->prediction({"x", "?"}, 2.0f), std::make_pair(std::string("p"), 1.6f));
  EXPECT_EQ(tree->predict({"y", "?"}, 1.0f), std::make_pair(2u - 1u, 1.0f));
}

TEST(Predict, WeightlessLeafGivesAllWeightToItsClass) {
  auto t = table_fixture::load(groups_names, "x,p\nx,p\nx,p\ny,n\ny,n\nz,n\n");
  std::unique_ptr<w_sequence> cases(t->get_wsubset_first_n(5));
  decision_tree tree("t");
  tree.set_pruning_strategy(decision_tree::NO_PRUNING);
  tree.build_pruned(t.get(), cases.get(), true, 0);
  EXPECT_EQ(tree.prediction({"z", "?"}, 3.0f), std::make_pair(std::string("p"), 3.0f));
}

TEST(Predict, ContinuousThresholdComparesValues) {
  auto t = table_fixture::golf();
  decision_tree tree("golf");
  tree.build_pruned(t.get(), nullptr, true, 0);
  EXPECT_EQ(tree.prediction({"sunny", "1", "75", "true", "?"}, 1.0f).first, "Play");
  EXPECT_EQ(tree.prediction({"sunny", "1", "76", "true", "?"}, 1.0f).first, "Don't Play");
  // Values are compared by the column's data type: no integer reads 75.5.
  EXPECT_EQ(error_of([&] { tree.prediction({"sunny", "1", "75.5", "true", "?"}, 1.0f); }), "75.5: _not an int");
}

TEST(Predict, ConfusionMatrixText) {
  conf_matrix m({{0, 0, 0}, {0, 3, 1}, {0, 0.5f, 2}}, {"?", "a", "b"});
  std::ostringstream os;
  m.toTEXT(os, 0);
  EXPECT_EQ(os.str(), "?\ta\tb\tactual/predicted\n0\t0\t0\t?\n0\t3\t1\ta\n0\t0.5\t2\tb\n");
  EXPECT_EQ(m.cases(), 6.5f);
  EXPECT_EQ(m.mis_perc(), 1.5f / 6.5f);
  EXPECT_EQ(m.get_element(2, 1), 1.0f) << "row 1, column 2";
  conf_matrix diagonal({{0, 0}, {0, 4}}, {"?", "a"});
  EXPECT_EQ(diagonal.mis_perc(), 0.0f);
  conf_matrix empty({}, {});
  EXPECT_TRUE(std::isnan(empty.mis_perc()));
  std::ostringstream none;
  empty.toTEXT(none, 0);
  EXPECT_EQ(none.str(), "actual/predicted\n");
}

TEST(Predict, TestRowsFromAStream) {
  std::unique_ptr<table> t;
  auto tree = two_leaves(t);
  testing_support::scratch_dir d;
  // The class "q" was never seen in training: it counts as the unknown class.
  auto* s = tarn::inpout::stream::FROM_FILE(d.write("t.test", "x,p\ny,p\ny,q\n?,n\n"), ',');
  std::unique_ptr<conf_matrix> m(tree->predict(s, true));
  EXPECT_EQ(m->get_element(2, 2), 1.0f) << "x,p right";
  EXPECT_EQ(m->get_element(2, 1), 1.0f) << "y,p predicted n";
  EXPECT_EQ(m->get_element(0, 1), 1.0f) << "y,q predicted n, actual unknown";
  EXPECT_EQ(m->get_element(1, 1), 1.0f) << "?,n predicted n";
  EXPECT_EQ(m->cases(), 4.0f);

  auto* bad = tarn::inpout::stream::FROM_FILE(d.write("b.test", "x,p\ny\n"), ',');
  EXPECT_EQ(error_of([&] { delete tree->predict(bad, true); }), "bad row format (row 2): y");
  EXPECT_EQ(error_of([&] { tree->predict(static_cast<tarn::inpout::stream*>(nullptr), true); }),
            "no tarn::inpout::stream");
  EXPECT_EQ(error_of([&] { tree->predict(static_cast<const table*>(nullptr), nullptr); }), "no data provided");
}

TEST(Predict, HoldoutRowsOfATable) {
  auto t = table_fixture::golf();
  std::unique_ptr<w_sequence> first(t->get_wsubset_first_n(10));
  decision_tree tree("golf");
  tree.build_pruned(t.get(), first.get(), true, 0);
  std::unique_ptr<w_sequence> rest(t->get_wsubset_difference(first.get()));
  std::unique_ptr<conf_matrix> m(tree.predict(t.get(), rest.get()));
  EXPECT_EQ(m->cases(), 4.0f);
  EXPECT_EQ(tree.get_prediction()->cases(), 10.0f);
}

TEST(Predict, ScoringLines) {
  std::unique_ptr<table> t;
  auto tree = two_leaves(t);
  testing_support::scratch_dir d;
  auto* s = tarn::inpout::stream::FROM_FILE(d.write("s", "x,?\n?,?,id-7\ny,p,id-8,more\n"), ',');
  std::ostringstream out;
  tree->evaluate(s, out, ';', true);
  EXPECT_EQ(out.str(), "p;0.8\nid-7;n;0.5\nid-8;n;1\n");
  auto* bad = tarn::inpout::stream::FROM_FILE(d.write("b", "x,?\nx\n"), ',');
  std::ostringstream partial;
  EXPECT_EQ(error_of([&] { tree->evaluate(bad, partial, ',', true); }), "bad row format (row 2): x");
  EXPECT_EQ(partial.str(), "p,0.8\n") << "lines before the failure stay";
}

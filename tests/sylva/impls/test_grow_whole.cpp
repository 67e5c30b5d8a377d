// Whole-weight growth against growth by sorting, on random tables made to
// stress it: many ties, one value per row, a single distinct value, every
// column width, unit and whole weights, several threads. The trees must be
// the same node for node, float for float.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <sstream>

#include "sylva/impls/grow_whole.h"
#include "table_fixture.h"

using namespace sylva::impls;

namespace {

struct random_table {
  std::string names, data;
};

// Columns: a two-valued and a many-valued discrete one, integers with many
// ties, reals with about one value per row, a constant, and optionally a
// weights column; the class has 2 to 4 values.
// With `ties`, no attribute has about one value per row: the order of cases
// within values then lasts through every sort.
random_table make_table(std::mt19937& rng, unsigned rows, bool weights, unsigned classes, bool ties = false) {
  random_table t;
  t.names =
      "flag,string,discrete\ncolour,string,discrete\nage,integer,continuous\nsize,float,continuous\n"
      "same,integer,continuous\nwide,uinteger,continuous\n";
  if (weights) t.names += "w,float,weights\n";
  t.names += "class,string,class\n";
  std::ostringstream d;
  for (unsigned r = 0; r < rows; ++r) {
    const int age = static_cast<int>(rng() % 30);
    const double size = static_cast<double>(rng() % (ties ? 300 : 100000)) / 7.0;
    const unsigned wide = rng() % (ties ? 40 : 1000000);  // beyond two-byte codes when rows are many
    // The class depends on the attributes, with noise, so trees grow deep.
    unsigned klass = (age > 15) + (size > 7000.0) + (wide % 3 == 0);
    if (rng() % 10 == 0) klass = rng() % classes;
    d << (rng() % 2 ? "yes" : "no") << ",c" << rng() % (rows > 10000 ? 300 : 12) << "," << age << "," << size << ",7," << wide;
    if (weights) d << "," << rng() % 4;
    d << ",k" << klass % classes << "\n";
  }
  t.data = d.str();
  return t;
}

void expect_same_node(const _decision_node& a, const _decision_node& b, const std::string& where) {
  EXPECT_EQ(a.get_node_status(), b.get_node_status()) << where;
  EXPECT_EQ(a.get_branch(), b.get_branch()) << where;
  EXPECT_EQ(a.get_cases_count(), b.get_cases_count()) << where;
  EXPECT_EQ(std::memcmp(a.get_class_distribution().data(), b.get_class_distribution().data(),
                        a.get_class_distribution().size() * sizeof(float)),
            0)
      << where;
  EXPECT_EQ(a.get_class_distribution().size(), b.get_class_distribution().size()) << where;
  EXPECT_EQ(a.get_cases_weight(), b.get_cases_weight()) << where;
  EXPECT_EQ(a.get_known_fract_over_father(), b.get_known_fract_over_father()) << where;
  EXPECT_EQ(a.get_majority(), b.get_majority()) << where;
  EXPECT_EQ(a.get_error(), b.get_error()) << where;
  EXPECT_EQ(a.get_leaf(), b.get_leaf()) << where;
  EXPECT_EQ(a.get_split_status(), b.get_split_status()) << where;
  EXPECT_EQ(a.get_threshold().value, b.get_threshold().value) << where;
  EXPECT_EQ(a.get_no_of_splits(), b.get_no_of_splits()) << where;
}

void expect_same_tree(const _decision_tree& a, const _decision_tree& b, const std::string& where = "root") {
  expect_same_node(*a.get_node(), *b.get_node(), where);
  ASSERT_EQ(a.get_no_childs(), b.get_no_childs()) << where;
  for (unsigned i = 0; i < a.get_no_childs(); ++i)
    expect_same_tree(*a.get_child(i), *b.get_child(i), where + "/" + std::to_string(i + 1));
}

// A tree with the case list its root was grown on (the root keeps it).
struct grown {
  std::unique_ptr<w_sequence> cases;
  std::unique_ptr<_decision_tree> tree = std::make_unique<_decision_tree>();
  options opts;
  explicit grown(const w_sequence& c) : cases(std::make_unique<w_sequence>(c)) {
    tree->set_node(new _decision_node(cases.get()));
  }
};

// Growth by sorting, on one thread (threads 0) or as the parallel build.
grown by_sorting(const table& t, const w_sequence& cases, float min_obj, int threads) {
  grown g(cases);
  if (threads < 1)
    g.tree->build_breadth(&t, decision_tree_types::GAIN_RATIO, min_obj, &g.opts);
  else
    g.tree->build_ff(&t, decision_tree_types::GAIN_RATIO, min_obj, &g.opts, threads);
  return g;
}

grown by_runs(const table& t, const w_sequence& cases, float min_obj, int threads, unsigned replay_from = ~0u) {
  grown g(cases);
  growth_settings s{decision_tree_types::GAIN_RATIO, min_obj, &g.opts, threads};
  s.replay_from_depth = replay_from;
  grow_whole_weights(g.tree.get(), &t, g.cases.get(), s);
  return g;
}

}  // namespace

// Zero weights leave some scans undecided (a cut inside a one-class stretch
// may then win): those nodes are measured as sorting growth measures them,
// in the order it would have given their cases.
TEST(GrowWhole, SameTreesAsSortingOnRandomTables) {
  std::mt19937 rng(3);
  for (int trial = 0; trial < 24; ++trial) {
    const bool weights = trial % 3 == 2;
    const unsigned rows = trial < 20 ? 40 + rng() % 400 : 70000;
    const random_table rt = make_table(rng, rows, weights, 2 + trial % 3);
    auto t = table_fixture::load(rt.names, rt.data);
    std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
    ASSERT_TRUE(whole_weight_build(t.get(), cases.get())) << trial;
    const float min_obj = static_cast<float>(2 + trial % 4);
    for (int threads : {0, 2, 3}) {
      const grown expected = by_sorting(*t, *cases, min_obj, threads);
      const grown g = by_runs(*t, *cases, min_obj, threads);
      expect_same_tree(*expected.tree, *g.tree, "trial " + std::to_string(trial) + " root");
    }
  }
}

// Nodes measured on their replayed case order from any depth down give the
// trees of sorting growth: the order is made again through every sort and
// partition above them. Rows come shuffled, and zero weights make the order
// of cases change the trees.
TEST(GrowWhole, NodesMeasuredOnTheirSortingOrderFromAnyDepth) {
  std::mt19937 rng(11);
  for (int trial = 0; trial < 10; ++trial) {
    const random_table rt = make_table(rng, 1000 + rng() % 3000, true, 2 + trial % 3, trial % 3 == 1);
    auto t = table_fixture::load(rt.names, rt.data);
    std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
    std::shuffle(cases->begin(), cases->end(), rng);
    for (int threads : {0, 2}) {
      const grown expected = by_sorting(*t, *cases, 2.0f, threads);
      for (unsigned depth : {0u, 2u, 5u}) {
        const grown g = by_runs(*t, *cases, 2.0f, threads, depth);
        expect_same_tree(*expected.tree, *g.tree,
                         "trial " + std::to_string(trial) + " threads " + std::to_string(threads) + " depth " +
                             std::to_string(depth) + " root");
      }
    }
  }
}

TEST(GrowWhole, BuildsThatMayGrowFractionalWeightsAreRefused) {
  auto t = table_fixture::load("a,integer,continuous\nc,string,class\n", "1,x\n?,y\n3,x\n");
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  EXPECT_FALSE(whole_weight_build(t.get(), cases.get())) << "an unknown value splits a case into fractions";

  auto u = table_fixture::load("a,integer,continuous\nw,float,weights\nc,string,class\n", "1,1.5,x\n2,1,y\n");
  cases.reset(u->get_wsubset_all());
  EXPECT_FALSE(whole_weight_build(u.get(), cases.get())) << "a fractional weight";
  EXPECT_FALSE(whole_weight_build(u.get(), nullptr)) << "a fractional weight in the table's own weights";

  auto v = table_fixture::load("a,integer,continuous\nc,string,class\n", "1,x\n2,y\n");
  w_sequence repeated{{0, 1.0f}, {1, 1.0f}, {0, 1.0f}};
  EXPECT_FALSE(whole_weight_build(v.get(), &repeated)) << "a row drawn twice";
  w_sequence big{{0, 16777215.0f}, {1, 2.0f}};
  EXPECT_FALSE(whole_weight_build(v.get(), &big)) << "whole weights summing beyond 2^24";
  w_sequence unit{{1, 1.0f}, {0, 1.0f}};
  EXPECT_TRUE(whole_weight_build(v.get(), &unit)) << "rows in any order, each once";
}

TEST(GrowWhole, TreeFrontTakesEitherPathToTheSameTree) {
  std::mt19937 rng(5);
  const random_table rt = make_table(rng, 3000, false, 3);
  auto t = table_fixture::load(rt.names, rt.data);
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  decision_tree front("t");
  front.build_unpruned(t.get(), cases.get(), false);
  const grown expected = by_sorting(*t, *cases, 2.0f, 0);
  expected.tree->preprune(1.0f);
  expect_same_tree(*expected.tree, *front.get_tree());
}

// Without a case list the growth reads every row and its weight from the
// table: the same tree as from the list the table hands out.
TEST(GrowWhole, AllRowsWithoutACaseList) {
  std::mt19937 rng(9);
  const random_table rt = make_table(rng, 2000, true, 3);
  auto t = table_fixture::load(rt.names, rt.data);
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  ASSERT_TRUE(whole_weight_build(t.get(), nullptr));
  options opts;
  _decision_tree from_list, from_table;
  ASSERT_TRUE(from_list.grow_whole(t.get(), cases.get(), decision_tree_types::GAIN_RATIO, &opts, 2.0f, 0));
  ASSERT_TRUE(from_table.grow_whole(t.get(), nullptr, decision_tree_types::GAIN_RATIO, &opts, 2.0f, 2));
  expect_same_tree(from_list, from_table);
}

namespace {

void leaves_in_order(_decision_tree* t, std::vector<_decision_tree*>& out) {
  if (t->get_no_childs() == 0) out.push_back(t);
  for (unsigned i = 0; i < t->get_no_childs(); ++i) leaves_in_order(t->get_child(i), out);
}

}  // namespace

// Pruning each subtree as soon as its growth ends, while nodes elsewhere are
// still open, gives the tree that the collapse pass and the error-based
// pruning give over the whole grown tree, node for node and error for
// error. Growth is played back leaf by leaf, depth first: every leaf starts
// as an open node and takes its grown payload back in turn.
TEST(GrowWhole, PruningSubtreesAsTheyFinishGivesTheEndsTree) {
  std::mt19937 rng(17);
  for (unsigned round = 0; round < 4; ++round) {
    const random_table rt = make_table(rng, 1500 + 1000 * round, round % 2 == 1, 2 + round % 3);
    auto t = table_fixture::load(rt.names, rt.data);
    std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
    const grown whole = by_sorting(*t, *cases, 2.0f, 0);
    std::unique_ptr<_decision_tree> early(whole.tree->clone());
    const float cf = 0.25f, coeff = _decision_tree::CFCoefficient(cf);
    whole.tree->preprune(1.0f);
    whole.tree->prune_dt(t.get(), cf, coeff);

    std::vector<_decision_tree*> leaves;
    leaves_in_order(early.get(), leaves);
    ASSERT_GT(leaves.size(), 20u) << "round " << round;
    std::vector<_decision_node*> grown_payload(leaves.size());
    for (size_t i = 0; i < leaves.size(); ++i) {
      grown_payload[i] = leaves[i]->get_node();
      leaves[i]->clear_node();
      leaves[i]->set_node(new _decision_node(grown_payload[i]->get_father(), grown_payload[i]->get_branch()));
    }
    _decision_tree::settled_subtrees settled;
    size_t settled_most = 0;
    for (size_t i = 0; i < leaves.size(); ++i) {
      leaves[i]->set_node(grown_payload[i]);
      EXPECT_EQ(early->prune_finished(1.0f, cf, coeff, settled), i + 1 == leaves.size());
      settled_most = std::max(settled_most, settled.size());
    }
    EXPECT_GT(settled_most, 1u) << "round " << round << ": nothing was pruned early";
    early->preprune(1.0f, &settled);
    early->prune_dt(t.get(), cf, coeff);
    expect_same_tree(*whole.tree, *early, "round " + std::to_string(round));
  }
}

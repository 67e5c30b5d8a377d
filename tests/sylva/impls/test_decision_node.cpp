#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "table_fixture.h"
#include "tree_fixture.h"

using testing_support::error_of;

using namespace sylva::impls;

namespace {


const char* const groups_names = "a,string,discrete\nc,string,class\n";

}  // namespace

TEST(DecisionNode, ContractViolations) {
  auto t = table_fixture::golf();
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  _decision_node root(cases.get());
  options opts;
  EXPECT_EQ(error_of([&] { root.split(t.get(), 1, 2, &opts); }), "[_decision_node::split] called on an unactivated node.");
  EXPECT_EQ(error_of([&] { root.split2(t.get(), 1, 2, &opts); }), "[_decision_node::split] called on an unactivated node.");
  EXPECT_EQ(error_of([&] { root.activate(nullptr); }), "[_decision_node::activate()]: called with a NULL table.");
  _decision_node child(&root, 1);
  EXPECT_EQ(error_of([&] { child.activate(t.get()); }),
            "[_decision_node::activated()]: father node status not a decision_tree::SPLIT_NODE.");
  EXPECT_EQ(error_of([&] { root.activate_substitute_father(t.get()); }),
            "[_decision_node::activate_substitute_father()]: father node is NULL.");
  EXPECT_EQ(error_of([&] { child.activate_substitute_father(t.get()); }),
            "[_decision_node::activate_substitute_father()]: father node status not activated.");
  EXPECT_EQ(error_of([&] { root.set_father(&child); }),
            "[_decision_node::activate_substitute_father()]: father node is NULL.");
  root.activate(t.get());
  EXPECT_EQ(error_of([&] { root.split(t.get(), 2, 2, &opts); }),
            "[_decision_node::split] called on an unsupported split type.");
  EXPECT_EQ(root.split(t.get(), decision_tree::GAIN_RATIO, 2, &opts), decision_tree::SPLIT_NODE);
  root.disactivate();
  EXPECT_EQ(error_of([&] { child.activate(t.get()); }),
            "[_decision_node::activated()]: father node status not activated.");
  root.activate(t.get());
  child.activate(t.get());
  EXPECT_EQ(error_of([&] { child.activate_substitute_father(t.get()); }),
            "[_decision_node::activate_substitute_father()]: node is activated.");
  EXPECT_EQ(error_of([&] { child.set_father(&root); }),
            "[_decision_node::activate_substitute_father()]: node is activated.");
}

TEST(DecisionNode, StatisticsAndTheLeafPrelude) {
  auto t = table_fixture::load(groups_names, "x,p\nx,n\nx,p\ny,n\n");
  w_sequence cases{{0, 1.5f}, {1, 2.0f}, {2, 0.5f}, {3, 2.0f}};
  _decision_node n(&cases);
  n.activate(t.get());
  EXPECT_EQ(n.get_cases_count(), 4u);
  EXPECT_EQ(n.get_cases_weight(), 6.0f);
  EXPECT_EQ(n.get_majority(), 1u) << "n (4.0) over p (2.0)";
  options opts;
  EXPECT_EQ(n.split(t.get(), decision_tree::GAIN_RATIO, 2, &opts), decision_tree::SPLIT_NODE);

  // Weight 3.5 with min_obj 2 stays a leaf without measuring.
  w_sequence small{{0, 1.0f}, {1, 2.0f}, {3, 0.5f}};
  _decision_node s(&small);
  s.activate(t.get());
  EXPECT_EQ(s.split(t.get(), decision_tree::GAIN_RATIO, 2, &opts), decision_tree::LEAF_NODE);
  EXPECT_EQ(s.get_leaf(), 1u);
  EXPECT_EQ(s.get_error(), 1.0f);
  EXPECT_EQ(s.get_threshold().branches, 0u);

  // A pure node is a leaf.
  w_sequence pure{{1, 3.0f}, {3, 3.0f}};
  _decision_node p(&pure);
  p.activate(t.get());
  EXPECT_TRUE(p.split_pre(t.get(), decision_tree::GAIN_RATIO, 1));
  EXPECT_EQ(p.get_error(), 0.0f);

  // Equal class weights: the lower class index is the majority.
  w_sequence even{{0, 1.0f}, {1, 1.0f}};
  _decision_node e(&even);
  e.activate(t.get());
  EXPECT_EQ(e.get_majority(), 1u);
}

TEST(DecisionNode, WeightlessChildTakesItsFathersClass) {
  // Value z is in the domain but not among the training rows.
  auto t = table_fixture::load(groups_names, "x,p\nx,p\nx,p\ny,n\ny,n\nz,n\n");
  std::unique_ptr<w_sequence> cases(t->get_wsubset_first_n(5));
  decision_tree tree("t");
  tree.set_pruning_strategy(decision_tree::NO_PRUNING);
  tree.build_pruned(t.get(), cases.get(), true, 0);
  ASSERT_EQ(tree.size(), 4u);
  const _decision_node* z = tree.get_tree()->get_child(2)->get_node();
  EXPECT_EQ(z->get_cases_weight(), 0.0f);
  EXPECT_EQ(z->get_leaf(), 2u) << "the father's majority p";
  std::ostringstream text;
  tree.toTEXT(text, 0);
  EXPECT_EQ(text.str(), "\na = x: p (3.0)\na = y: n (2.0)\na = z: p (0.0)\n");
}

TEST(DecisionNode, AttributeChoiceRules) {
  // Two copies of one attribute: equal gain ratios, the lower index wins.
  auto t = table_fixture::load("a,string,discrete\nb,string,discrete\nc,string,class\n",
                               "x,x,p\nx,x,p\ny,y,n\ny,y,n\nx,x,n\n");
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  _decision_node n(cases.get());
  n.activate(t.get());
  options opts;
  ASSERT_EQ(n.split2(t.get(), decision_tree::GAIN_RATIO, 1, &opts), decision_tree::SPLIT_NODE);
  EXPECT_EQ(n.get_split_attribute_index(), 0u);
  EXPECT_EQ(n.get_split_descs()[0].gain, n.get_split_descs()[1].gain);
  n.activate(t.get());
  ASSERT_EQ(n.split(t.get(), decision_tree::GAIN, 1, &opts), decision_tree::SPLIT_NODE);
  EXPECT_EQ(n.get_split_attribute_index(), 0u);
  EXPECT_EQ(n.get_split_status(), unsigned(decision_tree::GAIN));

  // No usable attribute: a leaf.
  auto flat = table_fixture::load(groups_names, "x,p\nx,n\nx,p\nx,n\n");
  std::unique_ptr<w_sequence> all(flat->get_wsubset_all());
  _decision_node f(all.get());
  f.activate(flat.get());
  EXPECT_EQ(f.split2(flat.get(), decision_tree::GAIN_RATIO, 1, &opts), decision_tree::LEAF_NODE);
}

TEST(DecisionNode, ActivationCarvesTheFathersCases) {
  auto t = table_fixture::golf();
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  _decision_tree root;
  root.set_node(new _decision_node(cases.get()));
  root.get_node()->activate(t.get());
  tree_fixture::force_split(root.get_node(), t.get(), 0);
  ASSERT_EQ(root.get_node()->get_no_of_splits(), 3u);
  for (unsigned b = 1; b <= 3; ++b) {
    _decision_tree* c = tree_fixture::add_child(&root, t.get(), b);
    EXPECT_EQ(c->get_node()->get_branch(), b);
    EXPECT_EQ((*c->get_node()->get_ranges())[0], index_range(b, b + 1));
  }
  EXPECT_EQ(root.get_child(0)->get_node()->get_cases_weight(), 4.0f) << "overcast";
  EXPECT_EQ(root.get_child(2)->get_node()->get_cases_weight(), 5.0f) << "sunny";
  EXPECT_EQ(root.get_child(2)->get_node()->get_known_fract_over_father(), 5.0f / 14.0f);
  // A substitute takes its father's branch and all of its cases.
  auto* copy = new _decision_node(root.get_node(), 3);
  copy->clone(root.get_child(2)->get_node());
  copy->disactivate();
  copy->activate_substitute_father(t.get());
  EXPECT_EQ(copy->get_cases_weight(), 14.0f);
  EXPECT_EQ(copy->get_branch(), 0u);
  delete copy;
}

TEST(DecisionNode, DiagnosticDumps) {
  auto t = table_fixture::golf();
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  _decision_node root(cases.get());
  std::ostringstream none;
  root.print_att_gain(t.get(), none);
  EXPECT_EQ(none.str(), "") << "nothing for an inactive node";
  root.activate(t.get());
  std::ostringstream dist;
  root.print_attribute_distribution(t.get(), 0, dist);
  // Percentages of the node's weight: rain holds 2 of the 5 Don't Play and
  // 3 of the 9 Play cases.
  EXPECT_EQ(dist.str(),
            "Attribute: outlook\n"
            "  [Att\\Cl] Don't Play   Play \n"
            "         ?  0.000  0.000 \n"
            "  overcast  0.000 28.571 \n"
            "      rain 14.286 21.429 \n"
            "     sunny 21.429 14.286 \n");
  options opts;
  root.split2(t.get(), decision_tree::GAIN_RATIO, 2, &opts);
  std::ostringstream gain;
  root.print_att_gain(t.get(), gain);
  const std::string g = gain.str();
  EXPECT_EQ(g.substr(0, g.find('\n') + 1), "14 items, total weight 14.000\n");
  EXPECT_NE(g.find("\n[Attribute]     [gain]    [split]    [first]   [second] [OneOnAlpha]    [thres]\n\n"),
            std::string::npos);
  EXPECT_NE(g.find("\n   outlook      0.247      1.577          1          3          7 \n"), std::string::npos) << g;
  EXPECT_EQ(g.substr(g.rfind("split node")), "split node, best att:         outlook\n");
}

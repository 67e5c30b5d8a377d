#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "sylva/impls/identity.h"
#include "table_fixture.h"
#include "tree_fixture.h"

using namespace sylva::impls;

TEST(DataDictionary, ColumnsAndRoles) {
  auto t = table_fixture::load("outlook,string,discrete\ntemperature,integer,continuous\nweight,float,weights\n"
                               "a<b,string,ignore\nplay,string,class\n",
                               "sunny,80,1,x,yes\n");
  std::ostringstream dd, ms;
  t->toXML_data_dictionary(dd);
  t->toXML_mining_schema(ms);
  EXPECT_EQ(dd.str(),
            "<DataDictionary numberOfFields=\"5\">\n"
            "<DataField name=\"outlook\" optype=\"categorical\" />\n"
            "<DataField name=\"temperature\" optype=\"continuous\" />\n"
            "<Extender name=\"weight\" value=\"weights\" />\n"
            "<Extender name=\"a&lt;b\" value=\"ignore\" />\n"
            "<DataField name=\"play\" optype=\"categorical\" />\n"
            "</DataDictionary>\n");
  EXPECT_EQ(ms.str(),
            "<MiningSchema>\n"
            "<MiningField name=\"outlook\" usageType=\"active\" />\n"
            "<MiningField name=\"temperature\" usageType=\"active\" />\n"
            "<MiningField name=\"weight\" usageType=\"active\" />\n"
            "<MiningField name=\"a&lt;b\" usageType=\"supplementary\" />\n"
            "<MiningField name=\"play\" usageType=\"predicted\" />\n"
            "</MiningSchema>\n");
  table empty("e", false);
  std::ostringstream none;
  empty.toXML_data_dictionary(none);
  EXPECT_EQ(none.str(), "<DataDictionary numberOfFields=\"0\">\n</DataDictionary>\n");
}

TEST(TreeXml, OneLeafDocument) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,R&D\ny,R&D\n");
  decision_tree tree("m<1>");
  tree.build_pruned(t.get(), nullptr, true, 0);
  std::ostringstream os;
  tree.toXML(os, nullptr);
  EXPECT_EQ(os.str(), std::string("<PMML version=\"2.0\">\n<Header copyright=\"") + identity::copyright +
                          "\">\n<Application name=\"Sylva\" version=\"1.2.5\" />\n</Header>\n"
                          "<DataDictionary numberOfFields=\"2\">\n"
                          "<DataField name=\"a\" optype=\"categorical\" />\n"
                          "<DataField name=\"c\" optype=\"categorical\" />\n"
                          "</DataDictionary>\n"
                          "<TreeModel modelName=\"m&lt;1&gt;\" functionName=\"classification\" algorithmName=\"Sylva 1.2.5\">\n"
                          "<MiningSchema>\n"
                          "<MiningField name=\"a\" usageType=\"active\" />\n"
                          "<MiningField name=\"c\" usageType=\"predicted\" />\n"
                          "</MiningSchema>\n"
                          "<Node score=\"R&amp;D\" recordCount=\"2\">\n"
                          "<True />\n"
                          "<ScoreDistribution value=\"R&amp;D\" recordCount =\"2.000\" />\n"
                          "</Node>\n"
                          "<Extension>\n"
                          "<X-ConfusionMatrixTraining x-incorrectlyInst = \"0.000\" x-incorrectlyInstPerc = \"0.000%\" "
                          "x-totalInst = \"2.000\">\n"
                          "<Array n=\"1\" type=\"string\">\n\"R&amp;D\"\n</Array>"
                          "<Matrix><Array n=\"1\" type=\"real\">\n2.000\n</Array></Matrix>"
                          "</X-ConfusionMatrixTraining>\n"
                          "</Extension>\n</TreeModel>\n</PMML>\n");
}

TEST(TreeXml, ConfusionMatrixElement) {
  conf_matrix m({{0, 0, 0}, {0, 3, 1}, {0, 2, 4}}, {"?", "a", "b&c"});
  std::ostringstream os;
  m.toXML(os, "Test");
  // Entries [c][r]: each array lists the predictions for one actual class.
  EXPECT_EQ(os.str(),
            "<X-ConfusionMatrixTest x-incorrectlyInst = \"3\" x-incorrectlyInstPerc = \"30%\" x-totalInst = \"10\">\n"
            "<Array n=\"2\" type=\"string\">\n\"a\" \"b&amp;c\"\n</Array>"
            "<Matrix><Array n=\"2\" type=\"real\">\n3 2\n</Array><Array n=\"2\" type=\"real\">\n1 4\n</Array></Matrix>"
            "</X-ConfusionMatrixTest>\n");
}

TEST(TreeXml, ContinuousPredicatesAndTestMatrix) {
  auto t = table_fixture::golf();
  decision_tree tree("golf");
  tree.build_pruned(t.get(), nullptr, true, 0);
  std::unique_ptr<conf_matrix> test(tree.predict(t.get(), nullptr));
  std::ostringstream os;
  tree.toXML(os, test.get());
  const std::string x = os.str();
  EXPECT_NE(x.find("<SimplePredicate field=\"humidity\" operator=\"lessOrEqual\" value=\"75\" />\n"), std::string::npos);
  EXPECT_NE(x.find("<SimplePredicate field=\"humidity\" operator=\"greaterThan\" value=\"75\" />\n"), std::string::npos);
  EXPECT_NE(x.find("<Node score=\"\" recordCount=\"5\">\n<SimplePredicate field=\"outlook\" operator=\"equal\" "
                   "value=\"sunny\" />\n"),
            std::string::npos);
  EXPECT_NE(x.find("</X-ConfusionMatrixTraining>\n<X-ConfusionMatrixTest "), std::string::npos);
}

namespace {

// Root split on a (two values); the first child splits on b, the second is
// a leaf: identifiers n0, n1, n2, n3 and n5.
std::unique_ptr<_decision_tree> two_level(const table* t, w_sequence* cases) {
  auto root = std::make_unique<_decision_tree>();
  root->set_node(new _decision_node(cases));
  root->get_node()->activate(t);
  tree_fixture::force_split(root->get_node(), t, 0);
  _decision_tree* first = tree_fixture::add_child(root.get(), t, 1);
  _decision_tree* second = tree_fixture::add_child(root.get(), t, 2);
  tree_fixture::force_split(first->get_node(), t, 1);
  for (unsigned b = 1; b <= 2; ++b) tree_fixture::add_child(first, t, b)->get_node()->set_as_leaf();
  second->get_node()->set_as_leaf();
  return root;
}

}  // namespace

TEST(TreeDot, NumberingSkipsOneAfterEverySplitChild) {
  auto t = table_fixture::load("a,string,discrete\nb,string,discrete\nc,string,class\n",
                               "x,u,p\nx,v,n\nx,v,n\ny,u,p\ny,u,p\ny,v,p\n");
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  auto root = two_level(t.get(), cases.get());
  std::ostringstream os;
  EXPECT_EQ(root->toDOT(t.get(), os, 6, 0), 6u);
  // Covers 1/6, 2/6 and 3/6 truncate to 0.16, 0.33 and 0.5; errors are weights.
  EXPECT_EQ(os.str(),
            "n0 [ shape=box, label=\"a\\n\"]\n"
            "n0 -> n1 [label=\"x\"]\n"
            "n1 [ shape=box, label=\"b\\n\"]\n"
            "n1 -> n2 [label=\"u\"]\n"
            "n2 [ shape=ellipse, label=\"p [0.16%,0%]\"]\n"
            "n1 -> n3 [label=\"v\"]\n"
            "n3 [ shape=ellipse, label=\"n [0.33%,0%]\"]\n"
            "n0 -> n5 [label=\"y\"]\n"
            "n5 [ shape=ellipse, label=\"p [0.5%,0%]\"]\n");
}

TEST(TreeDot, OneLeafGraph) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,yes\nx,yes\nx,no\n");
  decision_tree tree("t");
  tree.set_pruning_strategy(decision_tree::NO_PRUNING);
  tree.build_pruned(t.get(), nullptr, true, 0);
  std::ostringstream os;
  tree.toDOT(os);
  EXPECT_EQ(os.str(), "digraph Sylva {\nn0 [ shape=ellipse, label=\"yes [1%,1%]\"]\n}\n");
}

TEST(TreeDot, FiguresBeyondFloatsAndIntegers) {
  // A tree grown on no rows covers 0 of 0 cases: the cover is not a number
  // and prints as nan (whatever the sign of the quotient).
  auto empty = table_fixture::load("a,string,discrete\nc,string,class\n", "");
  decision_tree none("t");
  none.build_pruned(empty.get(), nullptr, true, 0);
  std::ostringstream os;
  none.toDOT(os);
  EXPECT_EQ(os.str(), "digraph Sylva {\nn0 [ shape=ellipse, label=\"? [nan%,0%]\"]\n}\n");

  // An error of 1e38 times 100 overflows a float: the figure is kept as
  // it is rather than turned into a number of no meaning.
  auto heavy = table_fixture::load("w,float,weights\na,string,discrete\nc,string,class\n",
                                   "1e38,x,p\n1e38,y,q\n1e38,x,q\n");
  decision_tree big("t");
  big.build_pruned(heavy.get(), nullptr, true, 0);
  std::ostringstream out;
  big.toDOT(out);
  EXPECT_EQ(out.str(), "digraph Sylva {\nn0 [ shape=ellipse, label=\"q [1%,1e+38%]\"]\n}\n");
}

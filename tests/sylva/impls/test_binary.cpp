#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>

#include "sylva/impls/decision_tree.h"
#include "sylva/sylva.h"
#include "hand_bytes.h"
#include "table_fixture.h"
#include "tarn/inpout/binstream.h"
#include "tree_fixture.h"

using testing_support::error_of;

using namespace sylva::impls;
using testing_support::bytes;
using testing_support::read_file;
using testing_support::scratch_dir;
using testing_support::write_file;

namespace {

std::string table_bytes(const table* t) {
  scratch_dir d;
  {
    tarn::inpout::obinstream out(d.file("t.bin"));
    out << t;
  }
  return read_file(d.file("t.bin"));
}

std::string unzip(const std::string& path) {
  gzFile f = gzopen(path.c_str(), "rb");
  std::string s;
  char buf[4096];
  int n;
  while ((n = gzread(f, buf, sizeof buf)) > 0) s.append(buf, static_cast<size_t>(n));
  gzclose(f);
  return s;
}


}  // namespace

TEST(BinaryTable, ExactRecord) {
  auto t = table_fixture::load("c,string,class\n", "a\nb\nc\nb\n");
  bytes column;
  // The class domain admits unknowns (only weights columns refuse them);
  // none occurred. One byte per row.
  column.b(1).b(1).text("string").b(1).b(0).text("?").b(1).u(3).text("a").text("b").text("c");
  column.text("c").text("class").u(4).b(1).b(2).b(3).b(2);
  bytes expected;
  expected.b(1).text("t").u(1);
  expected.s += column.s;
  expected.u(0).u(1);
  expected.s += column.s;
  expected.u(4).u(0).b(1).u(1).u(1);
  const std::string written = table_bytes(t.get());
  ASSERT_EQ(written.size(), expected.s.size() + 8) << "then the loading time as a double";
  EXPECT_EQ(written.substr(0, expected.s.size()), expected.s);
}

TEST(BinaryTable, BitColumnsAreWords) {
  std::string data;
  for (int i = 0; i < 40; ++i) data += (i % 3 ? "no,p\n" : "yes,q\n");
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", data);
  const std::string written = table_bytes(t.get());
  // Bits: row i set when its value is "yes" (index 2).
  unsigned w0 = 0, w1 = 0;
  for (int i = 0; i < 40; ++i)
    if (i % 3 == 0) (i < 32 ? w0 : w1) |= 1u << (i % 32);
  bytes storage;
  storage.text("a").text("discrete").u(40).u(w0).u(w1);
  EXPECT_NE(written.find(storage.s), std::string::npos);
}

TEST(BinaryTable, RoundTripKeepsDomainsRowsAndPositions) {
  scratch_dir d;
  const std::string crx = testing_support::data_dir() + "/crx/crx";
  std::vector<std::unique_ptr<table>> tables;
  tables.push_back(table_fixture::golf());
  tables.push_back(table_fixture::load("w,float,weights\nx,double,discrete\nn,null,ignore\nc,string,class\n",
                                       "2.5,1e3,,a\n0.5,?,,b\n"));
  if (testing_support::data_available("crx"))
    tables.push_back(table_fixture::load(read_file(crx + ".names"), read_file(crx + ".data")));
  for (auto& t : tables) {
    sylva::table handle("unused");
    std::unique_ptr<table> copy;
    {
      tarn::inpout::obinstream out(d.file("t.bin"));
      out << static_cast<const table*>(t.get());
    }
    {
      tarn::inpout::ibinstream in(d.file("t.bin"), true);
      table* raw = nullptr;
      in >> raw;
      copy.reset(raw);
    }
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->get_no_rows(), t->get_no_rows());
    EXPECT_EQ(copy->get_class_index(), t->get_class_index());
    EXPECT_EQ(copy->get_weights_index(), t->get_weights_index());
    ASSERT_EQ(copy->get_no_attributes(), t->get_no_attributes());
    for (unsigned a = 0; a < t->get_no_attributes(); ++a) {
      const column* x = t->get_attribute(a);
      const column* y = copy->get_attribute(a);
      EXPECT_EQ(typeid(*x), typeid(*y));
      ASSERT_EQ(x->get_distinct(), y->get_distinct());
      for (unsigned v = 0; v < x->get_distinct(); ++v) EXPECT_EQ(x->get_value(v), y->get_value(v));
      for (unsigned r = 0; r < x->size(); ++r) ASSERT_EQ(x->get_row_index(r), y->get_row_index(r));
    }
    EXPECT_EQ(table_bytes(copy.get()), table_bytes(t.get()));
  }
}

TEST(BinaryModel, OneLeafRecord) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,yes\ny,yes\nx,yes\n");
  sylva::dtree unused("u");
  decision_tree tree("leafy");
  tree.set_pruning_strategy(decision_tree::NO_PRUNING);
  tree.build_pruned(t.get(), nullptr, true, 0);
  scratch_dir d;
  {
    tarn::inpout::obinstream out(d.file("m.bin"), true, 1);
    out << static_cast<unsigned char>(1) << tree;
  }
  const std::string plain = unzip(d.file("m.bin"));
  bytes head;
  head.b(1).b(1);                               // model, tree
  head.u(0).u(1).b(0).f(3).u(3);                // branch, leaf, inactive, weight, count
  head.u(2).f(0).f(3).f(1).u(1);                // distribution (? yes), known fraction, majority
  head.b(0).u(1).f(0).u(1);                     // no cases, split status, error, leaf class
  head.u(0);                                    // no children
  EXPECT_EQ(plain.substr(0, head.s.size()), head.s);
  bytes tail;
  tail.f(0.25f).f(2.0f).u(1).text("leafy").u(0);  // level, min_obj, split type, name, pruning
  EXPECT_EQ(plain.substr(plain.size() - tail.s.size()), tail.s);
}

TEST(BinaryModel, EmptyChildSlotsKeepTheirPlace) {
  auto t = table_fixture::golf();
  std::unique_ptr<w_sequence> cases(t->get_wsubset_all());
  _decision_tree root;
  root.set_node(new _decision_node(cases.get()));
  root.get_node()->activate(t.get());
  tree_fixture::force_split(root.get_node(), t.get(), 0);
  tree_fixture::add_child(&root, t.get(), 1)->get_node()->set_as_leaf();
  root.push_back_child(new _decision_tree());
  tree_fixture::add_child(&root, t.get(), 3)->get_node()->set_as_leaf();
  for (unsigned i : {0u, 2u}) root.get_child(i)->get_node()->disactivate();
  root.get_node()->disactivate();
  root.get_node()->forget_cases();
  scratch_dir d;
  {
    tarn::inpout::obinstream out(d.file("s.bin"));
    out << static_cast<const _decision_tree&>(root);
  }
  const std::string s = read_file(d.file("s.bin"));
  // The root record is followed by the slot count 3 and presence 1, the
  // first child, presence 0, presence 1, the third child.
  tarn::inpout::ibinstream in(d.file("s.bin"));
  _decision_tree back;
  back.load_bin(in, nullptr);
  ASSERT_EQ(back.get_no_childs(), 3u);
  EXPECT_NE(back.get_child(0)->get_node(), nullptr);
  EXPECT_EQ(back.get_child(1)->get_node(), nullptr);
  EXPECT_EQ(back.get_child(2)->get_node()->get_branch(), 3u);
  // A golf leaf record is 54 bytes (three class slots), 58 with its child
  // count. The root ends in the slot count 3; then presence 1 and the first
  // child, presence 0 for the empty slot, presence 1 and the third child.
  const size_t subtree = 58;
  ASSERT_GT(s.size(), 4 + 3 + 2 * subtree);
  const std::string tail = s.substr(s.size() - (4 + 3 + 2 * subtree));
  EXPECT_EQ(tail.substr(0, 5), bytes().u(3).b(1).s);
  EXPECT_EQ(tail[5 + subtree], 0);
  EXPECT_EQ(tail[6 + subtree], 1);
}

TEST(BinaryFiles, TruncatedAndCorruptedCopiesFailCleanly) {
  scratch_dir d;
  const std::string golf = testing_support::source_dir() + "/examples/golf";
  sylva::table t("training_set");
  t.load_meta_data(sylva::datasource("FILE#" + golf + ".names#,"));
  t.load_data(sylva::datasource("FILE#" + golf + ".data#,"), "?");
  t.toBinary(d.file("table.bin"));
  sylva::dtree tree("golf");
  tree.build(&t, nullptr, true, 0);
  tree.toBinary(d.file("model.bin"));
  const std::string table_file = read_file(d.file("table.bin"));
  const std::string model_plain = unzip(d.file("model.bin"));
  const std::string model_zipped = read_file(d.file("model.bin"));

  auto table_reads = [&](const std::string& content) {
    write_file(d.file("x.bin"), content);
    return error_of([&] { delete sylva::table::fromBinary(d.file("x.bin")); });
  };
  auto model_reads = [&](const std::string& content) {
    write_file(d.file("x.bin"), content);
    return error_of([&] { delete sylva::dtree::fromBinary(d.file("x.bin")); });
  };
  ASSERT_EQ(table_reads(table_file), "no error");
  ASSERT_EQ(model_reads(model_plain), "no error") << "a plain model file reads too";
  ASSERT_EQ(model_reads(model_zipped), "no error");

  for (size_t n = 0; n < table_file.size(); ++n) EXPECT_NE(table_reads(table_file.substr(0, n)), "no error") << n;
  for (size_t n = 0; n < model_plain.size(); ++n)
    EXPECT_EQ(model_reads(model_plain.substr(0, n)), "File " + d.file("x.bin") + ": not a binary tree model") << n;
  for (size_t n = 0; n < model_zipped.size(); n += 7) EXPECT_NE(model_reads(model_zipped.substr(0, n)), "no error") << n;

  // Flipped bytes may still read (a changed weight is a valid weight), but
  // never crash, hang or allocate without bound.
  std::mt19937 rng(5);
  for (int round = 0; round < 400; ++round) {
    std::string t2 = table_file, m2 = model_plain;
    for (int k = 0; k < 3; ++k) {
      t2[rng() % t2.size()] = static_cast<char>(rng());
      m2[rng() % m2.size()] = static_cast<char>(rng());
    }
    table_reads(t2);
    model_reads(m2);
  }
  EXPECT_EQ(model_reads(table_file), "File " + d.file("x.bin") + ": not a binary tree model");
  EXPECT_EQ(model_reads("outlook,string,discrete\n"), "File " + d.file("x.bin") + ": not a binary tree model");
  EXPECT_NE(table_reads("outlook,string,discrete\n"), "no error");
  EXPECT_EQ(error_of([&] { delete sylva::dtree::fromBinary(d.file("missing.bin")); }),
            "Error description not available");
}

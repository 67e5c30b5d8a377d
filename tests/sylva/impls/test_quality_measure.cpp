// Split measures on tiny tables. Expected values were computed by hand from
// the definitions, in 32-bit float arithmetic with logarithms taken in double
// and rounded to float, so they are compared exactly.

#include <gtest/gtest.h>

#include <memory>

#include "sylva/impls/column.h"
#include "table_fixture.h"

using namespace sylva::impls;

namespace {

struct measured {
  column::splitting_desc desc;
  std::unique_ptr<w_sequence> cases;
};

measured measure(const table& t, unsigned attribute, float min_obj, bool copy = false, const options* opts = nullptr,
                 w_sequence* cases = nullptr) {
  measured m;
  m.cases.reset(cases ? cases : t.get_wsubset_all());
  float total = 0;
  for (const w_pair& p : *m.cases) total += p.second;
  index_range range = t.get_attribute(attribute)->get_range();
  options defaults;
  t.get_attribute(attribute)->quality_measure(t.get_class(), total, m.cases.get(), range, min_obj,
                                              opts ? opts : &defaults, m.desc, copy);
  return m;
}

std::string threshold(const column::splitting_desc& d) {
  column::partition_desc pd;
  d.set_partition_desc(pd);
  return pd.value;
}

const char* const numeric = "v,integer,continuous\nc,string,class\n";

}  // namespace

TEST(QualityMeasure, DiscreteGainWithUnknowns) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,p\nx,p\nx,n\ny,n\ny,n\n?,p\ny,p\n");
  const auto m = measure(*t, 0, 2);
  EXPECT_EQ(m.desc.branches, 2u);
  EXPECT_EQ(m.desc.gain, 0.07003211975097656f);
  EXPECT_EQ(m.desc.split_info, 1.4488157033920288f) << "the unknown weight is a branch of its own";
  EXPECT_EQ(threshold(m.desc), "?");
}

TEST(QualityMeasure, ContinuousGainPenaltyAndThreshold) {
  auto t = table_fixture::load(numeric, "1,p\n2,p\n3,n\n4,n\n5,p\n6,n\n?,p\n?,n\n");
  auto m = measure(*t, 0, 2);
  // Best cut 2|3 of three candidates: gain - log2(3)/8.
  EXPECT_EQ(m.desc.gain, 0.14624063670635223f);
  EXPECT_EQ(m.desc.split_info, 1.5f);
  EXPECT_EQ(m.desc.lower, 2u);
  EXPECT_EQ(m.desc.upper, 3u);
  EXPECT_EQ(threshold(m.desc), "2");
  // The node's own list is sorted in place, unknowns first.
  EXPECT_EQ((*m.cases)[0].first, 6u);
  EXPECT_EQ((*m.cases)[1].first, 7u);
  EXPECT_EQ((*m.cases)[2].first, 0u);
  auto kept = measure(*t, 0, 2, true);
  EXPECT_EQ(kept.desc.gain, m.desc.gain);
  EXPECT_EQ((*kept.cases)[0].first, 0u) << "with copy the list is left as it was";
}

TEST(QualityMeasure, SkippedCutsStillCountAsCandidates) {
  auto t = table_fixture::load(numeric, "1,p\n2,p\n3,n\n4,n\n");
  const auto m = measure(*t, 0, 1);
  // The cut 1|2 lies inside the p stretch: skipped, yet T = 3.
  EXPECT_EQ(m.desc.gain, 0.6037594079971313f);
  EXPECT_EQ(m.desc.split_info, 1.0f);
  EXPECT_EQ(m.desc.lower, 2u);
  EXPECT_EQ(m.desc.upper, 3u);
}

TEST(QualityMeasure, EqualGainsKeepTheEarlierCut) {
  auto t = table_fixture::load("v,integer,continuous\nw,float,weights\nc,string,class\n",
                               "1,5,p\n2,5,p\n3,5,n\n4,5,n\n5,5,p\n6,5,p\n");
  const auto m = measure(*t, 0, 1);
  EXPECT_EQ(m.desc.gain, 0.17423151433467865f);
  EXPECT_EQ(m.desc.split_info, 0.9182958006858826f);
  EXPECT_EQ(m.desc.lower, 2u) << "cuts 2|3 and 4|5 have equal gains";
  EXPECT_EQ(m.desc.upper, 3u);
  // Divided by the 6 cases instead of the weight 30, the penalty exceeds the gain.
  options on_cases;
  on_cases.penalty_on_cases = true;
  const auto c = measure(*t, 0, 1, false, &on_cases);
  EXPECT_EQ(c.desc.gain, -0.001f);
  EXPECT_EQ(c.desc.split_info, 0.0f);
}

TEST(QualityMeasure, ValueCountVariantSkipsEmptyValues) {
  auto t = table_fixture::load(numeric, "1,p\n1,p\n1,p\n1,p\n1,n\n2,n\n3,n\n3,n\n3,n\n3,p\n");
  // Nine cases over three values: the value-indexed variant. Value 2 is in
  // the domain but not among the cases.
  auto* cases = new w_sequence{{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 1}, {6, 1}, {7, 1}, {8, 1}, {9, 1}};
  const auto m = measure(*t, 0, 2, false, nullptr, cases);
  EXPECT_EQ(m.desc.gain, 0.229436993598938f);
  EXPECT_EQ(m.desc.split_info, 0.9910761713981628f);
  EXPECT_EQ(m.desc.lower, 1u);
  EXPECT_EQ(m.desc.upper, 3u) << "the next non-empty value";
  EXPECT_EQ(threshold(m.desc), "2") << "largest domain value not above the midpoint 2";
  EXPECT_EQ((*m.cases)[5].first, 6u) << "this variant never reorders";
}

TEST(QualityMeasure, DegenerateInputsFail) {
  auto one = table_fixture::load(numeric, "4,p\n4,n\n4,p\n");
  EXPECT_EQ(measure(*one, 0, 1).desc.gain, -0.001f) << "a single known value";
  auto light = table_fixture::load("v,integer,continuous\nw,float,weights\nc,string,class\n",
                                   "1,1.3,p\n2,1.3,n\n3,1.3,p\n");
  EXPECT_EQ(measure(*light, 0, 2).desc.gain, -0.001f) << "known weight 3.9 below 2 * 2";
  auto unknown = table_fixture::load("v,integer,continuous\na,string,discrete\nc,string,class\n",
                                     "?,?,p\n?,?,n\n1,x,p\n2,y,n\n");
  auto* unknown_rows = new w_sequence{{0, 1}, {1, 1}};
  EXPECT_EQ(measure(*unknown, 0, 1, false, nullptr, unknown_rows).desc.gain, -0.001f);
  auto* unknown_rows2 = new w_sequence{{0, 1}, {1, 1}};
  EXPECT_EQ(measure(*unknown, 1, 1, false, nullptr, unknown_rows2).desc.gain, -0.001f);
  auto lopsided = table_fixture::load("a,string,discrete\nc,string,class\n", "x,p\nx,n\nx,p\nx,n\ny,p\n");
  EXPECT_EQ(measure(*lopsided, 0, 2).desc.gain, -0.001f) << "only one branch carries 2";
  EXPECT_EQ(measure(*lopsided, 1, 2).desc.gain, -0.001f) << "the class column is no attribute";
}

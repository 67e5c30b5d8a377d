#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "sylva/impls/array_predict.h"
#include "sylva/impls/decision_tree.h"
#include "table_fixture.h"
#include "tarn/inpout/binstream.h"

using testing_support::error_of;

using namespace sylva::impls;

namespace {

// Rows of a float, an integer, an unsigned and a nominal attribute and a
// class, about one value in eight unknown, as text.
struct mixed_rows {
  std::vector<std::vector<std::string>> rows;

  mixed_rows(unsigned n, unsigned seed, bool unseen) {
    unsigned s = seed;
    auto next = [&s](unsigned m) {
      s = s * 1103515245u + 12345u;
      return (s >> 16) % m;
    };
    const char* nominal[] = {"red", "green", "blue", "grey", unseen ? "mauve" : "red"};
    for (unsigned i = 0; i < n; ++i) {
      const unsigned a = next(1000), b = next(60), c = next(40), d = next(5);
      const char* cls = (a < 400) == (d < 2) ? (b < 30 ? "yes" : "maybe") : "no";
      if (next(5) == 0) cls = next(2) ? "yes" : "no";  // noise, for a deeper tree
      std::vector<std::string> r{std::to_string(a / 10) + "." + std::to_string(a % 10), std::to_string(int(b) - 20),
                                 std::to_string(c), nominal[d], cls};
      for (unsigned k = 0; k < 4; ++k)
        if (next(8) == 0) r[k] = "?";
      rows.push_back(r);
    }
  }

  std::string text() const {
    std::string t;
    for (const auto& r : rows) t += r[0] + "," + r[1] + "," + r[2] + "," + r[3] + "," + r[4] + "\n";
    return t;
  }
};

const char mixed_names[] = "f,float,continuous\ni,integer,continuous\nu,uinteger,continuous\nn,string,discrete\n"
                           "class,string,class\n";

// The rows as arrays: reals with NaN, integers with a mask, the nominal
// column as codes of the model's domain.
struct mixed_arrays {
  std::vector<double> f;
  std::vector<std::int64_t> i, u;
  std::vector<std::uint8_t> i_unknown, u_unknown;
  std::vector<std::int32_t> n;

  mixed_arrays(const mixed_rows& m, const decision_tree& model) {
    const column* nominal = model.get_table()->get_attribute(3);
    for (const auto& r : m.rows) {
      f.push_back(r[0] == "?" ? std::nan("") : std::strtod(r[0].c_str(), nullptr));
      i.push_back(r[1] == "?" ? 0 : std::stoll(r[1]));
      i_unknown.push_back(r[1] == "?");
      u.push_back(r[2] == "?" ? -7 : std::stoll(r[2]));  // masked values are never read
      u_unknown.push_back(r[2] == "?");
      n.push_back(static_cast<std::int32_t>(nominal->get_index(r[3].c_str())));
    }
  }

  std::vector<attribute_input> inputs() const {
    return {{attribute_input::REAL, f.data(), 1, nullptr},
            {attribute_input::INTEGER, i.data(), 1, i_unknown.data()},
            {attribute_input::INTEGER, u.data(), 1, u_unknown.data()},
            {attribute_input::CODES, n.data(), 1, nullptr},
            {}};
  }
};

std::unique_ptr<decision_tree> grow(const table* t, decision_tree::PruningStrategy pruning) {
  auto model = std::make_unique<decision_tree>("mixed");
  model->set_pruning_strategy(pruning);
  model->build_pruned(const_cast<table*>(t), nullptr, true, 0);
  return model;
}

// Every row's distribution and class, bit for bit, against the model's own
// descent over the row's texts.
void expect_same_as_text_descent(const decision_tree& model, const mixed_rows& m, unsigned threads = 1) {
  const flat_tree flat(model);
  const unsigned k = flat.classes();
  ASSERT_EQ(k, model.get_n_classes());
  const mixed_arrays arrays(m, model);
  std::vector<float> dist(m.rows.size() * k);
  std::vector<std::uint32_t> best(m.rows.size());
  flat.predict(arrays.inputs(), m.rows.size(), dist.data(), best.data(), threads);
  unsigned spread = 0;
  for (size_t r = 0; r < m.rows.size(); ++r) {
    std::vector<float> expected(k, 0.0f);
    model.get_tree()->predict(m.rows[r], expected, model.get_table(), 1.0f);
    for (unsigned c = 0; c < k; ++c) ASSERT_EQ(dist[r * k + c], expected[c]) << "row " << r << ", class " << c;
    ASSERT_EQ(best[r], model.predict(m.rows[r], 1.0f).first) << "row " << r;
    spread += std::count_if(expected.begin(), expected.end(), [](float x) { return x > 0; }) > 1;
  }
  EXPECT_GT(spread, m.rows.size() / 10) << "rows mixing several leaves take part";
}

}  // namespace

TEST(ArrayPredict, SameDistributionsAsTheTextDescent) {
  const mixed_rows training(400, 7, false), cases(300, 11, true);
  auto t = table_fixture::load(mixed_names, training.text());
  for (auto pruning : {decision_tree::NO_PRUNING, decision_tree::ERROR_BASED_PRUNING}) {
    auto model = grow(t.get(), pruning);
    ASSERT_GT(model->size(), 15u);
    expect_same_as_text_descent(*model, cases);
    expect_same_as_text_descent(*model, cases, 3);
  }
}

TEST(ArrayPredict, ReloadedModelComparesThresholdsByType) {
  const mixed_rows training(400, 3, false), cases(200, 5, true);
  auto t = table_fixture::load(mixed_names, training.text());
  auto model = grow(t.get(), decision_tree::NO_PRUNING);
  testing_support::scratch_dir dir;
  const std::string file = dir.file("m.bin");
  {
    tarn::inpout::obinstream out(file, true, 1);
    out << static_cast<unsigned char>(1) << *model;
  }
  tarn::inpout::ibinstream in(file, true);
  ASSERT_TRUE(in.read_presence());
  decision_tree loaded("my_decision_tree");
  in >> loaded;
  ASSERT_EQ(loaded.get_table()->get_attribute(0)->get_o_set()->size_of_known(), 0u) << "no continuous values kept";
  expect_same_as_text_descent(loaded, cases);
}

TEST(ArrayPredict, TiesGoToTheLowerClassCode) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,p\nx,p\nx,p\nx,p\nx,n\ny,n\ny,n\ny,n\n");
  auto model = grow(t.get(), decision_tree::NO_PRUNING);
  const flat_tree flat(*model);
  // Unknown and unseen (code 0, or beyond the branches) values mix x (p 4/5,
  // n 1/5) at 5/8 with y (n) at 3/8: n and p both 0.5.
  std::vector<std::int32_t> codes{0, 7, 1, 2};
  std::vector<float> dist(4 * 3);
  std::vector<std::uint32_t> best(4);
  flat.predict({{attribute_input::CODES, codes.data(), 1, nullptr}, {}}, 4, dist.data(), best.data());
  EXPECT_EQ(std::vector<float>(dist.begin(), dist.begin() + 3), (std::vector<float>{0, 0.5f, 0.5f}));
  EXPECT_EQ(std::vector<float>(dist.begin() + 3, dist.begin() + 6), (std::vector<float>{0, 0.5f, 0.5f}));
  EXPECT_EQ(best, (std::vector<std::uint32_t>{1, 1, 2, 1})) << "n is code 1, p code 2";
}

TEST(ArrayPredict, InputsTheTreeCannotRead) {
  const mixed_rows training(400, 7, false);
  auto t = table_fixture::load(mixed_names, training.text());
  auto model = grow(t.get(), decision_tree::NO_PRUNING);
  const flat_tree flat(*model);
  const mixed_arrays arrays(training, *model);
  std::vector<float> dist(training.rows.size() * flat.classes());
  std::vector<std::uint32_t> best(training.rows.size());
  auto run = [&](std::vector<attribute_input> in) {
    return error_of([&] { flat.predict(in, training.rows.size(), dist.data(), best.data()); });
  };
  auto in = arrays.inputs();
  in[0].kind = attribute_input::INTEGER;
  EXPECT_EQ(run(in), "column 'f' is tested by the tree and needs real values");
  in = arrays.inputs();
  in.resize(3);
  EXPECT_EQ(run(in), "column 'n' is tested by the tree and needs domain codes");
  std::vector<std::int64_t> big(arrays.i);
  big[5] = 1LL << 31;
  in = arrays.inputs();
  in[1].data = big.data();
  in[1].unknown = nullptr;
  EXPECT_EQ(run(in), "column 'i': 2147483648 does not fit its 32-bit integer type");
  std::vector<std::int64_t> negative(arrays.u);
  negative[0] = -1;
  in = arrays.inputs();
  in[2] = {attribute_input::INTEGER, negative.data(), 1, nullptr};
  EXPECT_EQ(run(in), "column 'u': -1 does not fit its 32-bit unsigned integer type");
}

TEST(ArrayPredict, ATreeThatIsOneLeaf) {
  auto t = table_fixture::load("a,string,discrete\nc,string,class\n", "x,p\ny,p\n");
  auto model = grow(t.get(), decision_tree::ERROR_BASED_PRUNING);
  const flat_tree flat(*model);
  EXPECT_EQ(flat.nodes(), 1u);
  std::vector<float> dist(2);
  std::uint32_t best = 9;
  flat.predict({}, 1, dist.data(), &best);
  EXPECT_EQ(dist, (std::vector<float>{0, 1}));
  EXPECT_EQ(best, 1u);
  EXPECT_EQ(error_of([] { flat_tree f(decision_tree("empty")); }), "the model holds no tree");
}

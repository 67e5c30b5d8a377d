#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "load_reference.h"
#include "sylva/impls/table.h"
#include "table_fixture.h"
#include "tarn/inpout/stream.h"
#include "test_support.h"

using namespace sylva::impls;
using testing_support::scratch_dir;

namespace {

struct outcome {
  std::unique_ptr<table> t;
  std::string error;
  std::string log;
};

// Loads `data_file` into a table declared by `names` with the given
// settings, at verbosity 200.
outcome load(const scratch_dir& d, const std::string& names, const std::string& data_file, int threads,
             std::size_t chunk, char sep = ',') {
  outcome o;
  o.t = std::make_unique<table>("t", true);
  std::ostringstream log;
  o.t->load_meta_data(table_fixture::text_stream(d, "t.names", names).get(), true);
  o.t->set_log(&log);
  o.t->set_verbosity(200);
  table::load_options options;
  options.threads = threads;
  options.chunk_bytes = chunk;
  try {
    std::unique_ptr<tarn::inpout::stream> s(tarn::inpout::stream::FROM_FILE(data_file, sep));
    o.t->load_data(s.get(), "?", true, options);
  } catch (const std::runtime_error& e) {
    o.error = e.what();
  }
  o.log = log.str();
  return o;
}

load_reference::loaded reference(const scratch_dir& d, const std::string& names, const std::string& data_file,
                                 char sep = ',') {
  table declared("t", true);
  declared.load_meta_data(table_fixture::text_stream(d, "r.names", names).get(), true);
  return load_reference::load(declared, data_file, sep);
}

// Every thread count from 1 to 4 on chunks of odd sizes, down to one byte.
const int thread_counts[] = {1, 2, 3, 4};
const std::size_t chunk_sizes[] = {1, 3, 17, 250, 4093, std::size_t{1} << 20};

// Loads with every setting and expects the reference's table, log and
// error every time.
void expect_like_reference(const scratch_dir& d, const std::string& names, const std::string& data_file,
                           char sep = ',') {
  const load_reference::loaded ref = reference(d, names, data_file, sep);
  for (int threads : thread_counts) {
    for (std::size_t chunk : chunk_sizes) {
      const std::string what = std::to_string(threads) + " threads, chunks of " + std::to_string(chunk);
      outcome o = load(d, names, data_file, threads, chunk, sep);
      EXPECT_EQ(o.error, ref.error) << what;
      EXPECT_EQ(o.log, ref.log) << what;
      if (ref.error.empty()) load_reference::expect_same(*o.t, ref, what);
    }
  }
}

const char mixed_names[] =
    "kind,string,discrete\ncount,integer,continuous\nsize,uinteger,continuous\nprice,float,continuous\n"
    "ratio,double,discrete\nflag,string,discrete\nnote,null,ignore\nwide,integer,continuous\n"
    "label,string,class\n";

// Rows of every value type: repeats, unknowns, blanks and signs that strtod
// reads, a column of two values (stored as bits), a column of some thousand
// values (two-byte indices), ends of lines of both kinds.
std::string mixed_rows(unsigned rows, unsigned seed, bool final_terminator) {
  std::mt19937 g(seed);
  auto pick = [&](unsigned n) { return static_cast<unsigned>(g() % n); };
  const char* kinds[] = {"a", "b", "c", "?", "a b", ""};
  const char* prices[] = {"1.5", "2", "-3.25", "1e2", "+7", " 8.5", "0.1", "?", "100.0", "3.4028234e38"};
  std::string text;
  for (unsigned r = 0; r < rows; ++r) {
    text += kinds[pick(6)];
    text += "," + std::to_string(static_cast<int>(pick(200)) - 100);
    text += "," + (pick(10) == 0 ? std::string("?") : std::to_string(pick(4000000000u)));
    text += std::string(",") + prices[pick(10)];
    text += "," + std::to_string(pick(50) * 0.125);
    text += pick(2) ? ",yes" : ",no";
    text += pick(3) ? ",anything" : ",?";
    text += "," + std::to_string(pick(3000));
    text += pick(3) ? ",pos" : ",neg";
    if (pick(7) == 0) text += ",";  // a final separator adds no field
    if (r + 1 < rows || final_terminator) text += pick(2) ? "\n" : "\r\n";
  }
  return text;
}

}  // namespace

TEST(TableLoad, SameTableLogAndRowsForEveryThreadCountAndChunkSize) {
  scratch_dir d;
  expect_like_reference(d, mixed_names, d.write("m.data", mixed_rows(600, 1, true)));
  expect_like_reference(d, mixed_names, d.write("n.data", mixed_rows(457, 2, false)));
}

TEST(TableLoad, GzipInputLoadsLikeThePlainFile) {
  scratch_dir d;
  const std::string text = mixed_rows(700, 3, false);
  const std::string gz = testing_support::gzip_file(d.file("m.data.gz"), text);
  const load_reference::loaded ref = reference(d, mixed_names, d.write("m.data", text));
  for (int threads : thread_counts) {
    for (std::size_t chunk : {std::size_t{5}, std::size_t{999}, std::size_t{1} << 20}) {
      outcome o = load(d, mixed_names, gz, threads, chunk);
      EXPECT_EQ(o.log, ref.log);
      load_reference::expect_same(*o.t, ref, "gzip, " + std::to_string(threads) + " threads");
    }
  }
}

TEST(TableLoad, GzipMembersFollowOneAnother) {
  scratch_dir d;
  const std::string first = mixed_rows(300, 4, true), second = mixed_rows(200, 5, true);
  const std::string joined = testing_support::read_file(testing_support::gzip_file(d.file("a.gz"), first)) +
                             testing_support::read_file(testing_support::gzip_file(d.file("b.gz"), second));
  const std::string gz = d.write("ab.data.gz", joined);
  const load_reference::loaded ref = reference(d, mixed_names, d.write("ab.data", first + second));
  for (int threads : thread_counts) load_reference::expect_same(*load(d, mixed_names, gz, threads, 777).t, ref, "members");
}

TEST(TableLoad, LinesCutAcrossChunksInEveryWay) {
  scratch_dir d;
  const char names[] = "s,string,discrete\nc,string,class\n";
  // A CR LF pair cut between chunks (chunks of 1..12 bytes cut everywhere),
  // an empty field, a line far longer than a chunk, a last line without
  // terminator and one ending in a carriage return.
  const std::string long_field(5000, 'w');
  expect_like_reference(d, names, d.write("a.data", "x,1\r\ny,2\r\n,3\r\n" + long_field + ",4\nz,5\r"));
  expect_like_reference(d, names, d.write("b.data", "x,1\n" + long_field + "\r\n" + "q,2"));
  for (std::size_t chunk = 1; chunk <= 12; ++chunk) {
    outcome o = load(d, names, d.write("c.data", "ab,1\r\ncd,2\r\n\r\n"), 2, chunk);
    EXPECT_EQ(o.error, "Reading training data: bad row format (row 3): ") << chunk;
  }
}

TEST(TableLoad, OneRowAndNoRows) {
  scratch_dir d;
  const char names[] = "x,float,continuous\nc,string,class\n";
  expect_like_reference(d, names, d.write("one.data", "2.5,yes"));
  expect_like_reference(d, names, d.write("none.data", ""));
  const char single[] = "c,string,class\n";
  // One empty line is one row with one empty field.
  outcome o = load(d, single, d.write("empty-line.data", "\n"), 2, 1);
  ASSERT_EQ(o.error, "");
  EXPECT_EQ(o.t->get_no_rows(), 1u);
  EXPECT_EQ(o.t->get_class()->get_row_value(0), "");
}

TEST(TableLoad, TheFirstBadRowInTheSourceIsReported) {
  scratch_dir d;
  const char names[] = "n,integer,continuous\nc,string,class\n";
  // Rows of 6 bytes; with chunks of 24 bytes row 6 is in the second chunk
  // and row 15 in the fourth. Later chunks are often done first.
  std::string rows;
  for (int r = 1; r <= 30; ++r) rows += r == 6 ? "1,b,c\n" : r == 15 ? "1x,ab\n" : "12,ab\n";
  for (int threads : thread_counts) {
    outcome o = load(d, names, d.write("bad.data", rows), threads, 24);
    EXPECT_EQ(o.error, "Reading training data: bad row format (row 6): 1,b,c") << threads;
  }
  // A field that does not parse in row 7 beats a wrong count in row 9; in a
  // row, the earlier field wins; a wrong count is found before any field.
  const char three[] = "n,integer,continuous\nf,float,continuous\nc,string,class\n";
  std::string parse_first;
  for (int r = 1; r <= 12; ++r) parse_first += r == 7 ? "3x,2y,a\n" : r == 9 ? "1,2\n" : "1,2,a\n";
  std::string count_first = "1,2,a\n4x,5,b,extra\n";
  for (int threads : thread_counts) {
    for (std::size_t chunk : {std::size_t{1}, std::size_t{13}, std::size_t{1} << 20}) {
      EXPECT_EQ(load(d, three, d.write("p.data", parse_first), threads, chunk).error,
                "Reading training data: 3x: _not an int");
      EXPECT_EQ(load(d, three, d.write("q.data", count_first), threads, chunk).error,
                "Reading training data: bad row format (row 2): 4x,5,b,extra");
    }
  }
}

TEST(TableLoad, ProgressLinesEveryTenThousandRows) {
  scratch_dir d;
  const char names[] = "n,integer,continuous\nc,string,class\n";
  std::string rows, failing;
  for (int r = 1; r <= 25000; ++r) {
    const std::string row = std::to_string(r % 97) + (r % 3 ? ",a\n" : ",b\n");
    rows += row;
    failing += r == 20000 ? "1\n" : row;
  }
  const std::string file = d.write("p.data", rows);
  for (int threads : thread_counts) {
    outcome o = load(d, names, file, threads, 1000);
    EXPECT_EQ(o.log,
              "Reading data \n ... 1st pass: \n  10000\r  20000\r  25000 rows read. Indexing ...  done.\n"
              " ... 2nd pass: \n  10000\r  20000\r  25000 rows read.\n");
  }
  // A failure stops the counting at its row, which is counted.
  expect_like_reference(d, names, d.write("q.data", failing));
  EXPECT_EQ(load(d, names, d.file("q.data"), 2, 100).log, "Reading data \n ... 1st pass: \n  10000\r  20000\r");
}

TEST(TableLoad, FailuresOfTheSecondPassAndOfTheDomains) {
  scratch_dir d;
  // A not-a-number is read, but belongs to no domain: the second pass
  // refuses it with the column's message.
  expect_like_reference(d, "x,float,continuous\nc,string,class\n", d.write("n.data", "1,a\nnan,b\n2,a\n"));
  expect_like_reference(d, "x,integer,continuous\nc,string,class\n", d.write("u.data", "1,a\n2,?\n"));
  expect_like_reference(d, "w,float,weights\nc,string,class\n", d.write("w.data", "1,a\n?,b\n"));
}

TEST(TableLoad, OfTwoZerosTheFirstInTheSourceIsKept) {
  scratch_dir d;
  const char names[] = "x,double,discrete\nf,float,continuous\nc,string,class\n";
  std::string rows = "5,5,a\n";
  for (int r = 0; r < 200; ++r) rows += "1.5,2.5,a\n";
  const std::string negative_first = rows + "-0,-0.0,b\n0,0,a\n", positive_first = rows + "0,0.0,b\n-0,-0,a\n";
  for (int threads : thread_counts) {
    for (std::size_t chunk : {std::size_t{7}, std::size_t{1} << 20}) {
      outcome neg = load(d, names, d.write("n.data", negative_first), threads, chunk);
      EXPECT_EQ(neg.t->get_attribute(0)->get_value(1), "-0");
      EXPECT_EQ(neg.t->get_attribute(1)->get_value(1), "-0");
      outcome pos = load(d, names, d.write("p.data", positive_first), threads, chunk);
      EXPECT_EQ(pos.t->get_attribute(0)->get_value(1), "0");
      EXPECT_EQ(pos.t->get_attribute(1)->get_value(1), "0");
    }
  }
}

TEST(TableLoad, ManyValuesGetWideIndices) {
  scratch_dir d;
  const char names[] = "x,integer,continuous\ny,float,continuous\nc,string,class\n";
  std::string rows;
  std::mt19937 g(7);
  for (int r = 0; r < 70000; ++r)
    rows += std::to_string(static_cast<int>(g() % 2000000) - 1000000) + "," + std::to_string(r) + ".5" + (r % 2 ? ",a\n" : ",b\n");
  const std::string file = d.write("w.data", rows);
  const load_reference::loaded ref = reference(d, names, file);
  for (int threads : thread_counts) {
    outcome o = load(d, names, file, threads, 9999);
    load_reference::expect_same(*o.t, ref, std::to_string(threads) + " threads");
    EXPECT_NE(dynamic_cast<const column_typed<unsigned int>*>(o.t->get_attribute(1)), nullptr);
  }
}

TEST(TableLoad, SeparatorsOtherThanCommaAndNone) {
  scratch_dir d;
  expect_like_reference(d, "a,string,discrete\nb,integer,continuous\nc,string,class\n",
                        d.write("t.data", "x;1;p\ny;2;q\n;3;p\n"), ';');
  // The NUL separator makes every line one field.
  expect_like_reference(d, "c,string,class\n", d.write("u.data", "a,b\nc;d\n\n"), '\0');
}

TEST(TableLoad, ManyDeclaredColumnsStaySmall) {
  scratch_dir d;
  constexpr unsigned columns = 100000;
  std::string names, row;
  for (unsigned j = 0; j < columns; ++j) {
    names.append(1, 'c').append(std::to_string(j)).append(j + 1 == columns ? ",string,class\n" : ",float,continuous\n");
    row += j + 1 == columns ? "x\n" : "1.5,";
  }
  table t("t", true);
  t.load_meta_data(table_fixture::text_stream(d, "w.names", names).get(), true);
  const auto domains_bytes = [&] {
    std::size_t bytes = 0;
    for (unsigned j = 0; j < columns; ++j) bytes += t.get_attribute(j)->get_o_set()->footprint();
    return bytes;
  };
  EXPECT_LT(domains_bytes(), columns * std::size_t{400}) << "a declared domain costs a few hundred bytes at most";
  t.load_data(table_fixture::text_stream(d, "w.data", row).get(), "?", true, 2);
  EXPECT_EQ(t.get_no_rows(), 1u);
  EXPECT_LT(domains_bytes(), columns * std::size_t{400}) << "one value each";
}

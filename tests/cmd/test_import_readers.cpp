// The readers of arbor-import: delimited files, C4.5 files and ARFF, each
// on small hand-written files, and their refusals.

#include <gtest/gtest.h>

#include "cmd/import_arff.h"
#include "cmd/import_c45.h"
#include "cmd/import_csv.h"
#include "test_support.h"

using namespace arbor_import;
using testing_support::error_of;
using testing_support::scratch_dir;

namespace {

// Every row of `file` as text: fields joined by '|', unknown ones as <?>,
// and the line each row starts on.
std::vector<std::string> rows_of(row_reader& reader) {
  std::vector<std::string> out;
  row r;
  while (reader.next(r)) {
    std::string s = std::to_string(reader.row_line()) + ":";
    for (std::size_t i = 0; i < r.size(); ++i) {
      if (i > 0) s += '|';
      s += r[i].unknown ? std::string("<?>") : r[i].text;
    }
    out.push_back(s);
  }
  return out;
}

std::vector<std::string> names_of(const dataset& d) {
  std::vector<std::string> n;
  for (const column_decl& c : d.columns) n.push_back(c.name);
  return n;
}

using strings = std::vector<std::string>;

}  // namespace

TEST(ImportDelimited, QuotesBlanksLineEndsAndUnknowns) {
  scratch_dir d;
  const std::string f = d.write("a.csv",
                                "\xEF\xBB\xBF id , \"name, full\" ,note\r\n"
                                "1, \"Smith, J\" ,\"say \"\"hi\"\"\"\r\n"
                                "\n"
                                "2,\"two\r\nlines\",  \r\n"
                                "3,NA,?\n"
                                "4,\"NA\",\"\"\n"
                                "5,na,\"?\"");  // no line end at the end
  delimited_reader reader(f, ',');
  EXPECT_EQ(rows_of(reader), (strings{"1:id|name, full|note", "2:1|Smith, J|say \"hi\"",
                                      "4:2|two\r\nlines|<?>", "6:3|<?>|<?>", "7:4|<?>|<?>", "8:5|na|<?>"}));
  EXPECT_EQ(detect_separator(f), ',');
}

TEST(ImportDelimited, SeparatorDetection) {
  scratch_dir d;
  EXPECT_EQ(detect_separator(d.write("s", "a;b;c\n1,5;2;3\n")), ';');
  EXPECT_EQ(detect_separator(d.write("t", "a b\tc\n1\t2\n")), '\t');
  EXPECT_EQ(detect_separator(d.write("p", "a|\"b;c\"\n1|2\n")), '|');
  // Both split every line into the same number of fields.
  EXPECT_EQ(error_of([&] { detect_separator(d.write("both", "a,b;c\n1,2;3\n")); }),
            d.file("both") + ", line 1: both ',' and ';' split every line alike; give the separator with --sep");
  // None does: one column, or rows that disagree with the header.
  for (const char* text : {"abc\n1\n", "a,b\n1,2,3\n"})
    EXPECT_NE(error_of([&] { detect_separator(d.write("none", text)); }).find("no separator among"),
              std::string::npos);
}

TEST(ImportDelimited, RefusalsNameLineAndColumn) {
  scratch_dir d;
  auto error = [&](const std::string& text) {
    return error_of([&] {
      delimited_reader r(d.write("x.csv", text), ',');
      rows_of(r);
    });
  };
  EXPECT_EQ(error("a,b\n1,\"open\n2,3\n"), d.file("x.csv") + ", line 2, column 2: a quoted field is never closed");
  EXPECT_EQ(error("a,b\n1,\"x\" y\n"),
            d.file("x.csv") + ", line 2, column 2: unexpected text after the closing quote of a field");
  EXPECT_EQ(error_of([&] { read_delimited(d.write("h.csv", "a,,c\n1,2,3\n"), ',', ""); }),
            d.file("h.csv") + ", line 1, column 2: the header gives no name");
  EXPECT_EQ(error_of([&] { read_delimited(d.write("e.csv", ""), ',', ""); }),
            d.file("e.csv") + ": the file is empty: a header line is needed");
  EXPECT_EQ(error_of([&] { read_delimited(d.file("missing.csv"), ',', ""); }),
            d.file("missing.csv") + ": cannot be opened");
  // A test file must carry the training file's header.
  const dataset ds = read_delimited(d.write("tr.csv", "a,b\n1,2\n"), 0, d.write("te.csv", "a,c\n1,2\n"));
  EXPECT_EQ(names_of(ds), (strings{"a", "b"}));
  EXPECT_EQ(error_of([&] { ds.open(ds.test_file); }),
            d.file("te.csv") + ", line 1: the header differs from the training file's");
}

TEST(ImportC45, SplitsAtUnescapedDelimiters) {
  EXPECT_EQ(c45_split(" a\\,b , c ,\\ d\\ ,", ','), (strings{"a,b", "c", " d ", ""}));
  EXPECT_EQ(c45_split("time: 10:30", ':', true), (strings{"time", "10:30"}));
  EXPECT_EQ(c45_stem("x/golf.names"), "x/golf");
  EXPECT_EQ(c45_stem("x/golf.data.gz"), "x/golf");
  EXPECT_EQ(c45_stem("x/golf"), "x/golf");
}

TEST(ImportC45, NamesDataAndTest) {
  scratch_dir d;
  d.write("s.names",
          "| A data set in C4.5's own format.\n"
          "good, bad,   | classes may go on\n"
          "  ugly.\n"
          "\n"
          "size:   continuous.   | a number\n"
          "colour: red, dark blue,\n"
          "        green\n"
          "id:     ignore.\n"
          "shape:  discrete 4.\n");
  d.write("s.data", "1.5, red, 7, round, good.\n| a comment line\n?,dark blue,8,?,bad   | trailing comment\n");
  d.write("s.test", "2,green,9,square,ugly\n");
  const dataset ds = read_c45(d.file("s.names"), "");
  EXPECT_EQ(names_of(ds), (strings{"size", "colour", "id", "shape", "class"}));
  EXPECT_EQ(ds.class_index, 4u);
  EXPECT_EQ(ds.columns[0].kind, declared::NUMBER);
  EXPECT_EQ(ds.columns[1].values, (strings{"red", "dark blue", "green"}));
  EXPECT_TRUE(ds.columns[1].closed);
  EXPECT_EQ(ds.columns[2].kind, declared::IGNORE);
  EXPECT_EQ(ds.columns[3].kind, declared::DISCRETE);
  EXPECT_FALSE(ds.columns[3].closed);
  EXPECT_EQ(ds.columns[4].values, (strings{"good", "bad", "ugly"}));
  EXPECT_EQ(ds.data_file, d.file("s.data"));
  EXPECT_EQ(ds.test_file, d.file("s.test"));
  EXPECT_EQ(rows_of(*ds.open(ds.data_file)), (strings{"1:1.5|red|7|round|good", "3:<?>|dark blue|8|<?>|bad"}));
  EXPECT_EQ(rows_of(*ds.open(ds.test_file)), (strings{"1:2|green|9|square|ugly"}));
}

TEST(ImportC45, ClassNamedByItsAttribute) {
  scratch_dir d;
  d.write("c.names", "outcome.\nclass: continuous.\noutcome: yes, no.\n");
  // A gzipped .data is found too.
  testing_support::gzip_file(d.file("c.data.gz"), "1,yes\n");
  const dataset ds = read_c45(d.file("c"), "");
  EXPECT_EQ(names_of(ds), (strings{"class", "outcome"}));
  EXPECT_EQ(ds.class_index, 1u);
  EXPECT_EQ(ds.data_file, d.file("c.data.gz"));
  EXPECT_EQ(ds.test_file, "");
  EXPECT_EQ(rows_of(*ds.open(ds.data_file)), (strings{"1:1|yes"}));
}

TEST(ImportC45, Refusals) {
  scratch_dir d;
  auto error = [&](const std::string& names) {
    d.write("r.names", names);
    return error_of([&] { read_c45(d.file("r.names"), ""); });
  };
  const std::string f = d.file("r.names");
  EXPECT_EQ(error("a, b.\nsize continuous.\n"), f + ", line 2: expected an attribute line \"name: type.\"");
  EXPECT_EQ(error("a, b.\nwhen: date.\n"), f + ", line 2: attributes of type date are not supported");
  EXPECT_EQ(error("a, b.\nx := 2 * y.\n"), f + ", line 2: attributes defined by formulas are not supported");
  EXPECT_EQ(error("a, b.\ncolour: red,, blue.\n"), f + ", line 2: an empty value in the list of values of colour");
  EXPECT_EQ(error("| nothing\n"), f + ": no class list and no attributes");
  EXPECT_EQ(error("a, b.\n"), f + ": no attributes after the class list");
  EXPECT_EQ(error("a, b.\nx: continuous.\n"), d.file("r") + ".data: cannot be opened");
}

TEST(ImportArff, HeaderAndRows) {
  scratch_dir d;
  const std::string f = d.write("w.arff",
                                "% Weather, with awkward names\n"
                                "@RELATION weather\n"
                                "\n"
                                "@attribute 'out look' {sunny, 'over, cast', \"rain\"}\n"
                                "@Attribute temp REAL\n"
                                "@attribute count integer\n"
                                "@attribute remark string\n"
                                "@attribute play {yes,no}\n"
                                "@data\n"
                                "% first row\n"
                                "sunny, 85.5, 3, 'it\\'s hot', no\n"
                                "'over, cast',?,4,\"a, b\",yes\r\n"
                                "rain , 70 ,5, '?' ,yes\n");
  const dataset ds = read_arff(f, "");
  EXPECT_EQ(names_of(ds), (strings{"out look", "temp", "count", "remark", "play"}));
  EXPECT_EQ(ds.class_index, 4u);
  EXPECT_EQ(ds.columns[0].values, (strings{"sunny", "over, cast", "rain"}));
  EXPECT_EQ(ds.columns[1].kind, declared::NUMBER);
  EXPECT_EQ(ds.columns[2].kind, declared::INTEGER);
  EXPECT_EQ(ds.columns[3].kind, declared::DISCRETE);
  EXPECT_FALSE(ds.columns[3].closed);
  // A quoted ? is the text ?, not an unknown value.
  EXPECT_EQ(rows_of(*ds.open(f)), (strings{"11:sunny|85.5|3|it's hot|no", "12:over, cast|<?>|4|a, b|yes",
                                           "13:rain|70|5|?|yes"}));
}

TEST(ImportArff, Refusals) {
  scratch_dir d;
  const std::string head = "@relation r\n@attribute a numeric\n@attribute c {x,y}\n@data\n";
  auto error = [&](const std::string& text) {
    const std::string f = d.write("r.arff", text);
    return error_of([&] {
      const dataset ds = read_arff(f, "");
      rows_of(*ds.open(f));
    });
  };
  const std::string f = d.file("r.arff");
  EXPECT_EQ(error(head + "{0 1, 1 x}\n"), f + ", line 5: sparse rows are not supported");
  EXPECT_EQ(error(head + "1, x, {2}\n"), f + ", line 5, column 3: instance weights are not supported");
  EXPECT_EQ(error(head + "1, 'x\n"), f + ", line 5: a quoted text is never closed");
  EXPECT_EQ(error(head + "1, 'x' y\n"), f + ", line 5, column 2: unexpected text after the closing quote of a value");
  EXPECT_EQ(error("@relation r\n@attribute d date 'yyyy'\n@data\n"),
            f + ", line 2: attributes of type date are not supported (d)");
  EXPECT_EQ(error("@relation r\n@attribute c {x,y\n@data\n"), f + ", line 2: a nominal list without its closing brace");
  EXPECT_EQ(error("@relation r\n@attribute a numeric\n"), f + ": no @data line");
  EXPECT_EQ(error("@relation r\nx\n"), f + ", line 2: expected @relation, @attribute or @data");
  // A test file declares the same attributes.
  const dataset ds = read_arff(d.write("tr.arff", head + "1,x\n"), d.write("te.arff", head + "1,y\n"));
  EXPECT_NO_THROW(ds.open(ds.test_file));
  d.write("te.arff", "@relation r\n@attribute a integer\n@attribute c {x,y}\n@data\n");
  EXPECT_EQ(error_of([&] { ds.open(ds.test_file); }), d.file("te.arff") + ": the attributes differ from the training file's");
}

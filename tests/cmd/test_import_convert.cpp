// From rows to arbor's files: number classes, the kinds decided from the
// values, the separator chosen for the output, and the refusals.

#include <gtest/gtest.h>

#include <filesystem>

#include "cmd/import_convert.h"
#include "cmd/import_csv.h"
#include "test_support.h"

using namespace arbor_import;
using testing_support::error_of;
using testing_support::read_file;
using testing_support::scratch_dir;

namespace {

// A delimited data set from `text`, with the given class and options.
struct converted {
  scratch_dir dir;
  dataset d;
  explicit converted(const std::string& text, import_options o = {}, const std::string& test = "") {
    const std::string test_file = test.empty() ? "" : dir.write("t.csv", test);
    d = read_delimited(dir.write("d.csv", text), ',', test_file);
    if (o.class_name.empty()) o.class_name = "c";
    apply_options(d, o);
  }
  // "name type kind known/unknown" for every column.
  std::vector<std::string> kinds() const {
    std::vector<std::string> out;
    for (const column_result& c : analyse(d).columns)
      out.push_back(c.name + " " + type_word(c.type) + " " + c.kind + " " + std::to_string(c.known) + "/" +
                    std::to_string(c.unknown));
    return out;
  }
  std::string error() const {
    return error_of([&] { analyse(d); });
  }
  std::string file() const { return dir.file("d.csv"); }
};

using strings = std::vector<std::string>;

}  // namespace

TEST(ImportConvert, NumbersAsArborReadsThem) {
  for (const char* s : {"0", "-7", "+5", "007", "000000000001", "2147483647", "-2147483647", "00002147483647"})
    EXPECT_EQ(classify_number(s), number_kind::INTEGER) << s;
  // Beyond the strict integer parser's range, or with a point or an
  // exponent: a float.
  for (const char* s : {"2147483648", "-2147483648", "12345678901", "1.5", "5.", ".5", "-0.0", "1e5", "1E-3", "3.4e38",
                        "100000000000000000000000000000000000000", "0000000000000000000000000000000000000000001.5"})
    EXPECT_EQ(classify_number(s), number_kind::REAL) << s;
  for (const char* s : {"1e39", "-4e38", "1e400", "4000000000000000000000000000000000000000"}) EXPECT_EQ(classify_number(s), number_kind::OUT_OF_RANGE) << s;
  for (const char* s : {"", "+", "-", ".", "e5", "1e", "1e+", "inf", "nan", "0x10", "1,5", " 1", "1 ", "1.2.3", "--1"})
    EXPECT_EQ(classify_number(s), number_kind::NOT_NUMBER) << s;
}

TEST(ImportConvert, KindsFollowTheValues) {
  const converted c(
      "i,f,s,e,mixed,c\n"
      "1,1,a,,1,yes\n"
      "-2,2.5,b,NA,x,no\n"
      "?,1e3,3,?,2.5,yes\n");
  EXPECT_EQ(c.kinds(), (strings{"i integer continuous 2/1", "f float continuous 3/0", "s string discrete 3/0",
                                "e null ignore 0/3", "mixed string discrete 3/0", "c string class 3/0"}));
  // The user's choices win over inference.
  const converted o("i,f,c\n1,1.5,2\n3,4,5\n", {"", {"i"}, {"f"}});
  EXPECT_EQ(o.kinds(), (strings{"i string discrete 2/0", "f null ignore 2/0", "c integer class 2/0"}));
}

TEST(ImportConvert, TheClass) {
  // Unknown in training rows: refused; in test rows: allowed.
  const converted unknown("a,c\n1,x\n2,?\n");
  EXPECT_EQ(unknown.error(), unknown.file() + ", line 3, column 2 (c): the class is unknown");
  EXPECT_EQ(converted("a,c\n1,x\n", {}, "a,c\n1,?\n").kinds(), (strings{"a integer continuous 2/0", "c string class 1/1"}));
  // Numbers with fractions are no classes, unless taken as text.
  const converted measured("a,c\n1,2\n1,2.5\n");
  EXPECT_EQ(measured.error(),
            measured.file() +
                ", line 3, column 2 (c): '2.5': the class must hold classes, not measurements; take its values as "
                "text with --discrete c");
  EXPECT_EQ(converted("a,c\n1,2\n1,2.5\n", {"", {"c"}, {}}).kinds()[1], "c string class 2/0");
}

TEST(ImportConvert, ValuesThatCannotBeWritten) {
  const auto refusal = [](const std::string& text) {
    const converted c(text);
    return c.error().substr(c.file().size());
  };
  EXPECT_EQ(refusal("a,c\n\"x\ny\",1\n"),
            ", line 2, column 1 (a): the value holds a line break or a NUL, which arbor's files cannot carry");
  EXPECT_EQ(refusal("a,c\n1,1\n2,1\n3\n"), ", line 4: 1 fields where 2 columns are declared");
  // A float column cannot hold 1e39; a text column can.
  EXPECT_EQ(refusal("a,c\n1.5,1\n1e39,1\n"),
            ", line 3, column 1 (a): '1e39' is beyond the range of a 32-bit float; take the column as text with "
                 "--discrete a");
  EXPECT_EQ(converted("a,c\n1e39,1\nx,1\n").kinds()[0], "a string discrete 2/0");
  EXPECT_EQ(refusal("a,c\n"), ": no rows to train on");
}

TEST(ImportConvert, DeclaredKindsAreEnforced) {
  converted c("n,i,l,c\n1,1,x,1\n");
  c.d.columns[0].kind = declared::NUMBER;
  c.d.columns[1].kind = declared::INTEGER;
  c.d.columns[2] = {"l", declared::DISCRETE, {"x", "y"}, true};
  EXPECT_EQ(c.kinds()[0], "n integer continuous 1/0");
  const std::string at = c.file();
  auto with_row = [&](const std::string& row) {
    testing_support::write_file(c.file(), "n,i,l,c\n" + row + "\n");
    return c.error();
  };
  EXPECT_EQ(with_row("abc,1,x,1"), at + ", line 2, column 1 (n): 'abc' is not a number");
  EXPECT_EQ(with_row("1,1.5,x,1"), at + ", line 2, column 2 (i): '1.5' is not a 32-bit integer");
  EXPECT_EQ(with_row("1,x,x,1"), at + ", line 2, column 2 (i): 'x' is not an integer");
  EXPECT_EQ(with_row("1e39,1,x,1"), at + ", line 2, column 1 (n): '1e39' is beyond the range of a 32-bit float");
  EXPECT_EQ(with_row("1,1,z,1"), at + ", line 2, column 3 (l): 'z' is not among the values declared for l");
}

TEST(ImportConvert, OptionsAndNames) {
  scratch_dir d;
  auto refusal_of = [&](const std::string& header, import_options o) {
    return error_of([&] {
      dataset ds = read_delimited(d.write("o.csv", header + "\n1,2,3\n"), ',', "");
      apply_options(ds, o);
    });
  };
  const std::string f = d.file("o.csv");
  EXPECT_EQ(refusal_of("a,b,c", {}), f + ": which column is the class? Name it with --class");
  EXPECT_EQ(refusal_of("a,b,c", {"x", {}, {}}), "--class x: no column of " + f + " has that name");
  EXPECT_EQ(refusal_of("a,b,c", {"c", {"d"}, {}}), "--discrete d: no column of " + f + " has that name");
  EXPECT_EQ(refusal_of("a,b,c", {"c", {}, {"c"}}), "--ignore c: the class column cannot be ignored");
  EXPECT_EQ(refusal_of("a,b,a", {"b", {}, {}}), f + ": two columns are named a");
}

TEST(ImportConvert, SeparatorOfTheFilesWritten) {
  EXPECT_EQ(analyse(converted("a,c\n1,x\n").d).separator, ',');
  EXPECT_EQ(analyse(converted("\"a,1\",c\n1,x\n").d).separator, ';');  // a name holds a comma
  EXPECT_EQ(analyse(converted("a,c\n\"1,2;3\",x\n").d).separator, '\t');
  EXPECT_EQ(analyse(converted("a,c\n\"1,2;3\t4\",x\n").d).separator, '|');
  const converted all("a,c\n\"1,2;3\t4|5\",x\n");
  EXPECT_EQ(all.error(), all.file() + ": the values hold every separator arbor's files could use (, ; tab |)");
}

TEST(ImportConvert, FilesWritten) {
  converted c("a , \"b;1\", c\n1, \"x,y\" , p\n?,z,q\n", {}, "a,\"b;1\",c\n2,,p\n");
  const conversion conv = analyse(c.d);
  const output_files out = output_names(c.dir.file("out"), true, false);
  write_arbor(c.d, conv, out);
  EXPECT_EQ(read_file(out.names), "a\tinteger\tcontinuous\nb;1\tstring\tdiscrete\nc\tstring\tclass\n");
  EXPECT_EQ(read_file(out.data), "1\tx,y\tp\n?\tz\tq\n");
  EXPECT_EQ(read_file(out.test), "2\t?\tp\n");
  EXPECT_FALSE(std::filesystem::exists(out.data + ".part"));
}

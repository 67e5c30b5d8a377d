#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tarn/util/string_util.h"

using tarn::util::string_util::str2int;
using tarn::util::string_util::toXML;

namespace {

template <class T>
std::string failure(const char* text) {
  T out = 7;
  try {
    str2int(text, out);
  } catch (const std::runtime_error& e) {
    EXPECT_EQ(out, static_cast<T>(7)) << "a failed parse must leave the output untouched";
    return e.what();
  }
  return "no error";
}

template <class T>
T parsed(const char* text) {
  T out = 0;
  str2int(text, out);
  return out;
}

}  // namespace

TEST(StringUtil, UnsignedAcceptsBlanksSignAndTheLargestValue) {
  EXPECT_EQ(parsed<unsigned>("  42"), 42u);
  EXPECT_EQ(parsed<unsigned>("+7"), 7u);
  EXPECT_EQ(parsed<unsigned>("4294967295"), 4294967295u);
  EXPECT_EQ(parsed<unsigned>("0"), 0u);
  EXPECT_EQ(parsed<unsigned>("+"), 0u);
}

TEST(StringUtil, UnsignedRefusals) {
  EXPECT_EQ(failure<unsigned>("42 "), "42 : _not an int");
  EXPECT_EQ(failure<unsigned>(""), ": not an int");
  EXPECT_EQ(failure<unsigned>("  "), "  : not an int");
  EXPECT_EQ(failure<unsigned>("-1"), "str2int:: a negative number provided.");
  EXPECT_EQ(failure<unsigned>("4294967296"), "str2int:: overflow");
  EXPECT_EQ(failure<unsigned>("99999999999"), "str2int:: overflow");
  EXPECT_EQ(failure<unsigned>("\t5"), "\t5: _not an int");
  EXPECT_EQ(failure<unsigned>(nullptr), "str2int:: cannot convert a NULL string.");
}

TEST(StringUtil, SignedLimitsAndLoneSigns) {
  EXPECT_EQ(parsed<int>("-"), 0);
  EXPECT_EQ(parsed<int>("-2147483647"), -2147483647);
  EXPECT_EQ(parsed<int>("2147483647"), 2147483647);
  EXPECT_EQ(parsed<int>(" -12"), -12);
  // The magnitude limit is the positive maximum, so the most negative int
  // cannot be written.
  EXPECT_EQ(failure<int>("-2147483648"), "str2int:: overflow");
  EXPECT_EQ(failure<int>("2147483648"), "str2int:: overflow");
  EXPECT_EQ(failure<int>("+a"), "+a: _not an int");
  EXPECT_EQ(failure<int>("1.5"), "1.5: _not an int");
  EXPECT_EQ(failure<int>(""), ": not an int");
}

TEST(StringUtil, ToXmlEscapesOnlyAngleBracketsAndAmpersands) {
  EXPECT_EQ(toXML("a<b>c"), "a&lt;b&gt;c");
  EXPECT_EQ(toXML("\"quoted\" 'x'"), "\"quoted\" 'x'");
  EXPECT_EQ(toXML("&amp;"), "&amp;amp;");
  EXPECT_EQ(toXML(""), "");
}

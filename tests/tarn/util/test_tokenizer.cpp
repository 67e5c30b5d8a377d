#include <gtest/gtest.h>

#include <string>

#include "tarn/util/tokenizer.h"

using tarn::util::count_fields;
using tarn::util::tokenizer;

TEST(Tokenizer, CutsFieldsAsTheyStand) {
  tokenizer t;
  t.set_separator(',');
  t.set_text(" a,,b c ,");
  EXPECT_STREQ(t.next(), " a");
  EXPECT_STREQ(t.next(), "");
  EXPECT_STREQ(t.next(), "b c ");
  EXPECT_STREQ(t.next(), "");
  // Past the end every call gives an empty token.
  EXPECT_STREQ(t.next(), "");
  EXPECT_STREQ(t.next(), "");
}

TEST(Tokenizer, DefaultSeparatorIsTab) {
  tokenizer t;
  t.set_text("x\ty,z");
  EXPECT_STREQ(t.next(), "x");
  EXPECT_STREQ(t.next(), "y,z");
}

TEST(Tokenizer, NulSeparatorMakesOneField) {
  tokenizer t;
  t.set_separator('\0');
  t.set_text("a,b;c");
  EXPECT_STREQ(t.next(), "a,b;c");
  EXPECT_STREQ(t.next(), "");
  EXPECT_EQ(count_fields("a,b;c", '\0'), 1u);
}

TEST(Tokenizer, TokenBufferGrowsForLongFields) {
  tokenizer t;
  t.set_separator(',');
  const std::string longfield(5000, 'q');
  const std::string text = "s," + longfield + ",e";
  t.set_text(text.c_str());
  EXPECT_STREQ(t.next(), "s");
  EXPECT_EQ(std::string(t.next()), longfield);
  EXPECT_STREQ(t.next(), "e");
}

TEST(Tokenizer, FieldCountIgnoresAFinalSeparator) {
  EXPECT_EQ(count_fields("", ','), 1u);
  EXPECT_EQ(count_fields("a,b,c", ','), 3u);
  EXPECT_EQ(count_fields("a,b,c,", ','), 3u);
  EXPECT_EQ(count_fields("a,b,,", ','), 3u);
  EXPECT_EQ(count_fields(",", ','), 1u);
  EXPECT_EQ(count_fields("a;b,c", ';'), 2u);
}

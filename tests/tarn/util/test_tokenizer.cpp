#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

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

namespace {

// A line in a buffer with the spare bytes the block-wise cutters read.
std::vector<char> padded(const std::string& line) {
  std::vector<char> b(line.size() + 32, '\0');
  std::copy(line.begin(), line.end(), b.begin());
  return b;
}

}  // namespace

TEST(Tokenizer, CuttersAgreeWithCountAndNextOnAnyLine) {
  using tarn::util::cut_fields;
  using tarn::util::cut_leading_fields;
  using tarn::util::field_span;
  std::mt19937 g(11);
  const char alphabet[] = {',', ',', ';', 'a', 'b', ' ', '\r', '\0'};
  for (int n = 0; n < 20000; ++n) {
    std::string line;
    const int length = static_cast<int>(g() % 40);
    for (int i = 0; i < length; ++i) line += alphabet[g() % (n % 7 == 0 ? 8 : 7)];  // some with NULs inside
    for (const char sep : {',', ';', '\0'}) {
      const char* text = line.c_str();
      const unsigned count = count_fields(text, sep);
      tokenizer t;
      t.set_separator(sep);
      t.set_text(text);
      std::vector<std::string> want;
      for (unsigned j = 0; j < count + 2; ++j) want.emplace_back(t.next());
      // Exactly the counted number of fields, and no other.
      for (const unsigned k : {count, count + 1, count > 1 ? count - 1 : count + 2}) {
        std::vector<char> b = padded(line);
        std::vector<field_span> f(k + 1);
        const bool cut = cut_fields(b.data(), sep, k, f.data());
        ASSERT_EQ(cut, k == count) << line;
        if (!cut) {
          EXPECT_EQ(std::string(b.data()), std::string(text)) << "left as it was";
          continue;
        }
        for (unsigned j = 0; j < k; ++j) {
          ASSERT_EQ(std::string(f[j].text), want[j]);
          ASSERT_EQ(f[j].length, want[j].size());
        }
      }
      // The leading fields, past the end too, as next() gives them.
      for (const unsigned k : {1u, count, count + 2}) {
        std::vector<char> b = padded(line);
        std::vector<field_span> f(k);
        cut_leading_fields(b.data(), sep, k, f.data());
        for (unsigned j = 0; j < k; ++j) {
          ASSERT_EQ(std::string(f[j].text), want[j]) << line << " field " << j;
          ASSERT_EQ(f[j].length, want[j].size());
        }
      }
    }
  }
}

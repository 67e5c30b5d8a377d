#include <gtest/gtest.h>

#include <locale.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "tarn/inpout/stream.h"
#include "tarn/util/numbers.h"
#include "test_support.h"

using tarn::util::parse_real;

namespace {

// The definition: strtod in the "C" locale over the whole, non-empty text.
bool reference(const char* s, double& out) {
  static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  char* stop = nullptr;
  out = strtod_l(s, &stop, c);
  return *s != '\0' && *stop == '\0';
}

// Same acceptance, and the same value to the bit (not-a-number: the same
// sign; its payload is not kept by any domain).
::testing::AssertionResult same_as_strtod(const std::string& text) {
  double want = 0, got = 0;
  const bool ok_want = reference(text.c_str(), want);
  const bool ok_got = parse_real(text.c_str(), text.size(), got);
  if (ok_want != ok_got) return ::testing::AssertionFailure() << "'" << text << "' accepted: " << ok_got;
  if (!ok_want) return ::testing::AssertionSuccess();
  const bool same = std::isnan(want) ? std::isnan(got) && std::signbit(want) == std::signbit(got)
                                     : std::memcmp(&want, &got, sizeof want) == 0;
  if (!same) return ::testing::AssertionFailure() << "'" << text << "': " << got << " instead of " << want;
  // A float column narrows the double: the same either way, then.
  return ::testing::AssertionSuccess();
}

}  // namespace

TEST(Numbers, EdgeCasesReadAsStrtodReadsThem) {
  const char* texts[] = {
      // plain forms, leading zeros, signs
      "0", "-0", "+0", "0.0", "-0.000", "007", "00012.50", "1.", ".5", "-.5", "+7", "+.25", "-3.25",
      // exponents
      "1e5", "1E+05", "-1.5e-3", "2e0", "1e", "1e+", "e5", ".e1", "1.5e-", "5e-1x",
      // out of range, denormals, rounding ties and long digit strings
      "1e400", "-1e400", "1e-400", "-1e-400", "4.9e-324", "2.4703282292062327e-324", "2.4703282292062328e-324",
      "2.2250738585072011e-308", "1.7976931348623157e308", "1.7976931348623158e308", "1.7976931348623159e308",
      "9007199254740993", "9007199254740992.5", "0.1", "0.30000000000000004", "3.4028235677973366e38",
      "123456789012345678901234567890", "3.14159265358979323846264338327950288419716939937510",
      "0.000000000000000000000000000000000000000000001", "1.00000000000000011102230246251565404236316680908203125",
      // hexadecimal
      "0x1A", "0X1a", "0x1p-3", "0x1.8P1", "-0x10", "0x", "0xg",
      // infinity and not-a-number spellings
      "inf", "-INF", "+Inf", "infinity", "-Infinity", "infinit", "infx", "nan", "NaN", "-nan", "nan(123)",
      "nan()", "nan(", "nanx",
      // blanks and other debris
      "", " ", " 1", "\t2", "\n3", "1 ", "1\t", "-", "+", ".", "--1", "+-1", "1..2", "1,5", "12abc", "1_000",
      "one", "?", "\xff", "1e5.5"};
  for (const char* t : texts) EXPECT_TRUE(same_as_strtod(t));
}

TEST(Numbers, PlainDecimalsOfEveryLengthReadAsStrtodReadsThem) {
  // Digit runs around the lengths where the reading changes method (8 and
  // 16 digits, 15 in all), zeros in front, with and without a point.
  std::mt19937_64 g(4);
  for (int n = 0; n < 300000; ++n) {
    std::string text = g() % 4 == 0 ? "-" : "";
    const int whole = static_cast<int>(g() % 19), fraction = static_cast<int>(g() % 12) - 1;
    for (int i = 0; i < whole; ++i) text += static_cast<char>('0' + (i == 0 && g() % 3 ? 0 : g() % 10));
    if (fraction >= 0) text += '.';
    for (int i = 0; i < fraction; ++i) text += static_cast<char>('0' + g() % 10);
    ASSERT_TRUE(same_as_strtod(text));
  }
}

TEST(Numbers, LocaleDoesNotChangeTheDecimalPoint) {
  // Whatever the numeric locale of the process (where one with a decimal
  // comma is installed), a point is the decimal point.
  const std::string saved = setlocale(LC_NUMERIC, nullptr);
  const bool changed = setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
  double v = 0;
  EXPECT_TRUE(parse_real(" 1.5", 4, v));
  EXPECT_EQ(v, 1.5);
  EXPECT_FALSE(parse_real(" 1,5", 4, v));
  setlocale(LC_NUMERIC, saved.c_str());
  if (!changed) GTEST_SKIP() << "no locale with a decimal comma installed";
}

TEST(Numbers, EveryFieldOfTheSharedDataSetsReadsAsStrtodReadsIt) {
  namespace fs = std::filesystem;
  if (!fs::exists(testing_support::data_dir())) GTEST_SKIP() << "no shared data sets";
  std::size_t fields = 0;
  for (const auto& dir : fs::directory_iterator(testing_support::data_dir())) {
    for (const auto& file : fs::directory_iterator(dir.path())) {
      const std::string p = file.path().string();
      if (p.find(".names") != std::string::npos) continue;
      std::unique_ptr<tarn::inpout::stream> s(tarn::inpout::stream::FROM_FILE(p, ','));
      while (s->read_line()) {
        for (const char* line = s->get_line(); *line;) {
          const char* end = std::strchr(line, ',');
          const std::string text = end ? std::string(line, end) : std::string(line);
          ASSERT_TRUE(same_as_strtod(text)) << p;
          ++fields;
          line = end ? end + 1 : line + text.size();
        }
      }
    }
  }
  EXPECT_GT(fields, 1000000u);
}

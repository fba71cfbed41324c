/* Numbers of files and parameters pass through here.  A text half understood becomes a
 * wrong coordinate; a locale or a hostile pattern must change nothing. */
#include "platform/stock/text.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "platform/stock/bytes.h"
#include "support/comma_locale.h"

namespace {

using ksutil::glob_match;

TEST(ParseReal, TakesWhatFilesHold) {
  const std::pair<const char *, double> cases[] = {{".5", 0.5},
                                                   {"-.05", -0.05},
                                                   {"5.", 5.0},
                                                   {"1e3", 1000.0},
                                                   {"+1", 1.0},
                                                   {" 7 \r\n", 7.0},
                                                   {"-0", 0.0},
                                                   {"1E-2", 0.01},
                                                   {"inf", INFINITY},
                                                   {"-INF", -INFINITY},
                                                   {"1e-400", 0.0},
                                                   {"4.9e-324", 4.9e-324},
                                                   {"99999999999999999999999", 1e23}};
  for (const auto &[text, value] : cases) {
    double result = -77.0;
    EXPECT_TRUE(ksutil::parse_real(text, result)) << text;
    EXPECT_EQ(result, value) << text;
  }
  double nan = 0.0;
  EXPECT_TRUE(ksutil::parse_real("NaN", nan) && std::isnan(nan));
}

TEST(ParseReal, RefusesTheRestUntouched) {
  double result = 3.0;
  for (const char *text :
       {"", " ", ".", "-", "+", "+-1", "--1", "1,5", "1 2", "1e", "e5", "0x10", "1e999",
        "-1e999", "1.2.3", "12a", "infinite"}) {
    EXPECT_FALSE(ksutil::parse_real(text, result)) << text;
  }
  EXPECT_FALSE(ksutil::parse_real(std::string_view("1\0", 2), result));
  EXPECT_EQ(result, 3.0);
}

TEST(ParseInteger, TakesTheWholeRangeAndNothingBeyond) {
  std::int64_t n = 5;
  EXPECT_TRUE(ksutil::parse_integer(" -9223372036854775808 ", n) && n == INT64_MIN);
  EXPECT_TRUE(ksutil::parse_integer("+9223372036854775807", n) && n == INT64_MAX);
  for (const char *text : {"9223372036854775808", "", "1.0", "+-1", "1 1", "0x1"}) {
    EXPECT_FALSE(ksutil::parse_integer(text, n)) << text;
  }
  EXPECT_EQ(n, INT64_MAX);
}

/* The C library's own function in the C locale is the model. */
TEST(FixStrtod, AgreesWithStrtod) {
  for (const char *text :
       {"1.5x",   "  \t\v-2e3 ", "+.5",       "+-1",     "abc",  "",
        "  ",     "0x1.8p1",     "0x",        "-0X10 7", "inf",  "-Infinity1",
        "nan",    "NAN(12)x",    "1e",        "1e+",     "1e5",  "1e999",
        "-1e999", "1e-999",      ".",         "1.",      "-.e1", "12,5",
        "1e5e5",  "+inf",        "0x1p-1074", "infx"}) {
    char *end = nullptr, *model_end = nullptr;
    const double value = fix_strtod(text, &end);
    const double model = std::strtod(text, &model_end);
    EXPECT_TRUE(value == model || (std::isnan(value) && std::isnan(model))) << text;
    EXPECT_EQ(end - text, model_end - text) << text;
  }
  EXPECT_EQ(fix_strtod("2.5", nullptr), 2.5);
}

TEST(Locale, ChangesNothing) {
  const CommaLocale locale;
  ASSERT_TRUE(locale.ready()) << "the package locales is missing";
  char room[8];
  std::snprintf(room, sizeof room, "%.1f", 2.5);
  ASSERT_STREQ(room, "2,5");
  EXPECT_EQ(fix_strtod("2.5", nullptr), 2.5);
  EXPECT_EQ(fix_strtod("0x1.8p0", nullptr), 1.5);
  EXPECT_EQ(ksutil::format_text("%.1f", 2.5), "2.5");
}

TEST(FormatText, HoldsTextsOfAnyLength) {
  for (const std::size_t n : {0u, 1u, 255u, 256u, 257u, 100000u}) {
    const std::string text(n, 'y');
    EXPECT_EQ(ksutil::format_text("%s", text.c_str()), text);
  }
}

TEST(Trimmed, TakesBlanksOffTheEnds) {
  EXPECT_EQ(ksutil::trimmed(" \ta b\r\n"), "a b");
  EXPECT_EQ(ksutil::trimmed(" \n "), "");
  EXPECT_EQ(ksutil::right_trimmed(" a  "), " a");
  EXPECT_EQ(ksutil::lowered("AbZ-\xC4"), "abz-\xC4");
}

TEST(Glob, FollowsShellPatterns) {
  for (const auto &[pattern, text] : {std::pair{"*", ""},
                                      {"", ""},
                                      {"BH?", "BHZ"},
                                      {"[BH]H[!ZN]", "HHE"},
                                      {"[]x]", "]"},
                                      {"[^a-c]", "d"},
                                      {"[a-]", "-"},
                                      {"[a-c-]", "-"},
                                      {"a\\*", "a*"},
                                      {"[\\]]", "]"},
                                      {"[ab", "[ab"},
                                      {"a\\", "a\\"},
                                      {"*.*c", "a.b.c"},
                                      {"a*b*c", "aXbYbZc"},
                                      {"[\x80-\xff]", "\xC4"}}) {
    EXPECT_TRUE(glob_match(pattern, text)) << pattern << " " << text;
  }
  for (const auto &[pattern, text] : {std::pair{"", "a"},
                                      {"?", ""},
                                      {"a*b", "abc"},
                                      {"[!a]", "a"},
                                      {"[z-a]", "b"},
                                      {"a\\*", "ab"},
                                      {"[a-]", "b"},
                                      {"bh?", "BHZ"},
                                      {"[]", "]"}}) {
    EXPECT_FALSE(glob_match(pattern, text)) << pattern << " " << text;
  }
}

/* The definition of a pattern, as slow as it is short. */
bool matches(std::string_view pattern, std::string_view text) {
  if (pattern.empty()) return text.empty();
  if (pattern[0] == '*') {
    return matches(pattern.substr(1), text) ||
           (!text.empty() && matches(pattern, text.substr(1)));
  }
  return !text.empty() && (pattern[0] == '?' || pattern[0] == text[0]) &&
         matches(pattern.substr(1), text.substr(1));
}

TEST(Glob, AgreesWithItsDefinitionOnRandomTexts) {
  std::mt19937 random(5);
  const auto draw = [&](std::string_view alphabet, unsigned most) {
    std::string text;
    for (auto n = random() % (most + 1); n > 0; --n) {
      text += alphabet[random() % alphabet.size()];
    }
    return text;
  };
  for (int i = 0; i < 20000; ++i) {
    const std::string pattern = draw("ab*?*", 8), text = draw("ab", 10);
    ASSERT_EQ(glob_match(pattern, text), matches(pattern, text))
        << pattern << " " << text;
  }
}

/* A pattern of a client must not stop the server: these take for ever when matched by
 * trying every star anew, or by looking for the end of each bracket. */
TEST(Glob, HostilePatternsEnd) {
  std::string stars, text(20000, 'a');
  for (int i = 0; i < 2000; ++i) stars += "*a";
  EXPECT_FALSE(glob_match(stars + "b", text));
  EXPECT_FALSE(glob_match("*" + std::string(5000, '[') + "b", std::string(5000, '[')));
}

TEST(Bytes, AreBigEndianWithoutAlignmentAndInPlace) {
  unsigned char room[17] = {};
  const std::uint32_t n = 0x01020304;
  hi2mi(&n, room + 1, 1);
  EXPECT_EQ(std::memcmp(room + 1, "\1\2\3\4", 4), 0);
  const double d[2] = {-1.5, 1e300};
  hd2md(d, room + 1, 2);
  EXPECT_EQ(std::memcmp(room + 1, "\xBF\xF8\0\0\0\0\0\0", 8), 0);
  md2hd(room + 1, room + 1, 2);
  EXPECT_EQ(std::memcmp(room + 1, d, sizeof d), 0);
  /* A signalling NaN survives: values are never moved as numbers. */
  const std::uint32_t bits = 0x7fa00001;
  hf2mf(&bits, room, 1);
  EXPECT_EQ(std::memcmp(room, "\x7f\xa0\0\1", 4), 0);
  mf2hf(room, room, 1);
  mi2hi(room, room, -1);
  EXPECT_EQ(std::memcmp(room, &bits, 4), 0);
}

}  // namespace
